// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QString>
#include <QStringList>

namespace tx {

/// Folders of this user and this machine. Thread: any.
[[nodiscard]] QString homeDirectory();
[[nodiscard]] QString configurationDirectory();
/// The user's Downloads folder, made when it is missing.
Result<QString> downloadsDirectory();
/// Where the user's Downloads and Desktop folders stand, or would; nothing is made.
[[nodiscard]] QString downloadsDirectoryPath();
[[nodiscard]] QString desktopDirectoryPath();
/// A folder private to this user (mode 0700), made on demand. When it cannot be had (another user's folder or
/// a link stands there) the path is returned all the same and using it fails.
[[nodiscard]] QString temporaryDirectory();
/// The user's and the machine's Applications folders.
[[nodiscard]] QString userApplicationsDirectory();
[[nodiscard]] QString localApplicationsDirectory();
/// Language codes in the user's order of preference, such as "de-AT".
[[nodiscard]] QStringList preferredLanguages();
/// The language code of the current locale, such as "en".
[[nodiscard]] QString localeLanguageCode();

/// The BCP 47 tag of the locale in which the user reads dates: what the application has set, else the user's
/// choice for dates.
[[nodiscard]] QString dateLocaleTag();

} // namespace tx
