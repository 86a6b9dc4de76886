// The simulated streamer's protocol: every command in every state, what its
// clock does to a playback, and the failures its URIs ask for.

#include <gtest/gtest.h>

#include <QTimer>
#include <algorithm>
#include <memory>
#include <vector>

#include "simulatedplayback.h"
#include "simulatedstreamerworld.h"
#include "streamererrors.h"
#include "support/logcapture.h"

using simtest::answerOf;
using simtest::playArgs;
using simtest::ValueLog;
using simtest::World;
using zuvotest::waitUntil;

namespace {

using State = ZuvoPlayLogicState;

enum class Start { Stopped, Playing, Paused, NearEnd, PlayingWithNext, NearEndWithNext };
enum class Cmd { Play, SetNext, ClearNext, Pause, Resume, Stop, SeekTime, SeekBytes, SetAttributes };

const QString NewTrack = QStringLiteral("http://h/new.mp3");
const QString LaterTrack = QStringLiteral("http://h/later.mp3");
constexpr qint64 SeekTarget = 500;

bool isPlaying(const ZuvoStreamerData& data) {
    return data.state() == State::playing;
}

// Brings a frozen-clock streamer into start; false when it did not get there.
bool bring(World& w, Start start) {
    w.streamer.setSpeed(0);
    if (start == Start::Stopped)
        return true;
    const bool nearEnd = start == Start::NearEnd || start == Start::NearEndWithNext;
    const QString uri = nearEnd ? QStringLiteral("http://h/short.mp3?zuvo-duration=1000")
                                : QStringLiteral("http://h/track.mp3");
    if (answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(uri))) != QStringLiteral("id:1"))
        return false;
    if (!w.waitFor(
            [nearEnd](const ZuvoStreamerData& d) { return isPlaying(d) && d.trackNearEnd() == nearEnd; }))
        return false;
    if (start == Start::Paused)
        return answerOf(w.call(ZuvoStreamerPausePath())) == QStringLiteral("ok");
    if (start == Start::PlayingWithNext || start == Start::NearEndWithNext)
        return answerOf(w.call(ZuvoStreamerSetNextMediaPath(),
                               playArgs(QStringLiteral("http://h/next.mp3")))) == QStringLiteral("id:2");
    return true;
}

CMReply<QVariant> send(World& w, Cmd cmd) {
    switch (cmd) {
    case Cmd::Play:
        return w.send(ZuvoStreamerPlayPath(), playArgs(NewTrack));
    case Cmd::SetNext:
        return w.send(ZuvoStreamerSetNextMediaPath(), playArgs(LaterTrack));
    case Cmd::ClearNext:
        return w.send(ZuvoStreamerClearNextMediaPath());
    case Cmd::Pause:
        return w.send(ZuvoStreamerPausePath());
    case Cmd::Resume:
        return w.send(ZuvoStreamerResumePath());
    case Cmd::Stop:
        return w.send(ZuvoStreamerStopPath());
    case Cmd::SeekTime: {
        ZuvoStreamerSeekPosition position;
        position.setTimeMs(SeekTarget);
        return w.send(ZuvoStreamerSeekPath(), position.__variant());
    }
    case Cmd::SeekBytes: {
        ZuvoStreamerSeekPosition position;
        position.setBytes(1000);
        return w.send(ZuvoStreamerSeekPath(), position.__variant());
    }
    case Cmd::SetAttributes: {
        ZuvoStreamerSetAttributesArgs args;
        args.setPlaybackId(-1);
        args.setAttributes(QVariantHash{{ZuvoStreamerAttributesBufferingConfig(), QStringLiteral("big")}});
        return w.send(ZuvoStreamerSetAttributesPath(), args.__variant());
    }
    }
    return CMReply<QVariant>(nullptr);
}

} // namespace

