#include "logcapture.h"

#include <QMutex>
#include <QMutexLocker>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

namespace zuvotest_detail {
struct LogCaptureStore {
    QMutex mutex;
    QList<LogCapture::Entry> entries;
};
} // namespace zuvotest_detail

using zuvotest_detail::LogCaptureStore;

namespace {

QString fromLogString(const log4cplus::tstring& text) {
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

// Appends every event to the shared store; the store outlives the capture
// for as long as log4cplus still holds the appender.
class CaptureAppender final : public log4cplus::Appender {
public:
    explicit CaptureAppender(std::shared_ptr<LogCaptureStore> store)
        : m_store(std::move(store)) {
        setName(LOG4CPLUS_TEXT("zuvo-log-capture"));
    }
    ~CaptureAppender() override { destructorImpl(); }

    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        LogCapture::Entry entry{event.getLogLevel(), fromLogString(event.getLoggerName()),
                                fromLogString(event.getMessage())};
        const QMutexLocker lock(&m_store->mutex);
        m_store->entries.append(std::move(entry));
    }

private:
    std::shared_ptr<LogCaptureStore> m_store;
};

} // namespace

LogCapture::LogCapture()
    : m_store(std::make_shared<LogCaptureStore>())
    , m_appender(new CaptureAppender(m_store))
    , m_savedRootLevel(log4cplus::Logger::getRoot().getLogLevel()) {
    const log4cplus::LoggerList loggers = log4cplus::Logger::getCurrentLoggers();
    m_savedLevels.reserve(loggers.size());
    for (log4cplus::Logger logger : loggers) {
        m_savedLevels.emplace_back(fromLogString(logger.getName()), logger.getLogLevel());
        logger.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
    }
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    root.addAppender(m_appender);
}

LogCapture::~LogCapture() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAppender(m_appender);
    root.setLogLevel(m_savedRootLevel);
    for (const auto& [name, level] : m_savedLevels)
        log4cplus::Logger::getInstance(name.toStdString()).setLogLevel(level);
}

QList<LogCapture::Entry> LogCapture::entries() const {
    const QMutexLocker lock(&m_store->mutex);
    return m_store->entries;
}

bool LogCapture::contains(log4cplus::LogLevel level, const QString& substring) const {
    const QMutexLocker lock(&m_store->mutex);
    for (const Entry& entry : qAsConst(m_store->entries)) {
        if (entry.level == level && entry.message.contains(substring))
            return true;
    }
    return false;
}

bool LogCapture::contains(const QString& substring) const {
    return count(substring) > 0;
}

int LogCapture::count(const QString& substring) const {
    const QMutexLocker lock(&m_store->mutex);
    int result = 0;
    for (const Entry& entry : qAsConst(m_store->entries)) {
        if (entry.message.contains(substring))
            ++result;
    }
    return result;
}

QStringList LogCapture::messagesOf(const QString& loggerName) const {
    const QMutexLocker lock(&m_store->mutex);
    QStringList messages;
    for (const Entry& entry : qAsConst(m_store->entries)) {
        if (entry.logger == loggerName)
            messages.append(entry.message);
    }
    return messages;
}

void LogCapture::clear() {
    const QMutexLocker lock(&m_store->mutex);
    m_store->entries.clear();
}

QString LogCapture::toString() const {
    const QMutexLocker lock(&m_store->mutex);
    QString text;
    for (const Entry& entry : qAsConst(m_store->entries)) {
        text += fromLogString(log4cplus::getLogLevelManager().toString(entry.level)) + QLatin1Char(' ') +
                entry.logger + QStringLiteral(": ") + entry.message + QLatin1Char('\n');
    }
    return text;
}
