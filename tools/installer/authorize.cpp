// SPDX-License-Identifier: MIT
// TXUpdateAuthorize: pkexec starts it, so that the password dialog names this program. It prints "authorized"
// and then receives one job in one packet over its standard input, which is a local socket. The packet
// consists of words, each terminated by NUL:
//   install PID NEW-APPLICATION ARCHIVE   updates the application that contains this program: becomes
//                                         TXUpdateInstaller, which is in the same folder. Only for an
//                                         application without keys, and only if this program was started with
//                                         "the-update-is-not-verified", which the password dialog shows
//   install-signed PID APPLICATION NEW-APPLICATION ARCHIVE PLAIN-SIGNATURE LENGTH TEXT...
//                                         the same for an application with keys: verifies and unpacks the
//                                         archive whose descriptor came with the packet, and installs the
//                                         result
//   move FOLDER                           copies that application into an Applications folder, says "moved"
// It refuses everything else with a line on standard error, which the host reads on standard output. As root
// it does nothing if anyone but root could have changed it. Each start does at most one job.
// it does nothing if anyone but root could have changed it. Each start does at most one job.

#include "installer/hostanswer.h"
#include "installer/jobs.h"
#include "installer/oneline.h"
#include "installer/ownplace.h"
#include "installer/programoutput.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using namespace tx::installer;

constexpr int ioFailure = 74;

HostAnswer answer;

void report(const std::string &text) {
    // It contains words of the asking user.
    const std::string line = onOneLine(text);
    answer.note(line);
    std::fprintf(stderr, "TXUpdateAuthorize: %s\n", line.c_str());
    syslog(LOG_ERR, "%s", line.c_str());
}

bool say(const std::string &word) {
    return write(STDOUT_FILENO, word.data(), word.size()) == static_cast<ssize_t>(word.size());
}

/// The host sends the job immediately, so a longer wait is an error.
constexpr std::chrono::seconds jobLimit(60);
constexpr OutputLimits unpackingLimits{std::chrono::minutes(10), 64 << 10};

/// Ends this process with SIGALRM after `limit`, even if it is blocked: a file may be on a file system that
/// never responds.
void endAfter(std::chrono::seconds limit) {
    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    sigprocmask(SIG_UNBLOCK, &alarms, nullptr);
    std::signal(SIGALRM, SIG_DFL);
    alarm(static_cast<unsigned>(limit.count()));
}

/// Replaces this process with the open program. The program keeps only standard output and standard error.
/// Its environment contains only the user who asked, and `variables`.
int become(int file, const std::vector<std::string> &words, const std::vector<std::string> &variables) {
    std::vector<std::string> texts = words;
    std::vector<char *> argv;
    for (std::string &text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);
    std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    const char *asked = std::getenv("PKEXEC_UID");
    std::string user = std::string("PKEXEC_UID=") + (asked ? asked : "");
    std::vector<std::string> others = variables;
    std::vector<char *> environment{path.data()};
    if (asked)
        environment.push_back(user.data());
    for (std::string &variable : others)
        environment.push_back(variable.data());
    environment.push_back(nullptr);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null < 0 || dup2(null, STDIN_FILENO) < 0)
        return errno;
    execveat(file, "", argv.data(), environment.data(), AT_EMPTY_PATH);
    return errno;
}

} // namespace

int main(int argc, char **argv) {
    const bool saidUnverified = argc == 2 && std::strcmp(argv[1], unverifiedArgument) == 0;
    if (argc != 1 && !saidUnverified) {
        std::fputs(
            "usage: TXUpdateAuthorize [the-update-is-not-verified]\n"
            "Receives one job over a local socket, its standard input, as words that each end in NUL:\n"
            "  install PID NEW-APPLICATION ARCHIVE\n"
            "  install-signed PID APPLICATION NEW-APPLICATION ARCHIVE PLAIN-SIGNATURE LENGTH TEXT...\n"
            "  move FOLDER\n",
            stderr);
        return JobRefused;
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    umask(022);
    openlog("TXUpdateAuthorize", LOG_PID, LOG_USER);
    JobContext context;
    context.executable = ownExecutable();
    context.asRoot = geteuid() == 0;
    context.askingUser = getuid();
    if (context.asRoot) {
        if (const std::string problem = notRootsOwnProgram(context.executable); !problem.empty()) {
            report(problem + "; this program does not run with an administrator's rights");
            return JobForbidden;
        }
        if (!readUser(std::getenv("PKEXEC_UID"), context.askingUser)) {
            report("PKEXEC_UID does not name a user; start this program with pkexec");
            return JobForbidden;
        }
    }
    if (!say("authorized\n"))
        return ioFailure;
    JobMessage message;
    if (const std::string problem = receiveJob(STDIN_FILENO, jobLimit, message); !problem.empty()) {
        report("refused: " + problem);
        answer.refuse();
        return JobRefused;
    }
    std::vector<std::string> words;
    if (!readWords(message.words, words)) {
        report("refused: expected words that each end in NUL, " + std::to_string(longestJob) +
               " bytes at most");
        answer.refuse();
        return JobRefused;
    }
    Files files;
    tx::PrivateFiles privateFiles;
    context.files = &files;
    context.privateFiles = &privateFiles;
    context.saidUnverified = saidUnverified;
    context.applicationsFolders = {TARVIXUPDATE_LOCAL_APPLICATIONS_DIR, "/opt"};
    context.become = become;
    context.run = [](const std::string &program, const std::vector<std::string> &arguments,
                     const ProgramInput &input, std::string &output, int &status) {
        return runProgram(program, arguments, input, output, status, unpackingLimits);
    };
    context.endAfter = endAfter;
    context.outputOf = [](const std::string &program, const std::vector<std::string> &arguments,
                          std::string &output) { return outputOf(program, arguments, output); };
    context.say = [](const std::string &word) { (void)say(word); };
    context.log = report;
    context.remark = [](const std::string &line) { syslog(LOG_NOTICE, "%s", onOneLine(line).c_str()); };
    const int status = runJob(words, message.archive, context);
    answer.refuse(); // does nothing if the job was done
    return status;
}
