#include "tracklistplaylogic.h"

#include "dbglog.h"
#include "zuvoassert.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("TrackListPlayLogic"));

namespace {

// Keys of the value a play command carries through the control queue.
const QString IndexKey = QStringLiteral("index");
const QString StartPausedKey = QStringLiteral("startPaused");

CMError noSuchTrack(int index) {
    return CMError(TrString(ZUVO_TR("There is no track at index %1"), {TrArg(index)}));
}

QVariant playValue(int index, bool startPaused) {
    return QVariantHash{{IndexKey, index}, {StartPausedKey, startPaused}};
}

// The item a play command asks for: a container play names it by index, a
// plain play starts with the first item.
int requestedIndex(const ZuvoPlayLogicPlayArgs& args) {
    return args.type() == ZuvoPlayLogicPlayArgsType::container ? args.index() : 0;
}

} // namespace

TrackListPlayLogic::TrackListPlayLogic(CMNodes* nodes, const CMPath& path)
    : StreamerPlayLogic(nodes, path) {
    dbglog_scopedFunction(logger);
    bool connected = static_cast<bool>(
        connect(&m_controlQueue, &ControlQueue::control, this, &TrackListPlayLogic::on_controlQueue_control));
    zuvoAssert(connected, "TrackListPlayLogic", "connection");
    connected = static_cast<bool>(connect(&m_controlQueue, &ControlQueue::playModeChanged, this,
                                          &TrackListPlayLogic::on_controlQueue_playModeChanged));
    zuvoAssert(connected, "TrackListPlayLogic", "connection");

    ZuvoPlayLogicData initial = data();
    initial.setState(ZuvoPlayLogicState::stopped);
    initial.setControls(controls());
    setData(initial);
}

TrackListPlayLogic::~TrackListPlayLogic() {
    dbglog_scopedFunction(logger);
    // Answers of requests cancelled from here on must not reach the queue.
    m_activeRequest = CMReply<QVariant>(nullptr);
    m_controlQueue.clear();
}

void TrackListPlayLogic::setTracks(const QList<ZuvoRoles>& tracks) {
    dbglog_scopedFunctionArgs(logger, "count: " << tracks.size());
    m_trackList = TrackList(tracks);
    if (!m_trackList.contains(m_currentIndex))
        m_currentIndex = -1;
}

ZuvoPlayLogicPlayModesSupported TrackListPlayLogic::playModesSupported() {
    ZuvoPlayLogicPlayModesSupported modes;
    modes.setRepeatOne(true);
    modes.setRepeatAll(true);
    return modes;
}

void TrackListPlayLogic::play(const CMSetDataRequest& request) {
    const ZuvoPlayLogicPlayArgs args(request.data().toHash());
    const int index = requestedIndex(args);
    dbglog_scopedFunctionArgs(logger, "index: " << index);
    // Refused before anything is published: the state stays stopped.
    if (m_trackList.isEmpty()) {
        LOG4CPLUS_WARN(logger, "Play refused: the track list is empty");
        request.reply().setError(CMError(ZUVO_TR("The track list is empty")));
        return;
    }
    if (!m_trackList.contains(index)) {
        LOG4CPLUS_WARN(logger, "Play refused: no track at index " << index);
        request.reply().setError(noSuchTrack(index));
        return;
    }
    StreamerPlayLogic::play(request);
}

void TrackListPlayLogic::playInternal(const CMSetDataRequest& request, const ZuvoPlayLogicPlayArgs& args) {
    dbglog_scopedFunction(logger);
    m_failuresInARow = 0;
    m_controlQueue.play(playValue(requestedIndex(args), args.startPaused()), request.reply());
}

void TrackListPlayLogic::stopInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    // The stop queues behind the active command; a play request of that
    // command still waiting in the play-request queue is cancelled so the
    // stop does not wait for it. Its error then is no failure.
    m_cancelledRequest = m_activeRequest;
    m_controlQueue.stop(request.data(), request.reply());
    if (!m_cancelledRequest.isNull())
        cancelAllPlayRequests();
}

void TrackListPlayLogic::nextInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    m_controlQueue.next(request.data(), request.reply());
}

void TrackListPlayLogic::previousInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    m_controlQueue.previous(request.data(), request.reply());
}

void TrackListPlayLogic::setCurrentTrackInternal(const CMSetDataRequest& request) {
    const int index = ZuvoPlayLogicSetCurrentTrackArgs(request.data().toHash()).currentTrack();
    dbglog_scopedFunctionArgs(logger, "index: " << index);
    if (!m_trackList.contains(index)) {
        request.reply().setError(noSuchTrack(index));
        return;
    }
    // Only while playing: a play queued behind a stop would undo the stop.
    if (m_controlQueue.stopped()) {
        request.reply().setError(CMError(ZUVO_TR("Playback control is stopped")));
        return;
    }
    m_controlQueue.play(playValue(index, false), request.reply());
}

