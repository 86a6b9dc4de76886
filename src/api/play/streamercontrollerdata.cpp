#include <QtMath>
#include <climits>

#include "dbglog.h"
#include "model/cmnodes.h"
#include "streamercontroller.h"

// The receiving side of StreamerController: what the streamer's data means
// for the playbacks and the state machine, prepare-next-media, and the
// buffering reports and configuration.

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("StreamerController"));

namespace {

// The streamer's end-of-stream code: the track simply ended.
constexpr int EndOfStreamCode = -13;

bool hasError(const ZuvoStreamerData& data) {
    return !data.error().isEmpty();
}

bool isStopped(const ZuvoStreamerData& data) {
    return data.state() == ZuvoPlayLogicState::stopped;
}

// The level truncated toward zero; a level that no int can hold (NaN,
// infinite, huge) is clamped, NaN reads as unknown (-1).
int truncatedPercentage(double level) {
    if (qIsNaN(level))
        return -1;
    if (level >= static_cast<double>(INT_MAX))
        return INT_MAX;
    if (level <= static_cast<double>(INT_MIN))
        return INT_MIN;
    return static_cast<int>(level);
}

} // namespace

void StreamerController::on_streamerData_changed(ZuvoStreamerData data) {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_TRACE(logger, "Is playback: " << m_playbackActive << " new streamer data: " << data);
    if (!m_playbackActive) {
        LOG4CPLUS_DEBUG(logger, "Received streamer data changed even though there is not active playback");
        return;
    }

    if (!data.isSetPlaybackId() && isStopped(data)) {
        // A streamer that comes back without any playback has restarted.
        LOG4CPLUS_WARN(logger, "Streamer restarted");
        if (m_state == State::stopped && (isStopped(m_streamerData) || hasError(m_streamerData)))
            return;
        // It was running one of ours: end that playback as crashed.
        ZuvoStreamerData crashed = m_streamerData;
        crashed.setState(ZuvoPlayLogicState::stopped);
        ZuvoError error;
        error.setName(ZuvoStreamerErrorCrashed());
        crashed.setError(error);
        if (crashed.trackRoles().isEmpty() && !m_playbacks.isEmpty())
            crashed.setTrackRoles(m_playbacks.last().second);
        m_playbacks.clear();
        data = crashed;
    } else {
        const int playbackId = data.playbackId();
        if (playbackId == -1) {
            if (hasError(data) || isStopped(data))
                LOG4CPLUS_ERROR(logger, "Invalid playback Id with error");
            else
                LOG4CPLUS_ERROR(logger, "Invalid playback Id without error, this should newer happened");
            return;
        }
        int index = 0;
        while (index < m_playbacks.size() && m_playbacks.at(index).first != playbackId)
            ++index;
        if (index == m_playbacks.size()) {
            LOG4CPLUS_ERROR(logger, "Streamer data changed without our id: " << playbackId);
            return;
        }
        if (data.trackRoles().isEmpty())
            data.setTrackRoles(m_playbacks.at(index).second);
        // Keep the playback just before this one: its last records may still
        // be on their way (a replaced playback reports its stop late).
        if (index >= 2)
            m_playbacks.erase(m_playbacks.begin(), m_playbacks.begin() + (index - 1));
    }

    if (hasError(data) && !isStopped(data)) {
        LOG4CPLUS_ERROR(logger, "Streamer error is set but state is not stopped, this should newer happened");
        data.setState(ZuvoPlayLogicState::stopped);
    }
    m_streamerData = data;

    if (!hasError(data) && !isStopped(data)) {
        reportStreamerDataChanged(data);
        return;
    }
    // The streamer has stopped.
    if (m_state == State::playing && !m_actions.isEmpty() && m_actions.first().type != ActionType::stop) {
        // The stop belongs to the playback being replaced; the new one is on its way.
        m_state = State::starting;
    }
    if (m_postponeTimer.isActive())
        return; // on_postponeTimer_timeout() decides
    if (playActionInFlight()) {
        // The play in flight decides: on success its playback replaces the
        // stopped one, on failure finishAction() finishes this stop.
        LOG4CPLUS_DEBUG(logger, "Streamer stopped while a play is in flight");
        return;
    }
    finishStop();
}

