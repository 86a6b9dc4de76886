#include "streamercontroller.h"

#include "zuvoassert.h"

#include <QCoreApplication>
#include <QPointer>
#include <utility>

#include "dbglog.h"
#include "model/trstring.h"

// The request side of StreamerController: requests, the action queue and the
// state machine. The receiving side (streamer data, buffering) lives in
// streamercontrollerdata.cpp.

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("StreamerController"));

QString StreamerController::toString(ActionType type) {
    switch (type) {
    case ActionType::play:
        return QStringLiteral("play");
    case ActionType::playNext:
        return QStringLiteral("playNext");
    case ActionType::stop:
        return QStringLiteral("stop");
    }
    return QStringLiteral("invalid action type: ") + QString::number(static_cast<int>(type));
}

std::ostream& operator<<(std::ostream& stream, StreamerController::State state) {
    switch (state) {
    case StreamerController::State::stopped:
        return stream << "stopped";
    case StreamerController::State::starting:
        return stream << "starting";
    case StreamerController::State::playing:
        return stream << "playing";
    case StreamerController::State::stopping:
        return stream << "stopping";
    }
    return stream;
}

void StreamerController::check(bool condition, const char* what) {
    zuvoAssert(condition, "StreamerController", what);
}

bool StreamerController::verifyConnectionSignalParameters(const QObject* sender, const QMetaMethod& signal,
                                                          const QObject* receiver, Qt::ConnectionType type) {
    const bool queued = type == Qt::QueuedConnection || type == Qt::BlockingQueuedConnection ||
                        (type == Qt::AutoConnection && sender->thread() != receiver->thread());
    if (!queued)
        return true;
    for (int i = 0; i < signal.parameterCount(); ++i) {
        if (signal.parameterType(i) == QMetaType::UnknownType)
            return false;
    }
    return true;
}

StreamerController::StreamerController(QSharedPointer<StreamerInterface> streamer)
    : m_streamer(std::move(streamer))
    , m_postponeTimer(this) {
    check(!m_streamer.isNull(), "m_streamer");
    qRegisterMetaType<ZuvoStreamerData>("ZuvoStreamerData");
    m_postponeTimer.setObjectName(QStringLiteral("postponeTimer"));
    m_postponeTimer.setSingleShot(true);
    m_postponeTimer.setInterval(100);
    connectChecked(&m_postponeTimer, &QTimer::timeout, &StreamerController::on_postponeTimer_timeout);
    connectChecked(m_streamer.data(), &StreamerInterface::dataChanged,
                   &StreamerController::on_streamerData_changed);
    connectChecked(m_streamer.data(), &StreamerInterface::playTimeChanged,
                   &StreamerController::on_streamerPlayTime_changed);
    connectChecked(m_streamer.data(), &StreamerInterface::bufferingLevelChanged,
                   &StreamerController::on_streamerBufferingLevel_changed);
}

StreamerController::~StreamerController() {
    // The play or stop in flight is completed by its own continuation (a play
    // is cancelled there). Requests still queued behind it and stops waiting
    // for the streamer can no longer be answered: cancel them from the event
    // loop, never from inside this destructor, so that no watcher runs while
    // the owner of this controller is being torn down.
    QList<CMVoidReply> orphans;
    for (const CMReply<bool>& reply : qAsConst(m_stopReplies))
        orphans.append(reply);
    for (int i = 1; i < m_actions.size(); ++i)
        orphans.append(m_actions.at(i).reply);
    if (!orphans.isEmpty() && QCoreApplication::instance()) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [orphans] {
                for (const CMVoidReply& reply : orphans)
                    reply.cancel();
            },
            Qt::QueuedConnection);
    }
}

StreamerController::State StreamerController::state() const {
    dbglog_scopedFunction(logger);
    return m_state;
}

void StreamerController::enable() {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_DEBUG(logger, "Is enabled: " << m_enabled);
    if (m_enabled)
        return;
    clearStateVariables();
    m_streamer->initialize();
    m_streamer->listenBufferingLevel(true);
    m_enabled = true;
}

void StreamerController::disable() {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_DEBUG(logger, "Is disabled: " << !m_enabled);
    if (!m_enabled)
        return;
    if (m_state != State::stopped)
        LOG4CPLUS_ERROR(logger, "Disabling Streamer while not in stopped state");
    if (m_bufferingConfigChanged)
        setBufferingConfig(m_defaultBufferingConfig);
    if (m_streamer->listeningBufferedBytes())
        reportBufferedBytes(false);
    m_streamer->deinitialize();
    clearStateVariables();
    m_enabled = false;
}

void StreamerController::clearStateVariables() {
    m_state = State::stopped;
    m_playbacks.clear();
    m_streamerData = ZuvoStreamerData();
    m_postponeTimer.stop();
    m_playbackActive = false;
    m_nextMediaRequested = false;
}

