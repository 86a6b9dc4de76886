#include <QCoreApplication>
#include <gmock/gmock.h>

#include "logging.h"

// Every test program runs inside a QCoreApplication so that queued
// connections, timers and the network stack behave as in a host process.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleMock(&argc, argv);
    // Death tests re-run the program, which the kernel cannot do for a foreign
    // one under a user-mode emulator (ZUVO_TEST_EMULATOR): fork instead.
    ::testing::FLAGS_gtest_death_test_style =
        qEnvironmentVariableIsEmpty("ZUVO_TEST_EMULATOR") ? "threadsafe" : "fast";
    zuvoInitLogging();
    return RUN_ALL_TESTS();
}
