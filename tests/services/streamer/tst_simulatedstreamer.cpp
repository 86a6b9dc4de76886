// The simulated streamer: the URI conventions that choose how a stream
// behaves, the timeline of one playback, and what its clock does to a
// playback. Its protocol is tested in tst_streamerprotocol.cpp.

#include <gtest/gtest.h>

#include <algorithm>

#include "model/cmvalueitem.h"
#include "simulatedplayback.h"
#include "streamererrors.h"
#include "streamerworld.h"
#include "support/logcapture.h"

using namespace simtest;
using zuvotest::waitUntil;
using State = ZuvoPlayLogicState;

namespace {

// Every value a value path of the streamer's data reports, read by get.
template <typename T> struct ValueLog : CMValueItem {
    ValueLog(const CMPath& path, T (ZuvoValue::*get)() const)
        : CMValueItem(nullptr, ZuvoStreamerDefaultPrefixPath() + ZuvoStreamerDataPath() + path) {
        QObject::connect(this, &CMValueItem::changed, this,
                         [=](const ZuvoValue& v) { values << (v.*get)(); });
    }
    QList<T> values;
};

} // namespace

TEST(SimulatedMediaTest, UriAndResourceChooseDurationFailureAndCrash) {
    constexpr qint64 D = 12345; // the default duration
    const struct {
        const char* uri;
        qint64 durationMs; // the resource's duration (0: not set) is 42000
        int failureCode;
        qint64 atMs;      // of the failure or crash
        int crash;        // 1: crashes
        int warnings = 0; // parameters ignored
        const char* mimeType = "";
    } cases[] = {
        {"http://h/a.mp3?zuvo-duration=live", -1, 0, 0, 0},
        {"http://h/r.mp3", 42000, 0, 0, 0},
        {"http://h/r.mp3?zuvo-duration=5000", 5000, 0, 0, 0},
        {"http://h/a.mp3?zuvo-duration=0", D, 0, 0, 0, 1},
        // Codes outside -14 ... -22 and bad values warn.
        {"http://h/a.mp3?zuvo-error=-14", D, -14, 0, 0},
        {"http://h/a.mp3?zuvo-error=-23", D, 0, 0, 0, 1},
        {"http://h/a.mp3?zuvo-error=-19&zuvo-error-after=2500", D, -19, 2500, 0},
        {"http://h/a.mp3?zuvo-error-after=700", D, -18, 700, 0},
        {"http://h/a.mp3?zuvo-crash", D, 0, 0, 1},
        {"http://h/a.mp3?zuvo-crash=1500", D, 0, 1500, 1},
        // Playlists by suffix (any case, query ignored) or by MIME type.
        {"HTTP://h/Radio.PLS?station=1", D, -15, 0, 0},
        {"http://h/stream", D, -15, 0, 0, 0, "Audio/X-MpegURL; charset=utf-8"},
        {"http://h/play?file=a.pls", D, 0, 0, 0},
        {"http://h/list.m3u?zuvo-error=-19", D, -19, 0, 0},
        {"http://h/a.mp3?zuvo-speed=3&zuvo-duration=900&other=1", 900, 0, 0, 0, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.uri);
        LogCapture log;
        ZuvoRoles roles = track(QString::fromUtf8(c.uri), QString::fromUtf8(c.mimeType));
        ZuvoMediaData mediaData = roles.mediaData();
        ZuvoResource resource = mediaData.activeResource();
        if (c.uri[9] == 'r')
            resource.setDuration(42000);
        mediaData.setActiveResource(resource);
        roles.setMediaData(mediaData);
        const SimulatedMedia media = SimulatedMedia::fromRoles(roles, D);
        EXPECT_EQ(media.durationMs, c.durationMs);
        EXPECT_EQ(media.failureCode, c.failureCode);
        EXPECT_EQ(c.crash ? media.crashAtMs : media.failureAtMs, c.atMs);
        EXPECT_EQ(media.crashes, c.crash == 1);
        EXPECT_EQ(log.count(QStringLiteral("Ignoring")), c.warnings) << log.toString().toStdString();
    }
    // The played URI: the active resource (above), else the first with a URI.
    ZuvoRoles roles = track(QStringLiteral("http://h/first.mp3"));
    ZuvoMediaData mediaData = roles.mediaData();
    mediaData.setActiveResource(ZuvoResource());
    roles.setMediaData(mediaData);
    EXPECT_EQ(SimulatedMedia::fromRoles(roles, D).uri, QStringLiteral("http://h/first.mp3"));
}

