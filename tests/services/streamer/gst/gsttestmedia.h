#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

// Audio made at test time for the GStreamer streamer's tests and benchmarks.
namespace gsttest {

constexpr int Rate = 44100;
constexpr int Channels = 2;

// frames of 16-bit stereo PCM at Rate: a sawtooth whose step depends on
// seed (never silent, different for every seed).
QVector<qint16> tone(int frames, int seed);
// A canonical 44-byte-header WAV file of samples.
QByteArray wavFile(const QVector<qint16>& samples);
// The samples of a 16-bit PCM WAV file (empty when it is none).
QVector<qint16> wavSamples(const QByteArray& file);

// Runs a GStreamer pipeline description (gst_parse_launch) to its end, at
// most 30 s; returns an empty string or what went wrong.
QString runPipeline(const QString& description);
// Encodes the WAV file wavPath with encoder (e.g. "flacenc", "vorbisenc !
// oggmux") into outPath.
QString encode(const QString& wavPath, const QString& encoder, const QString& outPath);

} // namespace gsttest
