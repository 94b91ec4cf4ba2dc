// SPDX-License-Identifier: MIT
#include "installer/ownplace.h"

#include "posix/rootspath.h"

#include <climits>
#include <cstdint>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::installer {

std::string ownExecutable() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return length > 0 && length < PATH_MAX ? std::string(path, static_cast<size_t>(length)) : std::string();
}

std::string notRootsOwnProgram(const std::string &executable) {
    if (executable.empty())
        return "the place of the running program cannot be told";
    posix::Descriptor file;
    if (std::string problem = posix::openRootsOwn(executable, file); !problem.empty())
        return problem;
    struct stat there {};
    struct stat running {};
    if (fstat(file.get(), &there) != 0 || stat("/proc/self/exe", &running) != 0 ||
        there.st_dev != running.st_dev || there.st_ino != running.st_ino)
        return executable + " is not the program that runs";
    return {};
}

bool readUser(const char *text, uid_t &user) {
    const std::string digits = text ? text : "";
    if (digits.empty() || digits.size() > 10 || digits.find_first_not_of("0123456789") != std::string::npos ||
        (digits.size() > 1 && digits.front() == '0'))
        return false;
    const uint64_t number = std::stoull(digits);
    if (number >= UINT32_MAX)
        return false;
    user = static_cast<uid_t>(number);
    return true;
}

} // namespace tx::installer
