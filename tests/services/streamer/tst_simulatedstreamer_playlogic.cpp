// End to end: a client drives the library's StreamerPlayLogic through
// PlayLogicInterface; the play logic drives the simulated streamer through
// its StreamerController and ZuvoStreamerInterface, over the model tree.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "playlistparsenode.h"
#include "playlogicinterface.h"
#include "streamerplaylogic.h"
#include "streamerworld.h"
#include "support/httptestserver.h"

using zuvotest::waitUntil;

namespace {

using State = ZuvoPlayLogicState;

// The play logic as a service with pause and seek would publish it: every
// media it starts allows both.
class ControlledPlayLogic : public StreamerPlayLogic {
public:
    using StreamerPlayLogic::StreamerPlayLogic;

    ZuvoPlayLogicData mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                           const ZuvoRoles& previousTrackRoles) override {
        ZuvoPlayLogicData data = StreamerPlayLogic::mediaPlaybackStarted(newTrackRoles, previousTrackRoles);
        ZuvoPlayLogicControls controls;
        controls.setPause(true);
        controls.setSeekTime(true);
        data.setControls(controls);
        return data;
    }
};

// A streamer, a play logic on it and the play logic's client, in a registry
// of their own.
struct Player {
    explicit Player(double speed)
        : world(std::make_unique<simtest::World>())
        , logic(std::make_unique<ControlledPlayLogic>(world->root.nodes(), base)) {
        world->streamer.setSpeed(speed);
    }
    ~Player() { logic.reset(); }

    ZuvoPlayLogicData published() const { return client->data(); }
    bool waitForState(State::Enum state, int timeoutMs = 5000) const {
        return waitUntil([&] { return published().state() == state; }, timeoutMs);
    }
    CMReply<QVariant> play(const ZuvoRoles& item) { return client->playContainer(item, item, 0, 0); }

    const CMPath base{"/test/simulatedPlayer"};
    PlayLogicInterface* client = PlayLogicInterface::instance(base);
    std::unique_ptr<simtest::World> world;
    std::unique_ptr<StreamerPlayLogic> logic;
    SimulatedStreamer& streamer() { return world->streamer; }
};

ZuvoRoles liveItem(const QStringList& uris) {
    ZuvoList<ZuvoResource> resources;
    for (const QString& uri : uris) {
        ZuvoResource resource;
        resource.setUri(uri);
        resources.append(resource);
    }
    ZuvoRoles item = simtest::track(uris.first());
    ZuvoMediaData mediaData = item.mediaData();
    ZuvoMetaData metaData;
    metaData.setLive(true);
    mediaData.setMetaData(metaData);
    mediaData.setResources(resources);
    item.setMediaData(mediaData);
    return item;
}

} // namespace

TEST(PlayLogicOnSimulatedStreamerTest, TrackPlaysToItsEndAndPlaybackEnds) {
    Player s(1000);
    const ZuvoRoles item = simtest::track(QStringLiteral("sim://demo/a.mp3?zuvo-duration=8000"));
    const CMReply<QVariant> reply = s.play(item);

    ASSERT_TRUE(s.waitForState(State::playing));
    EXPECT_FALSE(reply.hasError());
    EXPECT_EQ(s.published().streamId(), 1);
    EXPECT_EQ(s.published().status().duration(), 8000);
    EXPECT_EQ(s.published().trackRoles().title(), item.title());
    ASSERT_TRUE(waitUntil([&] { return s.client->playTime() > 0 && s.client->bufferLevel() == 100.0; }));

    ASSERT_TRUE(s.waitForState(State::stopped));
    EXPECT_TRUE(s.published().error().isEmpty());
    EXPECT_EQ(s.client->playTime(), 0);
    EXPECT_EQ(s.client->bufferLevel(), -1.0);
    // Asked for the next media at the near end, told there is none, never stopped.
    EXPECT_EQ(s.world->commands.first(), QStringLiteral("play"));
    EXPECT_TRUE(s.world->commands.contains(QStringLiteral("clearNextMedia")));
    EXPECT_FALSE(s.world->commands.contains(QStringLiteral("stop")));
    EXPECT_EQ(s.world->records.last().error().code(), -13);
}

TEST(PlayLogicOnSimulatedStreamerTest, LiveItemMovesToItsNextResourceGaplessly) {
    Player s(1000);
    const ZuvoRoles item = liveItem({QStringLiteral("sim://demo/first.mp3?zuvo-duration=6000"),
                                     QStringLiteral("sim://demo/second.mp3?zuvo-duration=6000")});
    s.play(item);
    ASSERT_TRUE(waitUntil([&] { return s.published().streamId() == 2; }));
    EXPECT_EQ(s.published().state(), State::playing);
    EXPECT_EQ(s.published().trackRoles().mediaData().activeResource().uri(),
              QStringLiteral("sim://demo/second.mp3?zuvo-duration=6000"));
    ASSERT_TRUE(s.waitForState(State::stopped));

    const QStringList& commands = s.world->commands;
    EXPECT_EQ(commands.count(QStringLiteral("play")), 1);
    EXPECT_EQ(commands.count(QStringLiteral("setNextMedia")), 1);
    EXPECT_FALSE(commands.contains(QStringLiteral("stop")));
    // The streamer never stopped between the two resources.
    const QList<ZuvoStreamerData>& records = s.world->records;
    for (int i = 0; i + 1 < records.size(); ++i)
        EXPECT_NE(records.at(i).state(), State::stopped) << "record " << i;
    EXPECT_EQ(records.last().playbackId(), 2);
    EXPECT_EQ(records.last().error().code(), -13);
}

