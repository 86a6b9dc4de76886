// Whole playback stories through the model tree: a client drives the play
// logic through PlayLogicInterface, the play logic drives the scripted
// streamer nodes, and the streamer's data comes back as the published
// "/data" record and values.

#include <gtest/gtest.h>

#include <QTimer>
#include <memory>

#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/streamerplaylogicfixture.h"

using zuvotest::waitUntil;

namespace {

class StoriesTest : public ::testing::Test {
protected:
    void SetUp() override { logic = std::make_unique<TestStreamerPlayLogic>(h.scope.nodes(), h.basePath); }
    void TearDown() override { logic.reset(); }

    ZuvoPlayLogicData published() const { return h.client->data(); }
    ZuvoStreamerPlayArgs sentPlay(int i) { return ZuvoStreamerPlayArgs(h.streamer.playNode().valueAt(i)); }

    ZuvoStreamerData playAndStart(const ZuvoRoles& track) {
        const ZuvoStreamerData data = spltest::playAndStart(h, track);
        EXPECT_FALSE(data.isEmpty());
        return data;
    }

    SplHarness h;
    std::unique_ptr<TestStreamerPlayLogic> logic;
};

TEST_F(StoriesTest, PlayNewMediaNearEndNoNextMediaEndOfStream) {
    LogCapture log;
    const ZuvoRoles track =
        spltest::item({QStringLiteral("http://radio/a.mp3")}, CMPath("/service/stateChange"));
    const CMReply<QVariant> reply = h.client->playContainer(ZuvoRoles(), track, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 1; }));
    EXPECT_TRUE(reply.isFinished());
    EXPECT_FALSE(reply.hasError());
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::Enum(1));
    EXPECT_EQ(sentPlay(0).roles().mediaData().activeResource().uri(), QStringLiteral("http://radio/a.mp3"));

    ZuvoStreamerData data = spltest::streamerData(1, ZuvoPlayLogicState::playing, track);
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::playing; }));
    EXPECT_TRUE(
        log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("New media started, with track roles: ")));
    EXPECT_EQ(logic->currentStreamId(), 1);
    ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 1; }));
    EXPECT_EQ(ZuvoPlayLogicData(h.stateChange.valueAt(0)).state(), ZuvoPlayLogicState::playing);

    h.streamer.publishPlayTime(59000);
    ASSERT_TRUE(waitUntil([&] { return h.client->playTime() == 59000; }));

    data.setTrackNearEnd(true);
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.clearNextMediaNode().count() == 1; }));
    EXPECT_EQ(logic->prepareNextMediaCalls, 1);
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::playing);

    h.streamer.publish(spltest::withError(data, QStringLiteral("endOfStream"), -13, QString()));
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }))
        << log.toString().toStdString();
    EXPECT_TRUE(log.contains(log4cplus::TRACE_LOG_LEVEL, QStringLiteral("End of stream reached!")));
    EXPECT_EQ(h.client->playTime(), 0);
    EXPECT_EQ(h.client->playByte(), 0);
    EXPECT_EQ(h.client->bufferLevel(), -1.0);
    EXPECT_TRUE(published().error().isEmpty());
    ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 2; }));
    const ZuvoPlayLogicData last(h.stateChange.valueAt(1));
    EXPECT_EQ(last.state(), ZuvoPlayLogicState::stopped);
    EXPECT_FALSE(last.isSetError());
}

TEST_F(StoriesTest, LiveItemFallsBackOverThreeResources) {
    LogCapture log;
    const ZuvoRoles track = spltest::item(
        {QStringLiteral("http://r/1"), QStringLiteral("http://r/2"), QStringLiteral("http://r/3")}, CMPath(),
        true);
    ZuvoStreamerData data = playAndStart(track);

    // First resource fails: the second is started.
    h.streamer.publish(spltest::withError(data, QStringLiteral("openFailed"), -16, QString()));
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 2; }));
    EXPECT_EQ(sentPlay(1).roles().mediaData().activeResource().uri(), QStringLiteral("http://r/2"));
    EXPECT_TRUE(
        log.contains(log4cplus::INFO_LOG_LEVEL,
                     QStringLiteral("Streamer error, one more resource available, starting new playback")));

    data = spltest::streamerData(2, ZuvoPlayLogicState::playing, sentPlay(1).roles());
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return published().streamId() == 2; }));
    h.streamer.publish(spltest::withError(data, QStringLiteral("openFailed"), -16, QString()));
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 3; }));
    EXPECT_EQ(sentPlay(2).roles().mediaData().activeResource().uri(), QStringLiteral("http://r/3"));

    data = spltest::streamerData(3, ZuvoPlayLogicState::playing, sentPlay(2).roles());
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return published().streamId() == 3; }));
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::playing);
    EXPECT_EQ(published().trackRoles().mediaData().activeResource().uri(), QStringLiteral("http://r/3"));
}

