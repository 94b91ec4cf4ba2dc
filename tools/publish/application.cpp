// SPDX-License-Identifier: MIT
#include "publish/application.h"

#include "model/bundletrust.h"
#include "posix/bundleinfo.h"
#include "posix/posixfiles.h"
#include "publish/faults.h"

#include <TarvixUpdate/TXBundle.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

Fault cannot(const std::string &what, const std::string &path, int number) {
    return {FaultKind::File, path + " cannot be " + what + ": " + std::strerror(number)};
}

/// Returns whether a relative link stays inside the bundle, wherever the bundle is. Looks only at the names.
bool staysInside(const std::string &name, const std::string &target) {
    if (target.empty() || target.front() == '/')
        return false;
    auto depth = std::count(name.begin(), name.end(), '/');
    for (size_t begin = 0; begin < target.size();) {
        const size_t end = std::min(target.find('/', begin), target.size());
        const std::string part = target.substr(begin, end - begin);
        if (part == "..")
            --depth;
        else if (!part.empty() && part != ".")
            ++depth;
        if (depth < 0)
            return false;
        begin = end + 1;
    }
    return true;
}

/// Lists everything below a folder.
class Walk {
public:
    explicit Walk(std::string bundle)
        : m_bundle(std::move(bundle)) {}

    Verdict add(const std::string &name) {
        const std::string path = name.empty() ? m_bundle : m_bundle + '/' + name;
        struct stat info {};
        if (lstat(path.c_str(), &info) != 0)
            return cannot("looked at", path, errno);
        BundleEntry entry;
        entry.name = name;
        entry.modified = info.st_mtim.tv_sec;
        if (S_ISDIR(info.st_mode)) {
            entry.kind = BundleEntry::Kind::Folder;
            entries.push_back(entry);
            return addContent(path, name);
        }
        if (S_ISREG(info.st_mode)) {
            entry.isExecutable = (info.st_mode & 0111U) != 0;
            entry.size = info.st_size;
        } else if (S_ISLNK(info.st_mode)) {
            std::array<char, 4096> target{};
            const ssize_t length = readlink(path.c_str(), target.data(), target.size());
            if (length < 0 || size_t(length) == target.size())
                return cannot("read", path, length < 0 ? errno : ENAMETOOLONG);
            entry.kind = BundleEntry::Kind::Link;
            entry.target.assign(target.data(), size_t(length));
            if (!staysInside(name, entry.target))
                return Fault{FaultKind::File, path + " is a link to " + entry.target +
                                                  ", which is absolute or leads out of the application. "
                                                  "Installations refuse it: use a relative link"};
        } else {
            return Fault{FaultKind::File,
                         path + " is neither a file nor a folder nor a link. Installations refuse it"};
        }
        entries.push_back(entry);
        return std::nullopt;
    }

    std::vector<BundleEntry> entries;

private:
    Verdict addContent(const std::string &path, const std::string &name) {
        const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(path.c_str()), &closedir);
        if (!folder)
            return cannot("read", path, errno);
        std::vector<std::string> names;
        errno = 0;
        while (const dirent *entry = readdir(folder.get())) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                names.emplace_back(entry->d_name);
        }
        if (errno != 0)
            return cannot("read", path, errno);
        for (const std::string &child : names) {
            if (const Verdict failed = add(name.empty() ? child : name + '/' + child))
                return failed;
        }
        return std::nullopt;
    }

    const std::string m_bundle;
};

/// Returns whether a file is a program and not a library. A program names its loader or has a fixed load
/// address. A library that can also be run as a program has ".so" in its name.
Outcome<bool> isProgram(const std::string &path) {
    const posix::Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file.isOpen())
        return cannot("read", path, errno);
    Elf64_Ehdr header{};
    if (pread(file.get(), &header, sizeof header, 0) != ssize_t(sizeof header) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64)
        return false;
    const size_t slash = path.rfind('/');
    if (path.find(".so", slash) != std::string::npos)
        return false;
    if (header.e_type == ET_EXEC)
        return true;
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr part{};
        const off_t at = off_t(header.e_phoff) + off_t(i) * header.e_phentsize;
        if (pread(file.get(), &part, sizeof part, at) == ssize_t(sizeof part) && part.p_type == PT_INTERP)
            return true;
    }
    return false;
}

Fault notExecutable(const std::string &path) {
    return {FaultKind::Mismatch,
            path + " lacks its execute bit, so it could not be started after the update: chmod +x it"};
}

} // namespace

Outcome<Application> readApplication(const QString &path) {
    const QFileInfo file(path);
    const TXBundle bundle(file.absoluteFilePath());
    const Outcome<trust::AppInfo> info = trust::infoOfBundle(bundle);
    if (!info)
        return Fault{info.fault().kind, path.toStdString() + ": " + info.fault().what};
    if (info->bundle.empty())
        return Fault{FaultKind::Keys,
                     path.toStdString() +
                         " is not an application: it has no Info.plist with a CFBundleIdentifier"};
    if (info->build.empty())
        return Fault{FaultKind::Keys, "the Info.plist of " + path.toStdString() + " has no CFBundleVersion"};
    Application result;
    result.path = bundle.bundlePath();
    result.fileName = QDir(result.path).dirName();
    result.name = bundle.infoString(u"CFBundleName"_s);
    if (result.name.isEmpty())
        result.name = QFileInfo(result.fileName).completeBaseName();
    result.displayVersion = bundle.infoString(u"CFBundleShortVersionString"_s);
    if (result.displayVersion.isEmpty())
        result.displayVersion = QString::fromStdString(info->build);
    result.info = *info;
    return result;
}

Outcome<std::vector<BundleEntry>> listBundle(const QString &bundle) {
    Walk walk(QFile::encodeName(bundle).toStdString());
    if (Verdict failed = walk.add({}))
        return *std::move(failed);
    std::ranges::sort(walk.entries, {}, &BundleEntry::name);
    return std::move(walk.entries);
}

Verdict checkPrograms(const Application &application, const std::vector<BundleEntry> &entries) {
    const std::string bundle = QFile::encodeName(application.path).toStdString();
    BundleInfo info;
    if (!readBundleInfo(bundle, info) || info.executable.empty())
        return Fault{FaultKind::Mismatch, "the executable of " + bundle + ", " +
                                              (info.executableName.empty() ? "which CFBundleExecutable names"
                                                                           : info.executableName) +
                                              ", is not there"};
    struct stat file {};
    if (stat(info.executable.c_str(), &file) != 0)
        return cannot("looked at", info.executable, errno);
    if ((file.st_mode & 0111U) == 0)
        return notExecutable(info.executable);
    for (const BundleEntry &entry : entries) {
        if (entry.kind != BundleEntry::Kind::File || entry.isExecutable)
            continue;
        const std::string path = bundle + '/' + entry.name;
        const Outcome<bool> program = isProgram(path);
        if (!program)
            return program.fault();
        if (*program)
            return notExecutable(path);
    }
    return std::nullopt;
}

} // namespace tx::publishing
