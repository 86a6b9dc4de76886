#pragma once

#include <QHash>
#include <QObject>

#include "model/cmpath.h"
#include "model/cmrequest.h"
#include "zuvo.h"

class CMActivateNode;
class CMNodes;
class CMValueNode;
class PlayLogicInterface;
class QTimer;

// Server side of a play logic: the base every concrete play logic derives
// from.
//
// Construction creates, under the base path, the activation node "/control"
// and the read-only value nodes "/data" (the ZuvoPlayLogicData record, no
// initial value), and below "/data" the play time (0), played bytes (0),
// buffer level (-1.0, no level known) and play mode (normal). Clients cannot
// write these values; the subclass publishes them with the protected setters,
// each of which writes its node unconditionally and then emits the matching
// signal with the new value.
//
// Control invocations sent to "/control" arrive through a queued connection,
// so a handler never runs inside the client's call, and are filtered by the
// published state:
// - stopped: play, changePlayMode and ping are dispatched; stop and pause too
//   when the published data has keepActive set; every other command is
//   answered with success and otherwise ignored;
// - not stopped: every command is dispatched, except that a play is held back
//   (unless the play logic is unsupervised). The first held-back play makes
//   the play logic send itself one stop (reason newPlayRequest) through the
//   model; a newer play replaces the waiting one, whose reply is cancelled.
//   Publishing the stopped state hands the waiting play to the model root
//   again, so it arrives once more, now in the stopped state.
// A dispatched command's handler owns the request's reply and must complete
// it exactly once, now or later. Handlers are virtual slots; the table that
// maps a control to its handler calls them through the virtual slot, so a
// subclass's override is reached. The handlers a subclass does not override
// answer with the error "Operation not supported.". A control outside the
// table is answered with the error "Unrecognized control command: <n>".
//
// Ping watchdog: while the published state is not stopped (and the play logic
// is not unsupervised) a single-shot timer of ZuvoPlayLogicPingTimeout() ms
// runs; every accepted ping restarts it. When it fires, the play logic sends
// itself a stop with reason none through the model, like any client's stop.
// Ping numbers must not skip ahead: a ping is accepted when its number is at
// most the expected one (one more than the last ping seen); a number that
// skips ahead is refused once, and the sequence continues from it. Publishing
// the stopped state without keepActive resets the expected number to 0.
//
// Destruction publishes the data with the stopped state and without
// keepActive (watchers see the play logic stopped) and removes the control
// node from the tree. The value nodes stay in the registry, which owns them.
// Because the stopped state is published from this class's destructor, a
// subclass must not connect its own slots directly to playbackDataChanged:
// the subclass part is gone by then.
//
// Thread: everything runs on the event-loop thread the object lives in. No
// locks of its own.
class PlayLogicBase : public QObject {
    Q_OBJECT
public:
    // Creates the nodes in nodes, under basePath. The registry must outlive
    // this object.
    PlayLogicBase(CMNodes* nodes, const CMPath& basePath);
    ~PlayLogicBase() override;
    Q_DISABLE_COPY(PlayLogicBase)

    // The values as last published.
    ZuvoPlayLogicData data() const;
    qint64 playTime() const;
    qint64 playByte() const;
    double bufferLevel() const;
    ZuvoPlayerPlayMode::Enum playMode() const;

public Q_SLOTS:
    // Handlers of the control commands, called by the dispatch described
    // above with the client's request; each owns the request's reply.
    virtual void play(const CMSetDataRequest& request) = 0;
    virtual void stop(const CMSetDataRequest& request) = 0;
    virtual void pause(const CMSetDataRequest& request);
    virtual void previous(const CMSetDataRequest& request);
    virtual void next(const CMSetDataRequest& request);
    virtual void like(const CMSetDataRequest& request);
    virtual void dislike(const CMSetDataRequest& request);
    virtual void seekTime(const CMSetDataRequest& request);
    virtual void seekBytes(const CMSetDataRequest& request);
    virtual void setCurrentTrack(const CMSetDataRequest& request);
    virtual void changePlayMode(const CMSetDataRequest& request);
    // The play modes this play logic can switch to; none by default.
    virtual ZuvoPlayLogicPlayModesSupported playModesSupported();

Q_SIGNALS:
    // Emitted by the setters after the value node has been written, on every
    // call, whether or not the value changed.
    void playbackDataChanged(const ZuvoPlayLogicData& data);
    void playTimeChanged(qint64 playTime);
    void playByteChanged(qint64 playByte);
    void bufferLevelChanged(double bufferLevel);
    void playModeChanged(ZuvoPlayerPlayMode::Enum playMode);

protected:
    // Publishing, for the subclass. setData also drives the ping watchdog and
    // re-submits a waiting play request once the stopped state is published.
    void setData(const ZuvoPlayLogicData& data);
    void setPlayTime(qint64 playTime);
    void setPlayByte(qint64 playByte);
    void setBufferLevel(double bufferLevel);
    void setPlayMode(ZuvoPlayerPlayMode::Enum playMode);

    // The client proxy of this play logic's own path.
    PlayLogicInterface* playLogicInterface() const { return m_interface; }

private Q_SLOTS:
    void on_control_invoked(const CMSetDataRequest& request);
    void on_this_playbackDataChanged(const ZuvoPlayLogicData& data);
    void on_pingTimeoutTimer_timeout();

private:
    using Handler = void (PlayLogicBase::*)(const CMSetDataRequest&);
    static const QHash<ZuvoPlayLogicControl::Enum, Handler>& dispatchTable();

    void dispatch(ZuvoPlayLogicControl::Enum control, const CMSetDataRequest& request);
    // Not virtual: the watchdog's bookkeeping is not a subclass's to change.
    void ping(const CMSetDataRequest& request);
    static void replyNotSupported(const CMSetDataRequest& request);
    CMPath basePath() const;

    CMActivateNode* m_controlNode = nullptr;
    CMValueNode* m_dataNode = nullptr;
    CMValueNode* m_playTimeNode = nullptr;
    CMValueNode* m_playByteNode = nullptr;
    CMValueNode* m_bufferLevelNode = nullptr;
    CMValueNode* m_playModeNode = nullptr;

protected:
    // When set, the ping watchdog never runs and a play request is dispatched
    // at once in any state. Clear after construction; a subclass may set it
    // (before it publishes a non-stopped state).
    bool m_unsupervised = false;

private:
    CMSetDataRequest m_delayedPlayRequest; // null while no play waits
    int m_expectedPingSequence = 0;
    PlayLogicInterface* m_interface = nullptr;
    CMNodes* m_nodes = nullptr;
    QTimer* m_pingTimeoutTimer = nullptr; // child; object name "pingTimeoutTimer"
};
