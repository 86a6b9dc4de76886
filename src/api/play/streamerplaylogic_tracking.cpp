#include "streamerplaylogic.h"

#include "dbglog.h"
#include "model/cmnodes.h"

// What the streamer reports: new media, published state and status, play
// time and buffer level, and the reports to the media's state-change node.

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("StreamerPlayLogic"));

int StreamerPlayLogic::currentStreamId() const {
    dbglog_scopedFunction(logger);
    const ZuvoPlayLogicData published = data();
    return published.isSetStreamId() ? published.streamId() : -1;
}

ZuvoRoles StreamerPlayLogic::translateTrackRoles(const ZuvoRoles& roles) {
    dbglog_scopedFunction(logger);
    return roles;
}

ZuvoPlayLogicStatus StreamerPlayLogic::translatePlayLogicStatus(const ZuvoPlayLogicStatus& status) {
    dbglog_scopedFunction(logger);
    return status;
}

ZuvoPlayLogicData StreamerPlayLogic::mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                                          const ZuvoRoles& previousTrackRoles) {
    dbglog_scopedFunction(logger);
    Q_UNUSED(newTrackRoles)
    Q_UNUSED(previousTrackRoles)
    return data();
}

void StreamerPlayLogic::tryResumePlayback() {
    dbglog_scopedFunction(logger);
}

void StreamerPlayLogic::playTimeChangedInternal(qint64 timeMs) {
    dbglog_scopedFunctionArgs(logger, timeMs);
    setPlayTime(timeMs);
}

void StreamerPlayLogic::on_streamerController_timeChanged(qint64 timeMs) {
    dbglog_scopedFunctionArgs(logger, timeMs);
    playTimeChangedInternal(timeMs);
}

void StreamerPlayLogic::on_streamerController_buffering(int percentage) {
    dbglog_scopedFunctionArgs(logger, percentage);
    setBufferLevel(double(percentage));
}

void StreamerPlayLogic::on_streamerController_streamerDataChanged(const ZuvoStreamerData& newStreamerData,
                                                                  const ZuvoStreamerData& oldStreamerData) {
    dbglog_scopedFunctionArgs(logger, "new: " << newStreamerData << " old: " << oldStreamerData);
    const ZuvoStreamerData& current = newStreamerData;
    const ZuvoPlayLogicState::Enum streamerState = current.state();

    const bool newMedia = oldStreamerData.playbackId() != current.playbackId() &&
                          current.error().name().isEmpty() && streamerState != ZuvoPlayLogicState::stopped;
    const ZuvoPlayLogicData published = data();
    bool stateChanged = newMedia;
    if (!newMedia && current.isSetState())
        stateChanged = streamerState != published.state();
    const bool statusChanged = newMedia || current.status() != published.status();
    if (!newMedia && !stateChanged && !statusChanged)
        return;

    ZuvoPlayLogicData record = published;
    if (newMedia) {
        LOG4CPLUS_DEBUG(logger, "New media started, with track roles: " << current.trackRoles());
        // The previous track's owner learns that its track has stopped.
        const CMPath previousPath = m_currentTrackRoles.mediaData().metaData().playbackStateChangePath();
        if (!previousPath.isEmpty() && m_lastReportedState != ZuvoPlayLogicState::stopped) {
            ZuvoPlayLogicData stopped = record;
            stopped.setState(ZuvoPlayLogicState::stopped);
            reportPlaybackState(previousPath, stopped);
            m_lastReportedState = ZuvoPlayLogicState::stopped;
        }
        const ZuvoPlayLogicData before = data();
        record = mediaPlaybackStarted(translateTrackRoles(current.trackRoles()), m_currentTrackRoles);
        if (data() != before)
            LOG4CPLUS_WARN(logger, "data() changed in mediaPlaybackStarted, use return value instead");
    }

    m_currentTrackRoles = translateTrackRoles(current.trackRoles());
    m_nextTrackRoles = translateTrackRoles(current.nextTrackRoles());

    record.setStreamId(current.playbackId());
    record.setTrackRoles(m_currentTrackRoles);
    if (statusChanged)
        record.setStatus(translatePlayLogicStatus(current.status()));
    if (stateChanged) {
        LOG4CPLUS_DEBUG(logger,
                        "Old state: " << ZuvoPlayLogicState::toString(oldStreamerData.state())
                                      << "  new state: " << ZuvoPlayLogicState::toString(streamerState));
        // A stopping streamer never publishes the stopped state by itself;
        // only the end of playback does.
        record.setState(streamerState == ZuvoPlayLogicState::stopped ? ZuvoPlayLogicState::Enum(1)
                                                                     : streamerState);
    }
    if (current.isSetError())
        record.setStreamerError(current.error());
    setData(record);

    const CMPath statePath = m_currentTrackRoles.mediaData().metaData().playbackStateChangePath();
    if (!statePath.isEmpty() && (newMedia || m_lastReportedState != record.state()) &&
        streamerState != ZuvoPlayLogicState::stopped) {
        m_lastReportedState = record.state();
        reportPlaybackState(statePath, record);
    }

    if (stateChanged && streamerState == ZuvoPlayLogicState::stopped) {
        LOG4CPLUS_TRACE(logger, "Streamer stop detected");
        handleStreamerStoppedState(current);
    }
}
