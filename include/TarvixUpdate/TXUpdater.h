// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXQuitReply.h>
#include <TarvixUpdate/TXUpdateAppMover.h>
#include <TarvixUpdate/TXUpdateFeed.h>
#include <TarvixUpdate/TXUpdateSettings.h>
#include <TarvixUpdate/TXVersionComparison.h>

#include <QObject>
#include <QStringList>

class TXStandardUpdateController;
class TXUpdater;

/// The host's side of the updater: answers its questions and receives its notifications. Thread: all calls
/// arrive on the main thread. Ownership: the application owns its delegate.
class TX_EXPORT TXUpdaterDelegate {
public:
    virtual ~TXUpdaterDelegate();
    /// Extra parameters for the feed request, requested once for each check. An empty map adds none.
    virtual QVariantMap feedParametersForUpdater(TXUpdater *updater);
    /// The end of a check that was started without a handler: a feed, or an error.
    virtual void updaterDidCheckForUpdate(TXUpdater *updater, const TXUpdateFeedPtr &feed,
                                          const TXError &error);
    /// An update is unpacked and about to be installed, which ends the application. Answer through `reply`,
    /// in this call or later: until then the installation waits, and the installer tool is not started. The
    /// default is reply.askApplication().
    virtual void updaterShouldQuitToInstall(TXUpdater *updater, TXUpdate &update, const TXQuitReply &reply);
    /// The command-line arguments with which the application is opened after an installation or after
    /// TXUpdate::launch(), without the name of the program. Asked just before the application ends, after
    /// updaterShouldQuitToInstall() was answered; the windows may be closed by then. At most 4,096 arguments
    /// and 128 KiB, no NUL characters; more is not passed on, and the log says so. The arguments reach the
    /// application unchanged: no shell reads them, and no log contains them. The default is none.
    virtual QStringList relaunchArgumentsForUpdater(TXUpdater *updater);
    /// The folder in which the application is opened then, as an absolute path. If it is null or cannot be
    /// entered, the application is opened in "/". Asked like the arguments. The default is null.
    virtual QString relaunchDirectoryForUpdater(TXUpdater *updater);
};

/// The one updater of this application: its settings, the timer of automatic checks, and the check.
///
///     TXUpdater *updater = TXUpdater::sharedUpdater();
///     updater->setFeedURL(QUrl(u"https://example.org/feed.json"_s));
///     updater->checkForUpdate([](const TXUpdateFeedPtr &feed, const TXError &error) { ... });
///
/// Settings live in the application's user defaults under the TXUpdatePref keys.
/// Thread: properties and signals on the main thread, checkForUpdate on any. Ownership: the library owns the
/// updater until the process ends. Errors: those of TXUpdateFeed, passed on unchanged.
class TX_EXPORT TXUpdater final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TXUpdater)
    Q_PROPERTY(bool isChecking READ isChecking WRITE setChecking NOTIFY isCheckingChanged FINAL)
    Q_PROPERTY(QUrl feedURL READ feedURL WRITE setFeedURL NOTIFY settingsChanged FINAL)
    Q_PROPERTY(double updateCheckInterval READ updateCheckInterval WRITE setUpdateCheckInterval NOTIFY
                   settingsChanged FINAL)
    Q_PROPERTY(bool automaticallyChecksForUpdates READ automaticallyChecksForUpdates WRITE
                   setAutomaticallyChecksForUpdates NOTIFY settingsChanged FINAL)
    Q_PROPERTY(bool automaticallyDownloadsUpdates READ automaticallyDownloadsUpdates WRITE
                   setAutomaticallyDownloadsUpdates NOTIFY settingsChanged FINAL)
    Q_PROPERTY(bool sendsSystemProfile READ sendsSystemProfile WRITE setSendsSystemProfile NOTIFY
                   settingsChanged FINAL)
    Q_PROPERTY(QDateTime lastUpdateCheckDate READ lastUpdateCheckDate NOTIFY settingsChanged FINAL)

