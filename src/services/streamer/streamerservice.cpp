#include "streamerservice.h"

#include "dbglog.h"
#include "model/cmactivatenode.h"
#include "model/cmerror.h"
#include "model/cmvaluenode.h"
#include "streamerengine.h"
#include "streamererrors.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("StreamerService"));

namespace {

ZuvoValue i64Value(qint64 value) {
    ZuvoValue result;
    result.setI64_(value);
    return result;
}

ZuvoValue doubleValue(double value) {
    ZuvoValue result;
    result.setDouble_(value);
    return result;
}

} // namespace

const QList<StreamerService::Command>& StreamerService::commands() {
    static const QList<Command> table = {
        {&ZuvoStreamerPlayPath, &StreamerService::handlePlay},
        {&ZuvoStreamerSetNextMediaPath, &StreamerService::handleSetNextMedia},
        {&ZuvoStreamerClearNextMediaPath, &StreamerService::handleClearNextMedia},
        {&ZuvoStreamerPausePath, &StreamerService::handlePause},
        {&ZuvoStreamerResumePath, &StreamerService::handleResume},
        {&ZuvoStreamerStopPath, &StreamerService::handleStop},
        {&ZuvoStreamerSeekPath, &StreamerService::handleSeek},
        {&ZuvoStreamerSetAttributesPath, &StreamerService::handleSetAttributes},
    };
    return table;
}

StreamerService::StreamerService(CMNodes* nodes, const CMPath& prefix, StreamerEngine* engine,
                                 QObject* parent)
    : QObject(parent)
    , m_prefix(prefix)
    , m_engine(engine) {
    Q_ASSERT(engine);
    m_engine->setParent(this);
    connect(m_engine, &StreamerEngine::updated, this, &StreamerService::on_engine_updated);
    connect(m_engine, &StreamerEngine::nextStarted, this, &StreamerService::on_engine_nextStarted);
    connect(m_engine, &StreamerEngine::ended, this, &StreamerService::on_engine_ended);
    connect(m_engine, &StreamerEngine::failed, this, &StreamerService::on_engine_failed);
    connect(m_engine, &StreamerEngine::crashed, this, &StreamerService::on_engine_crashed);

    for (const Command& command : commands()) {
        CMActivateNode* node = CMActivateNode::create(nodes, m_prefix + command.relativePath());
        node->setParent(this);
        node->setInvoke(this, &StreamerService::on_commandNode_invoked, Qt::QueuedConnection);
    }
    const CMPath dataPath = m_prefix + ZuvoStreamerDataPath();
    m_dataNode = createValueNode(nodes, dataPath);
    m_playTimeNode = createValueNode(nodes, dataPath + ZuvoPlayLogicPlayTimePath());
    m_bufferingLevelNode = createValueNode(nodes, dataPath + ZuvoPlayLogicBufferingLevelPath());
    m_bufferedBytesNode = createValueNode(nodes, dataPath + ZuvoPlayLogicBufferBytesPath());

    m_data.setState(ZuvoPlayLogicState::stopped);
    m_dataNode->setValue(ZuvoValue(m_data.__hash()));
    m_playTimeNode->setValue(i64Value(m_publishedPlayTime));
    m_bufferingLevelNode->setValue(doubleValue(m_publishedBufferLevel));
    m_bufferedBytesNode->setValue(i64Value(m_publishedBufferedBytes));
}

StreamerService::~StreamerService() {
    // The engine goes first, while the nodes it might still report to exist;
    // its signals no longer reach this half-destroyed object.
    disconnect(m_engine, nullptr, this, nullptr);
    delete m_engine;
}

CMValueNode* StreamerService::createValueNode(CMNodes* nodes, const CMPath& path) {
    CMValueNode* node = CMValueNode::create(nodes, path);
    node->setParent(this);
    node->setReadOnly(true);
    return node;
}

