#include <QTimer>
#include <algorithm>
#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "model/cmnodes.h"
#include "model/cmvaluenode.h"
#include "streamercontroller.h"
#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/records.h"
#include "support/teststreamerservice.h"
#include "zuvostreamerinterface.h"

// StreamerController over ZuvoStreamerInterface and a TestStreamerService:
// the controller is driven through the same model paths the device uses.

using Command = TestStreamerService::Command;
using State = StreamerController::State;
using zuvotest::drainEvents;
using zuvotest::rolesTitled;
using zuvotest::waitUntil;

namespace {

ZuvoStreamerData dataOf(int playbackId, ZuvoPlayLogicState::Enum state) {
    return TestStreamerService::makeData(playbackId, state);
}

ZuvoStreamerData stoppedWithError(int playbackId, int code, const QString& message = QString()) {
    ZuvoStreamerData data = dataOf(playbackId, ZuvoPlayLogicState::stopped);
    data.setError(TestStreamerService::makeError(code, QStringLiteral("StreamerError"), message));
    return data;
}

template <typename T> bool finished(const CMReply<T>& reply) {
    return waitUntil([&] { return reply.isFinished(); });
}

// Members are destroyed in reverse order: the controller goes first, then
// the streamer access, then the service (which fails what it still holds).
class StreamerControllerTest : public ::testing::Test {
protected:
    LogCapture log;
    CMRootScope root;
    TestStreamerService service{root.nodes()};
    QSharedPointer<ZuvoStreamerInterface> streamer;
    std::unique_ptr<StreamerController> controller;

    // What the controller emitted.
    QList<QPair<ZuvoStreamerData, ZuvoStreamerData>> reported;
    int prepareCount = 0;
    QList<qint64> times;
    QList<int> levels;
    QList<int64_t> buffered;

    void SetUp() override { createController(); }

    void createController() {
        streamer = QSharedPointer<ZuvoStreamerInterface>::create();
        controller = std::make_unique<StreamerController>(streamer);
        StreamerController* c = controller.get();
        QObject::connect(c, &StreamerController::streamerDataChanged, c,
                         [this](const ZuvoStreamerData& n, const ZuvoStreamerData& o) {
                             reported.append({n, o});
                         });
        QObject::connect(c, &StreamerController::prepareNextMedia, c, [this] { ++prepareCount; });
        QObject::connect(c, &StreamerController::timeChanged, c, [this](qint64 t) { times.append(t); });
        QObject::connect(c, QOverload<int>::of(&StreamerController::buffering), c,
                         [this](int p) { levels.append(p); });
        QObject::connect(c, &StreamerController::bufferedBytesChanged, c,
                         [this](int64_t b) { buffered.append(b); });
    }

    // A fresh controller, streamer access and service state, for table rows.
    void recreate() {
        controller.reset();
        service.reset();
        drainEvents();
        reported.clear();
        prepareCount = 0;
        createController();
    }

    QTimer* postponeTimer() const { return controller->findChild<QTimer*>(QStringLiteral("postponeTimer")); }

    // Publishes a record and lets the controller see it.
    void publish(const ZuvoStreamerData& data) {
        service.publishData(data);
        drainEvents();
    }

    // Enables the controller and starts a playback that reports playing.
    int startPlaying(const ZuvoRoles& roles = rolesTitled(QStringLiteral("first"))) {
        controller->enable();
        const CMReply<int> reply = controller->play(roles, false);
        EXPECT_TRUE(finished(reply));
        EXPECT_FALSE(reply.hasError());
        publish(dataOf(reply.value(), ZuvoPlayLogicState::playing));
        EXPECT_EQ(controller->state(), State::playing);
        return reply.value();
    }

    // A play the streamer keeps unanswered until released.
    CMReply<int> heldPlay(const ZuvoRoles& roles = rolesTitled(QStringLiteral("held"))) {
        service.holdNext(Command::play);
        const int before = service.count(Command::play);
        const CMReply<int> reply = controller->play(roles, false);
        EXPECT_TRUE(service.waitForCount(Command::play, before + 1));
        return reply;
    }

    bool reportedStopped() const {
        for (const auto& pair : reported) {
            if (pair.first.state() == ZuvoPlayLogicState::stopped)
                return true;
        }
        return false;
    }
};

using StreamerControllerQueue = StreamerControllerTest;
using StreamerControllerStop = StreamerControllerTest;
using StreamerControllerData = StreamerControllerTest;
using StreamerControllerNearEnd = StreamerControllerTest;
using StreamerControllerBuffering = StreamerControllerTest;

} // namespace

// ---------------------------------------------------------------- queue and states

