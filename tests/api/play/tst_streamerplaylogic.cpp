// StreamerPlayLogic driven through its client, driving the test streamer,
// whose records come back as the play logic's published values.

#include <QDateTime>
#include <gtest/gtest.h>

#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/records.h"
#include "support/streamerplaylogicfixture.h"

using spltest::activeUri;
using spltest::item;
using spltest::stoppedWith;
using zuvotest::drainEvents;
using zuvotest::waitUntil;
using Command = TestStreamerService::Command;
using State = ZuvoPlayLogicState::Enum;
using Reply = CMReply<QVariant>;

namespace {

constexpr State Stopped = ZuvoPlayLogicState::stopped, Loading = ZuvoPlayLogicState::loading,
                Playing = ZuvoPlayLogicState::playing, Paused = ZuvoPlayLogicState::paused;
const QString a1 = QStringLiteral("http://a/1"), a2 = QStringLiteral("http://a/2");

const auto finished = [](const Reply& r) { return waitUntil([&] { return r.isFinished(); }); };
const auto ok = [](const Reply& r) { return finished(r) && !r.hasError(); };
const auto reaches = [](const SplWorld& h, State s) {
    return waitUntil([&] { return h.published().state() == s; });
};
const auto withPrePlay = [](const ZuvoRoles& r) {
    return spltest::withMetaData(r, [](ZuvoMetaData& m) { m.setPrePlayPath(SplWorld::prePlayPath()); });
};
const auto cmError = [](const char* name, const char* message = "") {
    return CMError(QString::fromUtf8(name), QStringLiteral("t"), QString::fromUtf8(message));
};
struct Spl : ::testing::Test {
    SplWorld h;
    TestStreamerPlayLogic* const logic = h.logic.get();
    ZuvoPlayLogicData published() const { return h.published(); }
};

// A track played to its end (no further resource tried), with or without a near
// end first: a stopped streamer shows as loading until the playback has ended.
TEST(StreamerPlayLogic, TrackPlaysToItsEnd) {
    for (const bool nearEnd : {true, false}) {
        SCOPED_TRACE(nearEnd);
        SplWorld h;
        TestStreamerPlayLogic& logic = *h.logic;
        // the content state-change path stands in for the playback one
        ZuvoStreamerData data = h.playAndStart(spltest::withMetaData(item({a1, a2}), [](ZuvoMetaData& m) {
            m.setContentStateChangePath(SplWorld::stateChangePath());
        }));
        ASSERT_FALSE(data.isEmpty());
        EXPECT_EQ(
            std::make_pair(logic.currentStreamId(),
                           h.sent(Command::play, 0).roles().mediaData().metaData().playbackStateChangePath()),
            std::make_pair(1, SplWorld::stateChangePath()));
        PublishedStates states(&logic);
        for (const State state : {Paused, Playing}) {
            data.setState(state);
            h.streamer.publishData(data);
            ASSERT_TRUE(reaches(h, state));
        }
        h.streamer.publishBufferingLevel(57.0);
        h.streamer.publishPlayTime(59000);
        ASSERT_TRUE(
            waitUntil([&] { return h.client->bufferLevel() == 57.0 && h.client->playTime() == 59000; }));
        if (nearEnd) {
            data.setTrackNearEnd(true);
            h.streamer.publishData(data);
            ASSERT_TRUE(h.waitForCount(Command::clearNextMedia, 1));
            EXPECT_EQ(logic.prepareNextMediaCalls, 1);
        }
        h.streamer.publishData(stoppedWith(data, -13, QStringLiteral("eos")));
        ASSERT_TRUE(reaches(h, Stopped));
        drainEvents();
        EXPECT_EQ(states.states, QList<State>({Paused, Playing, Loading, Stopped}));
        EXPECT_EQ(std::make_tuple(logic.mediaStarts, h.count(Command::clearNextMedia), h.count(Command::stop),
                                  h.count(Command::play), h.client->playTime(), h.client->playByte(),
                                  h.client->bufferLevel(), h.published().error()),
                  std::make_tuple(1, nearEnd ? 1 : 0, 0, 1, qint64(0), qint64(0), -1.0, QString()));
        QList<State> reported;
        for (int i = 0; i < h.stateChange.count(); ++i)
            reported.append(ZuvoPlayLogicData(h.stateChange.valueAt(i)).state());
        EXPECT_EQ(reported, QList<State>({Playing, Paused, Playing, Stopped}));
        EXPECT_FALSE(ZuvoPlayLogicData(h.stateChange.valueAt(3)).isSetError());
    }
}

// Near its end a live media queues its next resource, not after a user stop
// (asked before the stop is through); a stored one: TrackPlaysToItsEnd.
TEST(StreamerPlayLogic, NearEndOfALiveMediaQueuesItsNextResource) {
    for (const bool userStop : {false, true}) {
        SCOPED_TRACE(userStop);
        SplWorld h;
        const ZuvoRoles media = item({a1, a2}, CMPath(), true);
        ZuvoStreamerData data = h.playAndStart(media, media);
        ASSERT_FALSE(data.isEmpty());
        if (userStop) {
            h.client->stop(ZuvoPlayLogicStopReason::user);
            ASSERT_TRUE(h.waitForCount(Command::stop, 1));
            ASSERT_TRUE(QMetaObject::invokeMethod(h.logic.get(), "on_streamerController_prepareNextMedia"));
        } else {
            data.setTrackNearEnd(true);
            h.streamer.publishData(data);
        }
        ASSERT_TRUE(h.waitForCount(userStop ? Command::clearNextMedia : Command::setNextMedia, 1));
        drainEvents();
        EXPECT_EQ(
            std::make_tuple(h.count(Command::setNextMedia), h.count(Command::clearNextMedia),
                            h.logic->prepareNextMediaCalls,
                            activeUri(h.sent(Command::setNextMedia, 0).roles())),
            std::make_tuple(userStop ? 0 : 1, userStop ? 1 : 0, userStop ? 1 : 0, userStop ? QString() : a2));
    }
}

// A new playback id is a new media only when running without an error. The
// owner hears of a stop either way: of the replaced track, else of the failure.
TEST(StreamerPlayLogic, NewPlaybackIdIsNewMediaOnlyWhenRunningWithoutError) {
    const struct {
        const char* name;
        State state;
        int errorCode; // 0: none
        bool newMedia;
    } rows[] = {
        {"running", Playing, 0, true}, {"stopped", Stopped, 0, false}, {"failing", Playing, -16, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SplWorld h;
        TestStreamerPlayLogic& logic = *h.logic;
        ASSERT_FALSE(h.playAndStart(item({a1}, SplWorld::stateChangePath())).isEmpty());
        ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 1; }));
        const ZuvoRoles second = item({a2}, SplWorld::stateChangePath());
        const Reply started = logic.sendPlayCommand(second, {});
        ASSERT_TRUE(finished(started));
        ASSERT_EQ(started.value().toInt(), 2);

