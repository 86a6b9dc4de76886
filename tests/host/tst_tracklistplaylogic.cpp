#include <QObject>
#include <gtest/gtest.h>
#include <memory>

#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "support/eventloop.h"
#include "support/streamerplaylogicfixture.h"
#include "support/teststreamerservice.h"
#include "tracklistplaylogic.h"

// TrackListPlayLogic driven through PlayLogicInterface, on a
// TestStreamerService (its answers give playback ids 1, 2, 3, ... in order).

using Command = TestStreamerService::Command;
using Mode = ZuvoPlayerPlayMode;
using State = ZuvoPlayLogicState;
using zuvotest::waitUntil;

namespace {

ZuvoRoles item(const QString& title, const QStringList& uris = {}) {
    ZuvoList<ZuvoResource> resources;
    for (const QString& uri : uris.isEmpty() ? QStringList{"sim://" + title} : uris) {
        ZuvoResource resource;
        resource.setUri(uri);
        resources.append(resource);
    }
    ZuvoMediaData mediaData;
    mediaData.setResources(resources);
    ZuvoRoles roles;
    roles.setTitle(title);
    roles.setMediaData(mediaData);
    return roles;
}

TEST(TrackList, OrderEdgesAndAlternatesOfOneLiveItem) {
    // The orders the play logic tests do not walk.
    const TrackList list({item("a"), item("b"), item("c")});
    const std::vector<int> orders = {list.previous(0, Mode::repeatAll),   list.next(2, Mode::repeatAll),
                                     list.next(1, Mode::repeatOne),       list.next(2, Mode::repeatOne),
                                     list.following(2, Mode::normal),     list.next(-1, Mode::repeatAll),
                                     list.following(3, Mode::repeatOne),  list.previous(3, Mode::repeatAll),
                                     TrackList().next(0, Mode::repeatAll)};
    EXPECT_EQ(orders, std::vector<int>({2, 0, 2, -1, -1, -1, -1, -1, -1}));

    // Consecutive rows with one title are the alternates of one live item;
    // untitled rows never group; a title met again later is a new item. Per
    // item: title, active resource, resources, live.
    QStringList items;
    for (const ZuvoRoles& roles :
         TrackList::groupAlternates({item("Radio", {"sim://r1"}), item("Radio", {"sim://r2"}), item("Song"),
                                     item("", {"sim://x"}), item("", {"sim://y"}), item("Radio")})) {
        const ZuvoMediaData mediaData = roles.mediaData();
        items << roles.title() + ' ' + mediaData.activeResource().uri();
        for (const ZuvoResource& resource : mediaData.resources())
            items.last() += ' ' + resource.uri();
        items.last() += mediaData.metaData().live() ? " live" : "";
    }
    EXPECT_EQ(items, QStringList({"Radio sim://r1 sim://r1 sim://r2 live", "Song  sim://Song", "  sim://x",
                                  "  sim://y", "Radio  sim://Radio"}));
}

class TrackListPlayLogicTest : public ::testing::Test {
protected:
    void SetUp() override {
        logic = std::make_unique<TrackListPlayLogic>(scope.nodes(), basePath);
        logic->setTracks({item("one"), item("two"), item("three")});
        QObject::connect(logic.get(), &PlayLogicBase::playbackDataChanged, &context,
                         [this](const ZuvoPlayLogicData& data) { states.append(data.state()); });
    }

    ZuvoPlayLogicData published() const { return client->data(); }
    // Title of the roles sent with the n-th (from 1) invocation of command.
    QString sent(Command command, int n) {
        if (!streamer.waitForCount(command, n))
            return QStringLiteral("<not sent>");
        return ZuvoStreamerPlayArgs(streamer.invocations(command).at(n - 1).args()).roles().title();
    }
    // The streamer reports playback id playing the roles it was sent last
    // with command.
    void streamerPlays(int playbackId, Command command, bool nearEnd = false) {
        ZuvoStreamerData data = TestStreamerService::makeData(playbackId, State::playing);
        data.setTrackRoles(ZuvoStreamerPlayArgs(streamer.last(command).args()).roles());
        data.setTrackNearEnd(nearEnd);
        streamer.publishData(data);
        ASSERT_TRUE(waitUntil([&] { return published().streamId() == playbackId; }));
    }
    // Plays from index and lets the streamer start it as playback 1.
    void startAt(int index) {
        client->playContainer(ZuvoRoles(), ZuvoRoles(), index, 0);
        ASSERT_TRUE(streamer.waitForCount(Command::play, 1));
        streamerPlays(1, Command::play);
    }

