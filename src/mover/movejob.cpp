// SPDX-License-Identifier: MIT
#include "mover/movejob.h"

#include "base/format.h"
#include "mover/movequestion.h"
#include "mover/replacement.h"
#include "os/authorization.h"
#include "os/filesystem.h"
#include "os/frameworkresources.h"
#include "os/localization.h"
#include "os/packageowner.h"
#include "os/relaunchcommand.h"
#include "os/services.h"
#include "os/tasks.h"
#include "os/workspace.h"

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXLog.h>

#include <QCoreApplication>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

void log(const QString &format, const QStringList &arguments = {}) {
    TXLog(TXLogLevelAlways, format, arguments);
}

/// Runs one of the framework's tools to its end; failures are ignored.
void runTool(const QString &name, const QStringList &arguments) {
    auto task =
        services().tasks->start({.program = frameworkResourcesPath() + u'/' + name, .arguments = arguments});
    if (task)
        (void)(*task)->wait();
}

/// The system's message for what went wrong.
QString reasonOf(const TXError &error) {
    return error.localizedFailureReason().isEmpty() ? error.localizedDescription()
                                                    : error.localizedFailureReason();
}

} // namespace

TXError removeItemAtPath(const QString &path, const QString &original) {
    // On this thread: the caller waits for it in any case.
    const QString named = original.isEmpty() ? path : original;
    const Result<QString> trashed = services().workspace->moveToTrash(path, named);
    if (trashed)
        return {};
    log(u"ERROR -- Could not trash '%@':\n%@"_s, {named, trashed.error().toString()});
    return trashed.error();
}

TXError copyItemAtPath(const QString &from, const QString &to) {
    TXError error = services().fileSystem->linkOrCopy(from, to);
    if (error)
        log(u"ERROR -- Could not copy '%@' to '%@' (%@)"_s, {from, to, error.toString()});
    return error;
}

QString detachCommand(const QString &volumePath, const QString &imageFile) {
    return formatText(u"(sleep 5 && hdiutil detach '%@' && rm '%@') &"_s,
                      {insideSingleQuotes(volumePath), insideSingleQuotes(imageFile)});
}

MoveJob::Outcome MoveJob::performMove() {
    if (replacesPackage())
        return Outcome::Failed;
    return m_places.needsAuthorization() ? performAuthorizedMove() : performUnauthorizedMove();
}

bool MoveJob::replacesPackage() {
    const QString destination = m_places.destinationPath();
    if (!services().fileSystem->exists(destination))
        return false;
    // Of a link itself, not of its target, which is not moved.
    const auto owner = packageOwnerOfEntry(destination);
    if (owner && !*owner)
        return false;
    if (owner) {
        const QStringList names{destination, (*owner)->package, (*owner)->manager};
        log(u"ERROR -- %@ is not replaced: it belongs to the package %@ of %@"_s, names);
        m_failureText =
            formatText(moverText(u"%@ is not replaced, because it belongs to the package %@ of %@. Use "
                                 "that application, or remove the package first."_s),
                       names);
    } else {
        log(u"ERROR -- %@ is not replaced: whether it belongs to a package could not be determined. %@"_s,
            {destination, owner.error().toString()});
        m_failureText = formatText(
            moverText(
                u"%@ is not replaced, because it could not be determined whether it belongs to a package: "
                "%@. Repair the database of the package manager, then try again."_s),
            {destination, reasonOf(owner.error())});
    }
    return true;
}

