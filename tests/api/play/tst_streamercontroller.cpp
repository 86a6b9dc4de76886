#include <QMetaEnum>
#include <QTimer>
#include <algorithm>
#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <tuple>
#include <type_traits>
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

const CMError kBusy(QStringLiteral("Busy"), TrString("busy"));

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
    QList<int64_t> buffered;
    std::map<QString, std::function<QString()>> replies; // a script's replies by label

    void SetUp() override { recreate(); }

    void recreate() {
        controller.reset();
        service.reset();
        drainEvents();
        reported.clear();
        replies.clear();
        log.clear();
        prepareCount = 0;
        controller = std::make_unique<StreamerController>(streamer = decltype(streamer)::create());
        StreamerController* c = controller.get();
        QObject::connect(c, &StreamerController::streamerDataChanged,
                         [this](const ZuvoStreamerData& n, const ZuvoStreamerData& o) {
                             reported.append({n, o});
                         });
        QObject::connect(c, &StreamerController::prepareNextMedia, [this] { ++prepareCount; });
        QObject::connect(c, &StreamerController::bufferedBytesChanged,
                         [this](int64_t b) { buffered.append(b); });
    }

    QTimer* postponeTimer() const { return controller->findChild<QTimer*>(QStringLiteral("postponeTimer")); }

    void publish(const ZuvoStreamerData& data) {
        service.publishData(data);
        drainEvents();
    }

    // Runs a script of steps "VERB ARGS". L labels a reply (plays are titled L), C names a Command.
    // Actions: enable, disable, started L (the first playback, playing), held L (a play the streamer holds),
    // play L [paused], next L, stop L, pause|resume L, seekTime|seekBytes L N, clearNext, destroy (the
    // controller), hold|release|fail|failNext C [ID] (failures are kBusy), wait C N, data ID STATE [CODE
    // [MESSAGE]], restart, own ID TITLE (a record with roles of its own), near ID yes|no (a running record),
    // disableOnStop (a receiver disables on a stopped record), drain, mark (also clears the log),
    // window|close (the postponed-stop timer: checked and held open, then let run).
    // Checks: state S, sent C,C..., is L[,L...]=V... (V: the value, "pending",
    // "ErrorName:message" with '_' for spaces, or "ErrorName"), ended yes|no, asked N, roles L [OLD] (of
    // the last record and of the one before, none without OLD), crashed L, unchanged (since mark),
    // logged warn|error TEXT (then clears the log).
    void run(const QStringList& steps) {
        const QMetaEnum commands = QMetaEnum::fromType<Command>();
        const std::map<QString, ZuvoPlayLogicState::Enum> states = {
            {"stopped", kStopped}, {"playing", kPlaying}, {"paused", ZuvoPlayLogicState::paused}};
        int marked = 0, nearStep = 0;
        QStringList w;
        QString a, b;
        const auto command = [&] { return Command(commands.keyToValue(qPrintable(a))); };
        const auto sent = [&] {
            QStringList names;
            for (const TestStreamerService::Invocation& i : service.invocations())
                names << commands.valueToKey(int(i.command));
            return names.join(',');
        };
        // clang-format off
        const std::map<QString, std::function<void()>> actions = {
            {"enable", [&] { controller->enable(); }},
            {"disable", [&] { controller->disable(); }},
            {"started", [&] { run({"enable", "play " + a, "is " + a + "=1", "data 1 playing", "state playing"}); }},
            {"held", [&] { service.holdNext(Command::play);
                 const int before = service.count(Command::play);
                 keep(a, controller->play(rolesTitled(a), false));
                 EXPECT_TRUE(service.waitForCount(Command::play, before + 1)); }},
            {"play", [&] { keep(a, controller->play(rolesTitled(a), b == "paused")); }},
            {"next", [&] { keep(a, controller->playNext(rolesTitled(a))); }},
            {"stop", [&] { keep(a, controller->stop()); }},
            {"hold", [&] { service.holdNext(command()); }},
            {"release", [&] { EXPECT_TRUE(service.releaseHeld(command(), b.isEmpty() ? QVariant() : b.toInt())); }},
            {"fail", [&] { EXPECT_TRUE(service.releaseHeld(command(), QVariant(), kBusy)); }},
            {"wait", [&] { EXPECT_TRUE(service.waitForCount(command(), b.toInt())); }},
            {"data", [&] { publish(dataOf(a.toInt(), states.at(b), w.value(3).toInt(), w.mid(4).join(' '))); }},
            {"restart", [&] { publish(TestStreamerService::restartedData()); }},
            {"own", [&] { ZuvoStreamerData d = dataOf(a.toInt(), kPlaying);
                 d.setTrackRoles(rolesTitled(b));
                 publish(d); }},
            {"drain", [&] { drainEvents(); }},
            {"mark", [&] { marked = reported.size(); log.clear(); }},
            {"window", [&] { // the replaced playback's stop is postponed; kept open however slow this machine is
                 ASSERT_TRUE(postponeTimer() && postponeTimer()->isActive());
                 EXPECT_EQ(postponeTimer()->interval(), 100);
                 postponeTimer()->setInterval(60000); }},
            {"close", [&] { postponeTimer()->setInterval(1); // restarts the running timer
                 ASSERT_TRUE(waitUntil([&] { return !postponeTimer()->isActive(); }));
                 drainEvents(); }},
            {"pause", [&] { keep(a, controller->pause()); }},
            {"resume", [&] { keep(a, controller->resume()); }},
            {"seekTime", [&] { keep(a, controller->seekTime(b.toLongLong())); }},
            {"seekBytes", [&] { keep(a, controller->seekBytes(b.toLongLong())); }},
            {"clearNext", [&] { controller->clearNextPlayback(); }},
            {"failNext", [&] { service.failNext(command(), kBusy); }},
            {"destroy", [&] { controller.reset(); }},
            {"near", [&] { ZuvoStreamerData d = dataOf(a.toInt(), kPlaying); // made to differ from the last
                 d.setTrackNearEnd(b == "yes");
                 d.setNextTrackRoles(rolesTitled(QString::number(++nearStep)));
                 publish(d); }},
            {"disableOnStop", [&] { // a receiver that ends the playback on the stopped record
                 QObject::connect(controller.get(), &StreamerController::streamerDataChanged, [&](const ZuvoStreamerData& d) {
                     if (d.state() == kStopped) controller->disable(); }); }},
            {"state", [&] { EXPECT_EQ(testing::PrintToString(controller->state()), a.toStdString()); }},
            {"sent", [&] { EXPECT_EQ(sent(), a); }},
            {"is", [&] { checkReplies(w.mid(1)); }},
            {"ended", [&] { EXPECT_EQ(std::any_of(reported.begin(), reported.end(),
                                                  [](const auto& r) { return r.first.state() == kStopped; }), a == "yes"); }},
            {"asked", [&] { EXPECT_EQ(prepareCount, a.toInt()); }},
            {"roles", [&] { EXPECT_EQ(reported.last().first.trackRoles(), rolesTitled(a));
                 EXPECT_EQ(reported.last().second.trackRoles(), b.isEmpty() ? ZuvoRoles() : rolesTitled(b)); }},
            {"crashed", [&] { const ZuvoStreamerData last = reported.value(reported.size() - 1).first;
                 EXPECT_EQ(std::make_tuple(last.error().name(), last.state(), last.trackRoles()),
                           std::make_tuple(ZuvoStreamerErrorCrashed(), kStopped, rolesTitled(a))); }},
            {"unchanged", [&] { EXPECT_EQ(reported.size(), marked); }},
            {"logged", [&] { EXPECT_TRUE(log.contains(a == "warn" ? log4cplus::WARN_LOG_LEVEL : kError,
                                                      w.mid(2).join(' '))) << log.toString().toStdString();
                 log.clear(); }},
        };
        // clang-format on
        for (const QString& step : steps) {
            SCOPED_TRACE(step.toStdString());
            w = step.split(' ');
            a = w.value(1);
            b = w.value(2);
            if (actions.count(w[0]))
                actions.at(w[0])();
            else
                ADD_FAILURE() << "bad step";
        }
    }

    template <typename T> void keep(const QString& label, const CMReply<T>& reply) {
        replies[label] = [reply] {
            const CMError e = reply.error();
            if (!reply.isFinished() || !e.isEmpty())
                return reply.isFinished() ? QString(e.name() + ':' + e.message()).replace(' ', '_')
                                          : QStringLiteral("pending");
            if constexpr (std::is_void_v<T>)
                return QStringLiteral("ok");
            else
                return QVariant::fromValue(reply.value()).toString();
        };
    }

    // Waits (bounded) until every "labels=value" holds, then checks each.
    void checkReplies(const QStringList& expected) {
        std::vector<std::pair<QString, QString>> wants; // label, value
        for (const QString& e : expected)
            for (const QString& label : e.section('=', 0, 0).split(','))
                wants.emplace_back(label, e.section('=', 1));
        const auto holds = [&](const auto& want) {
            const QString got = replies.at(want.first)();
            return got == want.second || got.startsWith(want.second + ':');
        };
        waitUntil([&] { return std::all_of(wants.begin(), wants.end(), holds); });
        for (const auto& want : wants)
            EXPECT_TRUE(holds(want)) << want.first.toStdString() << ", got "
                                     << replies.at(want.first)().toStdString();
    }
};

} // namespace

