// SPDX-License-Identifier: MIT
#include "installer/installer.h"

#include "installer/contents.h"

#include "posix/bundleinfo.h"
#include "posix/interrupted.h"
#include "posix/rootspath.h"
#include "posix/startable.h"
#include "posix/trustedpath.h"
#include "posix/updatefoldernames.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::installer {

namespace {

std::string describe(const posix::FileError &error) {
    return error.path + ": " + std::strerror(error.number);
}

bool isAbsolute(const std::string &path) { return !path.empty() && path.front() == '/'; }

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

/// Resolves links in the folders of `path`; the last component is not resolved.
bool resolveFolders(std::string &path) {
    const std::string name = posix::lastComponentOf(path);
    const std::unique_ptr<char, decltype(&std::free)> parent(realpath(posix::parentOf(path).c_str(), nullptr),
                                                             &std::free);
    if (!parent)
        return false;
    path = std::string(parent.get()) + (parent.get() == std::string("/") ? "" : "/") + name;
    return true;
}

class Installation {
public:
    Installation(const Arguments &arguments, Context &context)
        : m_arguments(arguments)
        , m_context(context)
        , m_files(*context.files)
        , m_staged(stagedPathFor(arguments.hostBundle))
        , m_backup(backupPathFor(arguments.hostBundle))
        , m_whole(wholePathFor(arguments.hostBundle))
        , m_gone(gonePathFor(arguments.hostBundle)) {}

    int run() {
        int refusal = lock();
        if (refusal == StatusDone)
            refusal = awaitHost();
        if (refusal != StatusDone) {
            unlock();
            // The host stays, because it was not told to end. If it has ended anyway, it is opened again.
            if (!m_isInstalledByAnother && waitForEnd(m_arguments.hostProcess, std::chrono::milliseconds(0)))
                (void)open(refusal);
            return refusal;
        }
        const int status = replace();
        unlock();
        // With wrong rights, nothing more is done.
        return status == StatusNoRights ? status : open(status);
    }

private:
    /// Opens the application at its path. Returns `status`, or the status for an opening that failed.
    int open(int status) {
        const std::string why = m_context.open(m_arguments.hostBundle, m_context.session);
        if (why.empty())
            return status;
        m_context.log(why);
        return status == StatusDone ? StatusCannotOpen : status;
    }

    int replace() {
        int status = lockFolder();
        if (status == StatusDone)
            status = repair();
        if (status == StatusDone)
            status = stage();
        if (status == StatusDone)
            status = swap();
        if (status == StatusDone && !m_keepsOld)
            status = clean();
        return status;
    }

    /// One installation of an application at a time. Without the lock nothing is installed: somebody may hold
    /// it, and where it cannot be created, nothing else can be created either.
    int lock() {
        const posix::FileError error = m_files.lock(lockPathFor(m_arguments.hostBundle), m_lock);
        m_isInstalledByAnother = error.number == EWOULDBLOCK;
        if (m_isInstalledByAnother)
            m_context.log("another installation of " + m_arguments.hostBundle + " is running");
        else if (error)
            m_context.log("cannot lock " + describe(error));
        return error ? StatusTryLater : StatusDone;
    }

    /// Fails while another host downloads into the folder of the new application, which belongs to the user.
    int lockFolder() {
        const std::string folder = posix::parentOf(m_arguments.archive);
        const std::string lock = folder + updateFolderLockSuffix;
        if (!lowerRights())
            return StatusNoRights;
        // Created by the host, which holds the lock until it ends. For an archive installed by hand there is
        // none.
        struct stat info {};
        posix::FileError error = m_files.examine(lock, info);
        error = error.number == ENOENT ? posix::FileError{} : m_files.lock(lock, m_folderLock);
        if (error.number == EWOULDBLOCK)
            m_context.log("another copy of the application uses " + folder);
        else if (error)
            m_context.log("cannot lock " + describe(error));
        if (!raiseRights())
            return StatusNoRights;
        return error ? StatusTryLater : StatusDone;
    }