TEST_F(StreamerControllerQueue, StateTable) {
    enum Setup { Stopped, Starting, Playing, Replacing, Stopping };
    enum Event { PlayInvoked, PlaySucceeded, PlayFailed, StopInvoked, StreamerStopped, Reenabled };
    const char* setupNames[] = {"stopped", "starting", "playing", "playing, replacement in flight",
                                "stopping"};
    const State reachedBySetup[] = {State::stopped, State::starting, State::playing, State::playing,
                                    State::stopping};
    const char* eventNames[] = {"play invoked", "play reply succeeded", "play reply failed",
                                "stop invoked", "streamer stopped",     "disable + enable"};
    struct Row {
        Setup from;
        Event event;
        State to;
    };
    const std::vector<Row> table = {
        {Stopped, PlayInvoked, State::starting},      {Stopped, StopInvoked, State::stopped},
        {Stopped, StreamerStopped, State::stopped},   {Stopped, Reenabled, State::stopped},
        {Starting, PlayInvoked, State::starting},     {Starting, PlaySucceeded, State::playing},
        {Starting, PlayFailed, State::stopped},       {Starting, StopInvoked, State::starting},
        {Starting, StreamerStopped, State::starting}, {Starting, Reenabled, State::stopped},
        {Playing, PlayInvoked, State::playing},       {Playing, StopInvoked, State::stopping},
        {Playing, StreamerStopped, State::stopped},   {Playing, Reenabled, State::stopped},
        {Replacing, PlaySucceeded, State::playing},   {Replacing, PlayFailed, State::playing},
        {Replacing, StopInvoked, State::playing},     {Replacing, StreamerStopped, State::starting},
        {Stopping, PlayInvoked, State::stopping},     {Stopping, StopInvoked, State::stopping},
        {Stopping, StreamerStopped, State::stopped},  {Stopping, Reenabled, State::stopped},
    };

    for (const Row& row : table) {
        SCOPED_TRACE(std::string("from ") + setupNames[row.from] + ", " + eventNames[row.event]);
        recreate();

        switch (row.from) {
        case Stopped:
            controller->enable();
            break;
        case Starting:
            controller->enable();
            heldPlay();
            break;
        case Playing:
            startPlaying();
            break;
        case Replacing:
            startPlaying();
            heldPlay();
            break;
        case Stopping:
            startPlaying();
            controller->stop();
            ASSERT_TRUE(service.waitForCount(Command::stop, 1));
            break;
        }
        ASSERT_EQ(controller->state(), reachedBySetup[row.from]);

        switch (row.event) {
        case PlayInvoked:
            service.holdNext(Command::play);
            controller->play(rolesTitled(QStringLiteral("event")), false);
            drainEvents();
            break;
        case PlaySucceeded:
            ASSERT_TRUE(service.releaseHeld(Command::play, 7));
            drainEvents();
            break;
        case PlayFailed:
            ASSERT_TRUE(service.failHeld(Command::play, CMError(QStringLiteral("Busy"), TrString("busy"))));
            drainEvents();
            break;
        case StopInvoked:
            controller->stop();
            drainEvents();
            break;
        case StreamerStopped:
            publish(dataOf(1, ZuvoPlayLogicState::stopped));
            break;
        case Reenabled:
            controller->disable();
            controller->enable();
            break;
        }
        EXPECT_EQ(controller->state(), row.to);
    }
}

TEST_F(StreamerControllerQueue, OnlyTheHeadOfTheQueueIsInFlight) {
    controller->enable();
    const CMReply<int> first = heldPlay(rolesTitled(QStringLiteral("a")));
    const CMReply<int> second = controller->play(rolesTitled(QStringLiteral("b")), true);
    const CMReply<bool> stopped = controller->stop();
    const CMReply<int> next = controller->playNext(rolesTitled(QStringLiteral("c")));
    drainEvents();
    EXPECT_EQ(service.commands(), QList<Command>{Command::play});

    ASSERT_TRUE(service.releaseHeld(Command::play, 11));
    ASSERT_TRUE(finished(second));
    EXPECT_EQ(first.value(), 11);
    EXPECT_EQ(second.value(), 1);
    // The stop now waits for the streamer to report stopped; the playNext behind it.
    drainEvents();
    EXPECT_EQ(service.commands(), (QList<Command>{Command::play, Command::play, Command::stop}));
    EXPECT_EQ(controller->state(), State::stopping);

    publish(dataOf(1, ZuvoPlayLogicState::stopped));
    ASSERT_TRUE(finished(next));
    EXPECT_TRUE(stopped.value());
    EXPECT_EQ(next.value(), 2);
    EXPECT_EQ(service.commands(),
              (QList<Command>{Command::play, Command::play, Command::stop, Command::setNextMedia}));

    // What each play sent.
    const ZuvoStreamerPlayArgs playArgs(service.invocations(Command::play).at(1).args());
    EXPECT_EQ(playArgs.roles(), rolesTitled(QStringLiteral("b")));
    EXPECT_EQ(playArgs.attributes().toHash(), (QVariantHash{{ZuvoStreamerAttributesStartPaused(), true}}));
    const QVariantHash nextArgs = service.last(Command::setNextMedia).args();
    EXPECT_EQ(ZuvoStreamerPlayArgs(nextArgs).roles(), rolesTitled(QStringLiteral("c")));
    EXPECT_FALSE(nextArgs.contains(ZuvoStreamerPlayArgs::Attributes()));
}

