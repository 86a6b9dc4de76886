#include "streamerworld.h"

#include <QTimer>

#include "playlogicinterface.h"
#include "support/eventloop.h"

namespace zuvobench {

namespace {
const CMPath basePath("/bench/streamerPlayLogic");
} // namespace

StreamerWorld::StreamerWorld()
    : m_streamer(m_scope.nodes())
    , m_logic(std::make_unique<TestStreamerPlayLogic>(m_scope.nodes(), basePath))
    , m_client(PlayLogicInterface::instance(basePath)) {
    if (auto* watchdog = m_logic->findChild<QTimer*>(QStringLiteral("pingTimeoutTimer")))
        watchdog->setInterval(24 * 3600 * 1000);
}

StreamerWorld::~StreamerWorld() {
    if (m_client->data().state() != ZuvoPlayLogicState::stopped)
        stopPlaying();
    m_logic.reset();
    zuvotest::drainEvents();
}

ZuvoRoles StreamerWorld::track() {
    return spltest::item({QStringLiteral("http://radio.example.com/stream.mp3")});
}

CMReply<QVariant> StreamerWorld::sendPlay() {
    m_playbackId = m_streamer.nextPlaybackId();
    return m_client->playContainer(ZuvoRoles(), track(), 0, 0);
}

bool StreamerWorld::startPlaying() {
    const int playsBefore = m_streamer.count(TestStreamerService::Command::play);
    sendPlay();
    return m_streamer.waitForCount(TestStreamerService::Command::play, playsBefore + 1) && reportPlaying();
}

bool StreamerWorld::reportPlaying() {
    m_streamer.publishData(spltest::streamerData(m_playbackId, ZuvoPlayLogicState::playing, track()));
    return zuvotest::waitUntil([this] {
        const ZuvoPlayLogicData data = m_client->data();
        return data.streamId() == m_playbackId && data.state() == ZuvoPlayLogicState::playing;
    });
}

bool StreamerWorld::stopPlaying() {
    const int stopsBefore = m_streamer.count(TestStreamerService::Command::stop);
    m_client->stop(ZuvoPlayLogicStopReason::user);
    if (!m_streamer.waitForCount(TestStreamerService::Command::stop, stopsBefore + 1))
        return false;
    m_streamer.publishData(spltest::streamerData(m_playbackId, ZuvoPlayLogicState::stopped, track()));
    return zuvotest::waitUntil([this] { return m_client->data().state() == ZuvoPlayLogicState::stopped; });
}

} // namespace zuvobench
