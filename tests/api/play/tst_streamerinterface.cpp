#include <functional>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

#include "model/cmnodes.h"
#include "support/eventloop.h"
#include "support/records.h"
#include "support/teststreamerservice.h"
#include "zuvostreamerinterface.h"

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

TEST_F(StreamerInterfaceTest, BufferingValuesAreWatchedOnlyWhileListening) {
    QList<QPair<double, double>> levels;
    QList<QPair<qint64, qint64>> bytes;
    QObject::connect(&streamer, &StreamerInterface::bufferingLevelChanged, [&](double n, double o) {
        levels.append({n, o});
    });
    QObject::connect(&streamer, &StreamerInterface::bufferedBytesChanged, [&](qint64 n, qint64 o) {
        bytes.append({n, o});
    });
    service.publishBufferingLevel(12.5);
    service.publishBufferedBytes(4096);
    streamer.listenBufferedBytes(false); // not listening: nothing to do
    EXPECT_EQ(streamer.bufferingLevel(), -1.0);
    EXPECT_EQ(streamer.bufferedBytes(), -1);

    // Independent of initialize(); listening twice watches once.
    for (int i = 0; i < 2; ++i) {
        streamer.listenBufferingLevel(true);
        streamer.listenBufferedBytes(true);
    }
    EXPECT_TRUE(streamer.listeningBufferingLevel());
    service.publishBufferingLevel(99.5);
    service.publishBufferedBytes(8192);
    ASSERT_TRUE(waitUntil([&] { return levels.size() >= 2 && bytes.size() >= 2; }));
    drainEvents();
    EXPECT_EQ(levels, (QList<QPair<double, double>>{{12.5, 0.0}, {99.5, 12.5}}));
    EXPECT_EQ(bytes, (QList<QPair<qint64, qint64>>{{4096, 0}, {8192, 4096}}));
    EXPECT_EQ(streamer.bufferingLevel(), 99.5);
    EXPECT_EQ(streamer.bufferedBytes(), 8192);

    streamer.listenBufferingLevel(false);
    streamer.listenBufferedBytes(false);
    EXPECT_FALSE(streamer.listeningBufferingLevel());
    EXPECT_FALSE(streamer.listeningBufferedBytes());
    EXPECT_EQ(streamer.bufferingLevel(), -1.0);
    EXPECT_EQ(streamer.bufferedBytes(), -1);
    service.publishBufferingLevel(50.0);
    service.publishBufferedBytes(1);
    drainEvents();
    EXPECT_EQ(levels.size() + bytes.size(), 4) << "nothing more once unlistened";
}
