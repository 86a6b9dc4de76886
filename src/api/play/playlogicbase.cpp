#include "playlogicbase.h"

#include <QTimer>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "dbglog.h"
#include "model/cmactivatenode.h"
#include "model/cmnodes.h"
#include "model/cmvaluenode.h"
#include "playlogicinterface.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("PlayLogicBase"));

namespace {

// Log text of a control: its name, or its number when it has none.
QString controlText(ZuvoPlayLogicControl::Enum control) {
    const QString name = ZuvoPlayLogicControl::toString(control);
    return name.isEmpty() ? QString::number(static_cast<int>(control)) : name;
}

bool isStopped(ZuvoPlayLogicState::Enum state) {
    return state == ZuvoPlayLogicState::stopped;
}

CMValueNode* createReadOnlyValue(CMNodes* nodes, const CMPath& path) {
    CMValueNode* node = CMValueNode::create(nodes, path, nullptr);
    node->setReadOnly(true);
    return node;
}

ZuvoValue i64Value(qint64 value) {
    ZuvoValue v;
    v.setI64_(value);
    return v;
}

ZuvoValue doubleValue(double value) {
    ZuvoValue v;
    v.setDouble_(value);
    return v;
}

ZuvoValue playModeValue(ZuvoPlayerPlayMode::Enum value) {
    ZuvoValue v;
    v.setPlayerPlayMode(value);
    return v;
}

} // namespace

PlayLogicBase::PlayLogicBase(CMNodes* nodes, const CMPath& basePath)
    : m_nodes(nodes) {
    // Signals carrying records may be connected queued by clients.
    zuvoRegisterMetaTypes();

    m_interface = PlayLogicInterface::instance(basePath);

    m_controlNode = CMActivateNode::create(nodes, m_interface->controlPath());
    m_controlNode->setInvoke(this, &PlayLogicBase::on_control_invoked, Qt::QueuedConnection);

    connect(this, &PlayLogicBase::playbackDataChanged, this, &PlayLogicBase::on_this_playbackDataChanged,
            Qt::DirectConnection);

    m_dataNode = createReadOnlyValue(nodes, m_interface->dataPath());
    m_playTimeNode = createReadOnlyValue(nodes, m_interface->playTimePath());
    m_playTimeNode->setValue(i64Value(0));
    m_playByteNode = createReadOnlyValue(nodes, m_interface->playBytePath());
    m_playByteNode->setValue(i64Value(0));
    m_bufferLevelNode = createReadOnlyValue(nodes, m_interface->bufferingLevelPath());
    m_bufferLevelNode->setValue(doubleValue(-1.0));
    m_playModeNode = createReadOnlyValue(nodes, m_interface->playModePath());
    m_playModeNode->setValue(playModeValue(ZuvoPlayerPlayMode::normal));

    m_pingTimeoutTimer = new QTimer(this);
    m_pingTimeoutTimer->setObjectName(QStringLiteral("pingTimeoutTimer"));
    m_pingTimeoutTimer->setSingleShot(true);
    m_pingTimeoutTimer->setInterval(ZuvoPlayLogicPingTimeout());
    connect(m_pingTimeoutTimer, &QTimer::timeout, this, &PlayLogicBase::on_pingTimeoutTimer_timeout);
}

PlayLogicBase::~PlayLogicBase() {
    ZuvoPlayLogicData stoppedData = data();
    stoppedData.setState(ZuvoPlayLogicState::stopped);
    stoppedData.__remove(ZuvoPlayLogicData::KeepActive());
    setData(stoppedData);
    if (!m_delayedPlayRequest.isNull())
        m_delayedPlayRequest.reply().cancel();
    m_controlNode->deleteLater();
}

CMPath PlayLogicBase::basePath() const {
    return m_interface->basePath();
}

ZuvoPlayLogicData PlayLogicBase::data() const {
    return ZuvoPlayLogicData(m_dataNode->value().__hash());
}

qint64 PlayLogicBase::playTime() const {
    return m_playTimeNode->value().i64_();
}

qint64 PlayLogicBase::playByte() const {
    return m_playByteNode->value().i64_();
}

double PlayLogicBase::bufferLevel() const {
    return m_bufferLevelNode->value().double_();
}

