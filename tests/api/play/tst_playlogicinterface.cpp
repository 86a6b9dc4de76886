#include <QThread>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "model/cmactivatenode.h"
#include "model/cmnodes.h"
#include "model/cmvaluenode.h"
#include "playlogicinterface.h"
#include "support/eventloop.h"
#include "support/records.h"

using zuvotest::rolesTitled;
using zuvotest::waitUntil;

namespace {

class ControlRecorder : public QObject {
public:
    void invoked(const CMSetDataRequest& request) {
        requests.append(request);
        request.reply().setValue(QVariant(QStringLiteral("done")));
    }
    QList<CMSetDataRequest> requests;
};

} // namespace

TEST(PlayLogicInterface, EveryControlCallArrivesWithItsRecord) {
    CMRootScope root;
    ControlRecorder recorder;
    CMActivateNode::create(root.nodes(), CMPath("/zone1/control"))
        ->setInvoke(&recorder, &ControlRecorder::invoked, Qt::QueuedConnection);
    PlayLogicInterface* pl = PlayLogicInterface::instance(CMPath("/zone1"));

    struct Case {
        const char* name;
        std::function<CMReply<QVariant>()> call;
        ZuvoPlayLogicControl::Enum control;
        QVariantHash fields; // expected fields besides control
    };
    const ZuvoRoles media = rolesTitled(QStringLiteral("album"));
    const ZuvoRoles track = rolesTitled(QStringLiteral("track"));
    const std::vector<Case> cases = {
        {"play",
         [&] { return pl->play(media, true); },
         ZuvoPlayLogicControl::play,
         {{ZuvoPlayLogicPlayArgs::MediaRoles(), media.__variant()},
          {ZuvoPlayLogicPlayArgs::StartPaused(), true}}},
        {"playContainer",
         [&] { return pl->playContainer(media, track, 3, 7, false); },
         ZuvoPlayLogicControl::play,
         {{ZuvoPlayLogicPlayArgs::Type(), 1},
          {ZuvoPlayLogicPlayArgs::MediaRoles(), media.__variant()},
          {ZuvoPlayLogicPlayArgs::TrackRoles(), track.__variant()},
          {ZuvoPlayLogicPlayArgs::Index(), 3},
          {ZuvoPlayLogicPlayArgs::Version(), 7},
          {ZuvoPlayLogicPlayArgs::StartPaused(), false}}},
        {"stop",
         [&] { return pl->stop(ZuvoPlayLogicStopReason::newPlayRequest); },
         ZuvoPlayLogicControl::stop,
         {{ZuvoPlayLogicStopArgs::Reason(), 4}}},
        {"pause", [&] { return pl->pause(); }, ZuvoPlayLogicControl::pause, {}},
        {"next", [&] { return pl->next(); }, ZuvoPlayLogicControl::next, {}},
        {"previous",
         [&] { return pl->previous(true); },
         ZuvoPlayLogicControl::previous,
         {{ZuvoPlayLogicPreviousArgs::ForceSkipPrevious(), true}}},
        {"like", [&] { return pl->like(); }, ZuvoPlayLogicControl::like, {}},
        {"dislike", [&] { return pl->dislike(); }, ZuvoPlayLogicControl::dislike, {}},
        {"seekTime",
         [&] { return pl->seekTime(65000); },
         ZuvoPlayLogicControl::seekTime,
         {{ZuvoPlayLogicSeekArgs::Time(), qint64(65000)}}},
        {"seekBytes",
         [&] { return pl->seekBytes(1 << 20); },
         ZuvoPlayLogicControl::seekBytes,
         {{ZuvoPlayLogicSeekArgs::Bytes(), qint64(1 << 20)}}},
        {"setCurrentTrack",
         [&] { return pl->setCurrentTrack(5); },
         ZuvoPlayLogicControl::setCurrentTrack,
         {{ZuvoPlayLogicSetCurrentTrackArgs::CurrentTrack(), 5}}},
        {"changePlayMode",
         [&] { return pl->changePlayMode(ZuvoPlayerPlayMode::repeatAll); },
         ZuvoPlayLogicControl::changePlayMode,
         {{ZuvoPlayLogicChangePlayModeArgs::PlayMode(), 4}}},
        {"ping",
         [&] { return pl->ping(12); },
         ZuvoPlayLogicControl::ping,
         {{ZuvoPlayLogicPingArgs::PingSequenceNumber(), 12}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        recorder.requests.clear();
        CMReply<QVariant> reply = c.call();
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }));
        EXPECT_EQ(reply.value().toString(), QStringLiteral("done"));
        ASSERT_EQ(recorder.requests.size(), 1);
        const CMSetDataRequest& request = recorder.requests.first();
        EXPECT_EQ(request.role(), ZuvoRoles::Activate());
        EXPECT_EQ(request.path(), CMPath("/zone1/control"));
        QVariantHash expected = c.fields;
        expected.insert(ZuvoPlayLogicControlArgs::Control(), int(c.control));
        EXPECT_EQ(request.data().toHash(), expected);
    }
}

TEST(PlayLogicInterface, ReadsPublishedValues) {
    CMRootScope root;
    PlayLogicInterface* pl = PlayLogicInterface::instance(CMPath("/zone2"));
    ZuvoPlayLogicData data;
    data.setState(ZuvoPlayLogicState::playing);
    CMValueNode::create(root.nodes(), pl->dataPath())->setValue(ZuvoValue(data.__hash()));
    ZuvoValue time;
    time.setI64_(1234);
    CMValueNode::create(root.nodes(), pl->playTimePath())->setValue(time);
    ZuvoValue level;
    level.setDouble_(57.0);
    CMValueNode::create(root.nodes(), pl->bufferingLevelPath())->setValue(level);
    ZuvoValue mode;
    mode.setPlayerPlayMode(ZuvoPlayerPlayMode::shuffle);
    CMValueNode::create(root.nodes(), pl->playModePath())->setValue(mode);

    EXPECT_EQ(pl->data().state(), ZuvoPlayLogicState::playing);
    EXPECT_EQ(pl->playTime(), 1234);
    EXPECT_EQ(pl->bufferLevel(), 57.0);
    EXPECT_EQ(pl->playMode(), ZuvoPlayerPlayMode::shuffle);
    EXPECT_EQ(pl->playByte(), 0) << "no node: default";
}

TEST(PlayLogicInterface, OneInstancePerPathWhateverTheParametersAndThreads) {
    PlayLogicInterface* first = PlayLogicInterface::instance(CMPath("/zone3?client=a"));
    EXPECT_EQ(PlayLogicInterface::instance(CMPath("/zone3?client=b")), first);
    EXPECT_EQ(PlayLogicInterface::instance(CMPath("/zone3")), first);
    EXPECT_EQ(PlayLogicInterface::playerInstance(), PlayLogicInterface::instance(ZuvoPlayerPath()));

    // Many threads racing for a path nobody asked for yet get one instance.
    const int threads = 8;
    std::vector<PlayLogicInterface*> seen(threads, nullptr);
    std::vector<std::unique_ptr<QThread>> workers;
    for (int i = 0; i < threads; ++i) {
        workers.emplace_back(QThread::create([&seen, i] {
            seen[i] = PlayLogicInterface::instance(CMPath(QStringLiteral("/race?t=%1").arg(i)));
        }));
        workers.back()->start();
    }
    for (auto& worker : workers)
        worker->wait();
    for (PlayLogicInterface* instance : seen)
        EXPECT_EQ(instance, seen.front());
    EXPECT_NE(seen.front(), nullptr);
}
