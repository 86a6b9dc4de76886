#include "rawterminal.h"

#include <csignal>
#include <termios.h>
#include <unistd.h>

namespace {

// Read by the signal handler: written before the handlers are installed.
struct termios s_saved;
volatile sig_atomic_t s_rawActive = 0;

const char ShowCursor[] = "\x1b[?25h\r\n";
const char HideCursor[] = "\x1b[?25l";

void restore() {
    if (!s_rawActive)
        return;
    s_rawActive = 0;
    tcsetattr(STDIN_FILENO, TCSANOW, &s_saved);
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, ShowCursor, sizeof ShowCursor - 1);
}

extern "C" void onTerminatingSignal(int signal) {
    restore();
    ::signal(signal, SIG_DFL);
    raise(signal);
}

} // namespace

RawTerminal::RawTerminal() {
    if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &s_saved) != 0)
        return;
    struct termios raw = s_saved;
    raw.c_lflag &= tcflag_t(~(ICANON | ECHO));
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    if (tcsetattr(STDIN_FILENO, TCSANOW, &raw) != 0)
        return;
    s_rawActive = 1;
    m_active = true;
    ::signal(SIGINT, onTerminatingSignal);
    ::signal(SIGTERM, onTerminatingSignal);
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, HideCursor, sizeof HideCursor - 1);
}

RawTerminal::~RawTerminal() {
    if (!m_active)
        return;
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    restore();
}
