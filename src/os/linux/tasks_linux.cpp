// SPDX-License-Identifier: MIT
#include "os/tasks.h"

#include "base/posixerror.h"
#include "os/frameworkresources.h"
#include "posix/posixfiles.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

int waitFor(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class NativeTask final : public Task {
public:
    NativeTask(pid_t pid, bool ownSession, posix::Descriptor input, posix::Descriptor output,
               posix::Descriptor errors)
        : m_pid(pid)
        , m_ownSession(ownSession)
        , m_input(std::move(input))
        , m_output(std::move(output))
        , m_errors(std::move(errors)) {}

    ~NativeTask() override {
        m_input.reset();
        m_output.reset();
        // Nobody waits any more. A sleeping thread reaps the process, so that it does not stay a zombie.
        if (!m_waited)
            std::thread([pid = m_pid] { waitFor(pid); }).detach();
    }
    Q_DISABLE_COPY_MOVE(NativeTask)

    qint64 processIdentifier() const override { return m_pid; }

    int send(const QByteArray &packet, int descriptor) override {
        iovec content{const_cast<char *>(packet.constData()), static_cast<size_t>(packet.size())};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptor)> control{};
        msghdr message{};
        message.msg_iov = &content;
        message.msg_iovlen = 1;
        if (descriptor >= 0) {
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            cmsghdr *part = CMSG_FIRSTHDR(&message);
            part->cmsg_level = SOL_SOCKET;
            part->cmsg_type = SCM_RIGHTS;
            part->cmsg_len = CMSG_LEN(sizeof descriptor);
            std::memcpy(CMSG_DATA(part), &descriptor, sizeof descriptor);
        }
        ssize_t sent = 0;
        while ((sent = sendmsg(m_input.get(), &message, MSG_NOSIGNAL)) < 0 && errno == EINTR) {
        }
        return sent < 0 ? errno : 0;
    }

    void closeInput() override { m_input.reset(); }

    QByteArray read() override {
        QByteArray buffer(4096, Qt::Uninitialized);
        ssize_t n = 0;
        while ((n = ::read(m_output.get(), buffer.data(), static_cast<size_t>(buffer.size()))) < 0 &&
               errno == EINTR) {
        }
        buffer.truncate(n > 0 ? n : 0);
        return buffer;
    }

    std::optional<QByteArray> readWithin(std::chrono::milliseconds limit) override {
        return isReady(m_output.get(), limit) ? std::optional(read()) : std::nullopt;
    }

    int wait() override {
        if (m_waited)
            return m_status;
        siginfo_t info{};
        while (waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
        }
        // The number belongs to the process until it is reaped, and may then be reused.
        const std::lock_guard lock(m_collecting);
        m_status = waitFor(m_pid);
        m_waited = true;
        return m_status;
    }

    std::optional<int> waitWithin(std::chrono::milliseconds limit) override {
        if (m_waited)
            return m_status;
        const posix::Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, m_pid, 0)));
        if (!process.isOpen())
            return waitByLooking(limit);
        return isReady(process.get(), limit) ? std::optional(wait()) : std::nullopt;
    }

    QString errorText() override {
        constexpr qint64 longest = 1000;
        struct stat info {};
        if (!m_errors.isOpen() || fstat(m_errors.get(), &info) != 0)
            return {};
        QByteArray text(std::min<qint64>(longest, info.st_size), Qt::Uninitialized);
        const ssize_t n =
            pread(m_errors.get(), text.data(), static_cast<size_t>(text.size()), info.st_size - text.size());
        text.truncate(n > 0 ? n : 0);
        return QString::fromLocal8Bit(text).trimmed();
    }

    void kill() override {
        const std::lock_guard lock(m_collecting);
        if (!m_waited)
            ::kill(m_ownSession ? -m_pid : m_pid, SIGKILL);
    }

private:
    static bool isReady(int descriptor, std::chrono::milliseconds limit) {
        pollfd watched{descriptor, POLLIN, 0};
        int count = 0;
        while ((count = poll(&watched, 1, static_cast<int>(limit.count()))) < 0 && errno == EINTR) {
        }
        return count > 0;
    }

    /// For kernels without process descriptors.
    std::optional<int> waitByLooking(std::chrono::milliseconds limit) {
        constexpr std::chrono::milliseconds pause(10);
        for (;; limit -= pause) {
            siginfo_t info{};
            if (waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
                info.si_pid == m_pid)
                return wait();
            if (limit <= pause)
                return std::nullopt;
            poll(nullptr, 0, static_cast<int>(pause.count()));
        }
    }

    pid_t m_pid;
    bool m_ownSession;
    posix::Descriptor m_input;
    posix::Descriptor m_output;
    posix::Descriptor m_errors; ///< a file in memory, because a full pipe would block the program
    std::mutex m_collecting;
    bool m_waited = false;
    int m_status = 0;
};

