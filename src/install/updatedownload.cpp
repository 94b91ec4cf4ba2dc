// SPDX-License-Identifier: MIT
#include "install/updatedownload.h"

#include "base/queues.h"
#include "base/shared.h"
#include "install/archivelimits.h"
#include "install/packagecheck.h"
#include "model/host_p.h"
#include "model/names.h"
#include "model/update_p.h"
#include "os/filesystem.h"
#include "os/localization.h"
#include "os/services.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXRateLimiter.h>

#include <QCryptographicHash>
#include <QHash>

#include <algorithm>
#include <cerrno>
#include <limits>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Name and extension, both without the dot. A leading dot does not start an extension.
std::pair<QString, QString> splitExtension(const QString &name) {
    const qsizetype dot = name.lastIndexOf(u'.');
    constexpr qsizetype longestExtension = 32;
    if (dot <= 0 || dot == name.size() - 1 || name.size() - dot > longestExtension)
        return {name, u""_s};
    return {name.left(dot), name.mid(dot + 1)};
}

/// True for a version that a file name can contain unchanged, and that cannot be mistaken for a part of the
/// rest of the name, on any file system.
bool isPlain(const QString &version) {
    constexpr std::string_view others = "._+~-";
    return !version.isEmpty() && std::all_of(version.begin(), version.end(), [others](QChar c) {
        const char16_t u = c.unicode();
        return (u >= '0' && u <= '9') || (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') ||
               (u < 0x80 && others.find(static_cast<char>(u)) != std::string_view::npos);
    });
}

/// A digest that differs if any of the strings does.
QString digestOf(const QStringList &texts) {
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const QString &text : texts) {
        const QByteArray utf8 = text.toUtf8();
        hash.addData(QByteArray::number(utf8.size()) + ':' + utf8); // "a", "bc" is not "ab", "c"
    }
    constexpr qsizetype digits = 32;
    return QString::fromLatin1(hash.result().toHex().left(digits));
}

/// The downloads of this process, in the order of their start. Thread: main.
QList<UpdateDownload *> &runningDownloads() {
    static auto *running = new QList<UpdateDownload *>; // a download may outlast static objects
    return *running;
}

/// The two failures that a user can act on get their own message.
TXError withAdvice(const TXError &error) {
    if (error.domain() != TXURLErrorDomain)
        return error;
    QString advice;
    if (error.code() == UrlErrorServerCertificateUntrusted)
        advice = u"The certificate for the server is invalid and poses a security risk. Please download the "
                 "update directly from the website."_s;
    else if (error.code() == UrlErrorFileDoesNotExist)
        advice = u"The file at the URL in the update information does not exist. Please download the update "
                 "directly from the website."_s;
    else
        return error;
    return TXError(error.domain(), error.code(), u"The update could not be downloaded."_s, {}, advice);
}

TXError missingFileError() {
    return TXError(updaterErrorDomain, 0,
                   localizedString(u"An error occurred while downloading the update."_s),
                   localizedString(u"The downloaded file is unexpectedly missing."_s),
                   u"You can always download the latest version from the website, but try quitting and "
                   "relaunching the application first."_s);
}

} // namespace

TXError UpdateDownload::occupyFolder(Services &services, TXUpdate &update, const UpdateFolder &folder,
                                     const QString &failure) {
    Result<std::unique_ptr<FileLock>> lock = services.fileSystem->tryLock(folder.lockPath());
    static QHash<QString, QPointer<TXUpdate>> occupants; // of this process
    if (lock) {
        detailsOf(update).folderLock = std::move(*lock);
        occupants.insert(folder.path(), &update);
        return {};
    }
    TXLog(TXLogLevelFailure, u"TXUpdate: %@ cannot be used. %@"_s, {folder.path(), lock.error().toString()});
    const bool isTaken = lock.error().code() == EWOULDBLOCK;
    const TXUpdate *const occupant = occupants.value(folder.path());
    const bool isTakenHere = occupant && detailsOf(*occupant).folderLock;
    QString reason = lock.error().localizedDescription();
    if (isTaken && isTakenHere && occupant->isInstalling())
        reason = u"This application is installing another update."_s;
    else if (isTaken && isTakenHere)
        reason = u"This application is downloading another update."_s;
    else if (isTaken)
        reason = u"Another copy of the application is downloading or installing an update."_s;
    return TXError(updaterErrorDomain, 0, failure, reason,
                   isTaken ? u"Try again when it is done."_s : QString())
        .withUnderlyingError(lock.error());
}

