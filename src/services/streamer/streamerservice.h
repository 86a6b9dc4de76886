#pragma once

#include <QObject>
#include <QVariant>
#include <optional>

#include "model/cmpath.h"
#include "model/cmrequest.h"
#include "zuvo.h"

class CMNodes;
class CMValueNode;
class StreamerEngine;

// The streamer's protocol, served on every streamer path below a prefix,
// with an engine (StreamerEngine) that plays the tracks. SimulatedStreamer
// and GstStreamer are this class with their engine; everything a client of
// the streamer sees (nodes, answers, refusals, ids, records) is decided here.
//
// Nodes (created in the given registry, children of this object, gone with
// it): an activation node on prefix + each command path (ZuvoStreamerPlayPath()
// ... ZuvoStreamerSetAttributesPath()) and read-only value nodes on the data
// path (prefix + ZuvoStreamerDataPath(), the ZuvoStreamerData record) and
// below it: play time (ms, i64), buffering level (percent, double) and
// buffered bytes (i64). Before the first play the data record is
// {state: stopped}, play time 0, buffering level -1 (no stream), buffered
// bytes 0.
//
// Commands. Each invocation is delivered through the event loop; it is
// announced with commandReceived() and answered (reply completed) before the
// handler returns, then what it changed is published. Refusals complete the
// reply with a CMError named ErrorNotPlaying(), ErrorInvalidArgument(),
// ErrorNotSeekable() or ErrorUnknownPlayback() (a request for a path below a
// command node: "NotSupported"), log a warning and change nothing.
//   play(args)          answers the new playback id (1, 2, 3, ... for the
//                       life of the object, never reused, not even after a
//                       crash), then publishes the loading record of the new
//                       playback (trackNearEnd false, no next media) with
//                       its play time and buffering level. A running
//                       playback and a queued next media are dropped without
//                       a stopped record: the next record carries the new id.
//                       The attribute ZuvoStreamerAttributesStartPaused() true
//                       ends buffering in paused instead of playing. Roles
//                       without a resource URI: ErrorInvalidArgument().
//   setNextMedia(args)  queues the media as the gapless successor of the
//                       running playback, replacing one queued before, and
//                       answers the playback id it will have; publishes
//                       nextTrackRoles. Nothing running: ErrorNotPlaying().
//   clearNextMedia()    drops the queued media (publishes the record without
//                       nextTrackRoles); always succeeds, also with nothing
//                       queued or nothing running ("nothing follows").
//   pause() / resume()  pause or continue the playback (state paused /
//                       playing once buffered; while loading the record stays
//                       loading); repeating one is a success that changes
//                       nothing. Nothing running: ErrorNotPlaying().
//   stop()              ends the playback: the stopped record (state stopped,
//                       same playback id and roles, empty error), play time 0,
//                       buffering level -1. With nothing running it succeeds
//                       and publishes nothing.
//   seek(position)      by time only (timeMs, 0 ... duration): moves the
//                       position and publishes the play time (and the record
//                       when trackNearEnd falls back to false). Bytes, a live
//                       stream or one whose length is not known yet:
//                       ErrorNotSeekable(); both or neither field, a time
//                       outside the track: ErrorInvalidArgument(); nothing
//                       running: ErrorNotPlaying().
//   setAttributes(args) playback id -1 (or absent, or the running or queued
//                       playback's id; else ErrorUnknownPlayback()); stores
//                       ZuvoStreamerAttributesBufferingConfig() (handed to
//                       the engine) and turns the buffered-bytes value on and
//                       off with ZuvoStreamerAttributesBufferLevelReportsEnabled()
//                       (off initially: buffered bytes are published only
//                       while on). Other keys are ignored.
//
// What the engine reports is published as it comes: play time, buffering
// level (and buffered bytes while reports are on), the record of the running
// playback. When the running track ends:
//   - with a queued next media, the next media has started gaplessly: the
//     next record is already the new playback (its id, state playing), with
//     no stopped record in between;
//   - with nothing queued: the stopped record with the error of code -13
//     (end of stream, see streamererrors.h);
//   - a failure: the stopped record of that playback with the error record
//     (code -14 ... -22, name and message, streamerError()); a queued next
//     media is dropped with it;
// each followed by play time 0 and buffering level -1.
//
// Crash (crash(), or the engine's crashed()): the streamer restarts with
// nothing: every playback is dropped and the restart record is published,
// state stopped with no playback id and an error named
// ZuvoStreamerErrorCrashed(); play time 0, buffering level -1.
//
// Thread: everything runs on the thread the object lives on, the thread of
// the registry's event loop. Logger "StreamerService".
class StreamerService : public QObject {
    Q_OBJECT
public:
    // Names of the errors that refuse a command.
    static QString ErrorNotPlaying() { return QStringLiteral("NotPlaying"); }
    static QString ErrorInvalidArgument() { return QStringLiteral("InvalidArgument"); }
    static QString ErrorNotSeekable() { return QStringLiteral("NotSeekable"); }
    static QString ErrorUnknownPlayback() { return QStringLiteral("UnknownPlayback"); }

