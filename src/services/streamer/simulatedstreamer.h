#pragma once

#include "simulatedengine.h"
#include "streamerservice.h"

// A streamer service without audio hardware: the streamer's protocol
// (StreamerService: nodes, commands, refusals, ids, records) on a simulated
// engine (SimulatedEngine: a clock and a timeline per track, failures and
// crashes chosen by the URI, see simulatedmedia.h), so that
// ZuvoStreamerInterface, StreamerController and the play logics above them
// run unchanged on any machine, deterministically.
//
// Before the first play the data record is {state: stopped}, play time 0,
// buffering level -1, buffered bytes 0; a play publishes the loading record
// with play time 0 and buffering level 0, the buffer fills in four ticks,
// and buffered bytes are BufferCapacityBytes times the level.
//
// Thread: the thread of the registry's event loop, like its base.
class SimulatedStreamer : public StreamerService {
    Q_OBJECT
public:
    static constexpr qint64 DefaultDurationMs = SimulatedEngine::DefaultDurationMs;
    static constexpr qint64 BufferCapacityBytes = SimulatedEngine::BufferCapacityBytes;

    explicit SimulatedStreamer(CMNodes* nodes, const CMPath& prefix = ZuvoStreamerDefaultPrefixPath(),
                               QObject* parent = nullptr);
    ~SimulatedStreamer() override;
    Q_DISABLE_COPY(SimulatedStreamer)

    // Simulated milliseconds per real millisecond (default 1.0; e.g. 20 for
    // demos, 1000 for tests, 0 to freeze the position). Negative or not
    // finite: ignored with a warning.
    void setSpeed(double factor) { m_engine->setSpeed(factor); }
    double speed() const { return m_engine->speed(); }
    // Duration of a track whose URI and roles give none (default 30000 ms);
    // applies to media played or queued afterwards. Not positive: ignored.
    void setDefaultDurationMs(qint64 ms) { m_engine->setDefaultDurationMs(ms); }
    qint64 defaultDurationMs() const { return m_engine->defaultDurationMs(); }

private:
    SimulatedStreamer(CMNodes* nodes, const CMPath& prefix, SimulatedEngine* engine, QObject* parent);

    SimulatedEngine* const m_engine;
};
