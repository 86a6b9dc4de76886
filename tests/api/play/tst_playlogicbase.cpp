// PlayLogicBase through its client: the published values, the dispatch of
// control commands by state, the held-back play and the ping watchdog.

#include <QTimer>
#include <gtest/gtest.h>
#include <memory>

#include "model/cmnodes.h"
#include "playlogicbase.h"
#include "playlogicinterface.h"
#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/records.h"

using zuvotest::rolesTitled;
using zuvotest::waitUntil;
using Control = ZuvoPlayLogicControl;
using State = ZuvoPlayLogicState;

namespace {

const CMPath kPath("/test/playlogic");

// Play, stop and next record and answer their request; play publishes
// playing with the media roles, stop publishes stopped (if stopPublishes).
class TestPlayLogic : public PlayLogicBase {
public:
    using PlayLogicBase::PlayLogicBase;
    using PlayLogicBase::setBufferLevel;
    using PlayLogicBase::setPlayByte;
    using PlayLogicBase::setPlayMode;
    using PlayLogicBase::setPlayTime;

    QList<std::pair<int, QVariantHash>> calls; // control, arguments
    bool stopPublishes = true;

    int count(int control) const {
        return int(
            std::count_if(calls.begin(), calls.end(), [&](const auto& c) { return c.first == control; }));
    }
    void publish(State::Enum state, bool keepActive = false) {
        ZuvoPlayLogicData published = data();
        published.setState(state);
        published.setKeepActive(keepActive);
        setData(published);
    }
    void setUnsupervised() { m_unsupervised = true; }
    QTimer* pingTimer() const { return findChild<QTimer*>(QStringLiteral("pingTimeoutTimer")); }

    void play(const CMSetDataRequest& request) override {
        record(Control::play, request);
        ZuvoPlayLogicData published;
        published.setState(State::playing);
        published.setMediaRoles(ZuvoPlayLogicPlayArgs(zuvo_detail::toHash(request.data())).mediaRoles());
        setData(published);
    }
    void stop(const CMSetDataRequest& request) override {
        record(Control::stop, request);
        if (stopPublishes)
            publish(State::stopped, data().keepActive());
    }
    void next(const CMSetDataRequest& request) override { record(Control::next, request); }

private:
    void record(int control, const CMSetDataRequest& request) {
        calls.append({control, zuvo_detail::toHash(request.data())});
        request.reply().setValue(QVariant());
    }
};

bool finishes(const CMReply<QVariant>& reply) {
    return waitUntil([&] { return reply.isFinished(); });
}

struct Fixture {
    CMRootScope root;
    std::unique_ptr<TestPlayLogic> logic = std::make_unique<TestPlayLogic>(root.nodes(), kPath);
    PlayLogicInterface* client = PlayLogicInterface::instance(kPath);
};

} // namespace

TEST(PlayLogicBase, PublishedValues) {
    Fixture f;
    EXPECT_EQ(std::make_tuple(f.client->playTime(), f.client->playByte(), f.client->bufferLevel(),
                              f.client->playMode(), f.client->data().isEmpty()),
              std::make_tuple(qint64(0), qint64(0), -1.0, ZuvoPlayerPlayMode::normal, true));
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

    // The setters signal after the node was written.
    QStringList seen;
    const auto note = [&](const char* what, double value, double read) {
        seen << QStringLiteral("%1 %2 %3").arg(QLatin1String(what)).arg(value).arg(read);
    };
    QObject context;
    const auto watch = [&](auto signal, const char* what, auto read) {
        QObject::connect(f.logic.get(), signal, &context, [=, &note](auto v) { note(what, v, read()); });
    };
    watch(&PlayLogicBase::playTimeChanged, "time", [&] { return f.client->playTime(); });
    watch(&PlayLogicBase::playByteChanged, "byte", [&] { return f.client->playByte(); });
    watch(&PlayLogicBase::bufferLevelChanged, "level", [&] { return f.client->bufferLevel(); });
    watch(&PlayLogicBase::playModeChanged, "mode", [&] { return f.client->playMode(); });
    QObject::connect(f.logic.get(), &PlayLogicBase::playbackDataChanged, &context,
                     [&](const ZuvoPlayLogicData& d) { note("data", d.state(), f.client->data().state()); });
    f.logic->setPlayTime(1500);
    f.logic->setPlayByte(4096);
    f.logic->setBufferLevel(0.5);
    f.logic->setPlayMode(ZuvoPlayerPlayMode::repeatAll);
    f.logic->publish(State::paused);
    EXPECT_EQ(seen,
              QStringList({"time 1500 1500", "byte 4096 4096", "level 0.5 0.5", "mode 4 4", "data 3 3"}));
}

