#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <ostream>

// Logging set-up of a host process, and stream operators that let the
// log4cplus macros print Qt types.
//
// The library never configures logging: its code only fetches loggers (one
// per source file, see dbglog.h) and writes to them. A host configures
// logging once, at start-up on its main thread before other threads log, by
// calling one of the two functions below.

// Environment variable naming a log4cplus properties file read by
// zuvoInitLogging(). See examples/log4cplus.properties.
inline constexpr char ZUVO_LOG_CONFIG_ENV[] = "ZUVO_LOG_CONFIG";

// Configures logging for a host process. If the environment variable
// ZUVO_LOG_CONFIG names a readable log4cplus properties file, the
// configuration is read from it; otherwise (unset, empty, or unreadable, the
// latter reported on stderr) the root logger gets level WARN and one appender
// to stderr with threshold WARN that writes "time level logger: message".
//
// Either way the configuration replaces any earlier one: appenders attached
// to any logger are removed and levels reset first, so calling it again
// gives the same configuration, never a second appender. Initialises
// log4cplus (log4cplus::initialize()) on the first call. Thread-safe.
void zuvoInitLogging();

// Configures logging from the log4cplus properties file propertiesFile, for a
// host's "--log-config FILE" option, replacing any earlier configuration as
// above. Returns false, writes the reason on stderr and leaves the current
// configuration untouched when the file cannot be read (a file that log4cplus
// rejects with an exception leaves the default configuration). Lines that
// log4cplus cannot use are reported by log4cplus itself on stderr.
// Thread-safe.
bool zuvoInitLogging(const QString& propertiesFile);

// Stream operators for log lines ("LOG4CPLUS_DEBUG(logger, "uri: " << uri)").
// Declared in the global namespace, where the Qt types live, so that
// argument-dependent lookup finds them from any namespace.

// The text in UTF-8.
std::ostream& operator<<(std::ostream& stream, const QString& text);
// The bytes as they are.
std::ostream& operator<<(std::ostream& stream, const QByteArray& bytes);
// ["a", "b"], as zuvoVariantToLogString prints a list.
std::ostream& operator<<(std::ostream& stream, const QStringList& list);
// zuvoVariantToLogString(value): hashes and lists nested, strings quoted.
std::ostream& operator<<(std::ostream& stream, const QVariant& value);