// The state transitions that the scripts below do not walk through.
TEST_F(StreamerControllerTest, StateTable) {
    enum Setup { Stopped, Starting, Replacing, Stopping };
    enum Event { PlayInvoked, PlaySucceeded, PlayFailed, StopInvoked, StreamerStopped, Reenabled };
    // clang-format off
    const QStringList setups = {"enable|state stopped", "enable|held h|state starting",
                                "started a|held h|state playing", // a replacement in flight
                                "started a|stop s|drain|state stopping"};
    const QStringList events = {"hold play|play e|drain", "release play 7|drain", "fail play|drain", "stop e|drain",
                                "data 1 stopped", "disable|enable"};
    const std::vector<std::tuple<Setup, Event, const char*>> table = {
        {Stopped, StreamerStopped, "stopped"},   {Starting, PlayInvoked, "starting"},
        {Starting, StopInvoked, "starting"},     {Starting, StreamerStopped, "starting"},
        {Starting, Reenabled, "stopped"},        {Replacing, PlaySucceeded, "playing"},
        {Replacing, PlayFailed, "playing"},      {Replacing, StopInvoked, "playing"},
        {Stopping, PlayInvoked, "stopping"},     {Stopping, Reenabled, "stopped"},
    };
    // clang-format on
    for (const auto& [from, event, to] : table) {
        SCOPED_TRACE(testing::Message() << "setup " << from << ", event " << event);
        recreate();
        run((setups[from] + '|' + events[event] + "|state " + to).split('|'));
    }
}

