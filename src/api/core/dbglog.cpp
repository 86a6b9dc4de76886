#include "dbglog.h"

#include <log4cplus/loglevel.h>

namespace zuvo_detail {

void dbglogWrite(const log4cplus::Logger& logger, const char* prefix, const char* signature, const char* file,
                 int line, DbgLogArgsWriter writeArgs, const void* context) noexcept {
    try {
        log4cplus::tostringstream text;
        text << prefix << (signature ? signature : "");
        if (writeArgs) {
            text << ' ';
            writeArgs(context, text);
        }
        logger.forcedLog(log4cplus::TRACE_LOG_LEVEL, text.str(), file, line, signature);
    } catch (...) {
        // Out of memory or a throwing stream operator: the line is lost.
    }
}

} // namespace zuvo_detail
