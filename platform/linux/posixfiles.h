// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

/// File-tree operations without Qt, shared by the framework's file system and by the stand-alone tools.
/// Thread: any. Links are never followed, except where a caller's path runs through one.
namespace tx::posix {

/// An errno value (0 = no error) and the path at which it happened.
struct [[nodiscard]] FileError {
    int number = 0;
    std::string path;
    explicit operator bool() const { return number != 0; }
};

/// A file descriptor that closes itself.
class Descriptor {
public:
    explicit Descriptor(int fd = -1)
        : m_fd(fd) {}
    Descriptor(Descriptor &&other) noexcept
        : m_fd(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept;
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const { return m_fd; }
    [[nodiscard]] bool isOpen() const { return m_fd >= 0; }
    int release();
    /// Closes; returns the errno of a failed close.
    int reset();

private:
    int m_fd;
};

/// True when an entry of any kind, a dangling link included, stands at `path`.
[[nodiscard]] bool entryExists(const std::string &path);
[[nodiscard]] bool isDirectory(const std::string &path);

/// Copies a file, link or tree to `to`, which must not exist: modes, times, links and extended attributes
/// stay, data is shared with the original where the file system can. Special files are refused (EINVAL).
/// A copy that fails leaves what it made; the caller removes it.
FileError copyTree(const std::string &from, const std::string &to);

/// As copyTree, for a tree that another user may change meanwhile: files that are not `owner`'s are refused
/// (EPERM), as a second name of one that only this process may read.
FileError copyTreeOf(uid_t owner, const std::string &from, const std::string &to);

/// As copyTree, but the files of this user become second names of the same files where the file system has
/// such; what is written into one of the trees later shows in both.
FileError linkTree(const std::string &from, const std::string &to);

/// Removes a file, link or tree, read-only folders included. An absent path is no error.
FileError removeTree(const std::string &path);

/// Gives every entry of the tree to `owner` and `group` and drops nothing else.
FileError changeOwner(const std::string &path, uid_t owner, gid_t group);

/// A file that runs with the rights of its owner or group.
struct SpecialBits {
    std::string path; ///< below the tree, with a slash in front
    mode_t mode;      ///< all of its permission bits
};
[[nodiscard]] std::vector<SpecialBits> specialBitsBelow(const std::string &path);

/// Forces the file system that holds `path` to disk.
FileError syncFileSystem(const std::string &path);
/// Forces a directory's entries to disk.
FileError syncDirectory(const std::string &path);

/// Swaps two entries in one step. EINVAL or ENOSYS: this file system has no exchange.
FileError exchange(const std::string &a, const std::string &b);

/// `path` without its last component; "/" for a path at the top.
[[nodiscard]] std::string parentOf(const std::string &path);
/// The last component, trailing slashes ignored.
[[nodiscard]] std::string lastComponentOf(const std::string &path);

/// The first special file (device, FIFO, socket) below `path`; empty when there is none.
[[nodiscard]] std::string findSpecialFile(const std::string &path);

} // namespace tx::posix
