// The play-request queue with its pre-play step, resources and next media,
// data tracking and destruction.

#include <gtest/gtest.h>
#include <memory>

#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/streamerplaylogicfixture.h"

using zuvotest::waitUntil;

namespace {

class PipelineTest : public ::testing::Test {
protected:
    void SetUp() override { logic = std::make_unique<TestStreamerPlayLogic>(h.scope.nodes(), h.basePath); }

    ZuvoPlayLogicData published() const { return h.client->data(); }
    ZuvoStreamerPlayArgs sentPlay(int i) { return ZuvoStreamerPlayArgs(h.streamer.playNode().valueAt(i)); }
    static QString activeUri(const ZuvoRoles& roles) { return roles.mediaData().activeResource().uri(); }

    SplHarness h;
    std::unique_ptr<TestStreamerPlayLogic> logic;
    const CMPath prePlayPath{"/service/prePlay"};
};

ZuvoRoles withActive(ZuvoRoles roles, const ZuvoResource& active) {
    ZuvoMediaData mediaData = roles.mediaData();
    mediaData.setActiveResource(active);
    roles.setMediaData(mediaData);
    return roles;
}

TEST_F(PipelineTest, NextActiveResourceHasNoWrapAroundAndNoLoop) {
    const ZuvoRoles abc = spltest::item(
        {QStringLiteral("http://r/a"), QStringLiteral("http://r/b"), QStringLiteral("http://r/c")});
    const ZuvoList<ZuvoResource> list = abc.mediaData().resources();
    EXPECT_EQ(activeUri(logic->nextActiveResource(abc)), QStringLiteral("http://r/b"));
    EXPECT_EQ(logic->activeResourcePosition(withActive(abc, list.at(2))), 2);
    EXPECT_TRUE(logic->nextActiveResource(withActive(abc, list.at(2))).isEmpty());
    EXPECT_TRUE(logic->nextActiveResource(spltest::item({QStringLiteral("http://r/a")})).isEmpty());

    ZuvoResource stranger;
    stranger.setUri(QStringLiteral("http://r/x"));
    EXPECT_EQ(logic->activeResourcePosition(withActive(abc, stranger)), -1);
    EXPECT_TRUE(logic->nextActiveResource(withActive(abc, stranger)).isEmpty());

    // Matching by uid wins over the uri; by data when neither is set.
    ZuvoResource byUid;
    byUid.setUid(QStringLiteral("u2"));
    ZuvoResource second = list.at(1);
    second.setUid(QStringLiteral("u2"));
    ZuvoRoles uidRoles = abc;
    ZuvoMediaData mediaData = uidRoles.mediaData();
    mediaData.setResources(ZuvoList<ZuvoResource>({list.at(0), second, list.at(2)}));
    mediaData.setActiveResource(byUid);
    uidRoles.setMediaData(mediaData);
    EXPECT_EQ(logic->activeResourcePosition(uidRoles), 1);

    ZuvoResource d1;
    d1.setData(QVariant(1));
    ZuvoResource d2;
    d2.setData(QVariant(2));
    ZuvoRoles dataRoles;
    ZuvoMediaData dataMedia;
    dataMedia.setResources(ZuvoList<ZuvoResource>({d1, d2}));
    dataMedia.setActiveResource(d2);
    dataRoles.setMediaData(dataMedia);
    EXPECT_EQ(logic->activeResourcePosition(dataRoles), 1);

    LogCapture log;
    ZuvoRoles twins;
    ZuvoMediaData twinMedia;
    twinMedia.setResources(ZuvoList<ZuvoResource>({list.at(0), list.at(0)}));
    twinMedia.setActiveResource(list.at(0));
    twins.setMediaData(twinMedia);
    EXPECT_TRUE(logic->nextActiveResource(twins).isEmpty());
    EXPECT_TRUE(log.contains(log4cplus::ERROR_LOG_LEVEL,
                             QStringLiteral("Next resource is equal to active, skip to prevent loop")));
}

TEST_F(PipelineTest, RequestsWithoutPrePlayReachTheStreamerInOrder) {
    ASSERT_FALSE(spltest::playAndStart(h, spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    ZuvoRoles second = spltest::item({QStringLiteral("http://a/2")});
    const CMReply<QVariant> play =
        logic->sendPlayCommand(spltest::item({QStringLiteral("http://a/3")}),
                               {{ZuvoStreamerAttributesStartPaused(), QVariant(true)}});
    const CMReply<QVariant> next = logic->sendSetNextMediaCommand(second, {});
    ASSERT_TRUE(waitUntil([&] { return play.isFinished() && next.isFinished(); }));
    EXPECT_EQ(play.value().toInt(), 2);
    EXPECT_EQ(next.value().toInt(), 3);
    EXPECT_EQ(activeUri(sentPlay(1).roles()), QStringLiteral("http://a/3"));
    EXPECT_TRUE(sentPlay(1).attributes().toHash().value(ZuvoStreamerAttributesStartPaused()).toBool());
    // startPaused absent from the attributes means false.
    EXPECT_FALSE(sentPlay(0).attributes().toHash().value(ZuvoStreamerAttributesStartPaused(), true).toBool());
    EXPECT_EQ(activeUri(ZuvoStreamerPlayArgs(h.streamer.setNextMediaNode().valueAt(0)).roles()),
              QStringLiteral("http://a/2"));
}

TEST_F(PipelineTest, LaterRequestWaitsForThePrePlayAnswer) {
    ASSERT_FALSE(spltest::playAndStart(h, spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    h.prePlay.holdRequests(true);
    const ZuvoRoles withPre =
        spltest::withPrePlay(spltest::item({QStringLiteral("http://p/1")}), prePlayPath);
    logic->sendPlayCommand(withPre, {});
    const CMReply<QVariant> later = logic->sendPlayCommand(spltest::item({QStringLiteral("http://a/2")}), {});
    ASSERT_TRUE(waitUntil([&] { return h.prePlay.count() == 1; }));
    zuvotest::drainEvents();
    EXPECT_EQ(h.streamer.playNode().count(), 1);
    EXPECT_FALSE(later.isFinished());

    // The pre-play node rewrites the roles: its answer is what is played.
    ZuvoRoles rewritten = ZuvoRoles(h.prePlay.valueAt(0));
    rewritten.setTitle(QStringLiteral("fresh"));
    h.prePlay.requests().at(0).reply().setValue(rewritten.__variant());
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 3; }));
    EXPECT_EQ(sentPlay(1).roles().title(), QStringLiteral("fresh"));
    EXPECT_EQ(activeUri(sentPlay(2).roles()), QStringLiteral("http://a/2"));
}

TEST_F(PipelineTest, FailedPrePlayFallsBackToTheNextResourceThenReports) {
    LogCapture log;
    h.prePlay.setAnswer([](const CMSetDataRequest& request) {
        request.reply().setError(
            CMError(QStringLiteral("gone"), QStringLiteral("t"), QStringLiteral("Gone")));
    });
    const ZuvoRoles track = spltest::withPrePlay(
        spltest::item({QStringLiteral("http://p/1"), QStringLiteral("http://p/2")}), prePlayPath);
    h.client->playContainer(ZuvoRoles(), track, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return published().error() == QStringLiteral("Gone"); }));
    ASSERT_EQ(h.prePlay.count(), 2);
    EXPECT_EQ(activeUri(ZuvoRoles(h.prePlay.valueAt(0))), QStringLiteral("http://p/1"));
    EXPECT_EQ(activeUri(ZuvoRoles(h.prePlay.valueAt(1))), QStringLiteral("http://p/2"));
    EXPECT_EQ(log.count(QStringLiteral("prePlay request failed: ")), 2);
    EXPECT_EQ(h.streamer.playNode().count(), 0);
}

