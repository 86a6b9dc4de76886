#pragma once

#include <QJsonObject>
#include <QObject>

class PlaySession;

// The --json view: one JSON object per line on stdout, written and flushed
// as it happens, each with an "event" member:
//   {"event":"data","state":"playing","track":0,"data":{...}}   published record
//   {"event":"playTime","ms":1200}                              play time
//   {"event":"bufferLevel","level":75}                          buffer level
//   {"event":"playMode","mode":"repeatAll"}                     play mode
//   {"event":"track","index":1,"title":"...","uri":"..."}       item now playing
//   {"event":"command","command":"setNextMedia","argument":{}}  streamer command
//   {"event":"playbackState","state":"stopped","error":"..."}   item's report
//   {"event":"notice","title":"...","message":"..."}            on-screen notice
//   {"event":"error","command":"next","message":"..."}          refused command
//   {"event":"error","input":"jump","message":"..."}            bad stdin line
//   {"event":"end","exitCode":0,"message":""}                   the last line
// Records are written as their hashes ("data" holds every published field,
// state as its number). Nothing is written after "end". Thread: the main
// thread.
class JsonOutput : public QObject {
    Q_OBJECT
public:
    explicit JsonOutput(PlaySession* session, QObject* parent = nullptr);
    Q_DISABLE_COPY(JsonOutput)

    // Reports a stdin line that is no command.
    void invalidInput(const QString& input, const QString& reason);

private:
    void write(const QString& event, QJsonObject object);

    PlaySession* m_session;
    bool m_ended = false;
};