TEST_F(StreamerControllerTest, Scripts) {
    // clang-format off
    const QStringList refused = { // a disabled controller refuses everything and sends nothing
        "play a", "next b", "stop s", "pause p", "resume r", "seekTime t 5", "seekBytes y 5", "clearNext",
        "logged error Clear next playback but Streamer is disabled",
        "is a,b,s,p,r,t,y=GeneralError:Streamer_is_not_enabled", "drain", "sent", "state stopped"};
    const std::vector<std::pair<const char*, QStringList>> scripts = {
        {"only the head of the queue is in flight", {
            "enable", "held a", "play b paused", "stop s", "next c", "drain", "sent play",
            "release play 11", "is a=11 b=1", "drain", "sent play,play,stop", "state stopping",
            "data 1 stopped", "is s=true c=2", "sent play,play,stop,setNextMedia"}},
        {"play replies without a usable id fail, the queue goes on", {
            "enable", "held a", "release play -1", "is a=GeneralError:Invalid_playback_id", "state stopped",
            "held b", "release play", "is b=GeneralError:Invalid_playback_id", "state stopped",
            "held c", "fail play", "is c=Busy:busy", "state stopped", "play d", "is d=1", "state playing"}},
        {"stops wait for the streamer and merge while one waits", {
            "started a", "stop s1", "stop s2", "drain", "sent play,stop", "state stopping", "is s1=pending",
            "data 1 stopped", "is s1=true s2=true", "state stopped", "ended yes", "asked 0",
            // stopped, the end passed on: a stop is still sent, and holds the queue until answered
            "hold stop", "stop s3", "play p", "wait stop 2", "drain", "sent play,stop,stop", "state stopped",
            "release stop", "is s3=false p=2",
            // a stop ending in a streamer error fails every merged reply with its message
            "data 2 playing", "stop f1", "stop f2", "data 2 stopped -5 device gone",
            "is f1=GeneralError:device_gone f2=GeneralError:device_gone", "state stopped"}},
        // The old playback stops before the replacement's reply: the reply decides.
        {"stopped before the play reply, which succeeds", {
            "started a", "held n", "data 1 stopped", "state starting", "ended no", "release play 5", "is n=5",
            "state playing", "data 5 playing", "roles n a", "ended no"}},
        {"stopped before the play reply, which fails", {
            "started a", "held n", "data 1 stopped", "state starting", "ended no", "fail play", "is n=Busy",
            "state stopped", "ended yes"}},
        // The stop queued behind the failed replacement goes out in the stopped
        // state while the old playback still counts as active.
        {"records while a stop is sent in the stopped state keep the queue intact", {
            "started a", "held n", "stop s", "data 1 stopped", "hold stop", "fail play", "wait stop 1",
            "state stopped", "mark", "restart", "unchanged", "data 1 stopped -13", "is s=pending",
            "release stop", "is s=true", "ended yes", "play x", "is x=2"}},
        // A play while playing replaces without a stop and postpones the old stop.
        {"replaced, the new playback runs", {
            "started a", "play b", "is b=2", "sent play,play", "state playing", "window", "data 1 stopped",
            "data 2 playing", "ended no", "close", "ended no", "state playing", "roles b a"}},
        {"replaced, nothing more arrives", {
            "started a", "play b", "is b=2", "sent play,play", "state playing", "window", "data 1 stopped",
            "ended no", "close", "ended yes", "state stopped"}},
        {"direct operations bypass the queue, a destroyed controller cancels", {
            "enable", "pause p", "is p=ok", "sent pause", // sent even while stopped
            "held h", "failNext resume", "resume r", "seekTime t 61000", "seekBytes y 1048576", "clearNext",
            "is r=Busy t=ok y=ok", "wait clearNextMedia 1", "is h=pending", "state starting", "play q",
            "destroy", "is q=ReplyCancelled h=pending", "release play 4", "is h=ReplyCancelled", "drain",
            "sent pause,play,resume,seek,seek,clearNextMedia"}},
        // How a playback goes on decides how often the next media is asked for.
        {"near end (a rising edge only), then stopped", {
            "started a", "near 1 yes", "asked 1", "near 1 yes", "near 1 no", "near 1 yes", "asked 1",
            "data 1 stopped", "ended yes", "state stopped", "asked 1"}},
        {"stopped", {"started a", "data 1 stopped", "ended yes", "state stopped", "asked 1"}},
        {"end of stream", {"started a", "data 1 stopped -13", "ended yes", "state stopped", "asked 1"}},
        {"other error", {"started a", "data 1 stopped -16", "ended yes", "state stopped", "asked 0"}},
        {"our own stop", {"started a", "stop s", "data 1 stopped", "ended yes", "state stopped", "asked 0"}},
        {"error while still running", {"started a", "data 1 playing -16", "ended yes", "state stopped", "asked 0"}},
        {"near end, then the receiver disables on the end", {
            "started a", "near 1 yes", "disableOnStop", "data 1 stopped -13", "ended yes", "state stopped",
            "asked 1"}},
        {"near end, then the next playback nears its end", {
            "started a", "near 1 yes", "next n", "is n=2", "near 2 no", "near 2 yes", "close", "data 2 stopped",
            "ended yes", "state stopped", "asked 2"}},
        {"a restart before the playback's first record ends it as crashed", {
            "enable", "play a", "is a=1", "restart", "logged warn Streamer restarted", "crashed a", "state stopped",
            "asked 0"}},
        {"a restart fails a waiting stop", {
            "started a", "stop s", "restart", "crashed a", "state stopped", "is s=GeneralError"}},
        // Records go with the roles of their playback (or their own); the playback
        // before the newest is kept, older ones and unknown ids are dropped.
        {"records", {
            "enable", "data 1 paused", "unchanged", "started a", "roles a", "play b", "play c", "is b=2 c=3",
            "data 3 playing", "roles c a", "data 2 paused", "roles b c", "own 2 streamer", "roles streamer b",
            "mark", "data 1 paused", "logged error Streamer data changed without our id: 1",
            "data 42 stopped", "logged error Streamer data changed without our id: 42",
            "data -1 stopped", "logged error Invalid playback Id with error",
            "data -1 playing -5", "logged error Invalid playback Id with error",
            "data -1 playing", "logged error Invalid playback Id without error, this should newer happened",
            "unchanged", "state playing", "asked 0",
            "disable", "logged error Disabling Streamer while not in stopped state", "state stopped",
            "mark", "data 2 stopped", "unchanged", "disable"}},
        {"before enable", refused},
        {"after disable", QStringList{"enable", "disable"} + refused},
    };
    // clang-format on
    for (const auto& [name, steps] : scripts) {
        SCOPED_TRACE(name);
        recreate();
        run(steps);
    }
}

