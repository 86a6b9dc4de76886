#include <QObject>
#include <gtest/gtest.h>
#include <memory>

#include "model/cmactivatenode.h"
#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "support/eventloop.h"
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
    for (const QString& uri : uris.isEmpty() ? QStringList{QStringLiteral("sim://") + title} : uris) {
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
    // The orders the play logic tests below do not walk.
    const TrackList list({item("a"), item("b"), item("c")});
    EXPECT_EQ(list.previous(0, Mode::repeatAll), 2);
    EXPECT_EQ(list.next(2, Mode::repeatAll), 0);
    EXPECT_EQ(list.next(1, Mode::repeatOne), 2);
    EXPECT_EQ(list.next(2, Mode::repeatOne), -1);
    EXPECT_EQ(list.following(2, Mode::normal), -1);
    for (const int outside : {-1, 3}) {
        EXPECT_EQ(list.next(outside, Mode::repeatAll), -1);
        EXPECT_EQ(list.following(outside, Mode::repeatOne), -1);
        EXPECT_EQ(list.previous(outside, Mode::repeatAll), -1);
    }
    EXPECT_EQ(TrackList().next(0, Mode::repeatAll), -1);
    // The first resource becomes the active one, so fall-back can find it.
    EXPECT_EQ(list.at(0).mediaData().activeResource().uri(), QStringLiteral("sim://a"));

    // Consecutive rows with one title are the alternates of one live item;
    // untitled rows never group; a title met again later is a new item.
    const QList<ZuvoRoles> items =
        TrackList::groupAlternates({item("Radio", {"sim://r1"}), item("Radio", {"sim://r2"}), item("Song"),
                                    item("", {"sim://x"}), item("", {"sim://y"}), item("Radio")});
    ASSERT_EQ(items.size(), 5);
    const ZuvoMediaData radio = items.at(0).mediaData();
    ASSERT_EQ(radio.resources().size(), 2);
    EXPECT_EQ(radio.resources().at(1).uri(), QStringLiteral("sim://r2"));
    EXPECT_EQ(radio.activeResource().uri(), QStringLiteral("sim://r1"));
    EXPECT_TRUE(radio.metaData().live());
    EXPECT_FALSE(items.at(1).mediaData().metaData().live());
    EXPECT_EQ(items.at(2).mediaData().resources().size(), 1);
    EXPECT_EQ(items.at(4).title(), QStringLiteral("Radio"));
    EXPECT_EQ(items.at(4).mediaData().resources().size(), 1);
}

// A pre-play service that has gone silent: it records requests and never
// answers them.
struct SilentNode : QObject {
    SilentNode(CMNodes* nodes, const CMPath& path) {
        CMActivateNode* node = CMActivateNode::create(nodes, path);
        node->setParent(this);
        node->setInvoke(this, &SilentNode::invoked, Qt::QueuedConnection);
    }
    void invoked(const CMSetDataRequest& request) { requests.append(request); }
    QList<CMSetDataRequest> requests;
};

class TrackListPlayLogicTest : public ::testing::Test {
protected:
    void SetUp() override {
        logic = std::make_unique<TrackListPlayLogic>(scope.nodes(), basePath);
        logic->setTracks({item("one"), item("two"), item("three")});
        QObject::connect(logic.get(), &PlayLogicBase::playbackDataChanged, &context,
                         [this](const ZuvoPlayLogicData& data) { states.append(data.state()); });
    }
    void TearDown() override { logic.reset(); }

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
    void streamerStops(int playbackId, int code, const QString& message = QString()) {
        ZuvoStreamerData data = streamer.data();
        data.setPlaybackId(playbackId);
        data.setState(State::stopped);
        data.setTrackNearEnd(false);
        data.setError(TestStreamerService::makeError(code, QStringLiteral("StreamerError"), message));
        streamer.publishData(data);
    }
    // Plays from index and lets the streamer start it as playback 1.
    void startAt(int index) {
        client->playContainer(ZuvoRoles(), ZuvoRoles(), index, 0);
        ASSERT_TRUE(streamer.waitForCount(Command::play, 1));
        streamerPlays(1, Command::play);
    }
    bool waitForState(State::Enum state) {
        return waitUntil([&] { return published().state() == state; });
    }

    CMRootScope scope;
    TestStreamerService streamer{scope.nodes()};
    const CMPath basePath{"/test/trackList"};
    PlayLogicInterface* client = PlayLogicInterface::instance(basePath);
    QObject context;
    QList<State::Enum> states;
    std::unique_ptr<TrackListPlayLogic> logic;
};

// Each way an item ends without a successor leads to a play of the next:
// a failure (shown, the playback goes on), an end with the next media
// refused; the last item's failure ends the playback with its error. (A
// list played gaplessly to its end: tst_zuvoplay.cpp.)
TEST_F(TrackListPlayLogicTest, ItemEndingWithNothingQueuedIsFollowedByAPlay) {
    startAt(0);
    streamerStops(1, -16, QStringLiteral("open failed"));
    EXPECT_EQ(sent(Command::play, 2), QStringLiteral("two"));
    EXPECT_EQ(published().error(), QStringLiteral("Could not open stream!"));
    streamerPlays(2, Command::play);

    streamer.failNext(Command::setNextMedia, CMError(QStringLiteral("NotPlaying"), TrString("too late")));
    streamerPlays(2, Command::play, true);
    EXPECT_EQ(sent(Command::setNextMedia, 1), QStringLiteral("three"));
    streamerStops(2, -13);
    EXPECT_EQ(sent(Command::play, 3), QStringLiteral("three"));
    streamerPlays(3, Command::play);
    EXPECT_EQ(logic->currentIndex(), 2);
    EXPECT_FALSE(states.contains(State::stopped));

    streamerStops(3, -19, QStringLiteral("not found"));
    ASSERT_TRUE(waitForState(State::stopped));
    EXPECT_EQ(published().error(), QStringLiteral("Could not find source!"));
    EXPECT_EQ(streamer.count(Command::play), 3);
}