TEST_F(StreamerControllerQueue, PlayRepliesWithoutAUsablePlaybackIdFail) {
    struct Case {
        const char* name;
        std::function<void()> script;
        QString errorName;
        QString message;
    };
    const std::vector<Case> cases = {
        {"id -1", [&] { service.answerNext(Command::play, -1); }, CMError::DefaultName(),
         QStringLiteral("Invalid playback id")},
        {"no id", [&] { service.answerNext(Command::play, QVariant()); }, CMError::DefaultName(),
         QStringLiteral("Invalid playback id")},
        {"streamer error",
         [&] { service.failNext(Command::play, CMError(QStringLiteral("NoDevice"), TrString("no device"))); },
         QStringLiteral("NoDevice"), QStringLiteral("no device")},
    };
    controller->enable();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        c.script();
        const CMReply<int> reply = controller->play(ZuvoRoles(), false);
        ASSERT_TRUE(finished(reply));
        EXPECT_EQ(reply.error().name(), c.errorName);
        EXPECT_EQ(reply.error().message(), c.message);
        EXPECT_EQ(controller->state(), State::stopped) << "a starting controller returns to stopped";
    }
    // The queue went on after each failure.
    const CMReply<int> ok = controller->play(ZuvoRoles(), false);
    ASSERT_TRUE(finished(ok));
    EXPECT_EQ(ok.value(), 1);
    EXPECT_EQ(controller->state(), State::playing);
}

TEST_F(StreamerControllerQueue, PlayWhilePlayingReplacesWithoutStopAndPostponesTheOldStop) {
    for (bool newPlaybackRuns : {true, false}) {
        SCOPED_TRACE(newPlaybackRuns ? "the new playback reports running" : "nothing more arrives");
        recreate();
        const int old = startPlaying();
        const CMReply<int> replacement = controller->play(rolesTitled(QStringLiteral("second")), false);
        ASSERT_TRUE(finished(replacement));
        EXPECT_EQ(service.count(Command::stop), 0);
        EXPECT_EQ(controller->state(), State::playing);
        ASSERT_NE(postponeTimer(), nullptr);
        EXPECT_TRUE(postponeTimer()->isActive());
        EXPECT_EQ(postponeTimer()->interval(), 100);
        postponeTimer()->setInterval(60000); // keeps the window open however slow this machine is

        // The replaced playback reports its stop late: nobody is told now.
        publish(dataOf(old, ZuvoPlayLogicState::stopped));
        if (newPlaybackRuns)
            publish(dataOf(replacement.value(), ZuvoPlayLogicState::playing));
        EXPECT_FALSE(reportedStopped());

        postponeTimer()->setInterval(1); // restarts the running timer
        ASSERT_TRUE(waitUntil([&] { return !postponeTimer()->isActive(); }));
        drainEvents();
        if (newPlaybackRuns) {
            EXPECT_FALSE(reportedStopped());
            EXPECT_EQ(controller->state(), State::playing);
            EXPECT_EQ(reported.last().first.trackRoles(), rolesTitled(QStringLiteral("second")));
        } else {
            EXPECT_TRUE(reportedStopped()) << "still stopped when the window closes";
            EXPECT_EQ(controller->state(), State::stopped);
        }
    }
}

TEST_F(StreamerControllerQueue, DisabledControllerRefusesEveryRequest) {
    const std::vector<std::pair<const char*, std::function<CMVoidReply()>>> cases = {
        {"play", [&] { return controller->play(ZuvoRoles(), false); }},
        {"playNext", [&] { return controller->playNext(ZuvoRoles()); }},
        {"stop", [&] { return controller->stop(); }},
        {"pause", [&] { return controller->pause(); }},
        {"resume", [&] { return controller->resume(); }},
        {"seekTime", [&] { return controller->seekTime(5); }},
        {"seekBytes", [&] { return controller->seekBytes(5); }},
    };
    for (bool afterDisable : {false, true}) {
        if (afterDisable) {
            controller->enable();
            controller->disable();
        }
        for (const auto& [name, call] : cases) {
            SCOPED_TRACE(std::string(name) + (afterDisable ? " after disable()" : ""));
            const CMVoidReply reply = call();
            EXPECT_TRUE(reply.isFinished());
            EXPECT_EQ(reply.error().name(), CMError::DefaultName());
            EXPECT_EQ(reply.error().message(), QStringLiteral("Streamer is not enabled"));
        }
        controller->clearNextPlayback();
    }
    drainEvents();
    EXPECT_TRUE(service.invocations().isEmpty());
    EXPECT_EQ(controller->state(), State::stopped);
}

