// SPDX-License-Identifier: MIT
#include "archive/extraction.h"

#include "archive/links.h"
#include "archive/lowerrights.h"
#include "posix/posixfiles.h"
#include "posix/readwrite.h"
#include "posix/updatefoldernames.h"

#include <archive_entry.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iconv.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tx::tools {

namespace {

using Writer = std::unique_ptr<archive, decltype(&archive_write_free)>;

/// If the run is killed, the next one removes this folder.
constexpr const char *stagingName = incompleteUnpackingName;

/// The least that an entry counts, so that a limit on bytes also limits the number of entries.
constexpr la_int64_t entrySize = 4096;
/// The longest name: together with an application's folder it must fit the system's limit for paths.
constexpr size_t longestName = PATH_MAX - 1024;

/// True if the first part of `name` is UTF-8, so that the framework can name the entry and remove it.
bool hasReadableTop(const std::string &name) {
    const std::string top = name.substr(0, name.find('/'));
    // Both are built into the C library; the files of its other converters may be missing.
    iconv_t converter = iconv_open("UCS-4LE", "UTF-8");
    if (converter == iconv_t(-1))
        return false;
    std::vector<char> output(4 * top.size() + 4);
    char *from = const_cast<char *>(top.data());
    char *to = output.data();
    size_t left = top.size();
    size_t room = output.size();
    const bool valid = iconv(converter, &from, &left, &to, &room) != size_t(-1);
    iconv_close(converter);
    return valid;
}

/// True if `name` stays below the folder that it is relative to.
bool staysInside(const std::string &name) {
    if (name.empty() || name.front() == '/')
        return false;
    for (size_t start = 0; start <= name.size();) {
        const size_t end = std::min(name.find('/', start), name.size());
        if (name.compare(start, end - start, "..") == 0)
            return false;
        start = end + 1;
    }
    return true;
}

class Extraction {
public:
    /// `room`: the length of a name for which the path from the top is too long.
    Extraction(archive *reader, const char *tool, size_t room)
        : m_reader(reader)
        , m_writer(archive_write_disk_new(), &archive_write_free)
        , m_tool(tool)
        , m_longestName(std::min(longestName, room))
        , m_left(unpackedLimit()) {
        // In a new folder nothing need be replaced, so nothing is written through a link.
        archive_write_disk_set_options(
            m_writer.get(), ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                                ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS);
    }

    /// Unpacks everything into the current folder.
    bool run() {
        archive_entry *entry = nullptr;
        for (;;) {
            const int result = archive_read_next_header(m_reader, &entry);
            if (result == ARCHIVE_EOF)
                break;
            if (result < ARCHIVE_WARN)
                return refuse("the archive is damaged", archive_error_string(m_reader));
            const char *stored = archive_entry_pathname(entry);
            const std::string name = stored ? stored : "";
            // Metadata of the file system on which the archive was packed is useless here.
            if (name.rfind("__MACOSX/", 0) == 0 || name == "." || name == "./")
                continue;
            if (!write(entry, name))
                return false;
        }
        if (archive_write_close(m_writer.get()) != ARCHIVE_OK)
            return refuse("cannot write", archive_error_string(m_writer.get()));
        // A link may lead through others that came after it.
        for (const std::string &name : m_links) {
            if (const std::string reason = reasonAgainstLink(name); !reason.empty())
                return refuse(name, reason.c_str());
        }
        // The library does not set these bits on files that seem to belong to another user.
        for (const auto &[name, mode] : m_special) {
            if (fchmodat(AT_FDCWD, name.c_str(), mode, 0) != 0)
                return refuse(name, std::strerror(errno));
        }
        return true;
    }

private:
    bool refuse(const std::string &what, const char *why) {
        (void)fail(m_tool, what, why ? why : "unknown reason");
        return false;
    }