    // Creates the command nodes (activation nodes) and value nodes of every
    // streamer path below prefix in nodes (the registry, e.g.
    // CMNodes::current()), owned by this object, and takes engine (made a
    // child of this object).
    StreamerService(CMNodes* nodes, const CMPath& prefix, StreamerEngine* engine, QObject* parent = nullptr);
    ~StreamerService() override;
    Q_DISABLE_COPY(StreamerService)

    CMPath prefix() const { return m_prefix; }
    // Current published record.
    ZuvoStreamerData data() const { return m_data; }
    // Position of the running playback (0 when nothing runs).
    qint64 playTimeMs() const;
    // Whether a playback runs (loading, playing or paused).
    bool isActive() const { return m_currentId != 0; }
    // The last buffering configuration set through setAttributes (null before).
    QVariant bufferingConfig() const { return m_bufferingConfig; }
    bool bufferedBytesReportsEnabled() const { return m_reportBufferedBytes; }

    // A crash and restart now (publishes the restart record, see above), also
    // when nothing plays.
    void crash();

    // The resource a streamer plays for roles: the active resource when it
    // has a URI, else the first resource that has one; an empty record when
    // no resource has a URI.
    static ZuvoResource playedResource(const ZuvoRoles& roles);

Q_SIGNALS:
    // Every command as received, before it is answered: command is the
    // path's last segment ("play", "setNextMedia", "clearNextMedia",
    // "pause", "resume", "stop", "seek", "setAttributes"), argument the
    // invocation's value as sent (a record hash or invalid).
    void commandReceived(const QString& command, const QVariant& argument);
    // After each publication of the data record (a record equal to the one
    // published last is not published again). A receiver may call back into
    // this object (crash(), stop, ...).
    void dataPublished(const ZuvoStreamerData& data);

protected:
    StreamerEngine* engine() const { return m_engine; }

private:
    using Handler = void (StreamerService::*)(const CMSetDataRequest&);
    struct Command {
        CMPath (*relativePath)();
        Handler handler;
    };
    // A media queued as gapless successor, with the id it will play under.
    struct Queued {
        int playbackId;
        ZuvoRoles roles;
    };

    static const QList<Command>& commands();

    void on_commandNode_invoked(const CMSetDataRequest& request);
    void on_engine_updated();
    void on_engine_nextStarted();
    void on_engine_ended();
    void on_engine_failed(int code, const QString& detail);
    void on_engine_crashed(const QString& detail);

    void handlePlay(const CMSetDataRequest& request);
    void handleSetNextMedia(const CMSetDataRequest& request);
    void handleClearNextMedia(const CMSetDataRequest& request);
    void handlePause(const CMSetDataRequest& request);
    void handleResume(const CMSetDataRequest& request);
    void handleStop(const CMSetDataRequest& request);
    void handleSeek(const CMSetDataRequest& request);
    void handleSetAttributes(const CMSetDataRequest& request);

    // Completes the request's reply with the error; logs the refusal.
    void refuse(const CMSetDataRequest& request, const QString& name, const QString& message);
    // Refuses with ErrorNotPlaying() when nothing runs; returns whether it did.
    bool refuseWhenIdle(const CMSetDataRequest& request);
    // Reads the arguments of a play/setNextMedia payload and the URI to play;
    // refuses the request with ErrorInvalidArgument() and returns an empty
    // URI when it names nothing to play.
    QString readMedia(const CMSetDataRequest& request, ZuvoStreamerPlayArgs& args);
    void setPaused(const CMSetDataRequest& request, bool paused);

    // Ends the running playback with error (empty: a stop) and publishes it.
    void finish(const ZuvoError& error);
    // Publishes the running playback as the engine reports it.
    void publishRunning();
    void publishIdleValues();

    ZuvoStreamerData runningRecord() const;
    void publishData(const ZuvoStreamerData& data);
    void publishPlayTime(qint64 ms);
    // Buffering level (percent, -1 no stream) and, when reports are on, the
    // buffered bytes.
    void publishBuffer(int level, qint64 bytes);
    CMValueNode* createValueNode(CMNodes* nodes, const CMPath& path);

    const CMPath m_prefix;
    StreamerEngine* const m_engine;
    CMValueNode* m_dataNode = nullptr;
    CMValueNode* m_playTimeNode = nullptr;
    CMValueNode* m_bufferingLevelNode = nullptr;
    CMValueNode* m_bufferedBytesNode = nullptr;

    // The running playback (0: none) and its roles, the queued successor.
    int m_currentId = 0;
    ZuvoRoles m_currentRoles;
    std::optional<Queued> m_next;
    int m_nextPlaybackId = 1;

    ZuvoStreamerData m_data;
    qint64 m_publishedPlayTime = 0;
    int m_publishedBufferLevel = -1;
    qint64 m_publishedBufferedBytes = 0;
    bool m_reportBufferedBytes = false;
    QVariant m_bufferingConfig;
};
