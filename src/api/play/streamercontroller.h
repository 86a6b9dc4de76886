#pragma once

#include <QList>
#include <QMetaMethod>
#include <QObject>
#include <QPair>
#include <QSharedPointer>
#include <QTimer>
#include <QVariant>
#include <cstdint>
#include <functional>
#include <ostream>

#include "model/cmreply.h"
#include "streamerinterface.h"
#include "zuvo.h"

// The command channel between a play logic and the streamer.
//
// Play, play-next and stop requests go through a queue of actions of which
// only the head is ever in flight at the streamer; pause, resume, seek and
// clearing the next media bypass the queue. The controller keeps its own
// view of the streamer (State), matches the streamer's data to the playbacks
// it started, and passes that data on as streamerDataChanged.
//
// Replies: every request returns a reply that completes exactly once.
// - play()/playNext(): the playback id granted by the streamer, when the
//   streamer answers; failed with the streamer's error, or with "Invalid
//   playback id" for id -1 (or an answer without an id). If the controller is
//   destroyed before the streamer answers, the reply is cancelled.
// - stop(): whether a playback of this controller was active, once the
//   streamer has reached the stopped state (in the stopped state: as soon as
//   the streamer answers). A stop requested while another one waits for the
//   streamer is merged into it; both replies complete together. Failed with
//   the streamer's error message when the streamer stopped with an error.
// - pause()/resume()/seekTime()/seekBytes(): completed with the streamer's
//   answer (its error, if any).
// - any request while disabled: failed at once with "Streamer is not enabled".
//
// Signals: streamerDataChanged(new, old) for each record of a running
// playback and for the final stopped record of a playback; prepareNextMedia()
// at most once per started playback, when its track first reports near end
// or, failing that, when it ends without an error and without a stop of this
// controller under way; timeChanged, buffering and bufferedBytesChanged
// forward the streamer's values. A receiver may call back into the
// controller from any of them.
//
// disable() must not be called while a play or play-next is in flight unless
// the controller is destroyed right after (as a play logic's destructor does).
//
// Thread: everything on the event-loop thread the controller lives in.
// Ownership: the streamer is shared; the controller neither stops nor
// disables it on destruction.
class StreamerController : public QObject {
    Q_OBJECT
public:
    // Printed by operator<< as its name; any other value prints nothing.
    enum class State : int { stopped = 0, starting = 1, playing = 2, stopping = 3 };
    enum class ActionType : int { play = 0, playNext = 1, stop = 2 };

    // "play", "playNext", "stop"; any other value gives
    // "invalid action type: " followed by the value in decimal.
    static QString toString(ActionType type);

    // streamer must not be null.
    explicit StreamerController(QSharedPointer<StreamerInterface> streamer);
    ~StreamerController() override;
    Q_DISABLE_COPY(StreamerController)

    // Starts (enable) or ends (disable) a session with the streamer: watches
    // its data and buffering level, and forgets every playback. disable()
    // restores a changed buffering configuration and stops buffered-bytes
    // reports first. Both do nothing when already in that mode.
    void enable();
    void disable();
    State state() const;

    // Queued requests; see the class comment for their replies.
    CMReply<int> play(const ZuvoRoles& roles, bool startPaused);
    CMReply<int> playNext(const ZuvoRoles& roles);
    CMReply<bool> stop();

    // Sent to the streamer at once, whatever the state.
    CMReply<void> pause();
    CMReply<void> resume();
    CMReply<void> seekTime(int64_t position);
    CMReply<void> seekBytes(int64_t position);
    void clearNextPlayback();