    bool write(archive_entry *entry, const std::string &name) {
        const char *target = archive_entry_hardlink(entry);
        mode_t type = archive_entry_filetype(entry);
        if (target)
            type = AE_IFREG;
        if (!staysInside(name) || (target && !staysInside(target)))
            return refuse(name, "would leave the folder");
        if (name.size() > m_longestName)
            return refuse(name, "the path is too long");
        if (!hasReadableTop(name))
            return refuse(name, "the name is not UTF-8");
        if (type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK)
            return refuse(name, "is no file that an application may hold");
        // Also on a file system that treats two names of the archive as equal.
        if (type != AE_IFDIR && posix::entryExists(name))
            return refuse(name, "stands there twice");
        if (const std::string reason = reasonAgainst(entry, name, type); !reason.empty())
            return refuse(name, reason.c_str());
        m_left -= entrySize;
        if (m_left < 0 || (archive_entry_size_is_set(entry) && archive_entry_size(entry) > m_left))
            return refuse(name, "the archive takes more room than is accepted");
        // Nobody else may write into an application.
        const mode_t mode = archive_entry_mode(entry) & 07755;
        // Zip archives of simple tools have no modes for some entries.
        const mode_t usual = type == AE_IFDIR ? 0755 : 0644;
        // What its owner cannot read could be neither checked nor copied.
        const mode_t needed = type == AE_IFDIR ? S_IRUSR | S_IXUSR : S_IRUSR;
        if (!target && type != AE_IFLNK && (mode & 0777) != 0 && (mode & needed) != needed)
            return refuse(name, "has a mode with which it cannot be looked at");
        archive_entry_set_perm(entry, (mode & 0777) == 0 ? usual : mode & 0777);
        if (!target && type == AE_IFREG && (mode & (S_ISUID | S_ISGID)) != 0)
            m_special.emplace_back(name, mode & (S_ISUID | S_ISGID | 0777));
        if (archive_write_header(m_writer.get(), entry) != ARCHIVE_OK)
            return refuse(name, archive_error_string(m_writer.get()));
        if ((archive_entry_size_is_set(entry) == 0 || archive_entry_size(entry) > 0) && !copyContent(name))
            return false;
        if (archive_write_finish_entry(m_writer.get()) < ARCHIVE_WARN)
            return refuse(name, archive_error_string(m_writer.get()));
        return true;
    }

    /// Why a link or hard link must not be made; empty for every other entry.
    std::string reasonAgainst(archive_entry *entry, const std::string &name, mode_t type) {
        if (const char *target = archive_entry_hardlink(entry))
            return reasonAgainstHardLink(target);
        if (type != AE_IFLNK)
            return {};
        const char *target = archive_entry_symlink(entry);
        m_links.push_back(name);
        return reasonAgainstLink(name, target ? target : "");
    }

    bool copyContent(const std::string &name) {
        const void *block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        la_int64_t end = 0;
        for (;;) {
            const int result = archive_read_data_block(m_reader, &block, &size, &offset);
            if (result == ARCHIVE_EOF)
                break;
            if (result != ARCHIVE_OK) // the library only warns about a wrong checksum
                return refuse("the archive is damaged", archive_error_string(m_reader));
            end = std::max(end, offset + static_cast<la_int64_t>(size));
            if (end > m_left)
                return refuse(name, "the archive takes more room than is accepted");
            // The same holds for a write that fails, for example on a full disk.
            if (archive_write_data_block(m_writer.get(), block, size, offset) != ARCHIVE_OK)
                return refuse(name, archive_error_string(m_writer.get()));
        }
        m_left -= end;
        return true;
    }

    archive *m_reader;
    Writer m_writer;
    const char *m_tool;
    size_t m_longestName;
    la_int64_t m_left;
    std::vector<std::string> m_links;
    std::vector<std::pair<std::string, mode_t>> m_special;
};

/// Moves what was unpacked to its final path; entries of the same names are removed.
bool publish(const std::string &staging, const std::string &folder, const char *tool) {
    std::error_code error;
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(staging, error))
        names.push_back(entry.path().filename().string());
    if (error)
        return fail(tool, staging, error.message().c_str()) == 0;
    for (const std::string &name : names) {
        const std::string target = folder + '/' + name;
        if (posix::FileError failure = posix::removeTree(target))
            return fail(tool, failure.path, std::strerror(failure.number)) == 0;
        if (rename((staging + '/' + name).c_str(), target.c_str()) != 0)
            return fail(tool, target, std::strerror(errno)) == 0;
    }
    return true;
}

