#include "streamerbackends.h"

#include "simulatedstreamer.h"
#ifdef ZUVO_TEST_WITH_GSTREAMER
#include <QFile>
#include <QTemporaryDir>
#include <QUrl>

#include "gst/gsttestmedia.h"
#include "gststreamer.h"
#endif

namespace zuvotest {
namespace {

// The simulated clock stands still: buffering, near end and failures due at
// the current position still happen, nothing else moves.
class SimulatedBackend : public StreamerBackend {
public:
    std::string name() const override { return "simulated"; }
    std::unique_ptr<StreamerService> make(CMNodes* nodes) const override {
        auto streamer = std::make_unique<SimulatedStreamer>(nodes);
        streamer->setSpeed(0);
        return streamer;
    }
    QString uri(Media media) const override {
        switch (media) {
        case Long:
            return QStringLiteral("http://h/track.mp3");
        case Short:
            return QStringLiteral("http://h/short.mp3?zuvo-duration=1000");
        case Next:
            return QStringLiteral("http://h/next.mp3");
        case New:
            return QStringLiteral("http://h/new.mp3");
        case Later:
            break;
        }
        return QStringLiteral("http://h/later.mp3");
    }
};

#ifdef ZUVO_TEST_WITH_GSTREAMER
// Real time into a null sink, from WAV files (a tone each).
class GstBackend : public StreamerBackend {
public:
    std::string name() const override { return "gstreamer"; }
    std::unique_ptr<StreamerService> make(CMNodes* nodes) const override {
        return std::make_unique<GstStreamer>(nodes, QStringLiteral("null"));
    }
    QString uri(Media media) const override {
        static const QTemporaryDir dir;
        static const auto file = [](const char* name, double seconds, int seed) {
            QFile wav(dir.filePath(QString::fromLatin1(name)));
            if (!wav.open(QIODevice::WriteOnly))
                return QString();
            wav.write(gsttest::wavFile(gsttest::tone(int(seconds * gsttest::Rate), seed)));
            return QUrl::fromLocalFile(wav.fileName()).toString();
        };
        static const QString uris[] = {file("long.wav", 60, 1), file("short.wav", 4.5, 2),
                                       file("next.wav", 10, 3), file("new.wav", 10, 4),
                                       file("later.wav", 10, 5)};
        return uris[media];
    }
};
#endif

} // namespace

std::vector<const StreamerBackend*> streamerBackends() {
    static const SimulatedBackend simulated;
    std::vector<const StreamerBackend*> backends{&simulated};
#ifdef ZUVO_TEST_WITH_GSTREAMER
    static const GstBackend gst;
    backends.push_back(&gst);
#endif
    return backends;
}

} // namespace zuvotest
