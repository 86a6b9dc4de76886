// Soak: a track-list play logic on the simulated streamer, cycles of play ->
// near end -> next -> stop. Every client reply completes, and resident memory
// grows by at most 1 MiB past warm-up (not checked under sanitizers or
// valgrind). ZUVO_SOAK_CYCLES: cycles (default 150); ZUVO_SOAK_SPEED: the
// streamer's speed (default 10: a 5000 ms track is near its end at once).

#include <QFile>
#include <QTimer>
#include <gtest/gtest.h>
#include <iostream>
#include <unistd.h>

#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "simulatedstreamer.h"
#include "support/eventloop.h"
#include "tracklistplaylogic.h"

using zuvotest::waitUntil;

namespace {

int envInt(const char* name, int fallback) {
    bool ok = false;
    const int value = qEnvironmentVariableIntValue(name, &ok);
    return ok && value > 0 ? value : fallback;
}

// Resident set size of this process, from /proc (0 where unavailable).
qint64 residentBytes() {
    QFile statm(QStringLiteral("/proc/self/statm"));
    return statm.open(QIODevice::ReadOnly)
               ? statm.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE)
               : 0;
}

// Sanitizer runtimes keep freed memory in quarantine; valgrind grows its own tables.
bool memoryFiguresMeaningful() {
#if defined(__SANITIZE_ADDRESS__)
    return false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    return false;
#endif
#endif
    return !qgetenv("LD_PRELOAD").contains("vgpreload");
}

ZuvoRoles track(const QString& title) {
    ZuvoResource resource;
    resource.setUri(QStringLiteral("sim://soak/%1.mp3?zuvo-duration=5000").arg(title));
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>{resource});
    ZuvoRoles roles;
    roles.setTitle(title);
    roles.setMediaData(mediaData);
    return roles;
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
    logic.setTracks({track(QStringLiteral("first")), track(QStringLiteral("second"))});
    // No client pings here; a slow run must not meet the watchdog's stop.
    logic.findChild<QTimer*>(QStringLiteral("pingTimeoutTimer"))->setInterval(3600 * 1000);

    const auto reached = [&](ZuvoPlayLogicState::Enum state, const char* title) {
        return waitUntil(
            [&] {
                const ZuvoPlayLogicData data = client->data();
                return data.state() == state && (!title || data.trackRoles().title() == QLatin1String(title));
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
    if (memoryFiguresMeaningful() && residentAfterWarmUp > 0) {
        EXPECT_LE(growth, 1024 * 1024);
    }
}

} // namespace
