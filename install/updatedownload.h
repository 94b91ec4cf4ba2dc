// SPDX-License-Identifier: MIT
#pragma once

#include "platform/urlloading.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QPointer>

namespace tx {

/// The running download of one update. Thread: main. Owned by the update, and by itself while it reports.
class UpdateDownload final : public UrlDownloadDelegate, public std::enable_shared_from_this<UpdateDownload> {
public:
    UpdateDownload(TXUpdate &update, TXUpdate::ProgressHandler progress,
                   TXUpdate::CompletionHandler completion);
    ~UpdateDownload() override;
    Q_DISABLE_COPY_MOVE(UpdateDownload)

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
    void reportProgress();

    QPointer<TXUpdate> m_update;
    TXUpdate::ProgressHandler m_progress;
    TXUpdate::CompletionHandler m_completion;
    std::unique_ptr<UrlDownload> m_transfer;
    quint64 m_received = 0;
};

/// The name under which an archive is stored: "<suggested name> - <version>.<extension>", a "txt" extension
/// dropped first. Never leads out of its folder and fits every file system.
[[nodiscard]] QString downloadFileName(const QString &suggestedName, const QString &version);

} // namespace tx
