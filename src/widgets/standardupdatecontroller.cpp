// SPDX-License-Identifier: MIT
#include "base/format.h"
#include "base/queues.h"
#include "install/updatedownload.h"
#include "model/feedmemory.h"
#include "model/host_p.h"
#include "net/urlloading.h"
#include "os/localization.h"
#include "os/services.h"
#include "os/userdefaults.h"
#include "widgets/alert.h"
#include "widgets/lifetime.h"
#include "widgets/updatestate.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXStandardUpdateController.h>
#include <TarvixUpdate/TXUpdateCheckingPanel.h>
#include <TarvixUpdate/TXUpdateHost.h>
#include <TarvixUpdate/TXUpdatePanel.h>
#include <TarvixUpdate/TXUpdatePostWindowController.h>
#include <TarvixUpdate/TXUpdateSettings.h>

#include <QCoreApplication>
#include <QPointer>
#include <QTimer>

using namespace Qt::StringLiterals;

TXStandardUpdateControllerDelegate::~TXStandardUpdateControllerDelegate() = default;
void TXStandardUpdateControllerDelegate::updateInterfaceForUpdateControllerStatus(
    TXStandardUpdateController *) {}
std::optional<TXUpdateCurrentConditions>
TXStandardUpdateControllerDelegate::currentConditionsForUpdating(TXStandardUpdateController *) {
    return std::nullopt;
}
QWidget *TXStandardUpdateControllerDelegate::sheetParentWindowForUpdater(TXStandardUpdateController *) {
    return nullptr;
}
bool TXStandardUpdateControllerDelegate::implementsFeedParametersForUpdater() const { return false; }
QVariantMap TXStandardUpdateControllerDelegate::feedParametersForUpdating(TXStandardUpdateController *) {
    return {};
}
QStringList TXStandardUpdateControllerDelegate::relaunchArgumentsForUpdating(TXStandardUpdateController *) {
    return {};
}
QString TXStandardUpdateControllerDelegate::relaunchDirectoryForUpdating(TXStandardUpdateController *) {
    return {};
}
void TXStandardUpdateControllerDelegate::updaterDidCheckForUpdates(TXStandardUpdateController *) {}
void TXStandardUpdateControllerDelegate::shouldQuitToInstall(TXStandardUpdateController *, TXUpdate &,
                                                             const TXQuitReply &reply) {
    reply.askApplication();
}

struct TXStandardUpdateController::Private {
    std::shared_ptr<TXUpdatePanel> updatePanel;
    std::unique_ptr<TXUpdateCheckingPanel> updateCheckingPanel;
    std::shared_ptr<TXUpdatePostWindowController> onQuitPostsWindowController;
    bool visibleCheckRuns = false;      ///< its result has not been handled yet
    bool quietCheckShowsUpdate = false; ///< of a quiet check that a visible check has joined
    unsigned status = TXStandardUpdateControllerStatusNone;
    TXStandardUpdateControllerDelegate *delegate = nullptr;
    TXUpdateFeedPtr feed;
    TXUpdatePtr bestUpdate;
    TXUpdateTrackPtr track;
    QList<TXUpdatePtr> offered; ///< what the panel offered last: some of it may have been downloaded

    [[nodiscard]] bool checkingPanelIsVisible() const {
        return updateCheckingPanel && updateCheckingPanel->isVisible();
    }
    /// Every check creates new update objects; the state of an equal update is kept.
    [[nodiscard]] TXUpdatePtr known(const TXUpdatePtr &update) const {
        for (const TXUpdatePtr &before : offered) {
            if (update && before->isEqual(*update))
                return before;
        }
        return update;
    }
    void closeCheckingPanel() const {
        if (checkingPanelIsVisible())
            updateCheckingPanel->close();
    }
};

TXStandardUpdateController::TXStandardUpdateController()
    : TXStandardUpdateController(nullptr) {}

