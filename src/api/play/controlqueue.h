#pragma once

#include <QList>
#include <QObject>
#include <QVariant>
#include <functional>
#include <ostream>
#include <utility>

#include "model/cmerror.h"
#include "model/cmreply.h"
#include "zuvo.h"

// Serialises the playback commands of a play logic.
//
// The play logic puts every play, next, previous, stop, prepare-next and
// play-mode command into the queue. One command is active at a time: it is
// started by emitting control() (playModeChanged() for a play-mode command),
// and the play logic reports its end with finish(), which completes the
// command's replies and starts the next command, or emits empty() when
// nothing waits. On the way a newer command makes older ones pointless:
// - a stop drops every waiting command; only the replies of the first
//   dropped command are cancelled, the others are released uncompleted;
// - with skip merging, a skip behind a skip of the same direction joins it
//   (one control, several replies, run once per reply), and opposite skips
//   cancel out (both replies succeed with an empty value);
// - with play-mode collapsing, a play-mode change replaces a play-mode change
//   waiting last in the queue, whose replies are released uncompleted.
// When a play fails (finish() with an error), the commands queued behind it
// up to the next play are dropped: the first reply of each fails with
// "Starting playback failed"; a dropped play-mode change is not answered, but
// its mode is announced again with playModeChanged() before the next play
// starts.
//
// Stopped: set by stop() and clear(), cleared by play(), recomputed after a
// failed play (stopped when nothing is left to run). While stopped, next,
// previous and play-mode changes are refused with the error "Playback control
// is stopped" and prepareNext() is ignored.
//
// Replies are completed inside finish(), enqueue() and clear(); their
// watchers must not call back into the queue synchronously (watch them with a
// queued connection). A receiver of control() may call finish() from inside
// the signal.
//
// Thread: the event-loop thread only. Destruction runs clear().
class ControlQueue : public QObject {
    Q_OBJECT
public:
    // Registered with Qt's meta-type system as "ControlQueue::ControlCommand".
    enum class ControlCommand {
        play = 0,
        next = 1,
        previous = 2,
        stop = 3,
        prepareNext = 4,
        playMode = 5,
        none = 6
    };
    Q_ENUM(ControlCommand)

    // One queued or active command.
    struct Control {
        // command none, no function, no replies.
        Control();
        Control(ControlCommand command, const CMReply<QVariant>& reply, std::function<void()> function);
        // A play-mode command.
        Control(ZuvoPlayerPlayMode::Enum playMode, const CMReply<QVariant>& reply,
                std::function<void()> function);

        ControlCommand command = ControlCommand::none;
        ZuvoPlayerPlayMode::Enum playMode = ZuvoPlayerPlayMode::normal;
        std::function<void()> function; // starts the command
        QList<CMReply<QVariant>> replies;
    };

    // The log text of a command ("play", ... "none"); empty for any other value.
    static QString toString(ControlCommand command);

    ControlQueue(bool skipMerging, bool playModeCollapsing);
    ~ControlQueue() override;
    Q_DISABLE_COPY(ControlQueue)

    // The command now running; none when idle.
    ControlCommand activeControl() const { return m_activeControl.command; }
    bool stopped() const { return m_stopped; }

    // Commands. value travels to control(); reply is completed when the
    // command finishes (or when it is merged, dropped or refused, see above).
    void play(const QVariant& value, const CMReply<QVariant>& reply);
    void stop(const QVariant& value, const CMReply<QVariant>& reply);
    void next(const QVariant& value, const CMReply<QVariant>& reply);
    void previous(const QVariant& value, const CMReply<QVariant>& reply);
    void prepareNext();
    void changePlayMode(ZuvoPlayerPlayMode::Enum mode, const CMReply<QVariant>& reply);

    // Starts control at once when idle; otherwise queues, merges or drops it.
    void enqueue(const Control& control);
    // Returns the active control and makes the next waiting one (or a copy of
    // it with only its first reply, when it carries several) active without
    // starting it.
    Control dequeue();

    // Ends the active command: completes its replies with value, or with error
    // when the error has a name, then starts the next command.
    void finish(const QVariant& value, const CMError& error);
    void finish(const QVariant& value);
    void finish(const CMError& error);

    // Drops everything: cancels the active command's first reply and every
    // reply of the waiting commands, in queue order; sets stopped; emits
    // empty().
    void clear();

Q_SIGNALS:
    void control(ControlQueue::ControlCommand command, const QVariant& value);
    void playModeChanged(ZuvoPlayerPlayMode::Enum mode);
    // The queue has become idle.
    void empty();

private:
    void enqueueSkip(Control control);
    void startActive();
    // Drops the commands behind a failed play, up to the next play.
    void dropAfterFailedPlay();
    std::function<void()> emitter(ControlCommand command, const QVariant& value);
    void refuseStopped(const char* what, const CMReply<QVariant>& reply);

    const bool m_skipMerging;
    const bool m_playModeCollapsing;
    QList<Control> m_queue;
    Control m_activeControl;
    bool m_stopped = true;
};

std::ostream& operator<<(std::ostream& stream, ControlQueue::ControlCommand command);
