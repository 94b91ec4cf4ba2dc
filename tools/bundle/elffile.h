// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArrayList>
#include <QMap>
#include <QStringList>

#include <optional>

namespace tx::bundling {

/// What the dynamic loader, and those who check a bundle, read of a program or library. Nothing is executed,
/// and the file may be one of another machine.
struct ElfFile {
    QString path;
    int machine = 0; ///< e_machine
    int fileClass = 0;
    int byteOrder = 0;
    bool isDynamic = false;
    QString interpreter; ///< of a program that asks for one
    QString soname;
    QStringList needed;           ///< names of libraries, in order
    QStringList runPath;          ///< DT_RUNPATH, as written
    QStringList inheritedRunPath; ///< DT_RPATH, as written; empty when there is a DT_RUNPATH
    QMap<QString, QString>
        newestVersions;            ///< of "GLIBC" and "GLIBCXX", the newest that it needs, such as 2.34
    bool hasDebugSections = false; ///< something that strip would take away

    [[nodiscard]] bool isForSameMachineAs(const ElfFile &other) const;
    /// Such as "x86-64", or the number when it has no name here.
    [[nodiscard]] QString machineName() const;
};

/// Reads the file; absent when it is none of this format. Errors: it cannot be read, or is damaged.
[[nodiscard]] Result<std::optional<ElfFile>> readElf(const QString &path);

/// The strings of what is loaded into memory that contain one of these, each shown at most once. Debug
/// sections do not count. Errors as above.
[[nodiscard]] Result<QStringList> loadedStringsWith(const QString &path, const QByteArrayList &parts);

} // namespace tx::bundling
