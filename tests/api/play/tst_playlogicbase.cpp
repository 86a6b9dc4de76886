#include <QTimer>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/testplaylogic.h"

using zuvotest::TestPlayLogic;
using zuvotest::waitUntil;
using Control = ZuvoPlayLogicControl;

namespace {

const CMPath kPath("/test/playlogic");

ZuvoPlayLogicControlArgs argsFor(int control) {
    ZuvoPlayLogicControlArgs args;
    args.__insert(ZuvoPlayLogicControlArgs::Control(), control);
    return args;
}

ZuvoRoles titled(const QString& title) {
    ZuvoRoles roles;
    roles.setTitle(title);
    return roles;
}

QString titleOf(const TestPlayLogic::Call& call) {
    return ZuvoPlayLogicPlayArgs(call.arguments()).mediaRoles().__value(ZuvoRoles::Title()).toString();
}

bool finishes(const CMReply<QVariant>& reply) {
    return waitUntil([&] { return reply.isFinished(); });
}

// A fresh registry and play logic; destroyed in reverse order.
struct Fixture {
    CMRootScope root;
    std::unique_ptr<TestPlayLogic> logic = std::make_unique<TestPlayLogic>(root.nodes(), kPath);
    PlayLogicInterface* client = PlayLogicInterface::instance(kPath);

    ~Fixture() {
        logic.reset();
        zuvotest::drainEvents();
    }
    int count(Control::Enum control) const { return logic->callsOf(control).size(); }
};

// What a dispatched control leads to with TestPlayLogic, which overrides
// play, stop and next and keeps the base's defaults for the rest.
void expectDispatched(const Fixture& f, int control, const CMReply<QVariant>& reply) {
    ASSERT_TRUE(finishes(reply)) << control;
    const CMError error = reply.error();
    switch (control) {
    case Control::play:
    case Control::stop:
    case Control::next:
        EXPECT_EQ(f.logic->calls().size(), 1) << control;
        EXPECT_EQ(f.logic->calls().last().control, control);
        EXPECT_TRUE(error.isEmpty()) << control;
        break;
    case Control::ping:
        EXPECT_TRUE(error.isEmpty()) << control;
        break;
    default:
        EXPECT_TRUE(f.logic->calls().isEmpty()) << control;
        EXPECT_EQ(error.name(), CMError::DefaultName()) << control;
        EXPECT_EQ(error.title(), CMError::DefaultTitle().toString());
        if (control >= Control::pause && control <= Control::changePlayMode)
            EXPECT_EQ(error.message(), QStringLiteral("Operation not supported.")) << control;
        else
            EXPECT_EQ(error.message(), QStringLiteral("Unrecognized control command: %1").arg(control));
    }
}

} // namespace

TEST(PlayLogicBase, FreshNodePublishesInitialValuesReadOnlyToClients) {
    Fixture f;
    EXPECT_EQ(f.client->playTime(), 0);
    EXPECT_EQ(f.client->playByte(), 0);
    EXPECT_EQ(f.client->bufferLevel(), -1.0);
    EXPECT_EQ(f.client->playMode(), ZuvoPlayerPlayMode::normal);
    EXPECT_TRUE(CMRoot()->getValue(f.client->dataPath()).isValid());
    EXPECT_TRUE(f.client->data().isEmpty());

    for (const CMPath& path : {f.client->dataPath(), f.client->playTimePath(), f.client->playBytePath(),
                               f.client->bufferingLevelPath(), f.client->playModePath()}) {
        ZuvoValue value;
        value.setI64_(42);
        CMReply<QVariant> reply;
        CMRoot()->setValue(path, value, reply);
        ASSERT_TRUE(finishes(reply));
        EXPECT_EQ(reply.error().name(), QStringLiteral("ReadOnly")) << path.toEncoded().toStdString();
    }
    EXPECT_EQ(f.client->playTime(), 0);
}

