// Whole playback stories over the road the device uses: a client drives the
// play logic through PlayLogicInterface, the play logic drives the test
// streamer service through StreamerController and ZuvoStreamerInterface, and
// what the streamer publishes comes back as the play logic's "/data" record
// and values.

#include <QTimer>
#include <gtest/gtest.h>

#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/streamerplaylogicfixture.h"

using spltest::activeUri;
using zuvotest::waitUntil;

namespace {

using StoriesTest = SplTest<>;

TEST_F(StoriesTest, PlayNewMediaNearEndNoNextMediaEndOfStream) {
    LogCapture log;
    const ZuvoRoles track =
        spltest::item({QStringLiteral("http://radio/a.mp3")}, SplWorld::stateChangePath());
    const CMReply<QVariant> reply = h.client->playContainer(ZuvoRoles(), track, 0, 0);
    ASSERT_TRUE(h.waitForCount(Command::play, 1));
    EXPECT_TRUE(reply.isFinished());
    EXPECT_FALSE(reply.hasError());
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::loading);
    EXPECT_EQ(activeUri(h.sent(Command::play, 0).roles()), QStringLiteral("http://radio/a.mp3"));

    ZuvoStreamerData data = spltest::streamerData(1, ZuvoPlayLogicState::playing, track);
    h.streamer.publishData(data);
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::playing; }));
    EXPECT_TRUE(
        log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("New media started, with track roles: ")));
    EXPECT_EQ(logic->currentStreamId(), 1);
    ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 1; }));
    EXPECT_EQ(ZuvoPlayLogicData(h.stateChange.valueAt(0)).state(), ZuvoPlayLogicState::playing);

    h.streamer.publishPlayTime(59000);
    ASSERT_TRUE(waitUntil([&] { return h.client->playTime() == 59000; }));

    data.setTrackNearEnd(true);
    h.streamer.publishData(data);
    ASSERT_TRUE(h.waitForCount(Command::clearNextMedia, 1));
    EXPECT_EQ(logic->prepareNextMediaCalls, 1);
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::playing);

    h.streamer.publishData(spltest::stoppedWith(data, -13, QStringLiteral("endOfStream")));
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

    // Each failing resource is replaced by the next one, as a new playback.
    for (int failed = 1; failed <= 2; ++failed) {
        SCOPED_TRACE(failed);
        h.streamer.publishData(spltest::stoppedWith(data, -16, QStringLiteral("openFailed")));
        ASSERT_TRUE(h.waitForCount(Command::play, failed + 1));
        const ZuvoRoles sent = h.sent(Command::play, failed).roles();
        EXPECT_EQ(activeUri(sent), QStringLiteral("http://r/%1").arg(failed + 1));
        data = spltest::streamerData(failed + 1, ZuvoPlayLogicState::playing, sent);
        h.streamer.publishData(data);
        ASSERT_TRUE(waitUntil([&] { return published().streamId() == failed + 1; }));
    }
    EXPECT_EQ(log.count(QStringLiteral("Streamer error, one more resource available, starting new playback")),
              2);
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::playing);
    EXPECT_TRUE(published().error().isEmpty());
    EXPECT_EQ(activeUri(published().trackRoles()), QStringLiteral("http://r/3"));
}