TEST(SimulatedStreamerTest, EveryCommandInEveryState) {
    struct Row {
        Start start;
        Cmd cmd;
        const char* answer;
        State::Enum state; // of the record afterwards
        int playbackId;    // 0: the record has none
        bool next;
        bool nearEnd;
    };
    // clang-format off
    const std::vector<Row> rows = {
        {Start::Stopped, Cmd::Play,          "id:1",        State::loading, 1, false, false},
        {Start::Stopped, Cmd::SetNext,       "NotPlaying",  State::stopped, 0, false, false},
        {Start::Stopped, Cmd::ClearNext,     "ok",          State::stopped, 0, false, false},
        {Start::Stopped, Cmd::Pause,         "NotPlaying",  State::stopped, 0, false, false},
        {Start::Stopped, Cmd::Resume,        "NotPlaying",  State::stopped, 0, false, false},
        {Start::Stopped, Cmd::Stop,          "ok",          State::stopped, 0, false, false},
        {Start::Stopped, Cmd::SeekTime,      "NotPlaying",  State::stopped, 0, false, false},
        {Start::Stopped, Cmd::SeekBytes,     "NotPlaying",  State::stopped, 0, false, false},
        {Start::Stopped, Cmd::SetAttributes, "ok",          State::stopped, 0, false, false},

        {Start::Playing, Cmd::Play,          "id:2",        State::loading, 2, false, false},
        {Start::Playing, Cmd::SetNext,       "id:2",        State::playing, 1, true,  false},
        {Start::Playing, Cmd::ClearNext,     "ok",          State::playing, 1, false, false},
        {Start::Playing, Cmd::Pause,         "ok",          State::paused,  1, false, false},
        {Start::Playing, Cmd::Resume,        "ok",          State::playing, 1, false, false},
        {Start::Playing, Cmd::Stop,          "ok",          State::stopped, 1, false, false},
        {Start::Playing, Cmd::SeekTime,      "ok",          State::playing, 1, false, false},
        {Start::Playing, Cmd::SeekBytes,     "NotSeekable", State::playing, 1, false, false},
        {Start::Playing, Cmd::SetAttributes, "ok",          State::playing, 1, false, false},

        {Start::Paused, Cmd::Play,           "id:2",        State::loading, 2, false, false},
        {Start::Paused, Cmd::SetNext,        "id:2",        State::paused,  1, true,  false},
        {Start::Paused, Cmd::ClearNext,      "ok",          State::paused,  1, false, false},
        {Start::Paused, Cmd::Pause,          "ok",          State::paused,  1, false, false},
        {Start::Paused, Cmd::Resume,         "ok",          State::playing, 1, false, false},
        {Start::Paused, Cmd::Stop,           "ok",          State::stopped, 1, false, false},
        {Start::Paused, Cmd::SeekTime,       "ok",          State::paused,  1, false, false},
        {Start::Paused, Cmd::SeekBytes,      "NotSeekable", State::paused,  1, false, false},
        {Start::Paused, Cmd::SetAttributes,  "ok",          State::paused,  1, false, false},

        {Start::NearEnd, Cmd::Play,          "id:2",        State::loading, 2, false, false},
        {Start::NearEnd, Cmd::SetNext,       "id:2",        State::playing, 1, true,  true},
        {Start::NearEnd, Cmd::ClearNext,     "ok",          State::playing, 1, false, true},
        {Start::NearEnd, Cmd::Pause,         "ok",          State::paused,  1, false, true},
        {Start::NearEnd, Cmd::Resume,        "ok",          State::playing, 1, false, true},
        {Start::NearEnd, Cmd::Stop,          "ok",          State::stopped, 1, false, true},
        {Start::NearEnd, Cmd::SeekTime,      "ok",          State::playing, 1, false, true},
        {Start::NearEnd, Cmd::SeekBytes,     "NotSeekable", State::playing, 1, false, true},
        {Start::NearEnd, Cmd::SetAttributes, "ok",          State::playing, 1, false, true},

        {Start::PlayingWithNext, Cmd::Play,          "id:3",        State::loading, 3, false, false},
        {Start::PlayingWithNext, Cmd::SetNext,       "id:3",        State::playing, 1, true,  false},
        {Start::PlayingWithNext, Cmd::ClearNext,     "ok",          State::playing, 1, false, false},
        {Start::PlayingWithNext, Cmd::Pause,         "ok",          State::paused,  1, true,  false},
        {Start::PlayingWithNext, Cmd::Resume,        "ok",          State::playing, 1, true,  false},
        {Start::PlayingWithNext, Cmd::Stop,          "ok",          State::stopped, 1, false, false},
        {Start::PlayingWithNext, Cmd::SeekTime,      "ok",          State::playing, 1, true,  false},
        {Start::PlayingWithNext, Cmd::SeekBytes,     "NotSeekable", State::playing, 1, true,  false},
        {Start::PlayingWithNext, Cmd::SetAttributes, "ok",          State::playing, 1, true,  false},

        {Start::NearEndWithNext, Cmd::Play,          "id:3",        State::loading, 3, false, false},
        {Start::NearEndWithNext, Cmd::SetNext,       "id:3",        State::playing, 1, true,  true},
        {Start::NearEndWithNext, Cmd::ClearNext,     "ok",          State::playing, 1, false, true},
        {Start::NearEndWithNext, Cmd::Pause,         "ok",          State::paused,  1, true,  true},
        {Start::NearEndWithNext, Cmd::Resume,        "ok",          State::playing, 1, true,  true},
        {Start::NearEndWithNext, Cmd::Stop,          "ok",          State::stopped, 1, false, true},
        {Start::NearEndWithNext, Cmd::SeekTime,      "ok",          State::playing, 1, true,  true},
        {Start::NearEndWithNext, Cmd::SeekBytes,     "NotSeekable", State::playing, 1, true,  true},
        {Start::NearEndWithNext, Cmd::SetAttributes, "ok",          State::playing, 1, true,  true},
    };
    // clang-format on
    for (size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE(testing::Message() << "row " << i << ": " << row.answer);
        World w;
        ASSERT_TRUE(bring(w, row.start));
        const int publishedBefore = w.records.size();
        const int commandsBefore = w.commands.size();

        const CMReply<QVariant> reply = send(w, row.cmd);
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }));
        EXPECT_EQ(answerOf(reply), QString::fromUtf8(row.answer));
        EXPECT_EQ(w.commands.size(), commandsBefore + 1);

        const ZuvoStreamerData data = w.streamer.data();
        EXPECT_EQ(data.state(), row.state);
        EXPECT_EQ(data.isSetPlaybackId(), row.playbackId != 0);
        EXPECT_EQ(data.playbackId(), row.playbackId);
        EXPECT_EQ(data.isSetNextTrackRoles(), row.next);
        EXPECT_EQ(data.trackNearEnd(), row.nearEnd);
        EXPECT_TRUE(data.error().isEmpty());
        EXPECT_EQ(w.nodeRecord(), data);
        if (reply.hasError()) {
            EXPECT_EQ(w.records.size(), publishedBefore) << "a refused command published";
        }

        if (row.cmd == Cmd::Play && !reply.hasError()) {
            EXPECT_EQ(data.trackRoles().title(), NewTrack);
            EXPECT_EQ(w.streamer.playTimeMs(), 0);
        }
        if (row.cmd == Cmd::SetNext && !reply.hasError()) {
            EXPECT_EQ(data.nextTrackRoles().title(), LaterTrack);
        }
        if (row.cmd == Cmd::SeekTime && !reply.hasError()) {
            EXPECT_EQ(w.streamer.playTimeMs(), SeekTarget);
        }
        if (row.cmd == Cmd::SetAttributes) {
            EXPECT_EQ(w.streamer.bufferingConfig(), QVariant(QStringLiteral("big")));
        }
        if (row.state == State::stopped && row.playbackId != 0) {
            // A stop keeps the playback's id and roles and clears the clock.
            EXPECT_EQ(data.trackRoles().title(), w.records.at(publishedBefore - 1).trackRoles().title());
            EXPECT_EQ(w.streamer.playTimeMs(), 0);
            EXPECT_FALSE(w.streamer.isActive());
        }
    }
}

