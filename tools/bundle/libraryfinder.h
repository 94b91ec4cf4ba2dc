// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/elffile.h"

#include <QHash>

namespace tx::bundling {

/// Finds libraries in the same order as the dynamic loader of this machine does for one program: in the
/// folders named by the requesting file and the files that loaded it, in LD_LIBRARY_PATH, in the loader's
/// cache and in its default folders. Like the loader, it ignores files for another architecture.
class LibraryFinder {
public:
    /// `cache` is the output of `ldconfig -p` and may be empty.
    LibraryFinder(ElfFile program, const QByteArray &cache);

    /// Returns the library's path with links resolved, or a null string if it is not found. `asker` is the
    /// file that needs the library.
    [[nodiscard]] QString find(const QString &name, const ElfFile &asker) const;

private:
    [[nodiscard]] bool fits(const QString &path) const;

    ElfFile m_program;
    QStringList m_environment;
    QHash<QString, QStringList> m_cache;
    QStringList m_usual;
};

/// Expands a DT_RUNPATH for a file in `folder`.
[[nodiscard]] QStringList expandedRunPath(const QStringList &runPath, const QString &folder);

} // namespace tx::bundling
