#pragma once

#include <QtGlobal>

// Puts the terminal on stdin into raw mode for its lifetime: keys arrive one
// by one, unechoed; Ctrl-C still raises SIGINT. The cursor is hidden.
//
// The saved settings are restored by the destructor, and also when SIGINT or
// SIGTERM arrives: the handler restores the terminal (async-signal-safe
// calls only) and then lets the signal take its default course. At most one
// instance may exist. Does nothing when stdin is not a terminal.
class RawTerminal {
public:
    RawTerminal();
    ~RawTerminal();
    Q_DISABLE_COPY(RawTerminal)

    bool active() const { return m_active; }

private:
    bool m_active = false;
};
