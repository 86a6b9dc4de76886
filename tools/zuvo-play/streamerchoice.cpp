#include "streamerchoice.h"

#include "simulatedstreamer.h"
#ifdef ZUVO_PLAY_WITH_GSTREAMER
#include "audiosink.h"
#include "gststreamer.h"
#endif

std::unique_ptr<StreamerService> createStreamer(CMNodes* nodes, const PlayOptions& options, QString& error) {
    error.clear();
#ifdef ZUVO_PLAY_WITH_GSTREAMER
    if (options.streamer == PlayOptions::Streamer::Gst) {
        AudioSinkSpec sink;
        if (!AudioSinkSpec::parse(options.sink, &sink, &error)) {
            error = QStringLiteral("--sink %1: %2").arg(options.sink, error);
            return nullptr;
        }
        return std::make_unique<GstStreamer>(nodes, sink.toString());
    }
#endif
    auto simulated = std::make_unique<SimulatedStreamer>(nodes);
    simulated->setSpeed(options.speed);
    return simulated;
}
