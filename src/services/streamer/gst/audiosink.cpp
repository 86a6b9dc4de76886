#include "audiosink.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>
#include <gst/gst.h>

#include "dbglog.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("GstEngine"));

bool AudioSinkSpec::parse(const QString& text, AudioSinkSpec* result, QString* error) {
    const int colon = text.indexOf(QLatin1Char(':'));
    const QString name = colon < 0 ? text : text.left(colon);
    const QString argument = colon < 0 ? QString() : text.mid(colon + 1);
    AudioSinkSpec parsed;
    QString problem;
    if (name == QLatin1String("auto") || name == QLatin1String("null") || name == QLatin1String("pulse")) {
        parsed.m_kind = name == QLatin1String("auto")   ? Kind::Auto
                        : name == QLatin1String("null") ? Kind::Null
                                                        : Kind::Pulse;
        if (colon >= 0)
            problem = QStringLiteral("the sink \"%1\" takes no argument").arg(name);
    } else if (name == QLatin1String("wav")) {
        parsed.m_kind = Kind::Wav;
        parsed.m_argument = argument;
        if (argument.isEmpty())
            problem = QStringLiteral("wav: needs a file name (wav:FILE)");
    } else if (name == QLatin1String("alsa")) {
        parsed.m_kind = Kind::Alsa;
        parsed.m_argument = argument;
        if (colon >= 0 && argument.isEmpty())
            problem = QStringLiteral("alsa: needs a device after the colon (alsa:DEVICE)");
    } else {
        problem = QStringLiteral("unknown audio sink \"%1\"").arg(text);
    }
    if (!problem.isEmpty()) {
        if (error)
            *error = problem + QStringLiteral(" (expected auto, null, wav:FILE, alsa[:DEVICE] or pulse)");
        return false;
    }
    *result = parsed;
    return true;
}

QString AudioSinkSpec::toString() const {
    switch (m_kind) {
    case Kind::Auto:
        return QStringLiteral("auto");
    case Kind::Null:
        return QStringLiteral("null");
    case Kind::Wav:
        return QStringLiteral("wav:") + m_argument;
    case Kind::Alsa:
        return m_argument.isEmpty() ? QStringLiteral("alsa") : QStringLiteral("alsa:") + m_argument;
    case Kind::Pulse:
        return QStringLiteral("pulse");
    }
    return QString();
}

namespace {

GstElement* makeNullSink() {
    GstElement* sink = gst_element_factory_make("fakesink", "zuvo-null-sink");
    if (sink)
        g_object_set(sink, "sync", TRUE, nullptr);
    return sink;
}

// audioconvert ! audio/x-raw,format=S16LE ! wavenc ! filesink: the rate and
// the channels stay the stream's.
GstElement* makeWavSink(const QString& path) {
    GstElement* bin = gst_bin_new("zuvo-wav-sink");
    GstElement* convert = gst_element_factory_make("audioconvert", nullptr);
    GstElement* filter = gst_element_factory_make("capsfilter", nullptr);
    GstElement* encoder = gst_element_factory_make("wavenc", nullptr);
    GstElement* file = gst_element_factory_make("filesink", nullptr);
    if (!convert || !filter || !encoder || !file) {
        for (GstElement* element : {convert, filter, encoder, file})
            if (element)
                gst_object_unref(gst_object_ref_sink(element));
        gst_object_unref(gst_object_ref_sink(bin));
        return nullptr;
    }
    GstCaps* caps = gst_caps_from_string("audio/x-raw,format=S16LE");
    g_object_set(filter, "caps", caps, nullptr);
    gst_caps_unref(caps);
    g_object_set(file, "location", path.toLocal8Bit().constData(), "sync", FALSE, nullptr);
    gst_bin_add_many(GST_BIN(bin), convert, filter, encoder, file, nullptr);
    gst_element_link_many(convert, filter, encoder, file, nullptr);
    GstPad* pad = gst_element_get_static_pad(convert, "sink");
    gst_element_add_pad(bin, gst_ghost_pad_new("sink", pad));
    gst_object_unref(pad);
    return bin;
}

// Whether the machine has anything autoaudiosink could play to: a sound
// card's playback device or a sound server's socket. Without either its
// probe only fills stderr with the sound libraries' own complaints.
bool audioOutputPresent() {
    if (!QDir(QStringLiteral("/dev/snd")).entryList({QStringLiteral("pcmC*p")}, QDir::System).isEmpty())
        return true;
    if (qEnvironmentVariableIsSet("PULSE_SERVER"))
        return true;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !runtime.isEmpty() && (QFileInfo::exists(runtime + QStringLiteral("/pulse/native")) ||
                                  QFileInfo::exists(runtime + QStringLiteral("/pipewire-0")));
}

// Whether autoaudiosink reaches a real device: it must get to READY, and not
// with a fake sink inside (its last resort).
bool autoSinkWorks(GstElement* sink, QString* why) {
    if (gst_element_set_state(sink, GST_STATE_READY) == GST_STATE_CHANGE_FAILURE) {
        *why = QStringLiteral("it cannot open any audio device");
        gst_element_set_state(sink, GST_STATE_NULL);
        return false;
    }
    bool fake = false;
    GstIterator* children = gst_bin_iterate_elements(GST_BIN(sink));
    GValue item = G_VALUE_INIT;
    while (gst_iterator_next(children, &item) == GST_ITERATOR_OK) {
        GstElementFactory* factory = gst_element_get_factory(GST_ELEMENT(g_value_get_object(&item)));
        if (factory && g_strcmp0(GST_OBJECT_NAME(factory), "fakesink") == 0)
            fake = true;
        g_value_reset(&item);
    }
    g_value_unset(&item);
    gst_iterator_free(children);
    gst_element_set_state(sink, GST_STATE_NULL);
    if (fake)
        *why = QStringLiteral("no audio device answered");
    return !fake;
}

} // namespace