        // Without track roles: the play logic knows them by the playback id.
        ZuvoStreamerData data = spltest::streamerData(2, row.state, ZuvoRoles());
        if (row.errorCode != 0)
            data.setError(TestStreamerService::makeError(row.errorCode, QStringLiteral("e")));
        h.streamer.publishData(data);
        ASSERT_TRUE(waitUntil([&] { return h.published().streamId() == 2; }));
        drainEvents();
        EXPECT_EQ(std::make_tuple(logic.mediaStarts, h.published().state(),
                                  activeUri(h.published().trackRoles()), activeUri(logic.currentTrackRoles()),
                                  h.count(Command::play)),
                  std::make_tuple(row.newMedia ? 2 : 1, row.newMedia ? Playing : Loading, a2,
                                  row.newMedia ? a2 : QString(), 2));
        ASSERT_EQ(h.stateChange.count(), row.newMedia ? 3 : 2);
        const ZuvoPlayLogicData stopReport(h.stateChange.valueAt(1));
        EXPECT_EQ(std::make_tuple(stopReport.state(), activeUri(stopReport.trackRoles()),
                                  stopReport.error().isEmpty()),
                  std::make_tuple(Stopped, row.newMedia ? a1 : a2, row.newMedia));
        if (row.newMedia) {
            EXPECT_EQ(ZuvoPlayLogicData(h.stateChange.valueAt(2)).streamId(), 2);
        }
    }
}

