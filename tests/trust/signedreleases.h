// SPDX-License-Identifier: MIT
#pragma once

#include "base/propertylist.h"
#include "model/host_p.h"
#include "os/mainbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/trust/trusttest.h"
#include "trust/archives.h"
#include "trust/feedsigning.h"

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXUpdateSettings.h>

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QVariantMap>

#include <optional>
#include <string>
#include <vector>

namespace tx::test {

using namespace Qt::StringLiterals;

using Keys = std::vector<std::string>;
using Signers = std::vector<size_t>; ///< indices for key()

/// 2026-11-22 12:00:00, the current time of these tests unless they set another one.
inline constexpr int64_t noon = 1795348800;

/// Sets a value in the Info.plist of a bundle; an invalid value removes it.
inline void setInfo(const QString &bundle, const QString &name, const QVariant &value) {
    const QString file = bundle + u"/Contents/Info.plist"_s;
    const auto list = readPropertyList(readFile(file));
    ASSERT_TRUE(bool(list)) << file.toStdString();
    QVariantMap info = list->toMap();
    if (value.isValid())
        info.insert(name, value);
    else
        info.remove(name);
    writeFile(file, writePropertyList(info));
}

/// The values of TXUpdatePublicKeys.
inline QVariant listOf(const Keys &keys) {
    QVariantList texts;
    for (const std::string &text : keys)
        texts << QString::fromStdString(text);
    return texts;
}
/// The same for keys of key().
inline QVariant keyTexts(const Signers &numbers) {
    Keys keys;
    for (const size_t number : numbers)
        keys.push_back(keyText(key(number)));
    return listOf(keys);
}

/// Adds keys and other members of a property list to a bundle's Info.plist.
inline void addKeys(const QString &bundle, const Keys &keys, const QByteArray &more = {}) {
    if (!keys.empty())
        setInfo(bundle, u"TXUpdatePublicKeys"_s, listOf(keys));
    if (more.isEmpty())
        return;
    const QString file = bundle + u"/Contents/Info.plist"_s;
    QByteArray info = readFile(file);
    const qsizetype end = info.lastIndexOf("</dict>");
    ASSERT_GE(end, 0) << info.constData();
    writeFile(file, info.insert(end, more));
}

/// Signs `body` with these keys, for the tests' host unless `signing` names another.
inline QByteArray signedFeed(const QByteArray &body, const Signers &signers = {0},
                             trust::FeedSigning signing = {"org.example.Host", "release", noon, 60},
                             trust::FeedFormat format = trust::FeedFormat::Json) {
    std::vector<const trust::SecretKey *> keys;
    for (const size_t number : signers)
        keys.push_back(&key(number));
    const auto result = trust::signFeed(body.toStdString(), format, keys, signing);
    EXPECT_TRUE(result) << result.fault().what;
    return result ? QByteArray::fromStdString(result->document) : QByteArray();
}

/// The signatures of this claim about an archive by these keys.
inline std::vector<std::string> textsOf(const trust::ArchiveClaim &claim, const std::string &archive,
                                        const Signers &signers) {
    std::vector<std::string> texts;
    for (const size_t number : signers)
        texts.push_back(signText(key(number), archive, trust::archiveComment(claim)));
    return texts;
}

/// The signatures of an archive as a build of the tests' host.
inline std::vector<std::string> archiveTexts(const QByteArray &archive, const std::string &build,
                                             const Signers &signers = {0},
                                             const std::optional<std::string> &onlyIn = {}) {
    return textsOf({"org.example.Host", build, uint64_t(archive.size()), onlyIn}, archive.toStdString(),
                   signers);
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
    BundleDescription description{.build = u"2"_s};
    QVariant keys = keyTexts({0, 1}); ///< the release's own; invalid: none
    Signers signers{0};
    std::string bytes;              ///< of the archive
    trust::ArchiveClaim claim;      ///< what the signatures say
    std::vector<std::string> texts; ///< the signatures

    /// Makes the bundle and the archive.
    void pack() {
        makeBundle(bundle, description);
        setInfo(bundle, u"TXUpdatePublicKeys"_s, keys);
        packAgain();
    }
    /// After a change of the bundle.
    void packAgain() {
        bytes = packBundle(bundle, archive, kind);
        claim = {description.identifier.toStdString(), description.build.toStdString(), bytes.size(), {}};
    }
    void sign() { texts = textsOf(claim, bytes, signers); }
    void make() {
        pack();
        sign();
    }
    /// The last arguments of the job: no plain signature, and the signatures.
    [[nodiscard]] QStringList lastWords() const {
        QStringList words{QString(), QString()};
        for (const std::string &text : texts)
            words << QString::fromStdString(text);
        return words;
    }
};

/// An entry of a JSON feed. Several signatures are a list, a single one is a string.
inline QJsonObject entryFor(const QString &build, const QString &url, const std::vector<std::string> &texts) {
    QJsonObject entry{{u"type"_s, u"build"_s},
                      {u"build"_s, build},
                      {u"date"_s, u"2026-11-01 10:00:00"_s},
                      {u"downloadURL"_s, url}};
    QJsonArray list;
    for (const std::string &text : texts)
        list << QString::fromStdString(text);
    if (list.size() == 1)
        entry.insert(u"signature"_s, list.first());
    else if (!list.isEmpty())
        entry.insert(u"signature"_s, list);
    return entry;
}

inline QByteArray feedOf(const QJsonArray &entries) {
    return QJsonDocument(QJsonObject{{u"release"_s, entries}}).toJson();
}

/// Acts as a host with keys, at noon.
template <typename Base>
class WithKeys : public Base {
protected:
    WithKeys() {
        at(noon);
        becomeHostWith({keyText(key(0)), keyText(key(1))});
    }
    void at(int64_t time) { this->setNow(QDateTime::fromSecsSinceEpoch(time, Qt::UTC)); }
    void becomeHostWith(const Keys &keys, const QByteArray &more = {}, const QString &build = u"1042"_s) {
        this->becomeHost(build);
        const QString bundle = this->path(u"Applications/Host.app"_s);
        addKeys(bundle, keys, more);
        setMainBundle(TXBundle(bundle));
        resetHost();
    }
};

inline void expectTrustError(const TXError &error, TXUpdateErrorCode code, const QString &description,
                             const QString &reason, const std::string &what = {}) {
    EXPECT_EQ(error.domain(), TXUpdateErrorDomain) << what;
    EXPECT_EQ(error.code(), code) << what << error.toString().toStdString();
    EXPECT_EQ(error.localizedDescription(), description) << what;
    EXPECT_EQ(error.localizedFailureReason(), reason) << what;
    EXPECT_FALSE(error.localizedRecoverySuggestion().isEmpty()) << what;
}

inline const QString feedNotVerified = u"The update information could not be verified."_s;
inline const QString updateNotVerified = u"The update could not be verified."_s;
inline const QString notSigned = u"It is not signed by the publisher of this application."_s;
inline const QString notGenuine = u"It is not what the publisher of this application has signed."_s;

} // namespace tx::test
