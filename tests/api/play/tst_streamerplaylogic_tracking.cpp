// What the streamer reports, turned into the published record and values:
// new media, state and status, and the reports to the media's state-change
// node.

#include <gtest/gtest.h>

#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/streamerplaylogicfixture.h"

using spltest::activeUri;
using zuvotest::waitUntil;
using State = ZuvoPlayLogicState::Enum;

namespace {

using TrackingTest = SplTest<>;

QList<State> reportedStates(const TestServiceNode& node) {
    QList<State> states;
    for (int i = 0; i < node.count(); ++i)
        states.append(ZuvoPlayLogicData(node.valueAt(i)).state());
    return states;
}

TEST_F(TrackingTest, StatusOnlyChangeLeavesTheState) {
    EXPECT_EQ(logic->currentStreamId(), -1);
    ZuvoStreamerData data = playAndStart(spltest::item({QStringLiteral("http://a/1")}));
    LogCapture log;
    ZuvoPlayLogicStatus status = data.status();
    status.setTimeSeek(true);
    data.setStatus(status);
    h.streamer.publishData(data);
    ASSERT_TRUE(waitUntil([&] { return published().status().timeSeek(); }));
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::playing);
    EXPECT_FALSE(log.contains(QStringLiteral("Old state: ")));
    EXPECT_EQ(logic->mediaStarts, 1);
}

// The published state follows the streamer, except that a stopped streamer
// shows as loading: the stopped state is published only by the end of the
// playback. The item's state-change node hears every published state while
// the streamer runs, and the final stop.
TEST_F(TrackingTest, StoppedStreamerShowsAsLoadingUntilThePlaybackEnds) {
    ZuvoStreamerData data =
        playAndStart(spltest::item({QStringLiteral("http://a/1")}, SplWorld::stateChangePath()));
    PublishedStates states(logic.get());
    for (const State state : {ZuvoPlayLogicState::paused, ZuvoPlayLogicState::playing}) {
        data.setState(state);
        h.streamer.publishData(data);
        ASSERT_TRUE(waitUntil([&] { return published().state() == state; }));
    }
    h.streamer.publishData(spltest::stoppedWith(data, -13, QStringLiteral("eos")));
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }));
    zuvotest::drainEvents();
    EXPECT_EQ(states.states, QList<State>({ZuvoPlayLogicState::paused, ZuvoPlayLogicState::playing,
                                           ZuvoPlayLogicState::loading, ZuvoPlayLogicState::stopped}));
    EXPECT_EQ(reportedStates(h.stateChange),
              QList<State>({ZuvoPlayLogicState::playing, ZuvoPlayLogicState::paused,
                            ZuvoPlayLogicState::playing, ZuvoPlayLogicState::stopped}));
}

// A playback id the play logic has not seen before is a new media only when
// the streamer runs it without an error.
TEST(StreamerPlayLogicTracking, NewPlaybackIdIsNewMediaOnlyWhenRunningWithoutError) {
    using Command = TestStreamerService::Command;
    struct Row {
        const char* name;
        State state;
        int errorCode; // 0: none
        bool newMedia;
    };
    const Row rows[] = {
        {"running", ZuvoPlayLogicState::playing, 0, true},
        {"stopped", ZuvoPlayLogicState::stopped, 0, false},
        {"running with an error", ZuvoPlayLogicState::playing, -16, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SplWorld h;
        TestStreamerPlayLogic logic(h.scope.nodes(), h.basePath);
        const ZuvoRoles first = spltest::item({QStringLiteral("http://a/1")}, SplWorld::stateChangePath());
        ASSERT_FALSE(h.playAndStart(first).isEmpty());
        ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 1; }));

        // A second playback replaces the first one.
        const ZuvoRoles second = spltest::item({QStringLiteral("http://a/2")}, SplWorld::stateChangePath());
        const CMReply<QVariant> started = logic.sendPlayCommand(second, {});
        ASSERT_TRUE(waitUntil([&] { return started.isFinished(); }));
        ASSERT_EQ(started.value().toInt(), 2);

        LogCapture log;
        ZuvoStreamerData data = spltest::streamerData(2, row.state, second);
        if (row.errorCode != 0)
            data.setError(TestStreamerService::makeError(row.errorCode, QStringLiteral("e")));
        h.streamer.publishData(data);
        ASSERT_TRUE(waitUntil([&] { return h.published().streamId() == 2; })) << log.toString().toStdString();
        zuvotest::drainEvents();

        EXPECT_EQ(logic.mediaStarts, row.newMedia ? 2 : 1);
        EXPECT_EQ(log.contains(QStringLiteral("New media started, with track roles: ")), row.newMedia);
        EXPECT_EQ(h.published().state(),
                  row.newMedia ? ZuvoPlayLogicState::playing : ZuvoPlayLogicState::loading);
        // The owner hears of a stop either way: of the replaced track when a
        // new media starts, else of the failed playback.
        ASSERT_GE(h.stateChange.count(), 2);
        const ZuvoPlayLogicData stopReport(h.stateChange.valueAt(1));
        EXPECT_EQ(stopReport.state(), ZuvoPlayLogicState::stopped);
        EXPECT_EQ(activeUri(stopReport.trackRoles()),
                  row.newMedia ? QStringLiteral("http://a/1") : QStringLiteral("http://a/2"));
        EXPECT_EQ(stopReport.error().isEmpty(), row.newMedia);
        EXPECT_EQ(h.count(Command::play), 2);
    }
}

