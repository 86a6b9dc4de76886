#include <QTimer>
#include <algorithm>
#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <tuple>
#include <vector>

#include "model/cmnodes.h"
#include "model/cmvaluenode.h"
#include "streamercontroller.h"
#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/records.h"
#include "support/teststreamerservice.h"
#include "zuvostreamerinterface.h"

using Command = TestStreamerService::Command;
using State = StreamerController::State;
using zuvotest::drainEvents;
using zuvotest::rolesTitled;
using zuvotest::waitUntil;
constexpr auto kStopped = ZuvoPlayLogicState::stopped;
constexpr auto kPlaying = ZuvoPlayLogicState::playing;
constexpr auto kError = log4cplus::ERROR_LOG_LEVEL;

namespace {

ZuvoStreamerData dataOf(int playbackId, ZuvoPlayLogicState::Enum state, int code = 0,
                        const QString& message = QString()) {
    ZuvoStreamerData data = TestStreamerService::makeData(playbackId, state);
    if (code != 0)
        data.setError(TestStreamerService::makeError(code, QStringLiteral("StreamerError"), message));
    return data;
}

// A running record; step makes consecutive records differ (equal values are published once).
ZuvoStreamerData running(int playbackId, bool nearEnd, int step) {
    ZuvoStreamerData data = dataOf(playbackId, kPlaying);
    data.setTrackNearEnd(nearEnd);
    data.setNextTrackRoles(rolesTitled(QString::number(step)));
    return data;
}

const CMError kBusy(QStringLiteral("Busy"), TrString("busy"));

template <typename T> bool finished(const CMReply<T>& reply) {
    return waitUntil([&] { return reply.isFinished(); });
}

// Members go in reverse order: the controller first, then the streamer
// access, then the service (which fails what it still holds).
class StreamerControllerTest : public ::testing::Test {
protected:
    LogCapture log;
    CMRootScope root;
    TestStreamerService service{root.nodes()};
    QSharedPointer<ZuvoStreamerInterface> streamer;
    std::unique_ptr<StreamerController> controller;
    QList<QPair<ZuvoStreamerData, ZuvoStreamerData>> reported;
    int prepareCount = 0;
    QList<qint64> times;
    QList<int> levels;
    QList<int64_t> buffered;

    void SetUp() override { recreate(); }

    void recreate() {
        controller.reset();
        service.reset();
        drainEvents();
        reported.clear();
        prepareCount = 0;
        controller = std::make_unique<StreamerController>(streamer = decltype(streamer)::create());
        StreamerController* c = controller.get();
        QObject::connect(c, &StreamerController::streamerDataChanged,
                         [this](const ZuvoStreamerData& n, const ZuvoStreamerData& o) {
                             reported.append({n, o});
                         });
        QObject::connect(c, &StreamerController::prepareNextMedia, [this] { ++prepareCount; });
        QObject::connect(c, &StreamerController::timeChanged, [this](qint64 t) { times.append(t); });
        QObject::connect(c, QOverload<int>::of(&StreamerController::buffering),
                         [this](int p) { levels.append(p); });
        QObject::connect(c, &StreamerController::bufferedBytesChanged,
                         [this](int64_t b) { buffered.append(b); });
    }

    QTimer* postponeTimer() const { return controller->findChild<QTimer*>(QStringLiteral("postponeTimer")); }

    void publish(const ZuvoStreamerData& data) {
        service.publishData(data);
        drainEvents();
    }

    // Enables the controller and starts a playback that reports playing; returns its id.
    int startPlaying(const ZuvoRoles& roles = rolesTitled(QStringLiteral("first"))) {
        controller->enable();
        const CMReply<int> reply = controller->play(roles, false);
        EXPECT_TRUE(finished(reply));
        publish(dataOf(reply.value(), kPlaying));
        EXPECT_EQ(controller->state(), State::playing);
        return reply.value();
    }

    // A play the streamer has received and keeps unanswered until released.
    CMReply<int> heldPlay(const ZuvoRoles& roles = rolesTitled(QStringLiteral("held"))) {
        service.holdNext(Command::play);
        const int before = service.count(Command::play);
        const CMReply<int> reply = controller->play(roles, false);
        EXPECT_TRUE(service.waitForCount(Command::play, before + 1));
        return reply;
    }

