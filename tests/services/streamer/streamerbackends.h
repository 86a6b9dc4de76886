#pragma once

// The streamer services the protocol tests run against, each with media it
// can play: URIs for the simulated streamer, audio files made on first use
// for the GStreamer one (when built).

#include <QString>
#include <memory>
#include <string>
#include <vector>

#include "streamerservice.h"

namespace zuvotest {

class StreamerBackend {
public:
    // Long: minutes; Short: near its end from the start (under 5 s) but
    // lasting long enough for a test step; Next, New, Later: other tracks.
    enum Media { Long, Short, Next, New, Later };

    virtual ~StreamerBackend() = default;
    virtual std::string name() const = 0;
    // The service, serving the default streamer paths in nodes.
    virtual std::unique_ptr<StreamerService> make(CMNodes* nodes) const = 0;
    virtual QString uri(Media media) const = 0;
};

// Every backend of this build; each lives for the whole program.
std::vector<const StreamerBackend*> streamerBackends();

} // namespace zuvotest
