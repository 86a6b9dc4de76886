#include "controlqueue.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "dbglog.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("ControlQueue"));

namespace {

bool isSkip(ControlQueue::ControlCommand command) {
    return command == ControlQueue::ControlCommand::next || command == ControlQueue::ControlCommand::previous;
}

} // namespace

ControlQueue::Control::Control() = default;

ControlQueue::Control::Control(ControlCommand command, const CMReply<QVariant>& reply,
                               std::function<void()> function)
    : command(command)
    , function(std::move(function))
    , replies{reply} {}

ControlQueue::Control::Control(ZuvoPlayerPlayMode::Enum playMode, const CMReply<QVariant>& reply,
                               std::function<void()> function)
    : command(ControlCommand::playMode)
    , playMode(playMode)
    , function(std::move(function))
    , replies{reply} {}

QString ControlQueue::toString(ControlCommand command) {
    switch (command) {
    case ControlCommand::play:
        return QStringLiteral("play");
    case ControlCommand::next:
        return QStringLiteral("next");
    case ControlCommand::previous:
        return QStringLiteral("previous");
    case ControlCommand::stop:
        return QStringLiteral("stop");
    case ControlCommand::prepareNext:
        return QStringLiteral("prepareNext");
    case ControlCommand::playMode:
        return QStringLiteral("playMode");
    case ControlCommand::none:
        return QStringLiteral("none");
    }
    return QString();
}

std::ostream& operator<<(std::ostream& stream, ControlQueue::ControlCommand command) {
    return stream << ControlQueue::toString(command);
}

ControlQueue::ControlQueue(bool skipMerging, bool playModeCollapsing)
    : m_skipMerging(skipMerging)
    , m_playModeCollapsing(playModeCollapsing) {
    static const int registered =
        qRegisterMetaType<ControlQueue::ControlCommand>("ControlQueue::ControlCommand");
    Q_UNUSED(registered)
    zuvoRegisterMetaTypes();
}

ControlQueue::~ControlQueue() {
    clear();
}

std::function<void()> ControlQueue::emitter(ControlCommand command, const QVariant& value) {
    return [this, command, value] { Q_EMIT control(command, value); };
}

void ControlQueue::refuseStopped(const char* what, const CMReply<QVariant>& reply) {
    LOG4CPLUS_ERROR(logger, "Playback control is stopped, ignore " << what);
    reply.setError(CMError(TrString(ZUVO_TR("Playback control is stopped"))));
}

void ControlQueue::play(const QVariant& value, const CMReply<QVariant>& reply) {
    dbglog_scopedFunction(logger);
    m_stopped = false;
    enqueue(Control(ControlCommand::play, reply, emitter(ControlCommand::play, value)));
}

void ControlQueue::stop(const QVariant& value, const CMReply<QVariant>& reply) {
    dbglog_scopedFunction(logger);
    m_stopped = true;
    enqueue(Control(ControlCommand::stop, reply, emitter(ControlCommand::stop, value)));
}

void ControlQueue::next(const QVariant& value, const CMReply<QVariant>& reply) {
    dbglog_scopedFunction(logger);
    if (m_stopped) {
        refuseStopped("next", reply);
        return;
    }
    enqueue(Control(ControlCommand::next, reply, emitter(ControlCommand::next, value)));
}

void ControlQueue::previous(const QVariant& value, const CMReply<QVariant>& reply) {
    dbglog_scopedFunction(logger);
    if (m_stopped) {
        refuseStopped("previous", reply);
        return;
    }
    enqueue(Control(ControlCommand::previous, reply, emitter(ControlCommand::previous, value)));
}

void ControlQueue::prepareNext() {
    dbglog_scopedFunction(logger);
    if (m_stopped) {
        LOG4CPLUS_ERROR(logger, "Playback control is stopped, ignore prepareNext");
        return;
    }
    // Nobody waits for a prepare-next: its reply slot holds a null handle.
    enqueue(Control(ControlCommand::prepareNext, CMReply<QVariant>(nullptr),
                    emitter(ControlCommand::prepareNext, QVariant())));
}

void ControlQueue::changePlayMode(ZuvoPlayerPlayMode::Enum mode, const CMReply<QVariant>& reply) {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_DEBUG(logger, "Play mode: " << ZuvoPlayerPlayMode::toString(mode));
    if (m_stopped) {
        refuseStopped("changePlayMode", reply);
        return;
    }
    enqueue(Control(mode, reply, [this, mode] { Q_EMIT playModeChanged(mode); }));
}

