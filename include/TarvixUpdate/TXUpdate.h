// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>
#include <TarvixUpdate/TXUpdateItem.h>

#include <QObject>
#include <QSizeF>
#include <QUrl>

#include <functional>
#include <memory>

struct TXUpdatePrivate;

/// The code, in TXCocoaErrorDomain, of an operation that was cancelled: the application refused to quit for
/// an installation, or the update was destroyed during the operation.
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
    // Derived from the properties above, so they change with them.
    Q_PROPERTY(QDateTime date READ date NOTIFY itemChanged STORED false FINAL)
    Q_PROPERTY(bool isMajorVersion READ isMajorVersion NOTIFY itemChanged STORED false FINAL)
    Q_PROPERTY(bool isMinorVersion READ isMinorVersion NOTIFY itemChanged STORED false FINAL)
    Q_PROPERTY(bool isBugfixVersion READ isBugfixVersion NOTIFY itemChanged STORED false FINAL)
    Q_PROPERTY(bool isSigned READ isSigned NOTIFY itemChanged STORED false FINAL)
    Q_PROPERTY(bool canBeDownloaded READ canBeDownloaded NOTIFY itemChanged STORED false FINAL)

public:
    /// 0.0 to 1.0, at most about ten times a second and once more at the end.
    using ProgressHandler = std::function<void(double progress)>;
    /// Called exactly once if the call was accepted; a null error means success or, after cancelDownload,
    /// cancellation.
    using CompletionHandler = std::function<void(const TXError &error)>;

    /// An empty update, for hosts that fill it themselves.
    TXUpdate();
    /// Creates an update that `parent` owns.
    explicit TXUpdate(QObject *parent);
    ~TXUpdate() override; ///< Cancels; see above.

    /// The headline of the update.
    [[nodiscard]] QString title() const;
    /// Setters are for hosts that fill an update themselves. Each emits itemChanged() if the value changes.
    void setTitle(const QString &title);
    /// The build, used in comparisons and in the name of the download.
    [[nodiscard]] QString version() const;
    /// See setTitle().
    void setVersion(const QString &version);
    /// The version shown to people.
    [[nodiscard]] QString displayVersion() const;
    /// See setTitle().
    void setDisplayVersion(const QString &version);
    /// The date as the feed gives it; see date().
    [[nodiscard]] QString dateString() const override;
    /// See setTitle().
    void setDateString(const QString &text);
    /// What is new in this version, as plain text or HTML. Shown if there is no `releaseNotesURL` or that
    /// page cannot be loaded.
    [[nodiscard]] QString itemDescription() const;
    /// See setTitle().
    void setItemDescription(const QString &text);
    /// A string of an appcast for the application's own use. The framework only stores it.
    [[nodiscard]] QString extra() const;
    /// See setTitle().
    void setExtra(const QString &text);
    /// The page with the release notes. A URL is empty if absent.
    [[nodiscard]] QUrl releaseNotesURL() const;
    /// See setTitle().
    void setReleaseNotesURL(const QUrl &url);
    /// The archive; empty if the user can download the update only from `linkURL`.
    [[nodiscard]] QUrl fileURL() const;
    /// See setTitle().
    void setFileURL(const QUrl &url);
    /// A web page from which the user can download the update; empty if absent.
    [[nodiscard]] QUrl linkURL() const;
    /// See setTitle().
    void setLinkURL(const QUrl &url);
    /// The size for the release notes in device-independent pixels; zero means no preference.
    [[nodiscard]] QSizeF preferredDisplaySize() const;
    /// See setTitle().
    void setPreferredDisplaySize(const QSizeF &size);
    /// Which applications and systems the update is for; absent: all.
    [[nodiscard]] std::optional<TXUpdateItemConditions> conditions() const override;
    /// See setTitle().
    void setConditions(const std::optional<TXUpdateItemConditions> &conditions);
    /// The update is downloaded only if the user asks for it.
    [[nodiscard]] bool excludeFromAutoDownloading() const;
    /// See setTitle().
    void setExcludeFromAutoDownloading(bool exclude);

    /// `dateString` ("yyyy-MM-dd HH:mm:ss", US Pacific time) as a date; invalid for any other form.
    [[nodiscard]] QDateTime date() const override;
    /// True if the minor and patch numbers of `displayVersion` are 0 or absent. Exactly one of this function
    /// and the next two returns true.
    [[nodiscard]] bool isMajorVersion() const;
    /// `displayVersion` has a minor number other than 0, and the patch number 0 or none.
    [[nodiscard]] bool isMinorVersion() const;
    /// `displayVersion` has a patch number other than 0.
    [[nodiscard]] bool isBugfixVersion() const;
    /// True if the feed carries a signature of this update's archive by one of the application's keys
    /// (TXUpdatePublicKeys in its Info.plist). The archive itself is verified during the download and again
    /// before it is unpacked. Always false for an application without keys.
    [[nodiscard]] bool isSigned() const;
    /// True if the update has an archive and downloadRefusal() is null.
    [[nodiscard]] bool canBeDownloaded() const;
    /// Returns an error for the user that says why the archive must not be downloaded. Null if the download
    /// is allowed, and if the update has no archive. If the feed has an https URL and the archive does not,
    /// the domain is "TXUpdater". If none of the application's keys has signed the archive, or the keys are
    /// malformed, the domain is TXUpdateErrorDomain.
    [[nodiscard]] TXError downloadRefusal() const;

    /// Equal in all that the feed says: title, version, date, strings, URLs and conditions.
    [[nodiscard]] bool isEqual(const TXUpdate &other) const;

    /// Ignores this version and every older one for 30 days; replaces what was ignored before.
    void ignore();

    /// The archive is complete, at `downloadPath`.
    [[nodiscard]] bool isDownloaded() const;
    /// For a host that downloads updates itself: states that the file at `downloadPath` is complete.
    /// Has no effect, and is logged, while the framework downloads or installs the update.
    void setDownloaded(bool downloaded);
    /// True from downloadWithProgress() until just before its handler is called.
    [[nodiscard]] bool isDownloading() const;
    /// Full path of the archive while it is downloading and once it is downloaded, else null.
    [[nodiscard]] QString downloadPath() const;
    /// For a host that downloads updates itself: the archive's path.
    void setDownloadPath(const QString &path);
    /// 0.0 to 1.0.
    [[nodiscard]] double downloadProgress() const;
    /// In bytes; the largest number while the size is unknown.
    [[nodiscard]] quint64 downloadSize() const;

    /// Downloads the archive into the update cache directory. Does nothing and calls neither handler if a
    /// download is running or the archive has already been downloaded. `progress` may be null. If the
    /// framework is downloading another update automatically, that download is cancelled. Errors:
    /// TXURLErrorDomain for network errors; TXUpdateErrorDomain if the archive does not match its signature;
    /// "TXUpdater" if a file is missing, a folder is in use, `downloadRefusal` refuses the download, or the
    /// host's Info.plist has no identifier.
    void downloadWithProgress(const ProgressHandler &progress, const CompletionHandler &completion);
    /// Ends a running download; its completion handler gets a null error. The partial file is deleted.
    void cancelDownload();
    /// Removes the folder of the download with everything in it.
    void cleanup();

    /// True from installWithErrorHandler() until its handler is called or the process ends.
    [[nodiscard]] bool isInstalling() const;
    /// What setInstalled() stored, until the framework downloads or installs the update again. The framework
    /// does not set it: a successful installation ends the process.
    [[nodiscard]] bool isInstalled() const;
    /// For a host that installs updates itself. The framework does not call this function.
    /// Has no effect, and is logged, while the framework downloads or installs the update.
    void setInstalled(bool installed);

    /// Installs the downloaded update: verifies the archive if the application has keys, unpacks it, and asks
    /// the application to quit (TXUpdaterDelegate::updaterShouldQuitToInstall). It then starts the installer
    /// tool with the new application and ends this process. The handler is called with an error if one of
    /// these steps fails, with TXErrorCancelled if the application refuses to quit, and with a null error if
    /// the new application was moved to the Downloads folder instead of being installed. Does nothing and
    /// does not call the handler if an installation is running or the archive has not been downloaded.
    void installWithErrorHandler(const CompletionHandler &handler);
    /// Does nothing: an installation that has begun cannot be stopped.
    void cancelInstalling();

    /// Starts what will open the host again, then asks it to terminate.
    void launch();