TEST_F(TrackingTest, GaplessNextTrackTellsThePreviousOwnerItsTrackStopped) {
    const ZuvoRoles first = spltest::item({QStringLiteral("http://t/1")}, SplWorld::stateChangePath());
    const ZuvoRoles second = spltest::item({QStringLiteral("http://t/2")}, SplWorld::stateChangePath());
    logic->upcoming.append(second);
    ZuvoStreamerData data = playAndStart(first);
    data.setTrackNearEnd(true);
    h.streamer.publishData(data);
    ASSERT_TRUE(h.waitForCount(Command::setNextMedia, 1));

    h.streamer.publishData(spltest::streamerData(2, ZuvoPlayLogicState::playing, second));
    ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 3; }));
    EXPECT_EQ(reportedStates(h.stateChange),
              QList<State>(
                  {ZuvoPlayLogicState::playing, ZuvoPlayLogicState::stopped, ZuvoPlayLogicState::playing}));
    EXPECT_EQ(activeUri(ZuvoPlayLogicData(h.stateChange.valueAt(1)).trackRoles()),
              QStringLiteral("http://t/1"));
    EXPECT_EQ(activeUri(ZuvoPlayLogicData(h.stateChange.valueAt(2)).trackRoles()),
              QStringLiteral("http://t/2"));
    EXPECT_EQ(ZuvoPlayLogicData(h.stateChange.valueAt(2)).streamId(), 2);
}

// An item that names only a content state-change path reports there.
TEST_F(TrackingTest, ContentStateChangePathStandsInForThePlaybackOne) {
    const ZuvoRoles track =
        spltest::withMetaData(spltest::item({QStringLiteral("http://a/1")}), [](ZuvoMetaData& m) {
            m.setContentStateChangePath(SplWorld::stateChangePath());
        });
    playAndStart(track);
    EXPECT_EQ(h.sent(Command::play, 0).roles().mediaData().metaData().playbackStateChangePath(),
              SplWorld::stateChangePath());
    ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 1; }));
    EXPECT_EQ(ZuvoPlayLogicData(h.stateChange.valueAt(0)).state(), ZuvoPlayLogicState::playing);
}

TEST_F(TrackingTest, BufferLevelAndPlayTimeFollowTheStreamer) {
    ASSERT_FALSE(playAndStart(spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    const struct {
        double reported;
        double published;
    } levels[] = {{57.0, 57.0}, {99.9, 99.0}, {0.0, 0.0}};
    for (const auto& level : levels) {
        h.streamer.publishBufferingLevel(level.reported);
        EXPECT_TRUE(waitUntil([&] { return h.client->bufferLevel() == level.published; })) << level.reported;
    }
    h.streamer.publishPlayTime(12345);
    EXPECT_TRUE(waitUntil([&] { return h.client->playTime() == 12345; }));
}

// A derived play logic that publishes from inside mediaPlaybackStarted: what
// it returns is what is published, and the publication is warned about.
class PublishingInHook : public StreamerPlayLogic {
public:
    using StreamerPlayLogic::StreamerPlayLogic;
    bool publishInHook = true;

    ZuvoPlayLogicData mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                           const ZuvoRoles& previousTrackRoles) override {
        ZuvoPlayLogicData result = StreamerPlayLogic::mediaPlaybackStarted(newTrackRoles, previousTrackRoles);
        if (publishInHook) {
            ZuvoPlayLogicData early = result;
            early.setError(QStringLiteral("published in hook"));
            setData(early);
        }
        result.setKeepActive(true);
        return result;
    }
};

TEST(StreamerPlayLogicTracking, DataChangedInMediaPlaybackStartedIsWarnedAndReturnValueWins) {
    for (const bool publishInHook : {true, false}) {
        SCOPED_TRACE(publishInHook);
        SplWorld h;
        PublishingInHook logic(h.scope.nodes(), h.basePath);
        logic.publishInHook = publishInHook;
        LogCapture log;
        ASSERT_FALSE(h.playAndStart(spltest::item({QStringLiteral("http://a/1")})).isEmpty());
        EXPECT_EQ(
            log.contains(log4cplus::WARN_LOG_LEVEL,
                         QStringLiteral("data() changed in mediaPlaybackStarted, use return value instead")),
            publishInHook);
        EXPECT_TRUE(h.published().keepActive());
        EXPECT_TRUE(h.published().error().isEmpty());
        EXPECT_EQ(h.published().streamId(), 1);
    }
}

} // namespace
