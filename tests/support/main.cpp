// SPDX-License-Identifier: MIT
#include <QCoreApplication>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <memory>

/// Makes the application object of the test program: without windows, unless the program defines its own.
[[gnu::weak]] std::unique_ptr<QCoreApplication> makeApplication(int &argc, char **argv) {
    return std::make_unique<QCoreApplication>(argc, argv);
}

int main(int argc, char **argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("TXUPDATE_RESOURCES"))
        qputenv("TXUPDATE_RESOURCES", TEST_RESOURCES);
    // Tests read the framework's log down to its last detail.
    qputenv("TXUPDATE_LOG_LEVEL", "6");
    for (const char *proxy : {"http_proxy", "https_proxy", "all_proxy"})
        qunsetenv(proxy);
    const std::unique_ptr<QCoreApplication> application = makeApplication(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