TEST(SimulatedStreamerTest, RefusalsNameWhatIsWrongAndChangeNothing) {
    World w;
    ASSERT_TRUE(bring(w, Start::Playing));
    const ZuvoStreamerData playing = w.streamer.data();

    ZuvoStreamerSeekPosition both;
    both.setTimeMs(10);
    both.setBytes(10);
    ZuvoStreamerSeekPosition beyond;
    beyond.setTimeMs(SimulatedStreamer::DefaultDurationMs + 1);
    ZuvoStreamerSeekPosition before;
    before.setTimeMs(-1);
    ZuvoStreamerSetAttributesArgs otherPlayback;
    otherPlayback.setPlaybackId(7);
    ZuvoStreamerSetAttributesArgs notARecord;
    notARecord.setPlaybackId(-1);
    notARecord.setAttributes(QStringLiteral("big"));

    struct Case {
        const char* what;
        CMPath command;
        QVariant payload;
        QString error;
    };
    const QString invalid = SimulatedStreamer::ErrorInvalidArgument();
    const std::vector<Case> cases = {
        {"play without URI", ZuvoStreamerPlayPath(), ZuvoStreamerPlayArgs().__variant(), invalid},
        {"play with a string", ZuvoStreamerPlayPath(), QStringLiteral("http://h/a.mp3"), invalid},
        {"next without URI", ZuvoStreamerSetNextMediaPath(), QVariant(), invalid},
        {"seek with both", ZuvoStreamerSeekPath(), both.__variant(), invalid},
        {"seek with neither", ZuvoStreamerSeekPath(), QVariantHash(), invalid},
        {"seek beyond the end", ZuvoStreamerSeekPath(), beyond.__variant(), invalid},
        {"seek before the start", ZuvoStreamerSeekPath(), before.__variant(), invalid},
        {"attributes of another playback", ZuvoStreamerSetAttributesPath(), otherPlayback.__variant(),
         SimulatedStreamer::ErrorUnknownPlayback()},
        {"attributes that are no record", ZuvoStreamerSetAttributesPath(), notARecord.__variant(), invalid},
        {"below a command node", ZuvoStreamerPlayPath() + QStringLiteral("/extra"), QVariant(),
         QStringLiteral("NotSupported")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture log;
        const int published = w.records.size();
        const CMReply<QVariant> reply = w.call(c.command, c.payload);
        EXPECT_EQ(answerOf(reply), c.error);
        EXPECT_FALSE(reply.error().message().isEmpty());
        EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("Refused")));
        EXPECT_EQ(w.records.size(), published);
        EXPECT_EQ(w.streamer.data(), playing);
    }

    // A live stream cannot be sought at all.
    ASSERT_EQ(
        answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/r?zuvo-duration=live")))),
        QStringLiteral("id:2"));
    EXPECT_EQ(w.streamer.data().status().duration(), -1);
    EXPECT_FALSE(w.streamer.data().status().timeSeek());
    ZuvoStreamerSeekPosition start;
    start.setTimeMs(0);
    EXPECT_EQ(answerOf(w.call(ZuvoStreamerSeekPath(), start.__variant())),
              SimulatedStreamer::ErrorNotSeekable());
}

