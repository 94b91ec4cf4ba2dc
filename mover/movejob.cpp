// SPDX-License-Identifier: MIT
#include "mover/movejob.h"

#include "install/updateinstallation.h"
#include "mover/movequestion.h"
#include "platform/authorization.h"
#include "platform/filesystem.h"
#include "platform/format.h"
#include "platform/frameworkresources.h"
#include "platform/localization.h"
#include "platform/services.h"
#include "platform/tasks.h"
#include "platform/workspace.h"

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXLog.h>

#include <QCoreApplication>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

void log(const QString &format, const QStringList &arguments = {}) {
    TXLog(TXLogLevelAlways, format, arguments);
}

/// Starts a shell that outlives this process; failures are nobody's concern. `resources`: where its tools
/// stand.
void startShell(const QString &command, const QString &resources) {
    (void)services().tasks->start({.program = u"/bin/sh"_s,
                                   .arguments = {u"-c"_s, command},
                                   .environment = environmentWithFrameworkTools(resources),
                                   .ownSession = true});
}

/// Runs one of the framework's tools to its end; failures are nobody's concern.
void runTool(const QString &name, const QStringList &arguments) {
    auto task =
        services().tasks->start({.program = frameworkResourcesPath() + u'/' + name, .arguments = arguments});
    if (task)
        (void)(*task)->wait();
}

/// Reads what the privileged program says until its end, which has no limit of time: it copies.
bool isMoved(Task &task) {
    constexpr qsizetype longestAnswer = 4096;
    QByteArray answer;
    for (QByteArray more; answer.size() < longestAnswer && !(more = task.read()).isEmpty();)
        answer += more;
    if (answer == "moved\n" && task.wait() == 0)
        return true;
    log(u"ERROR -- The privileged program did not move the application: %@"_s,
        {answer.isEmpty() ? u"it gave no reason"_s : QString::fromLocal8Bit(answer).trimmed()});
    return false;
}

} // namespace

bool removeItemAtPath(const QString &path, QString *newPath) {
    // On this thread: the caller waits for it in any case.
    const Result<QString> trashed = services().workspace->moveToTrash(path);
    if (!trashed)
        log(u"ERROR -- Could not trash '%@':\n%@"_s, {path, trashed.error().toString()});
    else if (newPath)
        *newPath = *trashed;
    return bool(trashed);
}

bool copyItemAtPath(const QString &from, const QString &to) {
    const TXError error = services().fileSystem->linkOrCopy(from, to);
    if (error)
        log(u"ERROR -- Could not copy '%@' to '%@' (%@)"_s, {from, to, error.toString()});
    return error.isNull();
}

QString detachCommand(const QString &volumePath, const QString &imageFile) {
    return formatText(u"(sleep 5 && hdiutil detach '%@' && rm '%@') &"_s,
                      {insideSingleQuotes(volumePath), insideSingleQuotes(imageFile)});
}

MoveJob::Outcome MoveJob::performMove() {
    return m_places.needsAuthorization() ? performAuthorizedMove() : performUnauthorizedMove();
}

bool MoveJob::isRunningAt(const QString &path) const {
    const QString executable = TXBundle(path).executablePath();
    if (!executable.isEmpty() && !services().workspace->runningApplications(executable).isEmpty())
        return true; // also when a script is what runs
    for (const QString &running : services().workspace->runningExecutables()) {
        if (running.startsWith(path + u'/'))
            return true;
    }
    return false;
}

void MoveJob::openOtherCopy() const {
    (void)services().presentAlert(
        {.message = formatText(u"A copy of %@ in the Applications folder is already running."_s, {m_name}),
         .informative =
             formatText(u"If you want to replace the existing copy, first quit it and then relaunch this "
                        "copy. This copy of %@ will now quit."_s,
                        {m_name}),
         .buttons = {localizedString(u"Quit"_s)}});
    runTool(u"open"_s, {m_places.destinationPath()});
}