TEST(PlayLogicBase, SettersWriteTheNodeThenSignalOnEveryCall) {
    Fixture f;
    QStringList seen; // each signal, with the value the client read inside it
    QObject context;
    QObject::connect(f.logic.get(), &PlayLogicBase::playTimeChanged, &context, [&](qint64 v) {
        seen << QStringLiteral("time %1 %2").arg(v).arg(f.client->playTime());
    });
    QObject::connect(f.logic.get(), &PlayLogicBase::playByteChanged, &context, [&](qint64 v) {
        seen << QStringLiteral("byte %1 %2").arg(v).arg(f.client->playByte());
    });
    QObject::connect(f.logic.get(), &PlayLogicBase::bufferLevelChanged, &context, [&](double v) {
        seen << QStringLiteral("level %1 %2").arg(v).arg(f.client->bufferLevel());
    });
    QObject::connect(f.logic.get(), &PlayLogicBase::playModeChanged, &context,
                     [&](ZuvoPlayerPlayMode::Enum v) {
                         seen << QStringLiteral("mode %1 %2").arg(v).arg(f.client->playMode());
                     });
    QObject::connect(f.logic.get(), &PlayLogicBase::playbackDataChanged, &context,
                     [&](const ZuvoPlayLogicData& d) {
                         seen << QStringLiteral("data %1 %2").arg(d.state()).arg(f.client->data().state());
                     });

    for (int round = 0; round < 2; ++round) {
        f.logic->setPlayTime(1500);
        f.logic->setPlayByte(4096);
        f.logic->setBufferLevel(0.5);
        f.logic->setPlayMode(ZuvoPlayerPlayMode::repeatAll);
        f.logic->publishState(ZuvoPlayLogicState::paused);
    }
    const QStringList once = {"time 1500 1500", "byte 4096 4096", "level 0.5 0.5", "mode 4 4", "data 3 3"};
    EXPECT_EQ(seen, once + once);
}

TEST(PlayLogicBase, StoppedStateDispatchesOnlyPlayModePingAndKeepActiveCommands) {
    for (const bool keepActive : {false, true}) {
        for (int control = Control::play; control <= Control::ping + 1; ++control) {
            Fixture f;
            f.logic->publishState(ZuvoPlayLogicState::stopped, keepActive);
            const CMReply<QVariant> reply = f.client->control(argsFor(control), CMReply<QVariant>());
            const bool dispatched = control == Control::play || control == Control::changePlayMode ||
                                    control == Control::ping ||
                                    (keepActive && (control == Control::stop || control == Control::pause));
            SCOPED_TRACE(testing::Message() << "control " << control << " keepActive " << keepActive);
            if (dispatched) {
                expectDispatched(f, control, reply);
            } else {
                ASSERT_TRUE(finishes(reply));
                EXPECT_TRUE(reply.error().isEmpty());
                EXPECT_FALSE(reply.value().isValid());
                EXPECT_TRUE(f.logic->calls().isEmpty());
            }
        }
    }
}

TEST(PlayLogicBase, NonStoppedStateDispatchesEveryControlButPlay) {
    for (int control : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, -1}) {
        Fixture f;
        f.logic->publishState(ZuvoPlayLogicState::playing);
        SCOPED_TRACE(testing::Message() << "control " << control);
        expectDispatched(f, control, f.client->control(argsFor(control), CMReply<QVariant>()));
    }
}