TEST(SimulatedStreamerTest, BufferFillsInStepsAndBufferedBytesOnlyWhileReported) {
    World w;
    w.streamer.setSpeed(1000);
    ValueLog<double> levels(w.dataPath() + ZuvoPlayLogicBufferingLevelPath(), simtest::toDouble);
    ValueLog<qint64> bytes(w.dataPath() + ZuvoPlayLogicBufferBytesPath(), simtest::toI64);
    ZuvoStreamerSetAttributesArgs reports;
    reports.setPlaybackId(-1);
    reports.setAttributes(QVariantHash{{ZuvoStreamerAttributesBufferLevelReportsEnabled(), true}});
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerSetAttributesPath(), reports.__variant())), QStringLiteral("ok"));

    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/a.mp3")))),
              QStringLiteral("id:1"));
    ASSERT_TRUE(w.waitFor(isPlaying));
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 6 && bytes.values.size() == 5; }));
    EXPECT_EQ(levels.values, (QList<double>{-1, 0, 25, 50, 75, 100}));
    const qint64 full = SimulatedStreamer::BufferCapacityBytes;
    EXPECT_EQ(bytes.values, (QList<qint64>{0, full / 4, full / 2, full * 3 / 4, full}));
    // The record turns to playing with the full buffer, not before.
    for (int i = 0; i + 1 < w.records.size(); ++i)
        EXPECT_EQ(w.records.at(i).state(), State::loading);
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerStopPath())), QStringLiteral("ok"));
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 7 && bytes.values.size() == 6; }));
    EXPECT_EQ(levels.values.last(), -1.0);
    EXPECT_EQ(bytes.values.last(), 0);

    reports.setAttributes(QVariantHash{{ZuvoStreamerAttributesBufferLevelReportsEnabled(), false}});
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerSetAttributesPath(), reports.__variant())), QStringLiteral("ok"));
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/b.mp3")))),
              QStringLiteral("id:2"));
    ASSERT_TRUE(w.waitFor(isPlaying));
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 12; }));
    EXPECT_EQ(bytes.values.size(), 6);
}

