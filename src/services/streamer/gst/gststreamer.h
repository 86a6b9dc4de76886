#pragma once

#include "audiosink.h"
#include "model/cmpath.h"
#include "streamerservice.h"

class CMNodes;
class GstEngine;

// The streamer service on GStreamer: StreamerService (the protocol, see
// streamerservice.h) with a GstEngine (see gstengine.h) that plays into the
// audio sink named by sinkSpec (see audiosink.h: auto, null, wav:FILE,
// alsa[:DEVICE], pulse). A bad sinkSpec is logged and replaced by auto; use
// AudioSinkSpec::parse() first to refuse it with a message.
//
// Initialises GStreamer on first use (GstEngine::ensureGstInitialised()).
//
// Thread: the thread of the registry's event loop, like the service. Logger
// "GstStreamer" (the engine logs as "GstEngine").
class GstStreamer : public StreamerService {
    Q_OBJECT
public:
    explicit GstStreamer(CMNodes* nodes, const QString& sinkSpec = QStringLiteral("auto"),
                         const CMPath& prefix = ZuvoStreamerDefaultPrefixPath(), QObject* parent = nullptr);
    ~GstStreamer() override;
    Q_DISABLE_COPY(GstStreamer)

    // The sink in use (null after the fallback of auto).
    AudioSinkSpec sink() const;
};
