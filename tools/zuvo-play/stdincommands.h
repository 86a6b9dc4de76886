#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QSocketNotifier;

// A command for the player, from a stdin line or a key.
struct PlayerCommand {
    enum Kind { Pause, Resume, TogglePause, Next, Previous, SeekBy, SeekTo, Stop, Quit };
    Kind kind = Quit;
    qint64 ms = 0; // SeekBy: signed offset; SeekTo: position

    // Parses one command line: "pause", "resume", "next", "previous",
    // "seek +MS", "seek -MS", "seek MS", "stop", "quit" (surrounding blanks
    // ignored). Returns false, with the reason in error, for anything else.
    static bool parse(const QString& line, PlayerCommand& command, QString& error);
};

// Reads the player's commands from stdin without blocking the event loop
// (a QSocketNotifier on file descriptor 0, never a thread).
//
// Lines mode (--json, or stdin not a terminal): every complete line is
// parsed as a PlayerCommand; empty lines are skipped, others that do not
// parse are reported with invalidCommand(). Keys mode (the terminal in raw
// mode): space toggles pause, n next, p previous, left/right arrows seek by
// -/+10 s, s stop, q quit; other keys are ignored.
//
// ended() is emitted once when stdin reaches its end or fails; reading stops
// then. Thread: the main thread. The notifier is a child of this object.
class StdinCommands : public QObject {
    Q_OBJECT
public:
    enum class Mode { Lines, Keys };

    explicit StdinCommands(Mode mode, QObject* parent = nullptr);
    Q_DISABLE_COPY(StdinCommands)

Q_SIGNALS:
    void command(const PlayerCommand& command);
    void invalidCommand(const QString& input, const QString& reason);
    void ended();

private:
    void on_notifier_activated();
    void takeLines();
    void takeKeys();

    const Mode m_mode;
    QSocketNotifier* m_notifier = nullptr;
    QByteArray m_pending; // bytes read but not yet used
};
