// SPDX-License-Identifier: MIT
// What a process can still do after lowerRights(). Each case runs in a child process, because it is for good.
#include "tests/tools/archive/refusedcall.h"

#include "archive/lowerrights.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <archive.h>
#include <archive_entry.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::ArchiveEntry;
using tx::test::landlockVersion;
using tx::test::refuseCall;
using tx::tools::lowerRights;

namespace {

constexpr uint64_t gigabyte = uint64_t(1) << 30;

class LoweredRights : public tx::test::FrameworkTest {
protected:
    const QString out = path(u"out"_s);
    const std::string folder = out.toStdString();
    const bool restricts = landlockVersion() >= 2;

    LoweredRights() {
        QDir().mkpath(out);
        tx::test::writeFile(path(u"victim"_s), "kept");
    }

    /// Runs `work` in a child process and returns what it returned.
    static std::string inChild(const std::function<std::string()> &work) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            dup2(ends[1], STDOUT_FILENO); // stays open
            const std::string said = work();
            const bool written = write(STDOUT_FILENO, said.data(), said.size()) == ssize_t(said.size());
            _exit(written ? 0 : 1);
        }
        close(ends[1]);
        std::string said;
        char buffer[1024];
        for (ssize_t n = 0; (n = read(ends[0], buffer, sizeof buffer)) > 0;)
            said.append(buffer, size_t(n));
        close(ends[0]);
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << said;
        return said;
    }

    /// Unpacks standard input as a program whose checks of names and links are all broken.
    static void unpackWithoutChecks() {
        archive *reader = archive_read_new();
        archive_read_support_format_tar(reader);
        archive_read_open_fd(reader, STDIN_FILENO, 10240);
        archive_entry *entry = nullptr;
        while (archive_read_next_header(reader, &entry) == ARCHIVE_OK)
            (void)archive_read_extract(reader, entry, 0);
        archive_read_free(reader);
    }
    /// `before` runs in the child process before it lowers its rights.
    std::string unpackHostileArchive(const std::function<void()> &before = [] {}) const {
        const QString file = path(u"hostile.tar"_s);
        tx::test::makeArchive(file, tx::test::ArchiveKind::Tar,
                              {{u"first"_s, ArchiveEntry::File, "good"},
                               {u"../victim"_s, ArchiveEntry::File, "bad"},
                               {path(u"absolute"_s), ArchiveEntry::File, "bad"},
                               {u"up"_s, ArchiveEntry::SymbolicLink, "..", 0777},
                               {u"up/through"_s, ArchiveEntry::File, "bad"},
                               {u"last"_s, ArchiveEntry::File, "good"}});
        return inChild([&] {
            before();
            const int archive = open(file.toUtf8().constData(), O_RDONLY | O_CLOEXEC);
            dup2(archive, STDIN_FILENO);
            std::string problem = lowerRights(folder, gigabyte);
            if (problem.empty() && chdir(folder.c_str()) == 0)
                unpackWithoutChecks();
            return problem;
        });
    }
    void expectWritten(bool outside) const {
        EXPECT_EQ(tx::test::readFile(out + u"/first"_s), QByteArray("good"));
        EXPECT_EQ(tx::test::readFile(out + u"/last"_s), QByteArray("good"));
        EXPECT_EQ(tx::test::readFile(path(u"victim"_s)), QByteArray(outside ? "bad" : "kept"));
        EXPECT_EQ(QFileInfo::exists(path(u"absolute"_s)), outside);
        EXPECT_EQ(QFileInfo::exists(path(u"through"_s)), outside);
    }
};

TEST_F(LoweredRights, ArchiveIsKeptInItsFolderEvenIfAllChecksOfNamesAreBroken) {
    EXPECT_EQ(unpackHostileArchive(), "");
    expectWritten(!restricts);
}