ZuvoPlayerPlayMode::Enum PlayLogicBase::playMode() const {
    return m_playModeNode->value().playerPlayMode();
}

void PlayLogicBase::setData(const ZuvoPlayLogicData& data) {
    dbglog_enterFunction(logger, basePath() << " " << data);
    m_dataNode->setValue(ZuvoValue(data.__hash()));
    Q_EMIT playbackDataChanged(data);

    if (!isStopped(data.state()))
        return;
    if (!data.keepActive())
        m_expectedPingSequence = 0;
    if (!m_delayedPlayRequest.isNull()) {
        LOG4CPLUS_DEBUG(logger, "Invoking delayed play request");
        // Taken out first: the request goes to the tree as if a client had
        // sent it again and arrives, queued, in the stopped state.
        const CMSetDataRequest request = m_delayedPlayRequest;
        m_delayedPlayRequest = CMSetDataRequest();
        CMRoot()->request(request);
    }
}

void PlayLogicBase::setPlayTime(qint64 playTime) {
    dbglog_scopedFunctionArgs(logger, basePath() << " " << playTime);
    m_playTimeNode->setValue(i64Value(playTime));
    Q_EMIT playTimeChanged(playTime);
}

void PlayLogicBase::setPlayByte(qint64 playByte) {
    dbglog_scopedFunctionArgs(logger, basePath() << " " << playByte);
    m_playByteNode->setValue(i64Value(playByte));
    Q_EMIT playByteChanged(playByte);
}

void PlayLogicBase::setBufferLevel(double bufferLevel) {
    dbglog_scopedFunctionArgs(logger, basePath() << " " << bufferLevel);
    m_bufferLevelNode->setValue(doubleValue(bufferLevel));
    Q_EMIT bufferLevelChanged(bufferLevel);
}

void PlayLogicBase::setPlayMode(ZuvoPlayerPlayMode::Enum playMode) {
    dbglog_scopedFunctionArgs(logger, basePath() << " " << ZuvoPlayerPlayMode::toString(playMode));
    m_playModeNode->setValue(playModeValue(playMode));
    Q_EMIT playModeChanged(playMode);
}

const QHash<ZuvoPlayLogicControl::Enum, PlayLogicBase::Handler>& PlayLogicBase::dispatchTable() {
    // Pointers to virtual members: a call through them reaches the override.
    static const QHash<ZuvoPlayLogicControl::Enum, Handler> table = {
        {ZuvoPlayLogicControl::play, &PlayLogicBase::play},
        {ZuvoPlayLogicControl::pause, &PlayLogicBase::pause},
        {ZuvoPlayLogicControl::stop, &PlayLogicBase::stop},
        {ZuvoPlayLogicControl::next, &PlayLogicBase::next},
        {ZuvoPlayLogicControl::previous, &PlayLogicBase::previous},
        {ZuvoPlayLogicControl::like, &PlayLogicBase::like},
        {ZuvoPlayLogicControl::dislike, &PlayLogicBase::dislike},
        {ZuvoPlayLogicControl::seekTime, &PlayLogicBase::seekTime},
        {ZuvoPlayLogicControl::seekBytes, &PlayLogicBase::seekBytes},
        {ZuvoPlayLogicControl::setCurrentTrack, &PlayLogicBase::setCurrentTrack},
        {ZuvoPlayLogicControl::changePlayMode, &PlayLogicBase::changePlayMode},
        {ZuvoPlayLogicControl::ping, &PlayLogicBase::ping},
    };
    return table;
}

