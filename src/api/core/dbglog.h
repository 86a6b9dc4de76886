#pragma once

#include <QtGlobal>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <ostream>

#include "logging.h"

// Scope logging: "Enter <signature>" and "Leave <signature>" lines at TRACE.
//
// Loggers: every source file fetches its logger once, into a static, and
// hands that static to the macros below; never look a logger up by name per
// call:
//
//   static log4cplus::Logger logger = log4cplus::Logger::getInstance("PlayLogicBase");
//
//   CMReply<int> StreamerController::play(const ZuvoRoles& roles, bool startPaused) {
//       dbglog_scopedFunction(logger);
//       ...
//   }
//
// The signature is Q_FUNC_INFO of the enclosing function, e.g.
// "CMReply<int> StreamerController::play(const ZuvoRoles&, bool)".
//
// Cost when TRACE is disabled for the logger: one isEnabledFor() test on
// entry; no string is built and no stream expression is evaluated. Whether
// TRACE was enabled on entry is remembered, so a scope writes either both of
// its lines or neither, even if levels change meanwhile.

// Writes "Enter <signature>" on entry and "Leave <signature>" when the
// current scope ends (return, exception or end of block).
#define dbglog_scopedFunction(logger)                                                                        \
    const ::zuvo_detail::DbgLogScope ZUVO_DBGLOG_NAME(zuvoDbgLogScope_)((logger), Q_FUNC_INFO, __FILE__,     \
                                                                        __LINE__)

// Like dbglog_scopedFunction, the Enter line followed by a space and what
// streamExpr writes to a std::ostream:
//   dbglog_scopedFunctionArgs(logger, "request: " << startPaused);
//   -> "Enter void Foo::bar(bool) request: 1"
#define dbglog_scopedFunctionArgs(logger, streamExpr)                                                        \
    const ::zuvo_detail::DbgLogScope ZUVO_DBGLOG_NAME(zuvoDbgLogScope_)(                                     \
        (logger), Q_FUNC_INFO, __FILE__, __LINE__,                                                           \
        [&](std::ostream& zuvoDbgLogStream) { zuvoDbgLogStream << streamExpr; })

// Only the Enter line, with streamExpr as in dbglog_scopedFunctionArgs; no
// Leave line follows.
#define dbglog_enterFunction(logger, streamExpr)                                                             \
    ::zuvo_detail::dbglogEnter((logger), Q_FUNC_INFO, __FILE__, __LINE__,                                    \
                               [&](std::ostream& zuvoDbgLogStream) { zuvoDbgLogStream << streamExpr; })

#define ZUVO_DBGLOG_CONCAT2(a, b) a##b
#define ZUVO_DBGLOG_CONCAT(a, b) ZUVO_DBGLOG_CONCAT2(a, b)
#define ZUVO_DBGLOG_NAME(prefix) ZUVO_DBGLOG_CONCAT(prefix, __COUNTER__)

namespace zuvo_detail {

// Writes the extra text of an Enter line; context is the caller's functor.
using DbgLogArgsWriter = void (*)(const void* context, std::ostream& stream);

// Writes prefix + signature (+ " " + args) at TRACE, unconditionally. Never
// throws: a failure to log must not end the program from a destructor.
void dbglogWrite(const log4cplus::Logger& logger, const char* prefix, const char* signature, const char* file,
                 int line, DbgLogArgsWriter writeArgs = nullptr, const void* context = nullptr) noexcept;

template <typename WriteArgs>
void dbglogWriteEnter(const log4cplus::Logger& logger, const char* signature, const char* file, int line,
                      const WriteArgs& writeArgs) {
    dbglogWrite(
        logger, "Enter ", signature, file, line,
        [](const void* context, std::ostream& stream) { (*static_cast<const WriteArgs*>(context))(stream); },
        &writeArgs);
}

template <typename WriteArgs>
void dbglogEnter(const log4cplus::Logger& logger, const char* signature, const char* file, int line,
                 const WriteArgs& writeArgs) {
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL))
        dbglogWriteEnter(logger, signature, file, line, writeArgs);
}

// The object behind dbglog_scopedFunction. Keeps a reference to the logger,
// which must outlive the scope (a static does); a temporary is refused at
// compile time. Used on one thread, the one whose scope it lives in.
class DbgLogScope {
public:
    DbgLogScope(const log4cplus::Logger& logger, const char* signature, const char* file, int line)
        : m_logger(logger)
        , m_signature(signature)
        , m_file(file)
        , m_line(line)
        , m_enabled(logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        if (m_enabled)
            dbglogWrite(m_logger, "Enter ", m_signature, m_file, m_line);
    }

    template <typename WriteArgs>
    DbgLogScope(const log4cplus::Logger& logger, const char* signature, const char* file, int line,
                const WriteArgs& writeArgs)
        : m_logger(logger)
        , m_signature(signature)
        , m_file(file)
        , m_line(line)
        , m_enabled(logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        if (m_enabled)
            dbglogWriteEnter(m_logger, m_signature, m_file, m_line, writeArgs);
    }

    DbgLogScope(log4cplus::Logger&&, const char*, const char*, int) = delete;
    template <typename WriteArgs>
    DbgLogScope(log4cplus::Logger&&, const char*, const char*, int, const WriteArgs&) = delete;

    ~DbgLogScope() {
        if (m_enabled)
            dbglogWrite(m_logger, "Leave ", m_signature, m_file, m_line);
    }

    Q_DISABLE_COPY(DbgLogScope)

private:
    const log4cplus::Logger& m_logger;
    const char* const m_signature;
    const char* const m_file;
    const int m_line;
    const bool m_enabled;
};

} // namespace zuvo_detail
