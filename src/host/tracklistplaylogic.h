#pragma once

#include "controlqueue.h"
#include "model/cmreply.h"
#include "streamerplaylogic.h"
#include "tracklist.h"

// A streamer play logic that plays a list of items, one after the other,
// gaplessly.
//
// This is the example of how a host extends StreamerPlayLogic: it keeps its
// own list and position and changes single steps through the virtual
// handlers and hooks; everything else (the streamer dialogue, stop flags,
// resource fall-back, error reporting, the playlist hand-off) stays the
// library's.
//
// The list. The host sets it with setTracks(); it takes effect with the next
// play command. A play command names the item to start with by its index
// (PlayLogicInterface::playContainer's index; a plain play starts with the
// first item); an empty list or an index outside it is refused with an
// error, and nothing is published. The published data's trackRoles and
// controls follow the item that plays.
//
// Controls. Published for every item: pause, next (only while an item
// follows in the current play mode), previous, seek by time and set current
// track, and the play modes normal, repeat one and repeat all.
// - next plays the following item (past the last one only in repeat all);
// - previous plays the preceding item; the first item without repeat all
//   starts again;
// - setCurrentTrack plays the item at the given index ("There is no track
//   at index <n>" outside the list);
// - changePlayMode changes what follows the current item, also when the
//   streamer has already queued it; while nothing plays the mode is taken
//   for the next play;
// - stop cancels a play request still waiting for the streamer, so it never
//   waits behind it.
// Play, next, previous, set current track, stop, play-mode changes and the
// streamer's question for the next media all pass through one ControlQueue
// (skip merging and play-mode collapsing on): one runs at a time, a stop
// drops what waits, and opposite skips cancel out. A command that starts an
// item ends, and its reply completes (with the streamer's playback id),
// when the streamer has answered that play; a stop and a play-mode change
// end at once.
//
// The end. When the current item nears its end the following item is queued
// at the streamer as gapless next media; the streamer switches to it without
// a stop, and the published data moves on when the new media starts. When
// nothing follows, the streamer is told so, and the playback ends with the
// last item. A stream error with a message (the item cannot be played, the
// streamer crashed) is published as usual (ZuvoPlayLogicData::error, for
// 2000 ms) and the list goes on with the next item; when no item follows, or
// every item of the list has failed in a row, the playback ends at once and
// the error stays published.
//
// Thread and ownership: as StreamerPlayLogic (the event-loop thread; the
// host owns the object). The control queue is a member.
class TrackListPlayLogic : public StreamerPlayLogic {
    Q_OBJECT
public:
    // Publishes the stopped state with this play logic's controls, so that a
    // play mode may be chosen before the first play.
    TrackListPlayLogic(CMNodes* nodes, const CMPath& path);
    ~TrackListPlayLogic() override;
    Q_DISABLE_COPY(TrackListPlayLogic)

    // The list played by the next play command (see TrackList for the active
    // resource it fills in).
    void setTracks(const QList<ZuvoRoles>& tracks);
    const TrackList& trackList() const { return m_trackList; }
    // The item that plays, or was played last; -1 before the first play.
    int currentIndex() const { return m_currentIndex; }

    // Normal (always), repeat one and repeat all.
    ZuvoPlayLogicPlayModesSupported playModesSupported() override;

Q_SIGNALS:
    // The item that plays is now index (a command started it, or the
    // streamer moved on to the queued next media).
    void currentIndexChanged(int index);

public Q_SLOTS:
    // Refuses an empty list or an index outside it, else StreamerPlayLogic's
    // play (which publishes a fresh record and calls playInternal).
    void play(const CMSetDataRequest& request) override;
    // Queues the play of the requested item instead of sending the client's
    // track roles.
    void playInternal(const CMSetDataRequest& request, const ZuvoPlayLogicPlayArgs& args) override;
    // Queues the stop; cancels a play request that waits for the streamer.
    void stopInternal(const CMSetDataRequest& request) override;
    // Queue a skip to the following / preceding item.
    void nextInternal(const CMSetDataRequest& request) override;
    void previousInternal(const CMSetDataRequest& request) override;
    // Queues the play of the item at the request's currentTrack.
    void setCurrentTrackInternal(const CMSetDataRequest& request) override;
    // Queues the change while something plays; otherwise applies it at once.
    void changePlayModeInternal(const CMSetDataRequest& request) override;

    // Queues the decision what follows the current item (see the class
    // comment); after a stop, tells the streamer that nothing follows.
    void prepareNextMedia() override;
    // Moves the position on when the new media is the queued next item, and
    // publishes the controls of the item that now plays.
    ZuvoPlayLogicData mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                           const ZuvoRoles& previousTrackRoles) override;
    // As StreamerPlayLogic; after an error with a message, skips to the next
    // item or ends the playback.
    void playbackStopped(const CMError& error) override;
    // As StreamerPlayLogic; also drops every queued command.
    void playbackEnded() override;

private Q_SLOTS:
    void on_controlQueue_control(ControlQueue::ControlCommand command, const QVariant& value);
    void on_controlQueue_playModeChanged(ZuvoPlayerPlayMode::Enum mode);

private:
    // Starts the item at index with a play command; the active command ends
    // when the streamer has answered.
    void startTrack(int index, bool startPaused);
    // Queues the following item as next media, or tells the streamer that
    // nothing follows.
    void decideNextMedia();
    // After a play-mode change: corrects what the streamer has queued.
    void redecideNextMedia();
    // The active command ends with the answer of reply.
    void finishWhenAnswered(const CMReply<QVariant>& reply);
    void on_activeRequest_finished(const CMReply<QVariant>& reply);
    // Ends the active command if it still is command (a playback end may
    // have cleared the queue meanwhile).
    void finishActive(ControlQueue::ControlCommand command, const QVariant& value,
                      const CMError& error = CMError());
    void setCurrentIndex(int index);
    ZuvoPlayLogicControls controls();
    // Publishes the controls, and the track roles of the current item when
    // withTrack is set.
    void publishControls(bool withTrack);

    TrackList m_trackList;
    int m_currentIndex = -1;
    // The item sent to the streamer as next media, -1 when none.
    int m_queuedNextIndex = -1;
    // Whether what follows the current item has been decided (next media
    // queued, or the streamer told that nothing follows).
    bool m_nextMediaDecided = false;
    // Items that failed in a row since the last one that started.
    int m_failuresInARow = 0;
    ControlQueue m_controlQueue{true, true};
    // The play request whose answer ends the active command (null: none),
    // and one a stop has cancelled (its error is no failure).
    CMReply<QVariant> m_activeRequest{nullptr};
    CMReply<QVariant> m_cancelledRequest{nullptr};
};