ZuvoResource StreamerService::playedResource(const ZuvoRoles& roles) {
    const ZuvoMediaData mediaData = roles.mediaData();
    const ZuvoResource active = mediaData.activeResource();
    if (!active.uri().isEmpty())
        return active;
    const ZuvoList<ZuvoResource> resources = mediaData.resources();
    for (const ZuvoResource& resource : resources) {
        if (!resource.uri().isEmpty())
            return resource;
    }
    return ZuvoResource();
}

qint64 StreamerService::playTimeMs() const {
    return isActive() ? m_engine->positionMs() : 0;
}

void StreamerService::on_commandNode_invoked(const CMSetDataRequest& request) {
    for (const Command& command : commands()) {
        const CMPath relative = command.relativePath();
        if (!request.path().equals(m_prefix + relative, CMPath::CompareWithoutParams))
            continue;
        const QString name = relative.lastSegment();
        LOG4CPLUS_DEBUG(logger, "Command " << name << " argument: " << request.data());
        Q_EMIT commandReceived(name, request.data());
        (this->*command.handler)(request);
        return;
    }
    refuse(request, QStringLiteral("NotSupported"),
           QStringLiteral("No streamer command at ") + request.path().toEncoded());
}

void StreamerService::refuse(const CMSetDataRequest& request, const QString& name, const QString& message) {
    LOG4CPLUS_WARN(logger, "Refused " << request.path() << ": " << name << ": " << message);
    request.reply().setError(CMError(name, TrString(message)));
}

bool StreamerService::refuseWhenIdle(const CMSetDataRequest& request) {
    if (isActive())
        return false;
    refuse(request, ErrorNotPlaying(), QStringLiteral("Nothing is playing"));
    return true;
}

QString StreamerService::readMedia(const CMSetDataRequest& request, ZuvoStreamerPlayArgs& args) {
    args = ZuvoStreamerPlayArgs(zuvo_detail::toHash(request.data()));
    const QString uri = playedResource(args.roles()).uri();
    if (uri.isEmpty()) {
        refuse(request, ErrorInvalidArgument(),
               QStringLiteral("Nothing to play: no resource of the roles has a URI"));
    }
    return uri;
}

void StreamerService::handlePlay(const CMSetDataRequest& request) {
    ZuvoStreamerPlayArgs args;
    const QString uri = readMedia(request, args);
    if (uri.isEmpty())
        return;
    const bool startPaused =
        zuvo_detail::toHash(args.attributes()).value(ZuvoStreamerAttributesStartPaused()).toBool();
    const int playbackId = m_nextPlaybackId++;
    LOG4CPLUS_DEBUG(logger,
                    "Playback " << playbackId << " plays " << uri << " (start paused " << startPaused << ")");
    request.reply().setValue(playbackId);
    m_next.reset();
    m_currentId = playbackId;
    m_currentRoles = args.roles();
    m_engine->play(uri, args.roles(), startPaused);
    publishRunning();
}

void StreamerService::handleSetNextMedia(const CMSetDataRequest& request) {
    if (refuseWhenIdle(request))
        return;
    ZuvoStreamerPlayArgs args;
    const QString uri = readMedia(request, args);
    if (uri.isEmpty())
        return;
    const int playbackId = m_nextPlaybackId++;
    LOG4CPLUS_DEBUG(logger, "Playback " << playbackId << " queued after " << m_currentId << ": " << uri);
    request.reply().setValue(playbackId);
    m_next = Queued{playbackId, args.roles()};
    m_engine->setNext(uri, args.roles());
    publishData(runningRecord());
}

void StreamerService::handleClearNextMedia(const CMSetDataRequest& request) {
    request.reply().setValue(QVariant());
    // Also with nothing queued: the engine learns that nothing follows.
    if (isActive())
        m_engine->clearNext();
    if (!m_next)
        return;
    LOG4CPLUS_DEBUG(logger, "Queued playback " << m_next->playbackId << " dropped");
    m_next.reset();
    publishData(runningRecord());
}

