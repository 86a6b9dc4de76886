#pragma once

#include <QProcess>
#include <QStringList>

namespace zuvotest {

// Starts program (a tool built with the tests) with args in process, through
// the emulator named by ZUVO_TEST_EMULATOR (a command line; a cross build's
// CTest sets it) when there is one.
inline void startTool(QProcess& process, const QString& program, const QStringList& args) {
    QStringList command =
        qEnvironmentVariable("ZUVO_TEST_EMULATOR").split(QLatin1Char(' '), Qt::SkipEmptyParts);
    command << program << args;
    process.start(command.takeFirst(), command);
}

} // namespace zuvotest
