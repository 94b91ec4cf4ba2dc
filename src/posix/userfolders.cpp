// SPDX-License-Identifier: MIT
#include "posix/userfolders.h"

#include "posix/trustedpath.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tx::posix {

namespace {

std::string absoluteVariable(const char *name) {
    const char *value = std::getenv(name);
    std::string text = value ? value : "";
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return !text.empty() && text.front() == '/' ? text : std::string();
}

bool makeFolders(const std::string &path) {
    if (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST)
        return true;
    const size_t slash = path.find_last_of('/');
    if (errno != ENOENT || slash == 0 || slash == std::string::npos)
        return false;
    return makeFolders(path.substr(0, slash)) && (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST);
}

} // namespace

std::string homeFolder() {
    if (std::string home = absoluteVariable("HOME"); !home.empty())
        return home;
    struct passwd entry {};
    struct passwd *found = nullptr;
    std::vector<char> buffer(16384);
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found)
        return found->pw_dir;
    return "/";
}

std::string cacheFolder() {
    const std::string folder = absoluteVariable("XDG_CACHE_HOME");
    return folder.empty() ? homeFolder() + "/.cache" : folder;
}

std::string configFolder() {
    const std::string folder = absoluteVariable("XDG_CONFIG_HOME");
    return folder.empty() ? homeFolder() + "/.config" : folder;
}

std::string dataFolder() {
    const std::string folder = absoluteVariable("XDG_DATA_HOME");
    return folder.empty() ? homeFolder() + "/.local/share" : folder;
}

std::string privateTemporaryFolder(std::string *why) {
    const std::string path = cacheFolder() + "/TarvixUpdate";
    const auto refuse = [&](const std::string &reason) {
        if (why)
            *why = path + ": " + reason;
        return std::string();
    };
    if (!makeFolders(path))
        return refuse(std::strerror(errno));
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0)
        return refuse(std::strerror(errno));
    if (!S_ISDIR(info.st_mode))
        return refuse("is not a folder");
    if (info.st_uid != geteuid())
        return refuse("belongs to another user");
    if ((info.st_mode & 0077) != 0 && chmod(path.c_str(), 0700) != 0)
        return refuse(std::strerror(errno));
    std::string resolved;
    if (const std::string problem = untrustedPart(path, resolved); !problem.empty())
        return refuse(problem);
    return path;
}

} // namespace tx::posix
