// SPDX-License-Identifier: MIT
#include "installer/programoutput.h"

#include "posix/posixfiles.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tx::installer {

namespace {

/// What a child process starts with; freed with this object.
struct Start {
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
    Start() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    Start(const Start &) = delete;
    Start &operator=(const Start &) = delete;
    ~Start() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
};

/// Starts the program in its own session, so that it can be terminated with its children.
int start(const std::string &program, const std::vector<std::string> &arguments, const ProgramInput &input,
          int output, pid_t &process) {
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    std::vector<std::string> variables{"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C"};
    variables.insert(variables.end(), input.variables.begin(), input.variables.end());
    std::vector<char *> environment;
    for (std::string &variable : variables)
        environment.push_back(variable.data());
    environment.push_back(nullptr);
    Start how;
    sigset_t usual;
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    sigaddset(&usual, SIGHUP);
    posix_spawnattr_setsigdefault(&how.attributes, &usual);
    posix_spawnattr_setflags(&how.attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
    if (input.descriptor < 0)
        posix_spawn_file_actions_addopen(&how.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    else
        posix_spawn_file_actions_adddup2(&how.actions, input.descriptor, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&how.actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&how.actions, output, STDERR_FILENO);
    posix_spawn_file_actions_addchdir_np(&how.actions, "/");
    return posix_spawn(&process, program.c_str(), &how.actions, &how.attributes, argv.data(),
                       environment.data());
}

/// Reads until the end. Empty on success.
std::string readAll(int pipe, std::string &output, const OutputLimits &limits) {
    using std::chrono::milliseconds;
    const auto deadline = std::chrono::steady_clock::now() + limits.time;
    for (;;) {
        const auto left =
            std::max(milliseconds(0),
                     std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now()));
        struct pollfd watched {
            pipe, POLLIN, 0
        };
        const int ready = poll(&watched, 1, static_cast<int>(left.count()));
        if (ready == 0)
            return "takes too long";
        char buffer[4096];
        const ssize_t n = ready < 0 ? -1 : read(pipe, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return std::strerror(errno);
        if (n == 0)
            return {};
        if (output.size() + static_cast<size_t>(n) > limits.size)
            return "says too much";
        output.append(buffer, static_cast<size_t>(n));
    }
}

} // namespace

std::string outputOf(const std::string &program, const std::vector<std::string> &arguments,
                     std::string &output, const OutputLimits &limits) {
    int status = 0;
    return runProgram(program, arguments, {}, output, status, limits);
}

std::string runProgram(const std::string &program, const std::vector<std::string> &arguments,
                       const ProgramInput &input, std::string &output, int &status,
                       const OutputLimits &limits) {
    output.clear();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return program + " cannot be run: " + std::strerror(errno);
    const posix::Descriptor reading(ends[0]);
    posix::Descriptor writing(ends[1]);
    pid_t process = 0;
    if (const int number = start(program, arguments, input, writing.get(), process))
        return program + " cannot be run: " + std::strerror(number);
    writing.reset();
    const std::string why = readAll(reading.get(), output, limits);
    // A program that closes its output and continues has printed everything.
    kill(-process, SIGKILL);
    int ended = 0;
    while (waitpid(process, &ended, 0) < 0 && errno == EINTR) {
    }
    status = WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended);
    return why.empty() ? std::string() : program + ' ' + why;
}

} // namespace tx::installer
