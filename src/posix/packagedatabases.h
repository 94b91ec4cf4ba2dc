// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

/// Looks up bundles in the databases of the system's package managers, without Qt: for the host and for the
/// program that runs as root.
namespace tx {

/// The folders of the package managers' databases.
struct PackageFolders {
    std::string dpkg = "/var/lib/dpkg";
    std::vector<std::string> rpm{"/var/lib/rpm", "/usr/lib/sysimage/rpm"};
};

struct BundleOwner {
    std::string manager; ///< "dpkg" or "rpm": which package owns it, or whose database cannot be read
    std::string package; ///< that owns the bundle or something in it; empty: none
    std::string failure; ///< why the owner cannot be determined; empty if it can
};

/// Runs rpm with these arguments in the "C" locale and gives all that it writes to either output. Empty on
/// success, whatever its exit status, which counts files without a package; else why it could not be run.
using RpmRunner = std::function<std::string(const std::vector<std::string> &arguments, std::string &output)>;

/// The package to which the bundle, or anything in it, belongs. dpkg's database is read; rpm, whose database
/// has several formats, is asked where it has one, for the bundle and the first hundred entries at its top.
/// Thread: any but the main one: it reads many files, and may start a program.
[[nodiscard]] BundleOwner ownerOfBundle(const PackageFolders &folders, const std::string &bundle,
                                        const RpmRunner &runRpm);
/// The package that owns the entry at `path` itself. For a folder as above; for a file or link the owner of
/// its name. Links are not followed.
[[nodiscard]] BundleOwner ownerOfEntry(const PackageFolders &folders, const std::string &path,
                                       const RpmRunner &runRpm);

} // namespace tx
