#pragma once

#include <QList>
#include <QTimer>
#include <atomic>
#include <memory>

#include "audiosink.h"
#include "gaplesshandoff.h"
#include "gsterrors.h"
#include "streamerengine.h"

typedef struct _GstElement GstElement;
typedef struct _GstMessage GstMessage;
typedef struct _GstBus GstBus;

// StreamerEngine on one GStreamer playbin, kept for the life of the engine
// and reused from track to track, playing into one audio sink (AudioSinkSpec).
//
// Media: local files (file: URIs; a plain path is taken as a file), http(s)
// (souphttpsrc), HLS (.m3u8, hlsdemux) and every format the installed plugins
// decode. Video and subtitle streams are decoded into fake sinks (a playbin
// restricted to audio hangs on a media without audio, measured with 1.22);
// a media with no audio stream fails with -22.
//
// State: loading from play() until the pipeline has prerolled (and, for a
// network stream, its buffer is full), then playing, or paused when started
// paused or paused meanwhile. BUFFERING below 100 % sends a playing pipeline
// back to PAUSED (state loading) until it reaches 100 % (not for live
// sources). Position, duration and time seekability (GST_QUERY_SEEKING, time
// format; never by bytes) are queried every PollIntervalMs while a track
// runs, after prerolling and after a seek; updated() follows every change.
//
// Buffering configuration (setBufferingConfig(), a QVariantHash; applies to
// the next play()): "durationMs" (int, > 0) sets playbin's buffer-duration,
// "sizeBytes" (int, > 0) its buffer-size; other keys and bad values are
// ignored. bufferedBytes() is an estimate: the buffer level times the buffer
// size (sizeBytes, else the network buffer's default of 2 MiB) for a stream
// that reports buffering, 0 otherwise.
//
// Gapless: nearEnd() becomes true when less than NearEndMs remain, and at
// the latest at playbin's about-to-finish, which runs on a streaming thread
// and meets the engine through GaplessHandoff: with no setNext()/clearNext()
// decision yet it waits for one, at most GaplessHandoff::DecisionTimeoutMs
// (2 s); stop(), play() and destruction release it first. The queued
// successor is set as playbin's next uri there; nextStarted() is emitted when
// it starts (its STREAM_START, or its own about-to-finish when that comes
// first: a short track decoded faster than real time). A clearNext() that
// comes after the hand-over cannot take the uri back: the successor is stopped
// when it starts and ended() is emitted instead. A setNext() with another uri
// after the hand-over restarts the pipeline on that uri when the handed one
// starts (not gapless), then emits nextStarted().
//
// Errors: see gsterrors.h; the errors of one play are collected for
// ErrorSettleMs and the strongest is reported with failed(). An error after
// a successor was handed over is the successor's (the running track's data
// has all been read by then): the running track first plays out what the
// pipeline holds (until its position stops moving or reaches its end, or
// its EOS), then nextStarted() and failed() report the successor's failure
// (or ended() alone when the successor was cleared after the hand-over).
// When the position stands still well before the track's end (a track that
// the decoder's queues swallow whole before it prerolls), the failed
// successor holds the pipeline: the running track is started again alone
// (from its start) and the failure is reported at its end. A state change
// that fails while stopping or restarting the pipeline: crashed(), and the
// pipeline is built anew.
//
// Threads: every call and signal on the engine's thread. Bus messages are
// handed to it by a sync handler through queued calls that carry the
// generation of the play they belong to; messages of an earlier play are
// dropped. The constructor initialises GStreamer if nobody has
// (ensureGstInitialised()).
class GstEngine : public StreamerEngine {
    Q_OBJECT
public:
    static constexpr int PollIntervalMs = 250;
    static constexpr qint64 NearEndMs = 5000;
    static constexpr int ErrorSettleMs = 100;
    static constexpr qint64 DefaultBufferBytes = 2 * 1024 * 1024;

    explicit GstEngine(const AudioSinkSpec& sink, QObject* parent = nullptr);
    ~GstEngine() override;
    Q_DISABLE_COPY(GstEngine)

    // gst_init() once for the process unless GStreamer is initialised
    // already; thread-safe, idempotent.
    static void ensureGstInitialised();

