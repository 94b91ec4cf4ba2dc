// SPDX-License-Identifier: MIT
#include "os/services.h"

#include "base/shared.h"
#include "net/urlloading.h"
#include "os/alert.h"
#include "os/authorization.h"
#include "os/directories.h"
#include "os/entrykind.h"
#include "os/filesystem.h"
#include "os/frameworkresources.h"
#include "os/tasks.h"
#include "os/workspace.h"
#include "posix/privatefile.h"
#include "posix/systemreport.h"

#include <chrono>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace tx {

TX_SHARED Services &services() {
    // Never destroyed: a thread may outlast static objects.
    static auto &privateFiles = *new PrivateFiles;
    static auto &instance = *new Services{
        &nativeFileSystem(),
        &privateFiles,
        &nativeTasks(),
        &nativeWorkspace(),
        &nativeAuthorization(),
        &nativeUrlLoader(),
        presentAlertInLog,
        [](const Alert &alert, QWidget *, const std::function<void(int)> &handler) {
            handler(presentAlertInLog(alert));
        },
        volumeInfo,
        mountFlagsAreReadOnly,
        aliasFileTarget,
        {userApplicationsDirectory, localApplicationsDirectory, downloadsDirectoryPath, desktopDirectoryPath,
         menuDataDirectory},
        preferredLanguages,
        frameworkResourcesPath,
        [] { return frameworkResourcesPath() + u"/hdiutil"_s; },
        [] { return QList<ScreenInfo>(); },
        operatingSystemVersionString,
        systemControlNumber,
        systemControlText,
        [] { return machine::sections(machine::Source::thisMachine()); },
        std::chrono::seconds(10),
        std::chrono::seconds(30),
        std::chrono::minutes(5),
        [] {
            using namespace std::chrono;
            return duration_cast<milliseconds>(steady_clock::now().time_since_epoch());
        },
        std::chrono::seconds(1),
        std::chrono::seconds(1),
        std::chrono::seconds(5),
        [] { return std::make_shared<bool>(true); },
        [](int status) {
            nativeUrlLoader().stop();
            std::exit(status);
        },
        [] { return QDateTime::currentDateTimeUtc(); },
        [] {
            using namespace std::chrono;
            constexpr double referenceDate = 978307200;
            return duration<double>(system_clock::now().time_since_epoch()).count() - referenceDate;
        },
    };
    return instance;
}

} // namespace tx
