#include "simulatedplayback.h"

#include <algorithm>
#include <limits>

SimulatedPlayback::SimulatedPlayback(const SimulatedMedia& media, bool startPaused)
    : m_media(media)
    , m_paused(startPaused) {}

void SimulatedPlayback::startBuffered() {
    m_bufferLevel = 100;
}

qint64 SimulatedPlayback::nearEndAtMs() const {
    return std::max<qint64>(0, m_media.durationMs - NearEndMs);
}

ZuvoPlayLogicState::Enum SimulatedPlayback::state() const {
    if (m_bufferLevel < 100)
        return ZuvoPlayLogicState::loading;
    return m_paused ? ZuvoPlayLogicState::paused : ZuvoPlayLogicState::playing;
}

ZuvoPlayLogicStatus SimulatedPlayback::status() const {
    ZuvoPlayLogicStatus status;
    status.setDuration(m_media.isLive() ? -1 : m_media.durationMs);
    status.setTimeSeek(isSeekable());
    status.setByteSeek(false);
    return status;
}

SimulatedPlayback::Event SimulatedPlayback::tick(double simulatedMs) {
    if (m_nearEnd)
        ++m_ticksSinceNearEnd;

    // A failure or crash at a position already reached (at 0: while opening)
    // comes before anything else.
    if (m_media.crashes && m_media.crashAtMs <= m_positionMs)
        return Event::Crashed;
    if (m_media.fails() && m_media.failureAtMs <= m_positionMs)
        return Event::Failed;

    if (m_bufferLevel < 100) {
        m_bufferLevel = std::min(100, m_bufferLevel + BufferStep);
        return m_bufferLevel == 100 ? Event::Started : Event::Buffered;
    }
    if (m_paused)
        return Event::None;

    const double target = m_positionMs + std::max(0.0, simulatedMs);
    // A finite track ends at its duration: nothing lies beyond it.
    const double reach =
        m_media.isLive() ? target : std::min(target, static_cast<double>(m_media.durationMs));
    double eventAt = std::numeric_limits<double>::infinity();
    Event event = Event::None;
    // The earliest point within reach wins; on a tie the first one listed.
    const auto consider = [&](bool applies, qint64 at, Event candidate) {
        if (applies && at <= reach && at < eventAt) {
            eventAt = static_cast<double>(at);
            event = candidate;
        }
    };
    consider(m_media.crashes, m_media.crashAtMs, Event::Crashed);
    consider(m_media.fails(), m_media.failureAtMs, Event::Failed);
    consider(!m_media.isLive() && !m_nearEnd, nearEndAtMs(), Event::NearEnd);
    consider(!m_media.isLive() && m_nearEnd && m_ticksSinceNearEnd >= NearEndGraceTicks, m_media.durationMs,
             Event::Ended);

    if (event == Event::None) {
        m_positionMs = reach;
        return Event::None;
    }
    m_positionMs = std::max(m_positionMs, eventAt);
    if (event == Event::NearEnd) {
        m_nearEnd = true;
        m_ticksSinceNearEnd = 0;
    }
    return event;
}

bool SimulatedPlayback::seek(qint64 ms) {
    if (!isSeekable() || ms < 0 || ms > m_media.durationMs)
        return false;
    m_positionMs = static_cast<double>(ms);
    if (m_nearEnd && ms < nearEndAtMs()) {
        m_nearEnd = false;
        m_ticksSinceNearEnd = 0;
    }
    return true;
}