QString downloadFileName(const QString &suggestedName, const QString &version, const QUrl &url) {
    QString name = safeFileName(suggestedName);
    const bool isNameAltered = name != suggestedName;
    if (name.endsWith(u".txt"_s))
        name.chop(4);
    const auto [stem, extension] = splitExtension(name);
    constexpr qsizetype longestVersion = 40;
    const QString shownVersion = version.isNull() ? u"(null)"_s : safeFileName(version).left(longestVersion);
    const QString tail = u" - %1.%2"_s.arg(shownVersion, extension);
    const QString result = shortenedFileName(stem, tail);
    const bool isVersionPlain = version.isNull() || (version.size() <= longestVersion && isPlain(version));
    if (!isNameAltered && isVersionPlain && result.size() == stem.size() + tail.size())
        return result;
    const QString digest = digestOf({suggestedName, version, url.toString(QUrl::FullyEncoded)});
    return shortenedFileName(stem, u" - %1=%2.%3"_s.arg(shownVersion, digest, extension));
}

UpdateDownload::UpdateDownload(Services &services, TXUpdate &update, Choice choice,
                               std::shared_ptr<const ArchiveTrust> trusted,
                               TXUpdate::ProgressHandler progress, TXUpdate::CompletionHandler completion)
    : m_services(services)
    , m_update(&update)
    , m_choice(choice)
    , m_trusted(std::move(trusted))
    , m_progress(std::move(progress))
    , m_completion(std::move(completion)) {
    runningDownloads().append(this);
}

UpdateDownload::~UpdateDownload() {
    runningDownloads().removeOne(this);
    // Only a download whose update was destroyed has not reported its end yet.
    if (m_completion)
        postToMain([completion = std::move(m_completion)] {
            completion(TXError(TXCocoaErrorDomain, TXErrorCancelled, u"The update could not be downloaded."_s,
                               u"The application released the update while it was being downloaded."_s,
                               u"Keep the update until its handler has been called."_s));
        });
}

TX_SHARED void UpdateDownload::begin(TXUpdate &update, Choice choice,
                                     const TXUpdate::ProgressHandler &progress,
                                     const TXUpdate::CompletionHandler &completion) {
    UpdateDetails &d = detailsOf(update);
    if (update.isDownloading() && choice == Choice::Users)
        d.download->m_choice = choice; // the user chose the download that is already running
    if (update.isDownloading() || update.isDownloaded())
        return;
    const QPointer<TXUpdate> guard(&update);
    const auto endUnbegun = [&completion, guard](const TXError &error) {
        postToMain([completion, error, guard] {
            if (guard)
                Q_EMIT guard->downloadFinished(error);
            if (completion)
                completion(error);
        });
    };
    if (const TXError refusal = update.downloadRefusal()) {
        TXLog(TXLogLevelFailure, u"TXUpdate: The update is not downloaded: %@"_s, {refusal.toString()});
        endUnbegun(refusal);
        return;
    }
    if (const TXError noIdentity = checkHostIdentity()) { // no application could be found in its archive
        endUnbegun(noIdentity);
        return;
    }
    const Result<std::shared_ptr<const ArchiveTrust>> trusted = archiveTrustOf(update);
    if (!trusted) { // downloadRefusal() reports this earlier, except for an update without an archive
        endUnbegun(trusted.error());
        return;
    }
    const QList<UpdateDownload *> running = runningDownloads();
    for (UpdateDownload *other : running) {
        // One may have been destroyed while another one ended, and one that has ended may be calling its
        // handler
        // just now.
        if (!runningDownloads().contains(other) || !other->m_update ||
            detailsOf(*other->m_update).download.get() != other)
            continue;
        if (other->m_choice == Choice::Automatic) {
            TXLog(TXLogLevelStep, u"TXUpdate: The download of build %@ gives way to that of build %@"_s,
                  {other->m_update->version(), update.version()});
            other->m_update->cancelDownload();
        } else if (choice == Choice::Automatic) {
            TXLog(TXLogLevelStep, u"TXUpdate: Build %@ is not downloaded while the user's choice is"_s,
                  {update.version()});
            endUnbegun({});
            return;
        }
        if (!guard || update.isDownloading() || update.isDownloaded())
            return endUnbegun({}); // what the handler of the ended one did
    }
    const UpdateState before = stateOf(update);
    if (!enterState(update, UpdateState::Downloading))
        return;
    d.download = std::make_shared<UpdateDownload>(services(), update, choice, *trusted, progress, completion);
    d.downloadSize = 0;
    d.downloadProgress = 0;
    const auto download = d.download;
    download->start();
    Q_EMIT update.downloadSizeChanged();
    if (guard)
        Q_EMIT update.downloadProgressChanged();
    if (guard)
        announceState(update, before, UpdateState::Downloading);
}

