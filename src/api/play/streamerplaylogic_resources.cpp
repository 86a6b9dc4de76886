#include "streamerplaylogic.h"

#include <QTimer>

#include "dbglog.h"

// Resource fall-back, gapless next media and the delayed error report.

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("StreamerPlayLogic"));

namespace {

bool sameResource(const ZuvoResource& active, const ZuvoResource& candidate) {
    if (!active.uid().isEmpty())
        return candidate.uid() == active.uid();
    if (!active.uri().isEmpty())
        return candidate.uri() == active.uri();
    if (!active.data().isNull())
        return candidate.data() == active.data();
    return false;
}

} // namespace

int StreamerPlayLogic::activeResourcePosition(const ZuvoRoles& roles) {
    dbglog_scopedFunction(logger);
    const ZuvoMediaData mediaData = roles.mediaData();
    const ZuvoResource active = mediaData.activeResource();
    const ZuvoList<ZuvoResource> resources = mediaData.resources();
    for (int i = 0; i < resources.size(); ++i) {
        if (sameResource(active, resources.at(i)))
            return i;
    }
    return -1;
}

ZuvoRoles StreamerPlayLogic::nextActiveResource(const ZuvoRoles& roles) {
    dbglog_scopedFunction(logger);
    ZuvoMediaData mediaData = roles.mediaData();
    const ZuvoList<ZuvoResource> resources = mediaData.resources();
    if (resources.size() < 2)
        return ZuvoRoles();
    const int pos = activeResourcePosition(roles);
    // No wrap-around: the last resource has no successor.
    if (pos < 0 || pos + 1 >= resources.size())
        return ZuvoRoles();
    const ZuvoResource next = resources.at(pos + 1);
    if (next == mediaData.activeResource()) {
        LOG4CPLUS_ERROR(logger, "Next resource is equal to active, skip to prevent loop");
        return ZuvoRoles();
    }
    ZuvoRoles result = roles;
    mediaData.setActiveResource(next);
    result.setMediaData(mediaData);
    return result;
}

bool StreamerPlayLogic::tryNextResource() {
    dbglog_scopedFunction(logger);
    const ZuvoRoles next = nextActiveResource(m_currentTrackRoles);
    if (next.isEmpty())
        return false;
    LOG4CPLUS_INFO(logger, "Streamer error, one more resource available, starting new playback");
    sendPlayCommand(next, QVariantHash());
    return true;
}

bool StreamerPlayLogic::handleAlternate(const CMError& error) {
    dbglog_scopedFunction(logger);
    Q_UNUSED(error)
    return false;
}

void StreamerPlayLogic::on_streamerController_prepareNextMedia() {
    dbglog_scopedFunction(logger);
    const ZuvoPlayLogicData published = data();
    if (m_continueAllowed && published.mediaRoles().mediaData().metaData().live()) {
        const ZuvoRoles next = nextActiveResource(published.trackRoles());
        if (!next.isEmpty()) {
            LOG4CPLUS_DEBUG(logger, "One more resource available, sending next media");
            sendSetNextMediaCommand(next, QVariantHash());
            return;
        }
    }
    prepareNextMedia();
}

void StreamerPlayLogic::prepareNextMedia() {
    dbglog_scopedFunction(logger);
    sendNoNextMediaCommand();
}

void StreamerPlayLogic::sendNoNextMediaCommand() {
    dbglog_scopedFunction(logger);
    setStopFlag(NoNextMedia);
    m_streamerController.clearNextPlayback();
    LOG4CPLUS_TRACE(logger, "clearNextMedia command sent");
}

CMReply<QVariant> StreamerPlayLogic::sendSetNextMediaCommand(const ZuvoRoles& roles,
                                                             const QVariantHash& attributes) {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_INFO(logger, "Send setNextMedia command roles: " << roles);
    return preplayAndPlay(playRequest(roles, attributes, SetNextMediaCommand));
}

void StreamerPlayLogic::reportError(const CMError& error) {
    dbglog_scopedFunctionArgs(logger, error);
    ZuvoPlayLogicData record = data();
    record.setError(error.message().isEmpty() ? error.name() : error.message());
    setData(record);
    // Restarting counts the 2000 ms from the latest report.
    m_errorReportTimer->start();
}

void StreamerPlayLogic::resetErrorReport() {
    dbglog_scopedFunction(logger);
    m_errorReportTimer->stop();
    ZuvoPlayLogicData record = data();
    record.setError(QString());
    setData(record);
}

void StreamerPlayLogic::on_errorReportTimer_timeout() {
    dbglog_scopedFunction(logger);
    resetErrorReport();
    tryResumePlayback();
}