public:
    /// A feed, or an error. Called once, on the main thread.
    using CompletionHandler = std::function<void(const TXUpdateFeedPtr &feed, const TXError &error)>;
    /// (version, version) -> -1, 0 or 1. Called on any thread.
    using VersionComparator = std::function<int(const QString &, const QString &)>;

    /// Created on first use, on any thread, after the application object.
    static TXUpdater *sharedUpdater();

    /// True from the start of a check until just before its result is reported, so that a check may be
    /// started from the handler. Thread: any.
    [[nodiscard]] bool isChecking() const;
    /// Sets the property. checkForUpdate() does this itself; call it only from a class that replaces the
    /// check. While the property is true, no check starts. Thread: any.
    void setChecking(bool checking);
    /// Not owned; null for none. It must exist until another delegate is set.
    [[nodiscard]] TXUpdaterDelegate *delegate() const;
    /// Null removes the delegate.
    void setDelegate(TXUpdaterDelegate *delegate);
    /// The URL of the feed; empty if none is set.
    [[nodiscard]] QUrl feedURL() const;
    /// Stores the URL in the settings. An empty URL removes the setting. The feed name from the Info.plist
    /// applies again.
    void setFeedURL(const QUrl &url);
    /// Stores the URL of another feed, for example one with preliminary versions. `feedName` is the name that
    /// the feed's signature must carry. An empty name means the one in the Info.plist.
    void setFeedURL(const QUrl &url, const QString &feedName);
    /// The name that the feed's signature must carry if the application has keys. It is the name that was set
    /// with the URL, otherwise TXUpdateFeedName from the Info.plist, otherwise "release". Empty if the keys
    /// are malformed.
    [[nodiscard]] QString feedName() const;
    /// Decides which version is newer; the two or-equal tests keep to the built-in comparison.
    [[nodiscard]] VersionComparator versionComparator() const;
    /// Null restores the built-in comparison.
    void setVersionComparator(const VersionComparator &comparator);
    /// Seconds between automatic checks; there are none unless it is positive.
    [[nodiscard]] double updateCheckInterval() const;
    /// Stored. The timer starts again with the new interval.
    void setUpdateCheckInterval(double seconds);
    /// Whether the timer runs.
    [[nodiscard]] bool automaticallyChecksForUpdates() const;
    /// Stored. Starts or stops the timer.
    void setAutomaticallyChecksForUpdates(bool automatically);
    /// Whether the standard controller downloads the best update without asking.
    [[nodiscard]] bool automaticallyDownloadsUpdates() const;
    /// Stored.
    void setAutomaticallyDownloadsUpdates(bool automatically);
    /// Whether a check carries the system profile once a week.
    [[nodiscard]] bool sendsSystemProfile() const;
    /// Stored; takes effect with the next check.
    void setSendsSystemProfile(bool sends);
    /// When a feed last arrived; invalid before the first.
    [[nodiscard]] QDateTime lastUpdateCheckDate() const;
    /// Always false in this version.
    [[nodiscard]] bool isUpdating() const;
    /// The folder for downloads and unpacked archives. This call does not create it.
    [[nodiscard]] QString updateCacheDirectoryFilePath() const;
    /// The installation's random identifier: 36 characters, made once and kept.
    [[nodiscard]] static QString anonymousUUID();

    /// Starts a check. If another check is running, this does nothing and the handler is never called. If
    /// `handler` is null, the delegate is notified instead. The handler of a check that was started is called
    /// exactly once, unless the application ends first. Thread: any.
    void checkForUpdate(const CompletionHandler &handler);
    /// Runs the automatic check of the timer: a check without a handler.
    void autocheckForUpdate();

    /// Offers to move the application into an Applications folder; see TXUpdateAppMover. Thread: main.
    static TXUpdateAppMover::Result moveToApplicationsFolderIfNecessary();

    /// -1 if `a` is older than `b`, 0 if equal, 1 if newer. Thread: any.
    [[nodiscard]] static int compareVersionToVersion(const QString &a, const QString &b);
    /// Whether `a` is newer than `b`; uses the version comparator. Thread: any.
    [[nodiscard]] static bool isVersionNewerThanVersion(const QString &a, const QString &b);
    /// Whether `a` is newer than or equal to `b`, by the built-in comparison. Thread: any.
    [[nodiscard]] static bool isVersionNewerOrEqualToVersion(const QString &a, const QString &b);
    /// Whether `a` is older than or equal to `b`, by the built-in comparison. Thread: any.
    [[nodiscard]] static bool isVersionOlderOrEqualToVersion(const QString &a, const QString &b);

    /// Whether the item's bounds hold and, for an update, its version is newer than `build`. Thread: any.
    [[nodiscard]] static bool isItemRelevantForAppBuild(const TXUpdateItem &item, const QString &build,
                                                        const QString &osVersion);
    /// The relevant updates, in their order. Thread: any.
    [[nodiscard]] static QList<TXUpdatePtr>
    relevantItemsForAppBuild(const QList<TXUpdatePtr> &items, const QString &build, const QString &osVersion);
    /// The relevant posts, in their order. Thread: any.
    [[nodiscard]] static QList<TXUpdatePostPtr> relevantItemsForAppBuild(const QList<TXUpdatePostPtr> &items,
                                                                         const QString &build,
                                                                         const QString &osVersion);
    /// Whether the user ignores this update; an ignore older than 30 days is removed.
    [[nodiscard]] static bool isUpdateIgnored(const TXUpdate &update);

Q_SIGNALS: // on the main thread
    /// isChecking() changed.
    void isCheckingChanged();
    /// One of the stored settings changed.
    void settingsChanged();
    /// A check has found an update that the user has not chosen to ignore: the recommended update of the
    /// feed's track "release". Emitted at most once for each check, after the handler or delegate is called
    /// and before checkFinished().
    void updateFound(const TXUpdatePtr &update);
    /// A check has failed with the error that its handler gets. Emitted at most once for each check, after
    /// the handler or delegate is called and before checkFinished().
    void failed(const TXError &error);
    /// A check has ended, whoever started it. This is the last signal of each check and is emitted once.
    /// `feed` is null if failed() was emitted. If it is not null and updateFound() was not emitted, there is
    /// no update for the user.
    void checkFinished(const TXUpdateFeedPtr &feed);

private:
    friend class TXStandardUpdateController;
    /// Hands the result of the running check to this handler as well; false when none runs. Thread: main.
    bool joinCheck(const CompletionHandler &handler);
    TXUpdater();
    ~TXUpdater() override;
    /// Emits a signal on the main thread: at once when called there.
    void announce(void (TXUpdater::*signal)());
    void scheduleCheckForUpdate();
    void unscheduleCheckForUpdate();
    /// Whether the host sends profiles and the last one went more than a week ago.
    [[nodiscard]] bool isProfileDue() const;
    void report(const CompletionHandler &handler, const TXUpdateFeedPtr &feed, const TXError &error,
                bool sentProfile);

    struct Private;
    const std::unique_ptr<Private> d;
};