TXStandardUpdateController::TXStandardUpdateController(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Private>()) {
    const TXUpdateHost *host = TXUpdateHost::host();
    if (host->isRunningTranslocated() || host->isRunningOnReadOnlyVolume())
        d->status |= TXStandardUpdateControllerStatusCannotUpdateInPlace;
    // A host may keep this controller longer than its application object, which windows must not outlive.
    tx::whenApplicationQuits(this, [this] {
        d->updatePanel.reset();
        d->updateCheckingPanel.reset();
        d->onQuitPostsWindowController.reset();
    });
}

TXStandardUpdateController::~TXStandardUpdateController() {
    TXUpdater *updater = TXUpdater::sharedUpdater();
    if (updater->delegate() == this)
        updater->setDelegate(nullptr);
}

void TXStandardUpdateController::setup() {
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setDelegate(this);
    updater->setAutomaticallyChecksForUpdates(true);
    updater->setUpdateCheckInterval(86400);
    // A user who has switched the profile off need not do so after each start.
    if (!tx::UserDefaults::standard().value(TXUpdatePrefSendsSystemProfileKey).isValid())
        updater->setSendsSystemProfile(true);
    d->updateCheckingPanel = TXUpdateCheckingPanel::updateCheckingPanel();
    if ((d->status & TXStandardUpdateControllerStatusCannotUpdateInPlace) == 0 &&
        updater->automaticallyChecksForUpdates())
        QTimer::singleShot(tx::services().firstCheckDelay, this,
                           [this] { checkForUpdateAndShowChecking(false, true); });
}

QString TXStandardUpdateController::applicationName() { return QCoreApplication::applicationName(); }

unsigned TXStandardUpdateController::status() const { return d->status; }
void TXStandardUpdateController::setStatus(unsigned status) { d->status = status; }
TXStandardUpdateControllerDelegate *TXStandardUpdateController::delegate() const { return d->delegate; }
void TXStandardUpdateController::setDelegate(TXStandardUpdateControllerDelegate *delegate) {
    d->delegate = delegate;
}
TXUpdateFeedPtr TXStandardUpdateController::feed() const { return d->feed; }
TXUpdatePtr TXStandardUpdateController::bestUpdate() const { return d->bestUpdate; }
TXUpdateTrackPtr TXStandardUpdateController::track() const { return d->track; }
void TXStandardUpdateController::setTrack(const TXUpdateTrackPtr &track) { d->track = track; }

void TXStandardUpdateController::updateInterfaceForStatus() {
    if (d->delegate)
        d->delegate->updateInterfaceForUpdateControllerStatus(this);
    Q_EMIT interfaceChanged();
}

void TXStandardUpdateController::checkForUpdateAndShowChecking(bool showChecking, bool showUpdate) {
    if (complainIfInReadOnlyVolume())
        return;
    TXUpdater *updater = TXUpdater::sharedUpdater();
    const bool wasChecking = updater->isChecking();
    if (wasChecking && !showChecking)
        return; // the updater drops it and would never report a result
    d->status |= TXStandardUpdateControllerStatusChecking;
    updateInterfaceForStatus();
    const QPointer<TXStandardUpdateController> alive(this);
    const auto ended = [alive, showChecking, showUpdate](const TXUpdateFeedPtr &feed, const TXError &error) {
        const auto finish = [alive, feed, error, showChecking, showUpdate] {
            if (alive)
                alive->checkDidEnd(feed, error, showChecking, showUpdate);
        };
        if (showChecking && alive)
            QTimer::singleShot(tx::services().checkingPause, alive, finish);
        else
            tx::postToMain(finish);
    };
    // The panel shows the result of a check that is already running, whoever started it. One panel waits for
    // one result.
    const bool waits = showChecking && std::exchange(d->visibleCheckRuns, true);
    if (!wasChecking)
        updater->checkForUpdate(ended);
    else if (!waits)
        (void)updater->joinCheck(ended);
    if (!showChecking || (wasChecking && d->checkingPanelIsVisible()) || !d->updateCheckingPanel)
        return;
    if (!d->checkingPanelIsVisible())
        (void)d->updateCheckingPanel->runModal();
}