TEST(SimulatedStreamerTest, StartPausedBuffersThenHoldsUntilResumed) {
    World w;
    w.streamer.setSpeed(1000);
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/a.mp3"), true))),
              QStringLiteral("id:1"));
    ASSERT_TRUE(w.waitFor([](const ZuvoStreamerData& d) { return d.state() == State::paused; }));
    EXPECT_EQ(w.records.first().state(), State::loading);
    EXPECT_EQ(w.records.size(), 2) << "loading, then paused";
    EXPECT_EQ(w.streamer.playTimeMs(), 0);

    ASSERT_EQ(answerOf(w.call(ZuvoStreamerResumePath())), QStringLiteral("ok"));
    EXPECT_TRUE(isPlaying(w.streamer.data()));
    EXPECT_TRUE(waitUntil([&] { return w.streamer.playTimeMs() > 0; }));
}

TEST(SimulatedStreamerTest, TrackEndsWithEndOfStreamAfterNearEnd) {
    World w;
    w.streamer.setSpeed(1000);
    ValueLog<qint64> playTimes(w.playTimePath(), simtest::toI64);
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(),
                              playArgs(QStringLiteral("http://h/a.mp3?zuvo-duration=8000")))),
              QStringLiteral("id:1"));
    ASSERT_TRUE(w.waitFor([](const ZuvoStreamerData& d) { return d.state() == State::stopped; }));

    ASSERT_GE(w.records.size(), 4);
    const ZuvoStreamerData last = w.records.last();
    EXPECT_EQ(last.playbackId(), 1);
    EXPECT_EQ(last.error().code(), -13);
    EXPECT_EQ(last.error().name(), streamerError(-13).name());
    EXPECT_EQ(last.trackRoles().title(), QStringLiteral("http://h/a.mp3?zuvo-duration=8000"));
    EXPECT_EQ(last.status().duration(), 8000);
    const ZuvoStreamerData beforeEnd = w.records.at(w.records.size() - 2);
    EXPECT_TRUE(isPlaying(beforeEnd));
    EXPECT_TRUE(beforeEnd.trackNearEnd());
    EXPECT_FALSE(w.records.at(w.records.size() - 3).trackNearEnd());

    // The position stops at the near-end point and at the end, then resets.
    ASSERT_TRUE(waitUntil([&] { return playTimes.values.contains(8000) && playTimes.values.last() == 0; }));
    EXPECT_TRUE(playTimes.values.contains(8000 - SimulatedPlayback::NearEndMs));
    EXPECT_TRUE(std::is_sorted(playTimes.values.begin() + 1, playTimes.values.end() - 1));
    EXPECT_FALSE(w.streamer.isActive());
    const auto* timer = w.streamer.findChild<QTimer*>(QStringLiteral("simulatedStreamerTick"));
    ASSERT_NE(timer, nullptr);
    EXPECT_FALSE(timer->isActive());
}

