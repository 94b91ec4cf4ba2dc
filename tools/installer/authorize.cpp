// SPDX-License-Identifier: MIT
// TXUpdateAuthorize: started by pkexec, so that the password dialog names this program. Says "authorized" and
// reads one job from standard input until its end, as words that each end in NUL:
//   install PID NEW-APPLICATION ARCHIVE   installs an update of the application that this program is a part
//                                         of: becomes TXUpdateInstaller, which is beside it
//   move FOLDER                           copies that application into an Applications folder, says "moved"
// It refuses everything else with a line on standard error, which the host reads on standard output. As root
// it does nothing if anyone but root could have changed it. Each start does at most one job.

#include "installer/hostanswer.h"
#include "installer/jobs.h"
#include "installer/oneline.h"
#include "installer/ownplace.h"
#include "installer/programoutput.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
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

/// Reads all of the input, but at most one byte more than a job may have; false on failure.
bool readInput(std::string &input) {
    char buffer[4096];
    while (input.size() <= longestJob) {
        const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            break;
        input.append(buffer, static_cast<size_t>(n));
    }
    return true;
}

/// Replaces this process with the open program, which gets only standard output and error, and of the
/// environment only who asked.
int become(int file, const std::vector<std::string> &words) {
    std::vector<std::string> texts = words;
    std::vector<char *> argv;
    for (std::string &text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);
    std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    const char *asked = std::getenv("PKEXEC_UID");
    std::string user = std::string("PKEXEC_UID=") + (asked ? asked : "");
    char *environment[] = {path.data(), asked ? user.data() : nullptr, nullptr};
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null < 0 || dup2(null, STDIN_FILENO) < 0)
        return errno;
    execveat(file, "", argv.data(), environment, AT_EMPTY_PATH);
    return errno;
}

} // namespace

int main(int argc, char **) {
    if (argc != 1) {
        std::fputs("usage: TXUpdateAuthorize\n"
                   "Reads one job from standard input, as words that each end in NUL:\n"
                   "  install PID NEW-APPLICATION ARCHIVE\n"
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
    std::string input;
    if (!readInput(input))
        return ioFailure;
    std::vector<std::string> words;
    if (!readWords(input, words)) {
        report("refused: expected words that each end in NUL, " + std::to_string(longestJob) +
               " bytes at most");
        answer.refuse();
        return JobRefused;
    }
    Files files;
    context.files = &files;
    context.applicationsFolders = {TARVIXUPDATE_LOCAL_APPLICATIONS_DIR, "/opt"};
    context.become = become;
    context.outputOf = [](const std::string &program, const std::vector<std::string> &arguments,
                          std::string &output) { return outputOf(program, arguments, output); };
    context.say = [](const std::string &word) { (void)say(word); };
    context.log = report;
    const int status = runJob(words, context);
    answer.refuse(); // does nothing if the job was done
    return status;
}
