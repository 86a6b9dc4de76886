#include "terminalui.h"

#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

#include "playsession.h"

namespace {

constexpr int RedrawIntervalMs = 50;
constexpr int BarWidth = 20;

void writeOut(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    fflush(stdout);
}

QString clock(qint64 ms) {
    const qint64 seconds = qMax<qint64>(0, ms) / 1000;
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

int terminalColumns() {
    struct winsize size {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

} // namespace

TerminalUi::TerminalUi(PlaySession* session, bool live, QObject* parent)
    : QObject(parent)
    , m_session(session)
    , m_live(live) {
    m_clock.start();
    m_redrawTimer.setSingleShot(true);
    m_redrawTimer.setInterval(RedrawIntervalMs);
    connect(&m_redrawTimer, &QTimer::timeout, this, &TerminalUi::redraw);

    connect(session, &PlaySession::dataChanged, this, &TerminalUi::on_session_dataChanged);
    connect(session, &PlaySession::trackChanged, this, &TerminalUi::on_session_trackChanged);
    connect(session, &PlaySession::playTimeChanged, this, &TerminalUi::scheduleRedraw);
    connect(session, &PlaySession::bufferLevelChanged, this, &TerminalUi::scheduleRedraw);
    connect(session, &PlaySession::playModeChanged, this, [this](ZuvoPlayerPlayMode::Enum mode) {
        if (mode != std::exchange(m_playMode, mode))
            printEvent(QStringLiteral("play mode %1").arg(ZuvoPlayerPlayMode::toString(mode)));
    });
    connect(session, &PlaySession::playbackReport, this, [this](const ZuvoPlayLogicData& report) {
        // A stop the user asked for is no news to the user.
        if (!report.error().isEmpty() && report.error() != ZuvoPlaylogicErrorName::ZuvoPlaylogicUserStop())
            printEvent(QStringLiteral("\"%1\" reported %2").arg(report.trackRoles().title(), report.error()));
    });
    connect(session, &PlaySession::notice, this, [this](const ZuvoNotificationDisplayItem& notice) {
        printEvent(QStringLiteral("notice: %1: %2").arg(notice.title(), notice.message()));
    });
    connect(session, &PlaySession::commandFailed, this,
            [this](const QString& command, const QString& message) {
                printEvent(QStringLiteral("%1 refused: %2").arg(command, message));
            });
    connect(session, &PlaySession::finished, this, [this](int exitCode, const QString& message) {
        m_redrawTimer.stop();
        printEvent(exitCode == 0 ? QStringLiteral("playback finished")
                                 : QStringLiteral("playback failed: %1").arg(message));
        m_ended = true;
    });
}

void TerminalUi::invalidInput(const QString& input, const QString& reason) {
    printEvent(QStringLiteral("\"%1\": %2").arg(input, reason));
}

void TerminalUi::on_session_dataChanged(const ZuvoPlayLogicData& data) {
    if (data.error() != m_error) {
        m_error = data.error();
        if (!m_error.isEmpty())
            printEvent(QStringLiteral("error: %1").arg(m_error));
    }
    // Another resource of the item: a fall-back, or a playlist's entry.
    const QString uri = data.trackRoles().mediaData().activeResource().uri();
    if (uri != m_uri) {
        m_uri = uri;
        if (!uri.isEmpty() &&
            uri != m_session->items().value(m_session->currentIndex()).mediaData().activeResource().uri())
            printEvent(QStringLiteral("streaming <%1>").arg(uri));
    }
    if (data.state() != m_state) {
        m_state = data.state();
        if (!m_live)
            printEvent(QStringLiteral("%1 at %2")
                           .arg(ZuvoPlayLogicState::toString(m_state), clock(m_session->playTime())));
    }
    scheduleRedraw();
}

void TerminalUi::on_session_trackChanged(int index) {
    const ZuvoRoles item = m_session->items().value(index);
    const ZuvoMediaData mediaData = item.mediaData();
    QString text =
        QStringLiteral("item %1/%2: %3")
            .arg(QString::number(index + 1), QString::number(m_session->items().size()), item.title());
    if (mediaData.resources().size() > 1)
        text += QStringLiteral(" (%1 alternates)").arg(mediaData.resources().size());
    printEvent(text + QStringLiteral("  <%1>").arg(mediaData.activeResource().uri()));
}

void TerminalUi::printEvent(const QString& text) {
    if (m_ended)
        return;
    if (m_live) {
        // Over the status line, which is drawn again below.
        writeOut(QStringLiteral("\r\x1b[K") + text + QLatin1Char('\n'));
        scheduleRedraw();
        return;
    }
    const QString seconds = QString::number(m_clock.elapsed() / 1000.0, 'f', 2).rightJustified(6);
    writeOut(QStringLiteral("[%1s] %2\n").arg(seconds, text));
}

void TerminalUi::scheduleRedraw() {
    if (m_live && !m_ended && !m_redrawTimer.isActive())
        m_redrawTimer.start();
}

void TerminalUi::redraw() {
    writeOut(QStringLiteral("\r\x1b[K") + statusLine().left(terminalColumns() - 1));
}

QString TerminalUi::statusLine() const {
    const ZuvoPlayLogicData data = m_session->data();
    const int index = m_session->currentIndex();
    const qint64 position = m_session->playTime();
    const qint64 duration = data.status().duration();

    QString line =
        QStringLiteral("[%1] %2/%3 %4  ")
            .arg(ZuvoPlayLogicState::toString(data.state()).leftJustified(7), QString::number(index + 1),
                 QString::number(m_session->items().size()), m_session->items().value(index).title());
    if (duration > 0) {
        const int filled = int(qBound<qint64>(0, position * BarWidth / duration, BarWidth));
        line += QStringLiteral("%1 / %2 [%3%4]")
                    .arg(clock(position), clock(duration), QString(filled, QLatin1Char('#')),
                         QString(BarWidth - filled, QLatin1Char('-')));
    } else {
        line += QStringLiteral("%1 LIVE").arg(clock(position));
    }
    const double buffer = m_session->bufferLevel();
    if (buffer >= 0)
        line += QStringLiteral("  buf %1%").arg(int(buffer));
    if (m_session->playMode() != ZuvoPlayerPlayMode::normal)
        line += QStringLiteral("  %1").arg(ZuvoPlayerPlayMode::toString(m_session->playMode()));
    if (!data.error().isEmpty())
        line += QStringLiteral("  ! %1").arg(data.error());
    return line;
}
