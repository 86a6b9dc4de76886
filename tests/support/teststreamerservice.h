#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QVariant>

#include "model/cmerror.h"
#include "model/cmpath.h"
#include "model/cmrequest.h"
#include "zuvo.h"

class CMNodes;
class CMValueNode;

// The streamer's side of the model tree, for tests: real nodes on every
// streamer path, so that ZuvoStreamerInterface, StreamerController and the
// play logics above them are tested over the road the device uses.
//
// Commands. An activation node on prefix + each command path records every
// invocation (command, payload, request) and answers it, from the event loop
// (the nodes deliver queued), as the test scripted:
//   - answerNext(c, v) / failNext(c, e) / holdNext(c) queue the answer of the
//     next invocations of c, first in first out;
//   - without a scripted answer, play and setNextMedia answer the next
//     playback id (1, 2, 3, ...; see setNextPlaybackId) and every other
//     command an empty QVariant;
//   - a held invocation stays unanswered until releaseHeld()/failHeld(); the
//     service fails the requests it still holds (error "ServiceGone") when
//     it is destroyed or reset, so no client waits forever.
// invoked() is emitted after an invocation has been recorded and answered
// (or held).
//
// Values. Value nodes at prefix + ZuvoStreamerDataPath() (the data record)
// and below it (play time, buffering level, buffered bytes) hold what the
// publish...() calls set; value items watching them are told from the event
// loop. The model tree reports a value only when it differs from the value
// it reported last: publishing an equal value twice is seen once.
//
// ZuvoStreamerInterface always talks to ZuvoStreamerDefaultPrefixPath(), the
// default prefix; another prefix serves tests that must not meet it.
//
// Ownership: the nodes are children of the service and leave the registry
// with it; the value nodes are read-only for clients. Thread: the event-loop thread of the registry.
class TestStreamerService : public QObject {
    Q_OBJECT
public:
    enum class Command { play, setNextMedia, clearNextMedia, pause, resume, stop, seek, setAttributes };
    Q_ENUM(Command)

    struct Invocation {
        Command command = Command::play;
        // The invocation's argument as sent: a record's hash, or an invalid
        // QVariant for the commands without arguments.
        QVariant payload;
        CMSetDataRequest request;
        QVariantHash args() const { return payload.toHash(); }
    };

    // Every command, in path-table order.
    static QList<Command> allCommands();
    // The command's path relative to the prefix (ZuvoStreamerPlayPath(), ...).
    static CMPath relativePath(Command command);
    static QString name(Command command);

    // Creates the nodes in nodes below prefix.
    explicit TestStreamerService(CMNodes* nodes, const CMPath& prefix = ZuvoStreamerDefaultPrefixPath());
    ~TestStreamerService() override;
    Q_DISABLE_COPY(TestStreamerService)

    CMPath prefix() const { return m_prefix; }
    CMPath path(Command command) const { return m_prefix + relativePath(command); }
    CMPath dataPath() const;
    CMPath playTimePath() const;
    CMPath bufferingLevelPath() const;
    CMPath bufferedBytesPath() const;

    // Recorded invocations, oldest first.
    QList<Invocation> invocations() const { return m_invocations; }
    QList<Invocation> invocations(Command command) const;
    // The commands in the order they arrived.
    QList<Command> commands() const;
    int count(Command command) const;
    // The newest invocation of command (a default Invocation when none).
    Invocation last(Command command) const;
    void clearInvocations() { m_invocations.clear(); }
    // Runs the event loop until count(command) >= n; returns whether it got there.
    bool waitForCount(Command command, int n, int timeoutMs = 5000) const;

    // Scripted answers of the next invocations of command.
    void answerNext(Command command, const QVariant& value);
    void failNext(Command command, const CMError& error);
    void holdNext(Command command);
    // Playback id the next play/setNextMedia without a scripted answer gets.
    int nextPlaybackId() const { return m_nextPlaybackId; }
    void setNextPlaybackId(int id) { m_nextPlaybackId = id; }

    // Back to a fresh service: held invocations fail (as on destruction);
    // scripted answers, recorded invocations and published values are
    // dropped; playback ids start at 1 again.
    void reset();

    // Held invocations of command; release answers the oldest one.
    int heldCount(Command command) const;
    bool releaseHeld(Command command, const QVariant& value = QVariant());
    bool failHeld(Command command, const CMError& error);

    // Published values.
    void publishData(const ZuvoStreamerData& data);
    void publishPlayTime(qint64 ms);
    void publishBufferingLevel(double percent);
    void publishBufferedBytes(qint64 bytes);
    ZuvoStreamerData data() const;
    // Number of value items watching the buffering-level / buffered-bytes value.
    int bufferingLevelWatchers() const;
    int bufferedBytesWatchers() const;

    // A data record of playback playbackId in state (no other field set).
    static ZuvoStreamerData makeData(int playbackId, ZuvoPlayLogicState::Enum state);
    // The record of a streamer that has (re)started: stopped, no playback id.
    static ZuvoStreamerData restartedData();
    static ZuvoError makeError(int code, const QString& name = QStringLiteral("StreamerError"),
                               const QString& message = QString());

Q_SIGNALS:
    void invoked(TestStreamerService::Command command, const QVariant& payload);

private:
    struct Answer {
        enum Kind { Value, Error, Hold } kind = Value;
        QVariant value;
        CMError error;
    };
    struct Held {
        Command command;
        CMSetDataRequest request;
    };

    void handle(Command command, const CMSetDataRequest& request);
    void failAllHeld();
    Answer takeAnswer(Command command);
    // Index of the oldest held invocation of command, -1 when none.
    int heldIndex(Command command) const;
    CMValueNode* createValue(CMNodes* nodes, const CMPath& path);
    static void setValue(CMValueNode* node, const ZuvoValue& value);

    const CMPath m_prefix;
    QList<Invocation> m_invocations;
    QList<QPair<Command, Answer>> m_script;
    QList<Held> m_held;
    int m_nextPlaybackId = 1;
    QPointer<CMValueNode> m_data;
    QPointer<CMValueNode> m_playTime;
    QPointer<CMValueNode> m_bufferingLevel;
    QPointer<CMValueNode> m_bufferedBytes;
};
