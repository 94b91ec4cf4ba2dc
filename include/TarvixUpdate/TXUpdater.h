// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXQuitReply.h>
#include <TarvixUpdate/TXUpdateAppMover.h>
#include <TarvixUpdate/TXUpdateFeed.h>
#include <TarvixUpdate/TXUpdateSettings.h>
#include <TarvixUpdate/TXVersionComparison.h>

#include <QObject>

class TXStandardUpdateController;
class TXUpdater;

/// What a host may tell the updater and hear from it. All calls arrive on the main thread.
class TX_EXPORT TXUpdaterDelegate {
public:
    virtual ~TXUpdaterDelegate();
    /// Extra parameters for the feed request, asked once a check. An empty map adds none.
    virtual QVariantMap feedParametersForUpdater(TXUpdater *updater);
    /// The end of a check that was started without a handler: a feed, or an error.
    virtual void updaterDidCheckForUpdate(TXUpdater *updater, const TXUpdateFeedPtr &feed,
                                          const TXError &error);
    /// An update is unpacked and about to be installed, which ends the application. Answer through `reply`,
    /// in this call or later: until then the installation waits, and the installer tool is not started. The
    /// default is reply.askApplication().
    virtual void updaterShouldQuitToInstall(TXUpdater *updater, TXUpdate &update, const TXQuitReply &reply);
};

/// The one updater of this application: its settings, the timer of automatic checks, and the check.
///
///     TXUpdater *updater = TXUpdater::sharedUpdater();
///     updater->setFeedURL(QUrl(u"https://example.org/feed.json"_s));
///     updater->checkForUpdate([](const TXUpdateFeedPtr &feed, const TXError &error) { ... });
///
/// Settings live in the application's user defaults under the TXUpdatePref keys.
/// Thread: properties and signals on the main thread, checkForUpdate on any. Ownership: lives as long as the
/// process. Errors: those of TXUpdateFeed, passed on unchanged.
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
    void setChecking(bool checking);
    /// Not owned; null for none. It must outlive its time as the delegate.
    [[nodiscard]] TXUpdaterDelegate *delegate() const;
    void setDelegate(TXUpdaterDelegate *delegate);
    [[nodiscard]] QUrl feedURL() const;
    /// An empty URL removes the setting.
    void setFeedURL(const QUrl &url);
    /// Decides which version is newer; the two or-equal tests keep to the built-in comparison.
    [[nodiscard]] VersionComparator versionComparator() const;
    void setVersionComparator(const VersionComparator &comparator);
    /// Seconds between automatic checks; none are made unless it is positive.
    [[nodiscard]] double updateCheckInterval() const;
    void setUpdateCheckInterval(double seconds);
    [[nodiscard]] bool automaticallyChecksForUpdates() const;
    void setAutomaticallyChecksForUpdates(bool automatically);
    [[nodiscard]] bool automaticallyDownloadsUpdates() const;
    void setAutomaticallyDownloadsUpdates(bool automatically);
    [[nodiscard]] bool sendsSystemProfile() const;
    void setSendsSystemProfile(bool sends);
    /// When a feed last arrived; invalid before the first.
    [[nodiscard]] QDateTime lastUpdateCheckDate() const;
    /// Always false in this version.
    [[nodiscard]] bool isUpdating() const;
    /// Where downloads and unpacked archives stand. Not made here.
    [[nodiscard]] QString updateCacheDirectoryFilePath() const;
    /// The installation's random identifier: 36 characters, made once and kept.
    [[nodiscard]] static QString anonymousUUID();

    /// Starts one check. While another runs this does nothing, and the handler is never called. With a null
    /// handler the delegate is told. The handler of a check that was started is called exactly once, unless
    /// the application ends first. Thread: any.
    void checkForUpdate(const CompletionHandler &handler);
    /// What the timer does: a check without a handler.
    void autocheckForUpdate();

    /// Offers to move the application into an Applications folder; see TXUpdateAppMover. Thread: main.
    static TXUpdateAppMover::Result moveToApplicationsFolderIfNecessary();

    /// -1 when `a` is older than `b`, 0, or 1. Thread: any.
    [[nodiscard]] static int compareVersionToVersion(const QString &a, const QString &b);
    [[nodiscard]] static bool isVersionNewerThanVersion(const QString &a, const QString &b);
    [[nodiscard]] static bool isVersionNewerOrEqualToVersion(const QString &a, const QString &b);
    [[nodiscard]] static bool isVersionOlderOrEqualToVersion(const QString &a, const QString &b);

    /// Whether the item's bounds hold and, for an update, its version is newer than `build`. Thread: any.
    [[nodiscard]] static bool isItemRelevantForAppBuild(const TXUpdateItem &item, const QString &build,
                                                        const QString &osVersion);
    [[nodiscard]] static QList<TXUpdatePtr>
    relevantItemsForAppBuild(const QList<TXUpdatePtr> &items, const QString &build, const QString &osVersion);
    [[nodiscard]] static QList<TXUpdatePostPtr> relevantItemsForAppBuild(const QList<TXUpdatePostPtr> &items,
                                                                         const QString &build,
                                                                         const QString &osVersion);
    /// Whether the user ignores this update; an ignore older than 30 days is removed.
    [[nodiscard]] static bool isUpdateIgnored(const TXUpdate &update);

Q_SIGNALS: // on the main thread
    void isCheckingChanged();
    void settingsChanged();

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
    void performCheck(const CompletionHandler &handler);
    /// A new profile when the host sends profiles and the last one went more than a week ago; else null.
    [[nodiscard]] TXUpdateSystemProfilePtr profileIfDue() const;
    void report(const CompletionHandler &handler, const TXUpdateFeedPtr &feed, const TXError &error,
                bool sentProfile);

    struct Private;
    const std::unique_ptr<Private> d;
};
