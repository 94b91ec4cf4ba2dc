// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Bundles that belong to a user in a folder that does not, such as an application of the user's in /opt: the
/// bundle cannot be exchanged there, but what it holds can. Thread: any.
namespace tx::posix {

/// The folder that holds all of a bundle.
[[nodiscard]] std::string contentsOf(const std::string &bundle);

/// Empty when this user may exchange the contents of `bundle` for those of `newBundle`; else what prevents
/// it: both must be folders that hold a folder "Contents" and nothing else but links named bin, lib,
/// share and Info.plist to what has that name in it (what an interrupted installation
/// left does not count), and those of `bundle` must be this user's. An empty `newBundle` is not looked at.
[[nodiscard]] std::string contentsProblem(const std::string &bundle, const std::string &newBundle);

} // namespace tx::posix