    // Sends the buffering configuration to the streamer; the player's default
    // (read once from ZuvoPlayerStreamBufferingConfigPath()) is restored by
    // disable() when another one was set.
    void setBufferingConfig(const QVariant& config);
    // Turns the streamer's buffered-bytes reports (bufferedBytesChanged) on or off.
    void reportBufferedBytes(bool enable);
    // The streamer's buffering level in percent, truncated toward zero (-1: unknown).
    int buffering() const;
    qint64 bufferedBytes() const;

Q_SIGNALS:
    void streamerDataChanged(const ZuvoStreamerData& newStreamerData,
                             const ZuvoStreamerData& oldStreamerData);
    void prepareNextMedia();
    void timeChanged(qint64 timeMs);
    void buffering(int percentage);
    void bufferedBytesChanged(int64_t bytes);

private Q_SLOTS:
    void on_streamerData_changed(ZuvoStreamerData data);
    void on_streamerPlayTime_changed(qint64 value);
    void on_streamerBufferingLevel_changed(double percentage);
    void on_streamerBufferedBytes_changed(qint64 bytes);
    void on_postponeTimer_timeout();

private:
    struct Action {
        ActionType type;
        CMVoidReply reply; // CMReply<int> for play and playNext, CMReply<bool> for stop
        ZuvoStreamerPlayArgs args;
    };

    // Queue.
    void addAction(const Action& action);
    void invokeAction();
    void handlePlayInvokeFinished(const CMReply<QVariant>& reply, const CMReply<int>& result,
                                  const ZuvoRoles& roles);
    void finishAction();
    void finishStop();
    void clearStateVariables();
    // Whether the head of the queue is a play or play-next (always in flight).
    bool playActionInFlight() const;
    // Whether the head of the queue is a stop sent to a running streamer that
    // waits for its stopped record (its reply is among the stop replies).
    bool stopWaiting() const;

    // Receiving half.
    void reportStreamerDataChanged(const ZuvoStreamerData& data);

    // A reply of type Reply, failed because the controller is disabled;
    // logs signature + " but Streamer is disabled".
    template <typename Reply> static Reply refuseDisabled(const char* signature);
    // Completes reply with the outcome of the streamer's reply.
    static void handleFinishedRequest(const CMReply<QVariant>& streamerReply, const CMReply<void>& reply);
    // A reply completed by handleFinishedRequest when streamerReply finishes.
    static CMReply<void> forward(const CMReply<QVariant>& streamerReply);
    // Calls function when the streamer's reply finishes, on the event-loop
    // thread, also after this controller has been destroyed.
    static void onStreamerReply(const CMReply<QVariant>& reply,
                                std::function<void(const CMReply<QVariant>&)> function);
    // Broken invariants stop the program in every build type.
    static void check(bool condition, const char* what);
    static bool verifyConnectionSignalParameters(const QObject* sender, const QMetaMethod& signal,
                                                 const QObject* receiver, Qt::ConnectionType type);
    // An automatic connection from sender to this controller; it must be
    // made and, across threads, carry only registered parameter types.
    template <typename Sender, typename Signal, typename Slot>
    void connectChecked(Sender* sender, Signal signal, Slot slot);

    QSharedPointer<StreamerInterface> m_streamer;
    bool m_enabled = false;
    State m_state = State::stopped;
    // Playback ids granted by the streamer with the roles played, oldest first.
    QList<QPair<int, ZuvoRoles>> m_playbacks;
    // Stop requests waiting for the streamer to reach the stopped state.
    QList<CMReply<bool>> m_stopReplies;
    // The last record accepted from the streamer.
    ZuvoStreamerData m_streamerData;
    // The last record passed on as streamerDataChanged; survives clearStateVariables().
    ZuvoStreamerData m_reportedData;
    QVariant m_defaultBufferingConfig;
    bool m_bufferingConfigChanged = false;
    // Runs for 100 ms after a playback replaced a running one: the old
    // playback's stopped record must not end the new one.
    QTimer m_postponeTimer;
    bool m_playbackActive = false;
    bool m_nextMediaRequested = false;
    // The head is the action in flight.
    QList<Action> m_actions;
    // A stop was sent to a running streamer and its stopped record is still due.
    bool m_stopPending = false;
};

std::ostream& operator<<(std::ostream& stream, StreamerController::State state);

template <typename Sender, typename Signal, typename Slot>
void StreamerController::connectChecked(Sender* sender, Signal signal, Slot slot) {
    const Qt::ConnectionType type = Qt::AutoConnection;
    const QObject* receiver = this;
    check(verifyConnectionSignalParameters(sender, QMetaMethod::fromSignal(signal), receiver, type),
          "verifyConnectionSignalParameters(sender, signal, receiver, type)");
    const QMetaObject::Connection connection = connect(sender, signal, this, slot, type);
    check(static_cast<bool>(connection), "connection");
}
