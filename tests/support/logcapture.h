#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <algorithm>
#include <log4cplus/appender.h>
#include <log4cplus/loglevel.h>
#include <memory>
#include <utility>
#include <vector>

// Captures every log line written while it lives: the root logger gets an
// in-memory appender and TRACE, every existing logger NOT_SET (inheriting it),
// all restored on destruction; other appenders keep their thresholds. Captures
// nest when destroyed in reverse order. Lines may be logged, and queried, from
// any thread; a query sees every line whose logging call has returned.
class LogCapture {
public:
    struct Entry {
        log4cplus::LogLevel level;
        QString logger;
        QString message;
    };
    struct Store; // shared with the appender, which log4cplus may hold longer

    LogCapture();
    ~LogCapture();
    Q_DISABLE_COPY(LogCapture)

    QList<Entry> entries() const;
    // Whether a line at exactly this level contains substring.
    bool contains(log4cplus::LogLevel level, const QString& substring) const;
    bool contains(const QString& substring) const { return count(substring) > 0; }
    // Lines (any level) that contain substring.
    int count(const QString& substring) const;
    void clear();
    // "LEVEL logger: message" lines, for failure output.
    QString toString() const;

private:
    std::shared_ptr<Store> m_store;
    log4cplus::SharedAppenderPtr m_appender;
    std::vector<std::pair<std::string, log4cplus::LogLevel>> m_savedLevels; // root first
};
