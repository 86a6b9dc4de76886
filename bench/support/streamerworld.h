#pragma once

#include <memory>

#include "model/cmnodes.h"
#include "support/streamerplaylogicfixture.h"
#include "support/teststreamerservice.h"

class PlayLogicInterface;

namespace zuvobench {

// One streamer play logic in a registry of its own, on the test streamer
// service, driven by its PlayLogicInterface like any client would. The play
// logic is the tests' TestStreamerPlayLogic: a StreamerPlayLogic that
// publishes every control as enabled once a media starts, so that pause and
// the other controls reach the streamer.
//
// The ping watchdog's interval is stretched to a day: benchmarks that keep
// the logic playing for minutes without pinging must not be stopped by it.
//
// Thread: the event-loop thread. The registry is installed as the current
// one for the world's lifetime.
class StreamerWorld {
public:
    StreamerWorld();
    ~StreamerWorld();
    Q_DISABLE_COPY(StreamerWorld)

    PlayLogicInterface* client() const { return m_client; }
    TestStreamerService& streamer() { return m_streamer; }

    // The item played: one HTTP resource, no pre-play path.
    static ZuvoRoles track();

    // Plays track() through the client; the test streamer answers the play
    // with the next playback id. Returns the client's reply.
    CMReply<QVariant> sendPlay();
    // Lets the streamer report the playback of the last sendPlay() as
    // playing; returns whether the play logic published the playing state.
    bool reportPlaying();
    // sendPlay(), then reportPlaying() once the play reached the streamer.
    bool startPlaying();
    // Stops through the client and lets the streamer report its stop;
    // returns whether the play logic published the stopped state.
    bool stopPlaying();

private:
    CMRootScope m_scope;
    TestStreamerService m_streamer;
    std::unique_ptr<TestStreamerPlayLogic> m_logic;
    PlayLogicInterface* m_client = nullptr;
    int m_playbackId = 0;
};

} // namespace zuvobench
