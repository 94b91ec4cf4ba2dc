// SPDX-License-Identifier: MIT
#include "model/hosttrust.h"

#include "model/bundletrust.h"
#include "model/updatebuilder.h"
#include "os/localization.h"
#include "os/userdefaults.h"

#include <TarvixUpdate/TXUpdateHost.h>
#include <TarvixUpdate/TXUpdateSettings.h>

#include <utility>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QString toText(const std::string &text) { return QString::fromStdString(text); }

TXError errorFor(TXUpdateErrorCode code, const QString &reason, const trust::Fault &fault) {
    return TXError(
               TXUpdateErrorDomain, code, localizedString(u"The update could not be verified."_s), reason,
               localizedString(u"To update, go to the website and download the latest version directly."_s))
        .withUnderlyingError(TXError(TXUpdateErrorDomain, code, toText(fault.what)));
}

} // namespace

Result<trust::AppInfo> hostTrust() {
    trust::Outcome<trust::AppInfo> info = trust::infoOfBundle(TXUpdateHost::host()->bundle());
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
