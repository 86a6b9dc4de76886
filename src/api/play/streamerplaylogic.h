#pragma once

#include <QList>
#include <QSet>
#include <QVariantHash>

#include "model/cmreply.h"
#include "model/cmrequest.h"
#include "playlogicbase.h"
#include "streamercontroller.h"
#include "zuvo.h"

class QTimer;

// The play logic that plays items on the device's streamer.
//
// It serves the play-logic node at the base path given to the constructor
// (see PlayLogicBase) and drives the streamer through its own
// StreamerController. A play command is answered as soon as it is queued;
// whatever happens to the media afterwards (start, errors, end) reaches the
// client only through the published "/data" record and values.
//
// Play requests for the streamer (a play, or a gapless next media) pass
// through one queue worked head first. A request whose media names a
// pre-play path is first sent there (role ZuvoRoles::PrePlay()); the answer
// replaces its track roles. Later requests wait until the head's pre-play has
// been answered. A failed pre-play moves on to the media's next resource.
//
// Playback ends in one place, playbackEnded(): either after a user stop, or
// once the streamer has stopped without an error message *and* the streamer
// has been told that nothing follows (both stop flags set).
//
// Threads: everything runs on the thread the object lives on (the host's
// event-loop thread); reply watchers are tied to this object and are never
// called after its destruction. Ownership: the host owns the play logic; the
// play logic owns its error-report timer (object name "errorReportTimer",
// 2000 ms, single-shot) and its streamer controller.
//
// Derived play logics (a service with its own track list) change single
// steps through the virtual *Internal handlers and the hooks
// prepareNextMedia(), translateTrackRoles(), translatePlayLogicStatus(),
// mediaPlaybackStarted(), tryResumePlayback(), playbackStopped(),
// playbackEnded(), handleAlternate() and playTimeChangedInternal().
class StreamerPlayLogic : public PlayLogicBase {
    Q_OBJECT
public:
    // What a play request asks of the streamer.
    enum Command {
        PlayCommand = 0,        // start the roles now
        SetNextMediaCommand = 1 // queue the roles as the gapless successor of what plays
    };

    // Reasons currently holding playback stopped. Playback has ended once
    // both are set.
    enum StopFlag {
        StreamerStopped = 0, // the streamer stopped (no error message)
        NoNextMedia = 1,     // the streamer was told that nothing follows
        NumberOfFlags = 2
    };

    // One request for the streamer. Copies share the same reply, which is
    // created unfinished and completed exactly once: with the streamer's
    // playback id, the streamer's error, or "Play request cancelled".
    struct PlayRequest {
        PlayRequest(const ZuvoStreamerPlayArgs& playArgs, Command playCommand);

        ZuvoStreamerPlayArgs args;
        Command command;
        CMReply<QVariant> reply;
    };

    // Publishes through PlayLogicBase under path; the streamer controller is
    // created disabled (play enables it).
    StreamerPlayLogic(CMNodes* nodes, const CMPath& path);
    // Publishes the stopped state (PlayLogicBase); stops a streamer that is
    // still active (with a warning) and disables the controller.
    ~StreamerPlayLogic() override;
    Q_DISABLE_COPY(StreamerPlayLogic)

    // Roles of the track the streamer reports as playing / as queued next.
    const ZuvoRoles& currentTrackRoles() const;
    const ZuvoRoles& nextTrackRoles() const;
    // The published streamId, or -1 when no media has started.
    int currentStreamId() const;

    // The library-wide instant (monotonic ms) of the last pause command.
    static qint64 pauseInstant();

public Q_SLOTS:
    // Control handlers (called by PlayLogicBase's dispatch).
    void play(const CMSetDataRequest& request) override;
    void stop(const CMSetDataRequest& request) override;
    void pause(const CMSetDataRequest& request) override;
    void previous(const CMSetDataRequest& request) override;
    void next(const CMSetDataRequest& request) override;
    void like(const CMSetDataRequest& request) override;
    void dislike(const CMSetDataRequest& request) override;
    void seekTime(const CMSetDataRequest& request) override;
    void seekBytes(const CMSetDataRequest& request) override;
    void setCurrentTrack(const CMSetDataRequest& request) override;
    void changePlayMode(const CMSetDataRequest& request) override;

    // The acting step of each handler, after its checks passed.
    virtual void playInternal(const CMSetDataRequest& request, const ZuvoPlayLogicPlayArgs& args);
    virtual void stopInternal(const CMSetDataRequest& request);
    virtual void pauseInternal(const CMSetDataRequest& request);
    virtual void previousInternal(const CMSetDataRequest& request);
    virtual void nextInternal(const CMSetDataRequest& request);
    virtual void seekTimeInternal(const CMSetDataRequest& request, const QVariantHash& args);
    virtual void seekBytesInternal(const CMSetDataRequest& request, const QVariantHash& args);
    virtual void likeInternal(const CMSetDataRequest& request);
    virtual void dislikeInternal(const CMSetDataRequest& request);
    virtual void setCurrentTrackInternal(const CMSetDataRequest& request);
    virtual void changePlayModeInternal(const CMSetDataRequest& request);

