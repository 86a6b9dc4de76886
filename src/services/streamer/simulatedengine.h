#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <memory>
#include <optional>

#include "simulatedmedia.h"
#include "streamerengine.h"

class SimulatedPlayback;

// The engine of SimulatedStreamer: plays nothing, but runs each track's
// timeline (SimulatedPlayback) on a clock, so that a streamer service behaves
// like a decoder's on any machine. What a track does (length, live, failure,
// crash) is chosen by its URI and resource (SimulatedMedia).
//
// Time. While a track runs a timer ticks; each tick hands the simulated time
// since the last one (real time times speed()) to the track's timeline
// (buffering in four steps, position, near end 5000 simulated ms before the
// end and the end no sooner than five ticks after it, failure, crash; one
// change per tick) and emits updated(), then the tick's event: at the end
// with a queued successor the successor starts buffered and playing
// (nextStarted()), else ended(); failed() or crashed() as the media asks.
// The timer fires every 100 simulated ms, but no more often than every 10
// real ms and no less often than every 100 real ms; it stops while nothing
// plays.
//
// Speed: simulated ms per real ms (default 1.0). 0 freezes the position
// (buffering, near end and failures due at the current position still
// happen, every 10 real ms): for tests that need a playback to stay where
// it is.
//
// Buffered bytes: BufferCapacityBytes times the buffer level.
//
// Thread: the thread it lives on. Logger "SimulatedStreamer".
class SimulatedEngine : public StreamerEngine {
    Q_OBJECT
public:
    static constexpr qint64 DefaultDurationMs = 30000;
    // Buffered bytes of a full buffer.
    static constexpr qint64 BufferCapacityBytes = 512 * 1024;

    explicit SimulatedEngine(QObject* parent = nullptr);
    ~SimulatedEngine() override;
    Q_DISABLE_COPY(SimulatedEngine)

    // Negative or not finite: ignored with a warning.
    void setSpeed(double factor);
    double speed() const { return m_speed; }
    // Duration of a track whose URI and roles give none; applies to media
    // played or queued afterwards. Not positive: ignored with a warning.
    void setDefaultDurationMs(qint64 ms);
    qint64 defaultDurationMs() const { return m_defaultDurationMs; }

    void play(const QString& uri, const ZuvoRoles& roles, bool startPaused) override;
    void setNext(const QString& uri, const ZuvoRoles& roles) override;
    void clearNext() override;
    void setPaused(bool paused) override;
    void seek(qint64 ms) override;
    void stop() override;
    void setBufferingConfig(const QVariant& config) override;

    ZuvoPlayLogicState::Enum state() const override;
    qint64 positionMs() const override;
    int bufferLevel() const override;
    qint64 bufferedBytes() const override;
    ZuvoPlayLogicStatus status() const override;
    bool nearEnd() const override;

private:
    void on_tickTimer_timeout();
    void start(std::unique_ptr<SimulatedPlayback> playback);
    void updateTickInterval();

    std::unique_ptr<SimulatedPlayback> m_current;
    std::optional<SimulatedMedia> m_next;
    QTimer m_tickTimer{this};
    QElapsedTimer m_clock;
    double m_speed = 1.0;
    qint64 m_defaultDurationMs = DefaultDurationMs;
};
