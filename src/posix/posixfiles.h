// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>

/// File-tree operations without Qt, for the framework's file system and for the statically linked tools.
/// Thread: any. Links are never followed, except in the path that a caller passes.
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

/// Returns whether there is an entry of any kind at `path`, including a dangling link.
[[nodiscard]] bool entryExists(const std::string &path);
[[nodiscard]] bool isDirectory(const std::string &path);

/// The location of an entry: a whole path, or a name in an open folder. With an open folder nobody can
/// redirect the access. Does not own the folder's descriptor.
struct Place {
    Place(const std::string &wholePath);                           // NOLINT: a path is a place
    Place(const char *wholePath);                                  // NOLINT
    Place(const Descriptor &openFolder, const std::string &whole); ///< the last component of `whole`
    int folder;
    std::string name; ///< below `folder`; the whole path when that is AT_FDCWD
    std::string path; ///< only for messages if there is a folder
};

/// Opens the folder at the absolute `path` for use in a Place. If a component is a link, fails with ELOOP or
/// ENOTDIR. On failure the descriptor is not open and errno is set.
[[nodiscard]] Descriptor openFolderWithoutLinks(const std::string &path);

/// How a tree is copied. By default everything is this process's own.
struct CopyRules {
    /// Makes hard links to this user's files if the file system supports them. A later write to a file in one
    /// of the trees then changes it in both. Only files that nobody else may write to and that have no
    /// special bits, access list or capabilities are linked, because these belong to the file and not to its
    /// name.
    bool linksFiles = false;
    /// Refuses files and folders of other users with EPERM. Meant for a tree that this user may change during
    /// the copy: it could contain hard links to files that only this process may read.
    std::optional<uid_t> onlyFrom;
    /// As root: each entry keeps its owner and group.
    bool keepsOwners = false;
    /// As root: whom all of the copy is given to.
    std::optional<std::pair<uid_t, gid_t>> givenTo;
    /// Set-user-ID and set-group-ID bits of files stay only as limitSpecialBits says for this bundle. Without
    /// it, they stay on copies that are root's, as the original is, and in the same group.
    std::optional<Place> bitsAsIn;
};

/// Copies a file, link or tree to `to`, which must not exist. Keeps modes, times, links and the user's
/// extended attributes; shares data with the original if the file system can. Does not copy access lists,
/// including those that the parent folder would pass on, nor attributes of the system. Fails with EINVAL for
/// special files and for entries that cannot be examined, and with EIO if a file is shorter than its size
/// says. After a failure the caller must remove the incomplete copy.
FileError copyTree(const Place &from, const Place &to, const CopyRules &rules = {});

/// Removes a file, link or tree of any depth, including read-only folders. A missing entry is not an error.
FileError removeTree(const Place &tree);

/// Gives every entry of the tree to `owner` and `group` and drops nothing else.
FileError changeOwner(const Place &tree, uid_t owner, gid_t group);

/// Removes the set-user-ID and set-group-ID bits from the files of the tree. A file of root's keeps such a
/// bit if `installed` has a regular file of root's with the same bit at the same path; a set-group-ID bit
/// also needs the same group. Only root may be able to write to the folders on the way, and none of them may
/// be a link.
FileError limitSpecialBits(const Place &tree, const Place &installed);

/// Removes these bits from all files of a tree that replaces nothing.
FileError dropSpecialBits(const Place &tree);

/// Returns no error if the tree contains only files, folders and links. EINVAL names a device, pipe or
/// socket; any other number names an entry that could not be examined.
FileError findSpecialFile(const Place &tree);

/// Takes the lock file for this process, made when it is not there, without waiting. EWOULDBLOCK: another
/// process has it. As root it is given to the owner of the folder, who could remove it anyway: an opening by
/// that user finds out whether it is held.
FileError takeLock(const Place &file, Descriptor &lock);

/// Syncs the file system that contains the entry to disk.
FileError syncFileSystem(const Place &entry);
/// Forces a directory's entries to disk.
FileError syncDirectory(const Place &folder);

/// Swaps two entries in one step. EINVAL or ENOSYS: this file system has no exchange.
FileError exchange(const Place &a, const Place &b);

/// `path` without its last component; "/" for a path at the top.
[[nodiscard]] std::string parentOf(const std::string &path);
/// The last component, trailing slashes ignored.
[[nodiscard]] std::string lastComponentOf(const std::string &path);

} // namespace tx::posix