    CMRootScope scope;
    TestStreamerService streamer{scope.nodes()};
    const CMPath basePath{"/test/trackList"};
    PlayLogicInterface* client = PlayLogicInterface::instance(basePath);
    QObject context;
    QList<State::Enum> states;
    std::unique_ptr<TrackListPlayLogic> logic; // the last member: destroyed first
};

// An item that ends before its successor was queued (the next media
// refused) is followed by a play of the successor; the playback goes on.
TEST_F(TrackListPlayLogicTest, ItemEndingWithNothingQueuedIsFollowedByAPlay) {
    startAt(1);
    streamer.failNext(Command::setNextMedia, CMError(QStringLiteral("NotPlaying"), TrString("too late")));
    streamerPlays(1, Command::play, true);
    EXPECT_EQ(sent(Command::setNextMedia, 1), QStringLiteral("three"));
    ZuvoStreamerData data = TestStreamerService::makeData(1, State::stopped);
    data.setError(TestStreamerService::makeError(-13));
    streamer.publishData(data);
    EXPECT_EQ(sent(Command::play, 2), QStringLiteral("three"));
    streamerPlays(2, Command::play);
    EXPECT_EQ(logic->currentIndex(), 2);
    EXPECT_FALSE(states.contains(State::stopped));
}
// Skips and set-current-track play the chosen items; the play mode decides
// what follows the last one, even once queued (modes not offered:
// tst_streamerplaylogic).
TEST_F(TrackListPlayLogicTest, SkipsSetCurrentTrackAndPlayModeChooseTheItems) {
    startAt(0);
    const struct {
        const char* what;
        std::function<CMReply<QVariant>()> command;
        const char* expectedTitle; // nullptr: no play is sent
        bool expectError;
    } steps[] = {
        {"previous on the first item restarts it", [&] { return client->previous(); }, "one", false},
        {"next", [&] { return client->next(); }, "two", false},
        {"set current track", [&] { return client->setCurrentTrack(2); }, "three", false},
        {"set current track outside the list", [&] { return client->setCurrentTrack(7); }, nullptr, true},
        {"next on the last item is off", [&] { return client->next(); }, nullptr, false},
    };
    int plays = 1;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        const CMReply<QVariant> reply = step.command();
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }));
        EXPECT_EQ(reply.hasError(), step.expectError) << reply.error().message().toStdString();
        if (!step.expectedTitle) {
            zuvotest::drainEvents();
            EXPECT_EQ(streamer.count(Command::play), plays);
            continue;
        }
        EXPECT_EQ(sent(Command::play, ++plays), QLatin1String(step.expectedTitle));
        EXPECT_EQ(reply.value().toInt(), plays) << "the streamer's playback id of the new item";
        streamerPlays(plays, Command::play);
        EXPECT_EQ(published().trackRoles().title(), QLatin1String(step.expectedTitle));
    }
    EXPECT_FALSE(published().controls().next_()) << "on the last item";

    // Normal mode: nothing follows the last item; other modes re-queue.
    streamerPlays(plays, Command::play, true);
    ASSERT_TRUE(streamer.waitForCount(Command::clearNextMedia, 1));
    EXPECT_EQ(streamer.count(Command::setNextMedia), 0);

    const CMReply<QVariant> repeatAll = client->changePlayMode(Mode::repeatAll);
    EXPECT_EQ(sent(Command::setNextMedia, 1), QStringLiteral("one"));
    EXPECT_FALSE(repeatAll.hasError());
    EXPECT_EQ(client->playMode(), Mode::repeatAll);
    EXPECT_TRUE(published().controls().next_());

    const CMReply<QVariant> repeatOne = client->changePlayMode(Mode::repeatOne);
    EXPECT_EQ(sent(Command::setNextMedia, 2), QStringLiteral("three"));
    EXPECT_GE(streamer.count(Command::clearNextMedia), 2);
    // The streamer switches to the queued item: the same one again.
    streamerPlays(plays + 1, Command::setNextMedia);
    EXPECT_EQ(logic->currentIndex(), 2);
    EXPECT_TRUE(repeatOne.isFinished());
}

// Plays refused at once (an index outside the list, an empty list) publish
// nothing; a pre-play service that never answers does not hold up a stop.
TEST_F(TrackListPlayLogicTest, RefusedPlaysPublishNothingAndStopDoesNotWaitForAPrePlay) {
    const CMReply<QVariant> outside = client->playContainer(ZuvoRoles(), ZuvoRoles(), 3, 0);
    ASSERT_TRUE(waitUntil([&] { return outside.isFinished(); }));
    logic->setTracks({});
    const CMReply<QVariant> empty = client->play(item("elsewhere"));
    ASSERT_TRUE(waitUntil([&] { return empty.isFinished(); }));
    EXPECT_TRUE(outside.hasError());
    EXPECT_TRUE(empty.hasError());
    EXPECT_TRUE(states.isEmpty());

    TestServiceNode prePlay(scope.nodes(), CMPath("/service/prePlay")); // silent
    prePlay.hold = true;
    logic->setTracks({spltest::withMetaData(item("guarded"), [](ZuvoMetaData& metaData) {
        metaData.setPrePlayPath(CMPath("/service/prePlay"));
    })});
    const CMReply<QVariant> play = client->play(ZuvoRoles());
    ASSERT_TRUE(waitUntil([&] { return prePlay.requests.size() == 1; }));
    EXPECT_FALSE(play.isFinished());
    const CMReply<QVariant> stop = client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(waitUntil([&] { return stop.isFinished(); }));
    EXPECT_FALSE(stop.hasError());
    ASSERT_TRUE(waitUntil([&] { return published().state() == State::stopped; }));
    EXPECT_TRUE(play.isFinished());
    EXPECT_EQ(streamer.count(Command::play), 0);

    // Stopped, a mode change is answered at once and offers what follows.
    const CMReply<QVariant> mode = client->changePlayMode(Mode::repeatAll);
    ASSERT_TRUE(waitUntil([&] { return mode.isFinished(); }));
    EXPECT_FALSE(mode.hasError());
    EXPECT_EQ(std::make_tuple(client->playMode(), published().controls().next_()),
              std::make_tuple(Mode::repeatAll, true)); // the one item repeats
}

} // namespace
