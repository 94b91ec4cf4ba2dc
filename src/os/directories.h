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
/// The path of the user's Downloads or Desktop folder, even if it does not exist. Nothing is created.
[[nodiscard]] QString downloadsDirectoryPath();
[[nodiscard]] QString desktopDirectoryPath();
/// A folder that only this user can access (mode 0700), created on demand. If it cannot be created or is not
/// private (another user's folder or a link is there), the path is returned anyway and using it fails.
[[nodiscard]] QString temporaryDirectory();
/// The user's and the machine's Applications folders.
[[nodiscard]] QString userApplicationsDirectory();
[[nodiscard]] QString localApplicationsDirectory();
/// The folder of the user's menu entries, icons and MIME types ($XDG_DATA_HOME or ~/.local/share). Null in a
/// sandbox (Flatpak, Snap) and for a program with another user's rights.
[[nodiscard]] QString menuDataDirectory();
/// Language codes in the user's order of preference, such as "de-AT".
[[nodiscard]] QStringList preferredLanguages();
/// The language code of the current locale, such as "en".
[[nodiscard]] QString localeLanguageCode();

/// The BCP 47 tag of the locale for dates: the application's locale if it has set one, otherwise the user's
/// setting for dates.
[[nodiscard]] QString dateLocaleTag();

} // namespace tx