TEST_F(StoriesTest, PlayWhilePlayingStopsOnceThenPlaysTheNewItem) {
    const ZuvoRoles first = spltest::item({QStringLiteral("http://a/1")});
    const ZuvoRoles second = spltest::item({QStringLiteral("http://b/2")});
    const ZuvoRoles third = spltest::item({QStringLiteral("http://c/3")});
    const ZuvoStreamerData running = playAndStart(first);

    const CMReply<QVariant> replaced = h.client->playContainer(ZuvoRoles(), second, 0, 0);
    const CMReply<QVariant> latest = h.client->playContainer(ZuvoRoles(), third, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return replaced.isFinished(); }));
    EXPECT_EQ(replaced.error().name(), CMVoidReply::ErrorCancel());
    ASSERT_TRUE(waitUntil([&] { return h.streamer.stopNode().count() == 1; }));

    // The streamer reports its stop; the play logic ends the first playback
    // and the waiting play runs.
    ZuvoStreamerData stopped = running;
    stopped.setState(ZuvoPlayLogicState::stopped);
    h.streamer.publish(stopped);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 2; }));
    EXPECT_EQ(h.streamer.stopNode().count(), 1);
    EXPECT_EQ(sentPlay(1).roles().mediaData().activeResource().uri(), QStringLiteral("http://c/3"));
    EXPECT_TRUE(latest.isFinished());
    EXPECT_FALSE(latest.hasError());
    EXPECT_EQ(published().trackRoles().mediaData().activeResource().uri(), QStringLiteral("http://c/3"));
}

TEST_F(StoriesTest, StopDuringPrePlayDropsTheAnswer) {
    h.prePlay.holdRequests(true);
    const ZuvoRoles track =
        spltest::withPrePlay(spltest::item({QStringLiteral("http://p/1")}), CMPath("/service/prePlay"));
    h.client->playContainer(ZuvoRoles(), track, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return h.prePlay.count() == 1; }));
    // The pre-play node is asked with the default offset.
    const ZuvoRoles asked(h.prePlay.valueAt(0));
    EXPECT_TRUE(asked.mediaData().metaData().isSetPrePlayTimeOffset());
    EXPECT_EQ(asked.mediaData().metaData().prePlayTimeOffset(), 0);
    EXPECT_EQ(h.prePlay.requests().at(0).role(), ZuvoRoles::PrePlay());

    const CMReply<QVariant> stopReply = h.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }));
    EXPECT_FALSE(stopReply.hasError());

    h.prePlay.requests().at(0).reply().setValue(asked.__variant());
    zuvotest::drainEvents();
    EXPECT_EQ(h.streamer.playNode().count(), 0);
}

TEST_F(StoriesTest, PauseBeyondMaxIdleTimeRefetchesAtPausedPlayTime) {
    h.prePlay.setAnswer([](const CMSetDataRequest& request) { request.reply().setValue(request.data()); });
    ZuvoRoles track =
        spltest::withPrePlay(spltest::item({QStringLiteral("http://p/1")}), CMPath("/service/prePlay"));
    ZuvoMediaData mediaData = track.mediaData();
    ZuvoResource active = mediaData.activeResource();
    active.setMaxIdleTime(0); // any pause is too long
    mediaData.setActiveResource(active);
    track.setMediaData(mediaData);

    h.client->playContainer(ZuvoRoles(), track, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 1; }));
    ZuvoStreamerData data = spltest::streamerData(1, ZuvoPlayLogicState::playing, sentPlay(0).roles());
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::playing; }));
    h.streamer.publishPlayTime(42000);
    ASSERT_TRUE(waitUntil([&] { return h.client->playTime() == 42000; }));

    h.client->pause();
    ASSERT_TRUE(waitUntil([&] { return h.streamer.pauseNode().count() == 1; }));
    data.setState(ZuvoPlayLogicState::paused);
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::paused; }));

    LogCapture log;
    const CMReply<QVariant> resume = h.client->pause();
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 2; }));
    EXPECT_FALSE(resume.hasError());
    EXPECT_EQ(h.streamer.resumeNode().count(), 0);
    EXPECT_EQ(h.prePlay.count(), 2);
    EXPECT_EQ(ZuvoRoles(h.prePlay.valueAt(1)).mediaData().metaData().prePlayTimeOffset(), 42000);
    EXPECT_EQ(sentPlay(1).roles().mediaData().metaData().prePlayTimeOffset(), 42000);
    EXPECT_TRUE(
        log.contains(log4cplus::INFO_LOG_LEVEL,
                     QStringLiteral("resource exceeded validity time, refetching resource from service")));
}

TEST_F(StoriesTest, StreamerCrashMidPlayPublishesStreamCrashed) {
    QTimer* timer = logic->findChild<QTimer*>(QStringLiteral("errorReportTimer"));
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->interval(), 2000);
    ASSERT_FALSE(playAndStart(spltest::item({QStringLiteral("http://a/1")})).isEmpty());

    // A restarted streamer publishes data without a playback id.
    ZuvoStreamerData restarted;
    restarted.setState(ZuvoPlayLogicState::stopped);
    h.streamer.publish(restarted);
    ASSERT_TRUE(waitUntil([&] { return !published().error().isEmpty(); }));
    EXPECT_EQ(published().error(), QStringLiteral("The streamer crashed"));
    EXPECT_EQ(published().streamerError().name(), ZuvoStreamerErrorCrashed());
}

} // namespace