void TrackListPlayLogic::changePlayModeInternal(const CMSetDataRequest& request) {
    const ZuvoPlayerPlayMode::Enum mode = ZuvoPlayLogicChangePlayModeArgs(request.data().toHash()).playMode();
    dbglog_scopedFunctionArgs(logger, "mode: " << ZuvoPlayerPlayMode::toString(mode));
    if (m_controlQueue.stopped()) {
        // Nothing plays: the mode applies to the next play.
        setPlayMode(mode);
        publishControls(false);
        request.reply().setValue(QVariant());
        return;
    }
    m_controlQueue.changePlayMode(mode, request.reply());
}

void TrackListPlayLogic::prepareNextMedia() {
    dbglog_scopedFunction(logger);
    if (m_controlQueue.stopped()) {
        // Stopping: nothing follows.
        StreamerPlayLogic::prepareNextMedia();
        return;
    }
    m_controlQueue.prepareNext();
}

ZuvoPlayLogicData TrackListPlayLogic::mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                                           const ZuvoRoles& previousTrackRoles) {
    dbglog_scopedFunction(logger);
    ZuvoPlayLogicData result = StreamerPlayLogic::mediaPlaybackStarted(newTrackRoles, previousTrackRoles);
    m_failuresInARow = 0;
    // The queued next item has started, unless the new media is the current
    // item again (another of its resources, or the playlist it named).
    if (m_queuedNextIndex >= 0 && (TrackList::sameItem(newTrackRoles, m_trackList.at(m_queuedNextIndex)) ||
                                   !TrackList::sameItem(newTrackRoles, m_trackList.at(m_currentIndex))))
        setCurrentIndex(m_queuedNextIndex);
    m_queuedNextIndex = -1;
    m_nextMediaDecided = false;
    result.setControls(controls());
    return result;
}

void TrackListPlayLogic::playbackStopped(const CMError& error) {
    dbglog_scopedFunctionArgs(logger, error);
    StreamerPlayLogic::playbackStopped(error);
    // Without a message the stop-flag pair ends the playback (an item that
    // ended before its successor was queued is taken up when the streamer
    // asks for the next media, see decideNextMedia()).
    if (error.message().isEmpty())
        return;
    // The item could not be played and the error is now published.
    ++m_failuresInARow;
    const int next = m_trackList.next(m_currentIndex, playMode());
    if (next >= 0 && m_failuresInARow < m_trackList.size() && !m_controlQueue.stopped()) {
        LOG4CPLUS_INFO(logger, "Track " << m_currentIndex << " failed, skipping to track " << next);
        // Nobody waits for this skip's answer.
        m_controlQueue.next(QVariant(), CMReply<QVariant>());
        return;
    }
    LOG4CPLUS_INFO(logger, "Track " << m_currentIndex << " failed and nothing follows, ending playback");
    playbackEnded();
}

void TrackListPlayLogic::playbackEnded() {
    dbglog_scopedFunction(logger);
    StreamerPlayLogic::playbackEnded();
    m_queuedNextIndex = -1;
    m_nextMediaDecided = false;
    m_failuresInARow = 0;
    // Nothing of the playback is left to run.
    m_activeRequest = CMReply<QVariant>(nullptr);
    m_controlQueue.clear();
}

void TrackListPlayLogic::on_controlQueue_control(ControlQueue::ControlCommand command,
                                                 const QVariant& value) {
    dbglog_scopedFunctionArgs(logger, "command: " << command);
    switch (command) {
    case ControlQueue::ControlCommand::play: {
        const QVariantHash args = value.toHash();
        startTrack(args.value(IndexKey).toInt(), args.value(StartPausedKey).toBool());
        return;
    }
    case ControlQueue::ControlCommand::next: {
        const int next = m_trackList.next(m_currentIndex, playMode());
        if (next < 0) {
            finishActive(command, QVariant(), CMError(ZUVO_TR("There is no next track")));
            return;
        }
        startTrack(next, false);
        return;
    }
    case ControlQueue::ControlCommand::previous:
        startTrack(qMax(0, m_trackList.previous(m_currentIndex, playMode())), false);
        return;
    case ControlQueue::ControlCommand::prepareNext:
        decideNextMedia();
        return;
    case ControlQueue::ControlCommand::stop:
        // Ended first: stopping may end the playback at once, which clears
        // the queue.
        finishActive(command, QVariant());
        stopPlayLogic();
        return;
    case ControlQueue::ControlCommand::playMode:
    case ControlQueue::ControlCommand::none:
        return;
    }
}

void TrackListPlayLogic::on_controlQueue_playModeChanged(ZuvoPlayerPlayMode::Enum mode) {
    dbglog_scopedFunctionArgs(logger, "mode: " << ZuvoPlayerPlayMode::toString(mode));
    setPlayMode(mode);
    publishControls(false);
    redecideNextMedia();
    // Also announced again for a change dropped behind a failed play; then
    // a play is the active command and must not be ended here.
    finishActive(ControlQueue::ControlCommand::playMode, QVariant());
}