TEST_F(StoriesTest, PlayWhilePlayingStopsOnceThenPlaysTheNewItem) {
    const ZuvoRoles first = spltest::item({QStringLiteral("http://a/1")});
    const ZuvoRoles second = spltest::item({QStringLiteral("http://b/2")});
    const ZuvoRoles third = spltest::item({QStringLiteral("http://c/3")});
    const ZuvoStreamerData running = playAndStart(first);
    PublishedStates states(logic.get());

    const CMReply<QVariant> replaced = h.client->playContainer(ZuvoRoles(), second, 0, 0);
    const CMReply<QVariant> latest = h.client->playContainer(ZuvoRoles(), third, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return replaced.isFinished(); }));
    EXPECT_EQ(replaced.error().name(), CMVoidReply::ErrorCancel());
    ASSERT_TRUE(h.waitForCount(Command::stop, 1));

    // The streamer reports its stop; the play logic ends the first playback
    // and the waiting play runs.
    ZuvoStreamerData stopped = running;
    stopped.setState(ZuvoPlayLogicState::stopped);
    h.streamer.publishData(stopped);
    ASSERT_TRUE(h.waitForCount(Command::play, 2));
    EXPECT_EQ(h.count(Command::stop), 1);
    EXPECT_EQ(activeUri(h.sent(Command::play, 1).roles()), QStringLiteral("http://c/3"));
    EXPECT_TRUE(latest.isFinished());
    EXPECT_FALSE(latest.hasError());
    EXPECT_EQ(activeUri(published().trackRoles()), QStringLiteral("http://c/3"));
    // The streamer's stop shows as loading until the old playback's end is
    // published; only then does the new play start.
    EXPECT_EQ(states.states,
              QList<ZuvoPlayLogicState::Enum>(
                  {ZuvoPlayLogicState::loading, ZuvoPlayLogicState::stopped, ZuvoPlayLogicState::loading}));
}

// A stop of the user is final: a streamer that then fails is not led on to
// another resource, and the item's owner learns of the user's stop.
TEST_F(StoriesTest, UserStopIsFinalEvenWhenTheStreamerThenFails) {
    const ZuvoRoles live = spltest::item({QStringLiteral("http://l/1"), QStringLiteral("http://l/2")},
                                         SplWorld::stateChangePath(), true);
    const ZuvoStreamerData data = playAndStart(live, live);
    ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 1; }));

    LogCapture log;
    const CMReply<QVariant> stop = h.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(h.waitForCount(Command::stop, 1));
    EXPECT_TRUE(stop.isFinished());
    EXPECT_FALSE(stop.hasError());
    h.streamer.publishData(
        spltest::stoppedWith(data, -16, QStringLiteral("openFailed"), QStringLiteral("gst")));
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }))
        << log.toString().toStdString();
    EXPECT_TRUE(log.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("Failed to stop streamer: ")));

    zuvotest::drainEvents();
    EXPECT_EQ(h.count(Command::play), 1);
    EXPECT_EQ(h.count(Command::setNextMedia), 0);
    ASSERT_EQ(h.stateChange.count(), 2);
    const ZuvoPlayLogicData report(h.stateChange.valueAt(1));
    EXPECT_EQ(report.state(), ZuvoPlayLogicState::stopped);
    EXPECT_EQ(report.error(), ZuvoPlaylogicErrorName::ZuvoPlaylogicUserStop());
    EXPECT_EQ(h.client->bufferLevel(), -1.0);
}

TEST_F(StoriesTest, StopDuringPrePlayDropsTheAnswer) {
    h.prePlay.holdRequests(true);
    const ZuvoRoles track =
        spltest::withPrePlay(spltest::item({QStringLiteral("http://p/1")}), SplWorld::prePlayPath());
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
    EXPECT_EQ(h.count(Command::play), 0);
}

TEST_F(StoriesTest, StreamerCrashMidPlayPublishesStreamCrashed) {
    QTimer* const timer = spltest::errorReportTimer(*logic);
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->interval(), 2000);
    ASSERT_FALSE(playAndStart(spltest::item({QStringLiteral("http://a/1")})).isEmpty());

    // A restarted streamer publishes data without a playback id.
    h.streamer.publishData(TestStreamerService::restartedData());
    ASSERT_TRUE(waitUntil([&] { return !published().error().isEmpty(); }));
    EXPECT_EQ(published().error(), QStringLiteral("The streamer crashed"));
    EXPECT_EQ(published().streamerError().name(), ZuvoStreamerErrorCrashed());
    EXPECT_TRUE(timer->isActive());
}

} // namespace
