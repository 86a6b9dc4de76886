// A thousand plays in bursts on a playing streamer play logic, meeting the
// stop they cause at every stage: one stop (newPlayRequest), every
// superseded play cancelled, the last item played.

#include <QTimer>
#include <gtest/gtest.h>
#include <vector>

#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "streamerplaylogic.h"
#include "support/eventloop.h"
#include "support/teststreamerservice.h"

using Command = TestStreamerService::Command;
using zuvotest::waitUntil;

namespace {

constexpr int Plays = 1000;
constexpr int WaitMs = 30000;

// Records the reason of every stop that reaches the play logic.
struct StopRecordingPlayLogic : StreamerPlayLogic {
    using StreamerPlayLogic::StreamerPlayLogic;
    void stop(const CMSetDataRequest& request) override {
        stopReasons.append(ZuvoPlayLogicStopArgs(request.data().toHash()).reason());
        StreamerPlayLogic::stop(request);
    }
    QList<ZuvoPlayLogicStopReason::Enum> stopReasons;
};

ZuvoRoles item(int i) {
    ZuvoResource resource;
    resource.setUri(QStringLiteral("http://storm.example/%1.mp3").arg(i));
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>{resource});
    mediaData.setActiveResource(resource);
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    return roles;
}

TEST(PlayStorm, ThousandPlaysWhilePlayingStopOnceAndPlayTheLast) {
    CMRootScope scope;
    TestStreamerService streamer(scope.nodes());
    const CMPath basePath("/hardening/stormPlayLogic");
    PlayLogicInterface* const client = PlayLogicInterface::instance(basePath);
    StopRecordingPlayLogic logic(scope.nodes(), basePath);
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
    ZuvoStreamerData stopped = streamer.data();
    stopped.setState(ZuvoPlayLogicState::stopped);
    streamer.publishData(stopped);
    startPlayback(2);
    ASSERT_TRUE(waitUntil([&] { return storm.back().isFinished(); }, WaitMs));
    zuvotest::drainEvents();

    EXPECT_EQ(logic.stopReasons,
              QList<ZuvoPlayLogicStopReason::Enum>{ZuvoPlayLogicStopReason::newPlayRequest});
    EXPECT_EQ(streamer.count(Command::stop), 1);
    EXPECT_EQ(streamer.count(Command::play), 2);
    for (int i = 0; i < Plays - 1; ++i)
        ASSERT_EQ(storm.at(i).error().name(), CMVoidReply::ErrorCancel()) << "play " << i;
    EXPECT_FALSE(storm.back().hasError()) << storm.back().error();
    const QString last = item(Plays).mediaData().activeResource().uri();
    EXPECT_EQ(
        ZuvoStreamerPlayArgs(streamer.last(Command::play).args()).roles().mediaData().activeResource().uri(),
        last);
    EXPECT_EQ(client->data().trackRoles().mediaData().activeResource().uri(), last);
    EXPECT_EQ(client->data().state(), ZuvoPlayLogicState::playing);
}

} // namespace
