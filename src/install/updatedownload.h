// SPDX-License-Identifier: MIT
#pragma once

#include "model/hosttrust.h"
#include "model/updatefolder.h"
#include "net/urlloading.h"
#include "trust/digest.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QPointer>

namespace tx {

struct Services;

/// The running download of one update. Thread: main. Ownership: the update owns it; it also keeps itself
/// alive while it reports.
class UpdateDownload final : public UrlDownloadDelegate, public std::enable_shared_from_this<UpdateDownload> {
public:
    /// Who started a download. A download by the user cancels automatic ones. An automatic download starts
    /// only if no download by the user is running. At most one runs in a process.
    enum class Choice { Users, Automatic };

    UpdateDownload(Services &services, TXUpdate &update, Choice choice,
                   std::shared_ptr<const ArchiveTrust> trusted, TXUpdate::ProgressHandler progress,
                   TXUpdate::CompletionHandler completion);
    ~UpdateDownload() override;
    Q_DISABLE_COPY_MOVE(UpdateDownload)

    /// Implements TXUpdate::downloadWithProgress for both choices. A download that another one replaces ends
    /// like a cancelled one.
    static void begin(TXUpdate &update, Choice choice, const TXUpdate::ProgressHandler &progress,
                      const TXUpdate::CompletionHandler &completion);

    /// Locks the folder of the update's file until `folderLock` is destroyed. If another update of this or of
    /// another process uses the folder, returns an error with the description `failure`. The installer tool
    /// uses the same lock.
    [[nodiscard]] static TXError occupyFolder(Services &services, TXUpdate &update,
                                              const UpdateFolder &folder, const QString &failure);

    void start();
    void cancel();

    void downloadDidReceiveResponse(UrlDownload &download, qint64 expectedLength) override;
    void downloadDecideDestinationWithSuggestedFilename(UrlDownload &download,
                                                        const QString &filename) override;
    bool downloadShouldDecodeSourceDataOfMIMEType(UrlDownload &download, const QString &type) override;
    void downloadDidReceiveDataOfLength(UrlDownload &download, qint64 length) override;
    void downloadDidFinish(UrlDownload &download) override;
    void downloadDidFailWithError(UrlDownload &download, const TXError &error) override;

private:
    void downloadEndedSuccessfully(bool successful, const TXError &error);
    void refuse(const TXError &error);
    /// Returns an error if the downloaded archive differs from the signed one, else null.
    [[nodiscard]] TXError checkSignature() const;
    void reportProgress();

    Services &m_services;
    QPointer<TXUpdate> m_update;
    Choice m_choice;
    std::shared_ptr<const ArchiveTrust> m_trusted; ///< null for a host without keys
    TXUpdate::ProgressHandler m_progress;
    TXUpdate::CompletionHandler m_completion;
    /// The digest of the file. Only the network thread uses it until the transfer has ended.
    std::shared_ptr<trust::DigestStream> m_digest;
    std::unique_ptr<UrlDownload> m_transfer;
    quint64 m_received = 0;
};

/// The file name of a stored archive: "<suggested name> - <version>.<extension>", without a "txt" extension
/// of the suggested name. It never contains a path, and is valid on every file system.
///
/// The download is skipped if the folder contains a complete file of that name, so two builds must never have
/// the same name. Invalid characters in the suggested name or the version are replaced, and long texts are
/// shortened. To keep the name unique in that case, "=" and a digest of the suggested name, the version and
/// the URL are appended to the version.
[[nodiscard]] QString downloadFileName(const QString &suggestedName, const QString &version, const QUrl &url);

} // namespace tx
