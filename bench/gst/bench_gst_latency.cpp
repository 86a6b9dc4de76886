// Latency of a play on the GStreamer streamer: from the client's play
// control to the first decoded buffer at the sink, against a bare playbin
// given the same URI and the same sink.

#include <benchmark/benchmark.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrl>
#include <algorithm>
#include <gst/gst.h>
#include <memory>

#include "gst/gsttestmedia.h"
#include "gst/sinkprobe.h"
#include "gstengine.h"
#include "gststreamer.h"
#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "streamerplaylogic.h"
#include "support/eventloop.h"
#include "support/streamerplaylogicfixture.h"
#include "support/timing.h"

namespace {

using zuvobench::Clock;
using zuvobench::seconds;

// Plays per repetition, half of them with the library first.
constexpr int PlaysPerRepetition = 20;
constexpr int WaitMs = 10000;
// The name AudioSinkSpec gives the null sink (audiosink.cpp).
const QString LibrarySinkName = QStringLiteral("zuvo-null-sink");
const CMPath LogicPath("/bench/gstPlayLogic");

// The library as a device's application has it: a StreamerPlayLogic and the
// GStreamer streamer service with the null sink, in a registry of their own,
// driven by a client through PlayLogicInterface.
class LibraryPlayer {
public:
    LibraryPlayer()
        : m_streamer(m_scope.nodes(), QStringLiteral("null"))
        , m_logic(std::make_unique<StreamerPlayLogic>(m_scope.nodes(), LogicPath))
        , m_client(PlayLogicInterface::instance(LogicPath)) {
        // Nobody pings during the benchmark: keep the watchdog quiet.
        if (auto* watchdog = m_logic->findChild<QTimer*>(QStringLiteral("pingTimeoutTimer")))
            watchdog->setInterval(24 * 3600 * 1000);
    }
    ~LibraryPlayer() {
        stop();
        m_logic.reset();
        zuvotest::drainEvents();
    }
    Q_DISABLE_COPY(LibraryPlayer)

    // The play control with item as the track (StreamerPlayLogic plays the
    // track roles).
    void play(const ZuvoRoles& item) { m_client->playContainer(ZuvoRoles(), item, 0, 0); }
    bool stop() {
        if (m_client->data().state() == ZuvoPlayLogicState::stopped)
            return true;
        m_client->stop(ZuvoPlayLogicStopReason::user);
        return zuvotest::waitUntil([this] { return m_client->data().state() == ZuvoPlayLogicState::stopped; },
                                   WaitMs);
    }

private:
    CMRootScope m_scope;
    GstStreamer m_streamer;
    std::unique_ptr<StreamerPlayLogic> m_logic;
    PlayLogicInterface* m_client;
};

// The floor: one playbin, kept like the engine keeps its own, with the same
// sink (fakesink, sync=true); a play sets the URI and goes to PLAYING.
class BarePlayer {
public:
    explicit BarePlayer(zuvobench::GstSinkProbe& probe)
        : m_playbin(GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make("playbin", "bench-playbin")))) {
        GstElement* sink = gst_element_factory_make("fakesink", "bench-null-sink");
        g_object_set(sink, "sync", TRUE, nullptr);
        probe.attach(sink);
        g_object_set(m_playbin, "audio-sink", sink, nullptr);
    }
    ~BarePlayer() {
        gst_element_set_state(m_playbin, GST_STATE_NULL);
        gst_object_unref(m_playbin);
    }
    Q_DISABLE_COPY(BarePlayer)

    void play(const QByteArray& uri) {
        g_object_set(m_playbin, "uri", uri.constData(), nullptr);
        gst_element_set_state(m_playbin, GST_STATE_PLAYING);
    }
    void stop() {
        gst_element_set_state(m_playbin, GST_STATE_READY);
        // Nobody watches the bus of the floor: drop what it collected.
        GstBus* bus = gst_element_get_bus(m_playbin);
        gst_bus_set_flushing(bus, TRUE);
        gst_bus_set_flushing(bus, FALSE);
        gst_object_unref(bus);
    }