TEST(SimulatedStreamerTest, QueuedMediaFollowsGaplesslyWithItsOwnId) {
    World w;
    w.streamer.setSpeed(1000);
    const QString first = QStringLiteral("http://h/first.mp3?zuvo-duration=3000");
    const QString second = QStringLiteral("http://h/second.mp3?zuvo-duration=2000");
    CMReply<QVariant> queued(nullptr);
    // Like a play logic: queue the successor when the track reports near end.
    QObject::connect(&w.streamer, &SimulatedStreamer::dataPublished, &w.streamer,
                     [&](const ZuvoStreamerData& data) {
                         if (data.trackNearEnd() && data.playbackId() == 1 && !queued)
                             queued = w.send(ZuvoStreamerSetNextMediaPath(), playArgs(second));
                     });
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(first))), QStringLiteral("id:1"));
    ASSERT_TRUE(w.waitFor([](const ZuvoStreamerData& d) { return d.state() == State::stopped; }));
    EXPECT_EQ(answerOf(queued), QStringLiteral("id:2"));

    const auto firstOfTwo = std::find_if(w.records.begin(), w.records.end(),
                                         [](const ZuvoStreamerData& d) { return d.playbackId() == 2; });
    ASSERT_NE(firstOfTwo, w.records.end());
    ASSERT_NE(firstOfTwo, w.records.begin());
    const ZuvoStreamerData lastOfOne = *(firstOfTwo - 1);
    EXPECT_EQ(lastOfOne.playbackId(), 1);
    EXPECT_TRUE(isPlaying(lastOfOne));
    EXPECT_EQ(lastOfOne.nextTrackRoles().title(), second);
    EXPECT_TRUE(isPlaying(*firstOfTwo));
    EXPECT_FALSE(firstOfTwo->trackNearEnd());
    EXPECT_FALSE(firstOfTwo->isSetNextTrackRoles());
    EXPECT_EQ(firstOfTwo->trackRoles().title(), second);
    EXPECT_EQ(firstOfTwo->status().duration(), 2000);
    // No stopped record before the second track's own end.
    for (auto it = w.records.begin(); it != w.records.end() - 1; ++it)
        EXPECT_NE(it->state(), State::stopped);
    EXPECT_EQ(w.records.last().playbackId(), 2);
    EXPECT_EQ(w.records.last().error().code(), -13);
}

TEST(SimulatedStreamerTest, SeekingBackBeforeTheNearEndPointClearsNearEnd) {
    World w;
    ASSERT_TRUE(bring(w, Start::Playing));
    ZuvoStreamerSeekPosition position;
    position.setTimeMs(SimulatedStreamer::DefaultDurationMs - 1000);
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerSeekPath(), position.__variant())), QStringLiteral("ok"));
    ASSERT_TRUE(w.waitFor([](const ZuvoStreamerData& d) { return d.trackNearEnd(); }));
    EXPECT_EQ(w.streamer.playTimeMs(), SimulatedStreamer::DefaultDurationMs - 1000);

    position.setTimeMs(1000);
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerSeekPath(), position.__variant())), QStringLiteral("ok"));
    EXPECT_FALSE(w.streamer.data().trackNearEnd());
    // The near end comes again once the position is back in its range.
    position.setTimeMs(SimulatedStreamer::DefaultDurationMs);
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerSeekPath(), position.__variant())), QStringLiteral("ok"));
    EXPECT_TRUE(w.waitFor([](const ZuvoStreamerData& d) { return d.trackNearEnd(); }));
}

TEST(SimulatedStreamerTest, LiveStreamPlaysPastAnyTrackLength) {
    World w;
    w.streamer.setSpeed(1000);
    w.streamer.setDefaultDurationMs(2000);
    ASSERT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(),
                              playArgs(QStringLiteral("http://h/radio?zuvo-duration=live")))),
              QStringLiteral("id:1"));
    ASSERT_TRUE(waitUntil([&] { return w.streamer.playTimeMs() > 60000; }));
    EXPECT_TRUE(isPlaying(w.streamer.data()));
    EXPECT_FALSE(w.streamer.data().trackNearEnd());
}

