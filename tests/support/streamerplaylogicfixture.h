#pragma once

#include <QList>
#include <QObject>
#include <QVariant>
#include <functional>

#include "model/cmnodes.h"
#include "model/cmpath.h"
#include "model/cmrequest.h"
#include "playlogicinterface.h"
#include "streamerplaylogic.h"
#include "zuvo.h"

class CMNodes;

// A service node for play-logic tests: an activation node at a path that
// records every set-data request it receives (role and value) and answers it
// through a scriptable answer function. Stands in for an item's pre-play
// node, its playback-state-change node and the notification display.
//
// The node is created in nodes and owned by that registry; requests are
// delivered through the event loop (queued), like any activation node.
// With holdRequests(true) requests are only recorded; the test answers them
// later through requests().
class TestServiceNode : public QObject {
    Q_OBJECT
public:
    using Answer = std::function<void(const CMSetDataRequest&)>;

    TestServiceNode(CMNodes* nodes, const CMPath& path, QObject* parent = nullptr);
    Q_DISABLE_COPY(TestServiceNode)

    // Default: success with an empty value.
    void setAnswer(Answer answer) { m_answer = std::move(answer); }
    void holdRequests(bool hold) { m_hold = hold; }

    int count() const { return m_requests.size(); }
    const QList<CMSetDataRequest>& requests() const { return m_requests; }
    // The value of request i as a hash.
    QVariantHash valueAt(int i) const { return m_requests.at(i).data().toHash(); }
    QVariantHash lastValue() const { return m_requests.isEmpty() ? QVariantHash() : valueAt(count() - 1); }

private:
    void onInvoked(const CMSetDataRequest& request);

    Answer m_answer;
    bool m_hold = false;
    QList<CMSetDataRequest> m_requests;
};

class CMValueNode;

// The streamer's model paths served by scripted test nodes: every command
// path is a TestServiceNode; play and setNextMedia answer with increasing
// playback ids (1, 2, ...) unless a test sets its own answer. The data and
// play-time values are value nodes the test publishes on.
class ScriptedStreamer : public QObject {
    Q_OBJECT
public:
    explicit ScriptedStreamer(CMNodes* nodes, QObject* parent = nullptr);
    Q_DISABLE_COPY(ScriptedStreamer)

    TestServiceNode& playNode() { return *m_play; }
    TestServiceNode& setNextMediaNode() { return *m_setNextMedia; }
    TestServiceNode& clearNextMediaNode() { return *m_clearNextMedia; }
    TestServiceNode& pauseNode() { return *m_pause; }
    TestServiceNode& resumeNode() { return *m_resume; }
    TestServiceNode& stopNode() { return *m_stop; }
    TestServiceNode& seekNode() { return *m_seek; }

    // Publishes data as the streamer's data value.
    void publish(const ZuvoStreamerData& data);
    void publishPlayTime(qint64 ms);
    void publishBufferingLevel(double percentage);
    // The playback id the next play/setNextMedia answer gives.
    int nextPlaybackId() const { return m_nextId; }

private:
    TestServiceNode* makeNode(CMNodes* nodes, const CMPath& relative);

    int m_nextId = 1;
    TestServiceNode* m_play = nullptr;
    TestServiceNode* m_setNextMedia = nullptr;
    TestServiceNode* m_clearNextMedia = nullptr;
    TestServiceNode* m_pause = nullptr;
    TestServiceNode* m_resume = nullptr;
    TestServiceNode* m_stop = nullptr;
    TestServiceNode* m_seek = nullptr;
    CMValueNode* m_data = nullptr;
    CMValueNode* m_playTime = nullptr;
    CMValueNode* m_bufferingLevel = nullptr;
};

// Builders of the records the streamer play logic tests exchange.
namespace spltest {

// An item with the given resource URIs, the first one active, reporting its
// playback states to stateChangePath (when not empty).
ZuvoRoles item(const QStringList& uris, const CMPath& stateChangePath = CMPath(), bool live = false);
// The same item with a pre-play path.
ZuvoRoles withPrePlay(ZuvoRoles roles, const CMPath& prePlayPath);
// Streamer data of one playback (withError: stopped, with the error).
ZuvoStreamerData streamerData(int playbackId, ZuvoPlayLogicState::Enum state, const ZuvoRoles& trackRoles);
ZuvoStreamerData withError(ZuvoStreamerData data, const QString& name, int code, const QString& message);

} // namespace spltest

// A play logic with a track list, built on StreamerPlayLogic through its
// hooks: every control is published as enabled once a media starts, and when
// the streamer asks for the next media the next queued track (if any) is
// sent as gapless next media. Exposes the protected steps for tests.
class TestStreamerPlayLogic : public StreamerPlayLogic {
    Q_OBJECT
public:
    using StreamerPlayLogic::StreamerPlayLogic;

    // Tracks to queue, one per prepareNextMedia().
    QList<ZuvoRoles> upcoming;
    int prepareNextMediaCalls = 0;
    int tryResumeCalls = 0;

    using StreamerPlayLogic::activeResourcePosition;
    using StreamerPlayLogic::nextActiveResource;
    using StreamerPlayLogic::reportError;
    using StreamerPlayLogic::seekTimeRelToAbs;
    using StreamerPlayLogic::sendPlayCommand;
    using StreamerPlayLogic::sendSetNextMediaCommand;
    using StreamerPlayLogic::setStopFlag;

    ZuvoPlayLogicData mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                           const ZuvoRoles& previousTrackRoles) override;
    void prepareNextMedia() override;
    void tryResumePlayback() override { ++tryResumeCalls; }
};

// One streamer play logic test world: a fresh registry, the scripted
// streamer, a pre-play node, a playback-state-change node and the
// notification display, and the client of the play logic at basePath.
struct SplHarness {
    CMRootScope scope;
    ScriptedStreamer streamer{scope.nodes()};
    TestServiceNode stateChange{scope.nodes(), CMPath("/service/stateChange")};
    TestServiceNode prePlay{scope.nodes(), CMPath("/service/prePlay")};
    TestServiceNode display{scope.nodes(), ZuvoNotificationDisplayOpenPath()};
    CMPath basePath{"/test/streamerPlayLogic"};
    PlayLogicInterface* client = PlayLogicInterface::instance(basePath);
};

namespace spltest {
// Plays track through the harness's client and lets the scripted streamer
// start it (state playing, duration 60000 ms) with the next playback id;
// returns the streamer data published. Waits on the event loop; returns an
// empty record when the play does not reach the streamer or the play logic.
ZuvoStreamerData playAndStart(SplHarness& h, const ZuvoRoles& track);
} // namespace spltest