MoveJob::Outcome MoveJob::performUnauthorizedMove() {
    FileSystem &files = *services().fileSystem;
    const QString destination = m_places.destinationPath();
    const bool replaces = files.exists(destination);
    if (replaces && isRunningAt(destination)) {
        openOtherCopy();
        return Outcome::OtherCopyRuns;
    }
    // The copy grows under another name, so that half of it never stands under the application's; what a
    // killed move left there goes first. What stands at the destination stays until the copy is complete and
    // on disk.
    const QString staged = m_places.stagingPath();
    bool copied = files.remove(staged).isNull() && copyItemAtPath(m_places.bundlePath(), staged) &&
                  files.sync(staged).isNull();
    QString replaced;
    if (copied && replaces && !removeItemAtPath(destination, &replaced)) {
        (void)files.remove(staged);
        return Outcome::Failed;
    }
    copied = copied && files.move(staged, destination).isNull();
    if (!copied) {
        (void)files.remove(staged);
        if (!replaced.isEmpty() && files.move(replaced, destination))
            log(u"ERROR -- What stood at %@ is in the Trash: %@"_s, {destination, replaced});
        log(u"ERROR -- Could not copy myself to %@"_s, {destination});
        return Outcome::Failed;
    }
    // The old copy goes next: by then the new one's name must be on disk, too.
    if (const TXError error = files.syncFolder(destination.section(u'/', 0, -2)))
        log(u"WARNING -- Could not sync the folder of %@ (%@)"_s, {destination, error.toString()});
    runTool(u"xattr"_s, {u"-d"_s, u"-r"_s, u"com.apple.quarantine"_s, destination});
    return Outcome::Moved;
}

bool MoveJob::runPrivileged() const {
    const QString source = m_places.bundlePath();
    const QString destination = m_places.destinationPath();
    if (!destination.endsWith(u".app"_s) || destination.trimmed().isEmpty() || source.trimmed().isEmpty())
        return false;
    Authorization &authorization = *services().authorization;
    std::unique_ptr<AuthorizationReference> reference;
    if (authorization.create({}, AuthorizationFlagDefaults, reference) != AuthorizationSuccess)
        return false;
    // Nobody is asked for a password that would be of no use.
    const int status =
        authorization.canExecute()
            ? authorization.copyRights(*reference, {{.name = "system.privilege.admin"}}, {},
                                       AuthorizationFlagInteractionAllowed | AuthorizationFlagExtendRights |
                                           AuthorizationFlagPreAuthorize,
                                       nullptr)
            : AuthorizationDenied;
    bool done = false;
    if (status == AuthorizationCanceled) {
        log(u"INFO -- Not moving because user cancelled authorization"_s);
    } else if (status == AuthorizationSuccess) {
        // As without privileges, the copy grows under another name and what stands at the destination goes
        // when the copy is complete and on disk. Which application it moves the program knows itself.
        std::unique_ptr<Task> task;
        if (authorization.executeWithPrivileges(*reference, {u"move"_s, m_places.preferredInstallLocation()},
                                                AuthorizationFlagDefaults, task) == AuthorizationSuccess)
            done = isMoved(*task);
    }
    authorization.free(std::move(reference), AuthorizationFlagDefaults);
    return done;
}

MoveJob::Outcome MoveJob::performAuthorizedMove() {
    if (runPrivileged())
        return Outcome::Moved;
    log(u"ERROR -- Could not copy myself to /Applications with authorization"_s);
    return Outcome::Failed;
}

QString MoveJob::movedResources() const {
    // What waits for this process runs when the old copy has gone: it uses the tools of the moved one.
    const QString resources = services().resourcesPath();
    return resources.startsWith(m_places.bundlePath() + u'/')
               ? m_places.destinationPath() + resources.mid(m_places.bundlePath().size())
               : resources;
}

void MoveJob::setupRelaunchAfterExit() const {
    startShell(relaunchCommand(QCoreApplication::applicationPid(), m_places.destinationPath()),
               movedResources());
}

void MoveJob::moveOldCopyToTrash() const {
    if (const QString volume = m_places.diskImageVolumePath(); !volume.isNull()) {
        if (const QString image = ApplicationPlaces::diskImageFileForVolumePath(volume); !image.isNull())
            startShell(detachCommand(volume, image), movedResources());
    } else if (!removeItemAtPath(m_places.bundlePath())) {
        log(u"WARNING -- Could not delete application after moving it to Applications folder"_s);
    }
}

} // namespace tx
