// SPDX-License-Identifier: MIT
#include "posix/bundlecontents.h"

#include "posix/interrupted.h"
#include "posix/posixfiles.h"
#include "posix/readwrite.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::posix {

namespace {

const std::string contentsName = "Contents";

/// Why the folder does not count as this user's own.
std::string notOwnFolder(const std::string &path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0)
        return path + ": " + std::strerror(errno);
    if (!S_ISDIR(info.st_mode))
        return path + " is not a folder";
    if (info.st_uid != geteuid())
        return path + " does not belong to this user";
    if (faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0)
        return path + ": " + std::strerror(errno);
    return {};
}

/// Returns whether the entry is one of the top-level links of a bundle with the layout of /usr. These links
/// lead to the entry of the same name in "Contents", and stay unchanged when "Contents" is exchanged.
bool isLinkIntoContents(const std::string &folder, const std::string &name) {
    if (name != "bin" && name != "lib" && name != "share" && name != "Info.plist")
        return false;
    const std::string wanted = contentsName + '/' + name;
    std::array<char, 64> target{};
    const ssize_t length = readlink((folder + '/' + name).c_str(), target.data(), target.size());
    return length > 0 && std::string_view(target.data(), static_cast<size_t>(length)) == wanted;
}

/// Returns why the folder contains more than "Contents" and links into it; empty if it does not.
std::string holdsMore(const std::string &path) {
    std::vector<std::string> names;
    const int number = namesIn(path, names);
    const std::string leftover = '.' + contentsName + ".txupdate-";
    for (const std::string &name : names) {
        if (name != contentsName && name.rfind(leftover, 0) != 0 && !isLinkIntoContents(path, name))
            return path + " holds more than its \"" + contentsName + "\": " + name;
    }
    return number != 0 ? path + ": " + std::strerror(number) : std::string();
}

} // namespace

std::string contentsOf(const std::string &bundle) { return bundle + '/' + contentsName; }

std::string contentsProblem(const std::string &bundle, const std::string &newBundle) {
    const std::string contents = contentsOf(bundle);
    const bool isInterrupted = !entryExists(contents) && isOwnBackup(backupPathFor(contents));
    std::string problem = notOwnFolder(bundle);
    if (problem.empty() && !isInterrupted)
        problem = notOwnFolder(contents);
    if (problem.empty())
        problem = holdsMore(bundle);
    if (problem.empty() && !newBundle.empty())
        problem = holdsMore(newBundle);
    if (problem.empty() && !newBundle.empty() && !isDirectory(contentsOf(newBundle)))
        problem = contentsOf(newBundle) + " is not a folder";
    return problem;
}

} // namespace tx::posix
