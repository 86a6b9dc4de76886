#include "playsession.h"

#include "itemloader.h"
#include "model/cmnodes.h"
#include "model/cmvalueitem.h"
#include "playlistparsenode.h"
#include "playlogicinterface.h"
#include "servicenode.h"

namespace {

// Pings well within the watchdog's interval.
constexpr int PingsPerTimeout = 4;

ZuvoRoles reportingTo(ZuvoRoles item, const CMPath& path) {
    ZuvoMediaData mediaData = item.mediaData();
    ZuvoMetaData metaData = mediaData.metaData();
    metaData.setPlaybackStateChangePath(path);
    mediaData.setMetaData(metaData);
    item.setMediaData(mediaData);
    return item;
}

} // namespace

CMPath PlaySession::ReportPath() {
    return CMPath("/zuvo-play/playbackState");
}

PlaySession::PlaySession(CMNodes* nodes, std::unique_ptr<StreamerService> streamer, QObject* parent)
    : QObject(parent)
    , m_streamer(std::move(streamer))
    , m_playLogic(nodes, ZuvoPlayerPath())
    , m_client(PlayLogicInterface::instance(ZuvoPlayerPath())) {
    connect(m_streamer.get(), &StreamerService::commandReceived, this, &PlaySession::streamerCommand);
    connect(&m_playLogic, &TrackListPlayLogic::currentIndexChanged, this, &PlaySession::trackChanged);

    auto* parser = new PlayListParseNode(ZuvoPlayerContentPlayLogicPlaylistPath());
    parser->setParent(this);
    parser->setNodes(nodes);
    parser->setAllowLocalFiles(true);

    auto* display = new ServiceNode(nodes, ZuvoNotificationDisplayOpenPath(), this);
    connect(display, &ServiceNode::invoked, this,
            [this](const QVariant& value) { Q_EMIT notice(ZuvoNotificationDisplayItem(value.toHash())); });
    auto* reports = new ServiceNode(nodes, ReportPath(), this);
    connect(reports, &ServiceNode::invoked, this,
            [this](const QVariant& value) { Q_EMIT playbackReport(ZuvoPlayLogicData(value.toHash())); });

    auto* dataItem = new CMValueItem(this, m_client->dataPath());
    connect(dataItem, &CMValueItem::changed, this, &PlaySession::on_data_changed);
    auto* playTimeItem = new CMValueItem(this, m_client->playTimePath());
    connect(playTimeItem, &CMValueItem::changed, this,
            [this](const ZuvoValue& value) { Q_EMIT playTimeChanged(value.i64_()); });
    auto* bufferItem = new CMValueItem(this, m_client->bufferingLevelPath());
    connect(bufferItem, &CMValueItem::changed, this,
            [this](const ZuvoValue& value) { Q_EMIT bufferLevelChanged(value.double_()); });
    auto* playModeItem = new CMValueItem(this, m_client->playModePath());
    connect(playModeItem, &CMValueItem::changed, this,
            [this](const ZuvoValue& value) { Q_EMIT playModeChanged(value.playerPlayMode()); });

    m_pingTimer.setInterval(ZuvoPlayLogicPingTimeout() / PingsPerTimeout);
    connect(&m_pingTimer, &QTimer::timeout, this, &PlaySession::on_pingTimer_timeout);
}

PlaySession::~PlaySession() = default;

QString PlaySession::load(const QStringList& arguments) {
    const LoadedItems loaded = loadItems(arguments, ZuvoPlayerContentPlayLogicPlaylistPath());
    if (!loaded.error.isEmpty())
        return loaded.error;
    QList<ZuvoRoles> items;
    for (const ZuvoRoles& item : loaded.items)
        items.append(reportingTo(item, ReportPath()));
    m_playLogic.setTracks(items);
    return QString();
}

void PlaySession::start() {
    m_pingTimer.start();
    on_pingTimer_timeout();
    const CMReply<QVariant> reply = m_client->playContainer(ZuvoRoles(), ZuvoRoles(), 0, 0);
    reply.onFinished(this, [this](const CMReply<QVariant>& finished) {
        if (finished.hasError())
            finish(2, QStringLiteral("play refused: %1").arg(finished.error().message()));
    });
}

void PlaySession::execute(const PlayerCommand& command) {
    const ZuvoPlayLogicState::Enum state = data().state();
    switch (command.kind) {
    case PlayerCommand::Pause:
        // The play logic's pause toggles: only a running playback is paused.
        if (state != ZuvoPlayLogicState::paused)
            watch(QStringLiteral("pause"), m_client->pause());
        return;
    case PlayerCommand::Resume:
        if (state == ZuvoPlayLogicState::paused)
            watch(QStringLiteral("resume"), m_client->pause());
        return;
    case PlayerCommand::TogglePause:
        watch(QStringLiteral("pause"), m_client->pause());
        return;
    case PlayerCommand::Next:
        watch(QStringLiteral("next"), m_client->next());
        return;
    case PlayerCommand::Previous:
        watch(QStringLiteral("previous"), m_client->previous());
        return;
    case PlayerCommand::SeekBy: {
        // Relative: the play logic clamps it to the media.
        ZuvoPlayLogicSeekArgs args;
        args.setControl(ZuvoPlayLogicControl::seekTime);
        args.setTimeRelative(command.ms);
        watch(QStringLiteral("seek"), m_client->control(args, CMReply<QVariant>()));
        return;
    }
    case PlayerCommand::SeekTo:
        watch(QStringLiteral("seek"), m_client->seekTime(command.ms));
        return;
    case PlayerCommand::Stop:
    case PlayerCommand::Quit:
        if (!m_started || state == ZuvoPlayLogicState::stopped) {
            finish(0, QString());
            return;
        }
        m_stopRequested = true;
        watch(QStringLiteral("stop"), m_client->stop(ZuvoPlayLogicStopReason::user));
        return;
    }
}

ZuvoPlayLogicData PlaySession::data() const {
    return m_client->data();
}

qint64 PlaySession::playTime() const {
    return m_client->playTime();
}

double PlaySession::bufferLevel() const {
    return m_client->bufferLevel();
}

ZuvoPlayerPlayMode::Enum PlaySession::playMode() const {
    return m_client->playMode();
}

void PlaySession::on_data_changed(const ZuvoValue& value) {
    const ZuvoPlayLogicData published(value.__hash());
    Q_EMIT dataChanged(published);
    if (published.state() != ZuvoPlayLogicState::stopped) {
        m_started = true;
        return;
    }
    // The play logic expects pings from 0 again once it has stopped.
    m_pingSequence = 0;
    if (!m_started)
        return;
    if (m_stopRequested || published.error().isEmpty())
        finish(0, QString());
    else
        finish(2, QStringLiteral("playback ended with an error: %1").arg(published.error()));
}

void PlaySession::on_pingTimer_timeout() {
    m_client->ping(m_pingSequence++);
}

void PlaySession::watch(const QString& name, const CMReply<QVariant>& reply) {
    reply.onFinished(this, [this, name](const CMReply<QVariant>& finished) {
        if (finished.hasError())
            Q_EMIT commandFailed(name, finished.error().message());
    });
}

void PlaySession::finish(int exitCode, const QString& message) {
    if (m_finished)
        return;
    m_finished = true;
    m_pingTimer.stop();
    Q_EMIT finished(exitCode, message);
}
