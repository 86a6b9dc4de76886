#pragma once

#include <QObject>
#include <QVariant>

#include "model/cmreply.h"
#include "zuvo.h"

// Access to the media streamer service: its commands and the values it
// publishes. StreamerController drives the streamer only through this
// interface (held by a QSharedPointer), so another transport or a test
// double can take the place of ZuvoStreamerInterface.
//
// Thread: every call and every signal belongs to the event-loop thread the
// object lives in.
//
// Commands: each returns the streamer's reply as it comes back (completed
// once, later, from the event loop); a failed command shows up as an error on
// that reply, the interface itself reports nothing. clearNextMedia() and
// setAttributes() give no reply: their outcome cannot be observed.
//
// Values: data() and playTime() are watched between initialize() and
// deinitialize(); the buffering level and the buffered bytes only while the
// respective listen...(true) is on, independently of initialize(). The
// change signals carry the new value first, then the previous one, and are
// emitted from the event loop whenever the watched value changes.
class StreamerInterface : public QObject {
    Q_OBJECT
public:
    explicit StreamerInterface(QObject* parent = nullptr);
    ~StreamerInterface() override;
    Q_DISABLE_COPY(StreamerInterface)

    // Starts watching the streamer's data and play time; returns true.
    virtual bool initialize() = 0;
    // Stops watching data and play time.
    virtual void deinitialize() = 0;

    virtual CMReply<QVariant> play(const ZuvoStreamerPlayArgs& args) = 0;
    virtual CMReply<QVariant> setNextMedia(const ZuvoStreamerPlayArgs& args) = 0;
    virtual CMReply<QVariant> pause() = 0;
    virtual CMReply<QVariant> resume() = 0;
    virtual CMReply<QVariant> stop() = 0;
    virtual CMReply<QVariant> seek(const ZuvoStreamerSeekPosition& position) = 0;
    virtual void clearNextMedia() = 0;
    virtual void setAttributes(const ZuvoStreamerSetAttributesArgs& args) = 0;

    // The values last reported by the streamer.
    virtual ZuvoStreamerData data() const = 0;
    virtual qint64 playTime() const = 0;
    // -1.0 while not listening.
    virtual double bufferingLevel() const = 0;
    // -1 while not listening.
    virtual qint64 bufferedBytes() const = 0;

    virtual void listenBufferingLevel(bool listen) = 0;
    virtual bool listeningBufferingLevel() const = 0;
    virtual void listenBufferedBytes(bool listen) = 0;
    virtual bool listeningBufferedBytes() const = 0;

Q_SIGNALS:
    void dataChanged(const ZuvoStreamerData& newValue, const ZuvoStreamerData& oldValue);
    void playTimeChanged(qint64 newValue, qint64 oldValue);
    void bufferingLevelChanged(double newValue, double oldValue);
    void bufferedBytesChanged(qint64 newValue, qint64 oldValue);
};
