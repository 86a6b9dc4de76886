#include "itemloader.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QRegularExpression>
#include <QUrl>
#include <climits>

#include "model/cmnodes.h"
#include "tracklist.h"

namespace {

ZuvoRoles itemFor(const QString& uri) {
    ZuvoResource resource;
    resource.setUri(uri);
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>{resource});
    ZuvoRoles item;
    const QString name = QUrl(uri).fileName();
    item.setTitle(name.isEmpty() ? uri : name);
    item.setType(ZuvoRolesType::audio);
    item.setMediaData(mediaData);
    return item;
}

bool isPlaylistFile(const QString& path) {
    static const QStringList suffixes = {QStringLiteral("m3u"), QStringLiteral("m3u8"), QStringLiteral("pls"),
                                         QStringLiteral("asx"), QStringLiteral("wax"),  QStringLiteral("wvx"),
                                         QStringLiteral("wpl"), QStringLiteral("xspf"), QStringLiteral("ini"),
                                         QStringLiteral("txt")};
    return suffixes.contains(QFileInfo(path).suffix().toLower());
}

// The audio files of a folder (not its subfolders), by name.
QStringList audioFilesIn(const QString& folder) {
    static const QStringList patterns = {
        QStringLiteral("*.wav"),  QStringLiteral("*.flac"), QStringLiteral("*.ogg"), QStringLiteral("*.oga"),
        QStringLiteral("*.opus"), QStringLiteral("*.mp3"),  QStringLiteral("*.m4a"), QStringLiteral("*.aac"),
        QStringLiteral("*.mka"),  QStringLiteral("*.aif"),  QStringLiteral("*.aiff")};
    QStringList files;
    const QFileInfoList entries =
        QDir(folder).entryInfoList(patterns, QDir::Files | QDir::Readable, QDir::Name | QDir::IgnoreCase);
    for (const QFileInfo& entry : entries)
        files.append(QUrl::fromLocalFile(entry.absoluteFilePath()).toString());
    return files;
}

// The entries of the playlist at url, as the parse node at parserPath
// serves them; error set when it cannot.
QList<ZuvoRoles> parsePlaylist(const QString& url, const CMPath& parserPath, QString& error) {
    QList<ZuvoRoles> rows;
    QEventLoop loop;
    bool done = false;
    const auto finish = [&](const QString& reason) {
        error = reason;
        done = true;
        loop.quit();
    };

    const CMReply<QVariant> parseReply;
    CMRoot()->invoke(parserPath, itemFor(url), parseReply);
    parseReply.onFinished(&loop, [&](const CMReply<QVariant>& parsed) {
        if (parsed.hasError()) {
            finish(parsed.error().message());
            return;
        }
        // The list node clamps the range: one request reads every row.
        const CMReply<ZuvoRowsRoles> rowsReply;
        CMRoot()->getRows(CMPath::fromEncoded(parsed.value().toString()), 0, INT_MAX, 0,
                          {ZuvoRoles::Title(), ZuvoRoles::MediaData()}, rowsReply);
        rowsReply.onFinished(&loop, [&](const CMReply<ZuvoRowsRoles>& read) {
            if (read.hasError()) {
                finish(read.error().message());
                return;
            }
            const QVariantList values = read.value().rows().toList();
            for (const QVariant& value : values) {
                const QVariantList row = value.toList();
                ZuvoRoles item;
                item.setTitle(row.value(0).toString());
                item.setType(ZuvoRolesType::audio);
                item.setMediaData(ZuvoMediaData(row.value(1).toHash()));
                rows.append(item);
            }
            finish(QString());
        });
    });
    // Watchers always run from the event loop: nothing has finished yet.
    if (!done)
        loop.exec();
    return rows;
}

} // namespace

LoadedItems loadItems(const QStringList& arguments, const CMPath& parserPath) {
    static const QRegularExpression scheme(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]*:"));
    LoadedItems loaded;
    for (const QString& argument : arguments) {
        if (scheme.match(argument).hasMatch()) {
            loaded.items.append(itemFor(argument));
            continue;
        }
        const QFileInfo file(argument);
        if (file.isDir()) {
            const QStringList files = audioFilesIn(argument);
            if (files.isEmpty()) {
                loaded.error = QStringLiteral("%1: a folder without audio files").arg(argument);
                return loaded;
            }
            for (const QString& url : files)
                loaded.items.append(itemFor(url));
            continue;
        }
        if (!file.isFile() || !file.isReadable()) {
            loaded.error = QStringLiteral("%1: no such file, and not a URI").arg(argument);
            return loaded;
        }
        const QString url = QUrl::fromLocalFile(file.absoluteFilePath()).toString();
        if (!isPlaylistFile(argument)) {
            loaded.items.append(itemFor(url));
            continue;
        }
        QString error;
        const QList<ZuvoRoles> rows = parsePlaylist(url, parserPath, error);
        if (!error.isEmpty()) {
            loaded.error = QStringLiteral("%1: %2").arg(argument, error);
            return loaded;
        }
        loaded.items.append(TrackList::groupAlternates(rows));
    }
    if (loaded.items.isEmpty())
        loaded.error = QStringLiteral("nothing to play");
    return loaded;
}