    // The sink the pipeline plays into; Null when auto fell back to it.
    AudioSinkSpec sink() const { return m_sink; }
    // The URI playbin gets for uri: a plain path becomes a file URI.
    static QString toUri(const QString& uri);

    void play(const QString& uri, const ZuvoRoles& roles, bool startPaused) override;
    void setNext(const QString& uri, const ZuvoRoles& roles) override;
    void clearNext() override;
    void setPaused(bool paused) override;
    void seek(qint64 ms) override;
    void stop() override;
    void setBufferingConfig(const QVariant& config) override;

    ZuvoPlayLogicState::Enum state() const override;
    qint64 positionMs() const override { return m_positionMs; }
    int bufferLevel() const override { return m_bufferLevel; }
    qint64 bufferedBytes() const override;
    ZuvoPlayLogicStatus status() const override;
    bool nearEnd() const override { return m_nearEnd || m_aboutToFinish; }

private:
    // The running track's state; reset by play() and a gapless start.
    struct Track {
        QString uri;
        bool prerolled = false;
        bool live = false;
        bool buffering = false; // waits in PAUSED for a full buffer
        bool reportsBuffering = false;
        bool dataSeen = false;
        // Its own STREAM_START has come: a later one is a successor's.
        bool streamStarted = false;
    };

    // gstpipeline.cpp: building, states, queries.
    void buildPipeline();
    void destroyPipeline();
    // Sets the pipeline's state; false when the change failed at once.
    bool setPipelineState(int state);
    // PLAYING when prerolled, buffered and not paused, else PAUSED.
    void applyTargetState();
    // Releases a waiting about-to-finish, brings the pipeline to READY (NULL
    // after a failed play or successor) and starts a new generation. false:
    // the pipeline is lost (crash handled).
    bool haltPipeline();
    void crash(const QString& detail);
    // Queries position, duration and seekability; emits updated() on change.
    void poll();
    void updateNearEnd();
    void resetTrack(const QString& uri);
    void finishWavFile();

    // gstbus.cpp: messages on the engine's thread.
    static int onBusSync(GstBus* bus, GstMessage* message, void* engine);
    static void onAboutToFinish(GstElement* playbin, void* engine);
    void handleMessage(GstMessage* message, quint64 generation);
    void handleError(GstMessage* message);
    void handleBuffering(int percent);
    void handleAsyncDone();
    void handleStreamStart();
    void reportErrors();
    // The successor failed while the running track plays out: ends that
    // track and reports the failure once it has played out (see above).
    void finishSuccessorFailure();
    // The running track has not played yet: starts it again without the
    // failed successor, keeping the failure for its end.
    void playOutAlone();
    // The engine's side of about-to-finish: the track is near its end;
    // successors handed over before it that have not been seen to start
    // have started.
    void onAboutToFinishReached(quint64 generation, int handedOverBefore);
    void startSuccessor();

    AudioSinkSpec m_sink;
    GstElement* m_playbin = nullptr;
    GstElement* m_videoSink = nullptr;
    GaplessHandoff m_handoff;
    // Bumped whenever the pipeline halts: messages and calls of an earlier
    // generation are dropped.
    std::atomic<quint64> m_generation{1};

    bool m_running = false;
    bool m_paused = false;
    Track m_track;
    QString m_nextUri;
    // Successors handed over whose start the engine has seen.
    int m_startedSuccessors = 0;
    // The handed-over successor must not play (clearNext after hand-over).
    bool m_dropHandedSuccessor = false;
    QString m_handedUri;

    qint64 m_positionMs = 0;
    qint64 m_durationMs = -1;
    bool m_timeSeekable = false;
    bool m_seeking = false;
    bool m_nearEnd = false;
    bool m_aboutToFinish = false;
    int m_bufferLevel = 0;

    qint64 m_bufferSizeBytes = -1;
    qint64 m_bufferDurationMs = -1;

    QList<GstStreamerError> m_errors;
    // The handed-over successor's failure, waiting for the running track to
    // play out (when m_successorFailed).
    bool m_successorFailed = false;
    // The running track was restarted alone after its successor failed.
    bool m_playingOutAlone = false;
    GstStreamerError m_successorFailure;
    qint64 m_playOutPosition = -1;
    QString m_missingPlugin;
    QTimer m_pollTimer;
    QTimer m_errorTimer;
};
