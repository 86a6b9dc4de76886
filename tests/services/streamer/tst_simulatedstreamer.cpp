// The simulated streamer: what its clock does to a playback, and the
// failures its URIs ask for. Its protocol is tested with every service's in
// tst_streamerprotocol.cpp.

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "streamererrors.h"
#include "streamerworld.h"
#include "support/logcapture.h"

using simtest::answerOf;
using simtest::playArgs;
using simtest::ValueLog;
using simtest::World;
using zuvotest::waitUntil;

namespace {

using simtest::attributeArgs;
using simtest::isPlaying;
using simtest::isStopped;
using State = ZuvoPlayLogicState;

const QString LaterTrack = QStringLiteral("http://h/later.mp3");

} // namespace

TEST(SimulatedStreamerTest, BufferFillsInStepsAndBufferedBytesOnlyWhileReported) {
    World w;
    w.streamer.setSpeed(1000);
    ValueLog<double> levels(w.dataPath() + ZuvoPlayLogicBufferingLevelPath(), simtest::toDouble);
    ValueLog<qint64> bytes(w.dataPath() + ZuvoPlayLogicBufferBytesPath(), simtest::toI64);
    const QString reports = ZuvoStreamerAttributesBufferLevelReportsEnabled();
    ASSERT_EQ(
        answerOf(w.call(ZuvoStreamerSetAttributesPath(), attributeArgs(-1, QVariantHash{{reports, true}}))),
        QStringLiteral("ok"));

    // Started paused: loading while the buffer fills, then paused.
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/a.mp3"), true))),
              QStringLiteral("id:1"));
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 6 && bytes.values.size() == 5; }));
    EXPECT_EQ(levels.values, (QList<double>{-1, 0, 25, 50, 75, 100}));
    const qint64 full = SimulatedStreamer::BufferCapacityBytes;
    EXPECT_EQ(bytes.values, (QList<qint64>{0, full / 4, full / 2, full * 3 / 4, full}));
    ASSERT_TRUE(w.waitFor([](const ZuvoStreamerData& d) { return d.state() == State::paused; }));
    EXPECT_EQ(w.records.size(), 2) << "loading, then paused";
    EXPECT_EQ(w.streamer.playTimeMs(), 0);

    ASSERT_EQ(answerOf(w.call(ZuvoStreamerStopPath())), QStringLiteral("ok"));
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 7 && bytes.values.size() == 6; }));
    EXPECT_EQ(levels.values.last(), -1.0);
    EXPECT_EQ(bytes.values.last(), 0);

    ASSERT_EQ(
        answerOf(w.call(ZuvoStreamerSetAttributesPath(), attributeArgs(-1, QVariantHash{{reports, false}}))),
        QStringLiteral("ok"));
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/b.mp3")))),
              QStringLiteral("id:2"));
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 12; }));
    EXPECT_EQ(bytes.values.size(), 6);
}

TEST(SimulatedStreamerTest, TrackEndsWithEndOfStreamAfterNearEnd) {
    World w;
    w.streamer.setSpeed(1000);
    ValueLog<qint64> playTimes(w.playTimePath(), simtest::toI64);
    const QString uri = QStringLiteral("http://h/a.mp3?zuvo-duration=8000");
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(uri))), QStringLiteral("id:1"));
    ASSERT_TRUE(w.waitFor(isStopped));

    // loading, playing, playing near end, stopped at the end of stream
    ASSERT_EQ(w.records.size(), 4);
    EXPECT_FALSE(w.records.at(1).trackNearEnd());
    EXPECT_TRUE(isPlaying(w.records.at(2)));
    EXPECT_TRUE(w.records.at(2).trackNearEnd());
    const ZuvoStreamerData last = w.records.last();
    EXPECT_EQ(last.playbackId(), 1);
    EXPECT_EQ(last.error(), streamerError(-13));
    EXPECT_EQ(last.trackRoles().title(), uri);
    EXPECT_EQ(last.status().duration(), 8000);
    // The position stops at the near-end point and at the end, then resets.
    ASSERT_TRUE(waitUntil([&] { return playTimes.values.contains(8000) && playTimes.values.last() == 0; }));
    EXPECT_TRUE(playTimes.values.contains(3000));
    EXPECT_TRUE(std::is_sorted(playTimes.values.begin(), playTimes.values.end() - 1));
    EXPECT_FALSE(w.streamer.isActive());
}

