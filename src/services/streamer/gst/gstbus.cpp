// GstEngine: bus messages and about-to-finish, handed over to the engine's
// thread.
#include <gst/gst.h>
#include <gst/pbutils/missing-plugins.h>
#include <memory>

#include "dbglog.h"
#include "gstengine.h"
#include "streamererrors.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("GstEngine"));

int GstEngine::onBusSync(GstBus*, GstMessage* message, void* data) {
    auto* engine = static_cast<GstEngine*>(data);
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
    case GST_MESSAGE_WARNING:
    case GST_MESSAGE_EOS:
    case GST_MESSAGE_BUFFERING:
    case GST_MESSAGE_ASYNC_DONE:
    case GST_MESSAGE_STREAM_START:
    case GST_MESSAGE_DURATION_CHANGED:
    case GST_MESSAGE_CLOCK_LOST:
    case GST_MESSAGE_ELEMENT:
        break;
    default:
        // A handler that drops a message owns it.
        gst_message_unref(message);
        return GST_BUS_DROP;
    }
    // Runs on whichever thread posted: only the queued call touches the
    // engine. The message (the bus's reference, ours once dropped) lives as
    // long as the call, delivered or discarded with a destroyed engine.
    const quint64 generation = engine->m_generation;
    std::shared_ptr<GstMessage> held(message, &gst_message_unref);
    QMetaObject::invokeMethod(
        engine, [engine, held, generation] { engine->handleMessage(held.get(), generation); },
        Qt::QueuedConnection);
    return GST_BUS_DROP;
}

void GstEngine::onAboutToFinish(GstElement* playbin, void* data) {
    auto* engine = static_cast<GstEngine*>(data);
    const quint64 generation = engine->m_generation;
    engine->m_handoff.decide(
        [engine, generation](int handedOverBefore) {
            QMetaObject::invokeMethod(
                engine,
                [engine, generation, handedOverBefore] {
                    engine->onAboutToFinishReached(generation, handedOverBefore);
                },
                Qt::QueuedConnection);
        },
        [playbin](const QString& uri) { g_object_set(playbin, "uri", uri.toUtf8().constData(), nullptr); });
}

void GstEngine::handleMessage(GstMessage* message, quint64 generation) {
    if (generation != m_generation || !m_running)
        return;
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
        handleError(message);
        break;
    case GST_MESSAGE_WARNING: {
        GError* error = nullptr;
        gst_message_parse_warning(message, &error, nullptr);
        LOG4CPLUS_DEBUG(logger, "Warning from " << GST_OBJECT_NAME(GST_MESSAGE_SRC(message)) << ": "
                                                << (error ? error->message : ""));
        if (error)
            g_error_free(error);
        break;
    }
    case GST_MESSAGE_EOS:
        if (m_successorFailed) {
            finishSuccessorFailure();
            break;
        }
        // An error of the same play outranks the end it causes.
        if (!m_errors.isEmpty())
            break;
        LOG4CPLUS_DEBUG(logger, "End of stream " << m_track.uri);
        if (haltPipeline())
            Q_EMIT ended();
        break;
    case GST_MESSAGE_BUFFERING: {
        gint percent = 0;
        gst_message_parse_buffering(message, &percent);
        handleBuffering(percent);
        break;
    }
    case GST_MESSAGE_ASYNC_DONE:
        handleAsyncDone();
        break;
    case GST_MESSAGE_STREAM_START:
        handleStreamStart();
        break;
    case GST_MESSAGE_DURATION_CHANGED:
        m_durationMs = -1;
        poll();
        break;
    case GST_MESSAGE_CLOCK_LOST:
        // The standard recovery: a new clock is chosen on the way to PLAYING.
        if (m_track.prerolled && !m_track.buffering && !m_paused) {
            setPipelineState(GST_STATE_PAUSED);
            setPipelineState(GST_STATE_PLAYING);
        }
        break;
    case GST_MESSAGE_ELEMENT:
        if (gst_is_missing_plugin_message(message)) {
            gchar* description = gst_missing_plugin_message_get_description(message);
            m_missingPlugin = QString::fromUtf8(description);
            g_free(description);
        }
        break;
    default:
        break;
    }
}

void GstEngine::handleError(GstMessage* message) {
    GstElement* source = nullptr;
    g_object_get(m_playbin, "source", &source, nullptr);
    const bool fromSource = source && GST_MESSAGE_SRC(message) == GST_OBJECT(source);
    if (source)
        gst_object_unref(source);
    // After a hand-over the error is the successor's, which has delivered nothing.
    const bool successorPending = m_handoff.handedOver() > m_startedSuccessors;
    GstStreamerError error =
        GstStreamerError::fromMessage(message, fromSource, m_track.dataSeen && !successorPending);
    if (error.code == StreamerErrorCode::MissingPlugin && !m_missingPlugin.isEmpty())
        error.detail += QStringLiteral(" [missing: %1]").arg(m_missingPlugin);
    LOG4CPLUS_DEBUG(logger,
                    "Error from " << GST_OBJECT_NAME(GST_MESSAGE_SRC(message)) << ": " << error.detail);
    m_errors.append(error);
    if (!m_errorTimer.isActive())
        m_errorTimer.start();
}

