// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>

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

/// Where an entry is: a whole path, or a name in an open folder, which nobody can lead elsewhere. Does not
/// own the folder.
struct Place {
    Place(const std::string &wholePath);                           // NOLINT: a path is a place
    Place(const char *wholePath);                                  // NOLINT
    Place(const Descriptor &openFolder, const std::string &whole); ///< the last component of `whole`
    int folder;
    std::string name; ///< below `folder`; the whole path when that is AT_FDCWD
    std::string path; ///< for words only, when there is a folder
};

/// Opens the folder at the absolute `path` for use in a Place. No link is followed on the way: ELOOP or
/// ENOTDIR. Not open and errno set on failure.
[[nodiscard]] Descriptor openFolderWithoutLinks(const std::string &path);

/// How a tree is copied. By default everything is this process's own.
struct CopyRules {
    /// Files of this user become second names of the same files where the file system has such; what is
    /// written into one of the trees later shows in both. Only files to which nobody else may write, and that
    /// have no special bits, access list or capabilities: those belong to the file, whatever its name.
    bool linksFiles = false;
    /// Files and folders of others are refused (EPERM), as for a tree that this user may change meanwhile:
    /// they could be second names of what only this process may read.
    std::optional<uid_t> onlyFrom;
    /// As root: each entry keeps its owner and group.
    bool keepsOwners = false;
    /// As root: whom all of the copy is given to.
    std::optional<std::pair<uid_t, gid_t>> givenTo;
    /// Set-user-ID and set-group-ID bits of files stay only as limitSpecialBits says for this bundle. Without
    /// it, they stay on copies that are root's, as the original is, and in the same group.
    std::optional<Place> bitsAsIn;
};

/// Copies a file, link or tree to `to`, which must not exist: modes, times, links and extended attributes of
/// the user stay, data is shared with the original where the file system can. Access lists, also those that
/// the folder around would hand down, and attributes of the system are not copied. Special files are refused
/// (EINVAL), as is what cannot be looked at. EIO: a file gave fewer bytes than its size. A copy that fails
/// leaves what it made; the caller removes it.
FileError copyTree(const Place &from, const Place &to, const CopyRules &rules = {});

/// Removes a file, link or tree, however deep, read-only folders included. An absent one is no error.
FileError removeTree(const Place &tree);

/// Gives every entry of the tree to `owner` and `group` and drops nothing else.
FileError changeOwner(const Place &tree, uid_t owner, gid_t group);

/// Takes the set-user-ID and set-group-ID bits from the files of the tree. Such a bit stays only on a file of
/// root's, when `installed` holds at the same path a regular file of root's that has it too; for a group's,
/// one of the same group. Nobody but root may write to the folders that lead there, and no link does.
FileError limitSpecialBits(const Place &tree, const Place &installed);

/// The same for a tree that replaces nothing: no file of it keeps such a bit.
FileError dropSpecialBits(const Place &tree);

/// Null when the tree holds nothing but files, folders and links. EINVAL names a device, pipe or socket;
/// another number an entry that could not be looked at.
FileError findSpecialFile(const Place &tree);

/// Takes the lock file for this process, made when it is not there, without waiting. EWOULDBLOCK: another
/// process has it. As root it is given to the owner of the folder, who could remove it anyway: an opening by
/// that user finds out whether it is held.
FileError takeLock(const Place &file, Descriptor &lock);

/// Forces the file system that holds `path` to disk.
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