    /// Checks whether the application can be replaced, tells the host that it may end, and waits until it
    /// has.
    int awaitHost() {
        // Creates an entry as a test, while the host can still report a failure. The name is one whose
        // content is never needed again.
        removeLeftover(m_gone);
        posix::FileError error = m_files.makeDirectory(m_gone);
        if (!error)
            error = m_files.removeTree(m_gone);
        if (error) {
            m_context.log("nothing can be put beside the application: " + describe(error));
            return StatusCannotStage;
        }
        if (m_context.ready && !m_context.ready()) {
            m_context.log("the application does not wait for its replacement any more");
            return StatusTryLater;
        }
        const auto deadline = std::chrono::steady_clock::now() + m_context.hostLimit;
        do {
            constexpr std::chrono::milliseconds pause(500);
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            const bool ended = waitForEnd(m_arguments.hostProcess, std::min(pause, left));
            if (m_context.unheard && m_context.unheard()) {
                m_context.log("the application has not heard that it can be replaced; it was not replaced");
                return StatusTryLater;
            }
            if (ended)
                return StatusDone;
        } while (std::chrono::steady_clock::now() < deadline);
        m_context.log("the application (process " + std::to_string(m_arguments.hostProcess) +
                      ") does not end; it was not replaced");
        return StatusTryLater;
    }

    bool lowerRights() {
        if (m_context.rights->lower(m_context.session))
            return true;
        m_context.log(std::string("cannot give up the rights of an administrator: ") + std::strerror(errno));
        return false;
    }

    bool raiseRights() {
        if (m_context.rights->raise(m_context.session))
            return true;
        m_context.log(std::string("cannot regain the rights of an administrator: ") + std::strerror(errno));
        return false;
    }

    void unlock() {
        if (m_lock.isOpen()) {
            if (isVerified())
                removeLeftover(verifiedPathFor(m_arguments.hostBundle));
            if (const posix::FileError error = m_files.removeFile(lockPathFor(m_arguments.hostBundle)))
                m_context.log("cannot remove " + describe(error));
        }
        m_lock.reset();
        m_folderLock.reset();
    }

    /// Undoes or finishes what an interrupted run left.
    int repair() {
        bool putBack = false;
        if (const posix::FileError error = undoInterruption(m_arguments.hostBundle, m_files, putBack)) {
            m_context.log("an interrupted installation could not be undone, the application could not be "
                          "put back from beside " +
                          describe(error));
            return StatusCannotStage;
        }
        if (putBack)
            m_context.log("an interrupted installation was undone");
        // The staging folder and the backup contain an unfinished copy, or the old application after the
        // swap. Both may be removed once the application at the path is synced to disk.
        std::vector<std::string> leftovers{m_staged, m_backup, m_gone};
        if (!isVerified())
            leftovers.push_back(verifiedPathFor(m_arguments.hostBundle));
        bool hasLeftover = false;
        for (const std::string &path : leftovers)
            hasLeftover = hasLeftover || posix::entryExists(path);
        if (!hasLeftover || !posix::entryExists(m_arguments.hostBundle))
            return StatusDone;
        if (const posix::FileError error = m_files.syncDirectory(posix::parentOf(m_arguments.hostBundle))) {
            m_context.log("cannot sync " + describe(error));
            return StatusCannotStage;
        }
        for (const std::string &path : leftovers)
            removeLeftover(path);
        return StatusDone;
    }

    void removeLeftover(const std::string &path) {
        if (!posix::entryExists(path))
            return;
        if (const posix::FileError error = m_files.removeTree(path))
            m_context.log("cannot remove " + describe(error));
    }

    int stage() {
        struct stat host {};
        if (const posix::FileError error = m_files.examine(m_arguments.hostBundle, host)) {
            m_context.log(describe(error));
            return StatusCannotStage;
        }
        posix::FileError error =
            mayRename() ? m_files.rename(m_arguments.newApplication, m_staged) : posix::FileError{EXDEV, {}};
        m_renamed = !error;
        if (error.number == EXDEV) {
            posix::CopyRules rules;
            rules.bitsAsIn = m_arguments.hostBundle;
            if (geteuid() == 0) {
                rules.onlyFrom = isVerified() ? 0 : m_context.session.user;
                rules.givenTo = std::pair(host.st_uid, host.st_gid);
            }
            error = m_files.copyTree(m_arguments.newApplication, m_staged, rules);
        } else if (!error) {
            if (geteuid() == 0)
                error = m_files.changeOwner(m_staged, host.st_uid, host.st_gid);
            if (!error)
                error = m_files.limitSpecialBits(m_staged, m_arguments.hostBundle);
        }
        if (!error)
            error = m_files.syncFileSystem(m_staged);
        std::string why = error ? describe(error) : "";
        if (!error) {
            // It may have changed since the first check. Its property list still belongs to the user.
            if (!lowerRights())
                return StatusNoRights;
            why = whyItCannotStart(m_staged, m_arguments.hostBundle);
            if (!raiseRights())
                return StatusNoRights;
        }
        if (why.empty())
            return StatusDone;
        m_context.log("the new application cannot be put into place: " + why);
        unstage();
        return StatusCannotStage;
    }