// The active resource is matched by uid before the uri, by data when neither
// is set. No wrap-around: FailedPrePlayFallsBackToTheNextResourceThenReports.
TEST_F(Spl, ActiveResourceIsMatchedByUidThenUriThenData) {
    const QList<ZuvoResource> list = item({"http://r/a", "http://r/b", "http://r/c"}).mediaData().resources();
    const auto roles = [](const QList<ZuvoResource>& resources, const ZuvoResource& active) {
        ZuvoMediaData mediaData;
        mediaData.setResources(ZuvoList<ZuvoResource>(resources));
        mediaData.setActiveResource(active);
        ZuvoRoles result;
        result.setMediaData(mediaData);
        return result;
    };
    ZuvoResource byUid, d1, d2, second = list.at(1);
    byUid.setUid(QStringLiteral("u2"));
    second.setUid(QStringLiteral("u2"));
    d1.setData(QVariant(1));
    d2.setData(QVariant(2));
    EXPECT_EQ(std::make_pair(logic->activeResourcePosition(roles({list.at(0), second, list.at(2)}, byUid)),
                             logic->activeResourcePosition(roles({d1, d2}, d2))),
              std::make_pair(1, 1));
}

// Requests wait behind the head's pre-play, whose answer is what is played.
// A stop cancels what still waits; a late pre-play answer then plays nothing.
TEST_F(Spl, PrePlayHoldsTheQueueAndAStopCancelsIt) {
    ASSERT_FALSE(h.playAndStart(item({a1})).isEmpty());
    h.prePlay.hold = true;
    const ZuvoRoles viaPrePlay = withPrePlay(item({"http://p/1"}));
    logic->sendPlayCommand(viaPrePlay, {});
    const QString paused = ZuvoStreamerAttributesStartPaused();
    const Reply later = logic->sendPlayCommand(item({a2}), {{paused, QVariant(true)}});
    ASSERT_TRUE(waitUntil([&] { return h.prePlay.count() == 1; }));
    drainEvents();
    ZuvoRoles asked(h.prePlay.valueAt(0));
    const ZuvoMetaData askedMeta = asked.mediaData().metaData();
    EXPECT_EQ(std::make_tuple(h.count(Command::play), later.isFinished(), h.prePlay.requests.at(0).role(),
                              askedMeta.isSetPrePlayTimeOffset(), askedMeta.prePlayTimeOffset()),
              std::make_tuple(1, false, ZuvoRoles::PrePlay(), true, qint64(0)));
    asked.setTitle(QStringLiteral("fresh"));
    h.prePlay.requests.at(0).reply().setValue(asked.__variant());
    ASSERT_TRUE(h.waitForCount(Command::play, 3));
    ASSERT_TRUE(finished(later));
    // later is answered with the streamer's playback id
    EXPECT_EQ(std::make_tuple(h.sent(Command::play, 1).roles().title(),
                              activeUri(h.sent(Command::play, 2).roles()), later.value().toInt(),
                              h.sent(Command::play, 1).attributes().toHash().value(paused, true).toBool(),
                              h.sent(Command::play, 2).attributes().toHash().value(paused).toBool()),
              std::make_tuple(QStringLiteral("fresh"), a2, 3, false, true));

    const Reply waiting = logic->sendPlayCommand(viaPrePlay, {});
    ASSERT_TRUE(waitUntil([&] { return h.prePlay.count() == 2; }));
    EXPECT_TRUE(ok(h.client->stop(ZuvoPlayLogicStopReason::user)));
    ASSERT_TRUE(finished(waiting));
    EXPECT_EQ(std::make_pair(waiting.error().message(), waiting.error().name()),
              std::make_pair(QStringLiteral("Play request cancelled"), CMError::DefaultName()));
    h.prePlay.requests.at(1).reply().setValue(h.prePlay.requests.at(1).data());
    drainEvents();
    EXPECT_EQ(h.count(Command::play), 3);
}

