// SPDX-License-Identifier: MIT
#include "txupdate/signaturechecks.h"

#include "feed/admission.h"
#include "model/updatebuilder.h"
#include "os/services.h"
#include "trust/archives.h"
#include "trust/encoding.h"
#include "trust/freshness.h"
#include "txupdate/faults.h"
#include "txupdate/signingkeys.h"

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

std::string_view bytesOf(const QByteArray &document) {
    return {document.constData(), size_t(document.size())};
}

int64_t now(const trust::AppInfo *application) {
    return trust::trustedNow(services().now().toSecsSinceEpoch(),
                             application ? application->buildDate : std::nullopt);
}

/// Parses the signature line without verifying it.
Outcome<std::optional<trust::FeedClaim>> readClaim(const QByteArray &document) {
    const Outcome<std::optional<trust::FirstLine>> line = trust::parseFirstLine(bytesOf(document));
    if (!line)
        return line.fault();
    std::optional<trust::FeedClaim> result;
    if (!*line)
        return result;
    for (const std::string &text : (*line)->texts) {
        const Outcome<trust::SignatureText> parsed = trust::SignatureText::parse(text);
        if (!parsed)
            return parsed.fault();
        if (parsed->words().first() != trust::feedWord)
            continue;
        const Outcome<trust::FeedClaim> claim = trust::parseFeedComment(parsed->words());
        if (!claim)
            return claim.fault();
        result = *claim;
    }
    if (!result)
        return trust::Fault{FaultKind::Signature,
                            "none of the signatures in the first line is one of a feed"};
    return result;
}

/// Returns the detail for the publisher. An application tells its user only that something is wrong.
QString detailOf(const TXError &error) {
    const QString detail = error.underlyingError().localizedDescription();
    return detail.isEmpty() ? error.localizedFailureReason() : error.localizedFailureReason() + u' ' + detail;
}

void checkExpiry(const trust::FeedClaim &claim, const trust::AppInfo *application,
                 SignatureFindings &findings) {
    constexpr int64_t warningTime = 14 * trust::aDay;
    if (!claim.expires)
        return;
    const int64_t left = *claim.expires - now(application);
    if (left < 0)
        findings.errors << u"the signature of the feed has expired: sign the feed again"_s;
    else if (left < warningTime)
        findings.warnings << u"the signature of the feed expires in less than 14 days, at %1: sign the feed "
                             "again"_s.arg(toText(trust::formatDate(*claim.expires)));
}

QString nameOf(const TXUpdateTrackPtr &track, const TXUpdate &update) {
    return u"%1: build %2: "_s.arg(track->name(), update.version());
}

/// Returns whether signatures can be parsed and are for this build. Needs no key.
Verdict checkForm(const trust::ArchiveSignatures &signatures, const TXUpdate &update) {
    for (const std::string &text : signatures.texts) {
        const Outcome<trust::SignatureText> parsed = trust::SignatureText::parse(text);
        if (!parsed)
            return parsed.fault();
        if (parsed->words().first() != trust::archiveWord)
            continue;
        const Outcome<trust::ArchiveClaim> claim = trust::parseArchiveComment(parsed->words());
        if (!claim)
            return claim.fault();
        if (toText(claim->build) != update.version())
            return trust::Fault{FaultKind::Mismatch,
                                "the signature is for build \"" + trust::shown(claim->build) + '"'};
    }
    return std::nullopt;
}

} // namespace

SignatureFindings takeSignature(QByteArray &document, trust::FeedFormat servedAs,
                                const trust::AppInfo *application) {
    SignatureFindings findings;
    if (application && application->keys && application->requiresSignedFeed) {
        const auto claim = admitFeed(document, servedAs, *application, FeedMemory::Ignored);
        findings.isSigned = bool(claim);
        if (claim)
            checkExpiry(**claim, application, findings);
        else
            findings.errors << detailOf(claim.error());
        return findings;
    }
    const Outcome<std::optional<trust::FeedClaim>> claim = readClaim(document);
    if (!claim)
        findings.errors << toText(claim.fault().what);
    else if (*claim)
        checkExpiry(**claim, application, findings);
    findings.isSigned = claim && *claim;
    if (const auto line = trust::findUnreadLine(bytesOf(document)))
        document.remove(
            0, qsizetype(trust::putBeginningBeforeBody(document.data(), line->format, line->bodyAt)));
    return findings;
}

void checkSignatures(const TXUpdateFeed::TrackMap &tracks, const trust::AppInfo *application, bool expectsAll,
                     SignatureFindings &findings) {
    QStringList without;
    for (const TXUpdateTrackPtr &track : tracks) {
        for (const TXUpdatePtr &update : track->updates()) {
            if (update->fileURL().isEmpty())
                continue;
            const Outcome<trust::ArchiveSignatures> signatures = UpdateBuilder::signaturesOf(*update).parse();
            if (signatures && signatures->texts.empty() && !signatures->plain) {
                without << nameOf(track, *update) + u"no signature: applications with keys leave it out"_s;
                continue;
            }
            expectsAll = true;
            Verdict refused = signatures ? checkForm(*signatures, *update) : Verdict(signatures.fault());
            if (!refused && application && application->keys) {
                const auto proof = trust::ArchiveProof::find(
                    *application->keys, *signatures,
                    {application->bundle, update->version().toStdString(), application->feedName});
                refused = proof ? Verdict() : proof.fault();
            }
            if (refused)
                findings.errors << nameOf(track, *update) + toText(refused->what);
        }
    }
    if (application && application->keys)
        findings.errors += without;
    else if (expectsAll)
        findings.warnings += without;
}

} // namespace tx::cli
