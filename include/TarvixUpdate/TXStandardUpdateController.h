// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdater.h>

#include <memory>

class QWidget;
class TXStandardUpdateController;

/// Bits of TXStandardUpdateController::status.
enum TXStandardUpdateControllerStatus : unsigned {
    TXStandardUpdateControllerStatusNone = 0,
    TXStandardUpdateControllerStatusCannotUpdateInPlace = 1,
    TXStandardUpdateControllerStatusChecking = 2,
};

/// What the host tells the standard controller and hears from it. All calls arrive on the main thread.
class TX_EXPORT TXStandardUpdateControllerDelegate {
public:
    virtual ~TXStandardUpdateControllerDelegate();
    /// The status or the best update may have changed: refresh what shows them.
    virtual void updateInterfaceForUpdateControllerStatus(TXStandardUpdateController *controller);
    /// The state against which posts are tested; absent: every post passes.
    virtual std::optional<TXUpdateCurrentConditions>
    currentConditionsForUpdating(TXStandardUpdateController *controller);
    /// A window to which alerts and the update panel are attached while it is visible; null for none.
    virtual QWidget *sheetParentWindowForUpdater(TXStandardUpdateController *controller);
    /// Whether feedParametersForUpdating is to be asked.
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
};

/// The ready-made user interface: checks once a day, offers updates, shows posts.
///
///     TXUpdater::sharedUpdater()->setFeedURL(QUrl(u"https://example.org/feed.json"_s));
///     TXStandardUpdateController updates;
///     updates.setup();
///     connect(checkAction, &QAction::triggered, &updates,
///             [&] { updates.checkForUpdateAndShowChecking(true, true); });
///
/// Thread: main. Ownership: the host's, for the life of the application. It becomes the shared updater's
/// delegate.
class TX_EXPORT TXStandardUpdateController final : public QObject, public TXUpdaterDelegate {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TXStandardUpdateController)
    Q_PROPERTY(unsigned status READ status WRITE setStatus NOTIFY interfaceChanged FINAL)
    Q_PROPERTY(bool hasPostsToShowAtQuit READ hasPostsToShowAtQuit NOTIFY interfaceChanged FINAL)
    Q_PROPERTY(bool hasPostsToShowPassively READ hasPostsToShowPassively NOTIFY interfaceChanged FINAL)
public:
    TXStandardUpdateController();
    ~TXStandardUpdateController() override;

    [[nodiscard]] unsigned status() const;
    /// Stores the value and tells nobody.
    void setStatus(unsigned status);
    /// Not owned; null for none.
    [[nodiscard]] TXStandardUpdateControllerDelegate *delegate() const;
    void setDelegate(TXStandardUpdateControllerDelegate *delegate);
    [[nodiscard]] TXUpdateFeedPtr feed() const;
    void setFeed(const TXUpdateFeedPtr &feed);
    [[nodiscard]] TXUpdatePtr bestUpdate() const;
    void setBestUpdate(const TXUpdatePtr &update);
    [[nodiscard]] TXUpdateTrackPtr track() const;
    void setTrack(const TXUpdateTrackPtr &track);

    /// Call once: checks every day from five seconds on, with a system profile once a week unless
    /// TXUpdater::setSendsSystemProfile(false) was called, in this run or an earlier one.
    void setup();
    [[nodiscard]] static QString applicationName();
    /// One check, quiet or with the checking panel; `showUpdate`: offer what was found. With the panel this
    /// returns when the panel is closed. While another check runs, whoever started it, the panel joins that
    /// one and shows its result; a quiet check does nothing then.
    void checkForUpdateAndShowChecking(bool showChecking, bool showUpdate);
    void checkingDidReceiveFeed(const TXUpdateFeedPtr &feed, bool showChecking, bool showUpdate);
    void checkingDidReceiveError(const TXError &error, bool showChecking);
    void showBestUpdateInPanel();
    /// True after telling the user that the application cannot be updated where it is.
    bool complainIfInReadOnlyVolume();
    void updateInterfaceForStatus();

    [[nodiscard]] bool hasPostsToShowPassively() const;
    [[nodiscard]] bool hasPostsToShowAtQuit() const;
    void preparePostsToShowAtQuit();
    /// For when the application is about to quit. False when there is nothing to show.
    bool showPostsAtQuit();
    bool showPostsPassively();
    bool displayPostsWithDisplayTime(TXUpdatePostDisplayTime time);
    [[nodiscard]] QList<TXUpdatePostPtr> postsWithDisplayTime(TXUpdatePostDisplayTime time) const;
    [[nodiscard]] QList<TXUpdatePostPtr>
    postsPassingCurrentConditions(const QList<TXUpdatePostPtr> &posts) const;

    QVariantMap feedParametersForUpdater(TXUpdater *updater) override;
    void updaterDidCheckForUpdate(TXUpdater *updater, const TXUpdateFeedPtr &feed,
                                  const TXError &error) override;
    void updaterShouldQuitToInstall(TXUpdater *updater, TXUpdate &update, const TXQuitReply &reply) override;

Q_SIGNALS:
    void interfaceChanged();

private:
    void checkDidEnd(const TXUpdateFeedPtr &feed, const TXError &error, bool showChecking, bool showUpdate);
    void downloadBestUpdate();
    [[nodiscard]] QWidget *visibleSheetParent();

    struct Private;
    const std::unique_ptr<Private> d;
};
