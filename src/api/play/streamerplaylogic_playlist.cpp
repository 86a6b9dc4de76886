#include "streamerplaylogic.h"

#include <climits>

#include "dbglog.h"
#include "mimetypes.h"
#include "model/cmglobal.h"
#include "model/cmnodes.h"

// Playing the first entry of a playlist the streamer could not play itself.
// The hand-off is started in handleStreamerStoppedState(); the parse node
// answers with the path of a list node holding the playlist's entries.

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("StreamerPlayLogic"));

namespace {

// At most this many leading entries of a playlist are looked at (rows 0..9).
constexpr int FirstRow = 0;
constexpr int LastRow = 9;

// The URI of the first resource of the first row that has one; empty when
// none of rows has.
QString firstRowUri(const QStringList& roles, const QVariantList& rows) {
    for (const QVariant& row : rows) {
        const ZuvoRoles rowRoles(CMGlobal::rolesValuesToHash(roles, row.toList()));
        LOG4CPLUS_TRACE(logger, "rowRoles: " << rowRoles.__variant());
        const QString uri = rowRoles.mediaData().resources().value(0).uri();
        if (!uri.isEmpty())
            return uri;
    }
    return QString();
}

} // namespace

void StreamerPlayLogic::on_parser_finished(const CMVoidReply& reply) {
    dbglog_scopedFunction(logger);
    const CMError error = reply.error();
    if (!error.isEmpty()) {
        LOG4CPLUS_WARN(logger, "reply error: " << error.name() << " " << error.message());
        clearPlayback(error);
        return;
    }

    const CMPath listPath = CMPath::fromEncoded(CMReply<QVariant>(reply).value().toString());
    const QStringList roles = {ZuvoRoles::Query(), ZuvoRoles::Title(), ZuvoRoles::Path(),
                               ZuvoRoles::MediaData()};
    CMReply<ZuvoRowsRoles> rowsReply;
    CMRoot()->getRows(listPath, FirstRow, LastRow, 0, roles, rowsReply);
    // The list node answers get-rows at once, so this wait on the event-loop
    // thread does not block; a node that answered later would block it.
    rowsReply.waitForFinished(ULONG_MAX);
    const ZuvoRowsRoles rows = rowsReply.value();
    LOG4CPLUS_INFO(logger, "Got " << rows.rowsCount() << " from " << listPath);

    const QString uri = firstRowUri(roles, rows.rows().toList());
    LOG4CPLUS_TRACE(logger, "on_parser_finished: rowUri: " << uri);
    if (uri.isEmpty()) {
        LOG4CPLUS_WARN(logger, "returned data does not contain any URL after parsing playlist file");
        clearPlayback(
            CMError(ZuvoPlaylogicErrorName::ZuvoPlaylogicFailedParseUrl(),
                    ZUVO_TR("Returned data does not contain any URL after parsing playlist file!")));
        return;
    }

    // The entry is played as the current track: same item, new stream.
    ZuvoRoles newTrackRoles = m_currentTrackRoles;
    ZuvoMediaData mediaData = newTrackRoles.mediaData();
    ZuvoResource active = mediaData.activeResource();
    active.setUri(uri);
    active.setMimeType(MimeTypes::Audio::unknown());
    active.setDuration(-1);
    mediaData.setActiveResource(active);
    newTrackRoles.setMediaData(mediaData);
    LOG4CPLUS_TRACE(logger, "newTrackRoles: " << newTrackRoles.__variant());
    m_currentTrackRoles = newTrackRoles;
    LOG4CPLUS_TRACE(logger, "currentTrackRoles: " << m_currentTrackRoles.__variant());

    if (!m_playRequests.isEmpty()) {
        LOG4CPLUS_WARN(logger, "Another play request in progress, ignore roles from playlist parser");
        return;
    }
    ZuvoStreamerPlayArgs args;
    args.setRoles(m_currentTrackRoles);
    // Straight to the streamer: the item's pre-play already ran for the
    // playlist URL.
    realPlay(PlayRequest(args, PlayCommand));
}