void TXStandardUpdateController::checkDidEnd(const TXUpdateFeedPtr &feed, const TXError &error,
                                             bool showChecking, bool showUpdate) {
    if (showChecking) {
        d->visibleCheckRuns = false;
        showUpdate = showUpdate || std::exchange(d->quietCheckShowsUpdate, false);
    } else if (d->visibleCheckRuns) {
        d->quietCheckShowsUpdate = showUpdate; // the panel has joined this check and shows its result
        return;
    }
    const bool panelIsVisible = d->checkingPanelIsVisible();
    d->status &= ~unsigned(TXStandardUpdateControllerStatusChecking);
    updateInterfaceForStatus();
    if (feed) {
        checkingDidReceiveFeed(feed, showChecking, showUpdate);
    } else if (error) {
        if (panelIsVisible)
            d->updateCheckingPanel->close();
        checkingDidReceiveError(error, showChecking);
    }
}

void TXStandardUpdateController::checkingDidReceiveFeed(const TXUpdateFeedPtr &feed, bool showChecking,
                                                        bool showUpdate) {
    setFeed(feed);
    if (d->bestUpdate) {
        d->closeCheckingPanel();
        if (showUpdate)
            showBestUpdateInPanel();
        return;
    }
    updateInterfaceForStatus();
    if (const TXError error = tx::checkHostIdentity()) {
        d->closeCheckingPanel();
        checkingDidReceiveError(error, showChecking);
        return;
    }
    if (!showUpdate) {
        d->closeCheckingPanel();
    } else if (d->checkingPanelIsVisible()) {
        d->updateCheckingPanel->showUpToDate();
    } else if (showChecking) {
        const tx::Alert alert{.message = tx::localizedFormat(u"%@ is up to date!"_s, {applicationName()}),
                              .informative = tx::localizedFormat(
                                  u"You are running the latest version of %@."_s, {applicationName()})};
        if (QWidget *parent = visibleSheetParent())
            tx::services().presentSheet(alert, parent, [](int) {});
        else
            (void)tx::services().presentAlert(alert);
    }
}

void TXStandardUpdateController::checkingDidReceiveError(const TXError &error, bool showChecking) {
    // An automatic check shows errors only if feeds have been refused for a long time.
    if (!showChecking && !tx::tellsOfFeedTrouble(error))
        return;
    TXError shown = error;
    if (error.domain() == TXURLErrorDomain &&
        (error.code() == tx::UrlErrorTimedOut || error.code() == tx::UrlErrorNotConnectedToInternet))
        shown =
            TXError(TXUpdateErrorDomain, error.code(),
                    tx::localizedFormat(
                        u"%@ cannot check for updates because you are not connected to the internet."_s,
                        {applicationName()}),
                    {},
                    tx::localizedString(u"Check your connection and try again.\n\nYou can also download the "
                                        "latest version on the website."_s))
                .withUserInfo(error.userInfo())
                .withUnderlyingError(error);
    tx::presentError(shown);
}

void TXStandardUpdateController::setFeed(const TXUpdateFeedPtr &feed) {
    d->feed = feed;
    d->track = feed ? feed->releaseTracks().value(u"release"_s) : nullptr;
    // Keep only updates with a state; the others are in the new feed anyway.
    d->offered.removeIf([](const TXUpdatePtr &update) { return !tx::hasState(*update); });
    TXUpdatePtr recommended = d->known(d->track ? d->track->recommendedUpdate() : nullptr);
    if (recommended && tx::checkHostIdentity())
        recommended.reset(); // it could not be installed
    TXLog(TXLogLevelDetail, u"Recommended update is: %@"_s,
          {recommended ? recommended->version() : QString()});
    const bool same = d->bestUpdate == recommended ||
                      (d->bestUpdate && recommended && d->bestUpdate->isEqual(*recommended));
    if (!same)
        setBestUpdate(recommended);
    TXLog(TXLogLevelDetail, u"bestUpdate is %@ (%@)"_s,
          {d->bestUpdate ? d->bestUpdate->version() : QString(),
           d->bestUpdate ? d->bestUpdate->date().toString(Qt::ISODate) : QString()});
    QTimer::singleShot(0, this, [this] {
        (void)displayPostsWithDisplayTime(TXUpdatePostDisplayTimeDefault);
        if (hasPostsToShowAtQuit())
            preparePostsToShowAtQuit();
    });
    updateInterfaceForStatus();
}