TEST_F(Spl, FailedPrePlayFallsBackToTheNextResourceThenReports) {
    h.prePlay.answer = [](const CMSetDataRequest& request) {
        request.reply().setError(cmError("gone", "Gone"));
    };
    h.client->playContainer(ZuvoRoles(), withPrePlay(item({"http://p/1", "http://p/2"})), 0, 0);
    ASSERT_TRUE(waitUntil([&] { return published().error() == QStringLiteral("Gone"); }));
    ASSERT_EQ(h.prePlay.count(), 2);
    EXPECT_EQ(activeUri(ZuvoRoles(h.prePlay.valueAt(1))), QStringLiteral("http://p/2"));
    EXPECT_EQ(h.count(Command::play), 0);
}

// A play while playing runs after the old end from a fresh record (one stop:
// tst_playstorm). Destroyed while loading, the play logic stops the streamer.
TEST_F(Spl, PlayWhilePlayingStopsOnceThenPlaysTheNewestAfresh) {
    ZuvoStreamerData running = h.playAndStart(item({a1}));
    ASSERT_FALSE(running.isEmpty());
    logic->reportError(cmError("e", "Shown"));
    PublishedStates states(logic);
    const ZuvoList<ZuvoRoles> matching({zuvotest::rolesTitled(QStringLiteral("matching"))});
    const ZuvoRoles media = spltest::withMetaData(
        item({"http://m/1"}), [&](ZuvoMetaData& m) { m.setMatchingMediaRoles(matching); });
    const ZuvoRoles track = item({"http://c/3"});
    const Reply latest = h.client->playContainer(media, track, 0, 0);
    ASSERT_TRUE(h.waitForCount(Command::stop, 1));
    running.setState(Stopped);
    h.streamer.publishData(running);
    ASSERT_TRUE(ok(latest));
    EXPECT_EQ(states.states, QList<State>({Loading, Stopped, Loading}));
    const ZuvoPlayLogicData f = published();
    EXPECT_EQ(std::make_tuple(f.error(), f.isSetStreamId(), f.isSetStatus(), f.mediaRoles(), f.trackRoles(),
                              f.matchingMediaRoles()),
              std::make_tuple(QString(), false, false, media, track, matching));

    LogCapture log;
    h.logic.reset();
    EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL,
                             QStringLiteral("Deleting streamer playlogic while not stopped")));
    ASSERT_TRUE(h.waitForCount(Command::stop, 2));
    EXPECT_EQ(published().state(), Stopped);
}

// A media the streamer refuses still answers the play; a stop then finds
// nothing playing and ends the playback at once.
TEST_F(Spl, RefusedMediaStillAnswersPlayAndStopClearsAtOnce) {
    h.streamer.failNext(Command::play, cmError("refused", "No"));
    const Reply play = h.client->playContainer(ZuvoRoles(), item({a1}), 0, 0);
    ASSERT_TRUE(h.waitForCount(Command::play, 1));
    EXPECT_TRUE(play.isFinished() && !play.hasError());
    drainEvents();
    EXPECT_EQ(published().state(), Loading);
    EXPECT_TRUE(ok(h.client->stop(ZuvoPlayLogicStopReason::user)));
    ASSERT_TRUE(reaches(h, Stopped));
    EXPECT_EQ(h.client->bufferLevel(), -1.0);
}

// A stopped streamer by error code (and name): an error shown for a while (the
// name reported to the state-change node), or the end of playback. Playlist
// codes: tst_playlisthandoff; -17, -18: the GStreamer play-logic test.
enum class Setup { Plain, Radio, NoResources, UserStop, Restart, Clip };

const struct ErrorRow {
    int code; // 0: the stopped record carries no error
    const char* streamerErrorName;
    Setup setup;
    const char* errorName; // reported to the state-change node; empty: none
    const char* message;   // published error text; empty: the playback ended
} errorRows[] = {
    {-16, "e", Setup::Clip, "couldNotOpenStream", "Could not open stream!"},
    {-19, "e", Setup::Radio, "couldNotFind", "Could not find source!"},
    {-20, "e", Setup::Plain, "streamDecryptionIsNotSupported",
     "The stream is encrypted and decryption is not supported."},
    {-21, "e", Setup::Plain, "streamDecryptionNoKey",
     "The stream is encrypted and can't be decrypted because no suitable key is available."},
    // A crash is known by its name, whatever the code; a restarted streamer
    // (no playback id) has crashed too.
    {-5, "crashed", Setup::Plain, "streamCrashed", "The streamer crashed"},
    {0, "", Setup::Restart, "streamCrashed", "The streamer crashed"},
    {-99, "odd", Setup::Plain, "unknownError", "Unknown streamer error!"},
    // A nameless error is the user's stop only after a stop of the user,
    // which is final: no further resource is tried.
    {-99, "", Setup::Plain, "unknownError", "Unknown streamer error!"},
    {0, "", Setup::UserStop, "userStop", ""},
    {-16, "e", Setup::UserStop, "userStop", ""},
    {-22, "e", Setup::NoResources, "failedParseUrl", "Can not parse url: resource not found!"},
};

