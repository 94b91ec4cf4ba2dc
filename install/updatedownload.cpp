// SPDX-License-Identifier: MIT
#include "install/updatedownload.h"

#include "core/names.h"
#include "core/ratelimiter.h"
#include "core/settings.h"
#include "install/archivelimits.h"
#include "install/update_p.h"
#include "platform/filesystem.h"
#include "platform/localization.h"
#include "platform/queues.h"
#include "platform/services.h"

#include <TarvixUpdate/TXLog.h>

#include <cerrno>
#include <limits>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Name and extension, the dot of neither; a leading dot begins no extension.
std::pair<QString, QString> splitExtension(const QString &name) {
    const qsizetype dot = name.lastIndexOf(u'.');
    constexpr qsizetype longestExtension = 32;
    if (dot <= 0 || dot == name.size() - 1 || name.size() - dot > longestExtension)
        return {name, u""_s};
    return {name.left(dot), name.mid(dot + 1)};
}

/// The two failures that a user can act on get words of their own.
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

TXError UpdateDownload::occupyFolder(TXUpdate &update, const QString &folder, const QString &failure) {
    Result<std::unique_ptr<FileLock>> lock = services().fileSystem->tryLock(folder + u".lock"_s);
    if (lock) {
        update.d->folderLock = std::move(*lock);
        return {};
    }
    TXLog(TXLogLevelFailure, u"TXUpdate: %@ cannot be used. %@"_s, {folder, lock.error().toString()});
    const bool isTaken = lock.error().code() == EWOULDBLOCK;
    return TXError(updaterErrorDomain, 0, failure,
                   isTaken ? u"Another copy of the application is downloading or installing an update."_s
                           : lock.error().localizedDescription(),
                   isTaken ? u"Try again when it is done."_s : QString())
        .withUnderlyingError(lock.error());
}

QString downloadFileName(const QString &suggestedName, const QString &version) {
    QString name = safeFileName(suggestedName);
    if (name.endsWith(u".txt"_s))
        name.chop(4);
    const auto [stem, extension] = splitExtension(name);
    constexpr qsizetype longestVersion = 40;
    const QString shownVersion = version.isNull() ? u"(null)"_s : safeFileName(version).left(longestVersion);
    return shortenedFileName(stem, u" - %1.%2"_s.arg(shownVersion, extension));
}

UpdateDownload::UpdateDownload(TXUpdate &update, TXUpdate::ProgressHandler progress,
                               TXUpdate::CompletionHandler completion)
    : m_update(&update)
    , m_progress(std::move(progress))
    , m_completion(std::move(completion)) {}

UpdateDownload::~UpdateDownload() {
    // Only a download whose update was destroyed has not reported its end.
    if (m_completion)
        postToMain([completion = std::move(m_completion)] {
            completion(TXError(TXCocoaErrorDomain, TXErrorCancelled, u"The update could not be downloaded."_s,
                               u"The application released the update while it was being downloaded."_s,
                               u"Keep the update until its handler has been called."_s));
        });
}

void UpdateDownload::start() {
    UrlRequest request;
    request.url = m_update->fileURL();
    request.sizeLimit = archiveLimits().archive;
    m_transfer = services().urlLoader->startDownload(request, *this);
}

void UpdateDownload::cancel() {
    m_transfer->cancel();
    downloadEndedSuccessfully(false, {});
}

void UpdateDownload::downloadDidReceiveResponse(UrlDownload &, qint64 expectedLength) {
    const auto keep = shared_from_this();
    assign(*m_update, m_update->d->downloadSize, static_cast<quint64>(expectedLength),
           &TXUpdate::downloadSizeChanged);
    if (m_update)
        assign(*m_update, m_update->d->downloadProgress, 0.0, &TXUpdate::downloadProgressChanged);
}