// Stopped, only play, changePlayMode and ping are dispatched (stop and pause too
// with keepActive), the rest succeed unseen; else all but play. Known controls
// TestPlayLogic does not handle are not supported.
TEST(PlayLogicBase, DispatchByPublishedState) {
    const struct {
        State::Enum state;
        bool keepActive;
    } rows[] = {{State::stopped, false}, {State::stopped, true}, {State::playing, false}};
    for (const auto& row : rows) {
        for (int control = -1; control <= Control::ping + 1; ++control) {
            if (control == Control::play && row.state != State::stopped)
                continue; // held back: see below
            SCOPED_TRACE(testing::Message() << "control " << control << " state " << row.state
                                            << " keepActive " << row.keepActive);
            Fixture f;
            f.logic->publish(row.state, row.keepActive);
            ZuvoPlayLogicControlArgs args;
            args.__insert(ZuvoPlayLogicControlArgs::Control(), control);
            const CMReply<QVariant> reply = f.client->control(args, CMReply<QVariant>());
            ASSERT_TRUE(finishes(reply));
            const CMError error = reply.error();
            const bool handled =
                control == Control::play || control == Control::stop || control == Control::next;
            const bool dispatched =
                row.state != State::stopped || control == Control::play ||
                control == Control::changePlayMode || control == Control::ping ||
                (row.keepActive && (control == Control::stop || control == Control::pause));
            EXPECT_EQ(std::make_pair(f.logic->calls.size(), f.logic->calls.value(0).first),
                      std::make_pair(dispatched && handled ? 1 : 0, dispatched && handled ? control : 0));
            if (!dispatched || handled || control == Control::ping) {
                EXPECT_TRUE(error.isEmpty() && !reply.value().isValid());
                continue;
            }
            EXPECT_EQ(QStringList({error.name(), error.title(), error.message()}),
                      QStringList({CMError::DefaultName(), CMError::DefaultTitle().toString(),
                                   control >= Control::pause && control <= Control::changePlayMode
                                       ? QStringLiteral("Operation not supported.")
                                       : QStringLiteral("Unrecognized control command: %1").arg(control)}));
        }
    }
}

// A play while playing first stops (waiting for stopped: tst_playstorm); a
// stop that publishes stopped (keepActive kept) lets the play run at once.
TEST(PlayLogicBase, PlayWhilePlayingRunsOnceStopped) {
    Fixture f;
    f.logic->publish(State::playing, true);
    ASSERT_TRUE(finishes(f.client->play(rolesTitled("next"))));
    EXPECT_EQ(std::make_tuple(f.logic->calls.size(), f.logic->calls.value(0).first,
                              ZuvoPlayLogicPlayArgs(f.logic->calls.value(1).second).mediaRoles().title()),
              std::make_tuple(2, int(Control::stop), QStringLiteral("next")));

    // Destroyed while a play waits for a stop: stopped is published once (no
    // keepActive, media kept), and neither that play nor a later command is
    // left unanswered.
    f.logic->stopPublishes = false;
    f.logic->publish(State::playing, true);
    const CMReply<QVariant> waiting = f.client->play(rolesTitled("waiting"));
    ASSERT_TRUE(waitUntil([&] { return f.logic->count(Control::stop) == 2; }));
    QList<ZuvoPlayLogicData> published;
    QObject context;
    QObject::connect(f.logic.get(), &PlayLogicBase::playbackDataChanged, &context,
                     [&](const ZuvoPlayLogicData& d) { published << d; });
    f.logic.reset();
    ASSERT_EQ(published.size(), 1);
    EXPECT_EQ(f.client->data(), published[0]);
    EXPECT_EQ(
        std::make_tuple(published[0].state(), published[0].isSetKeepActive(), published[0].mediaRoles()),
        std::make_tuple(State::stopped, false, rolesTitled("next")));
    const CMReply<QVariant> late = f.client->next();
    ASSERT_TRUE(finishes(waiting) && finishes(late));
    EXPECT_FALSE(waiting.error().isEmpty() || late.error().isEmpty());
}