TEST_F(StreamerControllerQueue, DirectOperationsBypassTheQueueInAnyState) {
    controller->enable();
    const CMReply<void> whileStopped = controller->pause();
    ASSERT_TRUE(finished(whileStopped));
    EXPECT_FALSE(whileStopped.hasError());
    EXPECT_EQ(service.count(Command::pause), 1) << "pause while stopped is still sent";

    const CMReply<int> inFlight = heldPlay();
    service.failNext(Command::resume, CMError(QStringLiteral("NotPaused"), TrString("not paused")));
    const CMReply<void> resumed = controller->resume();
    const CMReply<void> byTime = controller->seekTime(61000);
    const CMReply<void> byBytes = controller->seekBytes(1 << 20);
    controller->clearNextPlayback();
    ASSERT_TRUE(finished(resumed));
    ASSERT_TRUE(finished(byTime));
    ASSERT_TRUE(finished(byBytes));
    ASSERT_TRUE(service.waitForCount(Command::clearNextMedia, 1));
    EXPECT_FALSE(inFlight.isFinished());
    EXPECT_EQ(resumed.error().name(), QStringLiteral("NotPaused"));
    EXPECT_FALSE(byTime.hasError());

    const QList<TestStreamerService::Invocation> seeks = service.invocations(Command::seek);
    ASSERT_EQ(seeks.size(), 2);
    EXPECT_EQ(seeks.at(0).args(), (QVariantHash{{ZuvoStreamerSeekPosition::TimeMs(), qint64(61000)}}));
    EXPECT_EQ(seeks.at(1).args(), (QVariantHash{{ZuvoStreamerSeekPosition::Bytes(), qint64(1 << 20)}}));
    EXPECT_EQ(controller->state(), State::starting);
}

TEST_F(StreamerControllerQueue, DestroyedControllerCancelsWhatItCanNoLongerAnswer) {
    controller->enable();
    const CMReply<int> inFlight = heldPlay();
    const CMReply<int> queued = controller->play(ZuvoRoles(), false);
    controller.reset();
    ASSERT_TRUE(finished(queued));
    EXPECT_EQ(queued.error().name(), CMVoidReply::ErrorCancel());
    EXPECT_FALSE(inFlight.isFinished());

    ASSERT_TRUE(service.releaseHeld(Command::play, 4));
    ASSERT_TRUE(finished(inFlight));
    EXPECT_EQ(inFlight.error().name(), CMVoidReply::ErrorCancel());
    drainEvents();
    EXPECT_EQ(service.count(Command::play), 1);
}

TEST_F(StreamerControllerQueue, EnableAndDisableStartAndEndASession) {
    controller->enable();
    controller->enable();
    EXPECT_EQ(service.bufferingLevelWatchers(), 1);

    startPlaying();
    controller->disable();
    EXPECT_TRUE(log.contains(log4cplus::ERROR_LOG_LEVEL,
                             QStringLiteral("Disabling Streamer while not in stopped state")));
    EXPECT_EQ(controller->state(), State::stopped);
    // No longer watching: data published now reaches nobody.
    reported.clear();
    publish(dataOf(1, ZuvoPlayLogicState::stopped));
    EXPECT_TRUE(reported.isEmpty());
    controller->disable(); // a second disable is harmless
}

TEST(StreamerControllerDeathTest, BrokenInvariantsStopTheProgram) {
    EXPECT_DEATH({ StreamerController controller{QSharedPointer<StreamerInterface>()}; }, "m_streamer");
    EXPECT_DEATH(
        {
            CMRootScope root;
            TestStreamerService service(root.nodes());
            StreamerController controller(QSharedPointer<ZuvoStreamerInterface>::create());
            controller.enable();
            service.holdNext(Command::play);
            controller.play(ZuvoRoles(), false);
            service.waitForCount(Command::play, 1);
            controller.disable(); // misuse: the play is still in flight
            service.releaseHeld(Command::play, 1);
            drainEvents();
        },
        "m_state != State::stopped");
}

// ---------------------------------------------------------------- stop merging

TEST_F(StreamerControllerStop, StopsWhileAStopWaitsAreMergedIntoIt) {
    startPlaying();
    const CMReply<bool> first = controller->stop();
    const CMReply<bool> second = controller->stop();
    drainEvents();
    EXPECT_EQ(service.count(Command::stop), 1);
    EXPECT_EQ(controller->state(), State::stopping);
    EXPECT_FALSE(first.isFinished());

    publish(dataOf(1, ZuvoPlayLogicState::stopped));
    ASSERT_TRUE(first.isFinished());
    ASSERT_TRUE(second.isFinished());
    EXPECT_TRUE(first.value());
    EXPECT_TRUE(second.value());
    EXPECT_EQ(controller->state(), State::stopped);
    EXPECT_TRUE(reportedStopped()) << "the playback's end is passed on";
    EXPECT_EQ(prepareCount, 0) << "our own stop asks for no next media";

    // The playback's stop has been reported: a later stop is a new one,
    // sent although stopped and answered by the streamer.
    const CMReply<bool> third = controller->stop();
    ASSERT_TRUE(finished(third));
    EXPECT_FALSE(third.value());
    EXPECT_EQ(service.count(Command::stop), 2);
}

TEST_F(StreamerControllerStop, StopWhileStoppedHoldsTheQueueUntilTheStreamerAnswers) {
    controller->enable();
    service.holdNext(Command::stop);
    const CMReply<bool> stopped = controller->stop();
    const CMReply<int> play = controller->play(ZuvoRoles(), false);
    ASSERT_TRUE(service.waitForCount(Command::stop, 1));
    drainEvents();
    EXPECT_EQ(service.commands(), QList<Command>{Command::stop});
    EXPECT_EQ(controller->state(), State::stopped);

    ASSERT_TRUE(service.releaseHeld(Command::stop));
    ASSERT_TRUE(finished(play));
    EXPECT_TRUE(stopped.isFinished());
    EXPECT_FALSE(stopped.value());
    EXPECT_EQ(play.value(), 1);
    EXPECT_EQ(service.commands(), (QList<Command>{Command::stop, Command::play}));
}

