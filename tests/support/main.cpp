// SPDX-License-Identifier: MIT
#include "tests/support/places.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <memory>

/// Makes the application object of the test program: without windows, unless the program defines its own.
[[gnu::weak]] std::unique_ptr<QCoreApplication> makeApplication(int &argc, char **argv) {
    return std::make_unique<QCoreApplication>(argc, argv);
}

/// Asked by LeakSanitizer: what libraries keep until the end of the process.
extern "C" [[gnu::visibility("default")]] const char *
__lsan_default_suppressions();                         // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__lsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
    return "leak:libQt6WebEngineCore\nleak:libdbus-1\nleak:libfontconfig\nleak:libudev\nleak:libwayland-"
           "client\n";
}

/// Asked by AddressSanitizer: the web engine deletes some of its objects by a base class.
extern "C" [[gnu::visibility("default")]] const char *
__asan_default_options();                         // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "new_delete_type_mismatch=0";
}

int main(int argc, char **argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("TXUPDATE_RESOURCES"))
        qputenv("TXUPDATE_RESOURCES", tx::test::resourcesFolder().toUtf8());
    // Tests read the framework's log down to its last detail.
    qputenv("TXUPDATE_LOG_LEVEL", "6");
    for (const char *proxy : {"http_proxy", "https_proxy", "all_proxy"})
        qunsetenv(proxy);
    const std::unique_ptr<QCoreApplication> application = makeApplication(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