TEST(PlayLogicBase, PlaysWhilePlayingSendOneStopAndOnlyTheLastRunsOnceStopped) {
    Fixture f;
    const CMReply<QVariant> first = f.client->play(titled("first"));
    ASSERT_TRUE(finishes(first));
    f.logic->setStopPublishesStopped(false);

    const CMReply<QVariant> a = f.client->play(titled("a"));
    const CMReply<QVariant> b = f.client->play(titled("b"));
    const CMReply<QVariant> c = f.client->play(titled("c"));
    ASSERT_TRUE(waitUntil([&] { return a.isFinished() && b.isFinished() && f.count(Control::stop) == 1; }));
    zuvotest::drainEvents();
    EXPECT_EQ(a.error().name(), CMVoidReply::ErrorCancel());
    EXPECT_EQ(b.error().name(), CMVoidReply::ErrorCancel());
    EXPECT_FALSE(c.isFinished());
    ASSERT_EQ(f.count(Control::stop), 1);
    EXPECT_EQ(ZuvoPlayLogicStopArgs(f.logic->callsOf(Control::stop)[0].arguments()).reason(),
              ZuvoPlayLogicStopReason::newPlayRequest);
    EXPECT_EQ(f.count(Control::play), 1);

    // Publishing a non-stopped state keeps the play waiting.
    f.logic->publishState(ZuvoPlayLogicState::paused);
    zuvotest::drainEvents();
    EXPECT_EQ(f.count(Control::play), 1);

    // The waiting play goes through the tree again, so it runs later.
    f.logic->publishState(ZuvoPlayLogicState::stopped);
    EXPECT_EQ(f.count(Control::play), 1);
    ASSERT_TRUE(finishes(c));
    EXPECT_TRUE(c.error().isEmpty());
    ASSERT_EQ(f.count(Control::play), 2);
    EXPECT_EQ(titleOf(f.logic->calls().last()), QStringLiteral("c"));
    EXPECT_EQ(f.count(Control::stop), 1);
}

TEST(PlayLogicBase, DelayedPlayRunsAfterTheStopItCausedWithOrWithoutKeepActive) {
    for (const bool keepActive : {false, true}) {
        Fixture f;
        f.logic->publishState(ZuvoPlayLogicState::playing, keepActive);
        const CMReply<QVariant> reply = f.client->play(titled("next"));
        ASSERT_TRUE(finishes(reply)) << keepActive;
        EXPECT_TRUE(reply.error().isEmpty());
        ASSERT_EQ(f.logic->calls().size(), 2);
        EXPECT_EQ(f.logic->calls()[0].control, Control::stop);
        EXPECT_EQ(f.logic->calls()[1].control, Control::play);
        EXPECT_EQ(titleOf(f.logic->calls()[1]), QStringLiteral("next"));
        EXPECT_EQ(f.client->data().state(), ZuvoPlayLogicState::playing);
    }
}

TEST(PlayLogicBase, UnsupervisedPlayLogicPlaysAtOnceAndHasNoWatchdog) {
    Fixture f;
    f.logic->setUnsupervised(true);
    f.logic->publishState(ZuvoPlayLogicState::playing);
    EXPECT_FALSE(f.logic->pingTimer()->isActive());
    ASSERT_TRUE(finishes(f.client->play(titled("now"))));
    EXPECT_EQ(f.count(Control::play), 1);
    EXPECT_EQ(f.count(Control::stop), 0);
    ASSERT_TRUE(finishes(f.client->ping(0)));
    EXPECT_FALSE(f.logic->pingTimer()->isActive());
}

TEST(PlayLogicBase, PingNumbersMayRepeatOrGoBackButNotSkipAhead) {
    Fixture f;
    const std::vector<std::pair<int, bool>> pings = {{0, true}, {1, true}, {2, true},  {5, false}, {6, true},
                                                     {6, true}, {3, true}, {5, false}, {6, true}};
    for (const auto& [sequence, accepted] : pings) {
        const CMReply<QVariant> reply = f.client->ping(sequence);
        ASSERT_TRUE(finishes(reply));
        EXPECT_EQ(reply.error().isEmpty(), accepted) << sequence;
        if (!accepted) {
            EXPECT_EQ(reply.error().name(), QStringLiteral("Error"));
            EXPECT_EQ(reply.error().title(), CMError::DefaultTitle().toString());
            EXPECT_EQ(reply.error().message(), QStringLiteral("Ping sequence numbers do not match"));
        }
    }
}

TEST(PlayLogicBase, StoppingResetsThePingSequenceUnlessKeepActive) {
    for (const bool keepActive : {false, true}) {
        Fixture f;
        for (int sequence = 0; sequence < 5; ++sequence)
            ASSERT_TRUE(finishes(f.client->ping(sequence)));
        f.logic->publishState(ZuvoPlayLogicState::playing, keepActive);
        f.logic->publishState(ZuvoPlayLogicState::stopped, keepActive);
        const CMReply<QVariant> reply = f.client->ping(3);
        ASSERT_TRUE(finishes(reply));
        EXPECT_EQ(reply.error().isEmpty(), keepActive);
    }
}

