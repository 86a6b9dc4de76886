#include "streamerplaylogic.h"

#include <QTimer>

#include "dbglog.h"
#include "model/cmnodes.h"
#include "zuvoassert.h"
#include "zuvostreamerinterface.h"

// Construction, destruction and the play-request pipeline.

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("StreamerPlayLogic"));

namespace {
constexpr int ErrorReportIntervalMs = 2000;
} // namespace

StreamerPlayLogic::PlayRequest::PlayRequest(const ZuvoStreamerPlayArgs& playArgs, Command playCommand)
    : args(playArgs)
    , command(playCommand)
    , reply() {}

StreamerPlayLogic::StreamerPlayLogic(CMNodes* nodes, const CMPath& path)
    : PlayLogicBase(nodes, path)
    , m_streamerController(QSharedPointer<ZuvoStreamerInterface>::create()) {
    dbglog_scopedFunction(logger);
    bool connected =
        static_cast<bool>(connect(&m_streamerController, &StreamerController::streamerDataChanged, this,
                                  &StreamerPlayLogic::on_streamerController_streamerDataChanged));
    zuvoAssert(connected, "StreamerPlayLogic", "connection");
    connected = static_cast<bool>(connect(&m_streamerController, &StreamerController::prepareNextMedia, this,
                                          &StreamerPlayLogic::on_streamerController_prepareNextMedia));
    zuvoAssert(connected, "StreamerPlayLogic", "connection");
    connected = static_cast<bool>(connect(&m_streamerController, &StreamerController::timeChanged, this,
                                          &StreamerPlayLogic::on_streamerController_timeChanged));
    zuvoAssert(connected, "StreamerPlayLogic", "connection");
    connected =
        static_cast<bool>(connect(&m_streamerController, QOverload<int>::of(&StreamerController::buffering),
                                  this, &StreamerPlayLogic::on_streamerController_buffering));
    zuvoAssert(connected, "StreamerPlayLogic", "connection");

    m_errorReportTimer = new QTimer(this);
    // Tests find the timer by this name to shorten its interval.
    m_errorReportTimer->setObjectName(QStringLiteral("errorReportTimer"));
    m_errorReportTimer->setInterval(ErrorReportIntervalMs);
    m_errorReportTimer->setSingleShot(true);
    connect(m_errorReportTimer, &QTimer::timeout, this, &StreamerPlayLogic::on_errorReportTimer_timeout);
}

StreamerPlayLogic::~StreamerPlayLogic() {
    dbglog_scopedFunction(logger);
    if (m_streamerController.state() != StreamerController::State::stopped) {
        LOG4CPLUS_WARN(logger, "Deleting streamer playlogic while not stopped");
        m_streamerController.stop();
    }
    m_streamerController.disable();
}

const ZuvoRoles& StreamerPlayLogic::currentTrackRoles() const {
    dbglog_scopedFunction(logger);
    return m_currentTrackRoles;
}

const ZuvoRoles& StreamerPlayLogic::nextTrackRoles() const {
    dbglog_scopedFunction(logger);
    return m_nextTrackRoles;
}

void StreamerPlayLogic::play(const CMSetDataRequest& request) {
    const ZuvoPlayLogicPlayArgs args(request.data().toHash());
    dbglog_scopedFunctionArgs(logger, "args: " << args);

    const ZuvoRoles mediaRoles = updateStateChangePath(args.mediaRoles());
    const ZuvoRoles trackRoles = updateStateChangePath(args.trackRoles());

    m_continueAllowed = true;
    clearStopFlags();

    // Nothing of the previous playback survives a new play.
    ZuvoPlayLogicData data{QVariantHash()};
    data.setPlayId(args.id());
    data.setState(ZuvoPlayLogicState::Enum(1));
    data.setMediaRoles(mediaRoles);
    data.setMatchingMediaRoles(mediaRoles.mediaData().metaData().matchingMediaRoles());
    data.setTrackRoles(trackRoles);
    data.setError(QString());
    setData(data);

    m_streamerController.enable();

    request.reply().addWatcher(this, [this](const CMVoidReply& reply) { on_playInternalFinished(reply); });
    playInternal(request, args);
}

void StreamerPlayLogic::playInternal(const CMSetDataRequest& request, const ZuvoPlayLogicPlayArgs& args) {
    dbglog_scopedFunction(logger);
    sendPlayCommand(args.trackRoles(), QVariantHash());
    // The client learns about the media's fate from the published data only.
    request.reply().setValue(QVariant());
}

void StreamerPlayLogic::on_playInternalFinished(const CMVoidReply& reply) {
    dbglog_scopedFunction(logger);
    const CMError error = reply.error();
    if (!error.name().isEmpty())
        LOG4CPLUS_TRACE(logger, error.message());
}

ZuvoRoles StreamerPlayLogic::updateStateChangePath(ZuvoRoles roles) {
    dbglog_scopedFunction(logger);
    ZuvoMediaData mediaData = roles.mediaData();
    ZuvoMetaData metaData = mediaData.metaData();
    if (!metaData.contentStateChangePath().isEmpty() && metaData.playbackStateChangePath().isEmpty()) {
        metaData.setPlaybackStateChangePath(metaData.contentStateChangePath());
        mediaData.setMetaData(metaData);
        roles.setMediaData(mediaData);
    }
    return roles;
}

