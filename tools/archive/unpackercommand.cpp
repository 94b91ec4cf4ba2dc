// SPDX-License-Identifier: MIT
#include "archive/unpackercommand.h"

#include "posix/posixfiles.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>

namespace tx::tools {

int becomeUnpacker(const char *tool, const char *type, char *folder, int levels) {
    const std::unique_ptr<char, decltype(&std::free)> own(realpath("/proc/self/exe", nullptr), &std::free);
    if (!own) {
        std::fprintf(stderr, "%s: /proc/self/exe: %s\n", tool, std::strerror(errno));
        return 1;
    }
    std::string program = posix::parentOf(own.get());
    for (; levels > 0; --levels)
        program = posix::parentOf(program);
    program += "/TXUpdateUnpacker";
    std::string typeName = type;
    char *words[] = {program.data(), typeName.data(), folder, nullptr};
    execv(program.c_str(), words);
    std::fprintf(stderr, "%s: %s: %s\n", tool, program.c_str(), std::strerror(errno));
    return 1;
}

} // namespace tx::tools
