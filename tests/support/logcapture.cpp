#include "logcapture.h"

#include <QMutex>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

struct LogCapture::Store {
    QMutex mutex;
    QList<Entry> entries;
};

namespace {

class CaptureAppender final : public log4cplus::Appender {
public:
    explicit CaptureAppender(std::shared_ptr<LogCapture::Store> store)
        : m_store(std::move(store)) {}
    ~CaptureAppender() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        const QMutexLocker lock(&m_store->mutex);
        m_store->entries.append({event.getLogLevel(), QString::fromStdString(event.getLoggerName()),
                                 QString::fromStdString(event.getMessage())});
    }

private:
    std::shared_ptr<LogCapture::Store> m_store;
};

} // namespace

LogCapture::LogCapture()
    : m_store(std::make_shared<Store>())
    , m_appender(new CaptureAppender(m_store)) {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    m_savedLevels.emplace_back(std::string(), root.getLogLevel());
    for (log4cplus::Logger logger : log4cplus::Logger::getCurrentLoggers()) {
        m_savedLevels.emplace_back(logger.getName(), logger.getLogLevel());
        logger.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
    }
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    root.addAppender(m_appender);
}

LogCapture::~LogCapture() {
    log4cplus::Logger::getRoot().removeAppender(m_appender);
    for (const auto& [name, level] : m_savedLevels)
        (name.empty() ? log4cplus::Logger::getRoot() : log4cplus::Logger::getInstance(name))
            .setLogLevel(level);
}

QList<LogCapture::Entry> LogCapture::entries() const {
    const QMutexLocker lock(&m_store->mutex);
    return m_store->entries;
}

bool LogCapture::contains(log4cplus::LogLevel level, const QString& substring) const {
    const QList<Entry> all = entries();
    return std::any_of(all.begin(), all.end(),
                       [&](const Entry& e) { return e.level == level && e.message.contains(substring); });
}

int LogCapture::count(const QString& substring) const {
    const QList<Entry> all = entries();
    return std::count_if(all.begin(), all.end(),
                         [&](const Entry& e) { return e.message.contains(substring); });
}

void LogCapture::clear() {
    const QMutexLocker lock(&m_store->mutex);
    m_store->entries.clear();
}

QString LogCapture::toString() const {
    QString lines;
    for (const Entry& entry : entries())
        lines += QString::fromStdString(log4cplus::getLogLevelManager().toString(entry.level)) + ' ' +
                 entry.logger + ": " + entry.message + '\n';
    return lines;
}