private:
    GstElement* m_playbin;
};

struct Readings {
    double arrival = 0;
    double render = 0;
};

// Times one play from start() until the probe saw its first buffer rendered;
// stop() is not timed. false when it never rendered.
template <typename Start, typename Stop>
bool timePlay(zuvobench::GstSinkProbe& probe, const Start& start, const Stop& stop, Readings& total) {
    probe.arm();
    const Clock::time_point begin = Clock::now();
    start();
    const bool rendered = probe.waitRendered(WaitMs);
    if (rendered) {
        total.arrival += seconds(probe.arrival() - begin);
        total.render += seconds(probe.render() - begin);
    }
    stop();
    return rendered;
}

// Each iteration is one play of the library and one of the bare playbin,
// alternating which goes first; the iteration's manual time is the
// library's. Both play a 10 s WAV file (44.1 kHz stereo) from the start.
void BM_GstPlayLatency(benchmark::State& state) {
    GstEngine::ensureGstInitialised();
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("latency.wav"));
    QFile file(path);
    if (!dir.isValid() || !file.open(QIODevice::WriteOnly) ||
        file.write(gsttest::wavFile(gsttest::tone(10 * gsttest::Rate, 1))) < 0) {
        state.SkipWithError("cannot write the WAV file");
        return;
    }
    file.close();
    const QString uri = QUrl::fromLocalFile(path).toString();
    const ZuvoRoles item = spltest::item({uri});

    // Declared first: destroyed after the pipelines it instruments.
    zuvobench::GstSinkProbe probe(LibrarySinkName);
    LibraryPlayer library;
    BarePlayer bare(probe);
    Readings libraryTotal;
    Readings bareTotal;
    auto playLibrary = [&](Readings& total) {
        return timePlay(
            probe, [&] { library.play(item); }, [&] { library.stop(); }, total);
    };
    auto playBare = [&](Readings& total) {
        return timePlay(
            probe, [&] { bare.play(uri.toUtf8()); }, [&] { bare.stop(); }, total);
    };
    // Untimed first plays: plugins loaded, the file in the page cache.
    Readings warmUp;
    if (!playLibrary(warmUp) || !playBare(warmUp) || probe.sinks() != 2) {
        state.SkipWithError("a first play did not reach the sink");
        return;
    }
    bool libraryFirst = true;
    for (auto _ : state) {
        Readings libraryPlay;
        Readings barePlay;
        const bool ok = libraryFirst ? playLibrary(libraryPlay) && playBare(barePlay)
                                     : playBare(barePlay) && playLibrary(libraryPlay);
        if (!ok) {
            state.SkipWithError("a play did not reach the sink");
            break;
        }
        state.SetIterationTime(libraryPlay.arrival);
        libraryTotal.arrival += libraryPlay.arrival;
        libraryTotal.render += libraryPlay.render;
        bareTotal.arrival += barePlay.arrival;
        bareTotal.render += barePlay.render;
        libraryFirst = !libraryFirst;
    }
    const double plays = double(state.iterations());
    const double libraryMs = libraryTotal.arrival * 1e3 / plays;
    const double bareMs = bareTotal.arrival * 1e3 / plays;
    state.counters["library_ms"] = libraryMs;
    state.counters["bare_ms"] = bareMs;
    state.counters["ratio"] = libraryMs / bareMs;
    state.counters["added_ms"] = libraryMs - bareMs;
    // Allowed: 10 % of the floor or 5 ms, whichever is larger.
    state.counters["allowed_ms"] = std::max(0.1 * bareMs, 5.0);
    state.counters["library_render_ms"] = libraryTotal.render * 1e3 / plays;
    state.counters["bare_render_ms"] = bareTotal.render * 1e3 / plays;
}

BENCHMARK(BM_GstPlayLatency)
    ->Name("GstPlayLatency/wav")
    ->Iterations(PlaysPerRepetition)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
