#include "gststreamer.h"

#include "dbglog.h"
#include "gstengine.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("GstStreamer"));

namespace {

GstEngine* createEngine(const QString& sinkSpec) {
    AudioSinkSpec sink;
    QString error;
    if (!AudioSinkSpec::parse(sinkSpec, &sink, &error))
        LOG4CPLUS_WARN(logger, "Bad audio sink: " << error << "; using auto");
    return new GstEngine(sink);
}

} // namespace

GstStreamer::GstStreamer(CMNodes* nodes, const QString& sinkSpec, const CMPath& prefix, QObject* parent)
    : StreamerService(nodes, prefix, createEngine(sinkSpec), parent) {}

GstStreamer::~GstStreamer() = default;

AudioSinkSpec GstStreamer::sink() const {
    return static_cast<GstEngine*>(engine())->sink();
}
