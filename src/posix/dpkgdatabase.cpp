// SPDX-License-Identifier: MIT
#include "posix/dpkgdatabase.h"

#include "posix/posixfiles.h"
#include "posix/readwrite.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace tx {

namespace {

/// The list of the largest packages takes a few megabytes.
constexpr off_t largestFile = off_t(256) << 20;

std::string failed(const std::string &path, int number) { return path + ": " + std::strerror(number); }

/// The content of a file, or an errno value.
int readAll(int folder, const char *name, std::string &content) {
    const posix::Descriptor file(openat(folder, name, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info {};
    if (!file.isOpen() || fstat(file.get(), &info) != 0)
        return errno;
    if (!S_ISREG(info.st_mode) || info.st_size > largestFile)
        return EFBIG;
    content.resize(static_cast<size_t>(info.st_size));
    size_t filled = 0;
    while (filled < content.size()) {
        const ssize_t n = read(file.get(), content.data() + filled, content.size() - filled);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return errno;
        if (n == 0)
            break;
        filled += static_cast<size_t>(n);
    }
    content.resize(filled);
    return 0;
}

/// Finds the requested paths.
class Wanted {
public:
    enum Kind {
        Bundle, ///< paths that lead to the bundle or into it
        Entry   ///< the path of the entry itself, whatever it is: its name in its folder
    };
    Wanted(const std::string &path, Kind kind)
        : m_kind(kind) {
        m_known = stat(kind == Bundle ? path.c_str() : posix::parentOf(path).c_str(), &m_info) == 0;
        m_names.insert(posix::lastComponentOf(path));
        if (kind == Entry)
            return;
        const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr), &std::free);
        if (real)
            m_names.insert(posix::lastComponentOf(real.get()));
    }
    [[nodiscard]] bool isKnown() const { return m_known; }

    /// Whether a line of the text names the path, or something in it.
    [[nodiscard]] bool isIn(const std::string &text) const {
        std::string last;
        for (const std::string &name : m_names) {
            const std::string needle = '/' + name;
            for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) {
                const size_t end = at + needle.size();
                if (end < text.size() && (text[end] != '/' || m_kind == Entry) && text[end] != '\n')
                    continue;
                const size_t newline = at == 0 ? std::string::npos : text.rfind('\n', at - 1);
                const size_t begin = newline == std::string::npos ? 0 : newline + 1;
                std::string path = text.substr(begin, end - begin);
                if (path == last)
                    continue;
                last = std::move(path);
                struct stat info {};
                const std::string compared = m_kind == Entry ? posix::parentOf(last) : last;
                if (stat(compared.c_str(), &info) == 0 && info.st_dev == m_info.st_dev &&
                    info.st_ino == m_info.st_ino)
                    return true;
            }
        }
        return false;
    }

private:
    const Kind m_kind;
    struct stat m_info {}; ///< of the bundle, or of the entry's folder
    bool m_known = false;
    std::set<std::string> m_names;
};

/// The first package whose list `found` accepts.
DpkgAnswer firstPackage(const std::string &folder, const std::function<bool(const std::string &)> &found) {
    const std::string lists = folder + "/info";
    const posix::Descriptor opened(open(lists.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::vector<std::string> names;
    if (const int number = opened.isOpen() ? posix::namesIn(opened.get(), names) : errno; number != 0)
        return {{}, failed(lists, number)};
    std::string content;
    const std::string suffix = ".list";
    for (const std::string &name : names) {
        if (name.size() > suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
            const int number = readAll(opened.get(), name.c_str(), content);
            // A package that is being removed no longer owns anything.
            if (number != 0 && number != ENOENT)
                return {{}, failed(lists + '/' + name, number)};
            // "name:architecture.list" for some.
            if (number == 0 && found(content))
                return {name.substr(0, std::min(name.find(':'), name.size() - suffix.size())), {}};
        }
    }
    return {};
}

DpkgAnswer ownerOf(const std::string &folder, const std::string &path, Wanted::Kind kind) {
    struct stat info {};
    if (stat((folder + "/info").c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
        // A system without dpkg, as opposed to one whose lists were deleted.
        const bool isThere = stat((folder + "/status").c_str(), &info) == 0 && info.st_size > 0;
        return isThere ? DpkgAnswer{{}, failed(folder + "/info", ENOENT)} : DpkgAnswer{};
    }
    const Wanted wanted(path, kind);
    if (!wanted.isKnown())
        return {{}, failed(path, ENOENT)};
    DpkgAnswer answer = firstPackage(folder, [&](const std::string &list) { return wanted.isIn(list); });
    if (!answer.package.empty() || !answer.failure.empty())
        return answer;
    // A file that was diverted into the bundle is listed under its original name. Each diversion has three
    // lines: the original name, the new name, and the package that requested it (":" for the administrator).
    std::string diversions;
    const int number = readAll(AT_FDCWD, (folder + "/diversions").c_str(), diversions);
    if (number != 0)
        return number == ENOENT ? answer : DpkgAnswer{{}, failed(folder + "/diversions", number)};
    for (size_t at = 0; at < diversions.size();) {
        std::string lines[3];
        for (std::string &line : lines) {
            const size_t end = std::min(diversions.find('\n', at), diversions.size());
            line = diversions.substr(std::min(at, end), end - std::min(at, end));
            at = end + 1;
        }
        if (!wanted.isIn(lines[1]))
            continue;
        const std::string listed = '\n' + lines[0] + '\n';
        answer = firstPackage(folder, [&](const std::string &list) {
            return ('\n' + list + '\n').find(listed) != std::string::npos;
        });
        if (!answer.package.empty() || !answer.failure.empty())
            return answer;
    }
    return {};
}

} // namespace

DpkgAnswer dpkgOwnerOf(const std::string &folder, const std::string &bundle) {
    return ownerOf(folder, bundle, Wanted::Bundle);
}

DpkgAnswer dpkgOwnerOfEntry(const std::string &folder, const std::string &path) {
    return ownerOf(folder, path, Wanted::Entry);
}

} // namespace tx
