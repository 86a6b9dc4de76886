#pragma once

#include <QProcess>
#include <QStringList>

namespace zuvotest {

// Starts program (a tool built with the tests) with args in process, through
// the emulator command line in ZUVO_TEST_EMULATOR (set by a cross build) if any.
inline void startTool(QProcess& process, const QString& program, const QStringList& args) {
    QStringList command =
        qEnvironmentVariable("ZUVO_TEST_EMULATOR").split(QLatin1Char(' '), Qt::SkipEmptyParts);
    command << program << args;
    process.start(command.takeFirst(), command);
}

} // namespace zuvotest
