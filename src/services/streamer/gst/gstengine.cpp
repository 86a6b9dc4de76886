#include "gstengine.h"

#include <QFileInfo>
#include <QUrl>
#include <gst/gst.h>
#include <mutex>

#include "dbglog.h"
#include "streamererrors.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("GstEngine"));

GstEngine::GstEngine(const AudioSinkSpec& sink, QObject* parent)
    : StreamerEngine(parent)
    , m_sink(sink) {
    m_pollTimer.setInterval(PollIntervalMs);
    connect(&m_pollTimer, &QTimer::timeout, this, &GstEngine::poll);
    m_errorTimer.setSingleShot(true);
    m_errorTimer.setInterval(ErrorSettleMs);
    connect(&m_errorTimer, &QTimer::timeout, this, &GstEngine::reportErrors);
    ensureGstInitialised();
    buildPipeline();
}

GstEngine::~GstEngine() {
    m_handoff.release();
    destroyPipeline();
}

void GstEngine::ensureGstInitialised() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (!gst_is_initialized())
            gst_init(nullptr, nullptr);
    });
}

QString GstEngine::toUri(const QString& uri) {
    if (uri.startsWith(QLatin1Char('/')) || !uri.contains(QLatin1String("://")))
        return QUrl::fromLocalFile(QFileInfo(uri).absoluteFilePath()).toString(QUrl::FullyEncoded);
    return uri;
}

void GstEngine::play(const QString& uri, const ZuvoRoles&, bool startPaused) {
    if (!haltPipeline())
        return;
    resetTrack(toUri(uri));
    m_running = true;
    m_paused = startPaused;
    m_nextUri.clear();
    m_handedUri.clear();
    m_startedSuccessors = 0;
    m_dropHandedSuccessor = false;
    m_handoff.rearm();
    if (m_bufferSizeBytes > 0)
        g_object_set(m_playbin, "buffer-size", gint(qMin<qint64>(m_bufferSizeBytes, G_MAXINT)), nullptr);
    if (m_bufferDurationMs > 0)
        g_object_set(m_playbin, "buffer-duration", gint64(m_bufferDurationMs * GST_MSECOND), nullptr);
    g_object_set(m_playbin, "uri", m_track.uri.toUtf8().constData(), nullptr);
    LOG4CPLUS_DEBUG(logger, "Playing " << m_track.uri << (startPaused ? " (start paused)" : ""));
    const GstStateChangeReturn result = gst_element_set_state(m_playbin, GST_STATE_PAUSED);
    if (result == GST_STATE_CHANGE_NO_PREROLL || result == GST_STATE_CHANGE_SUCCESS) {
        // Nothing to preroll (a live source): no ASYNC_DONE will come.
        m_track.live = result == GST_STATE_CHANGE_NO_PREROLL;
        m_track.prerolled = true;
        applyTargetState();
    } else if (result == GST_STATE_CHANGE_FAILURE) {
        // The element that failed normally posts why; this stands in when
        // it does not.
        GstStreamerError error;
        error.rank = 0; // below every posted error
        error.code = StreamerErrorCode::CouldNotOpen;
        error.detail = QStringLiteral("the pipeline refused to start");
        m_errors.append(error);
        m_errorTimer.start();
    }
    m_pollTimer.start();
}

void GstEngine::setNext(const QString& uri, const ZuvoRoles&) {
    m_nextUri = toUri(uri);
    // Once a successor is handed over the decision for the running track is
    // spent; a new one would be taken for the successor's successor.
    if (m_handoff.handedOver() > m_startedSuccessors)
        return;
    m_handedUri = m_nextUri;
    m_dropHandedSuccessor = false;
    m_handoff.setNext(m_nextUri);
}

void GstEngine::clearNext() {
    m_nextUri.clear();
    if (m_handoff.handedOver() > m_startedSuccessors) {
        m_dropHandedSuccessor = true;
        return;
    }
    m_handoff.clearNext();
}

void GstEngine::setPaused(bool paused) {
    m_paused = paused;
    if (m_running)
        applyTargetState();
}

void GstEngine::seek(qint64 ms) {
    if (!m_running)
        return;
    const GstSeekFlags flags = GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
    if (!gst_element_seek_simple(m_playbin, GST_FORMAT_TIME, flags, ms * GST_MSECOND)) {
        LOG4CPLUS_WARN(logger, "Seek to " << ms << " ms refused by the pipeline");
        return;
    }
    m_seeking = true;
    m_positionMs = ms;
    m_aboutToFinish = false;
    updateNearEnd();
}

void GstEngine::stop() {
    if (!m_running)
        return;
    haltPipeline();
}

void GstEngine::setBufferingConfig(const QVariant& config) {
    const QVariantHash hash = config.toHash();
    bool ok = false;
    const qint64 duration = hash.value(QStringLiteral("durationMs")).toLongLong(&ok);
    m_bufferDurationMs = ok && duration > 0 ? duration : -1;
    const qint64 size = hash.value(QStringLiteral("sizeBytes")).toLongLong(&ok);
    m_bufferSizeBytes = ok && size > 0 ? size : -1;
}

ZuvoPlayLogicState::Enum GstEngine::state() const {
    if (!m_track.prerolled || m_track.buffering)
        return ZuvoPlayLogicState::loading;
    return m_paused ? ZuvoPlayLogicState::paused : ZuvoPlayLogicState::playing;
}

qint64 GstEngine::bufferedBytes() const {
    if (!m_track.reportsBuffering)
        return 0;
    const qint64 size = m_bufferSizeBytes > 0 ? m_bufferSizeBytes : DefaultBufferBytes;
    return size * m_bufferLevel / 100;
}

ZuvoPlayLogicStatus GstEngine::status() const {
    ZuvoPlayLogicStatus status;
    status.setDuration(m_track.live ? -1 : m_durationMs);
    status.setTimeSeek(!m_track.live && m_durationMs > 0 && m_timeSeekable);
    status.setByteSeek(false);
    return status;
}

void GstEngine::resetTrack(const QString& uri) {
    m_track = Track();
    m_track.uri = uri;
    m_positionMs = 0;
    m_durationMs = -1;
    m_timeSeekable = false;
    m_seeking = false;
    m_nearEnd = false;
    m_aboutToFinish = false;
    m_bufferLevel = 0;
    m_missingPlugin.clear();
}

void GstEngine::updateNearEnd() {
    m_nearEnd = m_durationMs > 0 && !m_track.live && m_durationMs - m_positionMs < NearEndMs;
}