TEST(StreamerPlayLogic, StoppedStreamerByCode) {
    for (const ErrorRow& row : errorRows) {
        SCOPED_TRACE(testing::Message() << "code " << row.code << " name '" << row.streamerErrorName
                                        << "' setup " << int(row.setup));
        SplWorld h;
        QTimer* const timer = h.logic->errorTimer();
        ASSERT_NE(timer, nullptr);
        EXPECT_EQ(timer->interval(), 2000);
        // A second resource is at hand where none may be tried: after the
        // user's stop, for a clip.
        const bool second = row.setup == Setup::UserStop || row.setup == Setup::Clip;
        const QStringList uris = row.setup == Setup::NoResources ? QStringList()
                                 : second                        ? QStringList{a1, a2}
                                                                 : QStringList{a1};
        const bool radio = row.setup == Setup::Radio, shown = *row.message != '\0';
        const ZuvoRoles track =
            spltest::withMetaData(item(uris, SplWorld::stateChangePath()), [&](ZuvoMetaData& m) {
                if (radio)
                    m.setServiceID(ZuvoService_AirableRadios_Id());
            });
        ZuvoRoles media = track;
        media.setAudioType(row.setup == Setup::Clip ? ZuvoAudioType::clip : ZuvoAudioType::stream);
        const ZuvoStreamerData data = h.playAndStart(track, media);
        ASSERT_FALSE(data.isEmpty());
        ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 1; }));
        if (row.setup == Setup::UserStop) {
            h.client->stop(ZuvoPlayLogicStopReason::user);
            ASSERT_TRUE(h.waitForCount(Command::stop, 1));
        }
        const QString name = qstrcmp(row.streamerErrorName, "crashed") == 0
                                 ? ZuvoStreamerErrorCrashed()
                                 : QString::fromUtf8(row.streamerErrorName);
        ZuvoStreamerData stopped = stoppedWith(data, row.code, name, QStringLiteral("gst text"));
        if (row.code == 0)
            stopped.__remove(ZuvoStreamerData::Error());
        h.streamer.publishData(row.setup == Setup::Restart ? TestStreamerService::restartedData() : stopped);

        ASSERT_TRUE(waitUntil(
            [&] { return shown ? !h.published().error().isEmpty() : h.published().state() == Stopped; }));
        const ZuvoPlayLogicData pub = h.published();
        EXPECT_EQ(std::make_tuple(pub.error(), pub.state(), timer->isActive()),
                  std::make_tuple(QString::fromUtf8(row.message), shown ? Loading : Stopped, shown));
        if (row.code != 0 && row.setup != Setup::UserStop) {
            EXPECT_EQ(pub.streamerError().code(), row.code);
        }
        if (row.setup == Setup::Restart) {
            EXPECT_EQ(pub.streamerError().name(), ZuvoStreamerErrorCrashed());
        }
        drainEvents();
        ASSERT_EQ(h.stateChange.count(), 2);
        const ZuvoPlayLogicData report(h.stateChange.valueAt(1));
        EXPECT_EQ(
            std::make_tuple(report.state(), report.error(), report.isSetError(), h.count(Command::play)),
            std::make_tuple(Stopped, QString::fromUtf8(row.errorName), *row.errorName != '\0', 1));
        ASSERT_EQ(h.display.count(), radio ? 1 : 0);
        if (radio) {
            const ZuvoNotificationDisplayItem shownItem(h.display.valueAt(0));
            EXPECT_EQ(std::make_tuple(shownItem.title(), shownItem.message(), shownItem.timeout()),
                      std::make_tuple(QStringLiteral("Failed to start"),
                                      QStringLiteral("Radio station is not available!"), 3000));
        }
    }
}

