// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArrayList>
#include <QMap>
#include <QStringList>

#include <optional>

namespace tx::bundling {

/// The properties of a program or library that the dynamic loader uses, or that the checks of a bundle need.
/// Reading executes nothing. The file may be for another architecture.
struct ElfFile {
    QString path;
    int machine = 0; ///< e_machine
    int fileClass = 0;
    int byteOrder = 0;
    bool isDynamic = false;
    QString interpreter; ///< PT_INTERP of a program; null if there is none
    QString soname;
    QStringList needed;           ///< DT_NEEDED: names of libraries, in order
    QStringList runPath;          ///< DT_RUNPATH, not expanded
    QStringList inheritedRunPath; ///< DT_RPATH, not expanded; empty if there is a DT_RUNPATH
    QMap<QString, QString>
        newestVersions; ///< the newest version that it needs of "GLIBC" and "GLIBCXX", such as 2.34
    bool hasDebugSections = false; ///< it has sections that strip would remove

    [[nodiscard]] bool isForSameMachineAs(const ElfFile &other) const;
    /// A name such as "x86-64", or the number of an unknown architecture.
    [[nodiscard]] QString machineName() const;
};

/// Reads an ELF file. Returns an empty optional for a file of another format. Errors: the file cannot be
/// read, or is damaged.
[[nodiscard]] Result<std::optional<ElfFile>> readElf(const QString &path);

/// Returns the strings in loadable segments that contain one of `parts`, each at most once. Debug sections
/// are not searched. Errors: as readElf().
[[nodiscard]] Result<QStringList> loadedStringsWith(const QString &path, const QByteArrayList &parts);

} // namespace tx::bundling
