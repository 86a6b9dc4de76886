#include "streamerplaylogic.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <algorithm>

#include "dbglog.h"

// Control handlers: the public handler checks that the media allows the
// control, the *Internal variant carries it out.

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("StreamerPlayLogic"));

namespace {

// Monotonic instant (ms) of the last pause command, shared by every play
// logic of the process.
qint64 s_pauseInstant = 0;

qint64 monotonicNowMs() {
    QElapsedTimer clock;
    clock.start();
    return clock.msecsSinceReference();
}

} // namespace

qint64 StreamerPlayLogic::pauseInstant() {
    return s_pauseInstant;
}

void StreamerPlayLogic::answer(const CMSetDataRequest& request) {
    request.reply().setValue(QVariant());
}

void StreamerPlayLogic::answerNotSupported(const CMSetDataRequest& request, const TrString& message) {
    request.reply().setError(CMError(message));
}

bool StreamerPlayLogic::isControl(const QString& name) {
    dbglog_scopedFunction(logger);
    const bool set = data().controls().__value(name).toBool();
    if (set)
        LOG4CPLUS_TRACE(logger, "Control is set: " << name);
    else
        LOG4CPLUS_TRACE(logger, "Control is not set: " << name);
    return set;
}

void StreamerPlayLogic::pause(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    if (!isControl(ZuvoMetaDataControl::Pause())) {
        LOG4CPLUS_DEBUG(logger, "Pause control is not enabled");
        answer(request);
        return;
    }
    pauseInternal(request);
}

void StreamerPlayLogic::previous(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    if (!isControl(ZuvoMetaDataControl::Previous())) {
        LOG4CPLUS_DEBUG(logger, "Previous control is not enabled");
        answer(request);
        return;
    }
    previousInternal(request);
}

void StreamerPlayLogic::next(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    if (!isControl(ZuvoMetaDataControl::Next_())) {
        LOG4CPLUS_DEBUG(logger, "Next control is not enabled");
        answer(request);
        return;
    }
    nextInternal(request);
}

void StreamerPlayLogic::seekTime(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    const QVariantHash args = request.data().toHash();
    LOG4CPLUS_TRACE(logger, "args: " << QVariant(args));
    if (!isControl(ZuvoMetaDataControl::SeekTime())) {
        LOG4CPLUS_DEBUG(logger, "SeekTime control is not enabled");
        answer(request);
        return;
    }
    if (!data().status().timeSeek()) {
        LOG4CPLUS_DEBUG(logger, "Stream is not seekable by time position");
        answer(request);
        return;
    }
    seekTimeInternal(request, args);
}

void StreamerPlayLogic::seekBytes(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    const QVariantHash args = request.data().toHash();
    LOG4CPLUS_TRACE(logger, "args: " << QVariant(args));
    if (!isControl(ZuvoMetaDataControl::SeekBytes())) {
        // The time-seek text is shared on purpose: clients match on it.
        LOG4CPLUS_DEBUG(logger, "SeekTime control is not enabled");
        answer(request);
        return;
    }
    if (!data().status().byteSeek()) {
        LOG4CPLUS_DEBUG(logger, "Stream is not seekable by bytes position");
        answer(request);
        return;
    }
    seekBytesInternal(request, args);
}

void StreamerPlayLogic::setCurrentTrack(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    if (!isControl(ZuvoMetaDataControl::SeekTrack())) {
        LOG4CPLUS_DEBUG(logger, "SeekTrack control is not enabled");
        answer(request);
        return;
    }
    setCurrentTrackInternal(request);
}

void StreamerPlayLogic::like(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    if (!isControl(ZuvoMetaDataControl::Like())) {
        LOG4CPLUS_DEBUG(logger, "Like control is not enabled");
        answer(request);
        return;
    }
    likeInternal(request);
}

void StreamerPlayLogic::dislike(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    if (!isControl(ZuvoMetaDataControl::Dislike())) {
        LOG4CPLUS_DEBUG(logger, "Dislike control is not enabled");
        answer(request);
        return;
    }
    dislikeInternal(request);
}

void StreamerPlayLogic::changePlayMode(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    const ZuvoPlayLogicChangePlayModeArgs args(request.data().toHash());
    if (!isPlayModeSupported(args.playMode())) {
        LOG4CPLUS_DEBUG(logger, "PlayMode is not supported");
        answer(request);
        return;
    }
    changePlayModeInternal(request);
}

void StreamerPlayLogic::nextInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    // A streamer play logic has no next item of its own.
    answer(request);
}

void StreamerPlayLogic::previousInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    answerNotSupported(request, ZUVO_TR("Operation not supported."));
}

void StreamerPlayLogic::likeInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    answerNotSupported(request, ZUVO_TR("Operation not supported."));
}

