#pragma once

#include <QProcess>
#include <QStringList>

namespace zuvotest {

// Starts program (a tool built with the tests) with args in process. When
// the tests run under an emulator (a cross build's, named by the environment
// variable ZUVO_TEST_EMULATOR, a command line, which CTest sets), the
// program is built for the same foreign processor and is started through it.
void startTool(QProcess& process, const QString& program, const QStringList& args);

} // namespace zuvotest