void ControlQueue::enqueue(const Control& control) {
    dbglog_scopedFunctionArgs(logger, "command: " << control.command);
    if (m_activeControl.command == ControlCommand::none) {
        m_activeControl = control;
        startActive();
        return;
    }
    if (control.command == ControlCommand::play || control.command == ControlCommand::prepareNext ||
        m_queue.isEmpty()) {
        m_queue.append(control);
        return;
    }
    switch (control.command) {
    case ControlCommand::stop: {
        const QList<Control> dropped = std::exchange(m_queue, {control});
        // Only the first dropped command is answered; the rest are released.
        for (const CMReply<QVariant>& reply : dropped.first().replies)
            reply.cancel();
        return;
    }
    case ControlCommand::next:
    case ControlCommand::previous:
        enqueueSkip(control);
        return;
    case ControlCommand::playMode:
        if (m_playModeCollapsing && m_queue.last().command == ControlCommand::playMode)
            m_queue.removeLast(); // its replies are released uncompleted
        m_queue.append(control);
        return;
    default:
        return;
    }
}

void ControlQueue::enqueueSkip(Control control) {
    Control& last = m_queue.last();
    if (!isSkip(last.command) || !m_skipMerging) {
        m_queue.append(control);
        return;
    }
    if (last.command == control.command) {
        last.replies.append(control.replies);
        return;
    }
    // Opposite skips cancel out: one reply of each side succeeds now.
    QList<CMReply<QVariant>> answered;
    if (!last.replies.isEmpty())
        answered.append(last.replies.takeLast());
    if (!control.replies.isEmpty())
        answered.append(control.replies.takeFirst());
    if (last.replies.isEmpty())
        m_queue.removeLast();
    for (const CMReply<QVariant>& reply : qAsConst(answered))
        reply.setValue(QVariant());
}

ControlQueue::Control ControlQueue::dequeue() {
    dbglog_scopedFunction(logger);
    Control finished = std::exchange(m_activeControl, Control());
    if (m_queue.isEmpty())
        return finished;
    Control& head = m_queue.first();
    if (head.replies.size() > 1) {
        // A merged skip runs once per reply; the rest stay queued.
        m_activeControl = head;
        m_activeControl.replies = {head.replies.takeFirst()};
    } else {
        m_activeControl = m_queue.takeFirst();
    }
    return finished;
}

void ControlQueue::startActive() {
    // A copy: the receiver may finish the command, replacing the active
    // control, while its function still runs.
    const std::function<void()> start = m_activeControl.function;
    if (start)
        start();
}

void ControlQueue::finish(const QVariant& value, const CMError& error) {
    dbglog_scopedFunctionArgs(logger, "Error: " << error.name());
    const Control finished = dequeue();
    const bool failed = !error.name().isEmpty();
    for (const CMReply<QVariant>& reply : finished.replies) {
        if (failed)
            reply.setError(error);
        else
            reply.setValue(value);
    }
    if (failed && finished.command == ControlCommand::play)
        dropAfterFailedPlay();

    if (m_activeControl.command == ControlCommand::none)
        Q_EMIT empty();
    else
        startActive();
}

void ControlQueue::dropAfterFailedPlay() {
    bool playModeDropped = false;
    ZuvoPlayerPlayMode::Enum playMode = ZuvoPlayerPlayMode::normal;
    while (m_activeControl.command != ControlCommand::play &&
           m_activeControl.command != ControlCommand::none) {
        if (m_activeControl.command == ControlCommand::playMode) {
            playMode = m_activeControl.playMode;
            playModeDropped = true;
        } else if (!m_activeControl.replies.isEmpty()) {
            m_activeControl.replies.first().setError(CMError(TrString(ZUVO_TR("Starting playback failed"))));
        }
        dequeue();
    }
    // The mode change was never carried out; announce it again so that the
    // play logic applies it to the play that follows.
    if (playModeDropped && m_activeControl.command != ControlCommand::none)
        Q_EMIT playModeChanged(playMode);
    m_stopped = m_activeControl.command == ControlCommand::none;
}

void ControlQueue::finish(const QVariant& value) {
    finish(value, CMError());
}

void ControlQueue::finish(const CMError& error) {
    finish(QVariant(), error);
}

void ControlQueue::clear() {
    dbglog_scopedFunction(logger);
    m_stopped = true;
    const QList<Control> dropped = std::exchange(m_queue, {});
    if (m_activeControl.command != ControlCommand::none) {
        const Control active = std::exchange(m_activeControl, Control());
        if (!active.replies.isEmpty())
            active.replies.first().cancel();
    }
    for (const Control& control : dropped) {
        for (const CMReply<QVariant>& reply : control.replies)
            reply.cancel();
    }
    Q_EMIT empty();
}