CMReply<QVariant> StreamerPlayLogic::sendPlayCommand(const ZuvoRoles& roles, const QVariantHash& attributes) {
    dbglog_scopedFunction(logger);
    LOG4CPLUS_INFO(logger, "Send play command, roles: " << roles);
    return preplayAndPlay(playRequest(roles, attributes, PlayCommand));
}

StreamerPlayLogic::PlayRequest
StreamerPlayLogic::playRequest(const ZuvoRoles& roles, const QVariantHash& attributes, Command command) {
    ZuvoStreamerPlayArgs args;
    args.setRoles(updateStateChangePath(roles));
    args.setAttributes(QVariant(attributes));
    return PlayRequest(args, command);
}

CMReply<QVariant> StreamerPlayLogic::preplayAndPlay(const PlayRequest& request) {
    dbglog_scopedFunction(logger);
    const bool wasEmpty = m_playRequests.isEmpty();
    m_playRequests.append(request);
    // A non-empty queue means the head still waits for its pre-play answer.
    if (wasEmpty)
        processNextPlayRequest();
    return request.reply;
}

void StreamerPlayLogic::processNextPlayRequest() {
    dbglog_scopedFunction(logger);
    while (!m_playRequests.isEmpty()) {
        const PlayRequest head = m_playRequests.first();
        if (!head.args.roles().mediaData().metaData().prePlayPath().isEmpty()) {
            prePlay(head);
            return;
        }
        realPlay(head);
        // realPlay may have cancelled the queue (a synchronous stop); only
        // remove the head if it is still the one just played.
        if (!m_playRequests.isEmpty() && m_playRequests.first().reply == head.reply)
            m_playRequests.removeFirst();
    }
}

void StreamerPlayLogic::prePlay(const PlayRequest& request) {
    dbglog_scopedFunction(logger);
    ZuvoRoles roles = request.args.roles();
    ZuvoMediaData mediaData = roles.mediaData();
    ZuvoMetaData metaData = mediaData.metaData();
    if (!metaData.isSetPrePlayTimeOffset()) {
        metaData.setPrePlayTimeOffset(0);
        mediaData.setMetaData(metaData);
        roles.setMediaData(mediaData);
    }

    const CMReply<QVariant> reply;
    CMRoot()->setData(
        CMSetDataRequest(metaData.prePlayPath(), ZuvoRoles::PrePlay(), roles.__variant(), reply));
    // Only the newest pre-play answer is wanted.
    m_prePlayReplies.clear();
    m_prePlayReplies.insert(reply);

    reply.onFinished(this, [this, request](const CMReply<QVariant>& finished) {
        if (!m_prePlayReplies.remove(finished) || request.reply.isFinished())
            return;
        handlePrePlayFinished(finished, request);
    });
}

void StreamerPlayLogic::handlePrePlayFinished(const CMReply<QVariant>& reply, PlayRequest request) {
    dbglog_scopedFunction(logger);
    const CMError error = reply.error();
    if (!error.name().isEmpty()) {
        LOG4CPLUS_ERROR(logger, "prePlay request failed: " << error);
        const ZuvoRoles next = nextActiveResource(request.args.roles());
        if (!next.isEmpty()) {
            request.args.setRoles(next);
            prePlay(request);
            return;
        }
        // The request stays at the head until the queue is cancelled.
        reportError(error);
        return;
    }

    const ZuvoRoles roles(reply.value().toHash());
    const ZuvoMetaData metaData = roles.mediaData().metaData();
    zuvoAssert(metaData.isSetPrePlayTimeOffset(), "StreamerPlayLogic", "metaData.isSetPrePlayTimeOffset()");
    request.args.setRoles(roles);
    realPlay(request);
    zuvoAssert(!m_playRequests.isEmpty(), "StreamerPlayLogic", "!playRequests.isEmpty()");
    m_playRequests.removeFirst();
    processNextPlayRequest();
}

void StreamerPlayLogic::realPlay(const PlayRequest& request) {
    dbglog_scopedFunction(logger);
    clearStopFlags();

    CMReply<int> streamerReply(nullptr);
    if (request.command == PlayCommand) {
        const QVariantHash attributes = request.args.attributes().toHash();
        const bool startPaused = attributes.value(ZuvoStreamerAttributesStartPaused(), false).toBool();
        streamerReply = m_streamerController.play(request.args.roles(), startPaused);
    } else {
        streamerReply = m_streamerController.playNext(request.args.roles());
    }

    const CMReply<QVariant> requestReply = request.reply;
    streamerReply.onFinished(this, [requestReply](const CMReply<int>& finished) {
        const CMError error = finished.error();
        if (!error.name().isEmpty())
            requestReply.setError(error);
        else
            requestReply.setValue(QVariant(finished.value()));
    });
}

void StreamerPlayLogic::cancelAllPlayRequests() {
    dbglog_scopedFunction(logger);
    const QList<PlayRequest> cancelled = std::exchange(m_playRequests, {});
    for (const PlayRequest& request : cancelled)
        request.reply.setError(CMError(CMError::DefaultName(), ZUVO_TR("Play request cancelled")));
}
