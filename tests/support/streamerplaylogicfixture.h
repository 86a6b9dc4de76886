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

// A service node stand-in (pre-play, state change, display): records
// every request (delivered queued) and answers it with answer, by default an
// empty success; with hold set the test answers through requests.
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

// An item with the given resource URIs, the first one active.
ZuvoRoles item(const QStringList& uris, const CMPath& stateChangePath = CMPath(), bool live = false);
ZuvoRoles withMetaData(ZuvoRoles roles, const std::function<void(ZuvoMetaData&)>& change);
ZuvoStreamerData streamerData(int playbackId, ZuvoPlayLogicState::Enum state, const ZuvoRoles& trackRoles);
ZuvoStreamerData stoppedWith(ZuvoStreamerData data, int code, const QString& name,
                             const QString& message = QString());
inline QString activeUri(const ZuvoRoles& roles) {
    return roles.mediaData().activeResource().uri();
}

} // namespace spltest

// With controls set, every control is enabled once a media starts.
class TestStreamerPlayLogic : public StreamerPlayLogic {
public:
    using StreamerPlayLogic::StreamerPlayLogic;
    bool controls = true;
    int prepareNextMediaCalls = 0;
    int tryResumeCalls = 0;
    int mediaStarts = 0;
    using StreamerPlayLogic::activeResourcePosition;
    using StreamerPlayLogic::reportError;
    using StreamerPlayLogic::sendPlayCommand;
    using StreamerPlayLogic::sendSetNextMediaCommand;
    ZuvoPlayLogicData mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                           const ZuvoRoles& previousTrackRoles) override;
    void prepareNextMedia() override {
        ++prepareNextMediaCalls;
        StreamerPlayLogic::prepareNextMedia();
    }
    void tryResumePlayback() override { ++tryResumeCalls; }
    QTimer* errorTimer() const { return findChild<QTimer*>(QStringLiteral("errorReportTimer")); }
};

// A fresh registry with the test streamer, the service nodes, the client at
// basePath and a play logic (destroyed first).
struct SplWorld {
    using Command = TestStreamerService::Command;
    CMRootScope scope;
    TestStreamerService streamer{scope.nodes()};
    TestServiceNode stateChange{scope.nodes(), stateChangePath()};
    TestServiceNode prePlay{scope.nodes(), prePlayPath()};
    TestServiceNode display{scope.nodes(), ZuvoNotificationDisplayOpenPath()};
    const CMPath basePath{"/test/streamerPlayLogic"};
    PlayLogicInterface* const client = PlayLogicInterface::instance(basePath);
    std::unique_ptr<TestStreamerPlayLogic> logic =
        std::make_unique<TestStreamerPlayLogic>(scope.nodes(), basePath);

    static CMPath stateChangePath() { return CMPath("/service/stateChange"); }
    static CMPath prePlayPath() { return CMPath("/service/prePlay"); }
    ZuvoPlayLogicData published() const { return client->data(); }
    int count(Command command) const { return streamer.count(command); }
    ZuvoStreamerPlayArgs sent(Command command, int i) const; // empty when i is out of range
    bool waitForCount(Command command, int n) const { return streamer.waitForCount(command, n); }
    // Plays track through the client and lets the streamer start what it got
    // (playing, 60000 ms, next playback id); empty data when stuck.
    ZuvoStreamerData playAndStart(const ZuvoRoles& track, const ZuvoRoles& media = ZuvoRoles());
};

// Every state the play logic publishes, in order.
struct PublishedStates : QObject {
    explicit PublishedStates(PlayLogicBase* logic) {
        connect(logic, &PlayLogicBase::playbackDataChanged, this,
                [this](const ZuvoPlayLogicData& data) { states.append(data.state()); });
    }
    QList<ZuvoPlayLogicState::Enum> states;
};