TEST_F(LoweredRights, KernelWithoutLandlockUnpacksWithoutIt) {
    for (const int number : {ENOSYS, EOPNOTSUPP}) {
        EXPECT_EQ(unpackHostileArchive([number] { refuseCall(tx::test::createRuleset, number); }), "");
        expectWritten(true); // with broken checks, nothing else stops it
        QFile::remove(path(u"absolute"_s));
        QFile::remove(path(u"through"_s));
        tx::test::writeFile(path(u"victim"_s), "kept");
    }
}

TEST_F(LoweredRights, OnlyTheFolderCanBeReadAndNothingElseCanBeDone) {
    struct Case {
        const char *what;
        std::function<int()> attempt; ///< 0 or an errno value
        int expected;
        int since = 2; ///< Landlock's version
    };
    const auto outcome = [](int result) { return result < 0 ? errno : 0; };
    const std::string inside = folder + "/inside";
    const std::string outside = path(u"victim"_s).toStdString();
    tx::test::writeFile(out + u"/inside"_s, "x");
    const Case cases[] = {
        {"read inside", [&] { return outcome(open(inside.c_str(), O_RDWR)); }, 0, 0},
        {"rename inside", [&] { return outcome(rename(inside.c_str(), (folder + "/new").c_str())); }, 0, 0},
        {"folder inside", [&] { return outcome(mkdir((folder + "/made").c_str(), 0700)); }, 0, 0},
        {"rename into a folder",
         [&] { return outcome(rename((folder + "/new").c_str(), (folder + "/made/new").c_str())); }, 0, 0},
        {"read outside", [&] { return outcome(open(outside.c_str(), O_RDONLY)); }, EACCES},
        {"read the system", [&] { return outcome(open("/etc/passwd", O_RDONLY)); }, EACCES},
        {"list outside", [&] { return outcome(open("/", O_RDONLY | O_DIRECTORY)); }, EACCES},
        {"write outside", [&] { return outcome(open(outside.c_str(), O_WRONLY)); }, EACCES},
        {"remove outside", [&] { return outcome(unlink(outside.c_str())); }, EACCES},
        {"rename out of the folder",
         [&] { return outcome(rename((folder + "/made/new").c_str(), (outside + "2").c_str())); }, EACCES},
        {"start a program", [&] { return outcome(execl("/bin/true", "true", nullptr)); }, EACCES},
        {"make a pipe", [&] { return outcome(mkfifo((folder + "/pipe").c_str(), 0600)); }, EACCES},
        {"truncate outside", [&] { return outcome(truncate(outside.c_str(), 0)); }, EACCES, 3},
        {"connect",
         [&] {
             sockaddr_in address{};
             address.sin_family = AF_INET;
             address.sin_port = htons(1);
             address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
             const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
             return outcome(connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address));
         },
         EACCES, 4},
        {"signal its parent", [&] { return outcome(kill(getppid(), 0)); }, EPERM, 6},
    };
    std::string expected;
    for (const Case &c : cases) {
        if (landlockVersion() >= c.since)
            expected += std::string(c.what) + ": " + std::strerror(c.expected) + '\n';
    }
    EXPECT_EQ(inChild([&] {
                  std::string said = lowerRights(folder, gigabyte);
                  for (const Case &c : cases) {
                      if (landlockVersion() >= c.since)
                          said += std::string(c.what) + ": " + std::strerror(c.attempt()) + '\n';
                  }
                  return said;
              }),
              expected);
}

TEST_F(LoweredRights, NoOtherDescriptorStaysOpen) {
    EXPECT_EQ(inChild([&] {
                  for (const int descriptor : {3, 10, 100, 1000})
                      dup2(STDOUT_FILENO, descriptor);
                  std::string said = lowerRights(folder, gigabyte);
                  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
                      if (fcntl(descriptor, F_GETFD) != -1)
                          said += std::to_string(descriptor) + ' ';
                  }
                  return said;
              }),
              "0 1 2 ");
}

