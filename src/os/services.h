// SPDX-License-Identifier: MIT
#pragma once

#include "os/alert.h"
#include "os/systemfacts.h"
#include "os/volumes.h"

#include <QDateTime>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace tx::machine {
struct Section;
}

namespace tx {

class Authorization;
class FileSystem;
class PrivateFiles;
class Tasks;
class UrlLoader;
class Workspace;

/// Folders of the user and the machine. Null for one that this user does not have.
struct Folders {
    std::function<QString()> userApplications;
    std::function<QString()> localApplications;
    std::function<QString()> downloads;
    std::function<QString()> desktop;
    /// The folder of the user's menu entries, icons and MIME types. Null in a sandbox such as Flatpak, whose
    /// menu is not the user's.
    std::function<QString()> data;
};

/// Everything through which the framework touches the world outside its process. A test replaces members, or
/// makes them fail. Objects are not owned.
struct Services {
    FileSystem *fileSystem;
    PrivateFiles *privateFiles;
    Tasks *tasks;
    Workspace *workspace;
    Authorization *authorization;
    UrlLoader *urlLoader;
    AlertPresenter presentAlert;
    SheetPresenter presentSheet;
    /// Facts about the volume that contains a path. If there are none, mountFlagsAreReadOnly() is used.
    std::function<std::optional<VolumeInfo>(const QString &path)> volumeInfo;
    std::function<bool(const QString &path)> mountFlagsAreReadOnly;
    /// The target of an alias file.
    std::function<std::optional<QString>(const QString &path)> aliasTarget;
    Folders folders;
    /// The languages that the user prefers, best first, as language tags.
    std::function<QStringList()> preferredLanguages;
    /// The framework's resources.
    std::function<QString()> resourcesPath;
    /// The command that knows disk images.
    std::function<QString()> hdiutilPath;
    /// The screens in the desktop's order; none without a user interface.
    std::function<QList<ScreenInfo>()> screens;
    std::function<QString()> operatingSystemVersionString;
    std::function<std::optional<int>(const QString &name)> systemControlNumber;
    std::function<std::optional<QString>(const QString &name)> systemControlText;
    /// Describes the hardware and the displays. It runs on a thread that may be abandoned: see LimitedWork.
    std::function<std::vector<machine::Section>()> systemReport;
    /// How long a profile waits for it.
    std::chrono::milliseconds systemReportTime;
    /// How long the installer tool may take to say that it is ready.
    std::chrono::milliseconds installerReadyTime;
    /// How long it may take until all of a feed has come.
    std::chrono::milliseconds feedTimeLimit;
    /// A monotonic clock with an arbitrary start, with which transfers measure their limits, and the interval
    /// in which they check them. Thread: any.
    std::function<std::chrono::milliseconds()> transferClock;
    std::chrono::milliseconds transferTick;
    /// How long a visible check shows that it runs, and how long after its start an application checks first.
    std::chrono::milliseconds checkingPause;
    std::chrono::milliseconds firstCheckDelay;
    /// Asks the application whether it may quit, as the desktop's Quit does, without ending it. Returns null
    /// if it refuses. The returned object must be held until the process ends, or until it need not end any
    /// more. Without a user interface nobody is asked.
    std::function<std::shared_ptr<void>()> requestQuit;
    /// Ends the process.
    std::function<void(int status)> exitProcess;
    std::function<QDateTime()> now;
    /// The current time as seconds since 2001-01-01 UTC, with fractions.
    std::function<double()> secondsSinceReferenceDate;
};

/// The services in force. Replace members before other threads use them.
Services &services();

} // namespace tx