void TXStandardUpdateController::setBestUpdate(const TXUpdatePtr &update) {
    d->bestUpdate = update;
    updateInterfaceForStatus();
    if (const TXError refusal = update ? update->downloadRefusal() : TXError())
        TXLog(TXLogLevelFailure, u"TXUpdate: Build %@ cannot be downloaded: %@"_s,
              {update->version(), refusal.toString()});
    if (!update || !TXUpdater::sharedUpdater()->automaticallyDownloadsUpdates() || update->isDownloaded() ||
        update->isDownloading() || !update->canBeDownloaded() || update->excludeFromAutoDownloading())
        return;
    QMetaObject::invokeMethod(this, &TXStandardUpdateController::downloadBestUpdate, Qt::QueuedConnection);
}

void TXStandardUpdateController::downloadBestUpdate() {
    if (!d->bestUpdate)
        return;
    tx::UpdateDownload::begin(
        *d->bestUpdate, tx::UpdateDownload::Choice::Automatic, nullptr, [](const TXError &error) {
            // The download was cancelled because a newer update replaced it.
            if (!error || (error.domain() == TXCocoaErrorDomain && error.code() == TXErrorCancelled))
                return;
            QVariantMap userInfo = error.userInfo();
            userInfo.insert(u"email"_s, true);
            tx::presentError(error.withUserInfo(userInfo));
        });
}

void TXStandardUpdateController::showBestUpdateInPanel() {
    if (!d->bestUpdate)
        return;
    if (d->updatePanel) {
        d->updatePanel->raise();
        d->updatePanel->activateWindow();
        return;
    }
    d->updatePanel = TXUpdatePanel::panel();
    if (!d->updatePanel)
        return;
    QList<TXUpdatePtr> updates =
        d->feed && d->feed->updates() ? *d->feed->updates() : QList<TXUpdatePtr>{d->bestUpdate};
    for (TXUpdatePtr &update : updates)
        update = d->known(update);
    d->updatePanel->setAllowsDownloadingInBackground(true);
    d->updatePanel->setUpdatesAndDesignatedUpdate(updates, d->bestUpdate);
    d->offered = d->updatePanel->updates();
    const QPointer<TXStandardUpdateController> alive(this);
    const auto release = [alive](int) {
        if (alive)
            alive->d->updatePanel.reset();
    };
    if (QWidget *parent = visibleSheetParent())
        d->updatePanel->beginSheetModalForWindow(parent, release);
    else
        d->updatePanel->showWindow(release);
}

QVariantMap TXStandardUpdateController::feedParametersForUpdater(TXUpdater *) {
    QVariantMap parameters;
    if (d->delegate && d->delegate->implementsFeedParametersForUpdater())
        parameters.insert(d->delegate->feedParametersForUpdating(this));
    return parameters;
}

void TXStandardUpdateController::updaterDidCheckForUpdate(TXUpdater *, const TXUpdateFeedPtr &feed,
                                                          const TXError &error) {
    QMetaObject::invokeMethod(
        this,
        [this, feed, error] {
            setFeed(feed);
            if (error)
                checkingDidReceiveError(error, false);
            if (d->delegate)
                d->delegate->updaterDidCheckForUpdates(this);
        },
        Qt::QueuedConnection);
}

void TXStandardUpdateController::updaterShouldQuitToInstall(TXUpdater *, TXUpdate &update,
                                                            const TXQuitReply &reply) {
    if (d->delegate)
        d->delegate->shouldQuitToInstall(this, update, reply);
    else
        reply.askApplication();
}

