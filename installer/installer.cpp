// SPDX-License-Identifier: MIT
#include "installer/installer.h"

#include "installer/contents.h"

#include "platform/linux/openbundle.h"
#include "platform/linux/startable.h"

#include <cerrno>
#include <cstring>
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

class Installation {
public:
    Installation(const Arguments &arguments, Context &context)
        : m_arguments(arguments)
        , m_context(context)
        , m_files(*context.files)
        , m_staged(stagedPathFor(arguments.hostBundle))
        , m_backup(backupPathFor(arguments.hostBundle))
        , m_whole(wholePathFor(arguments.hostBundle)) {}

    int run() {
        int refusal = lock();
        if (refusal == StatusDone)
            refusal = awaitHost();
        if (refusal != StatusDone) {
            unlock();
            // The host stays, as it did not hear that it may end. One that has gone all the same comes back.
            if (!m_isInstalledByAnother && waitForEnd(m_arguments.hostProcess, std::chrono::milliseconds(0)))
                (void)open(refusal);
            return refusal;
        }
        int status = lockFolder() ? StatusDone : StatusTryLater;
        if (status == StatusDone) {
            repair();
            status = stage();
        }
        if (status == StatusDone)
            status = swap();
        if (status == StatusDone)
            clean();
        unlock();
        return open(status);
    }

private:
    /// Opens what stands at the application's place; `status`, or that it cannot be opened.
    int open(int status) {
        const std::string why = m_context.open(m_arguments.hostBundle, m_context.session);
        if (why.empty())
            return status;
        m_context.log(why);
        return status == StatusDone ? StatusCannotOpen : status;
    }

    /// One installation of an application at a time. Without the lock there is no installation: somebody may
    /// hold it, and where it cannot be made, nothing else can be made either.
    int lock() {
        const posix::FileError error = m_files.lock(lockPathFor(m_arguments.hostBundle), m_lock);
        m_isInstalledByAnother = error.number == EWOULDBLOCK;
        if (m_isInstalledByAnother)
            m_context.log("another installation of " + m_arguments.hostBundle + " is running");
        else if (error)
            m_context.log("cannot lock " + describe(error));
        return error ? StatusTryLater : StatusDone;
    }

    /// No installation while another host downloads into the folder of the new application. The host that
    /// started this one holds the lock until it ends.
    bool lockFolder() {
        // Made by the host; an archive that is installed by hand has none.
        const std::string path = posix::parentOf(m_arguments.archive) + ".lock";
        const posix::FileError error =
            posix::entryExists(path) ? m_files.lock(path, m_folderLock) : posix::FileError{};
        if (error.number == EWOULDBLOCK)
            m_context.log("another copy of the application uses " + posix::parentOf(m_arguments.archive));
        else if (error)
            m_context.log("cannot lock " + describe(error));
        return !error;
    }

    /// Finds out whether the application can be replaced, tells the host that it may end, and waits for that.
    int awaitHost() {
        // By making what will be made: the host is still there to say that it cannot be.
        removeLeftover(m_staged);
        posix::FileError error = m_files.makeDirectory(m_staged);
        if (!error)
            error = m_files.removeTree(m_staged);
        if (error) {
            m_context.log("nothing can be put beside the application: " + describe(error));
            return StatusCannotStage;
        }
        if (m_context.ready && !m_context.ready()) {
            m_context.log("the application does not wait for its replacement any more");
            return StatusTryLater;
        }
        if (waitForEnd(m_arguments.hostProcess, m_context.hostLimit))
            return StatusDone;
        m_context.log("the application (process " + std::to_string(m_arguments.hostProcess) +
                      ") does not end; it was not replaced");
        return StatusTryLater;
    }

    void unlock() {
        if (m_lock.isOpen()) {
            if (const posix::FileError error = m_files.removeFile(lockPathFor(m_arguments.hostBundle)))
                m_context.log("cannot remove " + describe(error));
        }
        m_lock.reset();
        m_folderLock.reset();
    }

    /// Undoes or finishes what an interrupted run left.
    void repair() {
        if (!posix::entryExists(m_arguments.hostBundle) && isOwnBackup(m_backup)) {
            if (m_files.rename(m_backup, m_arguments.hostBundle))
                m_context.log("the application could not be put back from " + m_backup);
            else
                m_context.log("an interrupted installation was undone");
        }
        if (isOwnBackup(m_whole)) {
            removeLeftover(m_arguments.hostBundle);
            if (m_files.rename(m_whole, m_arguments.hostBundle))
                m_context.log("the application could not be put back from " + m_whole);
            else
                m_context.log("an interrupted installation was undone");
        }
        // Whatever else stands there is a copy that was not finished, or an old application after the swap.
        removeLeftover(m_staged);
        if (posix::entryExists(m_arguments.hostBundle))
            removeLeftover(m_backup);
    }

    void removeLeftover(const std::string &path) {
        if (!posix::entryExists(path))
            return;
        if (const posix::FileError error = m_files.removeTree(path))
            m_context.log("cannot remove " + describe(error));
    }

