#include "gsttestmedia.h"

#include <QDataStream>
#include <QtEndian>
#include <gst/gst.h>

namespace gsttest {

QVector<qint16> tone(int frames, int seed) {
    QVector<qint16> samples(frames * Channels);
    for (int i = 0; i < samples.size(); ++i)
        samples[i] = qint16(((i / Channels * (97 + seed * 61) + i % Channels * 5000) % 20000) - 10000 + seed);
    return samples;
}

QByteArray wavFile(const QVector<qint16>& samples) {
    const quint32 dataBytes = quint32(samples.size() * 2);
    QByteArray out;
    QDataStream stream(&out, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    stream.writeRawData("RIFF", 4);
    stream << quint32(36 + dataBytes);
    stream.writeRawData("WAVEfmt ", 8);
    stream << quint32(16) << quint16(1) << quint16(Channels) << quint32(Rate) << quint32(Rate * Channels * 2)
           << quint16(Channels * 2) << quint16(16);
    stream.writeRawData("data", 4);
    stream << dataBytes;
    for (qint16 sample : samples)
        stream << sample;
    return out;
}

QVector<qint16> wavSamples(const QByteArray& file) {
    // The chunks after the RIFF header, up to the "data" one.
    for (int at = 12; file.startsWith("RIFF") && file.mid(8, 4) == "WAVE" && at + 8 <= file.size();) {
        const quint32 size = qFromLittleEndian<quint32>(file.constData() + at + 4);
        if (file.mid(at, 4) == "data") {
            QVector<qint16> samples(int(qMin<qint64>(size, file.size() - at - 8) / 2));
            qFromLittleEndian<qint16>(file.constData() + at + 8, samples.size(), samples.data());
            return samples;
        }
        at += 8 + int(size + (size & 1));
    }
    return {};
}

QString runPipeline(const QString& description) {
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.toUtf8().constData(), &error);
    QString result = error ? QString::fromUtf8(error->message) : QStringLiteral("parse failed");
    g_clear_error(&error); // a recoverable one leaves a pipeline that may run all the same
    if (!pipeline)
        return result;
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message =
        gst_bus_timed_pop_filtered(bus, 30 * GST_SECOND, GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    result = message ? QString() : QStringLiteral("timeout");
    if (message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        gst_message_parse_error(message, &error, nullptr);
        result = QString::fromUtf8(error->message);
        g_clear_error(&error);
    }
    gst_clear_message(&message);
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
