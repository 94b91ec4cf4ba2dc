// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDir>
#include <QList>
#include <QString>

#include <iosfwd>

namespace tx::test {

void writeFile(const QString &path, const QByteArray &content, QFile::Permissions permissions = {});
[[nodiscard]] QByteArray readFile(const QString &path);
/// Every entry below `path` with its kind, mode, link target or content: two equal trees give equal lists.
[[nodiscard]] QStringList treeOf(const QString &path);
/// Names of the entries of a folder, hidden ones included, sorted.
[[nodiscard]] QStringList namesIn(const QString &path);

struct BundleDescription {
    QString identifier = QStringLiteral("org.example.Host");
    QString build = QStringLiteral("1042");
    QString displayVersion;
    QString name;
    QString executable = QStringLiteral("Program");
    /// A shell script by default, so that it can be started.
    QByteArray program = "#!/bin/sh\nexit 0\n";
};

/// A bundle directory with Contents/Info.plist and Contents/Linux/<executable>; an older one is removed
/// first.
void makeBundle(const QString &path, const BundleDescription &description);

enum class ArchiveKind { Zip, Tgz, Tbz, Tzst, Tar };
void PrintTo(ArchiveKind kind, std::ostream *out);

struct ArchiveEntry {
    enum Type { File, Directory, SymbolicLink, HardLink, Fifo, CharacterDevice };
    QString name;
    Type type = File;
    QByteArray content; ///< of a file; target of a link
    int mode = 0644;
    QByteArray rawName = {}; ///< instead of the name, in any encoding
};

/// An archive of any entries, hostile ones included.
void makeArchive(const QString &path, ArchiveKind kind, const QList<ArchiveEntry> &entries);
/// A tar archive compressed by gzip with one file of `size` zero bytes, made without compressing them all.
void makeArchiveOfZeros(const QString &path, const QByteArray &name, qint64 size);
/// The entries of a folder, the folder itself under its own name.
[[nodiscard]] QList<ArchiveEntry> entriesOf(const QString &folder);

[[nodiscard]] const char *suffixOf(ArchiveKind kind);

} // namespace tx::test
