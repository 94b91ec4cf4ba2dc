// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdater.h>

#include <QObject>

#include <memory>

class QWidget;
class TXStandardUpdateController;

/// Registers the enumerators with Qt's meta-object system, so that logs and scripts can print their names.
/// The members are also visible in the global namespace.
inline namespace TXStandardUpdateControllerEnumerations {
Q_NAMESPACE_EXPORT(TX_EXPORT)

/// Bits of TXStandardUpdateController::status.
enum TXStandardUpdateControllerStatus : unsigned {
    TXStandardUpdateControllerStatusNone = 0,                ///< nothing of the following
    TXStandardUpdateControllerStatusCannotUpdateInPlace = 1, ///< the application is on a read-only volume
    TXStandardUpdateControllerStatusChecking = 2,            ///< a check runs
};
Q_ENUM_NS(TXStandardUpdateControllerStatus)

} // namespace TXStandardUpdateControllerEnumerations

/// The host's side of the standard controller: answers its questions and receives its notifications. Thread:
/// all calls arrive on the main thread. Ownership: the application owns its delegate.
class TX_EXPORT TXStandardUpdateControllerDelegate {
public:
    virtual ~TXStandardUpdateControllerDelegate();
    /// The status or the best update may have changed: refresh what shows them.
    virtual void updateInterfaceForUpdateControllerStatus(TXStandardUpdateController *controller);
    /// The state that a post's launch requirement is compared with. Absent: every post is shown.
    virtual std::optional<TXUpdateCurrentConditions>
    currentConditionsForUpdating(TXStandardUpdateController *controller);
    /// A window to which alerts and the update panel are attached while it is visible; null for none.
    virtual QWidget *sheetParentWindowForUpdater(TXStandardUpdateController *controller);
    /// Whether feedParametersForUpdating() is called.
    [[nodiscard]] virtual bool implementsFeedParametersForUpdater() const;
    /// Extra parameters for the feed request; an empty map adds none.
    virtual QVariantMap feedParametersForUpdating(TXStandardUpdateController *controller);
    /// The feed of a background check has been applied.
    virtual void updaterDidCheckForUpdates(TXStandardUpdateController *controller);
    /// An update is about to be installed, which ends the application. Answer through `reply`, in this call
    /// or later. When refused, the update panel stays and offers to install later. The default is
    /// reply.askApplication(), so that the application's windows can ask about unsaved work when they are
    /// closed.
    virtual void shouldQuitToInstall(TXStandardUpdateController *controller, TXUpdate &update,
                                     const TXQuitReply &reply);
    /// The command-line arguments with which the application is opened after an update; see
    /// TXUpdaterDelegate::relaunchArgumentsForUpdater() for when it is asked and for the limits.
    virtual QStringList relaunchArgumentsForUpdating(TXStandardUpdateController *controller);
    /// The folder in which the application is opened then; see
    /// TXUpdaterDelegate::relaunchDirectoryForUpdater().
    virtual QString relaunchDirectoryForUpdating(TXStandardUpdateController *controller);
};

/// The ready-made user interface: checks once a day, offers updates, shows posts.
///
///     TXUpdater::sharedUpdater()->setFeedURL(QUrl(u"https://example.org/feed.json"_s));
///     TXStandardUpdateController updates;
///     updates.setup();
///     connect(checkAction, &QAction::triggered, &updates,
///             [&] { updates.checkForUpdateAndShowChecking(true, true); });
///
/// Thread: main. Ownership: the parent owns the controller; without a parent, the application owns it and
/// must keep it until it ends. The controller becomes the shared updater's delegate.
class TX_EXPORT TXStandardUpdateController final : public QObject, public TXUpdaterDelegate {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TXStandardUpdateController)
    Q_PROPERTY(unsigned status READ status WRITE setStatus NOTIFY interfaceChanged FINAL)
    Q_PROPERTY(bool hasPostsToShowAtQuit READ hasPostsToShowAtQuit NOTIFY interfaceChanged FINAL)
    Q_PROPERTY(bool hasPostsToShowPassively READ hasPostsToShowPassively NOTIFY interfaceChanged FINAL)