    // Hooks for derived play logics.
    // The streamer asks what follows and no further resource of a live media
    // applies: tells the streamer that nothing follows.
    virtual void prepareNextMedia();
    // Identity here.
    virtual ZuvoRoles translateTrackRoles(const ZuvoRoles& roles);
    virtual ZuvoPlayLogicStatus translatePlayLogicStatus(const ZuvoPlayLogicStatus& status);
    // A new media started (new, previous track roles); returns the data to
    // publish, here data() unchanged.
    virtual ZuvoPlayLogicData mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                                   const ZuvoRoles& previousTrackRoles);
    // Called when a reported error has been withdrawn; nothing here.
    virtual void tryResumePlayback();
    // The streamer stopped for good: sets StreamerStopped for an error without
    // message, else reports the error.
    virtual void playbackStopped(const CMError& error);
    // Publishes the end of playback (state 0, play time 0, byte 0, buffer -1.0).
    virtual void playbackEnded();
    // Returns true when an alternative playback was started; false here.
    virtual bool handleAlternate(const CMError& error);
    // Publishes the play time.
    virtual void playTimeChangedInternal(qint64 timeMs);

private Q_SLOTS:
    void on_streamerController_streamerDataChanged(const ZuvoStreamerData& newStreamerData,
                                                   const ZuvoStreamerData& oldStreamerData);
    void on_streamerController_timeChanged(qint64 timeMs);
    void on_streamerController_buffering(int percentage);
    void on_streamerController_prepareNextMedia();
    void on_errorReportTimer_timeout();
    void on_parser_finished(const CMVoidReply& reply);
    void on_playInternalFinished(const CMVoidReply& reply);

protected:
    // Queues a play (command 0) / next-media (command 1) request; the reply
    // completes with the streamer's playback id or an error.
    CMReply<QVariant> sendPlayCommand(const ZuvoRoles& roles, const QVariantHash& attributes);
    CMReply<QVariant> sendSetNextMediaCommand(const ZuvoRoles& roles, const QVariantHash& attributes);
    // Tells the streamer that nothing follows the current media.
    void sendNoNextMediaCommand();

    // A request for roles (their state-change path completed) with attributes.
    PlayRequest playRequest(const ZuvoRoles& roles, const QVariantHash& attributes, Command command);
    CMReply<QVariant> preplayAndPlay(const PlayRequest& request);
    void processNextPlayRequest();
    void prePlay(const PlayRequest& request);
    void handlePrePlayFinished(const CMReply<QVariant>& reply, PlayRequest request);
    void realPlay(const PlayRequest& request);
    // Fails every queued request's reply with "Play request cancelled".
    void cancelAllPlayRequests();
    // Copies contentStateChangePath to an empty playbackStateChangePath.
    ZuvoRoles updateStateChangePath(ZuvoRoles roles);

    void setStopFlag(StopFlag flag);
    void clearStopFlag(StopFlag flag);
    void clearStopFlags();
    void stopPlayLogic();
    CMReply<bool> sendStopCommand();
    void handleStreamerStoppedState(const ZuvoStreamerData& data);
    void clearPlayback(const CMError& error);
    void disconnectNotifications();

    bool isControl(const QString& name);
    bool isPlayModeSupported(ZuvoPlayerPlayMode::Enum mode) const;
    qint64 seekTimeRelToAbs(qint64 relative);
    void sendSetPausedCommand(bool paused);
    void sendSeekTimeCommand(qint64 timeMs);
    void sendSeekBytesCommand(quint64 bytes);

    int activeResourcePosition(const ZuvoRoles& roles);
    ZuvoRoles nextActiveResource(const ZuvoRoles& roles);
    bool tryNextResource();

    // Publishes the error for 2000 ms, then withdraws it and calls
    // tryResumePlayback().
    void reportError(const CMError& error);
    void resetErrorReport();

    StreamerController& streamerController() { return m_streamerController; }

private:
    // Sends record to path (a media's playback-state-change node); the answer
    // is not awaited.
    void reportPlaybackState(const CMPath& path, const ZuvoPlayLogicData& record);
    void showStationUnavailableNotice();
    void answer(const CMSetDataRequest& request);
    void answerNotSupported(const CMSetDataRequest& request, const TrString& message);

    bool m_continueAllowed = true;
    QSet<StopFlag> m_stopFlags;
    ZuvoRoles m_currentTrackRoles;
    ZuvoRoles m_nextTrackRoles;
    QTimer* m_errorReportTimer = nullptr;
    QSet<CMReply<QVariant>> m_prePlayReplies;
    QList<PlayRequest> m_playRequests;
    ZuvoPlayLogicState::Enum m_lastReportedState = ZuvoPlayLogicState::stopped;
    StreamerController m_streamerController;
};