bool MoveJob::isRunningAt(const QString &path) const {
    const QString executable = TXBundle(path).executablePath();
    if (!executable.isEmpty() && !services().workspace->runningApplications(executable).isEmpty())
        return true; // also if the running program is a script
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

MoveJob::Outcome MoveJob::fail(const QString &text, const QStringList &arguments) {
    m_failureText = formatText(text, arguments);
    return Outcome::Failed;
}

MoveJob::Outcome MoveJob::failToCopy(const TXError &error) {
    return fail(moverText(u"The application could not be copied to the folder %@: %@. It is still where it "
                          "was."_s),
                {m_places.preferredInstallLocation(), reasonOf(error)});
}

MoveJob::Outcome MoveJob::performUnauthorizedMove() {
    FileSystem &files = *services().fileSystem;
    const QString destination = m_places.destinationPath();
    if (files.exists(destination) && isRunningAt(destination)) {
        openOtherCopy();
        return Outcome::OtherCopyRuns;
    }
    // Everyone who changes the destination holds this lock: an installation, another move, an opening that
    // repairs an interruption. It is released before the moved application is opened.
    const auto lock = files.lockApplication(destination);
    if (!lock) {
        const TXError error = lock.error();
        log(u"ERROR -- Could not lock '%@' (%@)"_s, {destination, error.toString()});
        if (error.code() == EWOULDBLOCK)
            return fail(moverText(u"%@ is being updated or moved by another program. Wait until that has "
                                  "finished, then try again."_s),
                        {destination});
        if (error.code() == ENOSPC || error.code() == EDQUOT)
            return failToCopy(error); // the disk is too full for a lock file
        return fail(moverText(u"It could not be determined whether %@ is being updated: %@. Check the "
                              "permissions of %@, then try again."_s),
                    {destination, reasonOf(error), error.userInfo()[u"path"_s].toString()});
    }
    // Restore what an interrupted installation left now. Otherwise opening the moved application would
    // restore it over that application.
    if (const TXError error = files.undoInterruption(destination)) {
        log(u"ERROR -- Could not undo the interrupted installation of '%@' (%@)"_s,
            {destination, error.toString()});
        return fail(
            moverText(u"An interrupted update of %@ could not be undone: %@. Check the permissions of "
                      "the folder %@, then try again."_s),
            {destination, reasonOf(error), m_places.preferredInstallLocation()});
    }
    return replaceDestination(destination);
}

MoveJob::Outcome MoveJob::replaceDestination(const QString &destination) {
    FileSystem &files = *services().fileSystem;
    // The copy is created under another name, so that a part of it is never at the destination. What is there
    // stays until the copy is complete and on disk.
    Replacement replacement(destination);
    // What a killed move replaced goes to the Trash, as intended. If the destination is empty, it was not
    // restored because somebody else could have put it there; then it is left alone.
    if (files.exists(destination) && files.exists(replacement.oldPath()) &&
        !trashOld(replacement, destination, replacement.oldPath()))
        return Outcome::Failed;
    TXError error = files.remove(replacement.stagedPath());
    if (!error)
        error = copyItemAtPath(m_places.bundlePath(), replacement.stagedPath());
    if (!error) {
        error = files.sync(replacement.stagedPath());
        if (error)
            (void)files.remove(replacement.stagedPath());
    }
    if (!error)
        error = replacement.takeName();
    if (error) {
        log(u"ERROR -- Could not copy myself to %@"_s, {destination});
        return failToCopy(error);
    }
    // Until its new name is on disk, a power failure may lose the copy. In that case the original (even in a
    // disk image) and what the copy replaced are kept.
    if (const TXError unsynced = files.syncFolder(destination.section(u'/', 0, -2))) {
        log(u"ERROR -- Could not sync the folder of %@ (%@)"_s, {destination, unsynced.toString()});
        if (replacement.hasReplaced())
            log(u"ERROR -- What was at %@ is at %@"_s, {destination, replacement.oldPath()});
        return fail(
            moverText(u"The application was copied to %@, but the disk may not hold the copy: %@. The "
                      "application that you opened is still where it was. Check the disk, then try "
                      "again."_s),
            {destination, reasonOf(unsynced)});
    }
    if (replacement.hasReplaced() && !trashOld(replacement, destination, destination)) {
        (void)replacement.putBack(); // otherwise the log says where it is
        return Outcome::Failed;
    }
    runTool(u"xattr"_s, {u"-d"_s, u"-r"_s, u"com.apple.quarantine"_s, destination});
    return Outcome::Moved;
}

bool MoveJob::trashOld(const Replacement &replacement, const QString &destination, const QString &shown) {
    const TXError why = removeItemAtPath(replacement.oldPath(), destination);
    if (!why)
        return true;
    if (why.userInfo().contains(u"trashed"_s)) {
        // The Trash has a complete copy, but removing the original failed in between. Renamed like an
        // unfinished copy, the rest is never restored, and the next move removes it.
        (void)services().fileSystem->rename(replacement.oldPath(), replacement.stagedPath());
        return true;
    }
    m_failureText = formatText(
        moverText(u"What is at %@ already could not be moved to the Trash: %@. Remove it yourself, then try "
                  "again."_s),
        {shown, reasonOf(why)});
    return false;
}

bool MoveJob::isMoved(Task &task) {
    constexpr qsizetype longestAnswer = 4096;
    QByteArray answer;
    for (QByteArray more; answer.size() < longestAnswer && !(more = task.read()).isEmpty();)
        answer += more;
    if (answer == "moved\n" && task.wait() == 0)
        return true;
    const QString reason =
        answer.isEmpty() ? u"it gave no reason"_s : QString::fromLocal8Bit(answer).trimmed();
    log(u"ERROR -- The privileged program did not move the application: %@"_s, {reason});
    m_failureText = formatText(moverText(u"The program that moves the application as an administrator "
                                         "failed: %@. The application is still where it was."_s),
                               {reason});
    return false;
}

bool MoveJob::runPrivileged() {
    const QString source = m_places.bundlePath();
    const QString destination = m_places.destinationPath();
    if (destination.isNull()) {
        m_failureText =
            formatText(moverText(u"There is no folder %@. Create the folder %@ for applications of "
                                 "your own."_s),
                       {services().folders.localApplications(), services().folders.userApplications()});
        return false;
    }
    if (!destination.endsWith(u".app"_s) || source.trimmed().isEmpty()) {
        m_failureText = formatText(
            moverText(u"%@ is not an application: its name does not end in \".app\". Move it yourself."_s),
            {source});
        return false;
    }
    m_failureText = moverText(u"The system did not grant an administrator's rights. Ask an administrator to "
                              "move the application."_s);
    Authorization &authorization = *services().authorization;
    std::unique_ptr<AuthorizationReference> reference;
    if (authorization.create({}, AuthorizationFlagDefaults, reference) != AuthorizationSuccess)
        return false;
    // Does not ask for a password that would not help.
    int status = AuthorizationDenied;
    if (m_places.canGetAuthorization())
        status = authorization.copyRights(*reference, {{.name = "system.privilege.admin"}}, {},
                                          AuthorizationFlagInteractionAllowed |
                                              AuthorizationFlagExtendRights | AuthorizationFlagPreAuthorize,
                                          nullptr);
    else
        m_failureText = formatText(
            moverText(
                u"Only an administrator can change the folder %@, and this application cannot ask for an "
                "administrator's password. Create the folder %@ for applications of your own, and "
                "then try again."_s),
            {m_places.preferredInstallLocation(), services().folders.userApplications()});
    bool done = false;
    if (status == AuthorizationCanceled) {
        log(u"INFO -- Not moving because user cancelled authorization"_s);
        m_failureText = moverText(u"No administrator's password was given. The application is still where it "
                                  "was."_s);
    } else if (status == AuthorizationSuccess) {
        // As without privileges, the copy is created under another name, and what is at the destination is
        // removed when the copy is complete and on disk. The program knows by itself which application it
        // moves.
        std::unique_ptr<Task> task;
        if (authorization.executeWithPrivileges(*reference,
                                                {{u"move"_s, m_places.preferredInstallLocation()}},
                                                AuthorizationFlagDefaults, task) == AuthorizationSuccess)
            done = isMoved(*task);
    }
    authorization.free(std::move(reference), AuthorizationFlagDefaults);
    if (done)
        m_failureText.clear();
    return done;
}

MoveJob::Outcome MoveJob::performAuthorizedMove() {
    if (runPrivileged())
        return Outcome::Moved;
    log(u"ERROR -- Could not copy myself to /Applications with authorization"_s);
    return Outcome::Failed;
}

QString MoveJob::movedResources() const {
    // What waits for this process runs after the old copy was removed, so it uses the tools of the moved one.
    const QString resources = services().resourcesPath();
    return resources.startsWith(m_places.bundlePath() + u'/')
               ? m_places.destinationPath() + resources.mid(m_places.bundlePath().size())
               : resources;
}

void MoveJob::setupRelaunchAfterExit() const {
    // A failure is ignored: the user can open the moved application.
    (void)services().tasks->start(
        relaunchByShell(QCoreApplication::applicationPid(), m_places.destinationPath(), movedResources()));
}

void MoveJob::moveOldCopyToTrash() const {
    if (const QString volume = m_places.diskImageVolumePath(); !volume.isNull()) {
        if (const QString image = ApplicationPlaces::diskImageFileForVolumePath(volume); !image.isNull())
            (void)services().tasks->start(outlivingShell(detachCommand(volume, image), movedResources()));
    } else if (removeItemAtPath(m_places.bundlePath())) {
        log(u"WARNING -- Could not delete application after moving it to Applications folder"_s);
    }
}

} // namespace tx
