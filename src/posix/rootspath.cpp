// SPDX-License-Identifier: MIT
#include "posix/rootspath.h"

#include "posix/trustedpath.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace tx::posix {

namespace {

/// One component on the way, as fstat() saw it.
struct Step {
    Descriptor entry;
    struct stat info {};
    std::string path;
};

std::string openStep(int folder, const std::string &name, const std::string &path, Step &step) {
    step.path = path;
    step.entry = Descriptor(openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!step.entry.isOpen() || fstat(step.entry.get(), &step.info) != 0)
        return path + ": " + std::strerror(errno);
    if (S_ISLNK(step.info.st_mode))
        return path + " is a link";
    return {};
}

/// Why `step`, in the folder `above` (null at the top), cannot be part of a path that only root can change.
std::string notRootsOwn(const Step *above, const Step &step) {
    if (step.info.st_uid != 0)
        return step.path + " does not belong to root";
    // "Others" are all users but root, including members of root's own group.
    constexpr mode_t others = S_IWGRP | S_IWOTH;
    const bool isSticky = S_ISDIR(step.info.st_mode) && (step.info.st_mode & S_ISVTX) != 0;
    // Access lists, and attributes that cannot be read, count as everywhere else.
    if (std::string problem = isSticky ? "" : writableByOthers(step.entry.get(), step.path, 0);
        !problem.empty())
        return problem;
    if ((step.info.st_mode & others) != 0 && !isSticky)
        return step.path + " can be written to by other users";
    // Another user can create an entry in such a folder: a second name of a root file, or a mounted file
    // system.
    if (above && (above->info.st_mode & others) != 0 &&
        (!S_ISDIR(step.info.st_mode) || step.info.st_dev != above->info.st_dev))
        return step.path + " is in a folder that other users can write to";
    return {};
}

/// Continues from `step` to the end of `path`. `start` is the offset of the next component.
std::string walkOn(Step step, const std::string &path, size_t start, bool rootsOwn, Descriptor &entry) {
    std::string problem;
    while (problem.empty() && start < path.size()) {
        const size_t end = std::min(path.find('/', start), path.size());
        Step next;
        problem = openStep(step.entry.get(), path.substr(start, end - start), path.substr(0, end), next);
        if (problem.empty() && rootsOwn)
            problem = notRootsOwn(&step, next);
        step = std::move(next);
        start = end + 1;
    }
    struct statvfs volume {};
    if (problem.empty() && rootsOwn && fstatvfs(step.entry.get(), &volume) != 0)
        problem = path + ": " + std::strerror(errno);
    if (problem.empty() && rootsOwn && (volume.f_flag & ST_NOSUID) != 0)
        problem = path + " is on a file system that is mounted with \"nosuid\"";
    if (problem.empty())
        entry = std::move(step.entry);
    return problem;
}

std::string walk(const std::string &path, bool rootsOwn, Descriptor &entry) {
    if (!isPlainPath(path))
        return "\"" + path + "\" is not an absolute path without \".\" and \"..\"";
    Step step;
    std::string problem = openStep(AT_FDCWD, "/", "/", step);
    if (problem.empty() && rootsOwn)
        problem = notRootsOwn(nullptr, step);
    return problem.empty() ? walkOn(std::move(step), path, 1, rootsOwn, entry) : problem;
}

std::string walkIn(const Descriptor &folder, const std::string &path, const std::string &relative,
                   bool rootsOwn, Descriptor &entry) {
    const std::string whole = path + '/' + relative;
    if (!isPlainPath(whole))
        return "\"" + whole + "\" is not an absolute path without \".\" and \"..\"";
    Step step;
    step.path = path;
    step.entry = Descriptor(fcntl(folder.get(), F_DUPFD_CLOEXEC, 0));
    if (!step.entry.isOpen() || fstat(step.entry.get(), &step.info) != 0)
        return path + ": " + std::strerror(errno);
    return walkOn(std::move(step), whole, path.size() + 1, rootsOwn, entry);
}

bool isFileAt(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

} // namespace

bool isPlainPath(const std::string &path) {
    if (path.size() < 2 || path.front() != '/' || path.find('\0') != std::string::npos)
        return false;
    for (size_t start = 1; start <= path.size();) {
        const size_t end = std::min(path.find('/', start), path.size());
        const std::string name = path.substr(start, end - start);
        if (name.empty() || name == "." || name == "..")
            return false;
        start = end + 1;
    }
    return true;
}

std::string openWithoutLinks(const std::string &path, Descriptor &entry) { return walk(path, false, entry); }

std::string openRootsOwn(const std::string &path, Descriptor &entry) { return walk(path, true, entry); }

std::string openWithoutLinksIn(const Descriptor &folder, const std::string &path, const std::string &relative,
                               Descriptor &entry) {
    return walkIn(folder, path, relative, false, entry);
}

std::string openRootsOwnIn(const Descriptor &folder, const std::string &path, const std::string &relative,
                           Descriptor &entry) {
    return walkIn(folder, path, relative, true, entry);
}

std::string applicationAround(const std::string &path) {
    if (!isPlainPath(path))
        return {};
    for (std::string folder = parentOf(path); folder != "/"; folder = parentOf(folder)) {
        if (isFileAt(folder + "/Contents/Info.plist") ||
            (isFileAt(folder + "/Info.plist") && lastComponentOf(folder) != "Contents"))
            return folder;
    }
    return {};
}

} // namespace tx::posix
