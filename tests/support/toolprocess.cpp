#include "toolprocess.h"

namespace zuvotest {

void startTool(QProcess& process, const QString& program, const QStringList& args) {
    QStringList command =
        qEnvironmentVariable("ZUVO_TEST_EMULATOR").split(QLatin1Char(' '), Qt::SkipEmptyParts);
    command << program << args;
    process.start(command.takeFirst(), command);
}

} // namespace zuvotest