TEST_F(StreamerControllerStop, StopRepliesFailWithTheStreamersErrorMessage) {
    startPlaying();
    const CMReply<bool> first = controller->stop();
    const CMReply<bool> second = controller->stop();
    publish(stoppedWithError(1, -5, QStringLiteral("device gone")));
    for (const CMReply<bool>& reply : {first, second}) {
        ASSERT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.error().name(), CMError::DefaultName());
        EXPECT_EQ(reply.error().title(), CMError::DefaultTitle().toString());
        EXPECT_EQ(reply.error().message(), QStringLiteral("device gone"));
    }
    EXPECT_EQ(controller->state(), State::stopped);
}

// ---------------------------------------------------------------- data attribution and restarts

TEST_F(StreamerControllerData, RunningDataIsPassedOnWithTheRolesOfItsPlayback) {
    const ZuvoRoles roles = rolesTitled(QStringLiteral("song"));
    startPlaying(roles);
    ASSERT_EQ(reported.size(), 1);
    EXPECT_EQ(reported.at(0).first.trackRoles(), roles) << "filled in from the playback";
    EXPECT_TRUE(reported.at(0).second.isEmpty());

    ZuvoStreamerData paused = dataOf(1, ZuvoPlayLogicState::paused);
    paused.setTrackRoles(rolesTitled(QStringLiteral("from the streamer")));
    publish(paused);
    ASSERT_EQ(reported.size(), 2);
    EXPECT_EQ(reported.at(1).first, paused) << "roles the streamer sends are kept";
    EXPECT_EQ(reported.at(1).second, reported.at(0).first);
}

TEST_F(StreamerControllerData, RecordsThatCannotBeAttributedAreDropped) {
    controller->enable();
    publish(dataOf(1, ZuvoPlayLogicState::playing));
    EXPECT_TRUE(reported.isEmpty()) << "no playback is active yet";

    startPlaying();
    ZuvoStreamerData minusOneWithError = dataOf(-1, ZuvoPlayLogicState::playing);
    minusOneWithError.setError(TestStreamerService::makeError(-5));
    struct Case {
        const char* name;
        ZuvoStreamerData data;
        QString message;
    };
    const std::vector<Case> cases = {
        {"id -1, stopped", dataOf(-1, ZuvoPlayLogicState::stopped),
         QStringLiteral("Invalid playback Id with error")},
        {"id -1, error", minusOneWithError, QStringLiteral("Invalid playback Id with error")},
        {"id -1, running", dataOf(-1, ZuvoPlayLogicState::playing),
         QStringLiteral("Invalid playback Id without error, this should newer happened")},
        {"unknown id", dataOf(42, ZuvoPlayLogicState::stopped),
         QStringLiteral("Streamer data changed without our id: 42")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        log.clear();
        const int reportedBefore = reported.size();
        publish(c.data);
        EXPECT_TRUE(log.contains(log4cplus::ERROR_LOG_LEVEL, c.message)) << log.toString().toStdString();
        EXPECT_EQ(reported.size(), reportedBefore);
        EXPECT_EQ(controller->state(), State::playing);
    }
    EXPECT_EQ(prepareCount, 0);
}

TEST_F(StreamerControllerData, OnePlaybackBeforeTheNewestIsKept) {
    startPlaying(rolesTitled(QStringLiteral("a")));
    for (const char* title : {"b", "c"}) {
        const CMReply<int> reply = controller->play(rolesTitled(QString::fromLatin1(title)), false);
        ASSERT_TRUE(finished(reply));
    }
    publish(dataOf(3, ZuvoPlayLogicState::playing));
    EXPECT_EQ(reported.last().first.trackRoles(), rolesTitled(QStringLiteral("c")));

    publish(dataOf(1, ZuvoPlayLogicState::paused));
    EXPECT_TRUE(
        log.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("Streamer data changed without our id: 1")));
    publish(dataOf(2, ZuvoPlayLogicState::paused));
    EXPECT_FALSE(log.contains(QStringLiteral("without our id: 2")));
    EXPECT_EQ(reported.last().first.trackRoles(), rolesTitled(QStringLiteral("b")));
}

TEST_F(StreamerControllerData, ARestartEndsTheRunningPlaybackAsCrashed) {
    struct Case {
        const char* name;
        bool dataSeen; // whether the streamer reported the playback before it restarted
        bool stopWaiting;
    };
    for (const Case& c : {Case{"data seen", true, false}, Case{"no data yet", false, false},
                          Case{"stop waiting", true, true}}) {
        SCOPED_TRACE(c.name);
        recreate();
        log.clear();
        const ZuvoRoles roles = rolesTitled(QStringLiteral("crashing"));
        controller->enable();
        const CMReply<int> play = controller->play(roles, false);
        ASSERT_TRUE(finished(play));
        if (c.dataSeen)
            publish(dataOf(play.value(), ZuvoPlayLogicState::playing));
        const CMReply<bool> stop = c.stopWaiting ? controller->stop() : CMReply<bool>(nullptr);

        publish(TestStreamerService::restartedData());
        EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("Streamer restarted")));
        ASSERT_TRUE(reportedStopped());
        const ZuvoStreamerData last = reported.last().first;
        EXPECT_EQ(last.error().name(), ZuvoStreamerErrorCrashed());
        EXPECT_EQ(last.state(), ZuvoPlayLogicState::stopped);
        EXPECT_EQ(last.trackRoles(), roles);
        EXPECT_EQ(controller->state(), State::stopped);
        EXPECT_EQ(prepareCount, 0);
        if (c.stopWaiting) {
            ASSERT_TRUE(stop.isFinished());
            EXPECT_EQ(stop.error().name(), CMError::DefaultName());
        }
    }
}