    bool reportedStopped() const {
        return std::any_of(reported.begin(), reported.end(),
                           [](const auto& r) { return r.first.state() == kStopped; });
    }
};

} // namespace

TEST_F(StreamerControllerTest, StateTable) {
    enum Setup { Stopped, Starting, Playing, Replacing, Stopping };
    enum Event { PlayInvoked, PlaySucceeded, PlayFailed, StopInvoked, StreamerStopped, Reenabled };
    // clang-format off
    const std::vector<std::pair<State, std::function<void()>>> setups = {
        {State::stopped, [&] { controller->enable(); }},
        {State::starting, [&] { controller->enable(); heldPlay(); }},
        {State::playing, [&] { startPlaying(); }},
        {State::playing, [&] { startPlaying(); heldPlay(); }}, // a replacement in flight
        {State::stopping, [&] { startPlaying(); controller->stop(); drainEvents(); }},
    };
    const std::vector<std::function<void()>> events = {
        [&] { service.holdNext(Command::play); controller->play(ZuvoRoles(), false); drainEvents(); },
        [&] { EXPECT_TRUE(service.releaseHeld(Command::play, 7)); drainEvents(); },
        [&] { EXPECT_TRUE(service.failHeld(Command::play, kBusy)); drainEvents(); },
        [&] { controller->stop(); drainEvents(); },
        [&] { publish(dataOf(1, kStopped)); },
        [&] { controller->disable(); controller->enable(); },
    };
    const std::vector<std::tuple<Setup, Event, State>> table = {
        {Stopped, PlayInvoked, State::starting},    {Stopped, StopInvoked, State::stopped},
        {Stopped, StreamerStopped, State::stopped}, {Stopped, Reenabled, State::stopped},
        {Starting, PlayInvoked, State::starting},   {Starting, PlaySucceeded, State::playing},
        {Starting, PlayFailed, State::stopped},     {Starting, StopInvoked, State::starting},
        {Starting, StreamerStopped, State::starting}, {Starting, Reenabled, State::stopped},
        {Playing, PlayInvoked, State::playing},     {Playing, StopInvoked, State::stopping},
        {Playing, StreamerStopped, State::stopped}, {Playing, Reenabled, State::stopped},
        {Replacing, PlaySucceeded, State::playing}, {Replacing, PlayFailed, State::playing},
        {Replacing, StopInvoked, State::playing},   {Replacing, StreamerStopped, State::starting},
        {Stopping, PlayInvoked, State::stopping},   {Stopping, StopInvoked, State::stopping},
        {Stopping, StreamerStopped, State::stopped}, {Stopping, Reenabled, State::stopped},
    };
    // clang-format on
    for (const auto& [from, event, to] : table) {
        SCOPED_TRACE(testing::Message() << "setup " << from << ", event " << event);
        recreate();
        setups[from].second();
        ASSERT_EQ(controller->state(), setups[from].first);
        events[event]();
        EXPECT_EQ(controller->state(), to);
    }
}

TEST_F(StreamerControllerTest, OnlyTheHeadOfTheQueueIsInFlight) {
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
    drainEvents(); // the stop now waits for the streamer to report stopped, the playNext behind it
    EXPECT_EQ(service.commands(), (QList<Command>{Command::play, Command::play, Command::stop}));
    EXPECT_EQ(controller->state(), State::stopping);

    publish(dataOf(1, kStopped));
    ASSERT_TRUE(finished(next));
    EXPECT_TRUE(stopped.value());
    EXPECT_EQ(next.value(), 2);
    EXPECT_EQ(service.commands(),
              (QList<Command>{Command::play, Command::play, Command::stop, Command::setNextMedia}));
    EXPECT_EQ(ZuvoStreamerPlayArgs(service.invocations(Command::play).at(1).args()).attributes().toHash(),
              (QVariantHash{{ZuvoStreamerAttributesStartPaused(), true}}));
    const QVariantHash nextArgs = service.last(Command::setNextMedia).args();
    EXPECT_EQ(ZuvoStreamerPlayArgs(nextArgs).roles(), rolesTitled(QStringLiteral("c")));
    EXPECT_FALSE(nextArgs.contains(ZuvoStreamerPlayArgs::Attributes()));
}

