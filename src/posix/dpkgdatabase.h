// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// What dpkg knows of a bundle, read from its files, without Qt: `dpkg -S` reads the same and takes longer.
namespace tx {

struct DpkgAnswer {
    std::string package; ///< that owns the bundle or something in it; empty: none
    std::string failure; ///< why the owner cannot be determined; empty if it can
};

/// `folder` is dpkg's database folder, usually /var/lib/dpkg. dpkg may list the bundle under another path
/// than the caller's, for example if /lib is a link to /usr/lib; paths are therefore compared by the folders
/// that they resolve to. Thread: any.
[[nodiscard]] DpkgAnswer dpkgOwnerOf(const std::string &folder, const std::string &bundle);
/// As above for the entry at `path` alone, such as a link. The entry need not exist, and links are not
/// followed. Its folder may have other names.
[[nodiscard]] DpkgAnswer dpkgOwnerOfEntry(const std::string &folder, const std::string &path);

} // namespace tx