using StreamerControllerDeathTest = StreamerControllerTest;

TEST_F(StreamerControllerDeathTest, BrokenInvariantsStopTheProgram) {
    EXPECT_DEATH(StreamerController(QSharedPointer<StreamerInterface>()), "m_streamer");
    // misuse: disabled while the play is still in flight
    EXPECT_DEATH(run({"enable", "held a", "disable", "release play 1", "drain"}),
                 "m_state != State::stopped");
}

TEST_F(StreamerControllerTest, AdversarialOrdersNeverStallTheQueue) {
    // Every order of these events from a running playback, then the streamer
    // answers everything and reports the newest playback stopped: every reply
    // completes and a new play still goes through.
    int nextId = 100, newest = 1; // newest: the newest playback id granted
    QList<CMVoidReply> replies;
    // clang-format off
    const std::vector<std::function<void()>> events = {
        [&] { service.holdNext(Command::play); replies.append(controller->play(ZuvoRoles(), false)); drainEvents(); },
        [&] { replies.append(controller->stop()); },
        [&] { publish(dataOf(1, kStopped)); },
        [&] { publish(TestStreamerService::restartedData()); },
        [&] { if (service.releaseHeld(Command::play, nextId)) newest = nextId++; drainEvents(); },
        [&] { service.releaseHeld(Command::play, QVariant(), kBusy); drainEvents(); },
    };
    // clang-format on
    std::vector<int> order = {0, 1, 2, 3, 4, 5};
    do {
        SCOPED_TRACE(testing::PrintToString(order));
        recreate();
        newest = 1;
        replies.clear();
        postponeTimer()->setInterval(1);
        run({"started a"});
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
        ASSERT_TRUE(waitUntil([&] { return last.isFinished(); }));
        EXPECT_FALSE(last.hasError());
    } while (!HasFailure() && std::next_permutation(order.begin(), order.end()));
}

