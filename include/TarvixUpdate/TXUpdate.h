// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>
#include <TarvixUpdate/TXUpdateItem.h>

#include <QObject>
#include <QSizeF>
#include <QUrl>

#include <functional>
#include <memory>

namespace tx {
class UpdateBuilder;
class UpdateDownload;
class UpdateInstallation;
} // namespace tx

/// The code, in TXCocoaErrorDomain, of an operation that did not fail but was called off: the application
/// refused to quit for an installation, or the update was destroyed meanwhile.
inline constexpr int TXErrorCancelled = 3072;

/// One available build of the host application, as the feed describes it, with its download and installation.
///
///     update->downloadWithProgress([](double p) { showProgress(p); }, [update](const TXError &error) {
///         if (!error && update->isDownloaded())
///             update->installWithErrorHandler([](const TXError &e) { if (e) complain(e); });
///     });
///
/// Thread: filled by a reader, then used on the main thread only; handlers and signals arrive there.
/// Ownership: shared; keep it while a download or installation runs. Destroying it cancels a download, and an
/// installation that has not been handed over; their handlers get the error TXErrorCancelled.
class TX_EXPORT TXUpdate final : public QObject, public TXUpdateItem {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TXUpdate)
    Q_PROPERTY(QString title READ title WRITE setTitle NOTIFY itemChanged FINAL)
    Q_PROPERTY(QString version READ version WRITE setVersion NOTIFY itemChanged FINAL)
    Q_PROPERTY(QString displayVersion READ displayVersion WRITE setDisplayVersion NOTIFY itemChanged FINAL)
    Q_PROPERTY(QString dateString READ dateString WRITE setDateString NOTIFY itemChanged FINAL)
    Q_PROPERTY(QString itemDescription READ itemDescription WRITE setItemDescription NOTIFY itemChanged FINAL)
    Q_PROPERTY(QString extra READ extra WRITE setExtra NOTIFY itemChanged FINAL)
    Q_PROPERTY(QUrl releaseNotesURL READ releaseNotesURL WRITE setReleaseNotesURL NOTIFY itemChanged FINAL)
    Q_PROPERTY(QUrl fileURL READ fileURL WRITE setFileURL NOTIFY itemChanged FINAL)
    Q_PROPERTY(QUrl linkURL READ linkURL WRITE setLinkURL NOTIFY itemChanged FINAL)
    Q_PROPERTY(QSizeF preferredDisplaySize READ preferredDisplaySize WRITE setPreferredDisplaySize NOTIFY
                   itemChanged FINAL)
    Q_PROPERTY(std::optional<TXUpdateItemConditions> conditions READ conditions WRITE setConditions NOTIFY
                   itemChanged FINAL)
    Q_PROPERTY(bool excludeFromAutoDownloading READ excludeFromAutoDownloading WRITE
                   setExcludeFromAutoDownloading NOTIFY itemChanged FINAL)
    Q_PROPERTY(bool isDownloaded READ isDownloaded WRITE setDownloaded NOTIFY isDownloadedChanged FINAL)
    Q_PROPERTY(bool isDownloading READ isDownloading NOTIFY isDownloadingChanged FINAL)
    Q_PROPERTY(QString downloadPath READ downloadPath WRITE setDownloadPath NOTIFY downloadPathChanged FINAL)
    Q_PROPERTY(double downloadProgress READ downloadProgress NOTIFY downloadProgressChanged FINAL)
    Q_PROPERTY(quint64 downloadSize READ downloadSize NOTIFY downloadSizeChanged FINAL)
    Q_PROPERTY(bool isInstalling READ isInstalling NOTIFY isInstallingChanged FINAL)
    Q_PROPERTY(bool isInstalled READ isInstalled WRITE setInstalled NOTIFY isInstalledChanged FINAL)
    // What follows from the properties above changes with them.
    Q_PROPERTY(QDateTime date READ date NOTIFY itemChanged STORED false FINAL)
    Q_PROPERTY(bool isMajorVersion READ isMajorVersion NOTIFY itemChanged STORED false FINAL)
    Q_PROPERTY(bool isMinorVersion READ isMinorVersion NOTIFY itemChanged STORED false FINAL)
    Q_PROPERTY(bool isBugfixVersion READ isBugfixVersion NOTIFY itemChanged STORED false FINAL)
    Q_PROPERTY(bool canBeDownloaded READ canBeDownloaded NOTIFY itemChanged STORED false FINAL)

