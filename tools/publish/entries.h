// SPDX-License-Identifier: MIT
#pragma once

#include "publish/feeddocument.h"

#include <QDateTime>
#include <QStringList>
#include <QUrl>

#include <string>
#include <vector>

namespace tx::publishing {

/// The applications and systems that an entry is for. Bounds are inclusive; a null string means "no bound".
struct Bounds {
    QString minBuild;
    QString maxBuild;
    QString minSystem;
    QString maxSystem;
};
[[nodiscard]] Bounds boundsOf(const JsonEntry &members);

/// What a publisher states about a build, apart from its archives.
struct BuildWords {
    QString title;
    QString build;
    QString version;
    QDateTime date;
    QString description; ///< null: none
    QUrl notes;          ///< empty for none
    QString notesSize;   ///< for example "{640, 480}"; null for none
    Bounds bounds;
    QString autodownload; ///< "no", or null
};

/// Returns the JSON text of the entry for one archive. `signatures` has one signature for each key.
[[nodiscard]] QByteArray buildEntry(const BuildWords &words, const QUrl &archive,
                                    const std::vector<std::string> &signatures);

[[nodiscard]] bool isBuild(const JsonEntry &members);

/// True if there is a build of the application and a system for which both bounds hold.
[[nodiscard]] bool overlap(const Bounds &a, const Bounds &b);

/// Returns why an earlier entry must stay in the feed beside a new build, or a null string if every
/// application that can use the earlier entry can also use the new one. `signers` are the identifiers of the
/// keys that sign the new entry.
[[nodiscard]] QString whyStillNeeded(const JsonEntry &earlier, const QString &build, const Bounds &bounds,
                                     const QStringList &signers);

/// The identifiers of the keys that signed an entry, and the application that it was signed for.
struct EntrySignature {
    QStringList signers;
    QString identifier; ///< null if no signature can be parsed
};
[[nodiscard]] EntrySignature signatureOf(const JsonEntry &members);

} // namespace tx::publishing
