#include "gsttestmedia.h"

#include <QDataStream>
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
    if (!file.startsWith("RIFF") || file.mid(8, 4) != "WAVE")
        return {};
    QDataStream stream(file);
    stream.setByteOrder(QDataStream::LittleEndian);
    stream.skipRawData(12);
    char id[4];
    quint32 size = 0;
    while (stream.readRawData(id, 4) == 4 && !(stream >> size).atEnd()) {
        if (QByteArray(id, 4) != "data") {
            stream.skipRawData(int(size + (size & 1)));
            continue;
        }
        QVector<qint16> samples(int(qMin<qint64>(size, file.size() - stream.device()->pos()) / 2));
        for (qint16& sample : samples)
            stream >> sample;
        return samples;
    }
    return {};
}

QString runPipeline(const QString& description) {
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.toUtf8().constData(), &error);
    QString result = error ? QString::fromUtf8(error->message) : QString();
    g_clear_error(&error);
    if (!pipeline)
        return result.isEmpty() ? QStringLiteral("parse failed") : result;
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message =
        gst_bus_timed_pop_filtered(bus, 30 * GST_SECOND, GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    result = message ? QString() : QStringLiteral("timeout");
    if (message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        gst_message_parse_error(message, &error, nullptr);
        result = QString::fromUtf8(error ? error->message : "error");
        g_clear_error(&error);
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
