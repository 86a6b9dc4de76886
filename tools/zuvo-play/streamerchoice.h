#pragma once

#include <QString>
#include <memory>

#include "options.h"

class CMNodes;
class StreamerService;

// The streamer service zuvo-play plays on, as the options choose it: the
// GStreamer streamer with the sink asked for, or the simulated one at the
// speed asked for, serving the default streamer paths in nodes. Null with
// error set when it cannot be made (e.g. a sink it does not know).
std::unique_ptr<StreamerService> createStreamer(CMNodes* nodes, const PlayOptions& options, QString& error);
