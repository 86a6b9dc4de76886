// GstEngine: the pipeline itself (building, state changes, queries).
#include <gst/gst.h>

#include "dbglog.h"
#include "gstengine.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("GstEngine"));

namespace {
// playbin's GstPlayFlags: audio and video (a video stream goes to a fake
// sink; see the class comment).
constexpr guint PlayFlagVideo = 1u << 0;
constexpr guint PlayFlagAudio = 1u << 1;
} // namespace

void GstEngine::buildPipeline() {
    m_playbin = gst_element_factory_make("playbin", "zuvo-playbin");
    if (!m_playbin) {
        LOG4CPLUS_ERROR(logger, "GStreamer has no playbin (gstreamer1.0-plugins-base missing?)");
        return;
    }
    gst_object_ref_sink(m_playbin);
    bool fellBack = false;
    GstElement* audioSink = m_sink.createElement(&fellBack);
    if (fellBack)
        m_sink = AudioSinkSpec(AudioSinkSpec::Kind::Null);
    if (!audioSink) {
        LOG4CPLUS_ERROR(logger,
                        "Cannot create the audio sink " << m_sink.toString() << ": playing into a null sink");
        m_sink = AudioSinkSpec(AudioSinkSpec::Kind::Null);
        audioSink = m_sink.createElement();
    }
    m_videoSink = gst_element_factory_make("fakesink", "zuvo-video-sink");
    g_object_set(m_videoSink, "sync", gboolean(m_sink.isRealTime()), nullptr);
    GstElement* textSink = gst_element_factory_make("fakesink", "zuvo-text-sink");
    g_object_set(textSink, "sync", FALSE, "async", FALSE, nullptr);
    // createElement gives a full reference for auto (probed), else a floating one.
    const bool ownReference = audioSink && !g_object_is_floating(audioSink);
    g_object_set(m_playbin, "flags", PlayFlagAudio | PlayFlagVideo, "audio-sink", audioSink, "video-sink",
                 m_videoSink, "text-sink", textSink, nullptr);
    if (ownReference)
        gst_object_unref(audioSink);
    g_signal_connect(m_playbin, "about-to-finish", G_CALLBACK(&GstEngine::onAboutToFinish), this);
    GstBus* bus = gst_element_get_bus(m_playbin);
    gst_bus_set_sync_handler(bus, reinterpret_cast<GstBusSyncHandler>(&GstEngine::onBusSync), this, nullptr);
    gst_object_unref(bus);
}

void GstEngine::destroyPipeline() {
    if (!m_playbin)
        return;
    m_handoff.release();
    gst_element_set_state(m_playbin, GST_STATE_NULL);
    ++m_generation;
    GstBus* bus = gst_element_get_bus(m_playbin);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
    g_signal_handlers_disconnect_by_data(m_playbin, this);
    gst_object_unref(m_playbin);
    m_playbin = nullptr;
    m_videoSink = nullptr;
    finishWavFile();
}

bool GstEngine::setPipelineState(int state) {
    return gst_element_set_state(m_playbin, GstState(state)) != GST_STATE_CHANGE_FAILURE;
}

void GstEngine::applyTargetState() {
    const bool play = m_track.prerolled && !m_track.buffering && !m_paused;
    if (!setPipelineState(play ? GST_STATE_PLAYING : GST_STATE_PAUSED))
        LOG4CPLUS_WARN(logger, "The pipeline did not go to " << (play ? "PLAYING" : "PAUSED"));
}

bool GstEngine::haltPipeline() {
    // A streaming thread waiting in about-to-finish would hold the state
    // change below: let it go first.
    m_handoff.release();
    // A play that failed, or whose successor did, can leave playbin's
    // source group of the failure behind, and the next play on READY would
    // inherit its errors (seen now and then with a failed gapless
    // successor): such a pipeline goes down to NULL, which drops every
    // source group. The sink is opened again by the next play.
    const bool failed = !m_errors.isEmpty() || m_successorFailed || m_playingOutAlone;
    m_errorTimer.stop();
    m_errors.clear();
    m_successorFailed = false;
    m_playingOutAlone = false;
    m_successorFailure = GstStreamerError();
    m_pollTimer.stop();
    const bool wasRunning = m_running;
    m_running = false;
    if (!m_playbin) {
        buildPipeline();
        if (!m_playbin) {
            crash(QStringLiteral("no playbin"));
            return false;
        }
    }
    const bool halted = setPipelineState(failed ? GST_STATE_NULL : GST_STATE_READY);
    ++m_generation;
    if (!halted) {
        crash(QStringLiteral("the pipeline could not be brought to READY"));
        return false;
    }
    if (wasRunning)
        finishWavFile();
    return true;
}

void GstEngine::crash(const QString& detail) {
    LOG4CPLUS_ERROR(logger, "Pipeline lost: " << detail << "; building a new one");
    m_running = false;
    destroyPipeline();
    buildPipeline();
    // Signals never come from inside a call of the service.
    const quint64 generation = m_generation;
    QMetaObject::invokeMethod(
        this,
        [this, generation, detail] {
            if (generation == m_generation)
                Q_EMIT crashed(detail);
        },
        Qt::QueuedConnection);
}

void GstEngine::finishWavFile() {
    if (m_sink.kind() == AudioSinkSpec::Kind::Wav && !completeWavHeader(m_sink.argument()))
        LOG4CPLUS_DEBUG(logger, "No WAV header to complete in " << m_sink.argument());
}

void GstEngine::poll() {
    if (!m_running || !m_playbin)
        return;
    const qint64 oldPosition = m_positionMs;
    const qint64 oldDuration = m_durationMs;
    const bool oldSeekable = m_timeSeekable;
    const bool oldNearEnd = nearEnd();
    gint64 value = 0;
    if (!m_seeking && m_track.prerolled && gst_element_query_position(m_playbin, GST_FORMAT_TIME, &value) &&
        value >= 0) {
        m_positionMs = value / GST_MSECOND;
        if (m_positionMs > 0)
            m_track.dataSeen = true;
    }
    if (m_durationMs <= 0 && gst_element_query_duration(m_playbin, GST_FORMAT_TIME, &value) && value > 0) {
        m_durationMs = value / GST_MSECOND;
        GstQuery* query = gst_query_new_seeking(GST_FORMAT_TIME);
        if (gst_element_query(m_playbin, query)) {
            gboolean seekable = FALSE;
            gst_query_parse_seeking(query, nullptr, &seekable, nullptr, nullptr);
            m_timeSeekable = seekable;
        }
        gst_query_unref(query);
    }
    updateNearEnd();
    if (oldPosition != m_positionMs || oldDuration != m_durationMs || oldSeekable != m_timeSeekable ||
        oldNearEnd != nearEnd())
        Q_EMIT updated();
    // A failed successor waits for the running track to play out: its end,
    // or the sink has nothing more (the position stands still while playing).
    if (m_successorFailed && !m_paused && !m_playingOutAlone) {
        const bool atEnd = m_durationMs > 0 && m_positionMs >= m_durationMs;
        if (atEnd) {
            finishSuccessorFailure();
        } else if (m_positionMs == m_playOutPosition) {
            // Standing still near the end: played out. Well before it: the
            // failed successor holds the pipeline.
            const bool nearItsEnd = m_durationMs <= 0 || m_positionMs >= m_durationMs - 2 * PollIntervalMs;
            if (nearItsEnd)
                finishSuccessorFailure();
            else
                playOutAlone();
        } else {
            m_playOutPosition = m_positionMs;
        }
    }
}
