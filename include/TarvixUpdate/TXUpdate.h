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

/// The code, in TXCocoaErrorDomain, of an operation that did not fail but was cancelled: the application
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
    /// The same, owned by `parent`.
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
    /// What is new, as text or HTML, shown if there is no `releaseNotesURL` or it does not load.
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
    /// Minor and patch number of `displayVersion` are 0 or absent. Exactly one of this and the next two
    /// holds.
    [[nodiscard]] bool isMajorVersion() const;
    /// `displayVersion` has a minor number other than 0, and the patch number 0 or none.
    [[nodiscard]] bool isMinorVersion() const;
    /// `displayVersion` has a patch number other than 0.
    [[nodiscard]] bool isBugfixVersion() const;
    /// One of the application's keys (TXUpdatePublicKeys in its Info.plist) has signed what the archive must
    /// be. The archive itself is verified while it is downloaded and before it is unpacked. False for an
    /// application without keys.
    [[nodiscard]] bool isSigned() const;
    /// There is an archive, and no downloadRefusal().
    [[nodiscard]] bool canBeDownloaded() const;
    /// Why the archive must not be downloaded, for the user: a feed with an https URL may name only https
    /// archives, and an application with keys takes only archives that one of them has signed
    /// (TXUpdateErrorDomain). Null if the download is allowed or there is no archive.
    [[nodiscard]] TXError downloadRefusal() const;

    /// Equal in all that the feed says: title, version, date, strings, URLs and conditions.
    [[nodiscard]] bool isEqual(const TXUpdate &other) const;

    /// Ignores this version and every older one for 30 days; replaces what was ignored before.
    void ignore();

    /// The archive is complete, at `downloadPath`.
    [[nodiscard]] bool isDownloaded() const;
    /// For a host that downloads by itself: says that `downloadPath` is complete.
    void setDownloaded(bool downloaded);
    /// True from downloadWithProgress() until just before its handler is called.
    [[nodiscard]] bool isDownloading() const;
    /// Full path of the archive while it is downloading and once it is downloaded, else null.
    [[nodiscard]] QString downloadPath() const;
    /// For a host that downloads by itself: where the archive is.
    void setDownloadPath(const QString &path);
    /// 0.0 to 1.0.
    [[nodiscard]] double downloadProgress() const;
    /// In bytes; the largest number while the size is unknown.
    [[nodiscard]] quint64 downloadSize() const;

    /// Downloads the archive into the update cache directory. Does nothing, and never calls the handlers,
    /// while downloading and once downloaded. `progress` may be null. Ends a download that the framework
    /// began by itself. Errors: TXURLErrorDomain; TXUpdateErrorDomain for an archive that is not what the
    /// application's keys have signed; or "TXUpdater" for a file that went missing, a folder that is in use,
    /// `downloadRefusal`, and a host whose Info.plist does not say which application it is.
    void downloadWithProgress(const ProgressHandler &progress, const CompletionHandler &completion);
    /// Ends a running download; its completion handler gets a null error. The partial file is deleted.
    void cancelDownload();
    /// Removes the folder that holds the download, with everything in it.
    void cleanup();

    /// True from installWithErrorHandler() until its handler is called or the process ends.
    [[nodiscard]] bool isInstalling() const;
    /// What setInstalled() stored; a failed installation clears it. The framework does not set it: a
    /// successful installation ends the process.
    [[nodiscard]] bool isInstalled() const;
    /// For a host that installs by itself. The framework does not call it.
    void setInstalled(bool installed);

    /// Verifies the archive if the application has keys, unpacks what was verified, asks the application to
    /// quit (TXUpdaterDelegate::updaterShouldQuitToInstall) and hands the new application to the installer
    /// tool, which ends this process. The handler is called with an error when that fails, with
    /// TXErrorCancelled when the application refuses to quit, and with a null error when the new application
    /// was put into the Downloads folder instead. While installing and before the download this does nothing,
    /// and the handler is never called.
    void installWithErrorHandler(const CompletionHandler &handler);
    /// Does nothing: an installation that has begun cannot be stopped.
    void cancelInstalling();

    /// Starts what will open the host again, then asks it to terminate.
    void launch();

Q_SIGNALS:
    /// A value from the feed changed, and with it what is derived from it.
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
    /// A download has ended, also one that was refused before it began: once for each call whose handler is
    /// called, before the handler. `error` is the handler's: null if the archive is complete or the download
    /// was cancelled, which isDownloaded() tells apart.
    void downloadFinished(const TXError &error);
    /// An installation has ended without ending the process, before the handler is called. `error` is the
    /// handler's.
    void installationFinished(const TXError &error);

private:
    friend struct TXUpdatePrivate;
    explicit TXUpdate(TXUpdatePrivate &content);
    TXUpdatePrivate *const d;
};

/// The feed, panels and hosts share an update.
using TXUpdatePtr = std::shared_ptr<TXUpdate>;
