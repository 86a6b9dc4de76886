#pragma once

#include <QList>
#include <QObject>
#include <QTimer>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

#include "model/cmnodes.h"
#include "model/cmrequest.h"
#include "playlogicinterface.h"
#include "streamerplaylogic.h"
#include "support/teststreamerservice.h"
#include "zuvo.h"

// Stands in for a service node (an item's pre-play or state-change node, the
// notification display, the playlist parser): an activation node at path, in
// nodes, that records every request (delivered queued) and answers it with
// answer, by default success with an empty value. With hold set requests are
// only recorded; the test answers them through requests.
class TestServiceNode : public QObject {
public:
    TestServiceNode(CMNodes* nodes, const CMPath& path);

    std::function<void(const CMSetDataRequest&)> answer;
    bool hold = false;
    QList<CMSetDataRequest> requests;

    int count() const { return requests.size(); }
    QVariantHash valueAt(int i) const { return requests.at(i).data().toHash(); }

private:
    void onInvoked(const CMSetDataRequest& request);
};

namespace spltest {

// An item with the given resource URIs, the first one active, reporting its
// playback states to stateChangePath (when not empty).
ZuvoRoles item(const QStringList& uris, const CMPath& stateChangePath = CMPath(), bool live = false);
ZuvoRoles withMetaData(ZuvoRoles roles, const std::function<void(ZuvoMetaData&)>& change);
ZuvoRoles withPrePlay(const ZuvoRoles& roles, const CMPath& prePlayPath);
ZuvoStreamerData streamerData(int playbackId, ZuvoPlayLogicState::Enum state, const ZuvoRoles& trackRoles);
// data stopped with a streamer error.
ZuvoStreamerData stoppedWith(ZuvoStreamerData data, int code, const QString& name,
                             const QString& message = QString());
QString activeUri(const ZuvoRoles& roles);
// The play logic's error-report timer (test seam: found by object name).
QTimer* errorReportTimer(const StreamerPlayLogic& logic);

} // namespace spltest

// A play logic with a track list, built through StreamerPlayLogic's hooks:
// every control is published as enabled once a media starts, and when the
// streamer asks for the next media the first of upcoming (if any) is sent as
// gapless next media. Exposes protected steps for tests.
class TestStreamerPlayLogic : public StreamerPlayLogic {
public:
    using StreamerPlayLogic::StreamerPlayLogic;

    QList<ZuvoRoles> upcoming;
    int prepareNextMediaCalls = 0;
    int tryResumeCalls = 0;
    int mediaStarts = 0;

    using StreamerPlayLogic::activeResourcePosition;
    using StreamerPlayLogic::nextActiveResource;
    using StreamerPlayLogic::reportError;
    using StreamerPlayLogic::sendPlayCommand;
    using StreamerPlayLogic::sendSetNextMediaCommand;
    using StreamerPlayLogic::setStopFlag;

    ZuvoPlayLogicData mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                           const ZuvoRoles& previousTrackRoles) override;
    void prepareNextMedia() override;
    void tryResumePlayback() override { ++tryResumeCalls; }
};

// A play logic's world: a fresh registry, the test streamer service on the
// default paths, service nodes (the parser holds its requests) and the client
// of the play logic at basePath. A play logic must go before its world.
struct SplWorld {
    using Command = TestStreamerService::Command;

    CMRootScope scope;
    TestStreamerService streamer{scope.nodes()};
    TestServiceNode stateChange{scope.nodes(), stateChangePath()};
    TestServiceNode prePlay{scope.nodes(), prePlayPath()};
    TestServiceNode display{scope.nodes(), ZuvoNotificationDisplayOpenPath()};
    TestServiceNode parser{scope.nodes(), ZuvoPlayerContentPlayLogicPlaylistPath()};
    const CMPath basePath{"/test/streamerPlayLogic"};
    PlayLogicInterface* const client = PlayLogicInterface::instance(basePath);

    SplWorld() { parser.hold = true; }

    static CMPath stateChangePath() { return CMPath("/service/stateChange"); }
    static CMPath prePlayPath() { return CMPath("/service/prePlay"); }

    ZuvoPlayLogicData published() const { return client->data(); }
    int count(Command command) const { return streamer.count(command); }
    // Arguments of the i-th invocation of command.
    ZuvoStreamerPlayArgs sent(Command command, int i) const;
    bool waitForCount(Command command, int n) const { return streamer.waitForCount(command, n); }
    // Plays track (in media) through the client and lets the streamer start
    // the roles it received (playing, 60000 ms) with the next playback id;
    // returns the streamer data, empty when the play or its start got stuck.
    ZuvoStreamerData playAndStart(const ZuvoRoles& track, const ZuvoRoles& media = ZuvoRoles());
};

// GoogleTest fixture: a world and a play logic of type Logic on it.
template <typename Logic = TestStreamerPlayLogic> class SplTest : public ::testing::Test {
protected:
    void SetUp() override { logic = std::make_unique<Logic>(h.scope.nodes(), h.basePath); }
    ZuvoPlayLogicData published() const { return h.published(); }

    SplWorld h;
    std::unique_ptr<Logic> logic;
};

// Every state the play logic publishes, in order.
class PublishedStates : public QObject {
public:
    explicit PublishedStates(PlayLogicBase* logic);
    QList<ZuvoPlayLogicState::Enum> states;
};