Q_SIGNALS:
    /// A value from the feed changed, and thus also the values that are derived from it.
    void itemChanged();
    /// isDownloaded() changed. All these signals are emitted after the change.
    void isDownloadedChanged();
    /// isDownloading() changed.
    void isDownloadingChanged();
    /// downloadPath() changed.
    void downloadPathChanged();
    /// downloadProgress() changed; at most about ten times a second.
    void downloadProgressChanged();
    /// downloadSize() changed.
    void downloadSizeChanged();
    /// isInstalling() changed.
    void isInstallingChanged();
    /// isInstalled() changed.
    void isInstalledChanged();
    /// A download has ended, or was refused before it began. Emitted once for each call whose handler is
    /// called, before the handler. `error` is the error that the handler gets. It is null if the archive is
    /// complete, and also if the download was cancelled; isDownloaded() distinguishes the two.
    void downloadFinished(const TXError &error);
    /// An installation has ended and the process continues. Emitted before the handler is called. `error` is
    /// the error that the handler gets.
    void installationFinished(const TXError &error);

private:
    friend struct TXUpdatePrivate;
    explicit TXUpdate(TXUpdatePrivate &content);
    TXUpdatePrivate *const d;
};

/// The feed, panels and hosts share an update.
using TXUpdatePtr = std::shared_ptr<TXUpdate>;