TEST(SimulatedStreamerTest, SpeedSetsTheTickWithinItsBounds) {
    World w;
    const auto* timer = w.streamer.findChild<QTimer*>(QStringLiteral("simulatedStreamerTick"));
    ASSERT_NE(timer, nullptr);
    const std::vector<std::pair<double, int>> cases = {{1, 100}, {0.5, 100}, {4, 25},
                                                       {20, 10}, {1000, 10}, {0, 10}};
    for (const auto& [speed, interval] : cases) {
        w.streamer.setSpeed(speed);
        EXPECT_EQ(w.streamer.speed(), speed);
        EXPECT_EQ(timer->interval(), interval) << "speed " << speed;
    }
    LogCapture log;
    w.streamer.setSpeed(-2);
    w.streamer.setSpeed(qQNaN());
    w.streamer.setDefaultDurationMs(0);
    EXPECT_EQ(w.streamer.speed(), 0.0);
    EXPECT_EQ(w.streamer.defaultDurationMs(), SimulatedStreamer::DefaultDurationMs);
    EXPECT_EQ(log.count(QStringLiteral("Ignoring")), 3);
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
    cases.push_back({QStringLiteral("http://h/radio.pls"), QString(), -15, 0});
    cases.push_back({QStringLiteral("http://h/List.M3U?station=2"), QString(), -15, 0});
    cases.push_back({QStringLiteral("http://h/listen"), QStringLiteral("audio/x-scpls"), -15, 0});
    cases.push_back(
        {QStringLiteral("http://h/s.mp3?zuvo-error=-17&zuvo-error-after=2000&zuvo-duration=60000"), QString(),
         -17, 2000});
    cases.push_back({QStringLiteral("http://h/s.mp3?zuvo-error-after=1500"), QString(), -18, 1500});
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
        ASSERT_TRUE(w.waitFor([](const ZuvoStreamerData& d) { return d.state() == State::stopped; }));

        // The play was answered and the stream seen loading before it failed.
        EXPECT_EQ(w.records.first().state(), State::loading);
        EXPECT_EQ(w.records.first().playbackId(), 1);
        EXPECT_TRUE(w.records.first().error().isEmpty());
        const bool sawPlaying = std::any_of(w.records.begin(), w.records.end(), isPlaying);
        EXPECT_EQ(sawPlaying, c.atMs > 0);
        for (const ZuvoStreamerData& record : w.records)
            EXPECT_NE(record.playbackId(), 2) << "the queued successor never starts";

        const ZuvoStreamerData last = w.records.last();
        if (c.code == 0) {
            EXPECT_FALSE(last.isSetPlaybackId());
            EXPECT_EQ(last.error().name(), ZuvoStreamerErrorCrashed());
        } else {
            EXPECT_EQ(last.playbackId(), 1);
            EXPECT_EQ(last.error(), streamerError(c.code));
            EXPECT_EQ(last.trackRoles().title(), c.uri);
        }
        if (c.atMs > 0) {
            // The position stops where the stream fails, then resets.
            ASSERT_TRUE(
                waitUntil([&] { return playTimes.values.size() > 2 && playTimes.values.last() == 0; }));
            EXPECT_EQ(*std::max_element(playTimes.values.begin(), playTimes.values.end()), c.atMs);
        }
        EXPECT_FALSE(w.streamer.isActive());
        // Nothing is left queued behind the failed stream.
        const int published = w.records.size();
        EXPECT_EQ(answerOf(w.call(ZuvoStreamerClearNextMediaPath())), QStringLiteral("ok"));
        EXPECT_EQ(w.records.size(), published);
    }
}

TEST(SimulatedStreamerTest, CrashDropsEverythingAndIdsGoOn) {
    World w;
    ASSERT_TRUE(bring(w, Start::PlayingWithNext));
    w.streamer.crash();
    const ZuvoStreamerData restarted = w.streamer.data();
    EXPECT_EQ(restarted.state(), State::stopped);
    EXPECT_FALSE(restarted.isSetPlaybackId());
    EXPECT_EQ(restarted.error().name(), ZuvoStreamerErrorCrashed());
    EXPECT_EQ(w.records.last(), restarted);
    EXPECT_FALSE(w.streamer.isActive());
    EXPECT_EQ(answerOf(w.call(ZuvoStreamerPausePath())), SimulatedStreamer::ErrorNotPlaying());
    // Playback ids are never reused, not even after a restart.
    EXPECT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(NewTrack))), QStringLiteral("id:3"));
    EXPECT_EQ(w.streamer.data().state(), State::loading);
}
