// SPDX-License-Identifier: MIT
// open PATH|URL: starts an application bundle unless it is already running; the desktop opens everything
// else.

#include "posix/handover.h"
#include "posix/openbundle.h"
#include "posix/posixfiles.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// The caller may have put the framework's tools first in PATH. The opened program gets the user's own PATH.
void leaveOwnFolderOutOfPath() {
    char own[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", own, sizeof own);
    const char *path = std::getenv("PATH");
    if (length <= 0 || !path)
        return;
    const std::string folder = tx::posix::parentOf(std::string(own, static_cast<size_t>(length)));
    std::string rest;
    const std::string all = path;
    for (size_t start = 0; start <= all.size();) {
        const size_t end = std::min(all.find(':', start), all.size());
        const std::string part = all.substr(start, end - start);
        if (part != folder)
            rest += (rest.empty() ? "" : ":") + part;
        start = end + 1;
    }
    setenv("PATH", rest.c_str(), 1);
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2 || argv[1][0] == '\0' || argv[1][0] == '-') {
        std::fputs("usage: open PATH|URL\n"
                   "Starts the application bundle at PATH, unless it runs already. Other files, folders and\n"
                   "addresses are opened by the desktop. Exit status: 0 done, 1 failed, 64 misuse.\n",
                   stderr);
        return 64;
    }
    std::string target = argv[1];
    const bool isAddress = target.find("://") != std::string::npos;
    while (!isAddress && target.size() > 1 && target.back() == '/')
        target.pop_back();
    if (target.front() != '/' && !isAddress) {
        char folder[PATH_MAX];
        if (getcwd(folder, sizeof folder))
            target = std::string(folder) + '/' + target;
    }
    leaveOwnFolderOutOfPath();
    // In the environment, because a shell starts this program after the host has ended.
    tx::OpenOptions options;
    options.handover = tx::takeHandover();
    tx::restoreBackup(target);
    tx::BundleInfo info;
    if (tx::readBundleInfo(target, info) && !info.executable.empty()) {
        const tx::OpenResult result = tx::openBundle(target, options);
        if (result.error.empty())
            return 0;
        std::fprintf(stderr, "open: %s\n", result.error.c_str());
        return 1;
    }
    struct stat file {};
    if (!isAddress && stat(target.c_str(), &file) != 0) {
        std::fprintf(stderr, "open: %s: %s\n", target.c_str(), std::strerror(errno));
        return 1;
    }
    execlp("xdg-open", "xdg-open", target.c_str(), static_cast<char *>(nullptr));
    std::fprintf(stderr, "open: xdg-open cannot be run: %s\n", std::strerror(errno));
    return 1;
}
