// The simulated streamer's protocol: every command in every state, what its
// clock does to a playback, and the failures its URIs ask for.

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

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
enum Cmd { Play, SetNext, ClearNext, Pause, Resume, Stop, SeekTime, SeekBytes, SetAttributes };

const QString NewTrack = QStringLiteral("http://h/new.mp3");
const QString LaterTrack = QStringLiteral("http://h/later.mp3");

QVariant seekArgs(qint64 timeMs, qint64 bytes = -1) {
    ZuvoStreamerSeekPosition position;
    if (timeMs >= 0)
        position.setTimeMs(timeMs);
    if (bytes >= 0)
        position.setBytes(bytes);
    return position.__variant();
}

QVariant attributeArgs(int playbackId, const QVariant& attributes) {
    ZuvoStreamerSetAttributesArgs args;
    args.setPlaybackId(playbackId);
    args.setAttributes(attributes);
    return args.__variant();
}

bool isPlaying(const ZuvoStreamerData& data) {
    return data.state() == State::playing;
}

bool isStopped(const ZuvoStreamerData& data) {
    return data.state() == State::stopped;
}

// Brings a frozen-clock streamer into start; false when it did not get there.
bool bring(World& w, Start start) {
    w.streamer.setSpeed(0);
    if (start == Start::Stopped)
        return true;
    const bool nearEnd = start == Start::NearEnd || start == Start::NearEndWithNext;
    const QString uri = nearEnd ? QStringLiteral("http://h/short.mp3?zuvo-duration=1000")
                                : QStringLiteral("http://h/track.mp3");
    if (answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(uri))) != QStringLiteral("id:1") ||
        !w.waitFor(
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
    const std::vector<std::pair<CMPath, QVariant>> commands = {
        {ZuvoStreamerPlayPath(), playArgs(NewTrack)},
        {ZuvoStreamerSetNextMediaPath(), playArgs(LaterTrack)},
        {ZuvoStreamerClearNextMediaPath(), QVariant()},
        {ZuvoStreamerPausePath(), QVariant()},
        {ZuvoStreamerResumePath(), QVariant()},
        {ZuvoStreamerStopPath(), QVariant()},
        {ZuvoStreamerSeekPath(), seekArgs(500)},
        {ZuvoStreamerSeekPath(), seekArgs(-1, 1000)},
        {ZuvoStreamerSetAttributesPath(),
         attributeArgs(-1, QVariantHash{{ZuvoStreamerAttributesBufferingConfig(), QStringLiteral("big")}})},
    };
    return w.send(commands.at(cmd).first, commands.at(cmd).second);
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
    using S = Start;
    // clang-format off
    const std::vector<Row> rows = {
        {S::Stopped, Play, "id:1", State::loading, 1, false, false},
        {S::Stopped, SetNext, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, ClearNext, "ok", State::stopped, 0, false, false},
        {S::Stopped, Pause, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, Resume, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, Stop, "ok", State::stopped, 0, false, false},
        {S::Stopped, SeekTime, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, SeekBytes, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, SetAttributes, "ok", State::stopped, 0, false, false},
        {S::Playing, Play, "id:2", State::loading, 2, false, false},
        {S::Playing, SetNext, "id:2", State::playing, 1, true, false},
        {S::Playing, ClearNext, "ok", State::playing, 1, false, false},
        {S::Playing, Pause, "ok", State::paused, 1, false, false},
        {S::Playing, Resume, "ok", State::playing, 1, false, false},
        {S::Playing, Stop, "ok", State::stopped, 1, false, false},
        {S::Playing, SeekTime, "ok", State::playing, 1, false, false},
        {S::Playing, SeekBytes, "NotSeekable", State::playing, 1, false, false},
        {S::Playing, SetAttributes, "ok", State::playing, 1, false, false},
        {S::Paused, Play, "id:2", State::loading, 2, false, false},
        {S::Paused, SetNext, "id:2", State::paused, 1, true, false},
        {S::Paused, ClearNext, "ok", State::paused, 1, false, false},
        {S::Paused, Pause, "ok", State::paused, 1, false, false},
        {S::Paused, Resume, "ok", State::playing, 1, false, false},
        {S::Paused, Stop, "ok", State::stopped, 1, false, false},
        {S::Paused, SeekTime, "ok", State::paused, 1, false, false},
        {S::Paused, SeekBytes, "NotSeekable", State::paused, 1, false, false},
        {S::Paused, SetAttributes, "ok", State::paused, 1, false, false},
        {S::NearEnd, Play, "id:2", State::loading, 2, false, false},
        {S::NearEnd, SetNext, "id:2", State::playing, 1, true, true},
        {S::NearEnd, ClearNext, "ok", State::playing, 1, false, true},
        {S::NearEnd, Pause, "ok", State::paused, 1, false, true},
        {S::NearEnd, Resume, "ok", State::playing, 1, false, true},
        {S::NearEnd, Stop, "ok", State::stopped, 1, false, true},
        {S::NearEnd, SeekTime, "ok", State::playing, 1, false, true},
        {S::NearEnd, SeekBytes, "NotSeekable", State::playing, 1, false, true},
        {S::NearEnd, SetAttributes, "ok", State::playing, 1, false, true},
        {S::PlayingWithNext, Play, "id:3", State::loading, 3, false, false},
        {S::PlayingWithNext, SetNext, "id:3", State::playing, 1, true, false},
        {S::PlayingWithNext, ClearNext, "ok", State::playing, 1, false, false},
        {S::PlayingWithNext, Pause, "ok", State::paused, 1, true, false},
        {S::PlayingWithNext, Resume, "ok", State::playing, 1, true, false},
        {S::PlayingWithNext, Stop, "ok", State::stopped, 1, false, false},
        {S::PlayingWithNext, SeekTime, "ok", State::playing, 1, true, false},
        {S::PlayingWithNext, SeekBytes, "NotSeekable", State::playing, 1, true, false},
        {S::PlayingWithNext, SetAttributes, "ok", State::playing, 1, true, false},
        {S::NearEndWithNext, Play, "id:3", State::loading, 3, false, false},
        {S::NearEndWithNext, SetNext, "id:3", State::playing, 1, true, true},
        {S::NearEndWithNext, ClearNext, "ok", State::playing, 1, false, true},
        {S::NearEndWithNext, Pause, "ok", State::paused, 1, true, true},
        {S::NearEndWithNext, Resume, "ok", State::playing, 1, true, true},
        {S::NearEndWithNext, Stop, "ok", State::stopped, 1, false, true},
        {S::NearEndWithNext, SeekTime, "ok", State::playing, 1, true, true},
        {S::NearEndWithNext, SeekBytes, "NotSeekable", State::playing, 1, true, true},
        {S::NearEndWithNext, SetAttributes, "ok", State::playing, 1, true, true},
    };
    // clang-format on
    for (size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE(testing::Message() << "row " << i);
        World w;
        ASSERT_TRUE(bring(w, row.start));
        const int publishedBefore = w.records.size();
        const int commandsBefore = w.commands.size();
        const CMReply<QVariant> reply = send(w, row.cmd);
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }));
        EXPECT_EQ(answerOf(reply), QString::fromUtf8(row.answer));

        const ZuvoStreamerData data = w.streamer.data();
        EXPECT_EQ(data.state(), row.state);
        EXPECT_EQ(data.isSetPlaybackId(), row.playbackId != 0);
        EXPECT_EQ(data.playbackId(), row.playbackId);
        EXPECT_EQ(data.isSetNextTrackRoles(), row.next);
        EXPECT_EQ(data.trackNearEnd(), row.nearEnd);
        EXPECT_TRUE(data.error().isEmpty());
        EXPECT_EQ(w.nodeRecord(), data);
        EXPECT_EQ(w.commands.size(), commandsBefore + 1);
        if (reply.hasError()) {
            EXPECT_EQ(w.records.size(), publishedBefore) << "a refused command published";
            continue;
        }
        if (row.cmd == Play) {
            EXPECT_EQ(data.trackRoles().title(), NewTrack);
        } else if (row.cmd == SetNext) {
            EXPECT_EQ(data.nextTrackRoles().title(), LaterTrack);
        } else if (row.cmd == SeekTime) {
            EXPECT_EQ(w.streamer.playTimeMs(), 500);
        }
        EXPECT_EQ(w.streamer.isActive(), row.state != State::stopped);
    }
}

