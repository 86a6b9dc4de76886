#pragma once

#include "model/cmpath.h"
#include "model/cmreply.h"
#include "zuvo.h"

// Client-side handle of one play logic in the model tree.
//
// It knows the play logic's paths, reads its published values synchronously
// through CMRoot() and sends control invocations to base + "/control", each
// answered through the returned reply (completed once by the play logic).
//
// One instance exists per play-logic path (parameters ignored) for the life
// of the process: instance() may be called from any thread, the registry is
// locked; instances are never deleted. Readers and control calls belong on
// the event-loop thread.
class PlayLogicInterface {
public:
    static PlayLogicInterface* instance(const CMPath& path);
    static PlayLogicInterface* playerInstance();

    CMPath basePath() const { return m_base; }
    CMPath controlPath() const { return m_control; }
    CMPath dataPath() const { return m_data; }
    CMPath playTimePath() const { return m_playTime; }
    CMPath playBytePath() const { return m_playByte; }
    CMPath bufferingLevelPath() const { return m_bufferingLevel; }
    CMPath playModePath() const { return m_playMode; }

    ZuvoPlayLogicData data() const;
    qint64 playTime() const;
    qint64 playByte() const;
    double bufferLevel() const;
    ZuvoPlayerPlayMode::Enum playMode() const;

    // Sends arguments to the control node as a set-data request with the
    // activate role and returns reply.
    CMReply<QVariant> control(const ZuvoHash& arguments, CMReply<QVariant> reply);

    CMReply<QVariant> play(const ZuvoRoles& mediaRoles, bool startPaused = false);
    CMReply<QVariant> playContainer(const ZuvoRoles& mediaRoles, const ZuvoRoles& trackRoles, int index,
                                    int version, bool startPaused = false);
    CMReply<QVariant> stop(ZuvoPlayLogicStopReason::Enum reason);
    CMReply<QVariant> pause();
    CMReply<QVariant> next();
    CMReply<QVariant> previous(bool forceSkipPrevious = false);
    CMReply<QVariant> like();
    CMReply<QVariant> dislike();
    CMReply<QVariant> seekTime(qint64 ms);
    CMReply<QVariant> seekBytes(qint64 bytes);
    CMReply<QVariant> setCurrentTrack(int index);
    CMReply<QVariant> changePlayMode(ZuvoPlayerPlayMode::Enum mode);
    CMReply<QVariant> ping(int sequenceNumber);

private:
    explicit PlayLogicInterface(const CMPath& path);
    Q_DISABLE_COPY(PlayLogicInterface)

    // Sets the control value on args and sends it with a fresh reply.
    template <typename Args> CMReply<QVariant> send(Args args, ZuvoPlayLogicControl::Enum control);
    ZuvoValue valueAt(const CMPath& path) const;

    const CMPath m_base;
    const CMPath m_control;
    const CMPath m_data;
    const CMPath m_playTime;
    const CMPath m_playByte;
    const CMPath m_bufferingLevel;
    const CMPath m_playMode;
};