void UpdateDownload::downloadDecideDestinationWithSuggestedFilename(UrlDownload &download,
                                                                    const QString &filename) {
    const auto keep = shared_from_this();
    FileSystem &files = *services().fileSystem;
    const QString directory = updateCacheDirectoryFilePath();
    if (!files.exists(directory))
        (void)files.createDirectory(directory, false);
    // Everything else in this folder is removed below: it must be this user's own, and no link to another.
    if (const TXError error = files.checkPrivateDirectory(directory)) {
        download.cancel();
        downloadEndedSuccessfully(
            false, urlError(UrlErrorCannotCreateFile, m_update->fileURL(), error.localizedDescription()));
        return;
    }
    // So must it be this download's while it runs: another one would clear it under its hands.
    if (const TXError error = occupyFolder(*m_update, directory, u"The update could not be downloaded."_s)) {
        download.cancel();
        downloadEndedSuccessfully(false, error);
        return;
    }
    const QString name = downloadFileName(filename, m_update->version());
    const QString path = directory + u'/' + name;
    m_update->setDownloadPath(path);
    if (const Result<QStringList> entries = files.list(directory)) {
        for (const QString &entry : *entries) {
            // The installer tool takes itself away when it is done.
            if (entry == u"TXUpdateInstaller.app")
                TXLog(TXLogLevelFailure, u"TXUpdate: An earlier installation did not come to its end."_s);
            if (entry != name)
                (void)files.remove(directory + u'/' + entry);
        }
    }
    if (!m_update)
        return;
    if (files.exists(path)) {
        const Result<quint64> size = files.fileSize(path);
        if (size && *size == m_update->d->downloadSize) {
            TXLog(TXLogLevelStep, u"TXUpdate: %@ is complete already"_s, {path});
            download.cancel();
            downloadEndedSuccessfully(true, {});
            return;
        }
        if (!size)
            (void)files.remove(path); // something that is no file
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
    const quint64 size = std::max(m_update->d->downloadSize, m_received);
    assign(*m_update, m_update->d->downloadSize, size, &TXUpdate::downloadSizeChanged);
    if (!m_update)
        return;
    const double progress = static_cast<double>(m_received) / static_cast<double>(size);
    assign(*m_update, m_update->d->downloadProgress, progress, &TXUpdate::downloadProgressChanged);
    if (m_update && m_progress)
        m_progress(progress);
}

void UpdateDownload::downloadDidFinish(UrlDownload &) { downloadEndedSuccessfully(true, {}); }

void UpdateDownload::downloadDidFailWithError(UrlDownload &, const TXError &error) {
    downloadEndedSuccessfully(false, error);
}

void UpdateDownload::downloadEndedSuccessfully(bool successful, const TXError &reported) {
    // The update lets go of this object here, and a handler may let go of the update.
    const auto keep = shared_from_this();
    TXUpdate &update = *m_update;
    TXError error = withAdvice(reported);
    if (successful && !services().fileSystem->exists(update.d->downloadPath)) {
        successful = false;
        error = missingFileError();
    }
    TXUpdate::Private &d = *update.d;
    d.download.reset();
    d.folderLock.reset();
    const bool downloadedChanged = d.isDownloaded != successful;
    d.isDownloaded = successful;
    d.downloadProgress = successful ? 1.0 : 0.0;
    d.isDownloading = false;
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
    if (downloadedChanged)
        announce(&TXUpdate::isDownloadedChanged);
    announce(&TXUpdate::downloadProgressChanged);
    announce(&TXUpdate::isDownloadingChanged);
    if (pathChanged)
        announce(&TXUpdate::downloadPathChanged);
    if (!error && progress)
        progress(reached);
    if (completion)
        completion(error);
}

} // namespace tx

void TXUpdate::downloadWithProgress(const ProgressHandler &progress, const CompletionHandler &completion) {
    if (d->isDownloading || d->isDownloaded)
        return;
    d->download = std::make_shared<tx::UpdateDownload>(*this, progress, completion);
    d->downloadSize = 0;
    d->downloadProgress = 0;
    d->isDownloading = true;
    const auto download = d->download;
    download->start();
    Q_EMIT downloadSizeChanged();
    Q_EMIT downloadProgressChanged();
    Q_EMIT isDownloadingChanged();
}

void TXUpdate::cancelDownload() {
    if (const auto download = d->isDownloading ? d->download : nullptr)
        download->cancel();
}

void TXUpdate::cleanup() {
    if (d->downloadPath.isNull())
        return;
    (void)tx::services().fileSystem->remove(d->downloadPath.section(u'/', 0, -2));
}
