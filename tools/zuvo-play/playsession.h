#pragma once

#include <QList>
#include <QObject>
#include <QTimer>
#include <memory>

#include "model/cmpath.h"
#include "stdincommands.h"
#include "streamerservice.h"
#include "tracklistplaylogic.h"
#include "zuvo.h"

class CMNodes;
class PlayLogicInterface;
class ServiceNode;

// Everything zuvo-play puts into the model tree, and the client that drives
// it: the streamer service it is given, the player's TrackListPlayLogic on
// ZuvoPlayerPath(), the playlist parse node on
// ZuvoPlayerContentPlayLogicPlaylistPath() (file: URLs allowed), the
// notification display on ZuvoNotificationDisplayOpenPath() and the node at
// ReportPath() that receives each item's playback-state reports (the role
// of a content service).
//
// The session drives the play logic like any client, through
// PlayLogicInterface and the model tree, pings it so that its watchdog stays
// quiet, and watches its published values with value items; what it sees it
// passes on as signals for the views.
//
// The end: once the play logic has left the stopped state, the next stopped
// state ends the session with finished(), exactly once. Exit code 0 when the
// playback ended normally (the last item ended, or stop/quit was asked for),
// 2 when it ended with an error (the published error, or a refused play).
// Quit while nothing plays ends at once with 0.
//
// Thread: the main thread, with the registry given to the constructor
// current. Every node belongs to this object (or, for the parse node's list
// nodes, to the registry).
class PlaySession : public QObject {
    Q_OBJECT
public:
    // Where the items' playback-state reports arrive.
    static CMPath ReportPath();

    // streamer serves the streamer paths in nodes; the session owns it.
    PlaySession(CMNodes* nodes, std::unique_ptr<StreamerService> streamer, QObject* parent = nullptr);
    ~PlaySession() override;
    Q_DISABLE_COPY(PlaySession)

    // Turns the command line's items into the track list (see loadItems);
    // returns the reason when there is nothing to play, else an empty text.
    QString load(const QStringList& arguments);
    // Plays the list from its first item.
    void start();
    // Carries out a user's command; a refusal comes back as commandFailed().
    void execute(const PlayerCommand& command);

    const QList<ZuvoRoles>& items() const { return m_playLogic.trackList().items(); }
    int currentIndex() const { return m_playLogic.currentIndex(); }
    ZuvoPlayLogicData data() const;
    qint64 playTime() const;
    double bufferLevel() const;
    ZuvoPlayerPlayMode::Enum playMode() const;

Q_SIGNALS:
    // The play logic's published values, as a client sees them.
    void dataChanged(const ZuvoPlayLogicData& data);
    void playTimeChanged(qint64 ms);
    void bufferLevelChanged(double level);
    void playModeChanged(ZuvoPlayerPlayMode::Enum mode);
    // The item at index is now the one playing.
    void trackChanged(int index);
    // A command as the streamer received it.
    void streamerCommand(const QString& command, const QVariant& argument);
    // An on-screen notice the library asked for.
    void notice(const ZuvoNotificationDisplayItem& notice);
    // A playback-state report of the item that plays (state, error name).
    void playbackReport(const ZuvoPlayLogicData& report);
    // A user's command was refused (name of the command, reason).
    void commandFailed(const QString& command, const QString& message);
    // The session is over; exitCode as in the class comment.
    void finished(int exitCode, const QString& message);

private:
    void on_data_changed(const ZuvoValue& value);
    void on_pingTimer_timeout();
    // Reports a refusal of reply as commandFailed(name, ...).
    void watch(const QString& name, const CMReply<QVariant>& reply);
    void finish(int exitCode, const QString& message);

    std::unique_ptr<StreamerService> m_streamer;
    TrackListPlayLogic m_playLogic;
    PlayLogicInterface* m_client = nullptr;
    QTimer m_pingTimer;
    int m_pingSequence = 0;
    bool m_started = false;
    bool m_stopRequested = false;
    bool m_finished = false;
};