TEST_F(PipelineTest, StopCancelsQueuedRequests) {
    ASSERT_FALSE(spltest::playAndStart(h, spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    h.prePlay.holdRequests(true);
    const CMReply<QVariant> waiting = logic->sendPlayCommand(
        spltest::withPrePlay(spltest::item({QStringLiteral("http://p/1")}), prePlayPath), {});
    h.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(waitUntil([&] { return waiting.isFinished(); }));
    EXPECT_EQ(waiting.error().message(), QStringLiteral("Play request cancelled"));
    EXPECT_EQ(waiting.error().name(), CMError::DefaultName());
}

TEST_F(PipelineTest, LiveMediaQueuesTheNextResourceAsNextMedia) {
    LogCapture log;
    const ZuvoRoles live =
        spltest::item({QStringLiteral("http://l/1"), QStringLiteral("http://l/2")}, CMPath(), true);
    h.client->playContainer(live, live, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 1; }));
    ZuvoStreamerData data = spltest::streamerData(1, ZuvoPlayLogicState::playing, live);
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return published().streamId() == 1; }));
    data.setTrackNearEnd(true);
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.setNextMediaNode().count() == 1; }));
    EXPECT_EQ(activeUri(ZuvoStreamerPlayArgs(h.streamer.setNextMediaNode().valueAt(0)).roles()),
              QStringLiteral("http://l/2"));
    EXPECT_TRUE(log.contains(log4cplus::DEBUG_LOG_LEVEL,
                             QStringLiteral("One more resource available, sending next media")));
    EXPECT_EQ(logic->prepareNextMediaCalls, 0);
    EXPECT_EQ(h.streamer.clearNextMediaNode().count(), 0);
}