QStringList TXStandardUpdateController::relaunchArgumentsForUpdater(TXUpdater *) {
    return d->delegate ? d->delegate->relaunchArgumentsForUpdating(this) : QStringList();
}

QString TXStandardUpdateController::relaunchDirectoryForUpdater(TXUpdater *) {
    return d->delegate ? d->delegate->relaunchDirectoryForUpdating(this) : QString();
}

QList<TXUpdatePostPtr> TXStandardUpdateController::postsWithDisplayTime(TXUpdatePostDisplayTime time) const {
    return d->track ? postsPassingCurrentConditions(d->track->unhandledPostsWithDisplayTime(time))
                    : QList<TXUpdatePostPtr>();
}

QList<TXUpdatePostPtr>
TXStandardUpdateController::postsPassingCurrentConditions(const QList<TXUpdatePostPtr> &posts) const {
    const auto current =
        d->delegate
            ? d->delegate->currentConditionsForUpdating(const_cast<TXStandardUpdateController *>(this))
            : std::nullopt;
    if (!current)
        return posts;
    QList<TXUpdatePostPtr> passing;
    for (const TXUpdatePostPtr &post : posts) {
        const auto conditions = post->conditions();
        const auto required = conditions ? conditions->launch : TXUpdateConditionLaunchAny;
        if (TXUpdateConditionLaunchSatisfied(required, current->launch))
            passing.append(post);
    }
    return passing;
}

bool TXStandardUpdateController::hasPostsToShowPassively() const {
    return !postsWithDisplayTime(TXUpdatePostDisplayTimePassive).isEmpty();
}

bool TXStandardUpdateController::hasPostsToShowAtQuit() const {
    return !postsWithDisplayTime(TXUpdatePostDisplayTimeAtQuit).isEmpty();
}

bool TXStandardUpdateController::displayPostsWithDisplayTime(TXUpdatePostDisplayTime time) {
    const QList<TXUpdatePostPtr> posts = postsWithDisplayTime(time);
    if (posts.isEmpty())
        return false;
    const auto window = TXUpdatePostWindowController::sharedInstance();
    const TXUpdateTrackPtr track = d->track;
    window->setPosts(posts);
    (void)window->showWindowModally(time == TXUpdatePostDisplayTimeAtQuit);
    track->updatePostsCheckInfoToHandlePosts(posts);
    return true;
}

bool TXStandardUpdateController::showPostsPassively() {
    const QList<TXUpdatePostPtr> posts = postsWithDisplayTime(TXUpdatePostDisplayTimePassive);
    if (posts.isEmpty())
        return false;
    const auto window = TXUpdatePostWindowController::sharedInstance();
    const TXUpdateTrackPtr track = d->track;
    window->setPosts(posts);
    if (window->showWindowModally(false) != TXUpdatePostWindowAskLater)
        track->updatePostsCheckInfoToHandlePosts(window->posts());
    return true;
}

void TXStandardUpdateController::preparePostsToShowAtQuit() {
    const QList<TXUpdatePostPtr> posts = postsWithDisplayTime(TXUpdatePostDisplayTimeAtQuit);
    if (posts.isEmpty())
        return;
    if (!d->onQuitPostsWindowController) {
        d->onQuitPostsWindowController = TXUpdatePostWindowController::controller();
        d->onQuitPostsWindowController->setOnCloseHandler([] {});
    }
    d->onQuitPostsWindowController->setPosts(posts);
}

bool TXStandardUpdateController::showPostsAtQuit() {
    if (!hasPostsToShowAtQuit())
        return false;
    if (!d->onQuitPostsWindowController)
        preparePostsToShowAtQuit();
    const auto window = d->onQuitPostsWindowController;
    if (!window)
        return false;
    const TXUpdateTrackPtr track = d->track;
    if (window->showWindowModally(true) != TXUpdatePostWindowAskLater)
        track->updatePostsCheckInfoToHandlePosts(window->posts());
    return true;
}
