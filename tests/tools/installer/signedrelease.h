// SPDX-License-Identifier: MIT
#pragma once

#include "base/propertylist.h"
#include "tests/support/builders.h"
#include "tests/trust/trusttest.h"
#include "trust/archives.h"

#include <QFile>
#include <QStringList>
#include <QVariantMap>

#include <string>
#include <vector>

namespace tx::test {

/// Puts a value into the Info.plist of a bundle; an invalid one removes it.
inline void setInfo(const QString &bundle, const QString &name, const QVariant &value) {
    const QString file = bundle + QStringLiteral("/Contents/Info.plist");
    const auto list = readPropertyList(readFile(file));
    ASSERT_TRUE(bool(list)) << file.toStdString();
    QVariantMap info = list->toMap();
    if (value.isValid())
        info.insert(name, value);
    else
        info.remove(name);
    writeFile(file, writePropertyList(info));
}

/// The values of TXUpdatePublicKeys for keys of key().
inline QVariant keyTexts(const std::vector<size_t> &numbers) {
    QVariantList texts;
    for (const size_t number : numbers)
        texts << QString::fromStdString(keyText(key(number)));
    return texts;
}

/// Packs a bundle under its own name, and returns the archive's bytes.
inline std::string packBundle(const QString &bundle, const QString &archive,
                              ArchiveKind kind = ArchiveKind::Zip) {
    makeArchive(archive, kind, entriesOf(bundle));
    return readFile(archive).toStdString();
}

/// A release of an application as a publisher makes it.
struct SignedRelease {
    QString bundle;  ///< what is packed
    QString archive; ///< where
    ArchiveKind kind = ArchiveKind::Zip;
    BundleDescription description{.build = QStringLiteral("2")};
    QVariant keys = keyTexts({0, 1}); ///< the release's own; invalid: none
    std::vector<size_t> signers{0};
    std::string bytes;              ///< of the archive
    trust::ArchiveClaim claim;      ///< what the signatures say
    std::vector<std::string> texts; ///< the signatures

    /// Makes the bundle and the archive.
    void pack() {
        makeBundle(bundle, description);
        setInfo(bundle, QStringLiteral("TXUpdatePublicKeys"), keys);
        packAgain();
    }
    /// After a change of the bundle.
    void packAgain() {
        bytes = packBundle(bundle, archive, kind);
        claim = {description.identifier.toStdString(), description.build.toStdString(), bytes.size(), {}};
    }
    void sign() {
        texts.clear();
        for (const size_t signer : signers)
            texts.push_back(signText(key(signer), bytes, trust::archiveComment(claim)));
    }
    void make() {
        pack();
        sign();
    }
    /// The words that the job ends with: no plain signature, and the texts.
    [[nodiscard]] QStringList lastWords() const {
        QStringList words{QString(), QString()};
        for (const std::string &text : texts)
            words << QString::fromStdString(text);
        return words;
    }
};

} // namespace tx::test
