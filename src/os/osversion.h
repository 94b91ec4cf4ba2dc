// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

struct OSVersion {
    int majorVersion = 0;
    int minorVersion = 0;
    int patchVersion = 0;
    QString build; ///< the kernel's release
};

/// The running system's version. Read on each call.
[[nodiscard]] OSVersion operatingSystemVersion();

/// The version that an os-release text and a kernel release give: VERSION_ID as major.minor.patch, or the
/// kernel's version where a rolling distribution has none.
[[nodiscard]] OSVersion osVersionFrom(const QString &osRelease, const QString &kernelRelease);

/// The running system's name for people: NAME of its os-release, such as "Debian GNU/Linux". Read on each
/// call. Thread: any.
[[nodiscard]] QString operatingSystemName();

/// The name that an os-release text gives; "Linux" where it gives none, as os-release(5) has it.
[[nodiscard]] QString osNameFrom(const QString &osRelease);

} // namespace tx