TEST_F(StreamerControllerTest, PlayRepliesWithoutAUsablePlaybackIdFailAndTheQueueGoesOn) {
    controller->enable();
    const QString invalid = QStringLiteral("Invalid playback id");
    // The streamer's answer (id or error) and the error expected.
    const std::vector<std::tuple<QVariant, CMError, QString, QString>> cases = {
        {-1, CMError(), CMError::DefaultName(), invalid},
        {QVariant(), CMError(), CMError::DefaultName(), invalid},
        {QVariant(), CMError(QStringLiteral("NoDevice"), TrString("no device")), QStringLiteral("NoDevice"),
         QStringLiteral("no device")},
    };
    for (const auto& [id, error, name, message] : cases) {
        SCOPED_TRACE(name.toStdString() + " " + id.toString().toStdString());
        const CMReply<int> reply = heldPlay();
        ASSERT_TRUE(error.isEmpty() ? service.releaseHeld(Command::play, id)
                                    : service.failHeld(Command::play, error));
        ASSERT_TRUE(finished(reply));
        EXPECT_EQ(reply.error().name(), name);
        EXPECT_EQ(reply.error().message(), message);
        EXPECT_EQ(controller->state(), State::stopped) << "a starting controller returns to stopped";
    }
    const CMReply<int> ok = controller->play(ZuvoRoles(), false);
    ASSERT_TRUE(finished(ok));
    EXPECT_EQ(ok.value(), 1);
    EXPECT_EQ(controller->state(), State::playing);
}

TEST_F(StreamerControllerTest, PlayWhilePlayingReplacesWithoutStopAndPostponesTheOldStop) {
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

        publish(dataOf(old, kStopped)); // the replaced playback reports its stop late: nobody is told now
        if (newPlaybackRuns)
            publish(dataOf(replacement.value(), kPlaying));
        EXPECT_FALSE(reportedStopped());

        postponeTimer()->setInterval(1); // restarts the running timer
        ASSERT_TRUE(waitUntil([&] { return !postponeTimer()->isActive(); }));
        drainEvents();
        EXPECT_EQ(reportedStopped(), !newPlaybackRuns) << "still stopped when the window closes";
        EXPECT_EQ(controller->state(), newPlaybackRuns ? State::playing : State::stopped);
        EXPECT_TRUE(!newPlaybackRuns ||
                    reported.last().first.trackRoles() == rolesTitled(QStringLiteral("second")));
    }
}

TEST_F(StreamerControllerTest, DisabledControllerRefusesEverything) {
    for (bool afterDisable : {false, true}) {
        SCOPED_TRACE(afterDisable ? "after disable()" : "before enable()");
        if (afterDisable) {
            controller->enable();
            controller->disable();
        }
        const QList<CMVoidReply> refused = {controller->play(ZuvoRoles(), false),
                                            controller->playNext(ZuvoRoles()),
                                            controller->stop(),
                                            controller->pause(),
                                            controller->resume(),
                                            controller->seekTime(5),
                                            controller->seekBytes(5)};
        for (const CMVoidReply& reply : refused) {
            EXPECT_TRUE(reply.isFinished());
            EXPECT_EQ(reply.error().name(), CMError::DefaultName());
            EXPECT_EQ(reply.error().message(), QStringLiteral("Streamer is not enabled"));
        }
        controller->clearNextPlayback();
        controller->reportBufferedBytes(true);
        controller->setBufferingConfig(QVariantHash{{QStringLiteral("minMs"), 1}});
    }
    EXPECT_TRUE(log.contains(kError, QStringLiteral("Report bufffered size but Streamer is disabled")));
    EXPECT_TRUE(log.contains(kError, QStringLiteral("Report buffered size but Streamer is disabled")));
    drainEvents();
    EXPECT_TRUE(service.invocations().isEmpty());
    EXPECT_EQ(controller->state(), State::stopped);
}

