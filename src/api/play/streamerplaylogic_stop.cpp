#include "streamerplaylogic.h"

#include <QTimer>

#include "dbglog.h"
#include "model/cmnodes.h"
#include "zuvoassert.h"

// Stop flags, stopping, the streamer's stop errors and the end of playback.

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("StreamerPlayLogic"));

namespace {

QString flagsText(const QSet<StreamerPlayLogic::StopFlag>& flags) {
    QStringList names;
    for (const StreamerPlayLogic::StopFlag flag : flags)
        names.append(QString::number(int(flag)));
    names.sort();
    return QLatin1Char('[') + names.join(QLatin1String(", ")) + QLatin1Char(']');
}

} // namespace

void StreamerPlayLogic::setStopFlag(StopFlag flag) {
    dbglog_scopedFunction(logger);
    zuvoAssert(flag < NumberOfFlags, "StreamerPlayLogic", "flag < NumberOfFlags");
    LOG4CPLUS_TRACE(logger, "Set flag id: " << int(flag) << " current flags: " << flagsText(m_stopFlags));
    m_stopFlags.insert(flag);
    if (m_stopFlags.size() >= 2) {
        clearStopFlags();
        playbackEnded();
    }
}

void StreamerPlayLogic::clearStopFlag(StopFlag flag) {
    dbglog_scopedFunction(logger);
    zuvoAssert(flag < NumberOfFlags, "StreamerPlayLogic", "flag < NumberOfFlags");
    LOG4CPLUS_TRACE(logger, "Clear flag id: " << int(flag) << " current flags: " << flagsText(m_stopFlags));
    m_stopFlags.remove(flag);
}

void StreamerPlayLogic::clearStopFlags() {
    dbglog_scopedFunction(logger);
    m_stopFlags.clear();
}

void StreamerPlayLogic::stop(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    m_continueAllowed = false;
    stopInternal(request);
}

void StreamerPlayLogic::stopInternal(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    stopPlayLogic();
    // The client's stop succeeds without waiting for the streamer.
    request.reply().setValue(QVariant());
}

void StreamerPlayLogic::stopPlayLogic() {
    dbglog_scopedFunction(logger);
    m_continueAllowed = false;
    const CMReply<bool> reply = sendStopCommand();
    reply.onFinished(this, [this](const CMReply<bool>& finished) {
        const CMError error = finished.error();
        if (!error.name().isEmpty()) {
            LOG4CPLUS_ERROR(logger, "Failed to stop streamer: " << error);
            clearPlayback(error);
        } else if (finished.value()) {
            // The streamer's stopped state arrives as data and ends playback.
            LOG4CPLUS_DEBUG(logger, "Playback is active, wait for stopped notification");
        } else {
            LOG4CPLUS_DEBUG(logger, "Playback is already stopped");
            clearPlayback(CMError());
        }
    });
}

CMReply<bool> StreamerPlayLogic::sendStopCommand() {
    dbglog_scopedFunction(logger);
    cancelAllPlayRequests();
    return m_streamerController.stop();
}

void StreamerPlayLogic::playbackStopped(const CMError& error) {
    dbglog_scopedFunction(logger);
    if (error.message().isEmpty())
        setStopFlag(StreamerStopped);
    else
        reportError(error);
}

void StreamerPlayLogic::playbackEnded() {
    dbglog_scopedFunction(logger);
    disconnectNotifications();
    m_errorReportTimer->stop();
    cancelAllPlayRequests();

    // Roles, play id and error stay as they were.
    ZuvoPlayLogicData data = this->data();
    data.setKeepActive(false);
    data.setState(ZuvoPlayLogicState::stopped);
    data.setStatus(ZuvoPlayLogicStatus());
    data.setKeepActive(false);
    setData(data);

    setPlayTime(0);
    setPlayByte(0);
    setBufferLevel(-1.0);
    m_lastReportedState = ZuvoPlayLogicState::stopped;
}