GstElement* AudioSinkSpec::createElement(bool* fellBack) const {
    if (fellBack)
        *fellBack = false;
    switch (m_kind) {
    case Kind::Null:
        return makeNullSink();
    case Kind::Wav:
        return makeWavSink(m_argument);
    case Kind::Alsa: {
        GstElement* sink = gst_element_factory_make("alsasink", "zuvo-alsa-sink");
        if (sink && !m_argument.isEmpty())
            g_object_set(sink, "device", m_argument.toLocal8Bit().constData(), nullptr);
        return sink;
    }
    case Kind::Pulse:
        return gst_element_factory_make("pulsesink", "zuvo-pulse-sink");
    case Kind::Auto:
        break;
    }
    const bool present = audioOutputPresent();
    GstElement* sink = present ? gst_element_factory_make("autoaudiosink", "zuvo-auto-sink") : nullptr;
    QString why = present ? QStringLiteral("autoaudiosink is not installed")
                          : QStringLiteral("no sound card (/dev/snd) and no sound server");
    if (sink) {
        gst_object_ref_sink(sink);
        if (autoSinkWorks(sink, &why))
            return sink; // now a full reference: playbin takes it as such
        gst_object_unref(sink);
    }
    LOG4CPLUS_WARN(logger, "No audio output: " << why << "; playing into a null sink in real time instead");
    if (fellBack)
        *fellBack = true;
    return makeNullSink();
}

bool completeWavHeader(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    const qint64 size = file.size();
    const QByteArray head = file.read(12);
    if (head.size() < 12 || !head.startsWith("RIFF") || head.mid(8, 4) != "WAVE")
        return false;
    // Walk the chunks to "fmt " (block alignment) and "data".
    qint64 offset = 12;
    quint16 blockAlign = 1;
    while (offset + 8 <= size) {
        file.seek(offset);
        const QByteArray chunk = file.read(8);
        const quint32 chunkSize = qFromLittleEndian<quint32>(chunk.constData() + 4);
        if (chunk.startsWith("fmt ")) {
            const QByteArray format = file.read(16);
            if (format.size() == 16)
                blockAlign = qMax<quint16>(1, qFromLittleEndian<quint16>(format.constData() + 12));
        } else if (chunk.startsWith("data")) {
            const qint64 available = size - offset - 8;
            const qint64 whole = available - available % blockAlign;
            bool changed = false;
            if (chunkSize == 0 || chunkSize == 0xffffffffu || chunkSize > available) {
                uchar bytes[4];
                qToLittleEndian<quint32>(quint32(whole), bytes);
                file.seek(offset + 4);
                file.write(reinterpret_cast<const char*>(bytes), 4);
                changed = true;
            }
            const quint32 riffSize = qFromLittleEndian<quint32>(head.constData() + 4);
            if (changed || riffSize != quint32(size - 8)) {
                uchar bytes[4];
                qToLittleEndian<quint32>(quint32(size - 8), bytes);
                file.seek(4);
                file.write(reinterpret_cast<const char*>(bytes), 4);
            }
            return true;
        }
        offset += 8 + chunkSize + (chunkSize & 1);
    }
    return false;
}