// Buffering levels (truncated, clamped), play time and buffered bytes are passed on while enabled; a
// changed buffering config is restored by disable(); the streamer's values are read through the interface.
TEST_F(StreamerControllerTest, BufferingPlayTimeBufferedBytesAndABufferingConfigThatDisableRestores) {
    EXPECT_EQ(controller->buffering(), -1) << "not listening before enable()";
    const QString reports = ZuvoStreamerAttributesBufferLevelReportsEnabled(),
                  config = ZuvoStreamerAttributesBufferingConfig();
    const QVariantHash defaultConfig{{QStringLiteral("minMs"), 500}},
        customConfig{{QStringLiteral("minMs"), 4000}};
    ZuvoValue value;
    value.setVariant(defaultConfig);
    CMValueNode* player = CMValueNode::create(root.nodes(), ZuvoPlayerStreamBufferingConfigPath());
    player->setValue(value);
    QList<QVariantHash> expected; // the attributes of every setAttributes sent
    const auto sent = [&] {
        drainEvents();
        QList<QVariantHash> attributes;
        for (const auto& invocation : service.invocations(Command::setAttributes))
            attributes << ZuvoStreamerSetAttributesArgs(invocation.args()).attributes().toHash();
        return attributes;
    };

    service.publishPlayTime(100);
    drainEvents();
    EXPECT_EQ(streamer->playTime(), 0) << "detached until enable()";
    controller->enable();
    service.publishPlayTime(1234);
    service.publishData(dataOf(9, kPlaying)); // no playback of ours: read, not passed on
    const std::vector<std::pair<double, int>> cases = {
        {99.9, 99}, {50.0, 50}, {0.5, 0}, {-1.0, -1}, {100.0, 100}, {-0.5, 0}, {qQNaN(), -1}, {1e12, INT_MAX},
    };
    for (const auto& [level, percent] : cases) {
        service.publishBufferingLevel(level);
        drainEvents();
        EXPECT_EQ(controller->buffering(), percent) << level;
    }
    controller->reportBufferedBytes(true);
    controller->reportBufferedBytes(true);
    EXPECT_EQ(sent(), (expected << QVariantHash{{reports, true}} << QVariantHash{{reports, true}}));
    EXPECT_EQ(std::make_tuple(streamer->playTime(), streamer->data(), reported.size()),
              std::make_tuple(qint64(1234), dataOf(9, kPlaying), 0));
    EXPECT_EQ(ZuvoStreamerSetAttributesArgs(service.last(Command::setAttributes).args()).playbackId(), -1);
    for (qint64 bytes : {4096, 8192}) {
        service.publishBufferedBytes(bytes);
        drainEvents();
    }
    EXPECT_EQ(buffered, (QList<int64_t>{4096, 8192})) << "one connection only";
    EXPECT_EQ(controller->bufferedBytes(), 8192);

    controller->setBufferingConfig(customConfig);
    value.setVariant(QVariantHash{{QStringLiteral("minMs"), 1}});
    player->setValue(value); // the default is read once
    controller->disable();   // restores the config, then ends the reports
    EXPECT_EQ(sent(), (expected << QVariantHash{{config, customConfig}}
                                << QVariantHash{{config, defaultConfig}} << QVariantHash{{reports, false}}));
    service.publishBufferedBytes(1);
    service.publishPlayTime(7);
    drainEvents();
    EXPECT_EQ(std::make_tuple(controller->bufferedBytes(), buffered.size(), streamer->playTime(),
                              streamer->data().isEmpty()),
              std::make_tuple(qint64(-1), 2, qint64(0), true));
    controller->reportBufferedBytes(true); // refused while disabled, as is the config
    controller->setBufferingConfig(customConfig);
    EXPECT_TRUE(log.contains(kError, QStringLiteral("Report bufffered size but Streamer is disabled")));
    EXPECT_TRUE(log.contains(kError, QStringLiteral("Report buffered size but Streamer is disabled")));

    controller->enable();
    controller->reportBufferedBytes(false); // not listening: the attribute is still sent
    controller->setBufferingConfig(defaultConfig);
    controller->disable(); // the default itself is no change: nothing to restore
    EXPECT_EQ(sent(), (expected << QVariantHash{{reports, false}} << QVariantHash{{config, defaultConfig}}));
}