/// One at a time in a folder. The tool of a killed host soon ends: with its caller, or when it notices the
/// end of its input.
int lockFolder(const std::string &folder) {
    posix::Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    constexpr int tries = 1000;
    for (int i = 0; descriptor.isOpen() && flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0; ++i) {
        if (errno != EWOULDBLOCK || i == tries)
            return -1;
        usleep(10000);
    }
    return descriptor.release();
}

} // namespace

int fail(const char *tool, const std::string &what, const char *why) {
    std::fprintf(stderr, "%s: %s: %s\n", tool, what.c_str(), why);
    return 1;
}

la_int64_t unpackedLimit() {
    const char *text = std::getenv("TXUPDATE_UNARCHIVER_LIMIT");
    const long long limit = text ? std::strtoll(text, nullptr, 10) : 0;
    return limit > 0 ? limit : la_int64_t(usualUnpackedSize);
}

int seekableInput(const std::string &folder, bool &unreadable) {
    struct stat info {};
    if (fstat(STDIN_FILENO, &info) == 0 && S_ISREG(info.st_mode) && lseek(STDIN_FILENO, 0, SEEK_CUR) == 0)
        return STDIN_FILENO;
    int spool = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (spool < 0) { // a file system without unnamed temporary files
        std::string name = folder + "/.ditto-XXXXXX";
        spool = mkostemp(name.data(), O_CLOEXEC);
        if (spool >= 0)
            unlink(name.c_str());
    }
    if (spool < 0)
        return -1;
    std::vector<char> buffer(1 << 18);
    for (ssize_t n = 0; (n = read(STDIN_FILENO, buffer.data(), buffer.size())) != 0;) {
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            unreadable = true;
            return -1;
        }
        if (posix::writeAll(spool, buffer.data(), static_cast<size_t>(n)) != static_cast<size_t>(n))
            return -1;
    }
    return lseek(spool, 0, SEEK_SET) == 0 ? spool : -1;
}

void drainInput() {
    struct stat info {};
    if (fstat(STDIN_FILENO, &info) == 0 && S_ISREG(info.st_mode))
        return; // nobody writes it
    std::vector<char> buffer(1 << 16);
    for (ssize_t n = 1; n > 0 || (n < 0 && errno == EINTR);)
        n = read(STDIN_FILENO, buffer.data(), buffer.size());
}

int extract(archive *reader, const std::string &destination, const char *tool,
            const std::function<bool()> &endsWell) {
    const posix::Descriptor alone(lockFolder(destination));
    if (!alone.isOpen())
        return fail(tool, destination, std::strerror(errno));
    // Absolute, because the working directory changes, and this user might not be able to open the original
    // one again.
    const std::unique_ptr<char, decltype(&std::free)> absolute(realpath(destination.c_str(), nullptr),
                                                               &std::free);
    if (!absolute)
        return fail(tool, destination, std::strerror(errno));
    const std::string folder = absolute.get();
    const std::string staging = folder + '/' + stagingName;
    if (posix::FileError error = posix::removeTree(staging))
        return fail(tool, error.path, std::strerror(error.number));
    if (mkdir(staging.c_str(), 0700) != 0 || chdir(staging.c_str()) != 0)
        return fail(tool, staging, std::strerror(errno));
    const size_t taken = staging.size() + sizeof "/"; // with the NUL at the end
    const size_t room = taken < PATH_MAX ? PATH_MAX - taken : 0;
    const bool complete = Extraction(reader, tool, room).run() && (!endsWell || endsWell());
    const bool left = chdir("/") == 0;
    const bool published = complete && left && publish(staging, folder, tool);
    if (posix::FileError error = posix::removeTree(staging))
        return fail(tool, error.path, std::strerror(error.number));
    return published ? 0 : 1;
}

} // namespace tx::tools
