#include <functional>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

#include "model/cmnodes.h"
#include "support/eventloop.h"
#include "support/records.h"
#include "support/teststreamerservice.h"
#include "zuvostreamerinterface.h"

// ZuvoStreamerInterface against the streamer's nodes in the model tree. Its
// buffering values are checked through StreamerController's buffering tests.

using Command = TestStreamerService::Command;
using zuvotest::drainEvents;
using zuvotest::waitUntil;

namespace {

struct StreamerInterfaceTest : ::testing::Test {
    CMRootScope root;
    TestStreamerService service{root.nodes()};
    ZuvoStreamerInterface streamer;
};

} // namespace

TEST_F(StreamerInterfaceTest, CommandsReachTheirNodesAndRepliesCarryTheAnswer) {
    ZuvoStreamerPlayArgs play;
    play.setRoles(zuvotest::rolesTitled(QStringLiteral("track")));
    play.setAttributes(QVariantHash{{ZuvoStreamerAttributesStartPaused(), true}});
    ZuvoStreamerSeekPosition position;
    position.setTimeMs(65000);
    ZuvoStreamerSetAttributesArgs attributes;
    attributes.setPlaybackId(-1);
    attributes.setAttributes(QVariantHash{{ZuvoStreamerAttributesBufferLevelReportsEnabled(), true}});
    const CMReply<QVariant> none(nullptr); // the command gives no reply
    const std::vector<std::tuple<Command, std::function<CMReply<QVariant>()>, QVariant>> cases = {
        {Command::play, [&] { return streamer.play(play); }, play.__variant()},
        {Command::setNextMedia, [&] { return streamer.setNextMedia(play); }, play.__variant()},
        {Command::pause, [&] { return streamer.pause(); }, QVariant()},
        {Command::resume, [&] { return streamer.resume(); }, QVariant()},
        {Command::stop, [&] { return streamer.stop(); }, QVariant()},
        {Command::seek, [&] { return streamer.seek(position); }, position.__variant()},
        {Command::clearNextMedia, [&] { return streamer.clearNextMedia(), none; }, QVariant()},
        {Command::setAttributes, [&] { return streamer.setAttributes(attributes), none; },
         attributes.__variant()},
    };
    for (const auto& [command, call, payload] : cases) {
        SCOPED_TRACE(int(command));
        service.clearInvocations();
        service.holdNext(command);
        const CMReply<QVariant> reply = call();
        ASSERT_TRUE(service.waitForCount(command, 1));
        EXPECT_EQ(service.invocations().size(), 1);
        const TestStreamerService::Invocation invocation = service.last(command);
        EXPECT_EQ(invocation.request.role(), ZuvoRoles::Activate());
        EXPECT_EQ(invocation.payload, payload);
        EXPECT_EQ(invocation.payload.isValid(), payload.isValid());
        const QString answer = QStringLiteral("answer %1").arg(int(command));
        ASSERT_TRUE(service.releaseHeld(command, answer));
        EXPECT_TRUE(reply.isNull() || waitUntil([&] { return reply.value().toString() == answer; }));
    }

    service.failNext(Command::play, CMError(QStringLiteral("Busy"), TrString("busy")));
    const CMReply<QVariant> failed = streamer.play(play);
    ASSERT_TRUE(waitUntil([&] { return failed.isFinished(); }));
    EXPECT_EQ(failed.error().name(), QStringLiteral("Busy"));
    CMRootScope empty; // no streamer in this tree: the request fails at once, it never hangs
    EXPECT_TRUE(streamer.stop().hasError());
}

TEST_F(StreamerInterfaceTest, DataAndPlayTimeAreWatchedBetweenInitializeAndDeinitialize) {
    QList<QPair<ZuvoStreamerData, ZuvoStreamerData>> data;
    QList<QPair<qint64, qint64>> times;
    QObject::connect(&streamer, &StreamerInterface::dataChanged,
                     [&](const ZuvoStreamerData& n, const ZuvoStreamerData& o) {
                         data.append({n, o});
                     });
    QObject::connect(&streamer, &StreamerInterface::playTimeChanged, [&](qint64 n, qint64 o) {
        times.append({n, o});
    });
    const ZuvoStreamerData first = TestStreamerService::makeData(3, ZuvoPlayLogicState::playing);
    const ZuvoStreamerData second = TestStreamerService::makeData(3, ZuvoPlayLogicState::paused);
    service.publishData(first);
    service.publishPlayTime(100);
    drainEvents();
    EXPECT_TRUE(data.isEmpty()) << "detached until initialize()";

    EXPECT_TRUE(streamer.initialize());
    service.publishData(second);
    service.publishPlayTime(2500);
    ASSERT_TRUE(waitUntil([&] { return data.size() == 2 && times.size() == 2; }));
    EXPECT_EQ(data, (QList<QPair<ZuvoStreamerData, ZuvoStreamerData>>{{first, {}}, {second, first}}));
    EXPECT_EQ(times, (QList<QPair<qint64, qint64>>{{100, 0}, {2500, 100}}));
    EXPECT_EQ(streamer.data(), second);
    EXPECT_EQ(streamer.playTime(), 2500);

    streamer.deinitialize();
    service.publishData(first);
    service.publishPlayTime(7);
    drainEvents();
    EXPECT_EQ(data.size(), 2);
    EXPECT_EQ(times.size(), 2);
    EXPECT_TRUE(streamer.data().isEmpty());
    EXPECT_EQ(streamer.playTime(), 0);
}
