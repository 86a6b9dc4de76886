// Control handlers: control-key checks, seeking, the pause toggle and play
// modes, driven through the client and observed at the streamer's nodes.

#include <QDateTime>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/streamerplaylogicfixture.h"

using zuvotest::waitUntil;

namespace {

template <typename Logic> class ControlsTestBase : public ::testing::Test {
protected:
    void SetUp() override {
        logic = std::make_unique<Logic>(h.scope.nodes(), h.basePath);
        data = spltest::playAndStart(h, spltest::item({QStringLiteral("http://a/1")}));
        ASSERT_FALSE(data.isEmpty());
    }

    ZuvoPlayLogicData published() const { return h.client->data(); }

    // Lets the streamer report a seekable stream of 60 s at play time 55 s.
    void makeSeekable() {
        ZuvoPlayLogicStatus status;
        status.setDuration(60000);
        status.setTimeSeek(true);
        status.setByteSeek(true);
        data.setStatus(status);
        h.streamer.publish(data);
        ASSERT_TRUE(waitUntil([&] { return published().status().timeSeek(); }));
        h.streamer.publishPlayTime(55000);
        ASSERT_TRUE(waitUntil([&] { return h.client->playTime() == 55000; }));
    }

    CMReply<QVariant> finished(const CMReply<QVariant>& reply) {
        EXPECT_TRUE(waitUntil([&] { return reply.isFinished(); }));
        zuvotest::drainEvents();
        return reply;
    }

    SplHarness h;
    std::unique_ptr<Logic> logic;
    ZuvoStreamerData data;
};

using ControlsOffTest = ControlsTestBase<StreamerPlayLogic>;
using ControlsOnTest = ControlsTestBase<TestStreamerPlayLogic>;

TEST_F(ControlsOffTest, DisabledControlsSucceedAndSendNothing) {
    makeSeekable();
    struct Row {
        std::function<CMReply<QVariant>(PlayLogicInterface*)> send;
        const char* line;
    };
    const Row rows[] = {
        {[](PlayLogicInterface* c) { return c->pause(); }, "Pause control is not enabled"},
        {[](PlayLogicInterface* c) { return c->previous(); }, "Previous control is not enabled"},
        {[](PlayLogicInterface* c) { return c->next(); }, "Next control is not enabled"},
        {[](PlayLogicInterface* c) { return c->seekTime(1000); }, "SeekTime control is not enabled"},
        // The byte seek deliberately shares the time-seek text.
        {[](PlayLogicInterface* c) { return c->seekBytes(1000); }, "SeekTime control is not enabled"},
        {[](PlayLogicInterface* c) { return c->setCurrentTrack(2); }, "SeekTrack control is not enabled"},
        {[](PlayLogicInterface* c) { return c->like(); }, "Like control is not enabled"},
        {[](PlayLogicInterface* c) { return c->dislike(); }, "Dislike control is not enabled"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        LogCapture log;
        const CMReply<QVariant> reply = finished(row.send(h.client));
        EXPECT_FALSE(reply.hasError());
        EXPECT_TRUE(log.contains(log4cplus::DEBUG_LOG_LEVEL, QString::fromUtf8(row.line)))
            << log.toString().toStdString();
    }
    EXPECT_EQ(h.streamer.pauseNode().count(), 0);
    EXPECT_EQ(h.streamer.resumeNode().count(), 0);
    EXPECT_EQ(h.streamer.seekNode().count(), 0);
}

TEST_F(ControlsOnTest, InternalVariantsAnswerPerControl) {
    for (const auto& send :
         {std::function<CMReply<QVariant>()>([this] { return h.client->previous(); }),
          std::function<CMReply<QVariant>()>([this] { return h.client->like(); }),
          std::function<CMReply<QVariant>()>([this] { return h.client->dislike(); }),
          std::function<CMReply<QVariant>()>([this] { return h.client->setCurrentTrack(1); })}) {
        const CMReply<QVariant> reply = finished(send());
        EXPECT_EQ(reply.error().message(), QStringLiteral("Operation not supported."));
    }
    EXPECT_FALSE(finished(h.client->next()).hasError());
    EXPECT_EQ(h.streamer.playNode().count(), 1);
}

TEST_F(ControlsOnTest, SeekNeedsASeekableStream) {
    LogCapture log;
    EXPECT_FALSE(finished(h.client->seekTime(1000)).hasError());
    EXPECT_FALSE(finished(h.client->seekBytes(1000)).hasError());
    EXPECT_TRUE(
        log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("Stream is not seekable by time position")));
    EXPECT_TRUE(
        log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("Stream is not seekable by bytes position")));
    EXPECT_EQ(h.streamer.seekNode().count(), 0);
}

