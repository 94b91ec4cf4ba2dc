// SPDX-License-Identifier: MIT
#include "installer/files.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::installer {

namespace {

/// Calls `work` with the places of the paths. As root, a place is a name in an open folder, which nobody can
/// redirect. An ordinary user's paths are used as they are.
template <typename Work>
posix::FileError at(const std::string &path, const Work &work) {
    if (geteuid() != 0)
        return work(posix::Place(path));
    const posix::Descriptor folder = posix::openFolderWithoutLinks(posix::parentOf(path));
    return folder.isOpen() ? work(posix::Place(folder, path)) : posix::FileError{errno, path};
}

template <typename Work>
posix::FileError atBoth(const std::string &a, const std::string &b, const Work &work) {
    return at(a, [&](const posix::Place &first) {
        return at(b, [&](const posix::Place &second) { return work(first, second); });
    });
}

} // namespace

posix::FileError Files::rename(const std::string &from, const std::string &to) {
    return atBoth(from, to, [](const posix::Place &a, const posix::Place &b) {
        return renameat(a.folder, a.name.c_str(), b.folder, b.name.c_str()) == 0
                   ? posix::FileError{}
                   : posix::FileError{errno, a.path};
    });
}

posix::FileError Files::exchange(const std::string &a, const std::string &b) {
    return atBoth(a, b, [](const posix::Place &first, const posix::Place &second) {
        return posix::exchange(first, second);
    });
}

posix::FileError Files::copyTree(const std::string &from, const std::string &to,
                                 const posix::CopyRules &rules) {
    return atBoth(from, to, [&](const posix::Place &source, const posix::Place &target) {
        if (!rules.bitsAsIn)
            return posix::copyTree(source, target, rules);
        return at(rules.bitsAsIn->path, [&](const posix::Place &installed) {
            posix::CopyRules inPlace = rules;
            inPlace.bitsAsIn = installed;
            return posix::copyTree(source, target, inPlace);
        });
    });
}

posix::FileError Files::makeDirectory(const std::string &path) {
    return at(path, [](const posix::Place &place) {
        return mkdirat(place.folder, place.name.c_str(), 0700) == 0 ? posix::FileError{}
                                                                    : posix::FileError{errno, place.path};
    });
}

posix::FileError Files::removeTree(const std::string &path) {
    return at(path, [](const posix::Place &place) { return posix::removeTree(place); });
}

posix::FileError Files::removeFile(const std::string &path) {
    return at(path, [](const posix::Place &place) {
        return unlinkat(place.folder, place.name.c_str(), 0) == 0 || errno == ENOENT
                   ? posix::FileError{}
                   : posix::FileError{errno, place.path};
    });
}

posix::FileError Files::changeOwner(const std::string &path, uid_t owner, gid_t group) {
    return at(path, [&](const posix::Place &place) { return posix::changeOwner(place, owner, group); });
}

posix::FileError Files::limitSpecialBits(const std::string &tree, const std::string &installed) {
    return atBoth(tree, installed, [](const posix::Place &fresh, const posix::Place &old) {
        return posix::limitSpecialBits(fresh, old);
    });
}

posix::FileError Files::openToReaders(const std::string &folder) {
    return at(folder, [](const posix::Place &place) {
        return fchmodat(place.folder, place.name.c_str(), 0755, 0) == 0 ? posix::FileError{}
                                                                        : posix::FileError{errno, place.path};
    });
}

posix::FileError Files::lock(const std::string &path, posix::Descriptor &lock) {
    return at(path, [&](const posix::Place &place) { return posix::takeLock(place, lock); });
}

posix::FileError Files::syncFileSystem(const std::string &path) {
    return at(path, [](const posix::Place &place) { return posix::syncFileSystem(place); });
}

posix::FileError Files::syncDirectory(const std::string &path) {
    if (path == "/")
        return posix::syncDirectory(path);
    return at(path, [](const posix::Place &place) { return posix::syncDirectory(place); });
}

posix::FileError Files::examine(const std::string &path, struct stat &info) const {
    return at(path, [&](const posix::Place &place) {
        return fstatat(place.folder, place.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0
                   ? posix::FileError{}
                   : posix::FileError{errno, place.path};
    });
}

} // namespace tx::installer