TEST(PlayLogicOnSimulatedStreamerTest, StreamFailuresReachTheClientAsErrors) {
    struct Case {
        QString uri;
        QString message;
    };
    const std::vector<Case> cases = {
        {QStringLiteral("sim://demo/a.mp3?zuvo-error=-16"), QStringLiteral("Could not open stream!")},
        {QStringLiteral("sim://demo/a.mp3?zuvo-error=-17&zuvo-error-after=2000"),
         QStringLiteral("Access to this stream is not authorized by the content provider")},
        {QStringLiteral("sim://demo/a.mp3?zuvo-crash=3000&zuvo-duration=live"),
         QStringLiteral("The streamer crashed")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.uri.toStdString());
        Player s(1000);
        s.play(simtest::track(c.uri));
        ASSERT_TRUE(waitUntil([&] { return s.published().error() == c.message; }))
            << s.published().error().toStdString();
        EXPECT_EQ(s.published().streamId(), 1);
        EXPECT_FALSE(s.streamer().isActive());
    }
}

TEST(PlayLogicOnSimulatedStreamerTest, PauseResumeSeekAndStopFromTheClient) {
    Player s(20);
    s.play(simtest::track(QStringLiteral("sim://demo/long.mp3?zuvo-duration=3600000")));
    ASSERT_TRUE(s.waitForState(State::playing));

    s.client->pause();
    ASSERT_TRUE(s.waitForState(State::paused));
    EXPECT_EQ(s.streamer().data().state(), State::paused);
    const qint64 pausedAt = s.streamer().playTimeMs();

    // The play logic's pause toggles: a pause while paused resumes.
    s.client->pause();
    ASSERT_TRUE(s.waitForState(State::playing));
    EXPECT_TRUE(waitUntil([&] { return s.streamer().playTimeMs() > pausedAt; }));

    s.client->seekTime(1800000);
    ASSERT_TRUE(waitUntil([&] { return s.client->playTime() >= 1800000; }));
    EXPECT_GE(s.streamer().playTimeMs(), 1800000);

    s.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(s.waitForState(State::stopped));
    EXPECT_FALSE(s.streamer().isActive());
    EXPECT_EQ(s.world->records.last().state(), State::stopped);
    EXPECT_TRUE(s.world->records.last().error().isEmpty());
    const QStringList& commands = s.world->commands;
    EXPECT_EQ(commands.mid(commands.indexOf(QStringLiteral("pause"))),
              (QStringList{QStringLiteral("pause"), QStringLiteral("resume"), QStringLiteral("seek"),
                           QStringLiteral("stop")}));
}

TEST(PlayLogicOnSimulatedStreamerTest, PlaylistUriIsParsedAndItsFirstEntryPlays) {
    Player s(1000);
    zuvotest::HttpTestServer server;
    server.setResponse(QStringLiteral("/radio.pls"), 200,
                       "[playlist]\nFile1=sim://demo/stream.mp3?zuvo-duration=live\nTitle1=Radio\n"
                       "NumberOfEntries=1\nVersion=2\n",
                       {{"Content-Type", "audio/x-scpls"}});
    auto* parseNode = new PlayListParseNode(ZuvoPlayerContentPlayLogicPlaylistPath()); // the registry owns it
    parseNode->setNodes(s.world->root.nodes());

    s.play(simtest::track(server.url(QStringLiteral("/radio.pls"))));
    ASSERT_TRUE(waitUntil(
        [&] { return s.published().streamId() == 2 && s.published().state() == State::playing; }, 10000));
    EXPECT_EQ(server.requestCount(QStringLiteral("/radio.pls")), 1);
    EXPECT_EQ(s.published().trackRoles().mediaData().activeResource().uri(),
              QStringLiteral("sim://demo/stream.mp3?zuvo-duration=live"));
    EXPECT_TRUE(s.published().error().isEmpty());
    // The streamer refused the playlist as no stream it can play, then played the entry.
    const auto refused = std::find_if(s.world->records.begin(), s.world->records.end(),
                                      [](const ZuvoStreamerData& d) { return d.state() == State::stopped; });
    ASSERT_NE(refused, s.world->records.end());
    EXPECT_EQ(refused->playbackId(), 1);
    EXPECT_EQ(refused->error().code(), -15);
    EXPECT_EQ(s.streamer().data().status().duration(), -1);
}
