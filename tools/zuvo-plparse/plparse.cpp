#include "plparse.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QUrl>
#include <climits>

#include "model/cmnodes.h"
#include "playlistdata.h"
#include "playlistparsenode.h"

namespace {

const CMPath ParserPath("/zuvo-plparse/parser");

PlParseRow rowFrom(const QString& title, const ZuvoMediaData& mediaData) {
    const ZuvoResource resource = mediaData.resources().value(0);
    return {title, resource.uri(), resource.mimeType(), mediaData.metaData().artist()};
}

PlParseOutcome failure(const QString& name, const QString& message) {
    PlParseOutcome outcome;
    outcome.errorName = name;
    outcome.errorMessage = message;
    return outcome;
}

PlParseOutcome failure(const CMError& error) {
    return failure(error.name(), error.message());
}

} // namespace

PlParseOutcome parsePlaylistUrl(const QString& url) {
    // Owned by the registry, like any node of a host.
    auto* node = new PlayListParseNode(ParserPath);
    node->setNodes(CMNodes::current());

    ZuvoResource resource;
    resource.setUri(url);
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>{resource});
    ZuvoRoles item;
    item.setMediaData(mediaData);

    PlParseOutcome outcome;
    bool finished = false;
    QEventLoop loop;
    const auto finish = [&](const PlParseOutcome& result) {
        outcome = result;
        finished = true;
        loop.quit();
    };

    CMReply<QVariant> parseReply;
    CMRoot()->invoke(ParserPath, item, parseReply);
    parseReply.onFinished(&loop, [&](const CMReply<QVariant>& reply) {
        if (reply.hasError()) {
            finish(failure(reply.error()));
            return;
        }
        // The list node clamps the range: one request reads every row.
        CMReply<ZuvoRowsRoles> rowsReply;
        CMRoot()->getRows(CMPath::fromEncoded(reply.value().toString()), 0, INT_MAX, 0,
                          {ZuvoRoles::Title(), ZuvoRoles::MediaData()}, rowsReply);
        rowsReply.onFinished(&loop, [&](const CMReply<ZuvoRowsRoles>& rows) {
            if (rows.hasError()) {
                finish(failure(rows.error()));
                return;
            }
            PlParseOutcome result;
            result.ok = true;
            const QVariantList values = rows.value().rows().toList();
            for (const QVariant& value : values) {
                const QVariantList row = value.toList();
                result.rows.append(rowFrom(row.value(0).toString(), ZuvoMediaData(row.value(1).toHash())));
            }
            finish(result);
        });
    });
    // Watchers always run from the event loop, so nothing has finished yet.
    if (!finished)
        loop.exec();
    return outcome;
}

PlParseOutcome parsePlaylistFile(const QString& path, const QString& contentType) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return failure(QStringLiteral("readError"),
                       QStringLiteral("Cannot read %1: %2").arg(path, file.errorString()));
    const QByteArray body = file.read(PlayListData::FetchReadSizeLimit);
    if (file.error() != QFileDevice::NoError)
        return failure(QStringLiteral("readError"),
                       QStringLiteral("Cannot read %1: %2").arg(path, file.errorString()));

    const QString url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString();
    PlayListData data(url, CMSetDataRequest());
    data.setDocument(body, contentType);

    PlayListParseNode parser(ParserPath);
    const PlayListParser::Result parsed = parser.parse(ZuvoRoles(), data);
    if (!parsed.ok) // the parse node's answer to the same body
        return failure(QStringLiteral("unknownFormat"), QStringLiteral("Unknown playlist format detected."));
    PlParseOutcome outcome;
    outcome.ok = true;
    for (const QVariant& variant : parsed.rows) {
        const ZuvoRoles roles(variant.toHash());
        outcome.rows.append(rowFrom(roles.title(), roles.mediaData()));
    }
    return outcome;
}