    int stage() {
        struct stat host {};
        if (lstat(m_arguments.hostBundle.c_str(), &host) != 0) {
            m_context.log(m_arguments.hostBundle + ": " + std::strerror(errno));
            return StatusCannotStage;
        }
        const bool asRoot = geteuid() == 0;
        struct stat application {};
        (void)lstat(m_arguments.newApplication.c_str(), &application);
        const std::vector<posix::SpecialBits> special = posix::specialBitsBelow(m_arguments.newApplication);
        // As root, files that another user made are copied: that user may still hold them open or linked.
        const bool mayRename = !asRoot || application.st_uid == 0;
        posix::FileError error =
            mayRename ? m_files.rename(m_arguments.newApplication, m_staged) : posix::FileError{EXDEV, {}};
        m_renamed = !error;
        if (error.number == EXDEV)
            error = m_files.copyTree(m_arguments.newApplication, m_staged);
        if (!error && asRoot)
            error = m_files.changeOwner(m_staged, host.st_uid, host.st_gid);
        if (!error)
            error = limitSpecialBits(special);
        if (!error)
            error = m_files.syncFileSystem(m_staged);
        // It may have changed since this tool first looked at it.
        const std::string why = error ? describe(error) : whyItCannotStart(m_staged, m_arguments.hostBundle);
        if (why.empty())
            return StatusDone;
        m_context.log("the new application cannot be put into place: " + why);
        unstage();
        return StatusCannotStage;
    }

    /// A program runs with its owner's rights only when the one that it replaces does.
    posix::FileError limitSpecialBits(const std::vector<posix::SpecialBits> &special) {
        for (const posix::SpecialBits &file : special) {
            struct stat installed {};
            const bool isFile = lstat((m_arguments.hostBundle + file.path).c_str(), &installed) == 0 &&
                                S_ISREG(installed.st_mode);
            const mode_t bits = S_ISUID | S_ISGID;
            const mode_t mode = (file.mode & ~bits) | (isFile ? file.mode & installed.st_mode & bits : 0);
            if (posix::FileError error = m_files.changeMode(m_staged + file.path, mode))
                return error;
        }
        return {};
    }

    /// Puts the new application back where it was, so that a later try finds it.
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
        // The old application must not be gone from the disk before the new one is there.
        if (const posix::FileError sync = m_files.syncDirectory(posix::parentOf(m_arguments.hostBundle)))
            m_context.log("cannot sync " + describe(sync));
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

    /// For folders of a lower layer, which cannot be renamed at all. The next run, or the next opening, puts
    /// the whole copy back after an interruption.
    posix::FileError swapByCopying() {
        const std::string parent = posix::parentOf(m_arguments.hostBundle);
        struct stat host {};
        (void)lstat(m_arguments.hostBundle.c_str(), &host);
        posix::FileError error = m_files.copyTree(m_arguments.hostBundle, m_backup);
        if (!error && geteuid() == 0)
            error = m_files.changeOwner(m_backup, host.st_uid, host.st_gid);
        if (!error)
            error = m_files.syncFileSystem(m_backup);
        if (!error)
            error = m_files.rename(m_backup, m_whole);
        if (!error)
            error = m_files.syncDirectory(parent);
        if (!error)
            error = m_files.removeTree(m_arguments.hostBundle);
        if (!error)
            error = m_files.rename(m_staged, m_arguments.hostBundle);
        if (!error)
            error = m_files.syncDirectory(parent);
        // From then on it is no more than a leftover, which goes: half of it must not be put back.
        if (!error)
            error = m_files.rename(m_whole, m_backup);
        if (!error)
            error = m_files.syncDirectory(parent);
        if (!error)
            return {};
        removeLeftover(m_backup);
        if (posix::entryExists(m_whole)) {
            // What stands at its place may be the new one already: it goes back to where it was tried from.
            removeLeftover(m_arguments.hostBundle);
            if (m_files.rename(m_whole, m_arguments.hostBundle))
                m_context.log("the application could not be put back from " + m_whole);
        }
        return error;
    }

    void clean() {
        removeLeftover(m_staged);
        removeLeftover(m_backup);
        // What stands in the user's own folder is removed with no more rights than the user has.
        const bool lowered = m_context.session.dropsPrivileges && setegid(m_context.session.group) == 0 &&
                             seteuid(m_context.session.user) == 0;
        removeLeftover(m_arguments.newApplication);
        if (const posix::FileError error = m_files.removeFile(m_arguments.archive))
            m_context.log("cannot remove " + describe(error));
        if (!m_context.toolBundle.empty())
            removeLeftover(m_context.toolBundle);
        if (!m_context.environmentRecord.empty())
            (void)m_files.removeFile(m_context.environmentRecord);
        if (lowered && (seteuid(0) != 0 || setegid(0) != 0))
            m_context.log("cannot regain privileges");
    }

    const Arguments &m_arguments;
    Context &m_context;
    Files &m_files;
    const std::string m_staged;
    const std::string m_backup;
    const std::string m_whole;
    posix::Descriptor m_lock;
    posix::Descriptor m_folderLock;
    bool m_isInstalledByAnother = false;
    bool m_renamed = false;
};

} // namespace

bool readArguments(const std::vector<std::string> &words, Arguments &arguments, std::string &why) {
    if (words.size() != 4) {
        why = "usage: TXUpdateInstaller PID NEW-APPLICATION HOST-BUNDLE ARCHIVE";
        return false;
    }
    char *end = nullptr;
    errno = 0;
    const long process = std::strtol(words[0].c_str(), &end, 10);
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
    // After an interrupted installation the old application may stand beside its place.
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

int install(const Arguments &arguments, Context &context) {
    if (!replacesContents(arguments, context))
        return Installation(arguments, context).run();
    const Arguments inside = contentsArguments(arguments);
    Context insideContext = contentsContext(arguments, context);
    return Installation(inside, insideContext).run();
}

} // namespace tx::installer
