// SPDX-License-Identifier: MIT
#pragma once

#include "os/alert.h"
#include "os/systemfacts.h"
#include "os/volumes.h"

#include <QDateTime>

#include <chrono>
#include <functional>
#include <memory>

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
    /// Facts about the volume that holds a path, and the mount flags' read-only bit for when there are none.
    std::function<std::optional<VolumeInfo>(const QString &path)> volumeInfo;
    std::function<bool(const QString &path)> mountFlagsAreReadOnly;
    /// What an alias file leads to.
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
    /// The command that describes hardware and displays as a property list.
    std::function<QString()> systemProfilerPath;
    /// How long it may take before it is ended.
    std::chrono::milliseconds systemProfilerTime;
    /// How long the installer tool may take to say that it is ready.
    std::chrono::milliseconds installerReadyTime;
    /// How long it may take until all of a feed has come.
    std::chrono::milliseconds feedTimeLimit;
    /// The time since any fixed moment, on a clock that never goes back, by which transfers keep their
    /// limits, and how often they look at it. Thread: any.
    std::function<std::chrono::milliseconds()> transferClock;
    std::chrono::milliseconds transferTick;
    /// How long a visible check shows that it runs, and how long after its start an application checks first.
    std::chrono::milliseconds checkingPause;
    std::chrono::milliseconds firstCheckDelay;
    /// Asks the application whether it may end, as the desktop's Quit does, without ending it. Null when it
    /// refuses; what it returns is held until the process ends or the reason to end it is gone. Without a
    /// user interface there is nobody to ask.
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
