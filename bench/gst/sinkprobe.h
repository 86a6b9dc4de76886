#pragma once

#include <QByteArray>
#include <QString>
#include <atomic>

#include "support/timing.h"

typedef struct _GstElement GstElement;

namespace zuvobench {

// When the first buffer of a play reaches an audio sink, and when the sink
// renders it; the same measurement for a sink the benchmark made itself and
// for the library's null sink inside GstEngine's playbin, which nothing
// outside the engine can reach.
//
// Sinks are fakesinks (the library's null sink is one: sync=true). On each
// watched sink the probe puts a buffer probe on its sink pad (arrival: the
// first decoded buffer at the sink, during preroll) and turns on its
// signal-handoffs to see its first handoff (render: the first buffer played
// against the clock, once the pipeline is PLAYING). Both sides of a
// comparison get the same instrumentation.
//
// The library's sink is found by name: an emission hook on GstBin's
// element-added sees every element any bin adds, and attaches to those
// named sinkName. Only one probe may watch names at a time (the hook is
// process-wide); attach() works for any number.
//
// Lifetime: the probe must outlive the sinks it instrumented (they call it
// back); destroy the pipelines first.
//
// Thread: construct, arm() and wait on the event-loop thread; the callbacks
// run on streaming threads and only store clock readings and wake the loop.
class GstSinkProbe {
public:
    // Watches sinks named sinkName added by any bin from now on (empty: none).
    explicit GstSinkProbe(const QString& sinkName = QString());
    ~GstSinkProbe();
    Q_DISABLE_COPY(GstSinkProbe)

    // Instruments sink (a fakesink) now.
    void attach(GstElement* sink);
    // Forgets the readings: the next arrival and render are recorded.
    void arm();
    // Runs the event loop until the armed play rendered its first buffer or
    // timeoutMs passed; returns whether it rendered.
    bool waitRendered(int timeoutMs);

    // Readings since arm(); meaningful after waitRendered() returned true.
    Clock::time_point arrival() const { return Clock::time_point(Clock::duration(m_arrival.load())); }
    Clock::time_point render() const { return Clock::time_point(Clock::duration(m_render.load())); }
    // Sinks instrumented so far.
    int sinks() const { return m_sinks.load(); }

private:
    // The GLib and GStreamer callbacks (sinkprobe.cpp).
    struct Callbacks;
    friend struct Callbacks;

    void instrument(GstElement* sink);
    // Stores now in reading unless it holds one since arm().
    void record(std::atomic<Clock::rep>& reading);

    QByteArray m_sinkName;
    unsigned long m_hook = 0;
    std::atomic<Clock::rep> m_arrival{0};
    std::atomic<Clock::rep> m_render{0};
    std::atomic<int> m_sinks{0};
    void* m_dispatcher = nullptr;
};

} // namespace zuvobench
