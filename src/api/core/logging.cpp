#include "logging.h"

#include <QFile>
#include <cstdio>
#include <exception>
#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/hierarchy.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <memory>
#include <mutex>
#include <sstream>
#include <string_view>
#include <type_traits>

#include "zuvohash.h"

// Log text is UTF-8 in narrow strings throughout; a wide-character build of
// log4cplus would need conversions everywhere.
static_assert(std::is_same_v<log4cplus::tchar, char>, "log4cplus must be built with narrow characters");

namespace {

constexpr char kConsoleAppenderName[] = "zuvo-stderr";
constexpr char kConsolePattern[] = "%D{%H:%M:%S.%q} %-5p %c: %m%n";

// Serialises configuration changes; log4cplus itself may be used meanwhile.
std::mutex& configurationMutex() {
    static std::mutex mutex;
    return mutex;
}

void initializeLog4cplusOnce() {
    static std::once_flag once;
    std::call_once(once, [] { log4cplus::initialize(); });
}

void printError(const QString& text) {
    std::fprintf(stderr, "zuvoInitLogging: %s\n", text.toLocal8Bit().constData());
}

// The contents of the file, or false with the reason in *error.
bool readFile(const QString& path, QByteArray* contents, QString* error) {
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read log configuration file \"%1\": %2")
                     .arg(path, path.isEmpty() ? QStringLiteral("no file name") : file.errorString());
        return false;
    }
    *contents = file.readAll();
    return true;
}

void configureFromProperties(const QByteArray& properties) {
    log4cplus::Logger::getDefaultHierarchy().resetConfiguration();
    std::istringstream stream(properties.toStdString());
    log4cplus::PropertyConfigurator configurator(stream);
    configurator.configure();
}

void configureDefault() {
    log4cplus::Logger::getDefaultHierarchy().resetConfiguration();
    log4cplus::SharedAppenderPtr appender(new log4cplus::ConsoleAppender(/*logToStdErr=*/true,
                                                                         /*immediateFlush=*/true));
    appender->setName(kConsoleAppenderName);
    appender->setThreshold(log4cplus::WARN_LOG_LEVEL);
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>(kConsolePattern));
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.setLogLevel(log4cplus::WARN_LOG_LEVEL);
    root.addAppender(appender);
}

bool configureFromFileLocked(const QString& path) {
    QByteArray properties;
    QString error;
    if (!readFile(path, &properties, &error)) {
        printError(error);
        return false;
    }
    try {
        configureFromProperties(properties);
    } catch (const std::exception& exception) {
        // The configuration was reset already: fall back to a working one.
        printError(QStringLiteral("log configuration file \"%1\" rejected: %2")
                       .arg(path, QString::fromLocal8Bit(exception.what())));
        configureDefault();
        return false;
    }
    return true;
}

} // namespace

void zuvoInitLogging() {
    initializeLog4cplusOnce();
    const std::lock_guard<std::mutex> lock(configurationMutex());
    const QString path = qEnvironmentVariable(ZUVO_LOG_CONFIG_ENV);
    if (!path.isEmpty() && configureFromFileLocked(path))
        return;
    if (!path.isEmpty())
        printError(QStringLiteral("%1 is ignored; logging warnings to stderr")
                       .arg(QLatin1String(ZUVO_LOG_CONFIG_ENV)));
    configureDefault();
}

bool zuvoInitLogging(const QString& propertiesFile) {
    initializeLog4cplusOnce();
    const std::lock_guard<std::mutex> lock(configurationMutex());
    return configureFromFileLocked(propertiesFile);
}

std::ostream& operator<<(std::ostream& stream, const QString& text) {
    return stream << text.toUtf8();
}

std::ostream& operator<<(std::ostream& stream, const QByteArray& bytes) {
    return stream << std::string_view(bytes.constData(), static_cast<size_t>(bytes.size()));
}

std::ostream& operator<<(std::ostream& stream, const QStringList& list) {
    return stream << QVariant(list);
}

std::ostream& operator<<(std::ostream& stream, const QVariant& value) {
    return stream << zuvoVariantToLogString(value);
}
