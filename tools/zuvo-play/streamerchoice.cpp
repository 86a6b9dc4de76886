#include "streamerchoice.h"

#include "simulatedstreamer.h"
#ifdef ZUVO_PLAY_WITH_GSTREAMER
#include "gststreamer.h"
#endif

std::unique_ptr<StreamerService> createStreamer(CMNodes* nodes, const PlayOptions& options, QString& error) {
    error.clear();
#ifdef ZUVO_PLAY_WITH_GSTREAMER
    if (options.streamer == PlayOptions::Streamer::Gst)
        return std::make_unique<GstStreamer>(nodes, options.sink);
#endif
    auto simulated = std::make_unique<SimulatedStreamer>(nodes);
    simulated->setSpeed(options.speed);
    return simulated;
}