void StreamerPlayLogic::dislikeInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    answerNotSupported(request, ZUVO_TR("Operation not supported."));
}

void StreamerPlayLogic::setCurrentTrackInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    answerNotSupported(request, ZUVO_TR("Operation not supported."));
}

void StreamerPlayLogic::seekTimeInternal(const CMSetDataRequest& request, const QVariantHash& args) {
    dbglog_scopedFunction(logger);
    const ZuvoPlayLogicSeekArgs seekArgs(args);
    const qint64 target =
        seekArgs.isSetTimeRelative() ? seekTimeRelToAbs(seekArgs.timeRelative()) : seekArgs.time();
    sendSeekTimeCommand(target);
    answer(request);
}

void StreamerPlayLogic::seekBytesInternal(const CMSetDataRequest& request, const QVariantHash& args) {
    dbglog_scopedFunction(logger);
    sendSeekBytesCommand(quint64(ZuvoPlayLogicSeekArgs(args).bytes()));
    answer(request);
}

void StreamerPlayLogic::changePlayModeInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    setPlayMode(ZuvoPlayLogicChangePlayModeArgs(request.data().toHash()).playMode());
    answer(request);
}

qint64 StreamerPlayLogic::seekTimeRelToAbs(qint64 relative) {
    dbglog_scopedFunction(logger);
    // Never into the last second of the media, never before its start.
    const qint64 duration = data().status().duration();
    return std::max<qint64>(0, std::min<qint64>(playTime() + relative, duration - 1000));
}

void StreamerPlayLogic::pauseInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    const ZuvoPlayLogicData published = data();
    if (published.state() != ZuvoPlayLogicState::paused) {
        s_pauseInstant = monotonicNowMs();
        sendSetPausedCommand(true);
        answer(request);
        return;
    }

    ZuvoRoles trackRoles = published.trackRoles();
    const ZuvoResource active = trackRoles.mediaData().activeResource();
    const bool idleTooLong =
        active.isSetMaxIdleTime() && monotonicNowMs() - s_pauseInstant >= active.maxIdleTime();
    const bool expired =
        active.isSetValidUntil() && active.validUntil() <= QDateTime::currentMSecsSinceEpoch();
    if (!idleTooLong && !expired) {
        sendSetPausedCommand(false);
        answer(request);
        return;
    }

    ZuvoMediaData mediaData = trackRoles.mediaData();
    ZuvoMetaData metaData = mediaData.metaData();
    if (metaData.prePlayPath().isEmpty()) {
        LOG4CPLUS_ERROR(logger,
                        "unpaused resource should be refetched from service, but preplaypath was cleared!");
        sendSetPausedCommand(false);
        answer(request);
        return;
    }
    // The pre-play node fetches a fresh resource; the stream restarts where
    // it was paused.
    LOG4CPLUS_INFO(logger, "resource exceeded validity time, refetching resource from service");
    metaData.setPrePlayTimeOffset(playTime());
    mediaData.setMetaData(metaData);
    trackRoles.setMediaData(mediaData);
    sendPlayCommand(trackRoles, QVariantHash());
    answer(request);
}

bool StreamerPlayLogic::isPlayModeSupported(ZuvoPlayerPlayMode::Enum mode) const {
    dbglog_scopedFunction(logger);
    const ZuvoPlayLogicPlayModesSupported supported = data().controls().playMode();
    bool result = false;
    switch (int(mode)) {
    case 0:
        result = true;
        break;
    case 1:
        result = supported.shuffle();
        break;
    case 2:
        result = supported.repeatOne();
        break;
    case 3:
        result = supported.shuffleRepeatOne();
        break;
    case 4:
        result = supported.repeatAll();
        break;
    case 5:
        result = supported.shuffleRepeatAll();
        break;
    default:
        break;
    }
    if (result)
        LOG4CPLUS_DEBUG(logger, "Play mode is supported: " << ZuvoPlayerPlayMode::toString(mode));
    else
        LOG4CPLUS_INFO(logger, "Play mode is not supported: " << ZuvoPlayerPlayMode::toString(mode));
    return result;
}

void StreamerPlayLogic::sendSetPausedCommand(bool paused) {
    dbglog_scopedFunctionArgs(logger, paused);
    if (paused)
        m_streamerController.pause();
    else
        m_streamerController.resume();
}

void StreamerPlayLogic::sendSeekTimeCommand(qint64 timeMs) {
    dbglog_scopedFunctionArgs(logger, timeMs);
    m_streamerController.seekTime(timeMs);
}

void StreamerPlayLogic::sendSeekBytesCommand(quint64 bytes) {
    dbglog_scopedFunctionArgs(logger, bytes);
    m_streamerController.seekBytes(int64_t(bytes));
}