// Pings may repeat or go back but not skip ahead; a refused one moves the
// sequence on. Stopping without keepActive starts it again at 0.
TEST(PlayLogicBase, PingSequence) {
    Fixture f;
    constexpr int Stop = -1, StopKeepingActive = -2; // steps that play and stop
    const std::pair<int, bool> pings[] = {
        {0, true}, {1, true},    {2, true},  {5, false}, {6, true},
        {6, true}, {3, true},    {5, false}, {6, true},  {StopKeepingActive, true},
        {3, true}, {Stop, true}, {3, false}};
    for (const auto& [sequence, accepted] : pings) {
        if (sequence < 0) {
            f.logic->publish(State::playing, sequence == StopKeepingActive);
            f.logic->publish(State::stopped, sequence == StopKeepingActive);
            continue;
        }
        const CMReply<QVariant> reply = f.client->ping(sequence);
        ASSERT_TRUE(finishes(reply));
        EXPECT_EQ(reply.error().isEmpty(), accepted) << sequence;
        if (!accepted) {
            EXPECT_EQ(QStringList({reply.error().name(), reply.error().title(), reply.error().message()}),
                      QStringList({"Error", CMError::DefaultTitle().toString(),
                                   "Ping sequence numbers do not match"}));
        }
    }
}

// The watchdog runs while not stopped, restarted by accepted pings, and fires a
// stop once (reason none); unsupervised it never runs and plays go at once.
TEST(PlayLogicBase, PingWatchdog) {
    Fixture f;
    QTimer* timer = f.logic->pingTimer();
    ASSERT_NE(timer, nullptr);
    const auto ping = [&](int n) {
        return [&, n] {
            timer->stop();
            ASSERT_TRUE(finishes(f.client->ping(n)));
        };
    };
    const auto publish = [&](State::Enum s) { return [&, s] { f.logic->publish(s); }; };
    const std::pair<std::function<void()>, bool> steps[] = {
        {ping(0), false}, {publish(State::playing), true}, {ping(1), true},
        {ping(7), false}, {publish(State::paused), true},  {publish(State::stopped), false}};
    for (size_t i = 0; i < std::size(steps); ++i) {
        steps[i].first();
        EXPECT_EQ(timer->isActive(), steps[i].second) << "step " << i;
    }

    f.logic->stopPublishes = false;
    timer->setInterval(20);
    LogCapture log;
    f.logic->publish(State::playing);
    ASSERT_TRUE(waitUntil([&] { return f.logic->count(Control::stop) == 1; }));
    EXPECT_EQ(ZuvoPlayLogicStopArgs(f.logic->calls.last().second).reason(), ZuvoPlayLogicStopReason::none);
    EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("Stopping playback on ping timeout")));
    EXPECT_FALSE(timer->isActive());
    zuvotest::drainEvents();
    EXPECT_EQ(f.logic->count(Control::stop), 1);

    f.logic->setUnsupervised();
    f.logic->publish(State::playing);
    EXPECT_FALSE(timer->isActive());
    ASSERT_TRUE(finishes(f.client->play(rolesTitled("now"))));
    ASSERT_TRUE(finishes(f.client->ping(8)));
    EXPECT_FALSE(timer->isActive());
    EXPECT_EQ(std::make_pair(f.logic->count(Control::play), f.logic->count(Control::stop)),
              std::make_pair(1, 1));
}
