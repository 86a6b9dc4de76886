// Soak: a track-list play logic on the simulated streamer, cycles of play -> near end ->
// next -> stop. Every client reply completes, and resident memory grows by at most 1 MiB
// past warm-up (not under sanitizers or valgrind). ZUVO_SOAK_CYCLES: cycles (default 150);
// ZUVO_SOAK_SPEED: the streamer's speed (default 10: a 5000 ms track nears its end at once).

#include <QFile>
#include <QTimer>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <iostream>
#include <unistd.h>

#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "simulatedstreamer.h"
#include "support/eventloop.h"
#include "support/streamerplaylogicfixture.h"
#include "tracklistplaylogic.h"

using zuvotest::waitUntil;

namespace {

int envInt(const char* name, int fallback) {
    const int value = qEnvironmentVariableIntValue(name);
    return value > 0 ? value : fallback;
}

// Resident set size of this process, from /proc (0 where unavailable).
qint64 residentBytes() {
    QFile statm(QStringLiteral("/proc/self/statm"));
    return statm.open(QIODevice::ReadOnly)
               ? statm.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE)
               : 0;
}

ZuvoRoles track(const char* name) {
    return spltest::item({QStringLiteral("sim://soak/%1.mp3?zuvo-duration=5000").arg(QLatin1String(name))});
}

TEST(Soak, PlayNearEndNextStopCycles) {
    const int cycles = envInt("ZUVO_SOAK_CYCLES", 150);
    const int warmUp = qMax(20, cycles / 10);
    constexpr int WaitMs = 30000;
    CMRootScope scope;
    SimulatedStreamer streamer(scope.nodes());
    streamer.setSpeed(envInt("ZUVO_SOAK_SPEED", 10));
    const CMPath basePath("/hardening/soakPlayLogic");
    PlayLogicInterface* const client = PlayLogicInterface::instance(basePath);
    TrackListPlayLogic logic(scope.nodes(), basePath);
    logic.setTracks({track("first"), track("second")});
    // No client pings here; a slow run must not meet the watchdog's stop.
    logic.findChild<QTimer*>(QStringLiteral("pingTimeoutTimer"))->setInterval(3600 * 1000);

    const auto reached = [&](ZuvoPlayLogicState::Enum state, const char* title) {
        return waitUntil(
            [&] {
                const ZuvoPlayLogicData data = client->data();
                return data.state() == state && (!title || data.trackRoles().title() == track(title).title());
            },
            WaitMs);
    };
    qint64 residentAfterWarmUp = 0;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        SCOPED_TRACE(cycle);
        const CMReply<QVariant> play = client->play(ZuvoRoles());
        ASSERT_TRUE(reached(ZuvoPlayLogicState::playing, "first"));
        ASSERT_TRUE(waitUntil([&] { return streamer.data().trackNearEnd(); }, WaitMs));
        const CMReply<QVariant> next = client->next();
        ASSERT_TRUE(reached(ZuvoPlayLogicState::playing, "second"));
        const CMReply<QVariant> stop = client->stop(ZuvoPlayLogicStopReason::user);
        ASSERT_TRUE(reached(ZuvoPlayLogicState::stopped, nullptr));
        ASSERT_TRUE(
            waitUntil([&] { return play.isFinished() && next.isFinished() && stop.isFinished(); }, WaitMs))
            << "a client reply never completed";
        if (cycle + 1 == warmUp) {
            zuvotest::drainEvents();
            residentAfterWarmUp = residentBytes();
        }
    }
    zuvotest::drainEvents();
    const qint64 growth = residentBytes() - residentAfterWarmUp;
    std::cout << "[ soak ] " << cycles << " cycles, resident after warm-up " << residentAfterWarmUp / 1024
              << " KiB, growth " << growth / 1024 << " KiB" << std::endl;
    // Sanitizer runtimes keep freed memory in quarantine; valgrind grows its own tables.
    if (!dlsym(RTLD_DEFAULT, "__asan_init") && !qgetenv("LD_PRELOAD").contains("vgpreload") &&
        residentAfterWarmUp > 0) {
        EXPECT_LE(growth, 1024 * 1024);
    }
}

} // namespace