TEST(SimulatedPlaybackTest, OneStepPerTickPauseAndSeek) {
    const auto media = [](qint64 durationMs, int failureCode = 0, qint64 atMs = 0, bool crashes = false) {
        SimulatedMedia m;
        m.durationMs = durationMs;
        m.failureCode = failureCode;
        m.failureAtMs = m.crashAtMs = atMs;
        m.crashes = crashes;
        return m;
    };
    // Ticks of tickMs until the playback ends, fails or crashes (at most
    // 12): each event as a letter followed by the position after it.
    const auto run = [](SimulatedPlayback& playback, double tickMs) {
        QStringList steps;
        for (int i = 0; i < 12; ++i) {
            const auto event = playback.tick(tickMs);
            steps << QStringLiteral("-BSNEFC").at(int(event)) + QString::number(playback.positionMs());
            if (event >= SimulatedPlayback::Event::Ended)
                break;
        }
        return steps.join(QLatin1Char(' '));
    };
    const std::tuple<SimulatedMedia, double, const char*> cases[] = {
        {media(8000), 1e9, "B0 B0 B0 S0 N3000 -8000 -8000 -8000 -8000 E8000"},
        {media(12000), 4000, "B0 B0 B0 S0 -4000 N7000 -11000 -12000 -12000 -12000 E12000"},
        {media(1000), 1e9, "B0 B0 B0 S0 N0 -1000 -1000 -1000 -1000 E1000"}, // shorter than the near end
        {media(-1), 1e9,
         "B0 B0 B0 S0 -1000000000 -2000000000 -3000000000 -4000000000 -5000000000 "
         "-6000000000 -7000000000 -8000000000"},
        {media(8000, -16), 1e9, "F0"},
        {media(8000, -16, 0, true), 1e9, "C0"},
        {media(8000, -18, 2000), 1e9, "B0 B0 B0 S0 F2000"},
        {media(8000, -18, 6000), 1e9, "B0 B0 B0 S0 N3000 F6000"},
        {media(8000, -18, 9000), 1e9, "B0 B0 B0 S0 N3000 -8000 -8000 -8000 -8000 E8000"},
        {media(8000, -18, 1500, true), 1e9, "B0 B0 B0 S0 C1500"}, // the crash wins
    };
    for (const auto& [m, tickMs, steps] : cases) {
        SCOPED_TRACE(steps);
        SimulatedPlayback playback(m, false);
        EXPECT_EQ(run(playback, tickMs), QLatin1String(steps));
    }

    // Started paused, it buffers and stays at 0; seeks only inside a known duration.
    SimulatedPlayback playback(media(20000), true);
    EXPECT_EQ(run(playback, 1000).left(15), "B0 B0 B0 S0 -0 ");
    EXPECT_FALSE(playback.seek(20001));
    EXPECT_FALSE(SimulatedPlayback(media(-1), false).seek(0));
}

TEST(SimulatedStreamerTest, BufferFillsInStepsAndBufferedBytesOnlyWhileReported) {
    World w;
    w.sim().setSpeed(1000);
    ValueLog<double> levels(ZuvoPlayLogicBufferingLevelPath(), &ZuvoValue::double_);
    ValueLog<qint64> bytes(ZuvoPlayLogicBufferBytesPath(), &ZuvoValue::i64_);
    const auto reports = [](bool on) {
        return attributeArgs(-1, QVariantHash{{ZuvoStreamerAttributesBufferLevelReportsEnabled(), on}});
    };
    ASSERT_EQ(w.call(ZuvoStreamerSetAttributesPath(), reports(true)), "ok");
    // Started paused: loading while the buffer fills, then paused.
    ASSERT_EQ(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/a.mp3"), true)), "id:1");
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 6 && bytes.values.size() == 5; }));
    EXPECT_EQ(levels.values, (QList<double>{-1, 0, 25, 50, 75, 100}));
    const qint64 full = SimulatedStreamer::BufferCapacityBytes;
    EXPECT_EQ(bytes.values, (QList<qint64>{0, full / 4, full / 2, full * 3 / 4, full}));
    ASSERT_TRUE(w.waitFor([](const ZuvoStreamerData& d) { return d.state() == State::paused; }));
    EXPECT_EQ(w.records.size(), 2) << "loading, then paused";
    EXPECT_EQ(w.streamer.playTimeMs(), 0);

    ASSERT_EQ(w.call(ZuvoStreamerStopPath()), "ok");
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 7 && bytes.values.size() == 6; }));
    EXPECT_EQ(levels.values.last(), -1.0);
    EXPECT_EQ(bytes.values.last(), 0);

    ASSERT_EQ(w.call(ZuvoStreamerSetAttributesPath(), reports(false)), "ok");
    ASSERT_EQ(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/b.mp3"))), "id:2");
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 12; }));
    EXPECT_EQ(bytes.values.size(), 6);
}