    /// As root, copies what another user may still hold open, have linked or reach.
    bool mayRename() const {
        std::string resolved;
        return geteuid() != 0 || ((m_context.session.user == 0 || isVerified()) &&
                                  posix::untrustedPart(m_arguments.newApplication, resolved, 0).empty());
    }

    /// True if root has verified and unpacked the update; the user's own copy is not installed then.
    bool isVerified() const { return !m_context.unpackedByUser.empty(); }

    /// Restores the new application to its old path, so that a later attempt finds it.
    void unstage() {
        if (m_renamed && !m_files.rename(m_staged, m_arguments.newApplication))
            return;
        removeLeftover(m_staged);
    }

    int swap() {
        posix::FileError error = m_files.exchange(m_staged, m_arguments.hostBundle);
        if (error.number == EINVAL || error.number == ENOSYS || error.number == EOPNOTSUPP)
            error = swapByRenaming();
        if (error.number == EXDEV)
            error = swapByCopying();
        if (error) {
            m_context.log("the application cannot be replaced: " + describe(error));
            unstage();
            return StatusCannotSwap;
        }
        // The old application must not be removed from the disk before the new one is on it.
        if (const posix::FileError sync = m_files.syncDirectory(posix::parentOf(m_arguments.hostBundle))) {
            m_context.log("cannot sync " + describe(sync) +
                          "; the old application stays beside the new one until the next installation");
            m_keepsOld = true;
        }
        return StatusDone;
    }

    /// For file systems that cannot exchange two entries. The next run undoes an interruption in between.
    posix::FileError swapByRenaming() {
        if (posix::FileError error = m_files.rename(m_arguments.hostBundle, m_backup))
            return error;
        posix::FileError error = m_files.rename(m_staged, m_arguments.hostBundle);
        if (error && m_files.rename(m_backup, m_arguments.hostBundle))
            m_context.log("the application could not be put back from " + m_backup);
        return error;
    }

    /// For folders of a lower layer, which cannot be renamed at all. After an interruption, the next run or
    /// the next opening restores the complete copy.
    posix::FileError swapByCopying() {
        const std::string parent = posix::parentOf(m_arguments.hostBundle);
        posix::CopyRules exactly;
        exactly.keepsOwners = true;
        posix::FileError error = m_files.copyTree(m_arguments.hostBundle, m_backup, exactly);
        if (!error)
            error = m_files.syncFileSystem(m_backup);
        if (!error)
            error = m_files.rename(m_backup, m_whole);
        if (error) {
            removeLeftover(m_backup);
            return error;
        }
        error = m_files.syncDirectory(parent);
        if (error) {
            // Nothing was taken from the installed application.
            if (!m_files.rename(m_whole, m_backup))
                removeLeftover(m_backup);
            return error;
        }
        error = m_files.removeTree(m_arguments.hostBundle);
        if (!error)
            error = m_files.rename(m_staged, m_arguments.hostBundle);
        if (!error)
            error = m_files.syncDirectory(parent);
        // From then on it is only a leftover to be removed: a part of it must not be restored.
        if (!error)
            error = m_files.rename(m_whole, m_backup);
        if (error && putWholeBack(m_arguments.hostBundle, m_files))
            m_context.log("the application could not be put back from " + m_whole);
        return error;
    }

    int clean() {
        removeLeftover(m_staged);
        removeLeftover(m_backup);
        // What is in the user's own folder is removed with the user's rights only.
        if (!lowerRights())
            return StatusNoRights;
        removeLeftover(isVerified() ? m_context.unpackedByUser : m_arguments.newApplication);
        if (const posix::FileError error = m_files.removeFile(m_arguments.archive))
            m_context.log("cannot remove " + describe(error));
        if (!m_context.toolBundle.empty())
            removeLeftover(m_context.toolBundle);
        if (!m_context.environmentRecord.empty())
            (void)m_files.removeFile(m_context.environmentRecord);
        return raiseRights() ? StatusDone : StatusNoRights;
    }

