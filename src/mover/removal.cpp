// SPDX-License-Identifier: MIT
#include "mover/removal.h"

#include "model/names.h"
#include "mover/menuentry.h"
#include "os/filesystem.h"
#include "os/mainbundle.h"
#include "os/packageowner.h"
#include "os/services.h"
#include "os/workspace.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

TXError refusal(const QString &what, const QString &why, const QString &advice = {}) {
    return TXError(updaterErrorDomain, 0, what, why, advice);
}

bool isRunning(const TXBundle &bundle) {
    const Workspace &workspace = *services().workspace;
    const QString executable = bundle.executablePath();
    if (!executable.isNull() && !workspace.runningApplications(executable).isEmpty())
        return true;
    const QStringList running = workspace.runningExecutables();
    return std::any_of(running.begin(), running.end(), [&bundle](const QString &program) {
        return program.startsWith(bundle.bundlePath() + u'/');
    });
}

/// Why the application must not be removed; null if it may be.
TXError reasonAgainst(const TXBundle &bundle) {
    const QString path = bundle.bundlePath();
    const QString what = u"%1 is not removed."_s.arg(path);
    if (isRunning(bundle))
        return refusal(what, u"It is running."_s, u"Quit it first."_s);
    if (QFileInfo(path).ownerId() != geteuid())
        return refusal(what, u"It belongs to another user."_s, u"Run the command as that user."_s);
    const auto owner = packageOwnerOf(path);
    if (!owner)
        return refusal(what,
                       u"It could not be determined whether it belongs to a package: %1."_s.arg(
                           owner.error().localizedDescription()),
                       u"Repair the database of the package manager, then try again."_s);
    if (*owner)
        return refusal(what,
                       u"It belongs to the package %1 of %2."_s.arg((*owner)->package, (*owner)->manager),
                       u"Remove the package instead."_s);
    return {};
}

Result<RemovedApplication> removeEntry(RemovedApplication removed) {
    const Result<QStringList> files = removeMenuEntry(removed.bundlePath);
    if (!files)
        return refusal(u"The menu entry of %1 could not be removed."_s.arg(removed.bundlePath),
                       files.error().toString(), u"Run the command again."_s);
    if (removed.trash.isNull() && files->isEmpty())
        return refusal(u"There is nothing at %1, and no menu entry belongs to it."_s.arg(removed.bundlePath),
                       {});
    removed.files = *files;
    return removed;
}

} // namespace

Result<RemovedApplication> removeApplication(const QString &path) {
    // The menu entry has the path without links in its folders.
    const QFileInfo named(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
    const QString folder = QFileInfo(named.path()).canonicalFilePath();
    RemovedApplication removed;
    removed.bundlePath =
        folder.isEmpty() ? named.filePath() : QDir::cleanPath(folder + u'/' + named.fileName());
    const QString what = u"%1 is not removed."_s.arg(removed.bundlePath);
    FileSystem &files = *services().fileSystem;
    if (!files.exists(removed.bundlePath))
        return removeEntry(removed);
    if (const QFileInfo info(removed.bundlePath); info.isSymLink())
        return refusal(what, u"It is a link to %1."_s.arg(info.symLinkTarget()),
                       u"Name the application itself."_s);
    const TXBundle bundle(removed.bundlePath);
    if (bundle.bundleIdentifier().isEmpty())
        return refusal(what, u"It is not an application: it has no Info.plist with a CFBundleIdentifier."_s);
    // The lock keeps updates and moves of the application away until it is removed.
    const auto lock = files.lockApplication(removed.bundlePath);
    if (!lock && lock.error().code() == EWOULDBLOCK)
        return refusal(what, u"It is being updated or moved by another program."_s, u"Try again later."_s);
    if (!lock)
        return refusal(what, lock.error().toString(), u"Check the permissions of its folder."_s);
    if (const TXError reason = reasonAgainst(bundle))
        return reason;
    const Result<QString> trash = services().workspace->moveToTrash(removed.bundlePath, removed.bundlePath);
    if (!trash)
        return refusal(u"%1 could not be moved to the Trash."_s.arg(removed.bundlePath),
                       trash.error().toString(),
                       u"Check the permissions of its folder and of the Trash, then try again."_s);
    removed.trash = *trash;
    setMainBundle(bundle);
    forgetMenuEntry();
    return removeEntry(removed);
}

} // namespace tx