void GstEngine::reportErrors() {
    if (m_handoff.handedOver() > m_startedSuccessors) {
        m_errors.append(m_successorFailure);
        m_successorFailure = GstStreamerError::strongest(m_errors);
        m_successorFailed = true;
        m_errors.clear();
        LOG4CPLUS_DEBUG(logger, "The successor " << m_handedUri << " failed (" << m_successorFailure.detail
                                                 << "); " << m_track.uri << " plays out first");
        m_playOutPosition = -1;
        return;
    }
    const GstStreamerError error = GstStreamerError::strongest(m_errors);
    const QString uri = m_track.uri;
    if (!haltPipeline())
        return;
    LOG4CPLUS_INFO(logger, "Playing " << uri << " failed with " << error.code << ": " << error.detail);
    Q_EMIT failed(error.code, error.detail);
}

void GstEngine::handleBuffering(int percent) {
    if (m_track.live)
        return;
    m_track.reportsBuffering = true;
    const bool wasBuffering = m_track.buffering;
    m_bufferLevel = percent;
    m_track.buffering = percent < 100;
    if (wasBuffering != m_track.buffering)
        applyTargetState();
    Q_EMIT updated();
}

void GstEngine::handleAsyncDone() {
    const bool first = !m_track.prerolled;
    m_track.prerolled = true;
    m_seeking = false;
    if (first) {
        // Counted only once the streams are known: a track that ends as it
        // prerolls reads all zero.
        gint audioStreams = 0;
        gint videoStreams = 0;
        gint textStreams = 0;
        g_object_get(m_playbin, "n-audio", &audioStreams, "n-video", &videoStreams, "n-text", &textStreams,
                     nullptr);
        if (audioStreams == 0 && videoStreams + textStreams > 0) {
            GstStreamerError error;
            error.rank = 4;
            error.code = StreamerErrorCode::WrongType;
            error.detail = QStringLiteral("the media has no audio stream");
            m_errors.append(error);
            reportErrors();
            return;
        }
        if (!m_track.reportsBuffering)
            m_bufferLevel = 100;
        applyTargetState();
    }
    poll();
    Q_EMIT updated();
}

void GstEngine::handleStreamStart() {
    m_track.dataSeen = true;
    // A short track can be read whole, and its successor handed over, before
    // its own stream starts: the first STREAM_START is always the track's own.
    if (!m_track.streamStarted) {
        m_track.streamStarted = true;
        return;
    }
    if (m_handoff.handedOver() > m_startedSuccessors) {
        const quint64 generation = m_generation;
        startSuccessor();
        // This message was the successor's own start (unless it was restarted).
        if (generation == m_generation)
            m_track.streamStarted = true;
    }
}

void GstEngine::onAboutToFinishReached(quint64 generation, int handedOverBefore) {
    if (generation != m_generation || !m_running)
        return;
    // A successor whose own end is near has certainly started.
    while (m_startedSuccessors < handedOverBefore && m_running)
        startSuccessor();
    if (!m_running || m_aboutToFinish)
        return;
    m_aboutToFinish = true;
    Q_EMIT updated();
}

void GstEngine::startSuccessor() {
    ++m_startedSuccessors;
    if (m_dropHandedSuccessor) {
        LOG4CPLUS_DEBUG(logger,
                        "Stopping " << m_handedUri << ": its start was cancelled after the hand-over");
        if (haltPipeline())
            Q_EMIT ended();
        return;
    }
    const QString uri = m_nextUri;
    if (uri != m_handedUri) {
        // Replaced after the hand-over: start the newer one (not gapless).
        play(uri, ZuvoRoles(), m_paused);
        Q_EMIT nextStarted();
        return;
    }
    LOG4CPLUS_DEBUG(logger, "Gapless start of " << uri);
    // Prerolling and buffering belong to the pipeline, not to the track: a
    // BUFFERING message of the successor's source may have come before its
    // start and sent the pipeline to PAUSED; forgetting that here would
    // leave it there when the buffer fills (seen as a stall at the start
    // of the successor).
    const Track pipeline = m_track;
    const int level = m_bufferLevel;
    resetTrack(uri);
    m_track.prerolled = pipeline.prerolled;
    m_track.reportsBuffering = pipeline.reportsBuffering;
    m_track.buffering = pipeline.buffering;
    m_track.dataSeen = true;
    m_bufferLevel = pipeline.reportsBuffering ? level : 100;
    m_nextUri.clear();
    m_handedUri.clear();
    m_dropHandedSuccessor = false;
    Q_EMIT nextStarted();
    poll();
}

void GstEngine::finishSuccessorFailure() {
    const GstStreamerError error = m_successorFailure;
    const bool cleared = m_dropHandedSuccessor;
    LOG4CPLUS_INFO(logger,
                   "Playing " << m_handedUri << " failed with " << error.code << ": " << error.detail);
    if (!haltPipeline())
        return;
    if (cleared) {
        Q_EMIT ended();
        return;
    }
    // A receiver of nextStarted() may play or stop at once: then the failure
    // is no longer news.
    const quint64 generation = m_generation;
    Q_EMIT nextStarted();
    if (generation == m_generation && !m_running)
        Q_EMIT failed(error.code, error.detail);
}

void GstEngine::playOutAlone() {
    const GstStreamerError failure = m_successorFailure;
    const bool cleared = m_dropHandedSuccessor;
    const QString successor = m_handedUri;
    LOG4CPLUS_DEBUG(logger,
                    "Restarting " << m_track.uri << " alone: its failed successor holds the pipeline");
    play(m_track.uri, ZuvoRoles(), m_paused);
    if (!m_running)
        return;
    m_successorFailed = true;
    m_playingOutAlone = true;
    m_successorFailure = failure;
    m_dropHandedSuccessor = cleared;
    m_handedUri = successor;
    // Nothing follows this time: its end comes as EOS, which reports the failure.
    m_handoff.clearNext();
}
