// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QStringList>

#include <optional>

/// The text of an application's menu entry, by the rules of the Desktop Entry standard. Nothing here touches
/// the file system. Thread: any.
namespace tx {

/// The keys that mark an entry as written by this framework: the path of its bundle, and the other files that
/// belong to it, as paths relative to the data folder.
inline const QString entryBundleKey = QStringLiteral("X-TarvixUpdate-Bundle");
inline const QString entryFilesKey = QStringLiteral("X-TarvixUpdate-Files");

/// An entry is not read if it is larger.
constexpr qsizetype largestEntry = 256 << 10;

/// What an entry contains, as plain text without escapes.
struct EntryFacts {
    QString bundlePath;
    QString executable; ///< absolute path
    QString name;       ///< only used if the bundle has no entry of its own
    QString icon;       ///< a name in the icon theme or an absolute path; empty for none
    QStringList mimeTypes;
    QStringList files;
};

/// Returns the entry. `own` is the bundle's own entry, whose other keys and actions are kept; it may be
/// empty. Null if `own` is not empty and not an entry of an application.
[[nodiscard]] QByteArray desktopEntryOf(const EntryFacts &facts, const QByteArray &own);

/// Returns the value of a key in the group [Desktop Entry] without escapes; absent if there is none.
[[nodiscard]] std::optional<QString> entryValue(const QByteArray &entry, const QString &key);
/// The same for a list.
[[nodiscard]] QStringList entryList(const QByteArray &entry, const QString &key);

/// Returns why no entry can start the program at `path`; null if one can. The standard excludes control
/// characters and "=".
[[nodiscard]] QString reasonAgainstExecutable(const QString &path);

/// Whether `text` is the name of a MIME type.
[[nodiscard]] bool isMimeType(const QString &text);

} // namespace tx