template <typename Reply> Reply StreamerController::refuseDisabled(const char* signature) {
    LOG4CPLUS_ERROR(logger, signature << " but Streamer is disabled");
    Reply reply;
    reply.setError(CMError(ZUVO_TR("Streamer is not enabled")));
    return reply;
}

CMReply<int> StreamerController::play(const ZuvoRoles& roles, bool startPaused) {
    dbglog_scopedFunction(logger);
    if (!m_enabled)
        return refuseDisabled<CMReply<int>>(Q_FUNC_INFO);
    LOG4CPLUS_DEBUG(logger, "Start paused: " << startPaused);
    CMReply<int> reply;
    ZuvoStreamerPlayArgs args;
    args.setRoles(roles);
    args.setAttributes(QVariantHash{{ZuvoStreamerAttributesStartPaused(), startPaused}});
    addAction(Action{ActionType::play, reply, args});
    return reply;
}

CMReply<int> StreamerController::playNext(const ZuvoRoles& roles) {
    dbglog_scopedFunction(logger);
    if (!m_enabled)
        return refuseDisabled<CMReply<int>>(Q_FUNC_INFO);
    CMReply<int> reply;
    ZuvoStreamerPlayArgs args;
    args.setRoles(roles);
    addAction(Action{ActionType::playNext, reply, args});
    return reply;
}

CMReply<bool> StreamerController::stop() {
    dbglog_scopedFunction(logger);
    if (!m_enabled)
        return refuseDisabled<CMReply<bool>>(Q_FUNC_INFO);
    CMReply<bool> reply;
    addAction(Action{ActionType::stop, reply, ZuvoStreamerPlayArgs()});
    return reply;
}

void StreamerController::addAction(const Action& action) {
    if (action.type == ActionType::stop && !m_stopReplies.isEmpty()) {
        // A stop already waits for the streamer: this one completes with it.
        m_stopReplies.append(CMReply<bool>::fromVoid(action.reply));
        return;
    }
    m_actions.append(action);
    if (m_actions.size() == 1)
        invokeAction();
    else
        LOG4CPLUS_DEBUG(logger, "Queueing action");
}

void StreamerController::onStreamerReply(const CMReply<QVariant>& reply,
                                         std::function<void(const CMReply<QVariant>&)> function) {
    // Bound to the application object rather than to the controller: the
    // continuation must also run once the controller is gone.
    reply.onFinished(QCoreApplication::instance(), std::move(function), Qt::AutoConnection);
}

void StreamerController::invokeAction() {
    check(!m_actions.isEmpty(), "!isEmpty()");
    const Action action = m_actions.first();
    LOG4CPLUS_TRACE(logger, "invokeAction: " << toString(action.type));
    const QPointer<StreamerController> self(this);
    switch (action.type) {
    case ActionType::play:
    case ActionType::playNext: {
        if (m_state == State::stopped)
            m_state = State::starting;
        m_nextMediaRequested = false;
        const CMReply<QVariant> streamerReply = action.type == ActionType::play
                                                    ? m_streamer->play(action.args)
                                                    : m_streamer->setNextMedia(action.args);
        const CMReply<int> result = CMReply<int>::fromVoid(action.reply);
        const ZuvoRoles roles = action.args.roles();
        onStreamerReply(streamerReply, [self, result, roles](const CMReply<QVariant>& reply) {
            if (self)
                self->handlePlayInvokeFinished(reply, result, roles);
            else
                result.cancel();
        });
        break;
    }
    case ActionType::stop: {
        const CMReply<bool> stopReply = CMReply<bool>::fromVoid(action.reply);
        if (m_state != State::stopped) {
            // Completed by finishStop() once the streamer reports stopped.
            m_stopReplies.append(stopReply);
            m_state = State::stopping;
            m_streamer->stop();
            m_stopPending = true;
        } else {
            onStreamerReply(m_streamer->stop(), [self, stopReply](const CMReply<QVariant>&) {
                stopReply.setValue(self && self->m_playbackActive);
                if (self)
                    self->finishAction();
            });
        }
        break;
    }
    }
}

void StreamerController::handlePlayInvokeFinished(const CMReply<QVariant>& reply, const CMReply<int>& result,
                                                  const ZuvoRoles& roles) {
    dbglog_scopedFunction(logger);
    check(m_state != State::stopped, "m_state != State::stopped");
    check(m_state != State::stopping, "m_state != State::stopping");
    check(!m_actions.isEmpty(), "!m_actions.isEmpty()");
    reply.waitForFinished();
    const CMError error = reply.error();
    // An answer without a number is no playback id either.
    bool isNumber = false;
    int playbackId = reply.value().toInt(&isNumber);
    if (!isNumber)
        playbackId = -1;
    if (error.name().isEmpty() && playbackId != -1) {
        m_playbackActive = true;
        m_playbacks.append(qMakePair(playbackId, roles));
        m_stopPending = false;
        if (m_state == State::playing)
            m_postponeTimer.start();
        m_state = State::playing;
        result.setValue(playbackId);
        finishAction();
        return;
    }
    if (m_state == State::starting)
        m_state = State::stopped;
    if (!error.name().isEmpty())
        result.setError(error);
    else
        result.setError(CMError(ZUVO_TR("Invalid playback id")));
    finishAction();
}

