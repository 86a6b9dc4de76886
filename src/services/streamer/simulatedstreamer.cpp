#include "simulatedstreamer.h"

#include <QtMath>
#include <cmath>

#include "dbglog.h"
#include "model/cmactivatenode.h"
#include "model/cmerror.h"
#include "model/cmvaluenode.h"
#include "simulatedplayback.h"
#include "streamererrors.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("SimulatedStreamer"));

namespace {

// The timer wants to tick every TickSimulatedMs of the simulated clock, within
// these bounds of real time.
constexpr double TickSimulatedMs = 100.0;
constexpr int MinTickIntervalMs = 10;
constexpr int MaxTickIntervalMs = 100;

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

const QList<SimulatedStreamer::Command>& SimulatedStreamer::commands() {
    static const QList<Command> table = {
        {&ZuvoStreamerPlayPath, &SimulatedStreamer::handlePlay},
        {&ZuvoStreamerSetNextMediaPath, &SimulatedStreamer::handleSetNextMedia},
        {&ZuvoStreamerClearNextMediaPath, &SimulatedStreamer::handleClearNextMedia},
        {&ZuvoStreamerPausePath, &SimulatedStreamer::handlePause},
        {&ZuvoStreamerResumePath, &SimulatedStreamer::handleResume},
        {&ZuvoStreamerStopPath, &SimulatedStreamer::handleStop},
        {&ZuvoStreamerSeekPath, &SimulatedStreamer::handleSeek},
        {&ZuvoStreamerSetAttributesPath, &SimulatedStreamer::handleSetAttributes},
    };
    return table;
}

SimulatedStreamer::SimulatedStreamer(CMNodes* nodes, const CMPath& prefix, QObject* parent)
    : QObject(parent)
    , m_prefix(prefix) {
    for (const Command& command : commands()) {
        CMActivateNode* node = CMActivateNode::create(nodes, m_prefix + command.relativePath());
        node->setParent(this);
        node->setInvoke(this, &SimulatedStreamer::on_commandNode_invoked, Qt::QueuedConnection);
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
    m_bufferedBytesNode->setValue(i64Value(0));

    m_tickTimer.setObjectName(QStringLiteral("simulatedStreamerTick"));
    connect(&m_tickTimer, &QTimer::timeout, this, &SimulatedStreamer::on_tickTimer_timeout);
    updateTickInterval();
}

SimulatedStreamer::~SimulatedStreamer() = default;

CMValueNode* SimulatedStreamer::createValueNode(CMNodes* nodes, const CMPath& path) {
    CMValueNode* node = CMValueNode::create(nodes, path);
    node->setParent(this);
    node->setReadOnly(true);
    return node;
}

void SimulatedStreamer::setSpeed(double factor) {
    if (!std::isfinite(factor) || factor < 0) {
        LOG4CPLUS_WARN(logger, "Ignoring speed " << factor << ": it must be a finite number >= 0");
        return;
    }
    m_speed = factor;
    updateTickInterval();
}

void SimulatedStreamer::setDefaultDurationMs(qint64 ms) {
    if (ms <= 0) {
        LOG4CPLUS_WARN(logger, "Ignoring default duration " << ms << " ms: it must be positive");
        return;
    }
    m_defaultDurationMs = ms;
}

void SimulatedStreamer::updateTickInterval() {
    const int interval = m_speed > 0
                             ? qBound(MinTickIntervalMs, qCeil(TickSimulatedMs / m_speed), MaxTickIntervalMs)
                             : MinTickIntervalMs;
    m_tickTimer.setInterval(interval);
}

qint64 SimulatedStreamer::playTimeMs() const {
    return m_current ? m_current->positionMs() : 0;
}

void SimulatedStreamer::on_commandNode_invoked(const CMSetDataRequest& request) {
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

void SimulatedStreamer::refuse(const CMSetDataRequest& request, const QString& name, const QString& message) {
    LOG4CPLUS_WARN(logger, "Refused " << request.path() << ": " << name << ": " << message);
    request.reply().setError(CMError(name, TrString(message)));
}

bool SimulatedStreamer::refuseWhenIdle(const CMSetDataRequest& request) {
    if (m_current)
        return false;
    refuse(request, ErrorNotPlaying(), QStringLiteral("Nothing is playing"));
    return true;
}

bool SimulatedStreamer::readMedia(const CMSetDataRequest& request, ZuvoStreamerPlayArgs& args,
                                  SimulatedMedia& media) {
    args = ZuvoStreamerPlayArgs(zuvo_detail::toHash(request.data()));
    media = SimulatedMedia::fromRoles(args.roles(), m_defaultDurationMs);
    if (!media.uri.isEmpty())
        return true;
    refuse(request, ErrorInvalidArgument(),
           QStringLiteral("Nothing to play: no resource of the roles has a URI"));
    return false;
}

void SimulatedStreamer::handlePlay(const CMSetDataRequest& request) {
    ZuvoStreamerPlayArgs args;
    SimulatedMedia media;
    if (!readMedia(request, args, media))
        return;
    const bool startPaused =
        zuvo_detail::toHash(args.attributes()).value(ZuvoStreamerAttributesStartPaused()).toBool();
    const int playbackId = m_nextPlaybackId++;
    LOG4CPLUS_DEBUG(logger, "Playback " << playbackId << " plays " << media.uri << " (duration "
                                        << media.durationMs << " ms, start paused " << startPaused << ")");
    request.reply().setValue(playbackId);
    m_next.reset();
    startPlayback(std::make_unique<SimulatedPlayback>(playbackId, args.roles(), media, startPaused));
}

void SimulatedStreamer::handleSetNextMedia(const CMSetDataRequest& request) {
    if (refuseWhenIdle(request))
        return;
    ZuvoStreamerPlayArgs args;
    SimulatedMedia media;
    if (!readMedia(request, args, media))
        return;
    const int playbackId = m_nextPlaybackId++;
    LOG4CPLUS_DEBUG(logger, "Playback " << playbackId << " queued after " << m_current->playbackId() << ": "
                                        << media.uri);
    request.reply().setValue(playbackId);
    m_next = Queued{playbackId, args.roles(), media};
    publishData(runningRecord());
}

void SimulatedStreamer::handleClearNextMedia(const CMSetDataRequest& request) {
    request.reply().setValue(QVariant());
    if (!m_next)
        return;
    LOG4CPLUS_DEBUG(logger, "Queued playback " << m_next->playbackId << " dropped");
    m_next.reset();
    publishData(runningRecord());
}

void SimulatedStreamer::handlePause(const CMSetDataRequest& request) {
    setPaused(request, true);
}

void SimulatedStreamer::handleResume(const CMSetDataRequest& request) {
    setPaused(request, false);
}

void SimulatedStreamer::setPaused(const CMSetDataRequest& request, bool paused) {
    if (refuseWhenIdle(request))
        return;
    request.reply().setValue(QVariant());
    m_current->setPaused(paused);
    publishData(runningRecord());
}

void SimulatedStreamer::handleStop(const CMSetDataRequest& request) {
    request.reply().setValue(QVariant());
    if (m_current)
        finish(ZuvoError());
}

void SimulatedStreamer::handleSeek(const CMSetDataRequest& request) {
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
    if (!m_current->isSeekable()) {
        refuse(request, ErrorNotSeekable(), QStringLiteral("A live stream cannot be sought"));
        return;
    }
    if (!m_current->seek(position.timeMs())) {
        refuse(request, ErrorInvalidArgument(),
               QStringLiteral("Seek position %1 ms is outside the track (0 ... %2 ms)")
                   .arg(position.timeMs())
                   .arg(m_current->media().durationMs));
        return;
    }
    request.reply().setValue(QVariant());
    publishPlayTime(m_current->positionMs());
    publishData(runningRecord());
}

void SimulatedStreamer::handleSetAttributes(const CMSetDataRequest& request) {
    const ZuvoStreamerSetAttributesArgs args(zuvo_detail::toHash(request.data()));
    const int playbackId = args.playbackId();
    const bool known = !args.isSetPlaybackId() || playbackId == -1 ||
                       (m_current && m_current->playbackId() == playbackId) ||
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
    if (values.contains(ZuvoStreamerAttributesBufferingConfig()))
        m_bufferingConfig = values.value(ZuvoStreamerAttributesBufferingConfig());
    if (values.contains(ZuvoStreamerAttributesBufferLevelReportsEnabled())) {
        m_reportBufferedBytes = values.value(ZuvoStreamerAttributesBufferLevelReportsEnabled()).toBool();
        if (m_reportBufferedBytes)
            publishBuffer(m_publishedBufferLevel);
    }
}

void SimulatedStreamer::startPlayback(std::unique_ptr<SimulatedPlayback> playback) {
    m_current = std::move(playback);
    if (!m_tickTimer.isActive()) {
        m_clock.start();
        m_tickTimer.start();
    }
    publishPlayTime(m_current->positionMs());
    publishBuffer(m_current->bufferLevel());
    // Last: a receiver of dataPublished may call back into this object.
    publishData(runningRecord());
}

void SimulatedStreamer::startQueued() {
    const Queued next = *m_next;
    m_next.reset();
    LOG4CPLUS_DEBUG(logger, "Playback " << m_current->playbackId() << " ended, playback " << next.playbackId
                                        << " follows gaplessly");
    auto playback = std::make_unique<SimulatedPlayback>(next.playbackId, next.roles, next.media, false);
    playback->startBuffered();
    startPlayback(std::move(playback));
}

void SimulatedStreamer::finish(const ZuvoError& error) {
    LOG4CPLUS_DEBUG(logger, "Playback " << m_current->playbackId() << " stopped, error: " << error);
    ZuvoStreamerData record;
    record.setState(ZuvoPlayLogicState::stopped);
    record.setPlaybackId(m_current->playbackId());
    record.setError(error);
    record.setTrackRoles(m_current->roles());
    record.setStatus(m_current->status());
    record.setTrackNearEnd(m_current->nearEnd());
    dropAll();
    publishData(record);
    publishPlayTime(0);
    publishBuffer(-1);
}

void SimulatedStreamer::dropAll() {
    m_current.reset();
    m_next.reset();
    m_tickTimer.stop();
}

void SimulatedStreamer::crash() {
    LOG4CPLUS_WARN(logger, "Simulated crash: the streamer restarts with nothing playing");
    dropAll();
    ZuvoError error;
    error.setName(ZuvoStreamerErrorCrashed());
    error.setMessage(QStringLiteral("The streamer crashed and restarted"));
    ZuvoStreamerData record;
    record.setState(ZuvoPlayLogicState::stopped);
    record.setError(error);
    publishData(record);
    publishPlayTime(0);
    publishBuffer(-1);
}

void SimulatedStreamer::on_tickTimer_timeout() {
    const double simulatedMs = static_cast<double>(m_clock.nsecsElapsed()) / 1e6 * m_speed;
    m_clock.start();
    if (!m_current) {
        m_tickTimer.stop();
        return;
    }
    const SimulatedPlayback::Event event = m_current->tick(simulatedMs);
    publishPlayTime(m_current->positionMs());
    switch (event) {
    case SimulatedPlayback::Event::None:
        break;
    case SimulatedPlayback::Event::Buffered:
        publishBuffer(m_current->bufferLevel());
        break;
    case SimulatedPlayback::Event::Started:
        publishBuffer(m_current->bufferLevel());
        publishData(runningRecord());
        break;
    case SimulatedPlayback::Event::NearEnd:
        publishData(runningRecord());
        break;
    case SimulatedPlayback::Event::Ended:
        if (m_next)
            startQueued();
        else
            finish(streamerError(StreamerErrorCode::EndOfStream));
        break;
    case SimulatedPlayback::Event::Failed:
        finish(streamerError(m_current->media().failureCode));
        break;
    case SimulatedPlayback::Event::Crashed:
        crash();
        break;
    }
}

ZuvoStreamerData SimulatedStreamer::runningRecord() const {
    ZuvoStreamerData record;
    record.setState(m_current->state());
    record.setPlaybackId(m_current->playbackId());
    record.setError(ZuvoError());
    record.setTrackRoles(m_current->roles());
    if (m_next)
        record.setNextTrackRoles(m_next->roles);
    record.setStatus(m_current->status());
    record.setTrackNearEnd(m_current->nearEnd());
    return record;
}

void SimulatedStreamer::publishData(const ZuvoStreamerData& data) {
    if (data == m_data)
        return;
    m_data = data;
    m_dataNode->setValue(ZuvoValue(m_data.__hash()));
    Q_EMIT dataPublished(m_data);
}

void SimulatedStreamer::publishPlayTime(qint64 ms) {
    if (ms == m_publishedPlayTime)
        return;
    m_publishedPlayTime = ms;
    m_playTimeNode->setValue(i64Value(ms));
}

void SimulatedStreamer::publishBuffer(int level) {
    if (level != m_publishedBufferLevel) {
        m_publishedBufferLevel = level;
        m_bufferingLevelNode->setValue(doubleValue(level));
    }
    if (m_reportBufferedBytes)
        m_bufferedBytesNode->setValue(i64Value(level > 0 ? BufferCapacityBytes * level / 100 : 0));
}
