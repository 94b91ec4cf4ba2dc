// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// What dpkg knows of a bundle, read from its files, without Qt: `dpkg -S` reads the same and takes longer.
namespace tx {

struct DpkgAnswer {
    std::string package; ///< that owns the bundle or something in it; empty: none
    std::string failure; ///< why that cannot be told; empty when it can
};

/// `folder`: dpkg's own, /var/lib/dpkg. A list may name the bundle by another path than the caller, as where
/// /lib is a link to /usr/lib: paths are compared by the folder that they lead to. Thread: any.
[[nodiscard]] DpkgAnswer dpkgOwnerOf(const std::string &folder, const std::string &bundle);
/// The same for the entry at `path` alone, such as a link: it need not be there, and what it leads to does
/// not count. Its folder may have other names.
[[nodiscard]] DpkgAnswer dpkgOwnerOfEntry(const std::string &folder, const std::string &path);

} // namespace tx
