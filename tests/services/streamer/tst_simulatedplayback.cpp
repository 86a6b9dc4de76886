// The timeline of one simulated playback, tick by tick, without a clock.

#include <gtest/gtest.h>

#include <QStringList>
#include <vector>

#include "simulatedplayback.h"

namespace {

using Event = SimulatedPlayback::Event;

SimulatedMedia media(qint64 durationMs, int failureCode = 0, qint64 failureAtMs = 0, bool crashes = false,
                     qint64 crashAtMs = 0) {
    SimulatedMedia m;
    m.uri = QStringLiteral("sim://x/a.mp3");
    m.durationMs = durationMs;
    m.failureCode = failureCode;
    m.failureAtMs = failureAtMs;
    m.crashes = crashes;
    m.crashAtMs = crashAtMs;
    return m;
}

// Ticks of tickMs until the playback ends, fails or crashes (at most 12):
// each event as a letter followed by the position after it.
QString run(SimulatedPlayback& playback, double tickMs) {
    static const QString letters = QStringLiteral("-BSNEFC"); // in the order of Event
    QStringList steps;
    for (int i = 0; i < 12; ++i) {
        const Event event = playback.tick(tickMs);
        steps << letters.at(static_cast<int>(event)) + QString::number(playback.positionMs());
        if (event == Event::Ended || event == Event::Failed || event == Event::Crashed)
            break;
    }
    return steps.join(QLatin1Char(' '));
}

} // namespace

TEST(SimulatedPlaybackTest, OneStepPerTickAndTheEndWellAfterTheNearEnd) {
    struct Case {
        const char* what;
        SimulatedMedia media;
        double tickMs;
        const char* steps;
    };
    const std::vector<Case> cases = {
        {"track", media(8000), 1e9, "B0 B0 B0 S0 N3000 -8000 -8000 -8000 -8000 E8000"},
        {"short ticks", media(12000), 4000, "B0 B0 B0 S0 -4000 N7000 -11000 -12000 -12000 -12000 E12000"},
        {"shorter than the near-end time", media(1000), 1e9, "B0 B0 B0 S0 N0 -1000 -1000 -1000 -1000 E1000"},
        {"live", media(-1), 1e9,
         "B0 B0 B0 S0 -1000000000 -2000000000 -3000000000 -4000000000 -5000000000 "
         "-6000000000 -7000000000 -8000000000"},
        {"failing while opening", media(8000, -16), 1e9, "F0"},
        {"crashing while opening", media(8000, -16, 0, true), 1e9, "C0"},
        {"failing while playing", media(8000, -18, 2000), 1e9, "B0 B0 B0 S0 F2000"},
        {"failing after the near end", media(8000, -18, 6000), 1e9, "B0 B0 B0 S0 N3000 F6000"},
        {"failing after the end", media(8000, -18, 9000), 1e9,
         "B0 B0 B0 S0 N3000 -8000 -8000 -8000 -8000 E8000"},
        {"crash and failure at once", media(8000, -18, 1500, true, 1500), 1e9, "B0 B0 B0 S0 C1500"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SimulatedPlayback playback(c.media, false);
        EXPECT_EQ(run(playback, c.tickMs), QString::fromUtf8(c.steps));
    }
}

TEST(SimulatedPlaybackTest, PauseHoldsThePositionAndSeekMovesIt) {
    SimulatedPlayback playback(media(20000), true);
    EXPECT_EQ(run(playback, 1000).left(15), "B0 B0 B0 S0 -0 ");
    EXPECT_EQ(playback.state(), ZuvoPlayLogicState::paused);

    EXPECT_TRUE(playback.seek(16000));
    playback.setPaused(false);
    EXPECT_EQ(playback.tick(0), Event::NearEnd) << "a point already passed comes at once";
    EXPECT_EQ(playback.positionMs(), 16000);
    EXPECT_TRUE(playback.seek(0));
    EXPECT_FALSE(playback.nearEnd());
    EXPECT_FALSE(playback.seek(20001));
    EXPECT_FALSE(SimulatedPlayback(media(-1), false).seek(0));
}