void UpdateDownload::start() {
    UrlRequest request;
    request.url = m_update->fileURL();
    const ArchiveLimits limits = archiveLimits();
    request.sizeLimit = limits.archive;
    request.minimumRate = limits.rate;
    if (m_trusted) {
        // Zero would mean "no limit".
        const quint64 signedSize = std::max<quint64>(m_trusted->proof.size(), 1);
        if (signedSize < quint64(request.sizeLimit))
            request.sizeLimit = qint64(signedSize);
        m_digest = std::make_shared<trust::DigestStream>();
        request.written = [digest = m_digest](QByteArrayView piece) {
            digest->add(piece.data(), size_t(piece.size()));
        };
    }
    m_transfer = m_services.urlLoader->startDownload(request, *this);
    // An update that could not be installed is not downloaded completely. The transfer does not wait for the
    // answer, which comes before much has been transferred.
    checkPackageOwner(u"The update could not be downloaded."_s, [weak = weak_from_this()](
                                                                    const TXError &refusal) {
        const auto download = weak.lock();
        if (refusal && download && download->m_update && detailsOf(*download->m_update).download == download)
            download->refuse(refusal);
    });
}

void UpdateDownload::cancel() {
    m_transfer->cancel();
    downloadEndedSuccessfully(false, {});
}

void UpdateDownload::refuse(const TXError &error) {
    TXLog(TXLogLevelFailure, u"TXUpdate: The update is not downloaded: %@"_s, {error.toString()});
    m_transfer->cancel();
    downloadEndedSuccessfully(false, error);
}

void UpdateDownload::downloadDidReceiveResponse(UrlDownload &, qint64 expectedLength) {
    const auto keep = shared_from_this();
    assign(*m_update, detailsOf(*m_update).downloadSize, static_cast<quint64>(expectedLength),
           &TXUpdate::downloadSizeChanged);
    if (m_update)
        assign(*m_update, detailsOf(*m_update).downloadProgress, 0.0, &TXUpdate::downloadProgressChanged);
}

void UpdateDownload::downloadDecideDestinationWithSuggestedFilename(UrlDownload &download,
                                                                    const QString &filename) {
    const auto keep = shared_from_this();
    FileSystem &files = *m_services.fileSystem;
    const UpdateFolder folder = UpdateFolder::ofHost();
    const QString directory = folder.path();
    if (!files.exists(directory))
        (void)files.createDirectory(directory, false);
    // Everything else in this folder is removed below, so it must belong to this user and not be a link.
    if (const TXError error = files.checkPrivateDirectory(directory)) {
        download.cancel();
        downloadEndedSuccessfully(
            false, urlError(UrlErrorCannotCreateFile, m_update->fileURL(), error.localizedDescription()));
        return;
    }
    // It must also be reserved for this download: a second download would delete this one's files.
    if (const TXError error =
            occupyFolder(m_services, *m_update, folder, u"The update could not be downloaded."_s)) {
        download.cancel();
        downloadEndedSuccessfully(false, error);
        return;
    }
    const QString name = downloadFileName(filename, m_update->version(), m_update->fileURL());
    const QString path = folder.pathOf(name);
    m_update->setDownloadPath(path);
    if (const Result<QStringList> entries = files.list(directory)) {
        for (const QString &entry : *entries) {
            // The installer tool removes itself when it has finished.
            if (UpdateFolder::isInstallerTool(entry))
                TXLog(TXLogLevelFailure, u"TXUpdate: An earlier installation did not come to its end."_s);
            if (entry != name)
                (void)files.remove(folder.pathOf(entry));
        }
    }
    if (!m_update)
        return;
    if (files.exists(path)) {
        const Result<quint64> size = files.fileSize(path);
        const bool isSignedSize = !m_trusted || (size && *size == m_trusted->proof.size());
        if (size && *size == detailsOf(*m_update).downloadSize && isSignedSize) {
            TXLog(TXLogLevelStep, u"TXUpdate: %@ is complete already"_s, {path});
            download.cancel();
            downloadEndedSuccessfully(true, {});
            return;
        }
        if (!size)
            (void)files.remove(path); // something that is not a file
    }
    download.setDestination(path);
}

