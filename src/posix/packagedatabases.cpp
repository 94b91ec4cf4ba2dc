// SPDX-License-Identifier: MIT
#include "posix/packagedatabases.h"

#include "posix/dpkgdatabase.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>
#include <system_error>

namespace tx {

namespace {

/// rpm's exit status is the number of files without a package. With more files, it could equal the shell's
/// exit status for a program that cannot be run.
constexpr size_t mostPaths = 100;
/// As deep as the executable, "Contents/<system>/<name>".
constexpr int deepest = 3;

/// Whether rpm has a database in one of these folders; `failure` if that is unknown.
bool rpmHasDatabase(const std::vector<std::string> &folders, std::string &failure) {
    for (const std::string &folder : folders) {
        for (const char *name : {"/rpmdb.sqlite", "/Packages.db", "/Packages"}) {
            struct stat info {};
            if (stat((folder + name).c_str(), &info) == 0)
                return true;
            if (errno != ENOENT && errno != ENOTDIR) {
                failure = folder + name + ": " + std::strerror(errno);
                return false;
            }
        }
    }
    return false;
}

/// The bundle and its top levels, folder by folder. A name with a line feed is left out: it would look like
/// two answers.
std::string pathsToAskFor(const std::string &bundle, std::vector<std::string> &paths) {
    namespace fs = std::filesystem;
    paths = {bundle};
    size_t first = 0;
    for (int depth = 0; depth < deepest; ++depth) {
        const size_t end = paths.size();
        for (; first < end; ++first) {
            std::error_code error;
            if (fs::symlink_status(paths[first], error).type() != fs::file_type::directory)
                continue;
            std::vector<std::string> names;
            fs::directory_iterator entry(paths[first], error);
            for (; !error && entry != fs::directory_iterator(); entry.increment(error))
                names.push_back(entry->path().string());
            if (error)
                return paths[first] + ": " + error.message();
            std::sort(names.begin(), names.end());
            for (std::string &name : names) {
                if (paths.size() < mostPaths && name.find('\n') == std::string::npos)
                    paths.push_back(std::move(name));
            }
        }
    }
    return {};
}

bool endsWith(const std::string &text, const std::string &end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

BundleOwner rpmOwnerOf(const std::string &bundle, const RpmRunner &runRpm) {
    const auto failed = [](const std::string &why) { return BundleOwner{"rpm", {}, why}; };
    std::vector<std::string> paths;
    if (const std::string why = pathsToAskFor(bundle, paths); !why.empty())
        return failed(why);
    std::vector<std::string> arguments{"-qf", "--queryformat", "owner %{NAME}\n"};
    arguments.insert(arguments.end(), paths.begin(), paths.end());
    std::string output;
    if (const std::string why = runRpm(arguments, output); !why.empty())
        return failed(why);
    // Any other output, to either stream, makes the answers doubtful.
    const std::string owner = "owner ";
    std::string package;
    size_t answers = 0;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line); ++answers) {
        if (line.rfind(owner, 0) == 0 && line.size() > owner.size())
            package = package.empty() ? line.substr(owner.size()) : package;
        else if (line.rfind("file ", 0) != 0 || !endsWith(line, " is not owned by any package"))
            return failed(line);
    }
    if (answers < paths.size())
        return failed("rpm does not answer for every file");
    return package.empty() ? BundleOwner{} : BundleOwner{"rpm", package, {}};
}

BundleOwner ownerOf(const PackageFolders &folders, const DpkgAnswer &dpkg, const std::string &path,
                    const RpmRunner &runRpm) {
    if (!dpkg.failure.empty() || !dpkg.package.empty())
        return {"dpkg", dpkg.package, dpkg.failure};
    std::string failure;
    const bool hasRpm = rpmHasDatabase(folders.rpm, failure);
    if (!failure.empty())
        return {"rpm", {}, failure};
    return hasRpm ? rpmOwnerOf(path, runRpm) : BundleOwner{};
}

} // namespace

BundleOwner ownerOfBundle(const PackageFolders &folders, const std::string &bundle, const RpmRunner &runRpm) {
    return ownerOf(folders, dpkgOwnerOf(folders.dpkg, bundle), bundle, runRpm);
}

BundleOwner ownerOfEntry(const PackageFolders &folders, const std::string &path, const RpmRunner &runRpm) {
    struct stat info {};
    const bool isFolder = lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    // For a link, rpm is always asked about the link's own name only.
    return isFolder ? ownerOfBundle(folders, path, runRpm)
                    : ownerOf(folders, dpkgOwnerOfEntry(folders.dpkg, path), path, runRpm);
}

} // namespace tx