public:
    /// 0.0 to 1.0, at most about ten times a second and once more at the end.
    using ProgressHandler = std::function<void(double progress)>;
    /// Called exactly once if the call was accepted; a null error means success or, after cancelDownload,
    /// cancellation.
    using CompletionHandler = std::function<void(const TXError &error)>;

    TXUpdate();
    ~TXUpdate() override;

    [[nodiscard]] QString title() const;
    void setTitle(const QString &title);
    /// The build, used in comparisons and in the name of the download.
    [[nodiscard]] QString version() const;
    void setVersion(const QString &version);
    /// The version for people.
    [[nodiscard]] QString displayVersion() const;
    void setDisplayVersion(const QString &version);
    [[nodiscard]] QString dateString() const override;
    void setDateString(const QString &text);
    [[nodiscard]] QString itemDescription() const;
    void setItemDescription(const QString &text);
    [[nodiscard]] QString extra() const;
    void setExtra(const QString &text);
    /// Addresses are empty when absent.
    [[nodiscard]] QUrl releaseNotesURL() const;
    void setReleaseNotesURL(const QUrl &url);
    /// The archive; empty when the user can only fetch the update from `linkURL`.
    [[nodiscard]] QUrl fileURL() const;
    void setFileURL(const QUrl &url);
    [[nodiscard]] QUrl linkURL() const;
    void setLinkURL(const QUrl &url);
    /// Device-independent pixels; the zero size is no preference.
    [[nodiscard]] QSizeF preferredDisplaySize() const;
    void setPreferredDisplaySize(const QSizeF &size);
    [[nodiscard]] std::optional<TXUpdateItemConditions> conditions() const override;
    void setConditions(const std::optional<TXUpdateItemConditions> &conditions);
    [[nodiscard]] bool excludeFromAutoDownloading() const;
    void setExcludeFromAutoDownloading(bool exclude);

    /// `dateString` ("yyyy-MM-dd HH:mm:ss", US Pacific time) as a date; invalid for any other form.
    [[nodiscard]] QDateTime date() const override;
    /// Exactly one of the three holds: decided on `displayVersion`.
    [[nodiscard]] bool isMajorVersion() const;
    [[nodiscard]] bool isMinorVersion() const;
    [[nodiscard]] bool isBugfixVersion() const;
    /// There is an archive, and nothing against downloading it.
    [[nodiscard]] bool canBeDownloaded() const;
    /// Why the archive is not downloaded, for the user: a feed with an https URL may name only https
    /// archives. Null when there is nothing against it, or no archive.
    [[nodiscard]] TXError downloadRefusal() const;

    /// Same feed description: title, version, date, texts, addresses and conditions.
    [[nodiscard]] bool isEqual(const TXUpdate &other) const;

    /// Ignores this version and every older one for 30 days; replaces what was ignored before.
    void ignore();

    [[nodiscard]] bool isDownloaded() const;
    void setDownloaded(bool downloaded);
    [[nodiscard]] bool isDownloading() const;
    /// Full path of the archive while it is downloading and once it is downloaded, else null.
    [[nodiscard]] QString downloadPath() const;
    void setDownloadPath(const QString &path);
    [[nodiscard]] double downloadProgress() const;
    /// Bytes; the largest number while the server has not said.
    [[nodiscard]] quint64 downloadSize() const;

    /// Downloads the archive into the update cache directory. Does nothing, and never calls the handlers,
    /// while downloading and once downloaded. `progress` may be null. Ends a download that the framework
    /// began by itself. Errors: TXURLErrorDomain, or "TXUpdater" for a file that went missing, a folder that
    /// is in use, `downloadRefusal`, and a host whose Info.plist does not say which application it is.
    void downloadWithProgress(const ProgressHandler &progress, const CompletionHandler &completion);
    /// Ends a running download; its completion handler gets a null error. The partial file is deleted.
    void cancelDownload();
    /// Removes the folder that holds the download, with everything in it.
    void cleanup();

    [[nodiscard]] bool isInstalling() const;
    [[nodiscard]] bool isInstalled() const;
    void setInstalled(bool installed);

    /// Unpacks the archive, asks the application to quit (TXUpdaterDelegate::updaterShouldQuitToInstall) and
    /// hands the new application to the installer tool, which ends this process. The handler is called with
    /// an error when that fails, with TXErrorCancelled when the application refuses to quit, and with a null
    /// error when the new application was put into the Downloads folder instead. While installing and before
    /// the download this does nothing, and the handler is never called.
    void installWithErrorHandler(const CompletionHandler &handler);
    /// Does nothing: an installation that has begun cannot be stopped.
    void cancelInstalling();

    /// Starts what will open the host again, then asks it to terminate.
    void launch();

Q_SIGNALS:
    void itemChanged();
    void isDownloadedChanged();
    void isDownloadingChanged();
    void downloadPathChanged();
    void downloadProgressChanged();
    void downloadSizeChanged();
    void isInstallingChanged();
    void isInstalledChanged();

private:
    friend class tx::UpdateBuilder;
    friend class tx::UpdateDownload;
    friend class tx::UpdateInstallation;
    struct Private;
    /// Either what the feed says, which takes little, or all that an update can have, from the first use of
    /// more than that on.
    struct Content {
        Content();
        ~Content();
        Content(const Content &) = delete;
        Content &operator=(const Content &) = delete;
        /// All of it, made now if need be.
        Private *operator->() const;
        Private &operator*() const { return *operator->(); }

        mutable tx::PackedEntry packed;
        mutable std::unique_ptr<Private> all;
    };
    Content d;
};

using TXUpdatePtr = std::shared_ptr<TXUpdate>;
