#include <QList>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

#include "model/cmnodes.h"
#include "model/cmvalueitem.h"
#include "support/eventloop.h"
#include "support/records.h"
#include "support/teststreamerservice.h"
#include "zuvostreamerinterface.h"

using Command = TestStreamerService::Command;
using zuvotest::drainEvents;
using zuvotest::rolesTitled;
using zuvotest::waitUntil;

namespace {

class StreamerInterfaceTest : public ::testing::Test {
protected:
    CMRootScope root;
    TestStreamerService service{root.nodes()};
    ZuvoStreamerInterface streamer;

    int itemCount() const { return streamer.findChildren<CMValueItem*>().size(); }
};

} // namespace

TEST_F(StreamerInterfaceTest, EveryCommandReachesItsNodeWithItsPayload) {
    ZuvoStreamerPlayArgs playArgs;
    playArgs.setRoles(rolesTitled(QStringLiteral("track")));
    playArgs.setAttributes(QVariantHash{{ZuvoStreamerAttributesStartPaused(), true}});
    ZuvoStreamerSeekPosition position;
    position.setTimeMs(65000);
    ZuvoStreamerSetAttributesArgs attributes;
    attributes.setPlaybackId(-1);
    attributes.setAttributes(QVariantHash{{ZuvoStreamerAttributesBufferLevelReportsEnabled(), true}});

    struct Case {
        Command command;
        std::function<CMReply<QVariant>()> call; // a null reply: the command gives none
        QVariant payload;
    };
    const std::vector<Case> cases = {
        {Command::play, [&] { return streamer.play(playArgs); }, playArgs.__variant()},
        {Command::setNextMedia, [&] { return streamer.setNextMedia(playArgs); }, playArgs.__variant()},
        {Command::pause, [&] { return streamer.pause(); }, QVariant()},
        {Command::resume, [&] { return streamer.resume(); }, QVariant()},
        {Command::stop, [&] { return streamer.stop(); }, QVariant()},
        {Command::seek, [&] { return streamer.seek(position); }, position.__variant()},
        {Command::clearNextMedia,
         [&] {
             streamer.clearNextMedia();
             return CMReply<QVariant>(nullptr);
         },
         QVariant()},
        {Command::setAttributes,
         [&] {
             streamer.setAttributes(attributes);
             return CMReply<QVariant>(nullptr);
         },
         attributes.__variant()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(TestStreamerService::name(c.command).toStdString());
        service.clearInvocations();
        const QString answer = QStringLiteral("answer of ") + TestStreamerService::name(c.command);
        service.answerNext(c.command, answer);
        const CMReply<QVariant> reply = c.call();
        ASSERT_TRUE(service.waitForCount(c.command, 1));
        EXPECT_EQ(service.invocations().size(), 1);
        const TestStreamerService::Invocation invocation = service.last(c.command);
        EXPECT_EQ(invocation.request.path(),
                  ZuvoStreamerDefaultPrefixPath() + TestStreamerService::relativePath(c.command));
        EXPECT_EQ(invocation.request.role(), ZuvoRoles::Activate());
        EXPECT_EQ(invocation.payload, c.payload);
        EXPECT_EQ(invocation.payload.isValid(), c.payload.isValid());
        if (!reply)
            continue;
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }));
        EXPECT_EQ(reply.value().toString(), answer);
    }
}

TEST_F(StreamerInterfaceTest, FailuresArriveOnTheReply) {
    service.failNext(Command::play, CMError(QStringLiteral("Busy"), TrString("busy")));
    const CMReply<QVariant> failed = streamer.play(ZuvoStreamerPlayArgs());
    ASSERT_TRUE(waitUntil([&] { return failed.isFinished(); }));
    EXPECT_EQ(failed.error().name(), QStringLiteral("Busy"));

    CMRootScope empty; // no streamer service in this tree
    const CMReply<QVariant> unanswered = streamer.stop();
    EXPECT_TRUE(unanswered.isFinished()) << "a missing node fails the request at once";
    EXPECT_TRUE(unanswered.hasError());
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
    service.publishData(first);
    service.publishPlayTime(100);
    drainEvents();
    EXPECT_TRUE(data.isEmpty()) << "detached until initialize()";
    EXPECT_EQ(itemCount(), 2);

    EXPECT_TRUE(streamer.initialize());
    ASSERT_TRUE(waitUntil([&] { return data.size() == 1 && times.size() == 1; }));
    EXPECT_EQ(data.at(0).first, first);
    EXPECT_TRUE(data.at(0).second.isEmpty());
    EXPECT_EQ(times.at(0), qMakePair(qint64(100), qint64(0)));

    const ZuvoStreamerData second = TestStreamerService::makeData(3, ZuvoPlayLogicState::paused);
    service.publishData(second);
    service.publishPlayTime(2500);
    ASSERT_TRUE(waitUntil([&] { return data.size() == 2 && times.size() == 2; }));
    EXPECT_EQ(data.at(1).first, second);
    EXPECT_EQ(data.at(1).second, first) << "(new, old)";
    EXPECT_EQ(times.at(1), qMakePair(qint64(2500), qint64(100)));
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

    EXPECT_EQ(streamer.bufferingLevel(), -1.0);
    EXPECT_EQ(streamer.bufferedBytes(), -1);
    EXPECT_FALSE(streamer.listeningBufferingLevel());
    streamer.listenBufferedBytes(false); // not listening: nothing to do
    EXPECT_EQ(itemCount(), 2);

    // Independent of initialize(): the items watch below the streamer's data path.
    streamer.listenBufferingLevel(true);
    streamer.listenBufferedBytes(true);
    streamer.listenBufferedBytes(true);
    EXPECT_EQ(itemCount(), 4) << "listening twice creates one item";
    EXPECT_EQ(service.bufferedBytesWatchers(), 1);
    ASSERT_TRUE(waitUntil([&] { return levels.size() == 1 && bytes.size() == 1; }));
    EXPECT_EQ(levels.at(0).first, 12.5);
    EXPECT_EQ(bytes.at(0).first, 4096);
    EXPECT_EQ(streamer.bufferingLevel(), 12.5);
    EXPECT_EQ(streamer.bufferedBytes(), 4096);

    service.publishBufferingLevel(99.5);
    ASSERT_TRUE(waitUntil([&] { return levels.size() == 2; }));
    EXPECT_EQ(levels.at(1), qMakePair(99.5, 12.5));

    streamer.listenBufferingLevel(false);
    streamer.listenBufferedBytes(false);
    EXPECT_FALSE(streamer.listeningBufferingLevel());
    EXPECT_FALSE(streamer.listeningBufferedBytes());
    EXPECT_EQ(streamer.bufferingLevel(), -1.0);
    EXPECT_EQ(streamer.bufferedBytes(), -1);
    service.publishBufferingLevel(50.0);
    drainEvents();
    EXPECT_EQ(levels.size(), 2) << "a dropped item reports nothing more";
    EXPECT_EQ(itemCount(), 2);
    EXPECT_EQ(service.bufferingLevelWatchers(), 0);
}
