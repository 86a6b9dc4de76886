#pragma once

#include <QList>
#include <QObject>
#include <QTimer>
#include <QVariant>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

#include "model/cmnodes.h"
#include "model/cmpath.h"
#include "model/cmrequest.h"
#include "playlogicinterface.h"
#include "streamerplaylogic.h"
#include "support/teststreamerservice.h"
#include "zuvo.h"

// A service node for play-logic tests: an activation node at a path that
// records every set-data request it receives (role and value) and answers it
// through a scriptable answer function. Stands in for an item's pre-play
// node, its playback-state-change node, the notification display and the
// playlist parser.
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

private:
    void onInvoked(const CMSetDataRequest& request);

    Answer m_answer;
    bool m_hold = false;
    QList<CMSetDataRequest> m_requests;
};

// Builders of the records the streamer play logic tests exchange.
namespace spltest {

// An item with the given resource URIs, the first one active, reporting its
// playback states to stateChangePath (when not empty).
ZuvoRoles item(const QStringList& uris, const CMPath& stateChangePath = CMPath(), bool live = false);
// The same item with its metadata / its active resource changed by change.
ZuvoRoles withMetaData(ZuvoRoles roles, const std::function<void(ZuvoMetaData&)>& change);
ZuvoRoles withActiveResource(ZuvoRoles roles, const std::function<void(ZuvoResource&)>& change);
ZuvoRoles withPrePlay(const ZuvoRoles& roles, const CMPath& prePlayPath);
// Streamer data of one playback.
ZuvoStreamerData streamerData(int playbackId, ZuvoPlayLogicState::Enum state, const ZuvoRoles& trackRoles);
// data stopped with a streamer error.
ZuvoStreamerData stoppedWith(ZuvoStreamerData data, int code, const QString& name,
                             const QString& message = QString());
QString activeUri(const ZuvoRoles& roles);
// The play logic's error-report timer (test seam: found by object name).
QTimer* errorReportTimer(const StreamerPlayLogic& logic);

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

// One streamer play logic test world: a fresh registry, the test streamer
// service on the default streamer paths, service nodes for pre-play,
// playback-state change, the notification display and the playlist parser
// (which holds its requests), and the client of the play logic at basePath.
// The play logic itself is the test's; it must go before the world.
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

    SplWorld() { parser.holdRequests(true); }

    static CMPath stateChangePath() { return CMPath("/service/stateChange"); }
    static CMPath prePlayPath() { return CMPath("/service/prePlay"); }

    ZuvoPlayLogicData published() const { return client->data(); }
    int count(Command command) const { return streamer.count(command); }
    // Arguments of the i-th play / setNextMedia the streamer received.
    ZuvoStreamerPlayArgs sent(Command command, int i) const;
    // Runs the event loop until the streamer has received n commands of command.
    bool waitForCount(Command command, int n) const { return streamer.waitForCount(command, n); }
    // Plays track (in media, when given) through the client and lets the
    // streamer start it (state playing, duration 60000 ms, the track roles it
    // received) with the next playback id; returns the streamer data published, or an empty record
    // when the play did not reach the streamer or the published data.
    ZuvoStreamerData playAndStart(const ZuvoRoles& track, const ZuvoRoles& media = ZuvoRoles());
};

// GoogleTest fixture: a world and a play logic of type Logic on it.
template <typename Logic = TestStreamerPlayLogic> class SplTest : public ::testing::Test {
protected:
    using Command = TestStreamerService::Command;

    void SetUp() override { logic = std::make_unique<Logic>(h.scope.nodes(), h.basePath); }

    ZuvoPlayLogicData published() const { return h.published(); }
    ZuvoStreamerData playAndStart(const ZuvoRoles& track, const ZuvoRoles& media = ZuvoRoles()) {
        const ZuvoStreamerData data = h.playAndStart(track, media);
        EXPECT_FALSE(data.isEmpty());
        return data;
    }

    SplWorld h;
    std::unique_ptr<Logic> logic;
};

// Records every state the play logic publishes, in order; disconnects
// itself when destroyed.
class PublishedStates : public QObject {
public:
    explicit PublishedStates(PlayLogicBase* logic);
    QList<ZuvoPlayLogicState::Enum> states;
};
