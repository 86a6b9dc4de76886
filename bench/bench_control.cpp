// Control round trips through the model tree, against the floor of one bare
// queued hop, and the share of the disabled scope-logger lines in them.

#include <benchmark/benchmark.h>

#include <QObject>
#include <log4cplus/logger.h>

#include "dbglog.h"
#include "playlogicinterface.h"
#include "support/benchloop.h"
#include "support/logcapture.h"
#include "support/streamerworld.h"
#include "support/timing.h"

namespace {

using zuvobench::Clock;
using zuvobench::seconds;

// Operations timed between two clock reads: the clock's own cost stays far
// below the figures.
constexpr int Batch = 64;

enum class Control { ping, pause };

// One bare hop: a functor queued to receiver and delivered.
void bareHop(QObject* receiver) {
    bool arrived = false;
    QMetaObject::invokeMethod(
        receiver, [&arrived] { arrived = true; }, Qt::QueuedConnection);
    zuvobench::deliverPostedUntil([&arrived] { return arrived; });
}

// One control from the client until its reply has completed. Work the
// control queued that outlives its reply (pause: the command to the
// streamer and the streamer's answer) runs in the generations delivered for
// the next controls; a batch ends by draining what is left, so that a
// batch's time holds all the work its controls caused. Returns the
// generations of queued hops until the reply completed, -1 on a failed
// reply.
int roundTrip(PlayLogicInterface* client, Control control, int& pingSequence) {
    const CMReply<QVariant> reply = control == Control::ping ? client->ping(pingSequence++) : client->pause();
    const int generations = zuvobench::deliverPostedUntil([&reply] { return reply.isFinished(); });
    return reply.hasError() ? -1 : generations;
}

// Times a batch of round trips; false (and the benchmark skipped) when a
// reply failed.
bool timeRoundTrips(benchmark::State& state, PlayLogicInterface* client, Control control, int& pingSequence,
                    double& total) {
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < Batch; ++i) {
        if (roundTrip(client, control, pingSequence) < 0) {
            state.SkipWithError("a control's reply failed");
            return false;
        }
    }
    zuvobench::drainPosted();
    total += seconds(Clock::now() - start);
    return true;
}

void timeBareHops(QObject* receiver, double& total) {
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < Batch; ++i)
        bareHop(receiver);
    zuvobench::drainPosted();
    total += seconds(Clock::now() - start);
}

// Each iteration times a batch of bare hops and a batch of round trips,
// alternating which goes first, so that both see the same machine load.
void BM_ControlRoundTrip(benchmark::State& state, Control control) {
    zuvobench::StreamerWorld world;
    if (!world.startPlaying()) {
        state.SkipWithError("the play logic did not reach the playing state");
        return;
    }
    QObject receiver;
    int pingSequence = 0;
    const int generations = roundTrip(world.client(), control, pingSequence);
    zuvobench::drainPosted();
    double hopSeconds = 0;
    double tripSeconds = 0;
    bool hopsFirst = true;
    for (auto _ : state) {
        if (hopsFirst)
            timeBareHops(&receiver, hopSeconds);
        if (!timeRoundTrips(state, world.client(), control, pingSequence, tripSeconds))
            break;
        if (!hopsFirst)
            timeBareHops(&receiver, hopSeconds);
        hopsFirst = !hopsFirst;
        // The test streamer records every command it receives.
        world.streamer().clearInvocations();
    }
    const double operations = double(state.iterations()) * Batch;
    state.counters["hop_ns"] = hopSeconds * 1e9 / operations;
    state.counters["roundtrip_ns"] = tripSeconds * 1e9 / operations;
    state.counters["ratio"] = tripSeconds / hopSeconds;
    state.counters["reply_generations"] = generations;
}

// The unit of a disabled trace line: one function with a scope logger on a
// library logger whose TRACE level is off, against the same function
// without it. Both are kept out of line so that each call is a real call.
const log4cplus::Logger& libraryLogger() {
    static const log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("PlayLogicBase"));
    return logger;
}

__attribute__((noinline)) void withScopeLogger() {
    dbglog_scopedFunction(libraryLogger());
    benchmark::ClobberMemory();
}

__attribute__((noinline)) void withoutScopeLogger() {
    benchmark::ClobberMemory();
}

// Disabled trace lines a control passes: every TRACE line it would write
// with TRACE on, minus the "Leave " lines (a scope tests the level once, on
// entry). Counted with TRACE enabled for one control, then levels restored.
int disabledTraceChecks(PlayLogicInterface* client, Control control, int& pingSequence) {
    const LogCapture capture;
    if (roundTrip(client, control, pingSequence) < 0)
        return -1;
    zuvobench::drainPosted();
    int checks = 0;
    for (const LogCapture::Entry& entry : capture.entries()) {
        if (entry.level == log4cplus::TRACE_LOG_LEVEL && !entry.message.startsWith(QStringLiteral("Leave ")))
            ++checks;
    }
    return checks;
}

// Overhead of the disabled trace lines on a round trip: checks x the cost
// of one disabled scope logger, against the round trip without them. The
// three figures are measured side by side in every iteration.
void BM_DisabledTraceOverhead(benchmark::State& state, Control control) {
    zuvobench::StreamerWorld world;
    if (!world.startPlaying()) {
        state.SkipWithError("the play logic did not reach the playing state");
        return;
    }
    int pingSequence = 0;
    const int checks = disabledTraceChecks(world.client(), control, pingSequence);
    if (checks < 0 || libraryLogger().isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        state.SkipWithError("could not count the trace lines with TRACE off afterwards");
        return;
    }
    constexpr int Calls = 64 * Batch;
    double tripSeconds = 0;
    double scopedSeconds = 0;
    double plainSeconds = 0;
    for (auto _ : state) {
        if (!timeRoundTrips(state, world.client(), control, pingSequence, tripSeconds))
            break;
        world.streamer().clearInvocations();
        Clock::time_point start = Clock::now();
        for (int i = 0; i < Calls; ++i)
            withScopeLogger();
        scopedSeconds += seconds(Clock::now() - start);
        start = Clock::now();
        for (int i = 0; i < Calls; ++i)
            withoutScopeLogger();
        plainSeconds += seconds(Clock::now() - start);
    }
    const double iterations = double(state.iterations());
    const double tripNs = tripSeconds * 1e9 / (iterations * Batch);
    const double lineNs = (scopedSeconds - plainSeconds) * 1e9 / (iterations * Calls);
    const double traceNs = checks * lineNs;
    state.counters["trace_checks"] = checks;
    state.counters["disabled_line_ns"] = lineNs;
    state.counters["roundtrip_ns"] = tripNs;
    state.counters["overhead_pct"] = 100.0 * traceNs / (tripNs - traceNs);
}

BENCHMARK_CAPTURE(BM_ControlRoundTrip, ping, Control::ping)->Name("ControlRoundTrip/ping");
BENCHMARK_CAPTURE(BM_ControlRoundTrip, pause, Control::pause)->Name("ControlRoundTrip/pause");
BENCHMARK_CAPTURE(BM_DisabledTraceOverhead, ping, Control::ping)->Name("DisabledTraceOverhead/ping");
BENCHMARK_CAPTURE(BM_DisabledTraceOverhead, pause, Control::pause)->Name("DisabledTraceOverhead/pause");

} // namespace