/// The settings of posix_spawn: default signals, standard streams from pipes or /dev/null, nothing else open.
class SpawnSettings {
public:
    explicit SpawnSettings(const TaskRequest &request) {
        posix_spawnattr_init(&m_attributes);
        posix_spawn_file_actions_init(&m_actions);
        sigset_t none;
        sigset_t defaults;
        sigemptyset(&none);
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_setsigmask(&m_attributes, &none);
        posix_spawnattr_setsigdefault(&m_attributes, &defaults);
        short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (request.ownSession)
            flags |= POSIX_SPAWN_SETSID;
        posix_spawnattr_setflags(&m_attributes, flags);
    }
    ~SpawnSettings() {
        posix_spawnattr_destroy(&m_attributes);
        posix_spawn_file_actions_destroy(&m_actions);
    }
    Q_DISABLE_COPY_MOVE(SpawnSettings)

    void connect(int stream, const posix::Descriptor &end) {
        if (end.isOpen())
            connect(stream, end.get());
        else if (stream == STDIN_FILENO)
            posix_spawn_file_actions_addopen(&m_actions, stream, "/dev/null", O_RDWR, 0);
    }

    void connect(int stream, int descriptor) {
        posix_spawn_file_actions_adddup2(&m_actions, descriptor, stream);
    }

    int spawn(pid_t *pid, const char *program, char *const *arguments, char *const *environment) {
        posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1);
        return posix_spawnp(pid, program, &m_actions, &m_attributes, arguments, environment);
    }

private:
    posix_spawnattr_t m_attributes;
    posix_spawn_file_actions_t m_actions;
};

std::vector<char *> pointersTo(QList<QByteArray> &texts) {
    std::vector<char *> pointers;
    pointers.reserve(static_cast<size_t>(texts.size()) + 1);
    for (QByteArray &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

class NativeTasks final : public Tasks {
public:
    Result<std::unique_ptr<Task>> start(const TaskRequest &request) override {
        int inputEnds[2] = {-1, -1};
        int outputEnds[2] = {-1, -1};
        if ((request.receivesPackets &&
             socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, inputEnds) != 0) ||
            (request.readsOutput && pipe2(outputEnds, O_CLOEXEC) != 0))
            return posixError(errno, u"Cannot make a pipe for"_s, request.program);
        const posix::Descriptor childInput(inputEnds[0]);
        posix::Descriptor input(inputEnds[1]);
        posix::Descriptor output(outputEnds[0]);
        const posix::Descriptor childOutput(outputEnds[1]);
        posix::Descriptor errors(request.keepsErrors ? memfd_create("errors", MFD_CLOEXEC) : -1);

        QList<QByteArray> words{QFile::encodeName(request.program)};
        for (const QString &argument : request.arguments)
            words.append(QFile::encodeName(argument));
        QList<QByteArray> variables;
        if (request.environment) {
            for (const QString &variable : *request.environment)
                variables.append(QFile::encodeName(variable));
        }
        const std::vector<char *> argv = pointersTo(words);
        const std::vector<char *> envp = pointersTo(variables);

        SpawnSettings settings(request);
        if (request.inputFile >= 0)
            settings.connect(STDIN_FILENO, request.inputFile);
        else
            settings.connect(STDIN_FILENO, childInput);
        settings.connect(STDOUT_FILENO, childOutput);
        settings.connect(STDERR_FILENO, errors);
        pid_t pid = 0;
        const int number = settings.spawn(&pid, words.first().constData(), argv.data(),
                                          request.environment ? envp.data() : environ);
        if (number != 0)
            return posixError(number, u"Cannot start"_s, request.program);
        return std::unique_ptr<Task>(
            new NativeTask(pid, request.ownSession, std::move(input), std::move(output), std::move(errors)));
    }
};

} // namespace

int Task::send(const QByteArray &, int) { return ENOTSUP; }

Tasks &nativeTasks() {
    static auto &instance = *new NativeTasks; // a thread may outlast static objects
    return instance;
}

QStringList environmentWithFrameworkTools(const QString &resources) {
    QStringList result;
    QString path = u"/usr/local/bin:/usr/bin:/bin"_s;
    for (char **variable = environ; variable && *variable; ++variable) {
        const QString text = QFile::decodeName(*variable);
        if (text.startsWith(u"PATH="_s))
            path = text.mid(5);
        else
            result.append(text);
    }
    result.append(u"PATH="_s + (resources.isNull() ? frameworkResourcesPath() : resources) + u':' + path);
    return result;
}

} // namespace tx
