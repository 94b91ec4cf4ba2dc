// SPDX-License-Identifier: MIT
#include "posix/posixfiles.h"
#include "posix/posixfiles_p.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::posix {

namespace {

/// Opens a folder to remove its content. If it belongs to this user, it is made readable and writable first.
Descriptor openToEmpty(const Place &place) {
    Descriptor folder = openFolder(place.folder, place.name.c_str());
    if (!folder.isOpen() && errno != EACCES)
        return folder;
    const Descriptor entry(openat(place.folder, place.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!entry.isOpen() || fstat(entry.get(), &info) != 0)
        return folder;
    const bool isOwn = S_ISDIR(info.st_mode) && info.st_uid == geteuid() && geteuid() != 0;
    if (isOwn && (info.st_mode & S_IRWXU) != S_IRWXU)
        (void)changeModeOf(entry, (info.st_mode & 07777) | S_IRWXU);
    if (!folder.isOpen())
        folder = openFolder(place.folder, place.name.c_str());
    return folder;
}

/// Removes one tree of any depth. Only the lowest folders are held open; a parent is reopened through "..",
/// which must lead to the same folder.
class Remover {
public:
    explicit Remover(const Place &tree)
        : m_tree(tree)
        , m_path(tree.path) {}

    FileError run() {
        FileError error = removeEntry(m_tree.folder, m_tree.name);
        while (!error && !m_levels.empty()) {
            Level &level = m_levels.back();
            if (level.left.empty()) {
                error = leave();
                continue;
            }
            const std::string name = std::move(level.left.back());
            level.left.pop_back();
            m_path += '/' + name;
            const size_t depth = m_levels.size();
            error = removeEntry(level.folder.get(), name);
            if (!error && m_levels.size() == depth)
                m_path.resize(m_path.size() - name.size() - 1);
        }
        return error;
    }

private:
    /// A folder that is emptied.
    struct Level {
        std::string name; ///< in the folder above
        Descriptor folder;
        struct stat info {};
        std::vector<std::string> left;
    };
    static constexpr size_t mostOpen = 32;

    /// Removes a file, or begins with a folder.
    FileError removeEntry(int above, const std::string &name) {
        struct stat info {};
        if (fstatat(above, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT ? FileError{} : failure(m_path);
        if (!S_ISDIR(info.st_mode))
            return unlink(above, name, 0);
        Level level;
        level.name = name;
        Place place(m_path);
        place.folder = above;
        place.name = name;
        level.folder = openToEmpty(place);
        if (!level.folder.isOpen() || fstat(level.folder.get(), &level.info) != 0)
            return failure(m_path);
        if (const int number = namesIn(level.folder.get(), level.left))
            return {number, m_path};
        m_levels.push_back(std::move(level));
        if (m_levels.size() > mostOpen)
            m_levels[m_levels.size() - 1 - mostOpen].folder.reset();
        return {};
    }

    /// Removes the lowest folder, which is empty.
    FileError leave() {
        const Level level = std::move(m_levels.back());
        m_levels.pop_back();
        int above = m_tree.folder;
        if (!m_levels.empty()) {
            Level &upper = m_levels.back();
            if (!upper.folder.isOpen() && !reopen(level.folder, upper))
                return failure(m_path);
            above = upper.folder.get();
        }
        if (FileError error = unlink(above, level.name, AT_REMOVEDIR))
            return error;
        if (!m_levels.empty())
            m_path.resize(m_path.size() - level.name.size() - 1);
        return {};
    }

    /// Reopens the parent of `below`. If `below` was moved meanwhile, its new parent is refused.
    static bool reopen(const Descriptor &below, Level &level) {
        level.folder = Descriptor(openat(below.get(), "..", O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat info {};
        if (!level.folder.isOpen() || fstat(level.folder.get(), &info) != 0)
            return false;
        errno = ESTALE;
        return info.st_dev == level.info.st_dev && info.st_ino == level.info.st_ino;
    }

    [[nodiscard]] FileError unlink(int above, const std::string &name, int flags) const {
        return unlinkat(above, name.c_str(), flags) == 0 || errno == ENOENT ? FileError{} : failure(m_path);
    }

    const Place &m_tree;
    std::string m_path;
    std::vector<Level> m_levels;
};

} // namespace

FileError removeTree(const Place &tree) { return Remover(tree).run(); }

} // namespace tx::posix
