// SPDX-License-Identifier: MIT
#pragma once

#include "model/hosttrust.h"
#include "net/urlloading.h"
#include "trust/digest.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QPointer>

namespace tx {

/// The running download of one update. Thread: main. Owned by the update, and by itself while it reports.
class UpdateDownload final : public UrlDownloadDelegate, public std::enable_shared_from_this<UpdateDownload> {
public:
    /// Who wants a download. One that the user chose ends those that the framework began by itself, and those
    /// begin only when the user has chosen none. At most one runs in a process.
    enum class Choice { Users, Automatic };

    UpdateDownload(TXUpdate &update, Choice choice, std::shared_ptr<const ArchiveTrust> trusted,
                   TXUpdate::ProgressHandler progress, TXUpdate::CompletionHandler completion);
    ~UpdateDownload() override;
    Q_DISABLE_COPY_MOVE(UpdateDownload)

    /// TXUpdate::downloadWithProgress for either choice. A download that gives way to another one ends as a
    /// cancelled one does.
    static void begin(TXUpdate &update, Choice choice, const TXUpdate::ProgressHandler &progress,
                      const TXUpdate::CompletionHandler &completion);

    /// Takes the folder that holds the update's file until `folderLock` goes. One that another update of this
    /// process or of another one uses is an error with the description `failure`. The installer tool takes
    /// the same lock, "<folder>.lock".
    [[nodiscard]] static TXError occupyFolder(TXUpdate &update, const QString &folder,
                                              const QString &failure);

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
    /// Null unless the archive that has come is not the signed one.
    [[nodiscard]] TXError checkSignature() const;
    void reportProgress();

    QPointer<TXUpdate> m_update;
    Choice m_choice;
    std::shared_ptr<const ArchiveTrust> m_trusted; ///< null for a host without keys
    TXUpdate::ProgressHandler m_progress;
    TXUpdate::CompletionHandler m_completion;
    /// Of the file. The network thread feeds it until it reports the end.
    std::shared_ptr<trust::DigestStream> m_digest;
    std::unique_ptr<UrlDownload> m_transfer;
    quint64 m_received = 0;
};

/// The name under which an archive is stored: "<suggested name> - <version>.<extension>", a "txt" extension
/// dropped first. Never leads out of its folder and fits every file system.
///
/// A complete file of that name is used again, so a name never means two builds: where the name or the
/// version does not fit in as it is, "=" and a digest of both and of the URL follow the version.
[[nodiscard]] QString downloadFileName(const QString &suggestedName, const QString &version, const QUrl &url);

} // namespace tx