TEST_F(StreamerControllerTest, DirectOperationsBypassTheQueueAndADestroyedControllerCancels) {
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
    ASSERT_TRUE(finished(resumed) && finished(byTime) && finished(byBytes));
    ASSERT_TRUE(service.waitForCount(Command::clearNextMedia, 1));
    EXPECT_FALSE(inFlight.isFinished());
    EXPECT_EQ(resumed.error().name(), QStringLiteral("NotPaused"));
    EXPECT_FALSE(byTime.hasError());
    const QList<TestStreamerService::Invocation> seeks = service.invocations(Command::seek);
    ASSERT_EQ(seeks.size(), 2);
    EXPECT_EQ(seeks[0].args(), (QVariantHash{{ZuvoStreamerSeekPosition::TimeMs(), qint64(61000)}}));
    EXPECT_EQ(seeks[1].args(), (QVariantHash{{ZuvoStreamerSeekPosition::Bytes(), qint64(1 << 20)}}));
    EXPECT_EQ(controller->state(), State::starting);

    // Destroyed with a play in flight and one queued: both replies are cancelled.
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

TEST_F(StreamerControllerTest, StopsWaitForTheStreamerAndMergeWhileOneWaits) {
    startPlaying();
    const CMReply<bool> first = controller->stop();
    const CMReply<bool> second = controller->stop();
    drainEvents();
    EXPECT_EQ(service.count(Command::stop), 1);
    EXPECT_EQ(controller->state(), State::stopping);
    EXPECT_FALSE(first.isFinished());
    publish(dataOf(1, kStopped));
    ASSERT_TRUE(first.isFinished() && second.isFinished());
    EXPECT_TRUE(first.value() && second.value());
    EXPECT_EQ(controller->state(), State::stopped);
    EXPECT_TRUE(reportedStopped()) << "the playback's end is passed on";
    EXPECT_EQ(prepareCount, 0) << "our own stop asks for no next media";

    // Stopped, the playback's end reported: a stop is sent anyway and holds
    // the queue until the streamer answers it.
    service.holdNext(Command::stop);
    const CMReply<bool> third = controller->stop();
    const CMReply<int> play = controller->play(ZuvoRoles(), false);
    ASSERT_TRUE(service.waitForCount(Command::stop, 2));
    drainEvents();
    EXPECT_EQ(service.count(Command::play), 1);
    EXPECT_EQ(controller->state(), State::stopped);
    ASSERT_TRUE(service.releaseHeld(Command::stop));
    ASSERT_TRUE(finished(play));
    EXPECT_FALSE(third.value());
    EXPECT_EQ(play.value(), 2);

    // A stop ending in a streamer error fails every merged reply with its message.
    publish(dataOf(2, kPlaying));
    const QList<CMReply<bool>> failing = {controller->stop(), controller->stop()};
    publish(dataOf(2, kStopped, -5, QStringLiteral("device gone")));
    for (const CMReply<bool>& reply : failing) {
        ASSERT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.error().name(), CMError::DefaultName());
        EXPECT_EQ(reply.error().title(), CMError::DefaultTitle().toString());
        EXPECT_EQ(reply.error().message(), QStringLiteral("device gone"));
    }
    EXPECT_EQ(controller->state(), State::stopped);
}

TEST_F(StreamerControllerTest, RecordsArePassedOnWithTheRolesOfTheirPlaybackOrDropped) {
    controller->enable();
    publish(dataOf(1, ZuvoPlayLogicState::paused));
    EXPECT_TRUE(reported.isEmpty()) << "no playback is active yet";
    startPlaying(rolesTitled(QStringLiteral("a")));
    ASSERT_EQ(reported.size(), 1);
    EXPECT_EQ(reported[0].first.trackRoles(), rolesTitled(QStringLiteral("a")))
        << "filled in from the playback";
    EXPECT_TRUE(reported[0].second.isEmpty());
    for (const char* title : {"b", "c"})
        ASSERT_TRUE(finished(controller->play(rolesTitled(QString::fromLatin1(title)), false)));
    publish(dataOf(3, kPlaying));
    EXPECT_EQ(reported.last().first.trackRoles(), rolesTitled(QStringLiteral("c")));
    // One playback before the newest is kept, older ones are forgotten.
    publish(dataOf(2, ZuvoPlayLogicState::paused));
    EXPECT_EQ(reported.last().first.trackRoles(), rolesTitled(QStringLiteral("b")));
    ZuvoStreamerData own = dataOf(2, kPlaying);
    own.setTrackRoles(rolesTitled(QStringLiteral("from the streamer")));
    const ZuvoStreamerData previous = reported.last().first;
    publish(own);
    EXPECT_EQ(reported.last(), qMakePair(own, previous)) << "roles the streamer sends are kept";

    const std::vector<std::pair<ZuvoStreamerData, QString>> dropped = {
        {dataOf(1, ZuvoPlayLogicState::paused), QStringLiteral("Streamer data changed without our id: 1")},
        {dataOf(42, kStopped), QStringLiteral("Streamer data changed without our id: 42")},
        {dataOf(-1, kStopped), QStringLiteral("Invalid playback Id with error")},
        {dataOf(-1, kPlaying, -5), QStringLiteral("Invalid playback Id with error")},
        {dataOf(-1, kPlaying),
         QStringLiteral("Invalid playback Id without error, this should newer happened")},
    };
    for (const auto& [data, message] : dropped) {
        SCOPED_TRACE(message.toStdString());
        log.clear();
        const int reportedBefore = reported.size();
        publish(data);
        EXPECT_TRUE(log.contains(kError, message)) << log.toString().toStdString();
        EXPECT_EQ(reported.size(), reportedBefore);
        EXPECT_EQ(controller->state(), State::playing);
    }
    EXPECT_EQ(prepareCount, 0);

    controller->disable();
    EXPECT_TRUE(log.contains(kError, QStringLiteral("Disabling Streamer while not in stopped state")));
    EXPECT_EQ(controller->state(), State::stopped);
    reported.clear();
    publish(dataOf(2, kStopped));
    EXPECT_TRUE(reported.isEmpty()) << "disabled: no longer watching";
    controller->disable(); // a second disable is harmless
}

