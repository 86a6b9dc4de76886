#pragma once

#include "simulatedmedia.h"
#include "zuvo.h"

// The timeline of one playback of the simulated streamer: buffering, the
// playing position, the near-end point, the end, and the failure or crash
// its media asks for (SimulatedMedia). It knows no clock and no model tree:
// the streamer calls tick() on every tick of its timer with the simulated
// time that has passed, and publishes what tick() reports.
//
// One tick, one step, so that every change gets a tick of its own and the
// streamer's clients see each of them before the next:
//   1. a failure or crash whose position has been reached happens (while
//      opening, that is the first tick);
//   2. while the buffer is not full it fills by a quarter (0, 25, 50, 75,
//      100) and the state is loading; when it is full the playback starts
//      (state playing, or paused when started paused or paused meanwhile);
//   3. while playing, the position advances by the simulated time, but stops
//      at the next point where something happens (near end, end, failure,
//      crash) and that event is reported; the rest of the time of that tick
//      is dropped.
// The near end comes NearEndMs before the end (at the start for shorter
// tracks). The end comes no earlier than NearEndGraceTicks ticks after the
// near end, however fast the clock runs, so that a client has the time to
// queue the next media. A live stream has neither.
//
// Not thread-safe; owned and used by SimulatedEngine on its thread.
class SimulatedPlayback {
public:
    static constexpr qint64 NearEndMs = 5000;
    static constexpr int NearEndGraceTicks = 5;
    static constexpr int BufferStep = 25;

    enum class Event {
        None,     // the position may have moved, nothing else happened
        Buffered, // the buffer level rose
        Started,  // the buffer is full: the state left loading
        NearEnd,  // trackNearEnd became true
        Ended,    // the position reached the end of the track
        Failed,   // the stream failed (media().failureCode)
        Crashed   // the streamer crashed
    };

    SimulatedPlayback(const SimulatedMedia& media, bool startPaused);

    // Gapless start: the media was buffered while its predecessor played, so
    // it starts full and playing.
    void startBuffered();

    Event tick(double simulatedMs);

    // Moves the position to ms (0 <= ms <= duration, a finite track only);
    // returns false and changes nothing otherwise. Moving back before the
    // near-end point clears trackNearEnd, which is then reached again.
    bool seek(qint64 ms);
    void setPaused(bool paused) { m_paused = paused; }

    const SimulatedMedia& media() const { return m_media; }
    // loading (buffer not full), else paused or playing; never stopped.
    ZuvoPlayLogicState::Enum state() const;
    qint64 positionMs() const { return static_cast<qint64>(m_positionMs); }
    int bufferLevel() const { return m_bufferLevel; }
    bool nearEnd() const { return m_nearEnd; }
    bool isSeekable() const { return !m_media.isLive(); }
    // Duration (-1 live), seekable by time when not live, never by bytes.
    ZuvoPlayLogicStatus status() const;

private:
    qint64 nearEndAtMs() const;

    SimulatedMedia m_media;
    double m_positionMs = 0.0;
    int m_bufferLevel = 0;
    bool m_paused;
    bool m_nearEnd = false;
    int m_ticksSinceNearEnd = 0;
};