void StreamerService::handlePause(const CMSetDataRequest& request) {
    setPaused(request, true);
}

void StreamerService::handleResume(const CMSetDataRequest& request) {
    setPaused(request, false);
}

void StreamerService::setPaused(const CMSetDataRequest& request, bool paused) {
    if (refuseWhenIdle(request))
        return;
    request.reply().setValue(QVariant());
    m_engine->setPaused(paused);
    publishData(runningRecord());
}

void StreamerService::handleStop(const CMSetDataRequest& request) {
    request.reply().setValue(QVariant());
    if (isActive())
        finish(ZuvoError());
}

void StreamerService::handleSeek(const CMSetDataRequest& request) {
    if (refuseWhenIdle(request))
        return;
    const ZuvoStreamerSeekPosition position(zuvo_detail::toHash(request.data()));
    if (position.isSetTimeMs() == position.isSetBytes()) {
        refuse(request, ErrorInvalidArgument(),
               QStringLiteral("A seek names exactly one of timeMs and bytes"));
        return;
    }
    if (position.isSetBytes()) {
        refuse(request, ErrorNotSeekable(), QStringLiteral("Seeking to a byte position is not supported"));
        return;
    }
    const ZuvoPlayLogicStatus status = m_engine->status();
    if (!status.timeSeek() || status.duration() < 0) {
        refuse(request, ErrorNotSeekable(),
               QStringLiteral("The stream cannot be sought (live, or its length is not known)"));
        return;
    }
    if (position.timeMs() < 0 || position.timeMs() > status.duration()) {
        refuse(request, ErrorInvalidArgument(),
               QStringLiteral("Seek position %1 ms is outside the track (0 ... %2 ms)")
                   .arg(position.timeMs())
                   .arg(status.duration()));
        return;
    }
    request.reply().setValue(QVariant());
    m_engine->seek(position.timeMs());
    publishPlayTime(m_engine->positionMs());
    publishData(runningRecord());
}

void StreamerService::handleSetAttributes(const CMSetDataRequest& request) {
    const ZuvoStreamerSetAttributesArgs args(zuvo_detail::toHash(request.data()));
    const int playbackId = args.playbackId();
    const bool known = !args.isSetPlaybackId() || playbackId == -1 ||
                       (isActive() && m_currentId == playbackId) ||
                       (m_next && m_next->playbackId == playbackId);
    if (!known) {
        refuse(request, ErrorUnknownPlayback(), QStringLiteral("No playback %1").arg(playbackId));
        return;
    }
    const QVariant attributes = args.attributes();
    const auto type = attributes.userType();
    if (attributes.isValid() && type != QMetaType::QVariantHash && type != QMetaType::QVariantMap) {
        refuse(request, ErrorInvalidArgument(), QStringLiteral("Attributes are not a record"));
        return;
    }
    request.reply().setValue(QVariant());
    const QVariantHash values = zuvo_detail::toHash(attributes);
    if (values.contains(ZuvoStreamerAttributesBufferingConfig())) {
        m_bufferingConfig = values.value(ZuvoStreamerAttributesBufferingConfig());
        m_engine->setBufferingConfig(m_bufferingConfig);
    }
    if (values.contains(ZuvoStreamerAttributesBufferLevelReportsEnabled())) {
        m_reportBufferedBytes = values.value(ZuvoStreamerAttributesBufferLevelReportsEnabled()).toBool();
        if (m_reportBufferedBytes) {
            // The value was not kept up to date while reports were off.
            m_publishedBufferedBytes = isActive() ? m_engine->bufferedBytes() : 0;
            m_bufferedBytesNode->setValue(i64Value(m_publishedBufferedBytes));
        }
    }
}

void StreamerService::on_engine_updated() {
    if (isActive())
        publishRunning();
}