TEST_F(StreamerControllerTest, ARestartEndsTheRunningPlaybackAsCrashed) {
    for (const auto& [dataSeen, stopWaiting] :
         std::vector<std::pair<bool, bool>>{{true, false}, {false, false}, {true, true}}) {
        SCOPED_TRACE(testing::Message() << "data seen " << dataSeen << ", stop waiting " << stopWaiting);
        recreate();
        log.clear();
        const ZuvoRoles roles = rolesTitled(QStringLiteral("crashing"));
        controller->enable();
        const CMReply<int> play = controller->play(roles, false);
        ASSERT_TRUE(finished(play));
        if (dataSeen)
            publish(dataOf(play.value(), kPlaying));
        const CMReply<bool> stop = stopWaiting ? controller->stop() : CMReply<bool>(nullptr);

        publish(TestStreamerService::restartedData());
        EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("Streamer restarted")));
        ASSERT_TRUE(reportedStopped());
        const ZuvoStreamerData last = reported.last().first;
        EXPECT_EQ(last.error().name(), ZuvoStreamerErrorCrashed());
        EXPECT_EQ(last.state(), kStopped);
        EXPECT_EQ(last.trackRoles(), roles);
        EXPECT_EQ(controller->state(), State::stopped);
        EXPECT_EQ(prepareCount, 0);
        EXPECT_TRUE(!stopWaiting || stop.error().name() == CMError::DefaultName());
    }
}

TEST_F(StreamerControllerTest, StoppedBeforeThePlayReplyLetsTheReplyDecide) {
    for (bool succeeds : {true, false}) {
        SCOPED_TRACE(succeeds ? "replacement succeeds" : "replacement fails");
        recreate();
        const int old = startPlaying();
        const CMReply<int> replacement = heldPlay(rolesTitled(QStringLiteral("new")));
        publish(dataOf(old, kStopped));
        EXPECT_EQ(controller->state(), State::starting);
        EXPECT_FALSE(reportedStopped());
        ASSERT_TRUE(succeeds ? service.releaseHeld(Command::play, 5)
                             : service.failHeld(Command::play, kBusy));
        ASSERT_TRUE(finished(replacement));
        EXPECT_EQ(replacement.hasError(), !succeeds);
        EXPECT_EQ(controller->state(), succeeds ? State::playing : State::stopped);
        if (succeeds) {
            publish(dataOf(5, kPlaying));
            EXPECT_EQ(reported.last().first.trackRoles(), rolesTitled(QStringLiteral("new")));
        }
        EXPECT_EQ(reportedStopped(), !succeeds)
            << "the old playback's end is passed on only without a successor";
    }
}