TEST_F(StreamerControllerData, StoppedBeforeThePlayReplyLetsTheReplyDecide) {
    for (bool succeeds : {true, false}) {
        SCOPED_TRACE(succeeds ? "replacement succeeds" : "replacement fails");
        recreate();
        const int old = startPlaying();
        const CMReply<int> replacement = heldPlay(rolesTitled(QStringLiteral("new")));
        publish(dataOf(old, ZuvoPlayLogicState::stopped));
        EXPECT_EQ(controller->state(), State::starting);
        EXPECT_FALSE(reportedStopped());

        if (succeeds) {
            ASSERT_TRUE(service.releaseHeld(Command::play, 5));
            ASSERT_TRUE(finished(replacement));
            EXPECT_EQ(replacement.value(), 5);
            EXPECT_EQ(controller->state(), State::playing);
            publish(dataOf(5, ZuvoPlayLogicState::playing));
            EXPECT_FALSE(reportedStopped()) << "the replaced playback's stop never reaches the play logic";
            EXPECT_EQ(reported.last().first.trackRoles(), rolesTitled(QStringLiteral("new")));
        } else {
            ASSERT_TRUE(service.failHeld(Command::play, CMError(QStringLiteral("Busy"), TrString("busy"))));
            ASSERT_TRUE(finished(replacement));
            EXPECT_TRUE(replacement.hasError());
            EXPECT_EQ(controller->state(), State::stopped);
            EXPECT_TRUE(reportedStopped()) << "the old playback's end is passed on";
        }
    }
}

TEST_F(StreamerControllerData, RecordsWhileAStopIsSentInTheStoppedStateKeepTheQueueIntact) {
    // Playing; a replacement fails after the old playback stopped, with a
    // stop queued behind it: that stop goes out in the stopped state while
    // the old playback still counts as active.
    const int old = startPlaying();
    heldPlay();
    const CMReply<bool> stop = controller->stop();
    publish(dataOf(old, ZuvoPlayLogicState::stopped));
    service.holdNext(Command::stop);
    ASSERT_TRUE(service.failHeld(Command::play, CMError(QStringLiteral("Busy"), TrString("busy"))));
    ASSERT_TRUE(service.waitForCount(Command::stop, 1));
    EXPECT_EQ(controller->state(), State::stopped);
    const int reportedBefore = reported.size();

    publish(TestStreamerService::restartedData());
    EXPECT_EQ(reported.size(), reportedBefore) << "a restart while stopped is ignored";
    publish(stoppedWithError(old, -13));
    EXPECT_FALSE(stop.isFinished()) << "only the streamer's answer finishes this stop";

    ASSERT_TRUE(service.releaseHeld(Command::stop));
    ASSERT_TRUE(finished(stop));
    EXPECT_TRUE(stop.value());
    EXPECT_TRUE(reportedStopped());
    const CMReply<int> next = controller->play(ZuvoRoles(), false);
    ASSERT_TRUE(finished(next)) << "the queue moves on";
    EXPECT_FALSE(next.hasError());
}