// An error report shows the message (else the name); a newer one restarts the
// interval, at whose end it goes and resuming is tried; the end keeps it.
TEST_F(Spl, ErrorReportIsShownReplacedWithdrawnOrKeptAtTheEnd) {
    const ZuvoStreamerData data = h.playAndStart(item({a1}));
    ASSERT_FALSE(data.isEmpty());
    QTimer* const timer = logic->errorTimer();
    timer->setInterval(400);
    logic->reportError(CMError(QStringLiteral("first"), QString(), QString()));
    EXPECT_EQ(published().error(), QStringLiteral("first"));
    ASSERT_TRUE(waitUntil([&] { return timer->remainingTime() <= 250; }));
    logic->reportError(cmError("second", "Second message"));
    EXPECT_EQ(std::make_tuple(published().error(), timer->remainingTime() > 250, logic->tryResumeCalls),
              std::make_tuple(QStringLiteral("Second message"), true, 0));
    ASSERT_TRUE(waitUntil([&] { return published().error().isEmpty(); }));
    EXPECT_EQ(std::make_pair(logic->tryResumeCalls, published().state()), std::make_pair(1, Playing));

    logic->reportError(cmError("late", "Late error"));
    h.streamer.publishData(stoppedWith(data, -13, QStringLiteral("eos")));
    ASSERT_TRUE(reaches(h, Stopped));
    EXPECT_EQ(std::make_tuple(timer->isActive(), published().error(), logic->tryResumeCalls),
              std::make_tuple(false, QStringLiteral("Late error"), 1));
}

// Disabled, a control succeeds and sends nothing. Enabled, a seek needs a
// seekable stream and stays within [0, end - 1 s]; controls with no step are
// not supported; play modes follow the published support (normal always).
TEST(StreamerPlayLogic, Controls) {
    using C = ZuvoPlayLogicControl;
    const C::Enum controls[] = {C::pause,     C::previous,        C::next, C::seekTime,
                                C::seekBytes, C::setCurrentTrack, C::like, C::dislike};
    for (const bool enabled : {false, true}) {
        SCOPED_TRACE(enabled);
        SplWorld h;
        h.logic->controls = enabled;
        ZuvoStreamerData data = h.playAndStart(item({a1}));
        ASSERT_FALSE(data.isEmpty());
        const auto send = [&](C::Enum control, qint64 relative = 0) { // relative: a relative time seek
            ZuvoPlayLogicSeekArgs args;
            args.setControl(control);
            if (relative != 0)
                args.setTimeRelative(relative);
            return h.client->control(args, Reply());
        };
        for (const C::Enum control : controls) {
            if (!enabled || control == C::seekTime || control == C::seekBytes) {
                EXPECT_TRUE(ok(send(control))) << control;
            }
        }
        drainEvents();
        EXPECT_EQ(h.count(Command::pause) + h.count(Command::resume) + h.count(Command::seek), 0);
        if (!enabled)
            continue;
        ZuvoPlayLogicStatus status;
        status.setDuration(60000);
        status.setTimeSeek(true);
        status.setByteSeek(true);
        data.setStatus(status);
        h.streamer.publishData(data);
        h.streamer.publishPlayTime(55000);
        ASSERT_TRUE(
            waitUntil([&] { return h.published().status().timeSeek() && h.client->playTime() == 55000; }));
        const std::pair<Reply, qint64> seeks[] = {{h.client->seekTime(1234), 1234},
                                                  {send(C::seekTime, 10000), 59000},
                                                  {send(C::seekTime, -100000), 0}};
        ASSERT_TRUE(h.waitForCount(Command::seek, 3));
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(ok(seeks[i].first));
            EXPECT_EQ(ZuvoStreamerSeekPosition(h.streamer.invocations(Command::seek).at(i).args()).timeMs(),
                      seeks[i].second);
        }
        EXPECT_TRUE(ok(h.client->seekBytes(4096)));
        ASSERT_TRUE(h.waitForCount(Command::seek, 4));
        const ZuvoStreamerSeekPosition bytes(h.streamer.last(Command::seek).args());
        EXPECT_EQ(std::make_pair(bytes.bytes(), bytes.isSetTimeMs()), std::make_pair(qint64(4096), false));
        for (const C::Enum control : {C::previous, C::like, C::dislike, C::setCurrentTrack}) {
            const Reply reply = send(control);
            ASSERT_TRUE(finished(reply));
            EXPECT_EQ(reply.error().message(), QStringLiteral("Operation not supported.")) << control;
        }
        EXPECT_TRUE(ok(h.client->next()));
        // the status change above is no new media
        EXPECT_EQ(std::make_pair(h.count(Command::play), h.logic->mediaStarts), std::make_pair(1, 1));
        using Mode = ZuvoPlayerPlayMode;
        const std::pair<int, Mode::Enum> modes[] = {
            {Mode::shuffle, Mode::shuffle}, {Mode::repeatOne, Mode::shuffle}, {Mode::normal, Mode::normal}};
        for (const auto& [mode, expected] : modes) {
            EXPECT_TRUE(ok(h.client->changePlayMode(Mode::Enum(mode))));
            EXPECT_EQ(h.client->playMode(), expected) << mode;
        }
    }
}

