// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/elffile.h"

#include <QHash>

namespace tx::bundling {

/// Finds libraries as the dynamic loader of this machine does for one program: by the folders that the asking
/// file, and those that loaded it, name; LD_LIBRARY_PATH; the loader's cache; its usual folders. Files of
/// another machine are passed over, as the loader does.
class LibraryFinder {
public:
    /// `cache`: what `ldconfig -p` prints; may be empty.
    LibraryFinder(ElfFile program, const QByteArray &cache);

    /// The path of the library, links followed; null when there is none. `asker` is the file that needs it.
    [[nodiscard]] QString find(const QString &name, const ElfFile &asker) const;

private:
    [[nodiscard]] bool fits(const QString &path) const;

    ElfFile m_program;
    QStringList m_environment;
    QHash<QString, QStringList> m_cache;
    QStringList m_usual;
};

/// The folders of a DT_RUNPATH for a file in `folder`.
[[nodiscard]] QStringList expandedRunPath(const QStringList &runPath, const QString &folder);

} // namespace tx::bundling
