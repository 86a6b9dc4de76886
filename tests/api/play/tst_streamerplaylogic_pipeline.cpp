// The play-request queue with its pre-play step, resources and next media,
// and destruction.

#include <gtest/gtest.h>

#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/records.h"
#include "support/streamerplaylogicfixture.h"

using spltest::activeUri;
using zuvotest::waitUntil;

namespace {

using PipelineTest = SplTest<>;

ZuvoRoles withResources(const QList<ZuvoResource>& resources, const ZuvoResource& active) {
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>(resources));
    mediaData.setActiveResource(active);
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    return roles;
}

TEST_F(PipelineTest, NextActiveResourceHasNoWrapAroundAndNoLoop) {
    const ZuvoRoles abc = spltest::item(
        {QStringLiteral("http://r/a"), QStringLiteral("http://r/b"), QStringLiteral("http://r/c")});
    const QList<ZuvoResource> list = abc.mediaData().resources();
    EXPECT_EQ(activeUri(logic->nextActiveResource(abc)), QStringLiteral("http://r/b"));
    EXPECT_EQ(logic->activeResourcePosition(withResources(list, list.at(2))), 2);
    EXPECT_TRUE(logic->nextActiveResource(withResources(list, list.at(2))).isEmpty());
    EXPECT_TRUE(logic->nextActiveResource(spltest::item({QStringLiteral("http://r/a")})).isEmpty());

    ZuvoResource stranger;
    stranger.setUri(QStringLiteral("http://r/x"));
    EXPECT_EQ(logic->activeResourcePosition(withResources(list, stranger)), -1);
    EXPECT_TRUE(logic->nextActiveResource(withResources(list, stranger)).isEmpty());

    // Matching by uid wins over the uri; by data when neither is set.
    ZuvoResource byUid;
    byUid.setUid(QStringLiteral("u2"));
    ZuvoResource second = list.at(1);
    second.setUid(QStringLiteral("u2"));
    EXPECT_EQ(logic->activeResourcePosition(withResources({list.at(0), second, list.at(2)}, byUid)), 1);
    ZuvoResource d1;
    d1.setData(QVariant(1));
    ZuvoResource d2;
    d2.setData(QVariant(2));
    EXPECT_EQ(logic->activeResourcePosition(withResources({d1, d2}, d2)), 1);

    LogCapture log;
    EXPECT_TRUE(logic->nextActiveResource(withResources({list.at(0), list.at(0)}, list.at(0))).isEmpty());
    EXPECT_TRUE(log.contains(log4cplus::ERROR_LOG_LEVEL,
                             QStringLiteral("Next resource is equal to active, skip to prevent loop")));
}