TEST_F(StreamerControllerTest, RecordsWhileAStopIsSentInTheStoppedStateKeepTheQueueIntact) {
    // A replacement fails after the old playback stopped, with a stop queued
    // behind it: that stop goes out in the stopped state while the old
    // playback still counts as active.
    const int old = startPlaying();
    heldPlay();
    const CMReply<bool> stop = controller->stop();
    publish(dataOf(old, kStopped));
    service.holdNext(Command::stop);
    ASSERT_TRUE(service.failHeld(Command::play, kBusy));
    ASSERT_TRUE(service.waitForCount(Command::stop, 1));
    EXPECT_EQ(controller->state(), State::stopped);
    const int reportedBefore = reported.size();

    publish(TestStreamerService::restartedData());
    EXPECT_EQ(reported.size(), reportedBefore) << "a restart while stopped is ignored";
    publish(dataOf(old, kStopped, -13));
    EXPECT_FALSE(stop.isFinished()) << "only the streamer's answer finishes this stop";
    ASSERT_TRUE(service.releaseHeld(Command::stop));
    ASSERT_TRUE(finished(stop));
    EXPECT_TRUE(stop.value());
    EXPECT_TRUE(reportedStopped());
    const CMReply<int> next = controller->play(ZuvoRoles(), false);
    ASSERT_TRUE(finished(next)) << "the queue moves on";
    EXPECT_FALSE(next.hasError());
}

