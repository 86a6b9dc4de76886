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
using Command = TestStreamerService::Command;

namespace {

template <typename Logic> class ControlsTestBase : public SplTest<Logic> {
protected:
    void SetUp() override {
        SplTest<Logic>::SetUp();
        data = this->playAndStart(spltest::item({QStringLiteral("http://a/1")}));
        ASSERT_FALSE(data.isEmpty());
    }

    // Lets the streamer report a seekable stream of 60 s at play time 55 s.
    void makeSeekable() {
        ZuvoPlayLogicStatus status;
        status.setDuration(60000);
        status.setTimeSeek(true);
        status.setByteSeek(true);
        data.setStatus(status);
        this->h.streamer.publishData(data);
        ASSERT_TRUE(waitUntil([&] { return this->published().status().timeSeek(); }));
        this->h.streamer.publishPlayTime(55000);
        ASSERT_TRUE(waitUntil([&] { return this->h.client->playTime() == 55000; }));
    }

    CMReply<QVariant> finished(const CMReply<QVariant>& reply) {
        EXPECT_TRUE(waitUntil([&] { return reply.isFinished(); }));
        zuvotest::drainEvents();
        return reply;
    }

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
    EXPECT_EQ(h.count(Command::pause), 0);
    EXPECT_EQ(h.count(Command::resume), 0);
    EXPECT_EQ(h.count(Command::seek), 0);
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
    EXPECT_EQ(h.count(Command::play), 1);
}

TEST_F(ControlsOnTest, SeekNeedsASeekableStream) {
    LogCapture log;
    EXPECT_FALSE(finished(h.client->seekTime(1000)).hasError());
    EXPECT_FALSE(finished(h.client->seekBytes(1000)).hasError());
    EXPECT_TRUE(
        log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("Stream is not seekable by time position")));
    EXPECT_TRUE(
        log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("Stream is not seekable by bytes position")));
    EXPECT_EQ(h.count(Command::seek), 0);
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
        ASSERT_TRUE(h.waitForCount(Command::seek, sent + 1));
        EXPECT_EQ(ZuvoStreamerSeekPosition(h.streamer.invocations(Command::seek).at(sent).args()).timeMs(),
                  row.expectedMs);
        ++sent;
    }
    EXPECT_FALSE(finished(h.client->seekBytes(4096)).hasError());
    ASSERT_TRUE(h.waitForCount(Command::seek, sent + 1));
    const ZuvoStreamerSeekPosition bytes(h.streamer.last(Command::seek).args());
    EXPECT_EQ(bytes.bytes(), 4096);
    EXPECT_FALSE(bytes.isSetTimeMs());
}

// Pause toggles: in the paused state it resumes, checking the active
// resource's validity: a resource that was idle too long or has expired is
// fetched again through the item's pre-play node and continues at the play
// time of the pause.
TEST(StreamerPlayLogicResume, ExpiredResourceIsRefetchedOnResume) {
    const qint64 hour = 3600 * 1000;
    struct Row {
        const char* name;
        std::function<void(ZuvoResource&)> validity;
        bool prePlay;
        bool refetch;
    };
    const Row rows[] = {
        {"idle longer than allowed", [](ZuvoResource& r) { r.setMaxIdleTime(0); }, true, true},
        {"valid-until passed",
         [](ZuvoResource& r) { r.setValidUntil(QDateTime::currentMSecsSinceEpoch() - 1); }, true, true},
        {"idle time not reached", [&](ZuvoResource& r) { r.setMaxIdleTime(hour); }, true, false},
        {"valid-until ahead",
         [&](ZuvoResource& r) { r.setValidUntil(QDateTime::currentMSecsSinceEpoch() + hour); }, true, false},
        {"no validity", [](ZuvoResource&) {}, true, false},
        {"expired, pre-play path cleared",
         [](ZuvoResource& r) { r.setValidUntil(QDateTime::currentMSecsSinceEpoch() - 1); }, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SplWorld h;
        const auto logic = std::make_unique<TestStreamerPlayLogic>(h.scope.nodes(), h.basePath);
        // The pre-play node hands out the resource it is asked for.
        h.prePlay.setAnswer(
            [](const CMSetDataRequest& request) { request.reply().setValue(request.data()); });
        ZuvoRoles track =
            spltest::withActiveResource(spltest::item({QStringLiteral("http://p/1")}), row.validity);
        if (row.prePlay)
            track = spltest::withPrePlay(track, SplWorld::prePlayPath());

        h.client->playContainer(ZuvoRoles(), track, 0, 0);
        ASSERT_TRUE(h.waitForCount(Command::play, 1));
        ZuvoStreamerData data =
            spltest::streamerData(1, ZuvoPlayLogicState::playing, h.sent(Command::play, 0).roles());
        h.streamer.publishData(data);
        ASSERT_TRUE(waitUntil([&] { return h.published().state() == ZuvoPlayLogicState::playing; }));
        h.streamer.publishPlayTime(42000);
        ASSERT_TRUE(waitUntil([&] { return h.client->playTime() == 42000; }));
        const qint64 pausedBefore = StreamerPlayLogic::pauseInstant();
        h.client->pause();
        ASSERT_TRUE(h.waitForCount(Command::pause, 1));
        EXPECT_GE(StreamerPlayLogic::pauseInstant(), pausedBefore);
        data.setState(ZuvoPlayLogicState::paused);
        h.streamer.publishData(data);
        ASSERT_TRUE(waitUntil([&] { return h.published().state() == ZuvoPlayLogicState::paused; }));
        const int prePlaysBefore = h.prePlay.count();

        LogCapture log;
        const CMReply<QVariant> resume = h.client->pause();
        if (row.refetch) {
            ASSERT_TRUE(h.waitForCount(Command::play, 2));
            ASSERT_EQ(h.prePlay.count(), prePlaysBefore + 1);
            EXPECT_EQ(ZuvoRoles(h.prePlay.valueAt(prePlaysBefore)).mediaData().metaData().prePlayTimeOffset(),
                      42000);
            EXPECT_EQ(h.sent(Command::play, 1).roles().mediaData().metaData().prePlayTimeOffset(), 42000);
            EXPECT_TRUE(log.contains(log4cplus::INFO_LOG_LEVEL,
                                     QStringLiteral("resource exceeded validity time, refetching resource "
                                                    "from service")));
        } else {
            ASSERT_TRUE(h.waitForCount(Command::resume, 1));
        }
        EXPECT_TRUE(waitUntil([&] { return resume.isFinished(); }));
        EXPECT_FALSE(resume.hasError());
        zuvotest::drainEvents();
        EXPECT_EQ(h.count(Command::pause), 1);
        EXPECT_EQ(h.count(Command::resume), row.refetch ? 0 : 1);
        EXPECT_EQ(h.count(Command::play), row.refetch ? 2 : 1);
        EXPECT_EQ(log.contains(log4cplus::ERROR_LOG_LEVEL,
                               QStringLiteral("unpaused resource should be refetched from service, but "
                                              "preplaypath was cleared!")),
                  !row.prePlay);
    }
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