TEST_F(PipelineTest, NoNextResourceForNonLiveMediaNorAfterStop) {
    const QStringList uris{QStringLiteral("http://l/1"), QStringLiteral("http://l/2")};
    const ZuvoRoles stored = spltest::item(uris, CMPath(), false);
    ZuvoStreamerData data = spltest::playAndStart(h, stored);
    ASSERT_FALSE(data.isEmpty());
    data.setTrackNearEnd(true);
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.clearNextMediaNode().count() == 1; }));
    EXPECT_EQ(h.streamer.setNextMediaNode().count(), 0);

    // Live media, but stopped by the user: nothing follows either.
    const ZuvoRoles live = spltest::item(uris, CMPath(), true);
    SplHarness other;
    TestStreamerPlayLogic liveLogic(other.scope.nodes(), other.basePath);
    other.client->playContainer(live, live, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return other.streamer.playNode().count() == 1; }));
    other.streamer.publish(spltest::streamerData(1, ZuvoPlayLogicState::playing, live));
    ASSERT_TRUE(waitUntil([&] { return other.client->data().streamId() == 1; }));
    other.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(waitUntil([&] { return other.streamer.stopNode().count() == 1; }));
    // The streamer asks for the next media before its stop is through.
    ASSERT_TRUE(QMetaObject::invokeMethod(&liveLogic, "on_streamerController_prepareNextMedia"));
    ASSERT_TRUE(waitUntil([&] { return other.streamer.clearNextMediaNode().count() == 1; }));
    EXPECT_EQ(other.streamer.setNextMediaNode().count(), 0);
}

TEST_F(PipelineTest, DerivedPlayLogicQueuesItsNextTrack) {
    LogCapture log;
    const ZuvoRoles first = spltest::item({QStringLiteral("http://t/1")});
    const ZuvoRoles second = spltest::item({QStringLiteral("http://t/2")});
    logic->upcoming.append(second);
    ZuvoStreamerData data = spltest::playAndStart(h, first);
    ASSERT_FALSE(data.isEmpty());
    data.setTrackNearEnd(true);
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.setNextMediaNode().count() == 1; }));
    EXPECT_EQ(logic->prepareNextMediaCalls, 1);
    EXPECT_EQ(h.streamer.clearNextMediaNode().count(), 0);

    // The streamer moves on to the queued track (playback id 2).
    h.streamer.publish(spltest::streamerData(2, ZuvoPlayLogicState::playing, second));
    ASSERT_TRUE(waitUntil([&] { return published().streamId() == 2; }));
    EXPECT_EQ(activeUri(published().trackRoles()), QStringLiteral("http://t/2"));
    EXPECT_EQ(activeUri(logic->currentTrackRoles()), QStringLiteral("http://t/2"));
    EXPECT_EQ(log.count(QStringLiteral("New media started, with track roles: ")), 2);
}

TEST_F(PipelineTest, StatusOnlyChangeLeavesTheState) {
    EXPECT_EQ(logic->currentStreamId(), -1);
    ZuvoStreamerData data = spltest::playAndStart(h, spltest::item({QStringLiteral("http://a/1")}));
    ASSERT_FALSE(data.isEmpty());
    LogCapture log;
    ZuvoPlayLogicStatus status = data.status();
    status.setTimeSeek(true);
    data.setStatus(status);
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return published().status().timeSeek(); }));
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::playing);
    EXPECT_FALSE(log.contains(QStringLiteral("Old state: ")));

    // A new playback id that carries an error is no new media.
    ZuvoStreamerData failing =
        spltest::withError(spltest::streamerData(7, ZuvoPlayLogicState::playing, ZuvoRoles()),
                           QStringLiteral("x"), -16, QString());
    failing.setState(ZuvoPlayLogicState::playing);
    h.streamer.publish(failing);
    zuvotest::drainEvents();
    EXPECT_EQ(log.count(QStringLiteral("New media started")), 0);
}

TEST_F(PipelineTest, BufferingLevelIsPublishedAsIs) {
    ASSERT_FALSE(spltest::playAndStart(h, spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    h.streamer.publishBufferingLevel(57.0);
    ASSERT_TRUE(waitUntil([&] { return h.client->bufferLevel() == 57.0; }));
}

TEST_F(PipelineTest, RefusedMediaStillAnswersPlayAndStopClearsAtOnce) {
    h.streamer.playNode().setAnswer([](const CMSetDataRequest& request) {
        request.reply().setError(
            CMError(QStringLiteral("refused"), QStringLiteral("t"), QStringLiteral("No")));
    });
    const CMReply<QVariant> play =
        h.client->playContainer(ZuvoRoles(), spltest::item({QStringLiteral("x")}), 0, 0);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 1; }));
    EXPECT_TRUE(play.isFinished());
    EXPECT_FALSE(play.hasError());
    zuvotest::drainEvents();
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::Enum(1));

    LogCapture log;
    const CMReply<QVariant> stop = h.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }))
        << log.toString().toStdString();
    EXPECT_FALSE(stop.hasError());
    EXPECT_TRUE(log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("Playback is already stopped")));
    EXPECT_EQ(h.client->bufferLevel(), -1.0);
}

TEST_F(PipelineTest, DestroyingWhilePlayingStopsTheStreamer) {
    ASSERT_FALSE(spltest::playAndStart(h, spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    LogCapture log;
    logic.reset();
    EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL,
                             QStringLiteral("Deleting streamer playlogic while not stopped")));
    ASSERT_TRUE(waitUntil([&] { return h.streamer.stopNode().count() == 1; }));
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::stopped);
}

} // namespace
