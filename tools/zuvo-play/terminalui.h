#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

#include "zuvo.h"

class PlaySession;

// The human view of a session.
//
// Live (stdout is a terminal): one status line, redrawn in place at most
// every 50 ms: state, item number and title, position / duration with a
// progress bar (LIVE for a stream without end), buffer level, play mode and
// the published error. Events (a new item, another resource of it, an
// error, a report of a failed item, a notice, a refused command) are
// printed as lines above it.
//
// Plain (anything else, e.g. CI logs): no redrawn line; one line per event
// and per change of state, each stamped with the seconds since the start.
//
// Writes to stdout; the session's finished() prints the closing line, after
// which nothing more is written. Thread: the main thread.
class TerminalUi : public QObject {
    Q_OBJECT
public:
    TerminalUi(PlaySession* session, bool live, QObject* parent = nullptr);
    Q_DISABLE_COPY(TerminalUi)

    // Reports a stdin line that is no command.
    void invalidInput(const QString& input, const QString& reason);

private:
    void on_session_dataChanged(const ZuvoPlayLogicData& data);
    void on_session_trackChanged(int index);
    // Prints text as a line of its own (above the status line when live).
    void printEvent(const QString& text);
    void scheduleRedraw();
    void redraw();
    QString statusLine() const;

    PlaySession* m_session;
    const bool m_live;
    QElapsedTimer m_clock;
    QTimer m_redrawTimer;
    ZuvoPlayLogicState::Enum m_state = ZuvoPlayLogicState::stopped;
    ZuvoPlayerPlayMode::Enum m_playMode = ZuvoPlayerPlayMode::normal;
    QString m_error;
    QString m_uri; // the active resource last published
    bool m_ended = false;
};
