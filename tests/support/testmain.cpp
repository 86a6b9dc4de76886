#include <QCoreApplication>
#include <gmock/gmock.h>

#include "logging.h"

// Every test program runs inside a QCoreApplication so that queued
// connections, timers and the network stack behave as in a host process.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleMock(&argc, argv);
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    zuvoInitLogging();
    return RUN_ALL_TESTS();
}
