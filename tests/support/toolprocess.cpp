#include "toolprocess.h"

#include <QtGlobal>

namespace zuvotest {

void startTool(QProcess& process, const QString& program, const QStringList& args) {
    QStringList emulator =
        qEnvironmentVariable("ZUVO_TEST_EMULATOR").split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (emulator.isEmpty()) {
        process.start(program, args);
        return;
    }
    const QString launcher = emulator.takeFirst();
    process.start(launcher, emulator << program << args);
}

} // namespace zuvotest