TEST_F(StreamerControllerTest, AdversarialOrdersNeverStallTheQueue) {
    // Every order of these events from a running playback, then the streamer
    // answers everything and reports the newest playback stopped: every reply
    // completes and a new play still goes through.
    int nextId = 100;
    int newest = 1; // the newest playback id granted
    QList<CMVoidReply> replies;
    // clang-format off
    const std::vector<std::function<void()>> events = {
        [&] { service.holdNext(Command::play); replies.append(controller->play(ZuvoRoles(), false)); drainEvents(); },
        [&] { replies.append(controller->stop()); },
        [&] { publish(dataOf(1, kStopped)); },
        [&] { publish(TestStreamerService::restartedData()); },
        [&] { if (service.releaseHeld(Command::play, nextId)) newest = nextId++; drainEvents(); },
        [&] { service.failHeld(Command::play, kBusy); drainEvents(); },
    };
    // clang-format on
    std::vector<int> order = {0, 1, 2, 3, 4, 5};
    do {
        SCOPED_TRACE(testing::PrintToString(order));
        recreate();
        newest = 1;
        replies.clear();
        postponeTimer()->setInterval(1);
        startPlaying();
        for (int i : order)
            events[i]();
        for (int round = 0; round < 4; ++round) {
            while (service.releaseHeld(Command::play, nextId))
                newest = nextId++;
            drainEvents();
            ZuvoStreamerData end = dataOf(newest, kStopped);
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
    } while (!HasFailure() && std::next_permutation(order.begin(), order.end()));
}

TEST_F(StreamerControllerTest, HowAPlaybackGoesOnDecidesHowOftenTheNextMediaIsAskedFor) {
    const auto disableOnStop = [&] { // a play logic that ends its playback on the stopped record
        QObject::connect(controller.get(), &StreamerController::streamerDataChanged,
                         [&](const ZuvoStreamerData& d) {
                             if (d.state() == kStopped)
                                 controller->disable();
                         });
    };
    // clang-format off
    const std::vector<std::tuple<const char*, std::function<void()>, int>> cases = {
        {"near end (a rising edge only), then stopped", [&] {
             int step = 0;
             for (const bool nearEnd : {true, true, false, true}) {
                 publish(running(1, nearEnd, ++step));
                 EXPECT_EQ(prepareCount, 1) << "asked at the first near end, never again";
             }
             publish(dataOf(1, kStopped)); }, 1},
        {"stopped", [&] { publish(dataOf(1, kStopped)); }, 1},
        {"end of stream (-13)", [&] { publish(dataOf(1, kStopped, -13)); }, 1},
        {"other error", [&] { publish(dataOf(1, kStopped, -16)); }, 0},
        {"our own stop", [&] { controller->stop(); publish(dataOf(1, kStopped)); }, 0},
        {"error while still running", [&] { publish(dataOf(1, kPlaying, -16)); }, 0},
        {"near end, then the receiver disables on the end", [&] {
             publish(running(1, true, 1)); disableOnStop(); publish(dataOf(1, kStopped, -13)); }, 1},
        {"near end, then the next playback nears its end", [&] {
             publish(running(1, true, 1));
             EXPECT_TRUE(finished(controller->playNext(rolesTitled(QStringLiteral("next")))));
             publish(running(2, false, 2)); publish(running(2, true, 3));
             EXPECT_TRUE(waitUntil([&] { return !postponeTimer()->isActive(); }));
             publish(dataOf(2, kStopped)); }, 2},
    };
    // clang-format on
    for (const auto& [name, goOn, expected] : cases) {
        SCOPED_TRACE(name);
        recreate();
        startPlaying();
        goOn();
        EXPECT_TRUE(reportedStopped());
        EXPECT_EQ(controller->state(), State::stopped);
        EXPECT_EQ(prepareCount, expected);
    }
}

TEST_F(StreamerControllerTest, BufferingPlayTimeBufferedBytesAndABufferingConfigThatDisableRestores) {
    EXPECT_EQ(controller->buffering(), -1) << "not listening before enable()";
    const QVariantHash defaultConfig{{QStringLiteral("minMs"), 500}},
        customConfig{{QStringLiteral("minMs"), 4000}};
    ZuvoValue value;
    value.setVariant(defaultConfig);
    CMValueNode* player = CMValueNode::create(root.nodes(), ZuvoPlayerStreamBufferingConfigPath());
    player->setValue(value);
    const auto reports = [](bool on) {
        return QVariantHash{{ZuvoStreamerAttributesBufferLevelReportsEnabled(), on}};
    };
    const auto config = [](const QVariantHash& c) {
        return QVariantHash{{ZuvoStreamerAttributesBufferingConfig(), c}};
    };
    QList<QVariantHash> expected; // the attributes of every setAttributes sent
    const auto sent = [&] {
        drainEvents();
        QList<QVariantHash> attributes;
        for (const auto& invocation : service.invocations(Command::setAttributes))
            attributes << ZuvoStreamerSetAttributesArgs(invocation.args()).attributes().toHash();
        return attributes;
    };

    controller->enable();
    controller->enable(); // a second enable watches nothing twice
    service.publishPlayTime(1234);
    const std::vector<std::pair<double, int>> cases = {
        {99.9, 99}, {50.0, 50}, {0.5, 0}, {-1.0, -1}, {100.0, 100}, {-0.5, 0}, {qQNaN(), -1}, {1e12, INT_MAX},
    };
    for (const auto& [level, percent] : cases) {
        SCOPED_TRACE(level);
        service.publishBufferingLevel(level);
        ASSERT_TRUE(
            waitUntil([&, percent = percent] { return !levels.isEmpty() && levels.last() == percent; }));
        EXPECT_EQ(controller->buffering(), percent);
    }
    controller->reportBufferedBytes(true);
    controller->reportBufferedBytes(true);
    EXPECT_EQ(sent(), (expected << reports(true) << reports(true)));
    EXPECT_EQ(levels.size(), int(cases.size()));
    EXPECT_EQ(times, QList<qint64>{1234});
    EXPECT_EQ(ZuvoStreamerSetAttributesArgs(service.last(Command::setAttributes).args()).playbackId(), -1);
    for (qint64 bytes : {4096, 8192}) {
        service.publishBufferedBytes(bytes);
        ASSERT_TRUE(waitUntil([&] { return !buffered.isEmpty() && buffered.last() == bytes; }));
    }
    drainEvents();
    EXPECT_EQ(buffered, (QList<int64_t>{4096, 8192})) << "one connection only";
    EXPECT_EQ(controller->bufferedBytes(), 8192);

    controller->setBufferingConfig(customConfig);
    value.setVariant(QVariantHash{{QStringLiteral("minMs"), 1}});
    player->setValue(value); // the default is read once
    controller->disable();   // restores the config, then ends the reports
    EXPECT_EQ(sent(), (expected << config(customConfig) << config(defaultConfig) << reports(false)));
    EXPECT_EQ(controller->bufferedBytes(), -1);
    service.publishBufferedBytes(1);
    drainEvents();
    EXPECT_EQ(buffered.size(), 2);

    controller->enable();
    controller->reportBufferedBytes(false); // not listening: the attribute is still sent
    controller->setBufferingConfig(defaultConfig);
    controller->disable(); // the default itself is no change: nothing to restore
    EXPECT_EQ(sent(), (expected << reports(false) << config(defaultConfig)));
}
