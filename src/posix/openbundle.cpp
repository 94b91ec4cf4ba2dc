// SPDX-License-Identifier: MIT
#include "posix/openbundle.h"

#include "posix/bundlecontents.h"
#include "posix/posixfiles.h"
#include "posix/readwrite.h"
#include "posix/userfolders.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <grp.h>
#include <memory>
#include <poll.h>
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

/// Takes a lock for this process, waiting at most `patience`. 0 or an errno value.
int takeWithin(std::chrono::milliseconds patience, const posix::Descriptor &lock) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= deadline)
            return errno;
        constexpr int pause = 20;
        poll(nullptr, 0, pause);
    }
    return 0;
}

/// One opener at a time for each bundle path. The lock is in the user's own folder, so that nobody else can
/// hold it. Without such a folder (full disk, home writable by others), the bundle's own folder is locked
/// instead. Another user could hold that lock, but then nothing is started, and never two. `why` says what is
/// wrong if the lock is not open.
posix::Descriptor lockFor(const std::string &bundlePath, std::chrono::milliseconds patience,
                          std::string &why) {
    posix::Descriptor lock;
    if (const std::string folder = posix::privateTemporaryFolder(); !folder.empty()) {
        const size_t hash = std::hash<std::string>{}(bundlePath);
        std::ostringstream name;
        name << folder << "/open-" << std::hex << hash << ".lock";
        lock = posix::Descriptor(open(name.str().c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    }
    if (!lock.isOpen())
        lock = posix::Descriptor(open(bundlePath.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const int number = lock.isOpen() ? takeWithin(patience, lock) : errno;
    if (number == 0)
        return lock;
    why = number == EWOULDBLOCK
              ? "another process has been starting it for too long; end that process, or try again"
              : std::string("it cannot be locked: ") + std::strerror(number);
    return posix::Descriptor();
}

/// Restores the default file mode mask and signal handling. This process may be a tool that ignores some
/// signals, which children inherit.
void takeUsualSettings(const std::optional<mode_t> &mask) {
    for (int number = 1; number < NSIG; ++number)
        std::signal(number, SIG_DFL); // fails for two that cannot be ignored, and two that the C library uses
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (mask)
        umask(*mask);
}

/// Runs in the grandchild: only what is safe after a fork of a threaded process.
[[noreturn]] void becomeApplication(const char *executable, char *const *arguments, char *const *environment,
                                    const OpenOptions &options, int statusPipe) {
    takeUsualSettings(options.mask);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(null, 1);
    dup2(null, 2);
    const char *folder = options.handover.folder.c_str();
    if ((*folder != '\0' && chdir(folder) == 0) || chdir("/") == 0)
        execve(executable, arguments, environment);
    const int number = errno;
    (void)!write(statusPipe, &number, sizeof number);
    _exit(127);
}

/// Calls `visit` with each process that can be examined: its number, its folder in /proc and its executable.
void forEachProcess(const std::function<void(pid_t, const std::string &, const std::string &)> &visit) {
    std::vector<std::string> names;
    (void)posix::namesIn("/proc", names);
    for (const std::string &name : names) {
        const pid_t pid = static_cast<pid_t>(std::strtol(name.c_str(), nullptr, 10));
        if (pid <= 0)
            continue;
        const std::string folder = "/proc/" + name;
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

namespace {

/// Gives up all rights except those of a user, permanently.
bool becomeUser(uid_t user, gid_t group) {
    const struct passwd *entry = getpwuid(user);
    const bool hasGroups = entry ? initgroups(entry->pw_name, group) == 0 : setgroups(0, nullptr) == 0;
    return hasGroups && setgid(group) == 0 && setuid(user) == 0;
}

/// Opens the bundle in a process with the user's rights only, so that the bundle and the user's folders are
/// not read with other rights. Only for the single-threaded installer tool.
OpenResult openAsUser(const std::string &bundlePath, const OpenOptions &options) {
    const auto failed = [&bundlePath](const char *why) {
        return OpenResult{bundlePath + " could not be started: " + why, false};
    };
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return failed(std::strerror(errno));
    posix::Descriptor reading(ends[0]);
    posix::Descriptor writing(ends[1]);
    const pid_t child = fork();
    if (child < 0)
        return failed(std::strerror(errno));
    if (child == 0) {
        OpenResult result;
        if (becomeUser(options.user, options.group)) {
            std::vector<std::string> environment = options.environment;
            std::vector<char *> variables;
            for (std::string &variable : environment)
                variables.push_back(variable.data());
            variables.push_back(nullptr);
            environ = variables.data();
            OpenOptions asItself = options;
            asItself.dropPrivileges = false;
            result = openBundle(bundlePath, asItself);
        } else {
            result = failed(std::strerror(errno));
        }
        const std::string answer = (result.wasRunning ? '1' : '0') + result.error;
        const bool said =
            write(writing.get(), answer.data(), answer.size()) == static_cast<ssize_t>(answer.size());
        _exit(said ? 0 : 1);
    }
    writing.reset();
    std::string answer;
    char buffer[1024];
    for (ssize_t n = 0; (n = read(reading.get(), buffer, sizeof buffer)) != 0;) {
        if (n < 0 && errno != EINTR)
            break;
        answer.append(buffer, static_cast<size_t>(std::max<ssize_t>(n, 0)));
    }
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    if (answer.empty())
        return failed("the process that should do it ended");
    return {answer.substr(1), answer.front() == '1'};
}

} // namespace

OpenResult openBundle(const std::string &bundlePath, const OpenOptions &options) {
    if (options.dropPrivileges)
        return openAsUser(bundlePath, options);
    restoreBackup(bundlePath);
    BundleInfo info;
    if (!readBundleInfo(bundlePath, info))
        return {bundlePath + " is not an application: it has no readable Info.plist", false};
    if (info.executable.empty())
        return {bundlePath + " has no executable", false};
    std::string why;
    const posix::Descriptor lock = lockFor(realPath(bundlePath), options.patience, why);
    if (!lock.isOpen())
        return {bundlePath + " could not be started: " + why, false};
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
    std::vector<std::string> words = options.handover.arguments;
    words.insert(words.begin(), info.executable);
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

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
            becomeApplication(info.executable.c_str(), arguments.data(), variables.data(), options,
                              writing.get());
        _exit(grandchild < 0 ? 1 : 0);
    }
    writing.reset();
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    // The pipe closes without data when the program is executed.
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

} // namespace tx