TEST(PlayLogicBase, WatchdogRunsWhileNotStoppedAndOnlyAcceptedPingsRestartIt) {
    Fixture f;
    QTimer* timer = f.logic->pingTimer();
    ASSERT_NE(timer, nullptr);
    EXPECT_FALSE(timer->isActive());
    ASSERT_TRUE(finishes(f.client->ping(0)));
    EXPECT_FALSE(timer->isActive()); // a ping alone does not arm it while stopped

    f.logic->publishState(ZuvoPlayLogicState::playing);
    EXPECT_TRUE(timer->isActive());
    timer->stop();
    ASSERT_TRUE(finishes(f.client->ping(1)));
    EXPECT_TRUE(timer->isActive());
    timer->stop();
    ASSERT_TRUE(finishes(f.client->ping(7)));
    EXPECT_FALSE(timer->isActive());

    f.logic->publishState(ZuvoPlayLogicState::paused);
    EXPECT_TRUE(timer->isActive());
    f.logic->publishState(ZuvoPlayLogicState::stopped);
    EXPECT_FALSE(timer->isActive());
}

TEST(PlayLogicBase, PingTimeoutSendsExactlyOneStopWithReasonNone) {
    Fixture f;
    f.logic->setStopPublishesStopped(false);
    f.logic->pingTimer()->setInterval(20);
    LogCapture log;

    f.logic->publishState(ZuvoPlayLogicState::playing);
    ASSERT_TRUE(waitUntil([&] { return f.count(Control::stop) == 1; }));
    EXPECT_EQ(ZuvoPlayLogicStopArgs(f.logic->callsOf(Control::stop)[0].arguments()).reason(),
              ZuvoPlayLogicStopReason::none);
    EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("Stopping playback on ping timeout")));
    EXPECT_FALSE(f.logic->pingTimer()->isActive());
    zuvotest::drainEvents();
    EXPECT_EQ(f.count(Control::stop), 1);

    // Stopped before it fires: no stop.
    f.logic->clearCalls();
    f.logic->publishState(ZuvoPlayLogicState::stopped);
    f.logic->publishState(ZuvoPlayLogicState::playing);
    f.logic->publishState(ZuvoPlayLogicState::stopped);
    EXPECT_FALSE(f.logic->pingTimer()->isActive());
}

TEST(PlayLogicBase, DestructionPublishesStoppedAndRemovesTheControlNode) {
    CMRootScope root;
    auto logic = std::make_unique<TestPlayLogic>(root.nodes(), kPath);
    PlayLogicInterface* client = PlayLogicInterface::instance(kPath);
    logic->setStopPublishesStopped(false);
    ZuvoPlayLogicData playing;
    playing.setState(ZuvoPlayLogicState::playing);
    playing.setKeepActive(true);
    playing.setMediaRoles(titled("album"));
    logic->setData(playing);
    const CMReply<QVariant> waiting = client->play(titled("waiting"));
    ASSERT_TRUE(waitUntil([&] { return logic->callsOf(Control::stop).size() == 1; }));

    QList<ZuvoPlayLogicData> published;
    QObject context;
    QObject::connect(logic.get(), &PlayLogicBase::playbackDataChanged, &context,
                     [&](const ZuvoPlayLogicData& d) { published << d; });
    logic.reset();

    ASSERT_EQ(published.size(), 1);
    const ZuvoPlayLogicData data = client->data();
    EXPECT_EQ(data, published[0]);
    EXPECT_EQ(data.state(), ZuvoPlayLogicState::stopped);
    EXPECT_FALSE(data.isSetKeepActive());
    EXPECT_EQ(data.mediaRoles(), titled("album"));
    // Neither the waiting play nor a later command is left unanswered.
    ASSERT_TRUE(finishes(waiting));
    EXPECT_FALSE(waiting.error().isEmpty());
    const CMReply<QVariant> late = client->next();
    ASSERT_TRUE(finishes(late));
    EXPECT_FALSE(late.error().isEmpty());
    zuvotest::drainEvents();
}
