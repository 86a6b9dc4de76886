#include "gst/sinkprobe.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <gst/gst.h>

namespace zuvobench {

namespace {
// Marks an instrumented sink, so that a sink added again (playsink rebuilds
// its audio chain) is instrumented once.
const char* const InstrumentedKey = "zuvo-bench-sink-probe";
} // namespace

struct GstSinkProbe::Callbacks {
    static gboolean elementAdded(GSignalInvocationHint*, guint count, const GValue* params, gpointer self) {
        if (count < 2)
            return TRUE;
        auto* probe = static_cast<GstSinkProbe*>(self);
        auto* element = GST_ELEMENT(g_value_get_object(&params[1]));
        gchar* name = gst_object_get_name(GST_OBJECT(element));
        if (name && probe->m_sinkName == name)
            probe->instrument(element);
        g_free(name);
        return TRUE; // stay installed
    }
    static GstPadProbeReturn buffer(GstPad*, GstPadProbeInfo*, gpointer self) {
        auto* probe = static_cast<GstSinkProbe*>(self);
        probe->record(probe->m_arrival);
        return GST_PAD_PROBE_OK;
    }
    static void handoff(GstElement*, GstBuffer*, GstPad*, gpointer self) {
        auto* probe = static_cast<GstSinkProbe*>(self);
        probe->record(probe->m_render);
    }
};

GstSinkProbe::GstSinkProbe(const QString& sinkName)
    : m_sinkName(sinkName.toUtf8())
    , m_dispatcher(QAbstractEventDispatcher::instance()) {
    if (m_sinkName.isEmpty())
        return;
    // The class must exist before its signal can be looked up.
    gpointer binClass = g_type_class_ref(GST_TYPE_BIN);
    m_hook = g_signal_add_emission_hook(g_signal_lookup("element-added", GST_TYPE_BIN), 0,
                                        &Callbacks::elementAdded, this, nullptr);
    g_type_class_unref(binClass);
}

GstSinkProbe::~GstSinkProbe() {
    if (m_hook)
        g_signal_remove_emission_hook(g_signal_lookup("element-added", GST_TYPE_BIN), m_hook);
}

void GstSinkProbe::attach(GstElement* sink) {
    instrument(sink);
}

void GstSinkProbe::instrument(GstElement* sink) {
    if (g_object_get_data(G_OBJECT(sink), InstrumentedKey))
        return;
    g_object_set_data(G_OBJECT(sink), InstrumentedKey, this);
    g_object_set(sink, "signal-handoffs", TRUE, nullptr);
    g_signal_connect(sink, "handoff", G_CALLBACK(&Callbacks::handoff), this);
    GstPad* pad = gst_element_get_static_pad(sink, "sink");
    gst_pad_add_probe(pad, GstPadProbeType(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
                      &Callbacks::buffer, this, nullptr);
    gst_object_unref(pad);
    ++m_sinks;
}

void GstSinkProbe::record(std::atomic<Clock::rep>& reading) {
    Clock::rep expected = 0;
    if (reading.compare_exchange_strong(expected, Clock::now().time_since_epoch().count()))
        static_cast<QAbstractEventDispatcher*>(m_dispatcher)->wakeUp();
}

void GstSinkProbe::arm() {
    m_arrival = 0;
    m_render = 0;
}

bool GstSinkProbe::waitRendered(int timeoutMs) {
    QTimer guard;
    guard.setSingleShot(true);
    guard.start(timeoutMs);
    while (m_render.load() == 0 && guard.isActive())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return m_render.load() != 0;
}

} // namespace zuvobench