TEST(SimulatedStreamerTest, RefusalsNameWhatIsWrongAndChangeNothing) {
    World w;
    ASSERT_TRUE(bring(w, Start::Playing));
    const ZuvoStreamerData playing = w.streamer.data();
    const QString invalid = SimulatedStreamer::ErrorInvalidArgument();
    const std::vector<std::tuple<CMPath, QVariant, QString>> cases = {
        {ZuvoStreamerPlayPath(), QStringLiteral("http://h/a.mp3"), invalid}, // no record, so no URI
        {ZuvoStreamerSetNextMediaPath(), QVariant(), invalid},
        {ZuvoStreamerSeekPath(), seekArgs(10, 10), invalid},
        {ZuvoStreamerSeekPath(), seekArgs(SimulatedStreamer::DefaultDurationMs + 1), invalid},
        {ZuvoStreamerSetAttributesPath(), attributeArgs(7, QVariantHash()),
         SimulatedStreamer::ErrorUnknownPlayback()},
        {ZuvoStreamerSetAttributesPath(), attributeArgs(-1, QStringLiteral("big")), invalid},
        {ZuvoStreamerPlayPath() + QStringLiteral("/extra"), QVariant(), QStringLiteral("NotSupported")},
    };
    for (const auto& [command, payload, error] : cases) {
        SCOPED_TRACE(command.toEncoded().toStdString());
        LogCapture log;
        const int published = w.records.size();
        const CMReply<QVariant> reply = w.call(command, payload);
        EXPECT_EQ(answerOf(reply), error);
        EXPECT_FALSE(reply.error().message().isEmpty());
        EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("Refused")));
        EXPECT_EQ(w.records.size(), published);
        EXPECT_EQ(w.streamer.data(), playing);
    }
    // A live stream cannot be sought at all; refused plays used no playback id.
    ASSERT_EQ(
        answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/r?zuvo-duration=live")))),
        QStringLiteral("id:2"));
    EXPECT_EQ(answerOf(w.call(ZuvoStreamerSeekPath(), seekArgs(0))), SimulatedStreamer::ErrorNotSeekable());
}

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
    ASSERT_TRUE(bring(w, Start::PlayingWithNext));
    w.streamer.crash();
    EXPECT_TRUE(isStopped(w.streamer.data()));
    EXPECT_FALSE(w.streamer.data().isSetPlaybackId());
    EXPECT_EQ(w.streamer.data().error().name(), ZuvoStreamerErrorCrashed());
    EXPECT_EQ(answerOf(w.call(ZuvoStreamerPausePath())), SimulatedStreamer::ErrorNotPlaying());
    EXPECT_EQ(answerOf(w.call(ZuvoStreamerPlayPath(), playArgs(NewTrack))), QStringLiteral("id:3"));
}
