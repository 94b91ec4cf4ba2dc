// SPDX-License-Identifier: MIT
#pragma once

#include "publish/feeddocument.h"

#include <QDateTime>
#include <QStringList>
#include <QUrl>

#include <string>
#include <vector>

namespace tx::publishing {

/// Which applications and systems an entry is for. Null: no bound. The bounds are included.
struct Bounds {
    QString minBuild;
    QString maxBuild;
    QString minSystem;
    QString maxSystem;
};
[[nodiscard]] Bounds boundsOf(const JsonEntry &members);

/// What a publisher says of a build, beside its archives.
struct BuildWords {
    QString title;
    QString build;
    QString version;
    QDateTime date;
    QString description; ///< null: none
    QUrl notes;          ///< empty: none
    QString notesSize;   ///< "{640, 480}"; null: none
    Bounds bounds;
    QString autodownload; ///< "no", or null
};

/// The text of the entry for one archive. `signatures`: texts by each of the keys.
[[nodiscard]] QByteArray buildEntry(const BuildWords &words, const QUrl &archive,
                                    const std::vector<std::string> &signatures);

[[nodiscard]] bool isBuild(const JsonEntry &members);

/// Whether an application could see both: it has a build and a system for which both are.
[[nodiscard]] bool overlap(const Bounds &a, const Bounds &b);

/// Why an earlier entry must stay when a new build comes; null when every application that could use it can
/// use the new one. `signers`: the numbers of the keys that sign the new one.
[[nodiscard]] QString whyStillNeeded(const JsonEntry &earlier, const QString &build, const Bounds &bounds,
                                     const QStringList &signers);

/// The numbers of the keys by which an entry is signed, and for which application.
struct EntrySignature {
    QStringList signers;
    QString identifier; ///< null without a signature that can be read
};
[[nodiscard]] EntrySignature signatureOf(const JsonEntry &members);

} // namespace tx::publishing