TEST_F(PipelineTest, RequestsWithoutPrePlayReachTheStreamerInOrder) {
    ASSERT_FALSE(playAndStart(spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    const CMReply<QVariant> play =
        logic->sendPlayCommand(spltest::item({QStringLiteral("http://a/3")}),
                               {{ZuvoStreamerAttributesStartPaused(), QVariant(true)}});
    const CMReply<QVariant> next =
        logic->sendSetNextMediaCommand(spltest::item({QStringLiteral("http://a/2")}), {});
    ASSERT_TRUE(waitUntil([&] { return play.isFinished() && next.isFinished(); }));
    EXPECT_EQ(play.value().toInt(), 2);
    EXPECT_EQ(next.value().toInt(), 3);
    EXPECT_EQ(h.streamer.commands().mid(1, 2), QList<Command>({Command::play, Command::setNextMedia}));
    EXPECT_EQ(activeUri(h.sent(Command::play, 1).roles()), QStringLiteral("http://a/3"));
    EXPECT_TRUE(
        h.sent(Command::play, 1).attributes().toHash().value(ZuvoStreamerAttributesStartPaused()).toBool());
    // startPaused absent from the attributes means false.
    EXPECT_FALSE(h.sent(Command::play, 0)
                     .attributes()
                     .toHash()
                     .value(ZuvoStreamerAttributesStartPaused(), true)
                     .toBool());
    EXPECT_EQ(activeUri(h.sent(Command::setNextMedia, 0).roles()), QStringLiteral("http://a/2"));
}

TEST_F(PipelineTest, LaterRequestWaitsForThePrePlayAnswer) {
    ASSERT_FALSE(playAndStart(spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    h.prePlay.holdRequests(true);
    logic->sendPlayCommand(
        spltest::withPrePlay(spltest::item({QStringLiteral("http://p/1")}), SplWorld::prePlayPath()), {});
    const CMReply<QVariant> later = logic->sendPlayCommand(spltest::item({QStringLiteral("http://a/2")}), {});
    ASSERT_TRUE(waitUntil([&] { return h.prePlay.count() == 1; }));
    zuvotest::drainEvents();
    EXPECT_EQ(h.count(Command::play), 1);
    EXPECT_FALSE(later.isFinished());

    // The pre-play node rewrites the roles: its answer is what is played.
    ZuvoRoles rewritten = ZuvoRoles(h.prePlay.valueAt(0));
    rewritten.setTitle(QStringLiteral("fresh"));
    h.prePlay.requests().at(0).reply().setValue(rewritten.__variant());
    ASSERT_TRUE(h.waitForCount(Command::play, 3));
    EXPECT_EQ(h.sent(Command::play, 1).roles().title(), QStringLiteral("fresh"));
    EXPECT_EQ(activeUri(h.sent(Command::play, 2).roles()), QStringLiteral("http://a/2"));
}

TEST_F(PipelineTest, FailedPrePlayFallsBackToTheNextResourceThenReports) {
    LogCapture log;
    h.prePlay.setAnswer([](const CMSetDataRequest& request) {
        request.reply().setError(
            CMError(QStringLiteral("gone"), QStringLiteral("t"), QStringLiteral("Gone")));
    });
    const ZuvoRoles track = spltest::withPrePlay(
        spltest::item({QStringLiteral("http://p/1"), QStringLiteral("http://p/2")}), SplWorld::prePlayPath());
    h.client->playContainer(ZuvoRoles(), track, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return published().error() == QStringLiteral("Gone"); }));
    ASSERT_EQ(h.prePlay.count(), 2);
    EXPECT_EQ(activeUri(ZuvoRoles(h.prePlay.valueAt(0))), QStringLiteral("http://p/1"));
    EXPECT_EQ(activeUri(ZuvoRoles(h.prePlay.valueAt(1))), QStringLiteral("http://p/2"));
    EXPECT_EQ(log.count(QStringLiteral("prePlay request failed: ")), 2);
    EXPECT_EQ(h.count(Command::play), 0);
}

TEST_F(PipelineTest, StopCancelsQueuedRequests) {
    ASSERT_FALSE(playAndStart(spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    h.prePlay.holdRequests(true);
    const CMReply<QVariant> waiting = logic->sendPlayCommand(
        spltest::withPrePlay(spltest::item({QStringLiteral("http://p/1")}), SplWorld::prePlayPath()), {});
    h.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(waitUntil([&] { return waiting.isFinished(); }));
    EXPECT_EQ(waiting.error().message(), QStringLiteral("Play request cancelled"));
    EXPECT_EQ(waiting.error().name(), CMError::DefaultName());
}

// Every play starts from a fresh record: nothing of the previous playback
// (stream id, status, error, streamer error) is carried over.
TEST_F(PipelineTest, PlayPublishesAFreshRecord) {
    const ZuvoStreamerData data = playAndStart(spltest::item({QStringLiteral("http://a/1")}));
    h.streamer.publishData(spltest::stoppedWith(data, -16, QStringLiteral("openFailed")));
    ASSERT_TRUE(waitUntil([&] { return !published().error().isEmpty(); }));
    ASSERT_TRUE(published().isSetStreamId());

    ZuvoRoles media = spltest::item({QStringLiteral("http://b/1")});
    const ZuvoList<ZuvoRoles> matching({zuvotest::rolesTitled(QStringLiteral("matching"))});
    media = spltest::withMetaData(media, [&](ZuvoMetaData& m) { m.setMatchingMediaRoles(matching); });
    const ZuvoRoles track = spltest::item({QStringLiteral("http://b/2")});
    PublishedStates states(logic.get());
    ZuvoPlayLogicData fresh;
    QObject::connect(logic.get(), &PlayLogicBase::playbackDataChanged, &states,
                     [&fresh](const ZuvoPlayLogicData& d) {
                         if (d.state() == ZuvoPlayLogicState::loading && fresh.isEmpty())
                             fresh = d;
                     });
    h.client->playContainer(media, track, 0, 0);
    ASSERT_TRUE(waitUntil([&] { return !fresh.isEmpty(); }));
    EXPECT_TRUE(fresh.error().isEmpty());
    EXPECT_FALSE(fresh.isSetStreamId());
    EXPECT_FALSE(fresh.isSetStreamerError());
    EXPECT_FALSE(fresh.isSetStatus());
    EXPECT_EQ(fresh.mediaRoles(), media);
    EXPECT_EQ(fresh.trackRoles(), track);
    EXPECT_EQ(fresh.matchingMediaRoles(), matching);
}

TEST_F(PipelineTest, LiveMediaQueuesTheNextResourceAsNextMedia) {
    LogCapture log;
    const ZuvoRoles live =
        spltest::item({QStringLiteral("http://l/1"), QStringLiteral("http://l/2")}, CMPath(), true);
    ZuvoStreamerData data = playAndStart(live, live);
    data.setTrackNearEnd(true);
    h.streamer.publishData(data);
    ASSERT_TRUE(h.waitForCount(Command::setNextMedia, 1));
    EXPECT_EQ(activeUri(h.sent(Command::setNextMedia, 0).roles()), QStringLiteral("http://l/2"));
    EXPECT_TRUE(log.contains(log4cplus::DEBUG_LOG_LEVEL,
                             QStringLiteral("One more resource available, sending next media")));
    EXPECT_EQ(logic->prepareNextMediaCalls, 0);
    EXPECT_EQ(h.count(Command::clearNextMedia), 0);
}

TEST_F(PipelineTest, NoNextResourceForNonLiveMediaNorAfterStop) {
    const QStringList uris{QStringLiteral("http://l/1"), QStringLiteral("http://l/2")};
    const ZuvoRoles stored = spltest::item(uris, CMPath(), false);
    ZuvoStreamerData data = playAndStart(stored, stored);
    data.setTrackNearEnd(true);
    h.streamer.publishData(data);
    ASSERT_TRUE(h.waitForCount(Command::clearNextMedia, 1));
    EXPECT_EQ(h.count(Command::setNextMedia), 0);

    // Live media, but stopped by the user: nothing follows either.
    const ZuvoRoles live = spltest::item(uris, CMPath(), true);
    SplWorld other;
    TestStreamerPlayLogic liveLogic(other.scope.nodes(), other.basePath);
    ASSERT_FALSE(other.playAndStart(live, live).isEmpty());
    other.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(other.waitForCount(Command::stop, 1));
    // A stop of ours keeps the controller from asking; a derived play logic
    // may still ask before the stop is through.
    ASSERT_TRUE(QMetaObject::invokeMethod(&liveLogic, "on_streamerController_prepareNextMedia"));
    ASSERT_TRUE(other.waitForCount(Command::clearNextMedia, 1));
    EXPECT_EQ(other.count(Command::setNextMedia), 0);
}

TEST_F(PipelineTest, DerivedPlayLogicQueuesItsNextTrack) {
    LogCapture log;
    const ZuvoRoles first = spltest::item({QStringLiteral("http://t/1")});
    const ZuvoRoles second = spltest::item({QStringLiteral("http://t/2")});
    logic->upcoming.append(second);
    ZuvoStreamerData data = playAndStart(first);
    data.setTrackNearEnd(true);
    h.streamer.publishData(data);
    ASSERT_TRUE(h.waitForCount(Command::setNextMedia, 1));
    EXPECT_EQ(logic->prepareNextMediaCalls, 1);
    EXPECT_EQ(h.count(Command::clearNextMedia), 0);

    // The streamer moves on to the queued track (playback id 2).
    h.streamer.publishData(spltest::streamerData(2, ZuvoPlayLogicState::playing, second));
    ASSERT_TRUE(waitUntil([&] { return published().streamId() == 2; }));
    EXPECT_EQ(activeUri(published().trackRoles()), QStringLiteral("http://t/2"));
    EXPECT_EQ(activeUri(logic->currentTrackRoles()), QStringLiteral("http://t/2"));
    EXPECT_EQ(log.count(QStringLiteral("New media started, with track roles: ")), 2);
}

// Only a named error of a media that is no clip leads to the next resource.
TEST_F(PipelineTest, StreamErrorFallsBackOnlyForNamedErrorsOfNonClips) {
    struct Row {
        const char* name;
        ZuvoAudioType::Enum audioType;
        int code;
        bool fallsBack;
    };
    const Row rows[] = {
        {"stream, named error", ZuvoAudioType::stream, -16, true},
        {"clip, named error", ZuvoAudioType::clip, -16, false},
        {"stream, end of stream", ZuvoAudioType::stream, -13, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SplWorld w;
        TestStreamerPlayLogic rowLogic(w.scope.nodes(), w.basePath);
        const ZuvoRoles track = spltest::item({QStringLiteral("http://r/1"), QStringLiteral("http://r/2")});
        ZuvoRoles media = track;
        media.setAudioType(row.audioType);
        const ZuvoStreamerData data = w.playAndStart(track, media);
        ASSERT_FALSE(data.isEmpty());
        w.streamer.publishData(spltest::stoppedWith(data, row.code, QStringLiteral("e")));
        if (row.fallsBack) {
            ASSERT_TRUE(w.waitForCount(Command::play, 2));
            EXPECT_EQ(activeUri(w.sent(Command::play, 1).roles()), QStringLiteral("http://r/2"));
        } else {
            ASSERT_TRUE(waitUntil([&] {
                return !w.published().error().isEmpty() ||
                       w.published().state() == ZuvoPlayLogicState::stopped;
            }));
            zuvotest::drainEvents();
            EXPECT_EQ(w.count(Command::play), 1);
        }
    }
}

TEST_F(PipelineTest, RefusedMediaStillAnswersPlayAndStopClearsAtOnce) {
    h.streamer.failNext(Command::play,
                        CMError(QStringLiteral("refused"), QStringLiteral("t"), QStringLiteral("No")));
    const CMReply<QVariant> play =
        h.client->playContainer(ZuvoRoles(), spltest::item({QStringLiteral("x")}), 0, 0);
    ASSERT_TRUE(h.waitForCount(Command::play, 1));
    EXPECT_TRUE(play.isFinished());
    EXPECT_FALSE(play.hasError());
    zuvotest::drainEvents();
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::loading);

    LogCapture log;
    const CMReply<QVariant> stop = h.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }))
        << log.toString().toStdString();
    EXPECT_FALSE(stop.hasError());
    EXPECT_TRUE(log.contains(log4cplus::DEBUG_LOG_LEVEL, QStringLiteral("Playback is already stopped")));
    EXPECT_EQ(h.client->bufferLevel(), -1.0);
}

TEST_F(PipelineTest, DestroyingWhilePlayingStopsTheStreamer) {
    ASSERT_FALSE(playAndStart(spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    LogCapture log;
    logic.reset();
    EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL,
                             QStringLiteral("Deleting streamer playlogic while not stopped")));
    ASSERT_TRUE(h.waitForCount(Command::stop, 1));
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::stopped);
}

} // namespace
