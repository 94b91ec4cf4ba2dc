// SPDX-License-Identifier: MIT
#include "platform/linux/openbundle.h"

#include "platform/linux/bundlecontents.h"
#include "platform/linux/posixfiles.h"
#include "platform/linux/userfolders.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <grp.h>
#include <memory>
#include <pwd.h>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tx {

namespace {

constexpr size_t maximumSize = 4 << 20;

std::string readSmallFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::string content;
    char buffer[16384];
    while (file && content.size() < maximumSize) {
        file.read(buffer, sizeof buffer);
        content.append(buffer, static_cast<size_t>(file.gcount()));
    }
    return content;
}

std::string realPath(const std::string &path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::string(resolved.get()) : path;
}

/// The second word of a process's command line: the script, when the first is its interpreter.
std::string scriptOf(const std::string &processFolder) {
    const std::string commandLine = readSmallFile(processFolder + "/cmdline");
    const size_t end = commandLine.find('\0');
    return end == std::string::npos ? std::string() : std::string(commandLine.c_str() + end + 1);
}

bool isScript(const std::string &executable) {
    std::ifstream file(executable, std::ios::binary);
    char magic[2] = {};
    return file.read(magic, 2) && magic[0] == '#' && magic[1] == '!';
}

/// One opener at a time per bundle path; the lock stands in the user's own folder so that nobody else can
/// hold it.
posix::Descriptor lockFor(const std::string &bundlePath) {
    const std::string folder = posix::privateTemporaryFolder();
    if (folder.empty())
        return posix::Descriptor();
    const size_t hash = std::hash<std::string>{}(bundlePath);
    std::ostringstream name;
    name << folder << "/open-" << std::hex << hash << ".lock";
    posix::Descriptor fd(open(name.str().c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    while (fd.isOpen() && flock(fd.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
    return fd;
}

/// Runs in the grandchild: only what is safe after a fork of a threaded process, unless privileges are
/// dropped, which only the single-threaded installer tool asks for.
[[noreturn]] void becomeApplication(const char *executable, char *const *arguments, char *const *environment,
                                    const OpenOptions &options, const char *userName, int statusPipe) {
    const int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(null, 1);
    dup2(null, 2);
    bool ok = chdir("/") == 0;
    if (options.dropPrivileges)
        ok = ok && initgroups(userName, options.group) == 0 && setgid(options.group) == 0 &&
             setuid(options.user) == 0;
    if (ok)
        execve(executable, arguments, environment);
    const int number = errno;
    (void)!write(statusPipe, &number, sizeof number);
    _exit(127);
}

/// Calls `visit` with each process that can be examined: its number, its folder in /proc and its executable.
void forEachProcess(const std::function<void(pid_t, const std::string &, const std::string &)> &visit) {
    struct CloseDirectory {
        void operator()(DIR *directory) const { closedir(directory); }
    };
    const std::unique_ptr<DIR, CloseDirectory> proc(opendir("/proc"));
    while (const dirent *entry = proc ? readdir(proc.get()) : nullptr) {
        const pid_t pid = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
        if (pid <= 0)
            continue;
        const std::string folder = std::string("/proc/") + entry->d_name;
        char target[PATH_MAX];
        const ssize_t length = readlink((folder + "/exe").c_str(), target, sizeof target);
        if (length > 0)
            visit(pid, folder, std::string(target, static_cast<size_t>(length)));
    }
}

} // namespace

std::vector<pid_t> processesRunning(const std::string &executable) {
    std::vector<pid_t> result;
    const std::string wanted = realPath(executable);
    const bool script = isScript(wanted);
    forEachProcess([&](pid_t pid, const std::string &folder, const std::string &running) {
        if (running == wanted || (script && realPath(scriptOf(folder)) == wanted))
            result.push_back(pid);
    });
    return result;
}

std::vector<std::string> runningExecutablePaths() {
    std::vector<std::string> result;
    forEachProcess(
        [&](pid_t, const std::string &, const std::string &running) { result.push_back(running); });
    return result;
}

OpenResult openBundle(const std::string &bundlePath, const OpenOptions &options) {
    restoreBackup(bundlePath);
    BundleInfo info;
    if (!readBundleInfo(bundlePath, info))
        return {bundlePath + " is not an application: it has no readable Info.plist", false};
    if (info.executable.empty())
        return {bundlePath + " has no executable", false};
    const posix::Descriptor lock = lockFor(realPath(bundlePath));
    if (!processesRunning(info.executable).empty())
        return {{}, true};

    std::vector<std::string> environment = options.environment;
    if (environment.empty()) {
        for (char **variable = environ; variable && *variable; ++variable)
            environment.emplace_back(*variable);
    }
    std::vector<char *> variables;
    for (std::string &variable : environment)
        variables.push_back(variable.data());
    variables.push_back(nullptr);
    std::string argument = info.executable;
    char *arguments[] = {argument.data(), nullptr};
    const struct passwd *user = options.dropPrivileges ? getpwuid(options.user) : nullptr;
    const std::string userName = user ? user->pw_name : "";

    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {std::string("cannot make a pipe: ") + std::strerror(errno), false};
    posix::Descriptor reading(ends[0]);
    posix::Descriptor writing(ends[1]);
    const pid_t child = fork();
    if (child < 0)
        return {std::string("cannot start a process: ") + std::strerror(errno), false};
    if (child == 0) {
        setsid();
        const pid_t grandchild = fork();
        if (grandchild == 0)
            becomeApplication(info.executable.c_str(), arguments, variables.data(), options, userName.c_str(),
                              writing.get());
        _exit(grandchild < 0 ? 1 : 0);
    }
    writing.reset();
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    // The pipe closes without a word when the program is executed.
    int number = 0;
    ssize_t length = 0;
    while ((length = read(reading.get(), &number, sizeof number)) < 0 && errno == EINTR) {
    }
    if (length == static_cast<ssize_t>(sizeof number))
        return {info.executable + " could not be started: " + std::strerror(number), false};
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return {info.executable + " could not be started", false};
    return {};
}

namespace {

std::string besideBundle(const std::string &bundlePath, const char *suffix) {
    const std::string parent = posix::parentOf(bundlePath);
    return (parent == "/" ? parent : parent + '/') + '.' + posix::lastComponentOf(bundlePath) + suffix;
}

} // namespace

std::string stagedPathFor(const std::string &bundlePath) { return besideBundle(bundlePath, ".txupdate-new"); }
std::string backupPathFor(const std::string &bundlePath) { return besideBundle(bundlePath, ".txupdate-old"); }
std::string wholePathFor(const std::string &bundlePath) {
    return besideBundle(bundlePath, ".txupdate-whole");
}
std::string lockPathFor(const std::string &bundlePath) { return besideBundle(bundlePath, ".txupdate-lock"); }

bool isOwnBackup(const std::string &path) {
    struct stat backup {};
    struct stat folder {};
    if (lstat(path.c_str(), &backup) != 0 || !S_ISDIR(backup.st_mode) ||
        stat(posix::parentOf(path).c_str(), &folder) != 0)
        return false;
    return backup.st_uid == geteuid() || backup.st_uid == 0 || backup.st_uid == folder.st_uid;
}

bool restoreBackup(const std::string &bundlePath) {
    // An installation that may not write to the folder around the bundle works in the bundle.
    const std::string contents = posix::contentsOf(bundlePath);
    if (posix::lastComponentOf(bundlePath) != posix::lastComponentOf(contents) && restoreBackup(contents))
        return true;
    const std::string backup = backupPathFor(bundlePath);
    const std::string whole = wholePathFor(bundlePath);
    const bool isGone = !posix::entryExists(bundlePath) && isOwnBackup(backup);
    if (!isGone && !isOwnBackup(whole))
        return false;
    // An installer that works on it has the lock.
    const posix::Descriptor lock(
        open(lockPathFor(bundlePath).c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (lock.isOpen() && flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
        return false;
    if (isGone)
        return rename(backup.c_str(), bundlePath.c_str()) == 0;
    return !posix::removeTree(bundlePath) && rename(whole.c_str(), bundlePath.c_str()) == 0;
}

} // namespace tx