TEST_F(ControlsOnTest, SeekTimeAbsoluteRelativeAndClamped) {
    makeSeekable();
    const auto seekRelative = [this](qint64 relative) {
        ZuvoPlayLogicSeekArgs args;
        args.setControl(ZuvoPlayLogicControl::seekTime);
        args.setTimeRelative(relative);
        return finished(h.client->control(args, CMReply<QVariant>()));
    };
    struct Row {
        std::function<CMReply<QVariant>()> send;
        qint64 expectedMs;
    };
    const Row rows[] = {
        {[&] { return finished(h.client->seekTime(1234)); }, 1234},
        {[&] { return seekRelative(10000); }, 59000}, // never into the last second
        {[&] { return seekRelative(-100000); }, 0},   // never before the start
        {[&] { return seekRelative(-5000); }, 50000},
    };
    int sent = 0;
    for (const Row& row : rows) {
        EXPECT_FALSE(row.send().hasError());
        ASSERT_TRUE(waitUntil([&] { return h.streamer.seekNode().count() == sent + 1; }));
        EXPECT_EQ(ZuvoStreamerSeekPosition(h.streamer.seekNode().valueAt(sent)).timeMs(), row.expectedMs);
        ++sent;
    }
    EXPECT_FALSE(finished(h.client->seekBytes(4096)).hasError());
    ASSERT_TRUE(waitUntil([&] { return h.streamer.seekNode().count() == sent + 1; }));
    const ZuvoStreamerSeekPosition bytes(h.streamer.seekNode().valueAt(sent));
    EXPECT_EQ(bytes.bytes(), 4096);
    EXPECT_FALSE(bytes.isSetTimeMs());
}

TEST_F(ControlsOnTest, PauseTogglesAndSharesThePauseInstant) {
    const qint64 before = StreamerPlayLogic::pauseInstant();
    EXPECT_FALSE(finished(h.client->pause()).hasError());
    ASSERT_TRUE(waitUntil([&] { return h.streamer.pauseNode().count() == 1; }));
    EXPECT_GE(StreamerPlayLogic::pauseInstant(), before);
    EXPECT_GT(StreamerPlayLogic::pauseInstant(), 0);

    data.setState(ZuvoPlayLogicState::paused);
    h.streamer.publish(data);
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::paused; }));
    EXPECT_FALSE(finished(h.client->pause()).hasError());
    ASSERT_TRUE(waitUntil([&] { return h.streamer.resumeNode().count() == 1; }));
    EXPECT_EQ(h.streamer.pauseNode().count(), 1);
    EXPECT_EQ(h.streamer.playNode().count(), 1);
}

TEST_F(ControlsOnTest, ExpiredResourceWithoutPrePlayPathResumes) {
    ZuvoRoles track = spltest::item({QStringLiteral("http://b/1")});
    ZuvoMediaData mediaData = track.mediaData();
    ZuvoResource active = mediaData.activeResource();
    active.setValidUntil(QDateTime::currentMSecsSinceEpoch() - 1);
    mediaData.setActiveResource(active);
    track.setMediaData(mediaData);
    // Replace the running item (the base stops first, then plays).
    h.client->playContainer(ZuvoRoles(), track, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.stopNode().count() == 1; }));
    ZuvoStreamerData stopped = data;
    stopped.setState(ZuvoPlayLogicState::stopped);
    h.streamer.publish(stopped);
    ASSERT_TRUE(waitUntil([&] { return h.streamer.playNode().count() == 2; }));
    ZuvoStreamerData paused = spltest::streamerData(2, ZuvoPlayLogicState::paused, track);
    h.streamer.publish(paused);
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::paused; }));

    LogCapture log;
    EXPECT_FALSE(finished(h.client->pause()).hasError());
    ASSERT_TRUE(waitUntil([&] { return h.streamer.resumeNode().count() == 1; }));
    EXPECT_TRUE(
        log.contains(log4cplus::ERROR_LOG_LEVEL,
                     QStringLiteral("unpaused resource should be refetched from service, but preplaypath "
                                    "was cleared!")));
    EXPECT_EQ(h.streamer.playNode().count(), 2);
}

TEST_F(ControlsOnTest, PlayModesFollowThePublishedSupport) {
    LogCapture log;
    EXPECT_FALSE(finished(h.client->changePlayMode(ZuvoPlayerPlayMode::shuffle)).hasError());
    EXPECT_EQ(h.client->playMode(), ZuvoPlayerPlayMode::shuffle);
    EXPECT_TRUE(log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("Play mode is supported: ")));

    EXPECT_FALSE(finished(h.client->changePlayMode(ZuvoPlayerPlayMode::repeatOne)).hasError());
    EXPECT_EQ(h.client->playMode(), ZuvoPlayerPlayMode::shuffle);
    EXPECT_TRUE(log.contains(log4cplus::INFO_LOG_LEVEL, QStringLiteral("Play mode is not supported: ")));
    EXPECT_TRUE(log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("PlayMode is not supported")));

    EXPECT_FALSE(finished(h.client->changePlayMode(ZuvoPlayerPlayMode::Enum(9))).hasError());
    EXPECT_FALSE(finished(h.client->changePlayMode(ZuvoPlayerPlayMode::normal)).hasError());
    EXPECT_EQ(h.client->playMode(), ZuvoPlayerPlayMode::normal);
}

} // namespace