void TrackListPlayLogic::startTrack(int index, bool startPaused) {
    dbglog_scopedFunctionArgs(logger, "index: " << index << " startPaused: " << startPaused);
    if (!m_trackList.contains(index)) {
        // The host replaced the list meanwhile.
        finishActive(m_controlQueue.activeControl(), QVariant(), noSuchTrack(index));
        return;
    }
    // What the streamer has queued belongs to the item being replaced.
    if (m_queuedNextIndex >= 0 && streamerController().state() != StreamerController::State::stopped)
        streamerController().clearNextPlayback();
    m_queuedNextIndex = -1;
    m_nextMediaDecided = false;
    setCurrentIndex(index);
    publishControls(true);

    QVariantHash attributes;
    if (startPaused)
        attributes.insert(ZuvoStreamerAttributesStartPaused(), true);
    finishWhenAnswered(sendPlayCommand(m_trackList.at(index), attributes));
}

void TrackListPlayLogic::decideNextMedia() {
    dbglog_scopedFunction(logger);
    m_nextMediaDecided = true;
    const int following = m_trackList.following(m_currentIndex, playMode());
    if (following < 0) {
        LOG4CPLUS_DEBUG(logger, "Nothing follows track " << m_currentIndex);
        // Ended first: with the streamer already stopped this ends the
        // playback, which clears the queue.
        finishActive(ControlQueue::ControlCommand::prepareNext, QVariant());
        sendNoNextMediaCommand();
        return;
    }
    if (streamerController().state() == StreamerController::State::stopped) {
        // The item ended before the streamer asked: too late for a gapless
        // switch, the following item starts with a play.
        LOG4CPLUS_DEBUG(logger, "Track " << m_currentIndex << " has ended, playing track " << following);
        startTrack(following, false);
        return;
    }
    LOG4CPLUS_DEBUG(logger, "Track " << following << " follows track " << m_currentIndex);
    m_queuedNextIndex = following;
    finishWhenAnswered(sendSetNextMediaCommand(m_trackList.at(following), QVariantHash()));
}

void TrackListPlayLogic::redecideNextMedia() {
    dbglog_scopedFunction(logger);
    if (!m_nextMediaDecided)
        return; // decided when the streamer asks, with the new mode
    const int following = m_trackList.following(m_currentIndex, playMode());
    if (following == m_queuedNextIndex)
        return;
    if (m_queuedNextIndex >= 0 && streamerController().state() != StreamerController::State::stopped)
        streamerController().clearNextPlayback();
    m_queuedNextIndex = following;
    if (following < 0) {
        sendNoNextMediaCommand();
        return;
    }
    // The streamer had been told that nothing follows.
    clearStopFlag(NoNextMedia);
    sendSetNextMediaCommand(m_trackList.at(following), QVariantHash());
}

void TrackListPlayLogic::finishWhenAnswered(const CMReply<QVariant>& reply) {
    m_activeRequest = reply;
    // Queued: the queue must not be re-entered from inside a completion.
    reply.onFinished(
        this, [this](const CMReply<QVariant>& finished) { on_activeRequest_finished(finished); },
        Qt::QueuedConnection);
}

void TrackListPlayLogic::on_activeRequest_finished(const CMReply<QVariant>& reply) {
    dbglog_scopedFunctionArgs(logger, reply.error());
    if (reply != m_activeRequest)
        return; // its command has ended otherwise
    m_activeRequest = CMReply<QVariant>(nullptr);
    const ControlQueue::ControlCommand command = m_controlQueue.activeControl();
    // A stop waits behind the command: the cancelled request is no failure,
    // and a failed play must not make the queue drop the stop.
    if (!reply.hasError() || reply == m_cancelledRequest || m_controlQueue.stopped()) {
        finishActive(command, reply.value());
        return;
    }
    LOG4CPLUS_WARN(logger, "The streamer refused the request: " << reply.error());
    finishActive(command, QVariant(), reply.error());
}

void TrackListPlayLogic::finishActive(ControlQueue::ControlCommand command, const QVariant& value,
                                      const CMError& error) {
    if (m_controlQueue.activeControl() != command)
        return;
    m_controlQueue.finish(value, error);
}

void TrackListPlayLogic::setCurrentIndex(int index) {
    if (index == m_currentIndex)
        return;
    m_currentIndex = index;
    Q_EMIT currentIndexChanged(index);
}

ZuvoPlayLogicControls TrackListPlayLogic::controls() {
    ZuvoPlayLogicControls controls;
    controls.setPause(true);
    controls.setNext_(m_trackList.next(m_currentIndex, playMode()) >= 0);
    controls.setPrevious(true);
    controls.setSeekTime(true);
    controls.setSeekTrack(true);
    controls.setPlayMode(playModesSupported());
    return controls;
}

void TrackListPlayLogic::publishControls(bool withTrack) {
    ZuvoPlayLogicData record = data();
    record.setControls(controls());
    if (withTrack)
        record.setTrackRoles(m_trackList.at(m_currentIndex));
    setData(record);
}
