#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include "zuvo.h"

// What plays the tracks behind a StreamerService: a simulated timeline or a
// real media pipeline. The service owns the protocol (nodes, argument checks,
// refusals, playback ids, the published record and values); the engine only
// plays what it is told and reports what happens to the running track.
//
// The engine knows nothing of playback ids. At any time it has at most one
// running track (after play(), until stop(), ended(), failed() or crashed())
// and at most one queued successor (after setNext(), until clearNext(), a
// play(), a stop() or the successor's start).
//
// Thread: every call and every signal on the thread the engine lives on (the
// service's thread). An engine with threads of its own hands their news over
// to that thread before it emits anything. Signals are emitted from inside
// the engine's own event handlers, never from inside a call the service made
// (play(), seek(), ...), so a receiver may call back into the engine.
class StreamerEngine : public QObject {
    Q_OBJECT
public:
    explicit StreamerEngine(QObject* parent = nullptr)
        : QObject(parent) {}
    ~StreamerEngine() override = default;
    Q_DISABLE_COPY(StreamerEngine)

    // Starts uri (the roles it was asked with) as the running track: what
    // ran and what was queued before is dropped without any signal. The
    // track reports loading until it is buffered, then playing, or paused
    // when startPaused.
    virtual void play(const QString& uri, const ZuvoRoles& roles, bool startPaused) = 0;
    // Queues uri as the gapless successor of the running track, replacing a
    // queued one. Only called while a track runs.
    virtual void setNext(const QString& uri, const ZuvoRoles& roles) = 0;
    // Nothing is to follow the running track: drops the queued successor, if
    // any. Called whenever a client says so while a track runs, queued or not,
    // so that an engine waiting for the decision can go on at once.
    virtual void clearNext() = 0;
    // Pauses or continues the running track. Only called while a track runs.
    virtual void setPaused(bool paused) = 0;
    // Moves the running track to ms. The service has checked that the track
    // is seekable by time (status().timeSeek()) and that 0 <= ms <= its
    // duration. Afterwards positionMs() reads ms (or the closest position the
    // engine could reach) and nearEnd() is false when ms is before the
    // near-end point.
    virtual void seek(qint64 ms) = 0;
    // Ends the running track and drops the queued one, silently: no signal
    // follows for either. Nothing running: does nothing.
    virtual void stop() = 0;
    // The buffering configuration a client set (see the service); applies to
    // tracks played afterwards, or at once where the engine can.
    virtual void setBufferingConfig(const QVariant& config) = 0;

    // The running track as it stands; only read while a track runs.
    // State: loading (not buffered), playing or paused; never stopped.
    virtual ZuvoPlayLogicState::Enum state() const = 0;
    virtual qint64 positionMs() const = 0;
    // Buffer fill in percent, 0 ... 100.
    virtual int bufferLevel() const = 0;
    // Bytes held in the buffer.
    virtual qint64 bufferedBytes() const = 0;
    // Duration in ms (-1 unknown or live) and seekability by time and bytes.
    virtual ZuvoPlayLogicStatus status() const = 0;
    // Whether the running track is near its end (a successor should be
    // queued now).
    virtual bool nearEnd() const = 0;

Q_SIGNALS:
    // Something read through the getters above changed: publish it.
    void updated();
    // The queued successor has started gaplessly and is now the running
    // track (its getters apply). Only after setNext() with no clearNext(),
    // play() or stop() since.
    void nextStarted();
    // The running track reached its end with nothing queued; the engine is
    // idle.
    void ended();
    // The running track failed with a streamer error code (-14 ... -22, see
    // streamererrors.h); detail says what the engine saw, for the log. The
    // queued successor is dropped; the engine is idle.
    void failed(int code, const QString& detail);
    // The engine lost everything (a pipeline that could not be recovered,
    // a simulated crash) and is idle again, ready for the next play().
    void crashed(const QString& detail);
};