TEST_F(LoweredRights, NoNewPrivilegesNoCoreDumpsAndLimitsByTheSizeOfTheContent) {
    const auto after = [&](uint64_t unpacked) {
        return inChild([&] {
            std::string said = lowerRights(folder, unpacked);
            said += std::to_string(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0)) + ' ' +
                    std::to_string(prctl(PR_GET_DUMPABLE, 0, 0, 0, 0));
            for (const int resource : {RLIMIT_CORE, RLIMIT_FSIZE, RLIMIT_CPU, RLIMIT_AS}) {
                struct rlimit limit {};
                getrlimit(resource, &limit);
                if (resource == RLIMIT_AS && *TEST_SANITIZERS)
                    said += " -"; // a sanitizer reserves terabytes
                else
                    said += ' ' + std::to_string(limit.rlim_cur);
                if (limit.rlim_cur != limit.rlim_max)
                    said += " can be raised";
            }
            return said;
        });
    };
    const auto limits = [](uint64_t size, uint64_t time, uint64_t memory) {
        return "1 0 0 " + std::to_string(size) + ' ' + std::to_string(time) + ' ' +
               (*TEST_SANITIZERS ? "-" : std::to_string(memory));
    };
    EXPECT_EQ(after(1), limits(8 * gigabyte, 8192, 4 * gigabyte)) << "the usual size is the least";
    EXPECT_EQ(after(16 * gigabyte), limits(16 * gigabyte, 16384, 6 * gigabyte));
}

TEST_F(LoweredRights, LimitThatIsLowerStaysAndAWriteBeyondItFails) {
    EXPECT_EQ(inChild([&] {
                  const struct rlimit low { 1000, 2000 };
                  setrlimit(RLIMIT_FSIZE, &low);
                  std::string said = lowerRights(folder, gigabyte);
                  struct rlimit now {};
                  getrlimit(RLIMIT_FSIZE, &now);
                  const int file = open((folder + "/large").c_str(), O_WRONLY | O_CREAT, 0600);
                  const std::string bytes(1500, 'x');
                  said += std::to_string(now.rlim_cur) + ' ' + std::to_string(now.rlim_max);
                  said += ' ' + std::to_string(write(file, bytes.data(), bytes.size()));
                  said += ' ' + std::to_string(write(file, bytes.data(), bytes.size()));
                  return said + ' ' + std::strerror(errno);
              }),
              "1000 2000 1000 -1 File too large");
}

TEST_F(LoweredRights, StepThatFailsIsNamed) {
    using tx::test::RefusedCall;
    const struct {
        RefusedCall call;
        const char *step;
        bool needsLandlock = false;
        bool sanitized = true;
    } cases[] = {
        {{SYS_prctl, 0, PR_SET_NO_NEW_PRIVS}, "no new rights"},
        {{SYS_prctl, 0, PR_SET_DUMPABLE}, "no core dumps"},
        {{SYS_prlimit64, 1, RLIMIT_CORE}, "no core dumps"},
        {{SYS_prlimit64, 1, RLIMIT_FSIZE}, "limit of the file size"},
        {{SYS_prlimit64, 1, RLIMIT_CPU}, "limit of the processor time"},
        {{SYS_prlimit64, 1, RLIMIT_AS}, "limit of the address space", false, false},
        {{SYS_landlock_create_ruleset, 2, 1}, "Landlock"},
        {{SYS_landlock_create_ruleset, 2, 0}, "Landlock", true},
        {{SYS_landlock_add_rule}, "Landlock", true},
        {{SYS_landlock_restrict_self}, "Landlock", true},
    };
    for (const auto &c : cases) {
        const bool applies = (restricts || !c.needsLandlock) && (c.sanitized || !*TEST_SANITIZERS);
        EXPECT_EQ(inChild([&] {
                      refuseCall(c.call, EPERM);
                      return lowerRights(folder, gigabyte);
                  }),
                  applies ? std::string(c.step) + ": Operation not permitted" : "")
            << c.call.number << ' ' << c.call.value;
    }
    EXPECT_EQ(inChild([&] { return lowerRights(folder + "/none", gigabyte); }),
              restricts ? folder + "/none: No such file or directory" : "");
}

} // namespace