// Paused, pause resumes, unless the active resource idled too long or
// expired: then it is fetched again through pre-play at the paused time.
TEST(StreamerPlayLogic, PauseTogglesAndAnExpiredResourceIsRefetchedOnResume) {
    const qint64 hour = 3600 * 1000;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const struct {
        const char* name;
        std::function<void(ZuvoResource&)> validity;
        bool prePlay;
        bool refetch;
    } rows[] = {
        {"idled too long", [](ZuvoResource& r) { r.setMaxIdleTime(0); }, true, true},
        {"expired", [&](ZuvoResource& r) { r.setValidUntil(now - 1); }, true, true},
        {"idle time not reached", [&](ZuvoResource& r) { r.setMaxIdleTime(hour); }, true, false},
        {"expired, pre-play path cleared", [&](ZuvoResource& r) { r.setValidUntil(now - 1); }, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SplWorld h;
        h.prePlay.answer = [](const CMSetDataRequest& request) { request.reply().setValue(request.data()); };
        ZuvoRoles track = item({"http://p/1"});
        ZuvoMediaData mediaData = track.mediaData();
        ZuvoResource active = mediaData.activeResource();
        row.validity(active);
        mediaData.setActiveResource(active);
        track.setMediaData(mediaData);
        if (row.prePlay)
            track = withPrePlay(track);
        ZuvoStreamerData data = h.playAndStart(track);
        ASSERT_FALSE(data.isEmpty());
        h.streamer.publishPlayTime(42000);
        ASSERT_TRUE(waitUntil([&] { return h.client->playTime() == 42000; }));
        h.client->pause();
        ASSERT_TRUE(h.waitForCount(Command::pause, 1));
        data.setState(Paused);
        h.streamer.publishData(data);
        ASSERT_TRUE(reaches(h, Paused));
        const int prePlaysBefore = h.prePlay.count();

        LogCapture log;
        const Reply resume = h.client->pause();
        ASSERT_TRUE(h.waitForCount(row.refetch ? Command::play : Command::resume, row.refetch ? 2 : 1));
        if (row.refetch) {
            ASSERT_EQ(h.prePlay.count(), prePlaysBefore + 1);
            const auto offset = [](const ZuvoRoles& r) {
                return r.mediaData().metaData().prePlayTimeOffset();
            };
            EXPECT_EQ(std::make_pair(offset(ZuvoRoles(h.prePlay.valueAt(prePlaysBefore))),
                                     offset(h.sent(Command::play, 1).roles())),
                      std::make_pair(qint64(42000), qint64(42000)));
        }
        EXPECT_TRUE(ok(resume));
        drainEvents();
        EXPECT_EQ(std::make_tuple(h.count(Command::pause), h.count(Command::resume), h.count(Command::play)),
                  std::make_tuple(1, row.refetch ? 0 : 1, row.refetch ? 2 : 1));
        EXPECT_EQ(log.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("but preplaypath was cleared")),
                  !row.prePlay);
    }
}

} // namespace
