// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

/// What the system's package managers know of a bundle, without Qt: for the host and for the program that
/// runs with an administrator's rights.
namespace tx {

/// Where the package managers keep what they know.
struct PackageFolders {
    std::string dpkg = "/var/lib/dpkg";
    std::vector<std::string> rpm{"/var/lib/rpm", "/usr/lib/sysimage/rpm"};
};

struct BundleOwner {
    std::string manager; ///< "dpkg" or "rpm": which package owns it, or whose database cannot be read
    std::string package; ///< that owns the bundle or something in it; empty: none
    std::string failure; ///< why that cannot be told; empty when it can
};

/// Runs rpm with these arguments in the "C" locale and gives all that it writes to either output. Empty on
/// success, whatever its exit status, which counts files without a package; else why it could not be run.
using RpmRunner = std::function<std::string(const std::vector<std::string> &arguments, std::string &output)>;

/// The package to which the bundle, or anything in it, belongs. dpkg's database is read; rpm, whose database
/// has several formats, is asked where it has one, for the bundle and the first hundred entries at its top.
/// Thread: any but the main one: it reads many files, and may start a program.
[[nodiscard]] BundleOwner ownerOfBundle(const PackageFolders &folders, const std::string &bundle,
                                        const RpmRunner &runRpm);
/// The package to which belongs what is at `path` itself: for a folder as above; of a file or a link, that of
/// its own name, whatever the link leads to.
[[nodiscard]] BundleOwner ownerOfEntry(const PackageFolders &folders, const std::string &path,
                                       const RpmRunner &runRpm);

} // namespace tx