TEST_F(TrackListPlayLogicTest, SkipsAndSetCurrentTrackPlayTheChosenItems) {
    startAt(0);
    const struct {
        const char* what;
        std::function<CMReply<QVariant>()> command;
        const char* expectedTitle; // nullptr: no play is sent
        bool expectError;
    } steps[] = {
        {"next", [&] { return client->next(); }, "two", false},
        {"previous", [&] { return client->previous(); }, "one", false},
        {"previous on the first item restarts it", [&] { return client->previous(); }, "one", false},
        {"set current track", [&] { return client->setCurrentTrack(2); }, "three", false},
        {"set current track outside the list", [&] { return client->setCurrentTrack(7); }, nullptr, true},
        {"next on the last item is off", [&] { return client->next(); }, nullptr, false},
    };
    EXPECT_TRUE(published().controls().next_());
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
}

TEST_F(TrackListPlayLogicTest, SkipsWaitingForTheStreamerMergeAndCancelOut) {
    startAt(0);
    streamer.holdNext(Command::play);
    const CMReply<QVariant> first = client->next();
    ASSERT_TRUE(streamer.waitForCount(Command::play, 2));
    const CMReply<QVariant> second = client->next();
    const CMReply<QVariant> third = client->next();
    const CMReply<QVariant> back = client->previous();
    // The previous cancels one of the waiting nexts at once.
    ASSERT_TRUE(waitUntil([&] { return back.isFinished(); }));
    EXPECT_FALSE(back.hasError());
    EXPECT_FALSE(second.isFinished() && third.isFinished());

    ASSERT_TRUE(streamer.releaseHeld(Command::play, 2));
    ASSERT_TRUE(waitUntil([&] { return first.isFinished() && second.isFinished() && third.isFinished(); }));
    EXPECT_EQ(streamer.count(Command::play), 3);
    EXPECT_EQ(sent(Command::play, 2), QStringLiteral("two"));
    EXPECT_EQ(sent(Command::play, 3), QStringLiteral("three"));
    EXPECT_EQ(logic->currentIndex(), 2);
}

TEST_F(TrackListPlayLogicTest, PlayModeDecidesWhatFollowsEvenOnceQueued) {
    startAt(2);
    streamerPlays(1, Command::play, true);
    // Normal mode: nothing follows the last item.
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

    // Shuffle is not offered: the mode stays.
    const CMReply<QVariant> shuffle = client->changePlayMode(Mode::shuffle);
    ASSERT_TRUE(waitUntil([&] { return shuffle.isFinished(); }));
    EXPECT_EQ(client->playMode(), Mode::repeatOne);

    // The streamer switches to the queued item: the same one again.
    streamerPlays(3, Command::setNextMedia);
    EXPECT_EQ(logic->currentIndex(), 2);
    EXPECT_TRUE(repeatOne.isFinished());
}

// Plays refused at once (an index outside the list, an empty list) publish
// nothing; a play waiting for a pre-play service that never answers does not
// hold up a stop.
TEST_F(TrackListPlayLogicTest, RefusedPlaysPublishNothingAndStopDoesNotWaitForAPrePlay) {
    const CMReply<QVariant> outside = client->playContainer(ZuvoRoles(), ZuvoRoles(), 3, 0);
    ASSERT_TRUE(waitUntil([&] { return outside.isFinished(); }));
    logic->setTracks({});
    const CMReply<QVariant> empty = client->play(item("elsewhere"));
    ASSERT_TRUE(waitUntil([&] { return empty.isFinished(); }));
    EXPECT_TRUE(outside.hasError());
    EXPECT_TRUE(empty.hasError());
    EXPECT_TRUE(states.isEmpty());

    SilentNode prePlay(scope.nodes(), CMPath("/service/prePlay"));
    ZuvoRoles guarded = item("guarded");
    ZuvoMediaData mediaData = guarded.mediaData();
    ZuvoMetaData metaData = mediaData.metaData();
    metaData.setPrePlayPath(CMPath("/service/prePlay"));
    mediaData.setMetaData(metaData);
    guarded.setMediaData(mediaData);
    logic->setTracks({guarded});
    const CMReply<QVariant> play = client->play(ZuvoRoles());
    ASSERT_TRUE(waitUntil([&] { return prePlay.requests.size() == 1; }));
    EXPECT_FALSE(play.isFinished());
    const CMReply<QVariant> stop = client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(waitUntil([&] { return stop.isFinished(); }));
    EXPECT_FALSE(stop.hasError());
    ASSERT_TRUE(waitForState(State::stopped));
    EXPECT_TRUE(play.isFinished());
    EXPECT_EQ(streamer.count(Command::play), 0);
}

} // namespace
