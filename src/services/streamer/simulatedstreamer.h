#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <QVariant>
#include <memory>
#include <optional>

#include "model/cmpath.h"
#include "model/cmrequest.h"
#include "simulatedmedia.h"
#include "zuvo.h"

class CMNodes;
class CMValueNode;
class SimulatedPlayback;

// A streamer service without audio hardware: it serves every path of the
// streamer below a prefix the way a decoder service does, so that
// ZuvoStreamerInterface, StreamerController and the play logics above them
// run unchanged on any machine.
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
//                       play time 0 and buffering level 0. A running
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
//                       stream: ErrorNotSeekable(); both or neither field, a
//                       time outside the track: ErrorInvalidArgument();
//                       nothing running: ErrorNotPlaying().
//   setAttributes(args) playback id -1 (or absent, or the running or queued
//                       playback's id; else ErrorUnknownPlayback()); stores
//                       ZuvoStreamerAttributesBufferingConfig() and turns the
//                       buffered-bytes value on and off with
//                       ZuvoStreamerAttributesBufferLevelReportsEnabled()
//                       (off initially: buffered bytes are published only
//                       while on). Other keys are ignored.
//
// Time. While a playback exists a timer ticks; each tick hands the simulated
// time since the last one (real time times speed()) to the playback's
// timeline (SimulatedPlayback: buffering in four steps, position, near end
// 5000 simulated ms before the end and the end no sooner than five ticks
// after it, failure, crash; one change per tick) and
// publishes the play time and every change of the record. The timer fires
// every 100 simulated ms, but no more often than every 10 real ms and no
// less often than every 100 real ms; it stops while nothing plays.
//   - At the end of a track with a queued next media, the next media starts
//     gaplessly: the next record is already the new playback (its id, state
//     playing, play time 0), with no stopped record in between.
//   - At the end with nothing queued: the stopped record with the error of
//     code -13 (end of stream, see streamererrors.h).
//   - A live stream never ends by itself.
//
// Failures, chosen by the media's URI (see simulatedmedia.h for the
// conventions): the play is answered and the loading record published as
// usual; the failure comes on a later tick (while opening, or after the
// given playing time): the stopped record of that playback with the error
// record (code -14 ... -22, name and message, streamerError()), play time 0,
// buffering level -1; a queued next media is dropped with it.
//
// Crash (crash(), or zuvo-crash in the URI): the streamer restarts with
// nothing: every playback is dropped and the restart record is published,
// state stopped with no playback id and an error named
// ZuvoStreamerErrorCrashed(); play time 0, buffering level -1.
//
// Speed: simulated ms per real ms (default 1.0). 0 freezes the position
// (buffering, near end and failures due at the current position still
// happen, every 10 real ms): for tests that need a playback to stay where
// it is.
//
// Thread: everything runs on the thread the object lives on, the thread of
// the registry's event loop. Logger "SimulatedStreamer".
class SimulatedStreamer : public QObject {
    Q_OBJECT
public:
    static constexpr qint64 DefaultDurationMs = 30000;
    // Buffered bytes of a full buffer.
    static constexpr qint64 BufferCapacityBytes = 512 * 1024;

    // Names of the errors that refuse a command.
    static QString ErrorNotPlaying() { return QStringLiteral("NotPlaying"); }
    static QString ErrorInvalidArgument() { return QStringLiteral("InvalidArgument"); }
    static QString ErrorNotSeekable() { return QStringLiteral("NotSeekable"); }
    static QString ErrorUnknownPlayback() { return QStringLiteral("UnknownPlayback"); }

    // Creates the command nodes (activation nodes) and value nodes of every
    // streamer path below prefix in nodes (the registry, e.g.
    // CMNodes::current()), owned by this object.
    explicit SimulatedStreamer(CMNodes* nodes, const CMPath& prefix = ZuvoStreamerDefaultPrefixPath(),
                               QObject* parent = nullptr);
    ~SimulatedStreamer() override;
    Q_DISABLE_COPY(SimulatedStreamer)