void StreamerController::finishAction() {
    LOG4CPLUS_TRACE(logger, "Action queue size: " << m_actions.size());
    check(!m_actions.isEmpty(), "!isEmpty()");
    m_actions.removeFirst();
    if (!m_actions.isEmpty())
        invokeAction();
    else if (m_state == State::stopped)
        finishStop();
}

bool StreamerController::playActionInFlight() const {
    return !m_actions.isEmpty() && m_actions.first().type != ActionType::stop;
}

bool StreamerController::stopWaiting() const {
    return !m_stopReplies.isEmpty();
}

void StreamerController::finishStop() {
    dbglog_scopedFunction(logger);
    m_state = State::stopped;
    // Only a stop that waits for the stopped state is finished here; a stop
    // sent while already stopped is finished by its own streamer reply.
    const bool headIsWaitingStop = stopWaiting();
    const QList<CMReply<bool>> replies = std::exchange(m_stopReplies, QList<CMReply<bool>>());
    const ZuvoError error = m_streamerData.error();
    if (m_playbackActive && m_actions.isEmpty())
        reportStreamerDataChanged(m_streamerData);
    for (const CMReply<bool>& reply : replies) {
        if (error.isEmpty()) {
            reply.setValue(m_playbackActive);
        } else {
            const QByteArray message = error.message().toUtf8();
            reply.setError(CMError(CMError::DefaultName(), TrString(message.constData())));
        }
    }
    if (headIsWaitingStop)
        finishAction();
}

void StreamerController::on_postponeTimer_timeout() {
    dbglog_scopedFunction(logger);
    const bool stopped = m_streamerData.state() == ZuvoPlayLogicState::stopped;
    LOG4CPLUS_TRACE(logger, "Is stopped: " << stopped << ", active actions: " << m_actions.size());
    // A stop of ours waiting at the head is finished too: the streamer may
    // have reported both the replaced and the new playback stopped inside the
    // window, and it reports nothing more once stopped.
    if (stopped && (m_actions.isEmpty() || stopWaiting()))
        finishStop();
}

void StreamerController::handleFinishedRequest(const CMReply<QVariant>& streamerReply,
                                               const CMReply<void>& reply) {
    const CMError error = streamerReply.error();
    if (!error.name().isEmpty())
        reply.setError(error);
    else
        reply.setValue();
}

CMReply<void> StreamerController::forward(const CMReply<QVariant>& streamerReply) {
    CMReply<void> reply;
    onStreamerReply(streamerReply,
                    [reply](const CMReply<QVariant>& finished) { handleFinishedRequest(finished, reply); });
    return reply;
}

CMReply<void> StreamerController::pause() {
    dbglog_scopedFunction(logger);
    if (!m_enabled)
        return refuseDisabled<CMReply<void>>(Q_FUNC_INFO);
    return forward(m_streamer->pause());
}

CMReply<void> StreamerController::resume() {
    dbglog_scopedFunction(logger);
    if (!m_enabled)
        return refuseDisabled<CMReply<void>>(Q_FUNC_INFO);
    return forward(m_streamer->resume());
}

CMReply<void> StreamerController::seekTime(int64_t position) {
    dbglog_scopedFunction(logger);
    if (!m_enabled)
        return refuseDisabled<CMReply<void>>(Q_FUNC_INFO);
    LOG4CPLUS_DEBUG(logger, "Position: " << position);
    ZuvoStreamerSeekPosition seekPosition;
    seekPosition.setTimeMs(position);
    return forward(m_streamer->seek(seekPosition));
}

CMReply<void> StreamerController::seekBytes(int64_t position) {
    dbglog_scopedFunction(logger);
    if (!m_enabled)
        return refuseDisabled<CMReply<void>>(Q_FUNC_INFO);
    LOG4CPLUS_DEBUG(logger, "Position: " << position);
    ZuvoStreamerSeekPosition seekPosition;
    seekPosition.setBytes(position);
    return forward(m_streamer->seek(seekPosition));
}

void StreamerController::clearNextPlayback() {
    dbglog_scopedFunction(logger);
    if (!m_enabled) {
        LOG4CPLUS_ERROR(logger, "Clear next playback but Streamer is disabled");
        return;
    }
    m_streamer->clearNextMedia();
}