    const Arguments &m_arguments;
    Context &m_context;
    Files &m_files;
    const std::string m_staged;
    const std::string m_backup;
    const std::string m_whole;
    const std::string m_gone;
    posix::Descriptor m_lock;
    posix::Descriptor m_folderLock;
    bool m_isInstalledByAnother = false;
    bool m_renamed = false;
    bool m_keepsOld = false; ///< after a swap that may not be on the disk yet
};

} // namespace

bool parseArguments(const std::vector<std::string> &words, Arguments &arguments, std::string &why) {
    if (words.size() != 4) {
        why = "usage: TXUpdateInstaller PID NEW-APPLICATION HOST-BUNDLE ARCHIVE";
        return false;
    }
    char *end = nullptr;
    errno = 0;
    const long long process = std::strtoll(words[0].c_str(), &end, 10);
    if (words[0].empty() || *end != '\0' || errno != 0 || process <= 1 || process > 0x7FFFFFFF ||
        process == getpid()) {
        why = "\"" + words[0] + "\" is not the process identifier of an application";
        return false;
    }
    for (size_t i = 1; i < words.size(); ++i) {
        if (!isAbsolute(words[i])) {
            why = "\"" + words[i] + "\" is not an absolute path";
            return false;
        }
    }
    arguments = {static_cast<pid_t>(process), withoutTrailingSlashes(words[1]),
                 withoutTrailingSlashes(words[2]), words[3]};
    return true;
}

bool checkBundles(Arguments &arguments, std::string &why) {
    for (std::string *path : {&arguments.newApplication, &arguments.hostBundle, &arguments.archive}) {
        if (!resolveFolders(*path)) {
            why = "the folder of " + *path + " cannot be found: " + std::strerror(errno);
            return false;
        }
    }
    if (!posix::isDirectory(arguments.newApplication)) {
        why = arguments.newApplication + " is no application";
        return false;
    }
    BundleInfo fresh;
    BundleInfo installed;
    if (!readBundleInfo(arguments.newApplication, fresh) || fresh.identifier.empty()) {
        why = arguments.newApplication + " is no application with a bundle identifier";
        return false;
    }
    // After an interrupted installation the old application may be beside its path.
    const bool interrupted = !posix::entryExists(arguments.hostBundle);
    const std::string whole = wholePathFor(arguments.hostBundle);
    std::string host = isOwnBackup(whole) ? whole
                       : interrupted      ? backupPathFor(arguments.hostBundle)
                                          : arguments.hostBundle;
    host = standingContents(host);
    if (!posix::isDirectory(host) || !readBundleInfo(host, installed) || installed.identifier.empty()) {
        why = arguments.hostBundle + " is no application with a bundle identifier";
        return false;
    }
    if (fresh.identifier != installed.identifier) {
        why = "the identifiers differ: " + fresh.identifier + " would replace " + installed.identifier;
        return false;
    }
    why = whyItCannotStart(arguments.newApplication, arguments.hostBundle);
    return why.empty();
}

bool readArguments(const std::vector<std::string> &words, Arguments &arguments, std::string &why) {
    return parseArguments(words, arguments, why) && checkBundles(arguments, why);
}

std::string notVerified(const Arguments &arguments) {
    if (posix::parentOf(arguments.newApplication) != verifiedPathFor(arguments.hostBundle))
        return arguments.newApplication + " is not in " + verifiedPathFor(arguments.hostBundle);
    posix::Descriptor entry;
    return posix::openRootsOwn(arguments.newApplication, entry);
}

void discardVerified(const std::string &hostBundle, Files &files) {
    posix::Descriptor lock;
    if (files.lock(lockPathFor(hostBundle), lock))
        return;
    (void)files.removeTree(verifiedPathFor(hostBundle));
    (void)files.removeFile(lockPathFor(hostBundle));
}

int install(const Arguments &arguments, Context &context) {
    if (!replacesContents(arguments, context))
        return Installation(arguments, context).run();
    const Arguments inside = contentsArguments(arguments);
    Context insideContext = contentsContext(arguments, context);
    return Installation(inside, insideContext).run();
}

} // namespace tx::installer
