#include "stdincommands.h"

#include <QRegularExpression>
#include <QSocketNotifier>
#include <cerrno>
#include <unistd.h>

namespace {

constexpr qint64 KeySeekMs = 10000;

// Longest line kept while waiting for its end; longer input is dropped.
constexpr int MaxLineBytes = 4096;

} // namespace

bool PlayerCommand::parse(const QString& line, PlayerCommand& command, QString& error) {
    static const QRegularExpression seek(QStringLiteral("^seek\\s+([+-]?)(\\d{1,15})$"));
    const QString text = line.trimmed();
    static const QList<QPair<QString, Kind>> words = {
        {QStringLiteral("pause"), Pause}, {QStringLiteral("resume"), Resume},
        {QStringLiteral("next"), Next},   {QStringLiteral("previous"), Previous},
        {QStringLiteral("stop"), Stop},   {QStringLiteral("quit"), Quit},
    };
    for (const auto& word : words) {
        if (text == word.first) {
            command = PlayerCommand{word.second, 0};
            return true;
        }
    }
    const QRegularExpressionMatch match = seek.match(text);
    if (match.hasMatch()) {
        const qint64 ms = match.captured(2).toLongLong();
        const QString sign = match.captured(1);
        command = sign.isEmpty() ? PlayerCommand{SeekTo, ms}
                                 : PlayerCommand{SeekBy, sign == QLatin1String("-") ? -ms : ms};
        return true;
    }
    error = text.startsWith(QLatin1String("seek")) ? QStringLiteral("seek needs +MS, -MS or MS")
                                                   : QStringLiteral("unknown command");
    return false;
}

StdinCommands::StdinCommands(Mode mode, QObject* parent)
    : QObject(parent)
    , m_mode(mode) {
    m_notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &StdinCommands::on_notifier_activated);
}

void StdinCommands::on_notifier_activated() {
    char buffer[1024];
    const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (n <= 0) {
        m_notifier->setEnabled(false);
        // A last line without its newline still counts.
        if (m_mode == Mode::Lines && !m_pending.isEmpty()) {
            m_pending.append('\n');
            takeLines();
        }
        Q_EMIT ended();
        return;
    }
    m_pending.append(buffer, int(n));
    if (m_mode == Mode::Lines)
        takeLines();
    else
        takeKeys();
}

void StdinCommands::takeLines() {
    int end;
    while ((end = m_pending.indexOf('\n')) >= 0) {
        const QString line = QString::fromUtf8(m_pending.left(end)).trimmed();
        m_pending.remove(0, end + 1);
        if (line.isEmpty())
            continue;
        PlayerCommand parsed;
        QString error;
        if (PlayerCommand::parse(line, parsed, error))
            Q_EMIT command(parsed);
        else
            Q_EMIT invalidCommand(line, error);
    }
    if (m_pending.size() > MaxLineBytes) {
        Q_EMIT invalidCommand(QString::fromUtf8(m_pending.left(40)) + QStringLiteral("..."),
                              QStringLiteral("line too long"));
        m_pending.clear();
    }
}

void StdinCommands::takeKeys() {
    while (!m_pending.isEmpty()) {
        // Arrow keys arrive as ESC [ C (right) and ESC [ D (left).
        if (m_pending.startsWith("\x1b")) {
            if (m_pending.size() < 3)
                return; // the rest of the sequence is on its way
            const char final = m_pending.at(2);
            m_pending.remove(0, 3);
            if (final == 'C')
                Q_EMIT command(PlayerCommand{PlayerCommand::SeekBy, KeySeekMs});
            else if (final == 'D')
                Q_EMIT command(PlayerCommand{PlayerCommand::SeekBy, -KeySeekMs});
            continue;
        }
        const char key = m_pending.at(0);
        m_pending.remove(0, 1);
        switch (key) {
        case ' ':
            Q_EMIT command(PlayerCommand{PlayerCommand::TogglePause, 0});
            break;
        case 'n':
            Q_EMIT command(PlayerCommand{PlayerCommand::Next, 0});
            break;
        case 'p':
            Q_EMIT command(PlayerCommand{PlayerCommand::Previous, 0});
            break;
        case 's':
            Q_EMIT command(PlayerCommand{PlayerCommand::Stop, 0});
            break;
        case 'q':
            Q_EMIT command(PlayerCommand{PlayerCommand::Quit, 0});
            break;
        default:
            break;
        }
    }
}
