// A thousand plays in bursts on a playing streamer play logic, meeting the
// stop they cause at every stage: one stop, every superseded play cancelled,
// the last item played (the stop's reason: tst_playlogicbase).

#include <QTimer>
#include <gtest/gtest.h>
#include <vector>

#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "streamerplaylogic.h"
#include "support/eventloop.h"
#include "support/streamerplaylogicfixture.h"
#include "support/teststreamerservice.h"

using Command = TestStreamerService::Command;
using spltest::activeUri;
using zuvotest::waitUntil;

namespace {

constexpr int Plays = 1000;
constexpr int WaitMs = 30000;

ZuvoRoles item(int i) {
    return spltest::item({QStringLiteral("http://storm.example/%1.mp3").arg(i)});
}

TEST(PlayStorm, ThousandPlaysWhilePlayingStopOnceAndPlayTheLast) {
    CMRootScope scope;
    TestStreamerService streamer(scope.nodes());
    const CMPath basePath("/hardening/stormPlayLogic");
    PlayLogicInterface* const client = PlayLogicInterface::instance(basePath);
    StreamerPlayLogic logic(scope.nodes(), basePath);
    // No pings: a slow run (valgrind) must not meet the watchdog's stop.
    logic.findChild<QTimer*>(QStringLiteral("pingTimeoutTimer"))->setInterval(3600 * 1000);
    const auto startPlayback = [&](int playbackId) {
        ASSERT_TRUE(streamer.waitForCount(Command::play, playbackId, WaitMs));
        ZuvoStreamerData data = TestStreamerService::makeData(playbackId, ZuvoPlayLogicState::playing);
        data.setTrackRoles(ZuvoStreamerPlayArgs(streamer.last(Command::play).args()).roles());
        streamer.publishData(data);
        ASSERT_TRUE(waitUntil([&] { return client->data().state() == ZuvoPlayLogicState::playing; }, WaitMs));
    };
    const CMReply<QVariant> first = client->playContainer(ZuvoRoles(), item(0), 0, 0);
    startPlayback(1);
    ASSERT_TRUE(first.isFinished());

    std::vector<CMReply<QVariant>> storm;
    for (int burst = 0; burst < 10; ++burst) {
        for (int n = 0; n < Plays / 10; ++n)
            storm.push_back(client->playContainer(ZuvoRoles(), item(int(storm.size()) + 1), 0, 0));
        zuvotest::drainEvents();
    }
    ASSERT_TRUE(streamer.waitForCount(Command::stop, 1, WaitMs));
    ASSERT_TRUE(waitUntil([&] { return storm.at(Plays - 2).isFinished(); }, WaitMs));
    EXPECT_FALSE(storm.back().isFinished()) << "the last play waits for the stop";

    // The streamer reports the end of the old playback; the waiting play runs.
    streamer.publishData(TestStreamerService::makeData(1, ZuvoPlayLogicState::stopped));
    startPlayback(2);
    ASSERT_TRUE(waitUntil([&] { return storm.back().isFinished(); }, WaitMs));
    zuvotest::drainEvents();

    EXPECT_EQ(std::make_pair(streamer.count(Command::stop), streamer.count(Command::play)),
              std::make_pair(1, 2));
    for (int i = 0; i < Plays - 1; ++i)
        ASSERT_EQ(storm.at(i).error().name(), CMVoidReply::ErrorCancel()) << "play " << i;
    EXPECT_FALSE(storm.back().hasError()) << storm.back().error();
    const QString last = activeUri(item(Plays));
    EXPECT_EQ(std::make_tuple(activeUri(ZuvoStreamerPlayArgs(streamer.last(Command::play).args()).roles()),
                              activeUri(client->data().trackRoles()), client->data().state()),
              std::make_tuple(last, last, ZuvoPlayLogicState::playing));
}

} // namespace
