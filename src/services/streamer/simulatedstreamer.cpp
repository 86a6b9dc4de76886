#include "simulatedstreamer.h"

SimulatedStreamer::SimulatedStreamer(CMNodes* nodes, const CMPath& prefix, QObject* parent)
    : SimulatedStreamer(nodes, prefix, new SimulatedEngine, parent) {}

SimulatedStreamer::~SimulatedStreamer() = default;

// The service owns the engine (as its child) from its first line on.
SimulatedStreamer::SimulatedStreamer(CMNodes* nodes, const CMPath& prefix, SimulatedEngine* engine,
                                     QObject* parent)
    : StreamerService(nodes, prefix, engine, parent)
    , m_engine(engine) {}