TEST_F(StreamerControllerData, AdversarialOrdersNeverStallTheQueue) {
    // Every order of these events, starting from a running playback, then
    // the streamer answers everything and reports the newest playback
    // stopped: every reply completes and a new play still goes through.
    int nextId = 100;
    int newest = 1; // the newest playback id granted
    const auto answerHeldPlay = [&] {
        if (service.releaseHeld(Command::play, nextId))
            newest = nextId++;
    };
    const std::vector<std::pair<const char*, std::function<void(QList<CMVoidReply>&)>>> events = {
        {"play",
         [&](QList<CMVoidReply>& r) {
             service.holdNext(Command::play); // held once it is sent, maybe only later
             r.append(controller->play(ZuvoRoles(), false));
             drainEvents();
         }},
        {"stop", [&](QList<CMVoidReply>& r) { r.append(controller->stop()); }},
        {"stopped", [&](QList<CMVoidReply>&) { publish(dataOf(1, ZuvoPlayLogicState::stopped)); }},
        {"restart", [&](QList<CMVoidReply>&) { publish(TestStreamerService::restartedData()); }},
        {"answer play",
         [&](QList<CMVoidReply>&) {
             answerHeldPlay();
             drainEvents();
         }},
        {"fail play",
         [&](QList<CMVoidReply>&) {
             service.failHeld(Command::play, CMError(QStringLiteral("Busy"), TrString("busy")));
             drainEvents();
         }},
    };
    std::vector<int> order(events.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = int(i);
    do {
        std::string name;
        for (int i : order)
            name += std::string(events[i].first) + ", ";
        SCOPED_TRACE(name);
        recreate();
        newest = 1;
        postponeTimer()->setInterval(1);
        QList<CMVoidReply> replies;
        startPlaying();
        for (int i : order)
            events[i].second(replies);

        for (int round = 0; round < 4; ++round) {
            while (service.heldCount(Command::play) > 0)
                answerHeldPlay();
            drainEvents();
            ZuvoStreamerData end = dataOf(newest, ZuvoPlayLogicState::stopped);
            end.setTrackNearEnd(round % 2 == 1); // a record that differs from the last one
            publish(end);
            ASSERT_TRUE(waitUntil([&] { return !postponeTimer()->isActive(); }));
            drainEvents();
        }
        for (const CMVoidReply& reply : replies)
            EXPECT_TRUE(reply.isFinished());
        EXPECT_EQ(controller->state(), State::stopped);
        const CMReply<int> last = controller->play(ZuvoRoles(), false);
        ASSERT_TRUE(finished(last));
        EXPECT_FALSE(last.hasError());
        if (HasFailure())
            break;
    } while (std::next_permutation(order.begin(), order.end()));
}

// ---------------------------------------------------------------- near end and prepare-next

namespace {

// A running record of playbackId; step makes consecutive records differ.
ZuvoStreamerData running(int playbackId, bool nearEnd, qint64 step) {
    ZuvoStreamerData data = dataOf(playbackId, ZuvoPlayLogicState::playing);
    data.setTrackNearEnd(nearEnd);
    ZuvoPlayLogicStatus status;
    status.setDuration(step);
    data.setStatus(status);
    return data;
}

} // namespace

TEST_F(StreamerControllerNearEnd, TheNextMediaIsAskedForOncePerPlayback) {
    startPlaying();
    publish(running(1, true, 1));
    EXPECT_EQ(prepareCount, 1);
    publish(running(1, true, 2));
    EXPECT_EQ(prepareCount, 1) << "no rising edge";
    publish(running(1, false, 3));
    publish(running(1, true, 4));
    EXPECT_EQ(prepareCount, 1) << "already asked during this playback";

    const int reportedBefore = reported.size();
    publish(dataOf(1, ZuvoPlayLogicState::stopped));
    EXPECT_EQ(reported.size(), reportedBefore + 1);
    EXPECT_EQ(prepareCount, 1);
}

TEST_F(StreamerControllerNearEnd, APlaybackEndedByItsReceiverIsNotAskedForAgain) {
    // A play logic that ends its playback on the stopped record disables the
    // controller while the record is passed on.
    startPlaying();
    publish(running(1, true, 1));
    ASSERT_EQ(prepareCount, 1);
    QObject::connect(controller.get(), &StreamerController::streamerDataChanged, controller.get(),
                     [this](const ZuvoStreamerData& data) {
                         if (data.state() == ZuvoPlayLogicState::stopped)
                             controller->disable();
                     });
    publish(stoppedWithError(1, -13));
    EXPECT_TRUE(reportedStopped());
    EXPECT_EQ(prepareCount, 1);
}

TEST_F(StreamerControllerNearEnd, EachStartedPlaybackMayAskAgain) {
    startPlaying();
    publish(running(1, true, 1));
    ASSERT_EQ(prepareCount, 1);
    const CMReply<int> next = controller->playNext(rolesTitled(QStringLiteral("next")));
    ASSERT_TRUE(finished(next));
    publish(running(next.value(), false, 2));
    publish(running(next.value(), true, 3));
    EXPECT_EQ(prepareCount, 2);
}

TEST_F(StreamerControllerNearEnd, HowAPlaybackEndsDecidesWhetherToAskForNextMedia) {
    struct Case {
        const char* name;
        std::function<void()> end;
        int expected;
    };
    const std::vector<Case> cases = {
        {"stopped", [&] { publish(dataOf(1, ZuvoPlayLogicState::stopped)); }, 1},
        {"end of stream (-13)", [&] { publish(stoppedWithError(1, -13)); }, 1},
        {"other error", [&] { publish(stoppedWithError(1, -16)); }, 0},
        {"our own stop",
         [&] {
             controller->stop();
             publish(dataOf(1, ZuvoPlayLogicState::stopped));
         },
         0},
        {"crash", [&] { publish(TestStreamerService::restartedData()); }, 0},
        {"error while still running",
         [&] {
             ZuvoStreamerData data = dataOf(1, ZuvoPlayLogicState::playing);
             data.setError(TestStreamerService::makeError(-16));
             publish(data);
         },
         0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        recreate();
        startPlaying();
        c.end();
        EXPECT_TRUE(reportedStopped());
        EXPECT_EQ(controller->state(), State::stopped);
        EXPECT_EQ(prepareCount, c.expected);
    }
}

// ---------------------------------------------------------------- buffering

TEST_F(StreamerControllerBuffering, LevelIsTruncatedTowardZero) {
    EXPECT_EQ(controller->buffering(), -1) << "not listening before enable()";
    controller->enable();
    const std::vector<std::pair<double, int>> cases = {
        {99.9, 99}, {50.0, 50}, {0.5, 0}, {-1.0, -1}, {100.0, 100}, {-0.5, 0}, {qQNaN(), -1}, {1e12, INT_MAX},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        service.publishBufferingLevel(c.first);
        ASSERT_TRUE(waitUntil([&] { return !levels.isEmpty() && levels.last() == c.second; }));
        EXPECT_EQ(controller->buffering(), c.second);
    }
}

TEST_F(StreamerControllerBuffering, BufferedBytesAreReportedOnlyWhenAskedFor) {
    const auto lastReportsFlag = [&] {
        const ZuvoStreamerSetAttributesArgs args(service.last(Command::setAttributes).args());
        EXPECT_EQ(args.playbackId(), -1);
        const QVariantHash attributes = args.attributes().toHash();
        EXPECT_EQ(attributes.size(), 1);
        return attributes.value(ZuvoStreamerAttributesBufferLevelReportsEnabled());
    };

    controller->reportBufferedBytes(true);
    EXPECT_TRUE(log.contains(log4cplus::ERROR_LOG_LEVEL,
                             QStringLiteral("Report bufffered size but Streamer is disabled")));
    drainEvents();
    EXPECT_EQ(service.count(Command::setAttributes), 0);

    controller->enable();
    controller->reportBufferedBytes(true);
    controller->reportBufferedBytes(true);
    ASSERT_TRUE(service.waitForCount(Command::setAttributes, 2));
    EXPECT_EQ(lastReportsFlag(), QVariant(true));
    EXPECT_EQ(service.bufferedBytesWatchers(), 1);
    service.publishBufferedBytes(4096);
    ASSERT_TRUE(waitUntil([&] { return !buffered.isEmpty(); }));
    service.publishBufferedBytes(8192);
    ASSERT_TRUE(waitUntil([&] { return buffered.size() >= 2; }));
    drainEvents();
    EXPECT_EQ(buffered, (QList<int64_t>{4096, 8192})) << "one connection only";
    EXPECT_EQ(controller->bufferedBytes(), 8192);

    controller->reportBufferedBytes(false);
    controller->reportBufferedBytes(false); // not listening: the attribute is still sent
    ASSERT_TRUE(service.waitForCount(Command::setAttributes, 4));
    EXPECT_EQ(lastReportsFlag(), QVariant(false));
    EXPECT_EQ(controller->bufferedBytes(), -1);
    service.publishBufferedBytes(1);
    drainEvents();
    EXPECT_EQ(buffered.size(), 2);
    EXPECT_EQ(service.bufferedBytesWatchers(), 0);
}

TEST_F(StreamerControllerBuffering, ADifferentBufferingConfigIsRestoredOnDisable) {
    const QVariantHash defaultConfig{{QStringLiteral("minMs"), 500}};
    const QVariantHash customConfig{{QStringLiteral("minMs"), 4000}};
    ZuvoValue value;
    value.setVariant(defaultConfig);
    CMValueNode* player = CMValueNode::create(root.nodes(), ZuvoPlayerStreamBufferingConfigPath());
    player->setValue(value);
    const auto sentConfigs = [&] {
        QList<QVariant> configs;
        for (const auto& invocation : service.invocations(Command::setAttributes)) {
            const QVariantHash attributes =
                ZuvoStreamerSetAttributesArgs(invocation.args()).attributes().toHash();
            if (attributes.contains(ZuvoStreamerAttributesBufferingConfig()))
                configs.append(attributes.value(ZuvoStreamerAttributesBufferingConfig()));
        }
        return configs;
    };

    controller->setBufferingConfig(customConfig);
    EXPECT_TRUE(log.contains(log4cplus::ERROR_LOG_LEVEL,
                             QStringLiteral("Report buffered size but Streamer is disabled")));

    controller->enable();
    controller->setBufferingConfig(customConfig);
    controller->reportBufferedBytes(true);
    ZuvoValue later;
    later.setVariant(QVariantHash{{QStringLiteral("minMs"), 1}});
    player->setValue(later); // the default is read once
    controller->disable();
    drainEvents();
    EXPECT_EQ(sentConfigs(), (QList<QVariant>{customConfig, defaultConfig}));
    const QList<TestStreamerService::Invocation> all = service.invocations(Command::setAttributes);
    ASSERT_EQ(all.size(), 4);
    EXPECT_TRUE(ZuvoStreamerSetAttributesArgs(all.last().args())
                    .attributes()
                    .toHash()
                    .contains(ZuvoStreamerAttributesBufferLevelReportsEnabled()))
        << "buffered-bytes reports are switched off after the config is restored";

    // The default itself is no change: nothing to restore.
    controller->enable();
    controller->setBufferingConfig(defaultConfig);
    controller->disable();
    drainEvents();
    EXPECT_EQ(sentConfigs(), (QList<QVariant>{customConfig, defaultConfig, defaultConfig}));
}

TEST_F(StreamerControllerBuffering, PlayTimeIsPassedOn) {
    controller->enable();
    service.publishPlayTime(1234);
    ASSERT_TRUE(waitUntil([&] { return !times.isEmpty(); }));
    EXPECT_EQ(times, QList<qint64>{1234});
}
