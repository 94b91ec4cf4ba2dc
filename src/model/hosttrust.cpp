// SPDX-License-Identifier: MIT
#include "model/hosttrust.h"

#include "model/bundletrust.h"
#include "model/updatebuilder.h"
#include "os/localization.h"
#include "os/userdefaults.h"

#include <TarvixUpdate/TXUpdateHost.h>
#include <TarvixUpdate/TXUpdateSettings.h>

#include <QMutex>
#include <QVariantMap>

#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QString toText(const std::string &text) { return QString::fromStdString(text); }

/// Remembers what the host's Info.plist says: each check asks several times, and keys take long to read.
trust::Outcome<trust::AppInfo> infoOfHost() {
    struct Known {
        QVariantMap values; ///< the map itself, which nobody changes
        trust::Outcome<trust::AppInfo> info;
    };
    static auto &mutex = *new QMutex; // a thread may outlast static objects
    static auto &known = *new std::optional<Known>;
    const TXBundle bundle = TXUpdateHost::host()->bundle();
    const QVariantMap values = bundle.infoDictionary();
    const QMutexLocker locker(&mutex);
    if (!known || !known->values.isSharedWith(values))
        known.emplace(Known{values, trust::infoOfBundle(bundle)});
    return known->info;
}

TXError errorFor(TXUpdateErrorCode code, const QString &reason, const trust::Fault &fault) {
    return TXError(
               TXUpdateErrorDomain, code, localizedString(u"The update could not be verified."_s), reason,
               localizedString(u"To update, go to the website and download the latest version directly."_s))
        .withUnderlyingError(TXError(TXUpdateErrorDomain, code, toText(fault.what)));
}

} // namespace

Result<trust::AppInfo> hostTrust() {
    trust::Outcome<trust::AppInfo> info = infoOfHost();
    if (!info)
        return TXError(
            TXUpdateErrorDomain, TXUpdateErrorKeysMalformed,
            localizedString(u"The update information could not be verified."_s),
            localizedFormat(u"The keys of this application are malformed: %@"_s, {toText(info.fault().what)}),
            localizedString(u"To update, go to the website and download the latest version directly."_s));
    if (const QString name = UserDefaults::standard().stringValue(TXUpdatePrefFeedNameKey); !name.isEmpty())
        info->feedName = name.toStdString();
    return *std::move(info);
}

TXError archiveTrustError(const trust::Fault &fault) {
    switch (fault.kind) {
    case trust::FaultKind::Unsigned:
        return errorFor(TXUpdateErrorArchiveNotSigned,
                        localizedString(u"It is not signed by the publisher of this application."_s), fault);
    case trust::FaultKind::File:
        return errorFor(TXUpdateErrorArchiveNotRead, toText(fault.what), fault);
    default:
        return errorFor(TXUpdateErrorArchiveNotGenuine,
                        localizedString(u"It is not what the publisher of this application has signed."_s),
                        fault);
    }
}

TXError releaseTrustError(const trust::Fault &fault) {
    if (fault.kind == trust::FaultKind::Mismatch)
        return archiveTrustError(fault);
    return errorFor(
        TXUpdateErrorReleaseNotContinued,
        localizedString(u"The new version has no keys by which it could be updated in its turn."_s), fault);
}

Result<std::shared_ptr<const ArchiveTrust>> archiveTrustOf(const TXUpdate &update) {
    Result<trust::AppInfo> info = hostTrust();
    if (!info)
        return info.error();
    if (!info->keys)
        return std::shared_ptr<const ArchiveTrust>();
    trust::Outcome<trust::ArchiveSignatures> signatures = UpdateBuilder::signaturesOf(update).parse();
    if (!signatures)
        return archiveTrustError(signatures.fault());
    const trust::WantedArchive wanted{info->bundle, update.version().toStdString(), info->feedName};
    trust::Outcome<trust::ArchiveProof> proof = trust::ArchiveProof::find(*info->keys, *signatures, wanted);
    if (!proof)
        return archiveTrustError(proof.fault());
    return std::shared_ptr<const ArchiveTrust>(
        new ArchiveTrust{*std::move(info->keys), *std::move(signatures), wanted, *std::move(proof)});
}

} // namespace tx
