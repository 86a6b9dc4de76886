#include "simulatedmedia.h"

#include <QSet>
#include <QUrl>
#include <QUrlQuery>

#include "dbglog.h"
#include "streamererrors.h"
#include "streamerservice.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("SimulatedStreamer"));

namespace {

const QString ParameterPrefix = QStringLiteral("zuvo-");
const QString DurationParameter = QStringLiteral("zuvo-duration");
const QString ErrorParameter = QStringLiteral("zuvo-error");
const QString ErrorAfterParameter = QStringLiteral("zuvo-error-after");
const QString CrashParameter = QStringLiteral("zuvo-crash");
const QString LiveValue = QStringLiteral("live");

// A whole decimal number of milliseconds, or -1 when text is none (or negative).
qint64 parseMs(const QString& text) {
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    return ok && value >= 0 ? value : -1;
}

void warnIgnored(const QString& key, const QString& value, const QString& uri) {
    LOG4CPLUS_WARN(logger, "Ignoring URI parameter " << key << "=" << value << " of " << uri);
}

} // namespace

bool SimulatedMedia::hasPlaylistSuffix(const QString& uri) {
    static const QSet<QString> suffixes = {
        QStringLiteral("m3u"), QStringLiteral("m3u8"), QStringLiteral("pls"), QStringLiteral("asx"),
        QStringLiteral("wax"), QStringLiteral("wvx"),  QStringLiteral("wpl"), QStringLiteral("xspf"),
        QStringLiteral("ini"), QStringLiteral("txt")};
    const QString path = QUrl(uri).path();
    const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    return dot >= 0 && suffixes.contains(name.mid(dot + 1).toLower());
}

bool SimulatedMedia::isPlaylistMimeType(const QString& mimeType) {
    static const QSet<QString> types = {
        QStringLiteral("audio/x-mpegurl"),        QStringLiteral("audio/mpegurl"),
        QStringLiteral("application/x-mpegurl"),  QStringLiteral("application/vnd.apple.mpegurl"),
        QStringLiteral("audio/x-scpls"),          QStringLiteral("application/pls+xml"),
        QStringLiteral("video/x-ms-asf"),         QStringLiteral("video/x-ms-asx"),
        QStringLiteral("audio/x-ms-wax"),         QStringLiteral("video/x-ms-wvx"),
        QStringLiteral("application/vnd.ms-wpl"), QStringLiteral("application/xspf+xml")};
    return types.contains(mimeType.section(QLatin1Char(';'), 0, 0).trimmed().toLower());
}

SimulatedMedia SimulatedMedia::fromRoles(const ZuvoRoles& roles, qint64 defaultDurationMs) {
    const ZuvoResource resource = StreamerService::playedResource(roles);
    SimulatedMedia media;
    media.uri = resource.uri();
    if (resource.duration() == -1)
        media.durationMs = -1;
    else
        media.durationMs = resource.duration() > 0 ? resource.duration() : defaultDurationMs;
    if (media.uri.isEmpty())
        return media;

    bool errorAfterGiven = false;
    const QUrlQuery query(QUrl(media.uri).query(QUrl::FullyEncoded));
    const auto items = query.queryItems(QUrl::FullyDecoded);
    for (const auto& item : items) {
        const QString& key = item.first;
        const QString& value = item.second;
        if (!key.startsWith(ParameterPrefix))
            continue;
        if (key == DurationParameter) {
            const qint64 ms = parseMs(value);
            if (value == LiveValue)
                media.durationMs = -1;
            else if (ms > 0)
                media.durationMs = ms;
            else
                warnIgnored(key, value, media.uri);
        } else if (key == ErrorParameter) {
            bool ok = false;
            const int code = value.toInt(&ok);
            if (ok && StreamerErrorCode::isFailure(code))
                media.failureCode = code;
            else
                warnIgnored(key, value, media.uri);
        } else if (key == ErrorAfterParameter) {
            const qint64 ms = parseMs(value);
            if (ms >= 0) {
                media.failureAtMs = ms;
                errorAfterGiven = true;
            } else {
                warnIgnored(key, value, media.uri);
            }
        } else if (key == CrashParameter) {
            const qint64 ms = value.isEmpty() ? 0 : parseMs(value);
            if (ms >= 0) {
                media.crashes = true;
                media.crashAtMs = ms;
            } else {
                warnIgnored(key, value, media.uri);
            }
        } else {
            LOG4CPLUS_WARN(logger, "Ignoring unknown URI parameter " << key << " of " << media.uri);
        }
    }

    if (media.failureCode == 0) {
        if (errorAfterGiven)
            media.failureCode = DefaultMidStreamFailureCode;
        else if (hasPlaylistSuffix(media.uri) || isPlaylistMimeType(resource.mimeType()))
            media.failureCode = PlaylistFailureCode;
    }
    return media;
}
