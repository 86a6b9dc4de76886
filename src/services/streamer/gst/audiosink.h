#pragma once

#include <QString>

typedef struct _GstElement GstElement;

// Where a GstEngine sends the decoded audio, from a sink description:
//   auto           autoaudiosink (the system's default device). When the
//                  machine has neither a sound card's playback device nor
//                  a sound server's socket, or autoaudiosink cannot open a
//                  device (or settles for a fake sink), a real-time null
//                  sink takes its place with one warning.
//   null           discards the audio in real time (fakesink, sync=true)
//   wav:FILE       writes the decoded audio as one 16-bit PCM WAV file at
//                  the stream's own rate and channels, as fast as it
//                  decodes (sync=false). The file is (re)started by each
//                  non-gapless play; gapless successors land in the same
//                  file. Its header is complete after the end of playback,
//                  a stop, and the engine's destruction.
//   alsa[:DEVICE]  alsasink (on DEVICE, e.g. "hw:0", when given)
//   pulse          pulsesink
class AudioSinkSpec {
public:
    enum class Kind { Auto, Null, Wav, Alsa, Pulse };

    AudioSinkSpec() = default;
    AudioSinkSpec(Kind kind, const QString& argument = QString())
        : m_kind(kind)
        , m_argument(argument) {}

    // Parses text; on a bad one returns false and says why in *error (when
    // given), leaving *result untouched.
    static bool parse(const QString& text, AudioSinkSpec* result, QString* error = nullptr);

    Kind kind() const { return m_kind; }
    // The device (alsa) or the file (wav); empty otherwise.
    QString argument() const { return m_argument; }
    // The description this parses from.
    QString toString() const;
    // Whether the sink renders in real time (all but wav).
    bool isRealTime() const { return m_kind != Kind::Wav; }

    // A new floating sink element (or bin) for this sink, or null when the
    // elements are missing. For Auto, probes the device first (see above):
    // *fellBack tells whether the null sink was chosen instead.
    GstElement* createElement(bool* fellBack = nullptr) const;

private:
    Kind m_kind = Kind::Auto;
    QString m_argument;
};

// Completes the header of a RIFF/WAVE file whose writer stopped before it
// could: sets the data chunk's size to what the file holds (whole frames)
// and the RIFF size to the file's size. A header that is already complete is
// left as it is. Returns false when the file is not a WAV file or cannot be
// written.
bool completeWavHeader(const QString& path);