// A track reaches its near end, the successor queued then follows
// gaplessly with its own id, and the end of the last one stops the streamer.
TEST(SimulatedStreamerTest, NearEndThenGaplessSuccessorThenEndOfStream) {
    World w;
    w.sim().setSpeed(1000);
    ValueLog<qint64> playTimes(ZuvoPlayLogicPlayTimePath(), &ZuvoValue::i64_);
    const QString second = QStringLiteral("http://h/second.mp3?zuvo-duration=2000");
    CMReply<QVariant> queued(nullptr);
    QObject::connect(&w.streamer, &StreamerService::dataPublished, &w.streamer,
                     [&](const ZuvoStreamerData& d) {
                         if (d.trackNearEnd() && d.playbackId() == 1 && !queued)
                             queued = w.send(ZuvoStreamerSetNextMediaPath(), playArgs(second));
                     });
    ASSERT_EQ(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/1.mp3?zuvo-duration=8000"))),
              "id:1");
    ASSERT_TRUE(w.waitFor(isStopped));
    EXPECT_EQ(answerOf(queued), "id:2");

    // loading, playing, near end, the successor queued, then the successor.
    ASSERT_GE(w.records.size(), 6);
    EXPECT_FALSE(w.records.at(1).trackNearEnd());
    EXPECT_TRUE(w.records.at(2).trackNearEnd());
    EXPECT_EQ(w.records.at(3).nextTrackRoles().title(), second);
    const ZuvoStreamerData started = w.records.at(4);
    EXPECT_EQ(started.playbackId(), 2);
    EXPECT_EQ(started.state(), State::playing);
    EXPECT_FALSE(started.trackNearEnd() || started.isSetNextTrackRoles());
    EXPECT_EQ(started.status().duration(), 2000);
    EXPECT_EQ(std::count_if(w.records.begin(), w.records.end(), isStopped), 1) << "only at the very end";
    const ZuvoStreamerData last = w.records.last();
    EXPECT_TRUE(last.playbackId() == 2 && last.trackRoles().title() == second);
    EXPECT_EQ(last.error(), streamerError(-13));
    // The position stops at the near-end point and at the end, then resets.
    ASSERT_TRUE(waitUntil([&] { return playTimes.values.contains(2000) && playTimes.values.last() == 0; }));
    EXPECT_TRUE(playTimes.values.contains(3000) && playTimes.values.contains(8000));
    EXPECT_FALSE(w.streamer.isActive());
}

// Failures while opening or after a playing time: the play is answered and
// the stream seen loading first; a queued successor goes down with it; a
// crash drops everything and playback ids go on. (Every failure code end to
// end: tst_zuvoplay.cpp.)
TEST(SimulatedStreamerTest, FailuresAndCrashesChosenByTheUri) {
    const std::tuple<const char*, int, qint64, const char*> cases[] = {
        // uri, code (0: a crash), at ms (0: while opening), MIME type
        {"http://h/listen", -15, 0, "audio/x-scpls"},
        {"http://h/s.mp3?zuvo-error=-17&zuvo-error-after=2000", -17, 2000, ""},
        {"http://h/s.mp3?zuvo-crash=1500&zuvo-duration=live", 0, 1500, ""},
    };
    for (const auto& [uri, code, atMs, mimeType] : cases) {
        SCOPED_TRACE(uri);
        World w;
        w.sim().setSpeed(1000);
        ValueLog<qint64> playTimes(ZuvoPlayLogicPlayTimePath(), &ZuvoValue::i64_);
        ASSERT_EQ(w.call(ZuvoStreamerPlayPath(), playArgs(uri, false, mimeType)), "id:1");
        if (atMs > 0) {
            ASSERT_EQ(w.call(ZuvoStreamerSetNextMediaPath(), playArgs(QStringLiteral("http://h/n.mp3"))),
                      "id:2");
        }
        ASSERT_TRUE(w.waitFor(isStopped));
        EXPECT_EQ(w.records.first().state(), State::loading);
        EXPECT_EQ(std::any_of(w.records.begin(), w.records.end(),
                              [](const ZuvoStreamerData& d) { return d.state() == State::playing; }),
                  atMs > 0);
        const ZuvoStreamerData last = w.records.last();
        EXPECT_EQ(last.playbackId(), code != 0 ? 1 : 0);
        EXPECT_EQ(last.error(), code != 0 ? streamerError(code) : last.error());
        EXPECT_EQ(last.error().name(), code != 0 ? last.error().name() : ZuvoStreamerErrorCrashed());
        if (atMs > 0) {
            ASSERT_TRUE(
                waitUntil([&] { return playTimes.values.size() > 2 && playTimes.values.last() == 0; }));
            EXPECT_EQ(*std::max_element(playTimes.values.begin(), playTimes.values.end()), atMs);
        }
        // Nothing is left queued behind the failed stream.
        const int published = w.records.size();
        EXPECT_EQ(w.call(ZuvoStreamerClearNextMediaPath()), "ok");
        EXPECT_EQ(w.records.size(), published);
        EXPECT_FALSE(w.streamer.isActive());
    }
    // A crash by call drops everything.
    World w;
    ASSERT_EQ(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/a.mp3"))), "id:1");
    ASSERT_EQ(w.call(ZuvoStreamerSetNextMediaPath(), playArgs(QStringLiteral("http://h/b.mp3"))), "id:2");
    w.streamer.crash();
    EXPECT_TRUE(isStopped(w.streamer.data()) && !w.streamer.data().isSetPlaybackId());
    EXPECT_EQ(w.streamer.data().error().name(), ZuvoStreamerErrorCrashed());
    EXPECT_EQ(w.call(ZuvoStreamerPausePath()), StreamerService::ErrorNotPlaying());
    EXPECT_EQ(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/c.mp3"))), "id:3");
}