void StreamerPlayLogic::handleStreamerStoppedState(const ZuvoStreamerData& data) {
    dbglog_scopedFunction(logger);
    const ZuvoError streamerError = data.error();
    const int code = streamerError.code();
    LOG4CPLUS_TRACE(logger, "error: " << streamerError.name() << " code: " << code
                                      << " message: " << streamerError.message());

    switch (code) {
    case -14:
    case -15:
    case -22:
        LOG4CPLUS_TRACE(logger,
                        "Streamer can not play current url: gstCoreMissingPlugin, gstStreamTypeNotFound "
                        "or gstWrongType.");
        if (m_currentTrackRoles.mediaData().resources().isEmpty()) {
            LOG4CPLUS_ERROR(logger, "Resource not found in trackroles, returning.");
            clearPlayback(CMError(ZuvoPlaylogicErrorName::ZuvoPlaylogicFailedParseUrl(),
                                  ZUVO_TR("Can not parse url: resource not found!")));
            return;
        }
        // The URL may name a playlist: ask the parser for its entries.
        {
            const CMReply<QVariant> reply;
            CMRoot()->invoke(ZuvoPlayerContentPlayLogicPlaylistPath(), m_currentTrackRoles, reply);
            m_prePlayReplies.insert(reply);
            reply.onFinished(this, [this](const CMReply<QVariant>& finished) {
                if (m_prePlayReplies.remove(finished))
                    on_parser_finished(finished);
            });
        }
        return;
    case -13:
        LOG4CPLUS_TRACE(logger, "End of stream reached!");
        clearPlayback(CMError());
        return;
    case -16:
        LOG4CPLUS_WARN(logger, "Could not open stream!");
        clearPlayback(CMError(ZuvoPlaylogicErrorName::ZuvoPlaylogicCouldNotOpenStream(),
                              ZUVO_TR("Could not open stream!")));
        return;
    case -17:
        LOG4CPLUS_WARN(logger, "Unauthorized access");
        clearPlayback(CMError(ZuvoPlaylogicErrorName::ZuvoPlaylogicNotAuthorized(),
                              ZUVO_TR("Access to this stream is not authorized by the content provider")));
        return;
    case -18:
        LOG4CPLUS_TRACE(logger, "Couldn't read source!");
        clearPlayback(
            CMError(ZuvoPlaylogicErrorName::ZuvoPlaylogicCouldNotRead(), ZUVO_TR("Could not read source!")));
        return;
    case -19:
        LOG4CPLUS_TRACE(logger, "Couldn't find source");
        if (m_currentTrackRoles.mediaData().metaData().serviceID() == ZuvoService_AirableRadios_Id())
            showStationUnavailableNotice();
        clearPlayback(
            CMError(ZuvoPlaylogicErrorName::ZuvoPlaylogicCouldNotFind(), ZUVO_TR("Could not find source!")));
        return;
    case -20:
        LOG4CPLUS_TRACE(logger, "The stream is encrypted and decryption is not supported.");
        clearPlayback(CMError(ZuvoPlaylogicErrorName::ZuvoPlaylogicStreamDecryptionIsNotSupported(),
                              ZUVO_TR("The stream is encrypted and decryption is not supported.")));
        return;
    case -21:
        LOG4CPLUS_TRACE(
            logger, "The stream is encrypted and can't be decrypted because no suitable key is available.");
        clearPlayback(CMError(
            ZuvoPlaylogicErrorName::ZuvoPlaylogicStreamDecryptionNoKey(),
            ZUVO_TR("The stream is encrypted and can't be decrypted because no suitable key is available.")));
        return;
    default:
        break;
    }

    if (streamerError.name() == ZuvoStreamerErrorCrashed()) {
        LOG4CPLUS_TRACE(logger, "The streamer crashed");
        clearPlayback(
            CMError(ZuvoPlaylogicErrorName::ZuvoPlaylogicStreamCrashed(), ZUVO_TR("The streamer crashed")));
    } else if (streamerError.name().isEmpty() && !m_continueAllowed) {
        LOG4CPLUS_TRACE(logger, "Stream stopped due the user request");
        clearPlayback(CMError());
    } else {
        LOG4CPLUS_TRACE(logger, "Unknown streamer error!");
        clearPlayback(
            CMError(ZuvoPlaylogicErrorName::ZuvoPlaylogicUnknownError(), ZUVO_TR("Unknown streamer error!")));
    }
}

void StreamerPlayLogic::showStationUnavailableNotice() {
    ZuvoNotificationDisplayItem notice;
    notice.setTitle(TrString(ZUVO_TR("Failed to start")).toString());
    notice.setMessage(TrString(ZUVO_TR("Radio station is not available!")).toString());
    notice.setTimeout(3000);
    CMRoot()->invoke(ZuvoNotificationDisplayOpenPath(), ZuvoValue(notice.__hash()), CMReply<QVariant>());
}

void StreamerPlayLogic::clearPlayback(const CMError& error) {
    dbglog_scopedFunction(logger);
    const CMPath stateChangePath = m_currentTrackRoles.mediaData().metaData().playbackStateChangePath();
    if (!stateChangePath.isEmpty()) {
        ZuvoPlayLogicData record = data();
        if (!m_continueAllowed)
            record.setError(ZuvoPlaylogicErrorName::ZuvoPlaylogicUserStop());
        else if (!error.name().isEmpty())
            record.setError(error.name());
        else
            record.__remove(ZuvoPlayLogicData::Error());
        record.setState(ZuvoPlayLogicState::stopped);
        reportPlaybackState(stateChangePath, record);
        m_lastReportedState = ZuvoPlayLogicState::stopped;
    }

    if (!m_continueAllowed) {
        m_currentTrackRoles = ZuvoRoles();
        m_nextTrackRoles = ZuvoRoles();
        playbackEnded();
        return;
    }

    // Clips are never replaced by another resource or an alternate.
    const bool mayContinue =
        data().mediaRoles().audioType() != ZuvoAudioType::Enum(2) && !error.name().isEmpty();
    if (mayContinue && (tryNextResource() || handleAlternate(error)))
        return;

    m_currentTrackRoles = ZuvoRoles();
    m_nextTrackRoles = ZuvoRoles();
    playbackStopped(error);
}

void StreamerPlayLogic::disconnectNotifications() {
    dbglog_scopedFunction(logger);
    m_streamerController.disable();
}

void StreamerPlayLogic::reportPlaybackState(const CMPath& path, const ZuvoPlayLogicData& record) {
    CMRoot()->invoke(path, record, CMReply<QVariant>());
}