    // Simulated milliseconds per real millisecond (default 1.0; e.g. 20 for
    // demos, 1000 for tests). Negative or not finite: ignored with a warning.
    void setSpeed(double factor);
    double speed() const { return m_speed; }
    // Duration of a track whose URI and roles give none (default 30000 ms);
    // applies to media played or queued afterwards. Not positive: ignored.
    void setDefaultDurationMs(qint64 ms);
    qint64 defaultDurationMs() const { return m_defaultDurationMs; }

    CMPath prefix() const { return m_prefix; }
    // Current published record.
    ZuvoStreamerData data() const { return m_data; }
    // Position of the running playback (0 when nothing runs).
    qint64 playTimeMs() const;
    // Whether a playback runs (loading, playing or paused).
    bool isActive() const { return static_cast<bool>(m_current); }
    // The last buffering configuration set through setAttributes (null before).
    QVariant bufferingConfig() const { return m_bufferingConfig; }
    bool bufferedBytesReportsEnabled() const { return m_reportBufferedBytes; }

    // Simulates a crash and restart now (publishes the restart record, see
    // above), also when nothing plays.
    void crash();

Q_SIGNALS:
    // Every command as received, before it is answered: command is the
    // path's last segment ("play", "setNextMedia", "clearNextMedia",
    // "pause", "resume", "stop", "seek", "setAttributes"), argument the
    // invocation's value as sent (a record hash or invalid).
    void commandReceived(const QString& command, const QVariant& argument);
    // After each publication of the data record (a record equal to the one
    // published last is not published again). A receiver may call back into
    // this object (crash(), setSpeed(), ...).
    void dataPublished(const ZuvoStreamerData& data);

private:
    using Handler = void (SimulatedStreamer::*)(const CMSetDataRequest&);
    struct Command {
        CMPath (*relativePath)();
        Handler handler;
    };
    // A media queued as gapless successor, with the id it will play under.
    struct Queued {
        int playbackId;
        ZuvoRoles roles;
        SimulatedMedia media;
    };

    static const QList<Command>& commands();

    void on_commandNode_invoked(const CMSetDataRequest& request);
    void on_tickTimer_timeout();

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
    // Reads the arguments and media of a play/setNextMedia payload; refuses
    // the request with ErrorInvalidArgument() and returns false when it
    // names nothing to play.
    bool readMedia(const CMSetDataRequest& request, ZuvoStreamerPlayArgs& args, SimulatedMedia& media);
    void setPaused(const CMSetDataRequest& request, bool paused);

    void startPlayback(std::unique_ptr<SimulatedPlayback> playback);
    void startQueued();
    // Ends the running playback with error (empty: a stop) and publishes it.
    void finish(const ZuvoError& error);
    void dropAll();

    ZuvoStreamerData runningRecord() const;
    void publishData(const ZuvoStreamerData& data);
    void publishPlayTime(qint64 ms);
    // Buffering level (percent, -1 no stream) and, when reports are on, the
    // buffered bytes it amounts to.
    void publishBuffer(int level);
    CMValueNode* createValueNode(CMNodes* nodes, const CMPath& path);
    void updateTickInterval();

    const CMPath m_prefix;
    CMValueNode* m_dataNode = nullptr;
    CMValueNode* m_playTimeNode = nullptr;
    CMValueNode* m_bufferingLevelNode = nullptr;
    CMValueNode* m_bufferedBytesNode = nullptr;

    std::unique_ptr<SimulatedPlayback> m_current;
    std::optional<Queued> m_next;
    int m_nextPlaybackId = 1;

    QTimer m_tickTimer{this};
    QElapsedTimer m_clock;
    double m_speed = 1.0;
    qint64 m_defaultDurationMs = DefaultDurationMs;

    ZuvoStreamerData m_data;
    qint64 m_publishedPlayTime = 0;
    int m_publishedBufferLevel = -1;
    bool m_reportBufferedBytes = false;
    QVariant m_bufferingConfig;
};
