#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include "logging.h"

// Every benchmark program runs inside a QCoreApplication, with the default
// logging of a host (warnings and above to stderr; TRACE and DEBUG off),
// unless ZUVO_LOG_CONFIG names a configuration.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    zuvoInitLogging();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
