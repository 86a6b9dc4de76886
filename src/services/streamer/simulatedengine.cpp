#include "simulatedengine.h"

#include <QtMath>
#include <cmath>

#include "dbglog.h"
#include "simulatedplayback.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("SimulatedStreamer"));

namespace {

// The timer wants to tick every TickSimulatedMs of the simulated clock, within
// these bounds of real time.
constexpr double TickSimulatedMs = 100.0;
constexpr int MinTickIntervalMs = 10;
constexpr int MaxTickIntervalMs = 100;

} // namespace

SimulatedEngine::SimulatedEngine(QObject* parent)
    : StreamerEngine(parent) {
    m_tickTimer.setObjectName(QStringLiteral("simulatedStreamerTick"));
    connect(&m_tickTimer, &QTimer::timeout, this, &SimulatedEngine::on_tickTimer_timeout);
    updateTickInterval();
}

SimulatedEngine::~SimulatedEngine() = default;

void SimulatedEngine::setSpeed(double factor) {
    if (!std::isfinite(factor) || factor < 0) {
        LOG4CPLUS_WARN(logger, "Ignoring speed " << factor << ": it must be a finite number >= 0");
        return;
    }
    m_speed = factor;
    updateTickInterval();
}

void SimulatedEngine::setDefaultDurationMs(qint64 ms) {
    if (ms <= 0) {
        LOG4CPLUS_WARN(logger, "Ignoring default duration " << ms << " ms: it must be positive");
        return;
    }
    m_defaultDurationMs = ms;
}

void SimulatedEngine::updateTickInterval() {
    const int interval = m_speed > 0
                             ? qBound(MinTickIntervalMs, qCeil(TickSimulatedMs / m_speed), MaxTickIntervalMs)
                             : MinTickIntervalMs;
    m_tickTimer.setInterval(interval);
}

void SimulatedEngine::play(const QString& uri, const ZuvoRoles& roles, bool startPaused) {
    const SimulatedMedia media = SimulatedMedia::fromRoles(roles, m_defaultDurationMs);
    LOG4CPLUS_DEBUG(logger, "Plays " << uri << " (duration " << media.durationMs << " ms)");
    m_next.reset();
    start(std::make_unique<SimulatedPlayback>(media, startPaused));
}

void SimulatedEngine::setNext(const QString&, const ZuvoRoles& roles) {
    m_next = SimulatedMedia::fromRoles(roles, m_defaultDurationMs);
}

void SimulatedEngine::clearNext() {
    m_next.reset();
}

void SimulatedEngine::setPaused(bool paused) {
    if (m_current)
        m_current->setPaused(paused);
}

void SimulatedEngine::seek(qint64 ms) {
    if (m_current)
        m_current->seek(ms);
}

void SimulatedEngine::stop() {
    m_current.reset();
    m_next.reset();
    m_tickTimer.stop();
}

void SimulatedEngine::setBufferingConfig(const QVariant&) {
    // The simulated buffer fills in steps whatever its configuration.
}

void SimulatedEngine::start(std::unique_ptr<SimulatedPlayback> playback) {
    m_current = std::move(playback);
    if (!m_tickTimer.isActive()) {
        m_clock.start();
        m_tickTimer.start();
    }
}

ZuvoPlayLogicState::Enum SimulatedEngine::state() const {
    return m_current ? m_current->state() : ZuvoPlayLogicState::stopped;
}

qint64 SimulatedEngine::positionMs() const {
    return m_current ? m_current->positionMs() : 0;
}

int SimulatedEngine::bufferLevel() const {
    return m_current ? m_current->bufferLevel() : 0;
}

qint64 SimulatedEngine::bufferedBytes() const {
    return BufferCapacityBytes * bufferLevel() / 100;
}

ZuvoPlayLogicStatus SimulatedEngine::status() const {
    return m_current ? m_current->status() : ZuvoPlayLogicStatus();
}

bool SimulatedEngine::nearEnd() const {
    return m_current && m_current->nearEnd();
}

void SimulatedEngine::on_tickTimer_timeout() {
    const double simulatedMs = static_cast<double>(m_clock.nsecsElapsed()) / 1e6 * m_speed;
    m_clock.start();
    if (!m_current) {
        m_tickTimer.stop();
        return;
    }
    const SimulatedPlayback::Event event = m_current->tick(simulatedMs);
    Q_EMIT updated();
    switch (event) {
    case SimulatedPlayback::Event::None:
    case SimulatedPlayback::Event::Buffered:
    case SimulatedPlayback::Event::Started:
    case SimulatedPlayback::Event::NearEnd:
        break;
    case SimulatedPlayback::Event::Ended:
        if (m_next) {
            auto playback = std::make_unique<SimulatedPlayback>(*m_next, false);
            playback->startBuffered();
            m_next.reset();
            start(std::move(playback));
            Q_EMIT nextStarted();
        } else {
            stop();
            Q_EMIT ended();
        }
        break;
    case SimulatedPlayback::Event::Failed: {
        const int code = m_current->media().failureCode;
        stop();
        Q_EMIT failed(code, QStringLiteral("simulated failure"));
        break;
    }
    case SimulatedPlayback::Event::Crashed:
        stop();
        Q_EMIT crashed(QStringLiteral("simulated crash"));
        break;
    }
}