void PlayLogicBase::on_control_invoked(const CMSetDataRequest& request) {
    dbglog_enterFunction(logger, "request: " << !request.isNull());
    const QVariantHash arguments = zuvo_detail::toHash(request.data());
    LOG4CPLUS_TRACE(logger, "arguments: " << ZuvoHash(arguments));

    const ZuvoPlayLogicControl::Enum control = ZuvoPlayLogicControlArgs(arguments).control();
    const ZuvoPlayLogicData current = data();
    const ZuvoPlayLogicState::Enum state = current.state();
    LOG4CPLUS_DEBUG(logger, "State: " << ZuvoPlayLogicState::toString(state) << " data " << current);

    if (!isStopped(state)) {
        if (control != ZuvoPlayLogicControl::play || m_unsupervised) {
            dispatch(control, request);
            return;
        }
        LOG4CPLUS_DEBUG(logger, "Play in non-stopped state. Delay play request.");
        if (m_delayedPlayRequest.isNull()) {
            m_interface->stop(ZuvoPlayLogicStopReason::newPlayRequest);
        } else {
            LOG4CPLUS_TRACE(logger, "Play request already waiting -> replacing");
            m_delayedPlayRequest.reply().cancel();
        }
        m_delayedPlayRequest = request;
        return;
    }

    switch (control) {
    case ZuvoPlayLogicControl::play:
    case ZuvoPlayLogicControl::changePlayMode:
    case ZuvoPlayLogicControl::ping:
        dispatch(control, request);
        return;
    case ZuvoPlayLogicControl::stop:
    case ZuvoPlayLogicControl::pause:
        if (current.keepActive()) {
            dispatch(control, request);
            return;
        }
        break;
    default:
        break;
    }
    LOG4CPLUS_DEBUG(logger, "Ignoring in stopped state control command: " << controlText(control));
    request.reply().setValue(QVariant());
}

void PlayLogicBase::dispatch(ZuvoPlayLogicControl::Enum control, const CMSetDataRequest& request) {
    const Handler handler = dispatchTable().value(control, nullptr);
    if (handler) {
        (this->*handler)(request);
        return;
    }
    LOG4CPLUS_WARN(logger, "Unrecognized control command: " << controlText(control));
    request.reply().setError(CMError(
        TrString(ZUVO_TR("Unrecognized control command: %1"), {TrArg(static_cast<int>(control), 0, 10)})));
}

void PlayLogicBase::on_this_playbackDataChanged(const ZuvoPlayLogicData& data) {
    if (m_unsupervised)
        return;
    const bool stopped = isStopped(data.state());
    if (!stopped && !m_pingTimeoutTimer->isActive()) {
        LOG4CPLUS_TRACE(logger, basePath() << " starting ping timer");
        m_pingTimeoutTimer->start();
    } else if (stopped) {
        LOG4CPLUS_TRACE(logger, basePath() << " stopping ping timer");
        m_pingTimeoutTimer->stop();
    }
}

void PlayLogicBase::ping(const CMSetDataRequest& request) {
    dbglog_enterFunction(logger, basePath());
    const int sequence = ZuvoPlayLogicPingArgs(zuvo_detail::toHash(request.data())).pingSequenceNumber();
    if (m_expectedPingSequence >= sequence) {
        // The watchdog only runs while something plays and a client
        // supervises it; a ping in the stopped state must not start it.
        if (!m_unsupervised && !isStopped(data().state()))
            m_pingTimeoutTimer->start();
        request.reply().setValue(QVariant());
    } else {
        request.reply().setError(
            CMError(QStringLiteral("Error"), TrString(ZUVO_TR("Ping sequence numbers do not match"))));
    }
    m_expectedPingSequence = sequence + 1;
}

void PlayLogicBase::on_pingTimeoutTimer_timeout() {
    LOG4CPLUS_WARN(logger, "Stopping playback on ping timeout");
    // Through the tree like any client's stop; nobody waits for its answer.
    m_interface->stop(ZuvoPlayLogicStopReason::none);
}

void PlayLogicBase::replyNotSupported(const CMSetDataRequest& request) {
    request.reply().setError(CMError(TrString(ZUVO_TR("Operation not supported."))));
}

void PlayLogicBase::pause(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    replyNotSupported(request);
}

void PlayLogicBase::previous(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    replyNotSupported(request);
}

void PlayLogicBase::next(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    replyNotSupported(request);
}

void PlayLogicBase::like(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    replyNotSupported(request);
}

void PlayLogicBase::dislike(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    replyNotSupported(request);
}

void PlayLogicBase::seekTime(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    replyNotSupported(request);
}

void PlayLogicBase::seekBytes(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    replyNotSupported(request);
}

void PlayLogicBase::setCurrentTrack(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    replyNotSupported(request);
}

void PlayLogicBase::changePlayMode(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    replyNotSupported(request);
}

ZuvoPlayLogicPlayModesSupported PlayLogicBase::playModesSupported() {
    dbglog_scopedFunction(logger);
    return ZuvoPlayLogicPlayModesSupported();
}