bool UpdateDownload::downloadShouldDecodeSourceDataOfMIMEType(UrlDownload &, const QString &type) {
    return !type.contains(u"gzip"_s);
}

void UpdateDownload::downloadDidReceiveDataOfLength(UrlDownload &, qint64 length) {
    m_received += static_cast<quint64>(length);
    static double lastTime = 0; // one budget for all downloads of the process
    const auto keep = shared_from_this();
    __TXUpdateAllowOnceEvery([this] { reportProgress(); }, &lastTime, 0.1);
}

void UpdateDownload::reportProgress() {
    const quint64 size = std::max(detailsOf(*m_update).downloadSize, m_received);
    assign(*m_update, detailsOf(*m_update).downloadSize, size, &TXUpdate::downloadSizeChanged);
    if (!m_update)
        return;
    const double progress = static_cast<double>(m_received) / static_cast<double>(size);
    assign(*m_update, detailsOf(*m_update).downloadProgress, progress, &TXUpdate::downloadProgressChanged);
    if (m_update && m_progress)
        m_progress(progress);
}

void UpdateDownload::downloadDidFinish(UrlDownload &) {
    const TXError error = checkSignature();
    if (error) {
        TXLog(TXLogLevelFailure, u"TXUpdate: The archive is refused: %@"_s, {error.toString()});
        (void)m_services.fileSystem->remove(detailsOf(*m_update).downloadPath);
    }
    downloadEndedSuccessfully(!error, error);
}

TXError UpdateDownload::checkSignature() const {
    const trust::Verdict refused = m_trusted ? m_trusted->proof.check(*m_digest) : trust::Verdict();
    return refused ? archiveTrustError(*refused) : TXError();
}

void UpdateDownload::downloadDidFailWithError(UrlDownload &, const TXError &error) {
    const bool isLongerThanSigned = m_trusted && error.domain() == TXURLErrorDomain &&
                                    error.code() == UrlErrorDataLengthExceedsMaximum &&
                                    m_trusted->proof.size() <= quint64(archiveLimits().archive);
    if (isLongerThanSigned)
        downloadEndedSuccessfully(
            false, archiveTrustError({trust::FaultKind::Mismatch,
                                      "the archive has more than the " +
                                          std::to_string(m_trusted->proof.size()) + " signed bytes"}));
    else
        downloadEndedSuccessfully(false, error);
}

void UpdateDownload::downloadEndedSuccessfully(bool successful, const TXError &reported) {
    // The update releases this object here, and a handler may release the update.
    const auto keep = shared_from_this();
    TXUpdate &update = *m_update;
    TXError error = withAdvice(reported);
    if (successful && !m_services.fileSystem->exists(detailsOf(update).downloadPath)) {
        successful = false;
        error = missingFileError();
    }
    UpdateDetails &d = detailsOf(update);
    d.download.reset();
    d.folderLock.reset();
    const bool ended = enterState(update, successful ? UpdateState::Downloaded : UpdateState::Available);
    d.downloadProgress = successful ? 1.0 : 0.0;
    const bool pathChanged = !successful && !d.downloadPath.isNull();
    if (!successful)
        d.downloadPath = QString();
    const TXUpdate::ProgressHandler progress = std::exchange(m_progress, nullptr);
    const TXUpdate::CompletionHandler completion = std::exchange(m_completion, nullptr);
    const double reached = d.downloadProgress;
    const auto announce = [this](auto signal) {
        if (m_update)
            Q_EMIT (*m_update.*signal)();
    };
    if (ended && successful)
        announce(&TXUpdate::isDownloadedChanged);
    announce(&TXUpdate::downloadProgressChanged);
    if (ended)
        announce(&TXUpdate::isDownloadingChanged);
    if (pathChanged)
        announce(&TXUpdate::downloadPathChanged);
    if (!error && progress)
        progress(reached);
    if (m_update)
        Q_EMIT m_update->downloadFinished(error);
    if (completion)
        completion(error);
}

} // namespace tx

void TXUpdate::downloadWithProgress(const ProgressHandler &progress, const CompletionHandler &completion) {
    tx::UpdateDownload::begin(*this, tx::UpdateDownload::Choice::Users, progress, completion);
}

void TXUpdate::cancelDownload() {
    if (const auto download = isDownloading() ? d->details().download : nullptr)
        download->cancel();
}

void TXUpdate::cleanup() {
    if (downloadPath().isNull())
        return;
    (void)tx::services().fileSystem->remove(tx::UpdateFolder::ofArchive(downloadPath()).path());
}
