#include "fuzzsupport.h"

#include <QCoreApplication>
#include <QRegExp>
#include <cstdio>
#include <cstdlib>
#include <log4cplus/hierarchy.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>
#include <memory>

#include "logging.h"
#include "model/cmrequest.h"
#include "playlistdata.h"

namespace zuvofuzz {

namespace {

// A sink that still formats every event: log4cplus builds the message text
// before it asks the appender, so hostile text goes through our stream
// operators either way.
void quietLogging() {
    log4cplus::initialize();
    log4cplus::Logger::getDefaultHierarchy().resetConfiguration();
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
}

} // namespace

void setUp() {
    static const bool done = [] {
        static int argc = 1;
        static char name[] = "zuvo-fuzz";
        static char* argv[] = {name, nullptr};
        // Lives as long as the process; the fuzzer never returns from main.
        static QCoreApplication app(argc, argv);
        quietLogging();
        return true;
    }();
    (void)done;
}

void fail(const char* what, const QString& detail) {
    std::fprintf(stderr, "zuvo-fuzz: invariant broken: %s\n%s\n", what, detail.toUtf8().constData());
    std::abort();
}

Document documentFrom(const uint8_t* data, std::size_t size) {
    static const QString contentTypes[] = {QString(), QStringLiteral("video/x-ms-asf"),
                                           QStringLiteral("video/x-ms-asf; charset=utf-8"),
                                           QStringLiteral("audio/x-mpegurl")};
    const char* bytes = reinterpret_cast<const char*>(data);
    Document document;
    if (size > 0 && data[0] >= 0x01 && data[0] <= 0x04) {
        document.contentType = contentTypes[data[0] - 1];
        document.body = QByteArray(bytes + 1, int(size - 1));
    } else {
        document.body = QByteArray(bytes, int(size));
    }
    return document;
}

PlayListData& jobHolding(const Document& document) {
    static PlayListData job(QString::fromLatin1(PlaylistUrl), CMSetDataRequest());
    job.setDocument(document.body, document.contentType);
    return job;
}

ZuvoRoles requestRoles() {
    ZuvoMetaData metaData;
    metaData.setServiceID(QString::fromLatin1(ServiceId));
    ZuvoMediaData mediaData;
    mediaData.setMetaData(metaData);
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    return roles;
}

void checkResult(const PlayListParser::Result& result, UriForm form) {
    static QRegExp scheme(QStringLiteral("^\\w+://"), Qt::CaseSensitive, QRegExp::RegExp);
    if (!result.ok && !result.rows.isEmpty())
        fail("rows from a parser that did not accept the document");
    if (result.rows.size() > PlayListParser::MaxRows)
        fail("more rows than MaxRows", QString::number(result.rows.size()));
    for (const QVariant& row : result.rows) {
        if (row.userType() != QMetaType::QVariantHash)
            fail("a row that is not a hash", QString::fromLatin1(row.typeName()));
        const ZuvoRoles roles(row.toHash());
        if (roles.type() != ZuvoRolesType::audio)
            fail("a row that is not a playable item");
        const ZuvoMediaData mediaData = roles.mediaData();
        if (mediaData.metaData().serviceID() != QLatin1String(ServiceId))
            fail("a row without the request's service id", mediaData.metaData().serviceID());
        if (mediaData.resources().size() != 1)
            fail("a row without exactly one resource", QString::number(mediaData.resources().size()));
        const ZuvoResource resource = mediaData.resources().first();
        const QString uri = resource.uri();
        if (!uri.isEmpty() && resource.mimeType().isEmpty())
            fail("a resource without MIME type", uri);
        const bool resolved = uri.isEmpty() || scheme.indexIn(uri) == 0;
        const bool line = !uri.isEmpty() && uri == uri.trimmed();
        if ((form == UriForm::Resolved && !resolved) || (form == UriForm::Line && !line) ||
            (form == UriForm::Any && !resolved && !line))
            fail("an entry URI of the wrong form", uri);
    }
}

void checkSameResult(const PlayListParser::Result& first, const PlayListParser::Result& second) {
    if (first.ok != second.ok || first.rows != second.rows)
        fail("a second parse of the same document answered differently",
             QStringLiteral("%1 rows, then %2").arg(first.rows.size()).arg(second.rows.size()));
}

} // namespace zuvofuzz
