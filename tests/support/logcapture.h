#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <log4cplus/appender.h>
#include <log4cplus/loglevel.h>
#include <memory>
#include <utility>
#include <vector>

namespace zuvotest_detail {
struct LogCaptureStore;
} // namespace zuvotest_detail

// Captures every log line written while it lives, for tests that assert log
// output ("Unrecognized control command: 12" at WARN from "PlayLogicBase").
//
// Construction attaches an in-memory appender to the root logger and lowers
// levels so that everything down to TRACE reaches it: the root logger goes
// to TRACE and every existing logger to NOT_SET (inheriting the root's
// level). Destruction removes the appender and restores the saved levels.
// Other appenders keep their own thresholds (the default stderr appender
// stays at WARN). Captures nest when destroyed in reverse order.
//
// Lines may be logged from any thread; the queries below may be called from
// any thread and see every line whose logging call has returned.
class LogCapture {
public:
    struct Entry {
        log4cplus::LogLevel level;
        QString logger;
        QString message;
    };

    LogCapture();
    ~LogCapture();

    QList<Entry> entries() const;
    // Whether a line at exactly this level contains substring.
    bool contains(log4cplus::LogLevel level, const QString& substring) const;
    bool contains(const QString& substring) const;
    // Number of lines (any level) that contain substring.
    int count(const QString& substring) const;
    // The messages of the named logger, in logging order.
    QStringList messagesOf(const QString& loggerName) const;
    void clear();

    // All lines as "LEVEL logger: message", one a line: for failure output,
    // EXPECT_TRUE(capture.contains(...)) << capture.toString().toStdString().
    QString toString() const;

    Q_DISABLE_COPY(LogCapture)

private:
    // Shared with the appender, which log4cplus may hold a little longer.
    std::shared_ptr<zuvotest_detail::LogCaptureStore> m_store;
    log4cplus::SharedAppenderPtr m_appender;
    std::vector<std::pair<QString, log4cplus::LogLevel>> m_savedLevels; // logger name, level
    log4cplus::LogLevel m_savedRootLevel;
};