public:
    /// The constructor checks whether the application can be updated at its current path. setup() does
    /// everything else.
    TXStandardUpdateController();
    /// Creates a controller that `parent` owns.
    explicit TXStandardUpdateController(QObject *parent);
    ~TXStandardUpdateController() override;

    /// A combination of TXStandardUpdateControllerStatus bits.
    [[nodiscard]] unsigned status() const;
    /// Stores the value; call updateInterfaceForStatus() to report it.
    void setStatus(unsigned status);
    /// Not owned; null for none.
    [[nodiscard]] TXStandardUpdateControllerDelegate *delegate() const;
    /// The delegate must exist until another one is set or the controller is destroyed.
    void setDelegate(TXStandardUpdateControllerDelegate *delegate);
    /// The last feed that arrived; null before the first.
    [[nodiscard]] TXUpdateFeedPtr feed() const;
    /// Applies a feed: chooses track and best update from it, shows its default posts and prepares those for
    /// quitting. Null forgets the feed.
    void setFeed(const TXUpdateFeedPtr &feed);
    /// The update that is offered; null if there is none.
    [[nodiscard]] TXUpdatePtr bestUpdate() const;
    /// Offers another update, and starts its download if updates are downloaded automatically.
    void setBestUpdate(const TXUpdatePtr &update);
    /// The track "release" of the feed, whose posts are shown; null without one.
    [[nodiscard]] TXUpdateTrackPtr track() const;
    /// Shows the posts of another track. The best update stays.
    void setTrack(const TXUpdateTrackPtr &track);

    /// Call once: checks every day from five seconds on, with a system profile once a week unless
    /// TXUpdater::setSendsSystemProfile(false) was called, in this run or an earlier one.
    void setup();
    /// The name of the application in alerts: QCoreApplication::applicationName().
    [[nodiscard]] static QString applicationName();
    /// Runs one check, either quietly or with the checking panel. If `showUpdate` is true, a found update is
    /// offered to the user. With the panel, the call returns when the panel is closed. If another check is
    /// already running, the panel shows that check's result, and a quiet check does nothing.
    void checkForUpdateAndShowChecking(bool showChecking, bool showUpdate);
    /// What a check does with a feed: see setFeed(). Then it shows the update panel (`showUpdate`), or the
    /// message that there is nothing newer (`showChecking`).
    void checkingDidReceiveFeed(const TXUpdateFeedPtr &feed, bool showChecking, bool showUpdate);
    /// Shows why a check failed; does nothing unless `showChecking`.
    void checkingDidReceiveError(const TXError &error, bool showChecking);
    /// Shows the update panel, or raises it if it is open. Does nothing without a best update.
    void showBestUpdateInPanel();
    /// If the application cannot be updated at its current path, tells the user so and returns true.
    bool complainIfInReadOnlyVolume();
    /// Tells the delegate and emits interfaceChanged().
    void updateInterfaceForStatus();

    /// Whether showPostsPassively() would show anything.
    [[nodiscard]] bool hasPostsToShowPassively() const;
    /// Whether showPostsAtQuit() would show anything.
    [[nodiscard]] bool hasPostsToShowAtQuit() const;
    /// Creates the window of showPostsAtQuit() in advance. Does nothing without posts.
    void preparePostsToShowAtQuit();
    /// Shows the posts with the display time "atQuit", modally, with a Quit button. Call it before the
    /// application quits. False if there are none. The posts count as handled unless a page asks to be shown
    /// again.
    bool showPostsAtQuit();
    /// Shows the posts with the display time "passive", modally. False if there are none. The posts count as
    /// handled unless a page asks to be shown again.
    bool showPostsPassively();
    /// Shows the posts with that display time, modally, and records them as handled. False if there are none.
    bool displayPostsWithDisplayTime(TXUpdatePostDisplayTime time);
    /// The posts of the track with that display time that are neither handled nor excluded by the delegate's
    /// conditions.
    [[nodiscard]] QList<TXUpdatePostPtr> postsWithDisplayTime(TXUpdatePostDisplayTime time) const;
    /// The posts whose launch requirement the delegate's conditions meet; all of them without conditions.
    [[nodiscard]] QList<TXUpdatePostPtr>
    postsPassingCurrentConditions(const QList<TXUpdatePostPtr> &posts) const;

    QVariantMap feedParametersForUpdater(TXUpdater *updater) override;
    void updaterDidCheckForUpdate(TXUpdater *updater, const TXUpdateFeedPtr &feed,
                                  const TXError &error) override;
    void updaterShouldQuitToInstall(TXUpdater *updater, TXUpdate &update, const TXQuitReply &reply) override;
    QStringList relaunchArgumentsForUpdater(TXUpdater *updater) override;
    QString relaunchDirectoryForUpdater(TXUpdater *updater) override;

Q_SIGNALS:
    /// The status, the best update or the posts may have changed.
    void interfaceChanged();

private:
    void checkDidEnd(const TXUpdateFeedPtr &feed, const TXError &error, bool showChecking, bool showUpdate);
    void downloadBestUpdate();
    [[nodiscard]] QWidget *visibleSheetParent();

    struct Private;
    const std::unique_ptr<Private> d;
};