void StreamerService::on_engine_nextStarted() {
    if (!m_next) {
        LOG4CPLUS_WARN(logger, "The engine started a successor nobody queued; ignored");
        return;
    }
    LOG4CPLUS_DEBUG(logger, "Playback " << m_currentId << " ended, playback " << m_next->playbackId
                                        << " follows gaplessly");
    m_currentId = m_next->playbackId;
    m_currentRoles = m_next->roles;
    m_next.reset();
    publishRunning();
}

void StreamerService::on_engine_ended() {
    if (isActive())
        finish(streamerError(StreamerErrorCode::EndOfStream));
}

void StreamerService::on_engine_failed(int code, const QString& detail) {
    if (!isActive())
        return;
    LOG4CPLUS_DEBUG(logger, "Playback " << m_currentId << " failed with " << code << ": " << detail);
    finish(streamerError(code));
}

void StreamerService::on_engine_crashed(const QString& detail) {
    LOG4CPLUS_WARN(logger,
                   "The streamer engine crashed (" << detail << "): it restarts with nothing playing");
    m_currentId = 0;
    m_next.reset();
    ZuvoError error;
    error.setName(ZuvoStreamerErrorCrashed());
    error.setMessage(QStringLiteral("The streamer crashed and restarted"));
    ZuvoStreamerData record;
    record.setState(ZuvoPlayLogicState::stopped);
    record.setError(error);
    publishData(record);
    publishIdleValues();
}

void StreamerService::crash() {
    m_engine->stop();
    on_engine_crashed(QStringLiteral("asked for"));
}

void StreamerService::finish(const ZuvoError& error) {
    LOG4CPLUS_DEBUG(logger, "Playback " << m_currentId << " stopped, error: " << error);
    // The track as last published: after its end the engine has nothing to
    // report any more.
    ZuvoStreamerData record;
    record.setState(ZuvoPlayLogicState::stopped);
    record.setPlaybackId(m_currentId);
    record.setError(error);
    record.setTrackRoles(m_currentRoles);
    record.setStatus(m_data.status());
    record.setTrackNearEnd(m_data.trackNearEnd());
    m_engine->stop();
    m_currentId = 0;
    m_next.reset();
    publishData(record);
    publishIdleValues();
}

void StreamerService::publishRunning() {
    publishPlayTime(m_engine->positionMs());
    publishBuffer(m_engine->bufferLevel(), m_engine->bufferedBytes());
    // Last: a receiver of dataPublished may call back into this object.
    publishData(runningRecord());
}

void StreamerService::publishIdleValues() {
    publishPlayTime(0);
    publishBuffer(-1, 0);
}

ZuvoStreamerData StreamerService::runningRecord() const {
    ZuvoStreamerData record;
    record.setState(m_engine->state());
    record.setPlaybackId(m_currentId);
    record.setError(ZuvoError());
    record.setTrackRoles(m_currentRoles);
    if (m_next)
        record.setNextTrackRoles(m_next->roles);
    record.setStatus(m_engine->status());
    record.setTrackNearEnd(m_engine->nearEnd());
    return record;
}

void StreamerService::publishData(const ZuvoStreamerData& data) {
    if (data == m_data)
        return;
    m_data = data;
    m_dataNode->setValue(ZuvoValue(m_data.__hash()));
    Q_EMIT dataPublished(m_data);
}

void StreamerService::publishPlayTime(qint64 ms) {
    if (ms == m_publishedPlayTime)
        return;
    m_publishedPlayTime = ms;
    m_playTimeNode->setValue(i64Value(ms));
}

void StreamerService::publishBuffer(int level, qint64 bytes) {
    if (level != m_publishedBufferLevel) {
        m_publishedBufferLevel = level;
        m_bufferingLevelNode->setValue(doubleValue(level));
    }
    if (m_reportBufferedBytes && bytes != m_publishedBufferedBytes) {
        m_publishedBufferedBytes = bytes;
        m_bufferedBytesNode->setValue(i64Value(bytes));
    }
}
