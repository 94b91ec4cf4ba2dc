// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// What a bundle says about itself, read without Qt. Thread: any.
namespace tx {

/// What the framework needs of a bundle's Info.plist.
struct BundleInfo {
    std::string identifier;     ///< CFBundleIdentifier; empty when absent
    std::string executable;     ///< full path of the executable; empty when it names no file in the bundle
    std::string executableName; ///< CFBundleExecutable; empty when absent
};

/// Reads `Contents/Info.plist` or `Info.plist` of the bundle, XML or binary. False when there is none.
[[nodiscard]] bool readBundleInfo(const std::string &bundlePath, BundleInfo &info);

} // namespace tx
