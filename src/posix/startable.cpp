// SPDX-License-Identifier: MIT
#include "posix/startable.h"

#include "posix/bundleinfo.h"
#include "posix/posixfiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tx {

namespace {

/// As many as the kernel follows.
constexpr int mostLinks = 40;
constexpr int mostInterpreters = 4;

/// A file that is open for reading, or why it cannot be.
struct OpenedFile {
    posix::Descriptor descriptor;
    struct stat info {};
    std::string problem;
};

OpenedFile failed(std::string problem) {
    OpenedFile result;
    result.problem = std::move(problem);
    return result;
}

/// The components of a path in reverse order, so that they can be removed from the end.
void pushComponents(const std::string &path, std::vector<std::string> &components) {
    for (size_t end = path.size(); end > 0;) {
        const size_t slash = path.rfind('/', end - 1);
        const size_t start = slash == std::string::npos ? 0 : slash + 1;
        if (start < end)
            components.push_back(path.substr(start, end - start));
        end = slash == std::string::npos ? 0 : slash;
    }
}

/// Opens a regular file below `folder`. Links are followed as long as they stay below it.
OpenedFile openBelow(const std::string &folder, const std::string &path) {
    std::vector<posix::Descriptor> folders;
    folders.emplace_back(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folders.back().isOpen())
        return failed(std::string("cannot be looked at: ") + std::strerror(errno));
    std::vector<std::string> components;
    pushComponents(path, components);
    for (int links = 0; !components.empty();) {
        const std::string name = components.back();
        components.pop_back();
        if (name == ".")
            continue;
        if (name == "..") {
            folders.pop_back();
            if (folders.empty())
                return failed("is behind a link that leads out of the application");
            continue;
        }
        const int above = folders.back().get();
        OpenedFile entry;
        entry.descriptor = posix::Descriptor(openat(above, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (!entry.descriptor.isOpen() || fstat(entry.descriptor.get(), &entry.info) != 0)
            return failed(std::string("cannot be looked at: ") + std::strerror(errno));
        if (S_ISLNK(entry.info.st_mode)) {
            std::array<char, PATH_MAX> target{};
            const ssize_t length = readlinkat(entry.descriptor.get(), "", target.data(), target.size());
            if (length <= 0 || static_cast<size_t>(length) == target.size() || ++links > mostLinks)
                return failed("is behind a link that leads nowhere");
            if (target.front() == '/')
                return failed("is behind a link that leads out of the application");
            pushComponents(std::string(target.data(), static_cast<size_t>(length)), components);
            continue;
        }
        if (S_ISDIR(entry.info.st_mode) && !components.empty()) {
            folders.emplace_back(
                openat(above, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (!folders.back().isOpen())
                return failed(std::string("cannot be looked at: ") + std::strerror(errno));
            continue;
        }
        if (!S_ISREG(entry.info.st_mode) || !components.empty())
            return failed("is not a regular file");
        // If a pipe replaces the file meanwhile, opening it does not block, and it is not a regular file.
        entry.descriptor =
            posix::Descriptor(openat(above, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!entry.descriptor.isOpen() || fstat(entry.descriptor.get(), &entry.info) != 0)
            return failed(std::string("cannot be read: ") + std::strerror(errno));
        if (!S_ISREG(entry.info.st_mode))
            return failed("is not a regular file");
        return entry;
    }
    return failed("is not a regular file");
}

/// The first bytes of a file.
std::string beginningOf(int file) {
    std::array<char, 512> buffer{};
    ssize_t length = 0;
    while ((length = pread(file, buffer.data(), buffer.size(), 0)) < 0 && errno == EINTR) {
    }
    return std::string(buffer.data(), length > 0 ? static_cast<size_t>(length) : 0);
}

/// The identification of an ELF file; the layout of these fields is the same for all classes and machines.
struct ElfKind {
    unsigned char fileClass = 0;
    unsigned char byteOrder = 0;
    Elf32_Half type = 0;
    Elf32_Half machine = 0;
};

bool readElfKind(const std::string &beginning, ElfKind &kind) {
    if (beginning.size() < sizeof(Elf32_Ehdr) || beginning.compare(0, SELFMAG, ELFMAG) != 0)
        return false;
    kind.fileClass = static_cast<unsigned char>(beginning[EI_CLASS]);
    kind.byteOrder = static_cast<unsigned char>(beginning[EI_DATA]);
    std::memcpy(&kind.type, beginning.data() + offsetof(Elf32_Ehdr, e_type), sizeof kind.type);
    std::memcpy(&kind.machine, beginning.data() + offsetof(Elf32_Ehdr, e_machine), sizeof kind.machine);
    return true;
}

std::string whyElfCannotRun(const ElfKind &kind) {
    ElfKind own;
    const posix::Descriptor self(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    if (!self.isOpen() || !readElfKind(beginningOf(self.get()), own))
        return "cannot be compared with this machine's programs: /proc/self/exe cannot be read";
    if (kind.fileClass != own.fileClass || kind.byteOrder != own.byteOrder || kind.machine != own.machine)
        return "is a program for another kind of machine (ELF machine " + std::to_string(kind.machine) +
               ", this one is " + std::to_string(own.machine) + ")";
    if (kind.type != ET_EXEC && kind.type != ET_DYN)
        return "is an ELF file that is not a program";
    return {};
}

/// The interpreter that the first line of a script names; empty when it names none.
std::string interpreterIn(const std::string &beginning) {
    const std::string line = beginning.substr(2, std::min(beginning.find('\n'), beginning.size()) - 2);
    const size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos)
        return {};
    return line.substr(start, line.find_first_of(" \t\r", start) - start);
}

std::string whyFileCannotRun(const std::string &bundle, const std::string &place, const std::string &path,
                             int depth);

std::string whyInterpreterCannotRun(const std::string &bundle, const std::string &place,
                                    const std::string &interpreter, int depth) {
    if (interpreter.empty() || interpreter.front() != '/')
        return "is a script whose first line names no interpreter by an absolute path";
    const std::string named = "is a script whose interpreter " + interpreter + ' ';
    if (interpreter.compare(0, place.size() + 1, place + '/') == 0) {
        const std::string why =
            depth >= mostInterpreters
                ? "is one script too many"
                : whyFileCannotRun(bundle, place, interpreter.substr(place.size() + 1), depth + 1);
        return why.empty() ? std::string() : named + why;
    }
    struct stat info {};
    if (stat(interpreter.c_str(), &info) != 0)
        return named + "cannot be used: " + std::strerror(errno);
    if (!S_ISREG(info.st_mode) || (info.st_mode & 0111) == 0)
        return named + "is not a program";
    return {};
}

std::string whyFileCannotRun(const std::string &bundle, const std::string &place, const std::string &path,
                             int depth) {
    const OpenedFile file = openBelow(bundle, path);
    if (!file.problem.empty())
        return file.problem;
    if ((file.info.st_mode & S_IXUSR) == 0)
        return "may not be executed: it lacks its execute bit";
    const std::string beginning = beginningOf(file.descriptor.get());
    ElfKind kind;
    if (readElfKind(beginning, kind))
        return whyElfCannotRun(kind);
    if (beginning.compare(0, 2, "#!") == 0)
        return whyInterpreterCannotRun(bundle, place, interpreterIn(beginning), depth);
    return "is neither a program of this system nor a script";
}

} // namespace

std::string whyItCannotStart(const std::string &bundlePath, const std::string &placeOfBundle) {
    BundleInfo info;
    if (!readBundleInfo(bundlePath, info))
        return bundlePath + " is not an application: it has no readable Info.plist";
    if (info.executable.empty())
        return bundlePath + " has no executable: " +
               (info.executableName.empty()
                    ? "its Info.plist names none"
                    : "\"" + info.executableName + "\", which its Info.plist names, is not in it");
    const std::string path = info.executable.substr(bundlePath.size() + 1);
    const std::string why = whyFileCannotRun(bundlePath, placeOfBundle, path, 1);
    return why.empty() ? std::string()
                       : bundlePath + " cannot be started: its executable " + path + ' ' + why;
}

} // namespace tx
