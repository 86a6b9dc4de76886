// Gap between two tracks played gaplessly by the GStreamer engine into the
// wav: sink, in samples (frames), per format. A correctness figure: each
// benchmark runs once and reports counters; its time means nothing.

#include <benchmark/benchmark.h>

#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>
#include <algorithm>
#include <cstdlib>

#include "gst/gsttestmedia.h"
#include "gstengine.h"
#include "support/eventloop.h"

namespace {

constexpr int WaitMs = 30000;
// How far from where it belongs the second track is looked for, in frames.
constexpr int SearchFrames = 4096;
// Frames compared at each candidate position.
constexpr int WindowFrames = 4096;

struct Format {
    const char* name;
    const char* encoder; // null: the WAV file itself
    const char* suffix;
};

const Format Formats[] = {
    {"wav", nullptr, "wav"},
    {"flac", "flacenc", "flac"},
    {"vorbis", "vorbisenc ! oggmux", "ogg"},
    {"opus", "audioresample ! opusenc ! oggmux", "opus"},
    {"mp3", "lamemp3enc", "mp3"},
    {"aac", "voaacenc ! aacparse ! mp4mux", "m4a"},
};

// Decoded audio: interleaved stereo 16-bit samples and their rate.
struct Decoded {
    QVector<qint16> samples;
    int rate = 0;
    int frames() const { return samples.size() / gsttest::Channels; }
};

Decoded readWav(const QString& path) {
    QFile file(path);
    Decoded decoded;
    if (!file.open(QIODevice::ReadOnly))
        return decoded;
    const QByteArray bytes = file.readAll();
    decoded.samples = gsttest::wavSamples(bytes);
    if (bytes.size() >= 28)
        decoded.rate = int(qFromLittleEndian<quint32>(bytes.constData() + 24));
    return decoded;
}

// Plays uris one after the other on a GstEngine into the WAV file out, each
// successor queued when the running track nears its end (as the play logic
// does); returns the output, empty when the playback did not end normally.
Decoded playInto(const QStringList& uris, const QString& out, QString* why) {
    GstEngine engine(AudioSinkSpec(AudioSinkSpec::Kind::Wav, out));
    int starts = 0;
    int queued = 0;
    bool ended = false;
    bool failed = false;
    QObject::connect(&engine, &StreamerEngine::nextStarted, [&] { ++starts; });
    QObject::connect(&engine, &StreamerEngine::ended, [&] { ended = true; });
    QObject::connect(&engine, &StreamerEngine::failed, [&](int code, const QString& detail) {
        failed = true;
        *why = QStringLiteral("failed with %1: %2").arg(code).arg(detail);
    });
    QObject::connect(&engine, &StreamerEngine::crashed, [&] { failed = true; });
    QObject::connect(&engine, &StreamerEngine::updated, [&] {
        if (!engine.nearEnd() || queued > starts)
            return;
        ++queued;
        if (queued < uris.size())
            engine.setNext(uris.at(queued), ZuvoRoles());
        else
            engine.clearNext();
    });
    engine.play(uris.first(), ZuvoRoles(), false);
    if (!zuvotest::waitUntil([&] { return ended || failed; }, WaitMs) || failed ||
        starts != uris.size() - 1) {
        if (why->isEmpty())
            *why = QStringLiteral("the playback did not end after %1 track starts").arg(starts + 1);
        return Decoded();
    }
    return readWav(out);
}

// Where reference (decoded alone) starts in output, searched around
// expectedFrame: the offset (frames, -SearchFrames ... SearchFrames) with the
// smallest sum of absolute differences over the reference's first
// WindowFrames.
int bestOffset(const Decoded& output, const Decoded& reference, int expectedFrame) {
    const int channels = gsttest::Channels;
    const int window = std::min(WindowFrames, reference.frames());
    qint64 best = -1;
    int bestAt = 0;
    for (int offset = -SearchFrames; offset <= SearchFrames; ++offset) {
        const int start = expectedFrame + offset;
        if (start < 0 || start + window > output.frames())
            continue;
        qint64 sum = 0;
        for (int i = 0; i < window * channels && (best < 0 || sum < best); ++i)
            sum += std::abs(output.samples[start * channels + i] - reference.samples[i]);
        if (best < 0 || sum < best) {
            best = sum;
            bestAt = offset;
        }
    }
    return bestAt;
}

// Samples of reference that differ from output when reference is laid at
// startFrame (samples beyond the output's end count as differing), and the
// largest difference.
void compare(const Decoded& output, const Decoded& reference, int startFrame, qint64* differing,
             int* largest) {
    const int channels = gsttest::Channels;
    for (int i = 0; i < reference.samples.size(); ++i) {
        const int at = startFrame * channels + i;
        if (at < 0 || at >= output.samples.size()) {
            ++*differing;
            continue;
        }
        const int diff = std::abs(output.samples[at] - reference.samples[i]);
        if (diff != 0)
            ++*differing;
        *largest = std::max(*largest, diff);
    }
}

// Two tracks (1.0 s and 1.5 s of different sawtooth tones, 44.1 kHz stereo)
// in one format. References: each track decoded alone by the same engine.
// gap_frames = output frames - the references' frames together;
// offset_frames = where the second track starts in the output minus where
// it belongs (right after the first); differing_samples_N and max_diff
// compare the output with the references laid where they were found.
// padding_frames_N = a track decoded alone minus its source length (at the
// output rate): what the codec adds or drops at a track's ends, which a
// listener hears as a gap even when gap_frames is 0.
void BM_GstGap(benchmark::State& state, const Format& format) {
    GstEngine::ensureGstInitialised();
    QTemporaryDir dir;
    const int sourceFrames[] = {gsttest::Rate, gsttest::Rate * 3 / 2};
    QStringList files;
    for (int t = 0; t < 2; ++t) {
        const QString wav = dir.filePath(QStringLiteral("source%1.wav").arg(t));
        QFile file(wav);
        if (!file.open(QIODevice::WriteOnly) ||
            file.write(gsttest::wavFile(gsttest::tone(sourceFrames[t], t + 1))) < 0) {
            state.SkipWithError("cannot write a source file");
            return;
        }
        file.close();
        if (!format.encoder) {
            files.append(wav);
            continue;
        }
        const QString encoded = dir.filePath(QStringLiteral("track%1.%2").arg(t).arg(format.suffix));
        const QString problem = gsttest::encode(wav, QString::fromLatin1(format.encoder), encoded);
        if (!problem.isEmpty()) {
            state.SkipWithError(("cannot encode: " + problem).toStdString().c_str());
            return;
        }
        files.append(encoded);
    }

    Decoded references[2];
    Decoded output;
    QString why;
    for (auto _ : state) {
        for (int t = 0; t < 2; ++t)
            references[t] = playInto({files.at(t)}, dir.filePath(QStringLiteral("alone%1.wav").arg(t)), &why);
        output = playInto(files, dir.filePath(QStringLiteral("gapless.wav")), &why);
    }
    if (references[0].samples.isEmpty() || references[1].samples.isEmpty() || output.samples.isEmpty()) {
        state.SkipWithError(("a playback failed: " + why).toStdString().c_str());
        return;
    }
    const int first = references[0].frames();
    const int second = references[1].frames();
    const int firstAt = bestOffset(output, references[0], 0);
    const int secondAt = first + bestOffset(output, references[1], first);
    qint64 differing[2] = {0, 0};
    int largest = 0;
    compare(output, references[0], firstAt, &differing[0], &largest);
    compare(output, references[1], secondAt, &differing[1], &largest);

    const double rate = output.rate;
    state.counters["rate"] = rate;
    state.counters["track1_frames"] = first;
    state.counters["track2_frames"] = second;
    state.counters["output_frames"] = output.frames();
    state.counters["gap_frames"] = output.frames() - first - second;
    state.counters["first_offset_frames"] = firstAt;
    state.counters["offset_frames"] = secondAt - first;
    state.counters["differing_samples_1"] = double(differing[0]);
    state.counters["differing_samples_2"] = double(differing[1]);
    state.counters["max_diff"] = largest;
    for (int t = 0; t < 2; ++t) {
        const double sourceAtRate = double(sourceFrames[t]) * rate / gsttest::Rate;
        state.counters[t == 0 ? "padding_frames_1" : "padding_frames_2"] =
            references[t].frames() - sourceAtRate;
    }
}

void registerGapBenchmarks() {
    for (const Format& format : Formats)
        benchmark::RegisterBenchmark((std::string("GstGap/") + format.name).c_str(), BM_GstGap, format)
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
}

[[maybe_unused]] const bool registered = (registerGapBenchmarks(), true);

} // namespace
