// SPDX-License-Identifier: MIT
#pragma once

#include "posix/plainpropertylist.h"
#include "trust/publickeys.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tx::trust {

/// What an application's Info.plist says about trust.
struct AppInfo {
    std::string bundle; ///< CFBundleIdentifier
    std::string build;  ///< CFBundleVersion
    /// TXUpdatePublicKeys. Absent: the application verifies nothing, and the rest has its usual values.
    std::optional<PublicKeys> keys;
    /// TXUpdateRequiresSignedFeed; by default true when a key can sign feeds.
    bool requiresSignedFeed = false;
    std::string feedName = "release"; ///< TXUpdateFeedName
    std::optional<int64_t> buildDate; ///< TXUpdateBuildDate: seconds since 1970

    /// `info`: the dictionary of the Info.plist. Fault: Keys, when the application has keys and any of these
    /// values is malformed, or it has no identifier. Nothing may be checked or installed then: it does not
    /// count as an application without keys.
    static Outcome<AppInfo> read(const plain::Value &info);
};

} // namespace tx::trust
