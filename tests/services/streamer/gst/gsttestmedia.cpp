#include "gsttestmedia.h"

#include <QtEndian>
#include <gst/gst.h>

namespace gsttest {

QVector<qint16> tone(int frames, int seed) {
    QVector<qint16> samples(frames * Channels);
    const int step = 97 + seed * 61;
    for (int i = 0; i < frames; ++i)
        for (int c = 0; c < Channels; ++c)
            samples[i * Channels + c] = qint16(((i * step + c * 5000) % 20000) - 10000 + seed);
    return samples;
}

QByteArray wavFile(const QVector<qint16>& samples) {
    const quint32 dataBytes = quint32(samples.size() * 2);
    QByteArray out(44, '\0');
    auto put32 = [&out](int at, quint32 v) {
        qToLittleEndian<quint32>(v, reinterpret_cast<uchar*>(out.data() + at));
    };
    auto put16 = [&out](int at, quint16 v) {
        qToLittleEndian<quint16>(v, reinterpret_cast<uchar*>(out.data() + at));
    };
    out.replace(0, 4, "RIFF");
    put32(4, 36 + dataBytes);
    out.replace(8, 8, "WAVEfmt ");
    put32(16, 16);
    put16(20, 1);
    put16(22, Channels);
    put32(24, Rate);
    put32(28, Rate * Channels * 2);
    put16(32, Channels * 2);
    put16(34, 16);
    out.replace(36, 4, "data");
    put32(40, dataBytes);
    for (qint16 s : samples) {
        char bytes[2];
        qToLittleEndian<qint16>(s, reinterpret_cast<uchar*>(bytes));
        out.append(bytes, 2);
    }
    return out;
}

QVector<qint16> wavSamples(const QByteArray& file) {
    if (file.size() < 12 || !file.startsWith("RIFF") || file.mid(8, 4) != "WAVE")
        return {};
    int offset = 12;
    while (offset + 8 <= file.size()) {
        const quint32 size = qFromLittleEndian<quint32>(file.constData() + offset + 4);
        if (file.mid(offset, 4) == "data") {
            const int bytes = int(qMin<qint64>(size, file.size() - offset - 8));
            QVector<qint16> samples(bytes / 2);
            for (int i = 0; i < samples.size(); ++i)
                samples[i] = qFromLittleEndian<qint16>(file.constData() + offset + 8 + 2 * i);
            return samples;
        }
        offset += 8 + int(size) + int(size & 1);
    }
    return {};
}

QString runPipeline(const QString& description) {
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.toUtf8().constData(), &error);
    if (!pipeline) {
        const QString why = QString::fromUtf8(error ? error->message : "parse failed");
        if (error)
            g_error_free(error);
        return why;
    }
    if (error)
        g_error_free(error);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message =
        gst_bus_timed_pop_filtered(bus, 30 * GST_SECOND, GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    QString result;
    if (!message) {
        result = QStringLiteral("timeout");
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        GError* failure = nullptr;
        gst_message_parse_error(message, &failure, nullptr);
        result = QString::fromUtf8(failure ? failure->message : "error");
        if (failure)
            g_error_free(failure);
    }
    if (message)
        gst_message_unref(message);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    return result;
}

QString encode(const QString& wavPath, const QString& encoder, const QString& outPath) {
    return runPipeline(
        QStringLiteral("filesrc location=\"%1\" ! wavparse ! audioconvert ! %2 ! filesink location=\"%3\"")
            .arg(wavPath, encoder, outPath));
}

} // namespace gsttest
