// SPDX-License-Identifier: MIT
// TXUpdateInstaller PID NEW-APPLICATION HOST-BUNDLE ARCHIVE: waits until the process PID has ended, replaces
// HOST-BUNDLE by NEW-APPLICATION in one step and opens it as the user who ran the host. Writes "ready" to its
// standard output before it waits, or why it cannot replace HOST-BUNDLE.

#include "installer/hostanswer.h"
#include "installer/installer.h"
#include "installer/jobs.h"

#include "installer/oneline.h"
#include "installer/ownplace.h"
#include "posix/openbundle.h"
#include "posix/updatefoldernames.h"

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <syslog.h>
#include <unistd.h>

namespace {

tx::installer::HostAnswer answer;

void report(const std::string &text) {
    const std::string line = tx::installer::onOneLine(text);
    answer.note(line);
    std::fprintf(stderr, "TXUpdateInstaller: %s\n", line.c_str());
    syslog(LOG_ERR, "%s", line.c_str());
}

/// The bundle that contains this executable if it is an installer's copy; otherwise empty.
std::string ownBundle() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    const std::string executable(path, length > 0 ? static_cast<size_t>(length) : 0);
    const std::string tool = std::string("/") + tx::installerToolName;
    const std::string inside = tool + tx::installerExecutableInTool;
    if (executable.size() <= inside.size() ||
        executable.compare(executable.size() - inside.size(), inside.size(), inside) != 0)
        return {};
    return executable.substr(0, executable.size() - inside.size()) + tool;
}

} // namespace

int main(int argc, char **argv) {
    using namespace tx::installer;
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    openlog("TXUpdateInstaller", LOG_PID, LOG_USER);
    // What pkexec started must be a program that only root can change.
    if (geteuid() == 0 && std::getenv("PKEXEC_UID")) {
        if (const std::string problem = notRootsOwnProgram(ownExecutable()); !problem.empty()) {
            report(problem + "; this program does not run with an administrator's rights");
            answer.refuse();
            return StatusForbidden;
        }
    }
    Files files;
    Context context{.files = &files};
    const std::string bundle = ownBundle();
    const std::string folder = tx::posix::parentOf(bundle);
    const std::vector<std::string> words(argv + 1, argv + argc);
    // Beside the archive: the host recorded it there, in the user's own folder.
    if (!words.empty())
        context.environmentRecord = tx::posix::parentOf(words.back()) + '/' + tx::environmentRecordName;
    Arguments arguments;
    std::string why;
    const int prepared =
        prepare(words, context.environmentRecord, *context.rights, arguments, context.session, why);
    if (prepared != StatusDone) {
        report(why);
        answer.refuse();
        // A verified update is always next to the host bundle.
        if (geteuid() == 0 && std::getenv(verifiedVariable) && !arguments.hostBundle.empty())
            discardVerified(arguments.hostBundle, files);
        return prepared;
    }
    // Only TXUpdateAuthorize sets the variable, for an installer that pkexec has started.
    const char *unpacked = geteuid() == 0 ? std::getenv(verifiedVariable) : nullptr;
    if (unpacked) {
        context.unpackedByUser = unpacked;
        if (const std::string problem = notVerified(arguments); !problem.empty()) {
            report(problem);
            answer.refuse();
            return StatusForbidden;
        }
    }
    // Only a copy beside the archive belongs to this installation; the framework's resources are not removed.
    if (!bundle.empty() && folder == tx::posix::parentOf(arguments.archive))
        context.toolBundle = bundle;
    context.log = report;
    context.open = [](const std::string &application, const Session &session) {
        tx::OpenOptions options;
        options.environment = session.environment;
        options.dropPrivileges = session.dropsPrivileges;
        options.user = session.user;
        options.group = session.group;
        options.mask = session.mask;
        options.handover = session.handover;
        return tx::openBundle(application, options).error;
    };
    context.ready = [] { return answer.ready(); };
    context.unheard = [] { return answer.unheard(); };
    const int status = install(arguments, context);
    answer.refuse();
    return status;
}
