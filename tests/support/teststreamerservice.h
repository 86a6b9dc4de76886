#pragma once

#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QVariant>
#include <functional>

#include "model/cmerror.h"
#include "model/cmrequest.h"
#include "zuvo.h"

class CMNodes;
class CMValueNode;

// The streamer's side of the model tree for tests: real nodes on the default
// streamer paths. Every command invocation is recorded and answered from the
// event loop: by the answers scripted with failNext/holdNext (first in first
// out), else play and setNextMedia with the next playback id (1, 2, ...) and
// the others with an empty QVariant. A held invocation waits for
// releaseHeld(); reset() and destruction fail what is still held
// ("ServiceGone"). publish...() set the data record and its play time,
// buffering level and buffered bytes; watchers hear of changed values only.
// The nodes are children of the service. Thread: the event-loop thread.
class TestStreamerService : public QObject {
    Q_OBJECT
public:
    enum class Command { play, setNextMedia, clearNextMedia, pause, resume, stop, seek, setAttributes };
    Q_ENUM(Command)

    struct Invocation {
        Command command = Command::play;
        QVariant payload; // the record's hash as sent; invalid for commands without arguments
        QVariantHash args() const { return payload.toHash(); }
    };

    explicit TestStreamerService(CMNodes* nodes);
    ~TestStreamerService() override;

    QList<Invocation> invocations() const { return m_invocations; }
    QList<Invocation> invocations(Command command) const;
    int count(Command command) const { return invocations(command).size(); }
    // The newest invocation of command (a default Invocation when none).
    Invocation last(Command command) const { return invocations(command).value(count(command) - 1); }
    void clearInvocations() { m_invocations.clear(); }
    // Runs the event loop until count(command) >= n.
    bool waitForCount(Command command, int n, int timeoutMs = 5000) const;

    void failNext(Command command, const CMError& error);
    void holdNext(Command command);
    // Completes the oldest held invocation of command with value, or fails it with
    // error when error is set; false when none is held.
    bool releaseHeld(Command command, const QVariant& value = QVariant(), const CMError& error = CMError());
    int nextPlaybackId() const { return m_nextPlaybackId; }

    // Held invocations fail; scripts, invocations, values and ids start afresh.
    void reset();

    void publishData(const ZuvoStreamerData& data) { setValue(Data, data.__hash()); }
    void publishPlayTime(qint64 ms) { setValue(PlayTime, {{ZuvoValue::I64_(), ms}}); }
    void publishBufferingLevel(double percent) {
        setValue(BufferingLevel, {{ZuvoValue::Double_(), percent}});
    }
    void publishBufferedBytes(qint64 bytes) { setValue(BufferedBytes, {{ZuvoValue::I64_(), bytes}}); }
    ZuvoStreamerData data() const;

    static ZuvoStreamerData makeData(int playbackId, ZuvoPlayLogicState::Enum state);
    // The record of a streamer that has (re)started: stopped, no playback id.
    static ZuvoStreamerData restartedData();
    static ZuvoError makeError(int code, const QString& name = QStringLiteral("StreamerError"),
                               const QString& message = QString());

Q_SIGNALS:
    void invoked(TestStreamerService::Command command, const QVariant& payload);

private:
    using Answer = std::function<void(const CMSetDataRequest&)>;
    enum Value { Data, PlayTime, BufferingLevel, BufferedBytes };

    void onInvoked(const CMSetDataRequest& request);
    void setValue(Value which, const QVariantHash& value);

    QList<Invocation> m_invocations;
    QList<QPair<Command, Answer>> m_script;
    QList<QPair<Command, CMSetDataRequest>> m_held;
    int m_nextPlaybackId = 1;
    QList<QPointer<CMValueNode>> m_values; // indexed by Value
};