TEST(SimulatedStreamerTest, QueuedMediaFollowsGaplesslyWithItsOwnId) {
    World w;
    w.streamer.setSpeed(1000);
    const QString second = QStringLiteral("http://h/second.mp3?zuvo-duration=2000");
    CMReply<QVariant> queued(nullptr);
    // Like a play logic: queue the successor when the track reports near end.
    QObject::connect(&w.streamer, &SimulatedStreamer::dataPublished, &w.streamer,
                     [&](const ZuvoStreamerData& d) {
                         if (d.trackNearEnd() && d.playbackId() == 1 && !queued)
                             queued = w.send(ZuvoStreamerSetNextMediaPath(), playArgs(second));
                     });
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(),
                              playArgs(QStringLiteral("http://h/1.mp3?zuvo-duration=3000")))),
              QStringLiteral("id:1"));
    ASSERT_TRUE(w.waitFor(isStopped));
    EXPECT_EQ(answerOf(queued), QStringLiteral("id:2"));

    const auto firstOfTwo = std::find_if(w.records.begin(), w.records.end(),
                                         [](const ZuvoStreamerData& d) { return d.playbackId() == 2; });
    ASSERT_NE(firstOfTwo, w.records.end());
    EXPECT_EQ((firstOfTwo - 1)->nextTrackRoles().title(), second);
    EXPECT_TRUE(isPlaying(*firstOfTwo));
    EXPECT_FALSE(firstOfTwo->trackNearEnd());
    EXPECT_FALSE(firstOfTwo->isSetNextTrackRoles());
    EXPECT_EQ(firstOfTwo->trackRoles().title(), second);
    EXPECT_EQ(firstOfTwo->status().duration(), 2000);
    EXPECT_EQ(std::count_if(w.records.begin(), w.records.end(), isStopped), 1) << "only at the very end";
    EXPECT_EQ(w.records.last().playbackId(), 2);
    EXPECT_EQ(w.records.last().error().code(), -13);
}

TEST(SimulatedStreamerTest, FailuresChosenByTheUri) {
    struct Case {
        QString uri;
        QString mimeType;
        int code;    // 0: a crash
        qint64 atMs; // 0: while opening
    };
    std::vector<Case> cases;
    for (int code = StreamerErrorCode::FirstFailure; code >= StreamerErrorCode::LastFailure; --code)
        cases.push_back({QStringLiteral("http://h/s.mp3?zuvo-error=%1").arg(code), QString(), code, 0});
    cases.push_back({QStringLiteral("http://h/List.M3U?station=2"), QString(), -15, 0});
    cases.push_back({QStringLiteral("http://h/listen"), QStringLiteral("audio/x-scpls"), -15, 0});
    cases.push_back(
        {QStringLiteral("http://h/s.mp3?zuvo-error=-17&zuvo-error-after=2000"), QString(), -17, 2000});
    cases.push_back({QStringLiteral("http://h/s.mp3?zuvo-crash"), QString(), 0, 0});
    cases.push_back(
        {QStringLiteral("http://h/s.mp3?zuvo-crash=1500&zuvo-duration=live"), QString(), 0, 1500});

    for (const Case& c : cases) {
        SCOPED_TRACE(c.uri.toStdString());
        World w;
        w.streamer.setSpeed(1000);
        ValueLog<qint64> playTimes(w.playTimePath(), simtest::toI64);
        ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(c.uri, false, c.mimeType))),
                  QStringLiteral("id:1"));
        // A successor queued while the stream still loads goes down with it.
        if (c.atMs > 0) {
            ASSERT_EQ(answerOf(w.call(ZuvoStreamerSetNextMediaPath(), playArgs(LaterTrack))),
                      QStringLiteral("id:2"));
        }
        ASSERT_TRUE(w.waitFor(isStopped));

        // The play was answered and the stream seen loading before it failed.
        EXPECT_EQ(w.records.first().state(), State::loading);
        EXPECT_EQ(std::any_of(w.records.begin(), w.records.end(), isPlaying), c.atMs > 0);
        const ZuvoStreamerData last = w.records.last();
        if (c.code == 0) {
            EXPECT_FALSE(last.isSetPlaybackId());
            EXPECT_EQ(last.error().name(), ZuvoStreamerErrorCrashed());
        } else {
            EXPECT_EQ(last.playbackId(), 1);
            EXPECT_EQ(last.error(), streamerError(c.code));
        }
        if (c.atMs > 0) {
            ASSERT_TRUE(
                waitUntil([&] { return playTimes.values.size() > 2 && playTimes.values.last() == 0; }));
            EXPECT_EQ(*std::max_element(playTimes.values.begin(), playTimes.values.end()), c.atMs);
        }
        // Nothing is left queued behind the failed stream.
        const int published = w.records.size();
        EXPECT_EQ(answerOf(w.call(ZuvoStreamerClearNextMediaPath())), QStringLiteral("ok"));
        EXPECT_EQ(w.records.size(), published);
        EXPECT_FALSE(w.streamer.isActive());
    }
}

TEST(SimulatedStreamerTest, CrashDropsEverythingAndIdsGoOn) {
    World w;
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/a.mp3")))),
              QStringLiteral("id:1"));
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerSetNextMediaPath(), playArgs(LaterTrack))), QStringLiteral("id:2"));
    w.streamer.crash();
    EXPECT_TRUE(isStopped(w.streamer.data()));
    EXPECT_FALSE(w.streamer.data().isSetPlaybackId());
    EXPECT_EQ(w.streamer.data().error().name(), ZuvoStreamerErrorCrashed());
    EXPECT_EQ(answerOf(w.call(ZuvoStreamerPausePath())), SimulatedStreamer::ErrorNotPlaying());
    EXPECT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/new.mp3")))),
              QStringLiteral("id:3"));
}