void StreamerController::reportStreamerDataChanged(const ZuvoStreamerData& data) {
    const bool stopped = hasError(data) || isStopped(data);
    const bool isError = hasError(data) && data.error().code() != EndOfStreamCode;
    const bool nearEnd = data.trackNearEnd() != m_reportedData.trackNearEnd() && data.trackNearEnd();
    if (stopped)
        m_playbackActive = false;
    LOG4CPLUS_DEBUG(logger, "Is error " << isError << " stopped " << stopped << " near end: " << nearEnd
                                        << " emited " << m_nextMediaRequested << " err " << data.error());
    // Once per playback start: at the first near end of its track or, failing
    // that, when it ends by itself; never after an error or for our own stop.
    // Decided before the record is passed on: a play logic that ends the
    // playback on this record disables us (which clears the flag), and must
    // not then be asked again for the playback it has just ended.
    const bool askForNextMedia = !isError && !m_nextMediaRequested && (nearEnd || stopped) && !m_stopPending;
    if (askForNextMedia)
        m_nextMediaRequested = true;
    const ZuvoStreamerData old = m_reportedData;
    m_reportedData = data;
    Q_EMIT streamerDataChanged(data, old);
    if (askForNextMedia && m_enabled)
        Q_EMIT prepareNextMedia();
}

void StreamerController::on_streamerPlayTime_changed(qint64 value) {
    dbglog_scopedFunction(logger);
    Q_EMIT timeChanged(value);
}

void StreamerController::on_streamerBufferingLevel_changed(double percentage) {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_TRACE(logger, "Percentage: " << percentage);
    Q_EMIT buffering(truncatedPercentage(percentage));
}

void StreamerController::on_streamerBufferedBytes_changed(qint64 bytes) {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_TRACE(logger, "Buffered: " << bytes);
    Q_EMIT bufferedBytesChanged(bytes);
}

int StreamerController::buffering() const {
    dbglog_scopedFunction(logger);
    return truncatedPercentage(m_streamer->bufferingLevel());
}

qint64 StreamerController::bufferedBytes() const {
    dbglog_scopedFunction(logger);
    return m_streamer->bufferedBytes();
}

void StreamerController::reportBufferedBytes(bool enable) {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_DEBUG(logger, "Enable: " << enable);
    if (!m_enabled) {
        LOG4CPLUS_ERROR(logger, "Report bufffered size but Streamer is disabled");
        return;
    }
    if (!enable && m_streamer->listeningBufferedBytes()) {
        const bool disconnectSucceeded =
            disconnect(m_streamer.data(), &StreamerInterface::bufferedBytesChanged, this,
                       &StreamerController::on_streamerBufferedBytes_changed);
        check(disconnectSucceeded, "disconnectSucceeded");
        m_streamer->listenBufferedBytes(false);
    }
    if (enable && !m_streamer->listeningBufferedBytes()) {
        m_streamer->listenBufferedBytes(true);
        connectChecked(m_streamer.data(), &StreamerInterface::bufferedBytesChanged,
                       &StreamerController::on_streamerBufferedBytes_changed);
    }
    ZuvoStreamerSetAttributesArgs args;
    args.setPlaybackId(-1);
    args.setAttributes(QVariantHash{{ZuvoStreamerAttributesBufferLevelReportsEnabled(), enable}});
    m_streamer->setAttributes(args);
}

void StreamerController::setBufferingConfig(const QVariant& config) {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_DEBUG(logger, "Config: " << config);
    if (!m_enabled) {
        LOG4CPLUS_ERROR(logger, "Report buffered size but Streamer is disabled");
        return;
    }
    if (m_defaultBufferingConfig.isNull()) {
        const QVariant value = CMRoot()->getValue(ZuvoPlayerStreamBufferingConfigPath());
        m_defaultBufferingConfig = ZuvoValue(value.toHash()).variant();
    }
    m_bufferingConfigChanged = config != m_defaultBufferingConfig;
    ZuvoStreamerSetAttributesArgs args;
    args.setPlaybackId(-1);
    args.setAttributes(QVariantHash{{ZuvoStreamerAttributesBufferingConfig(), config}});
    m_streamer->setAttributes(args);
}
