// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// What a bundle says about itself, read without Qt. Thread: any.
namespace tx {

/// The values in a bundle's Info.plist that the framework's tools need.
struct BundleInfo {
    std::string identifier;     ///< CFBundleIdentifier; empty when absent
    std::string executable;     ///< full path of the executable; empty when it names no file in the bundle
    std::string executableName; ///< CFBundleExecutable; empty when absent
};

/// Reads `Contents/Info.plist` or `Info.plist` of the bundle, XML or binary. False if there is none.
[[nodiscard]] bool readBundleInfo(const std::string &bundlePath, BundleInfo &info);

} // namespace tx
