// SPDX-License-Identifier: MIT
#include "updater/updater_p.h"

#include "base/queues.h"
#include "install/handoverquestion.h"
#include "install/quitreply.h"
#include "model/host_p.h"
#include "model/hosttrust.h"
#include "model/relevance.h"
#include "model/settings.h"
#include "model/updatefolder.h"
#include "model/versioncomparison.h"
#include "mover/menuentry.h"
#include "net/networkthread.h"
#include "os/services.h"
#include "os/userdefaults.h"

#include <QCoreApplication>
#include <QMetaMethod>
#include <QMutex>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {

QMutex sharedMutex;
std::atomic<TXUpdater *> sharedInstance{nullptr};

tx::UserDefaults &defaults() { return tx::UserDefaults::standard(); }

} // namespace

TXUpdaterDelegate::~TXUpdaterDelegate() = default;
QVariantMap TXUpdaterDelegate::feedParametersForUpdater(TXUpdater *) { return {}; }
void TXUpdaterDelegate::updaterDidCheckForUpdate(TXUpdater *, const TXUpdateFeedPtr &, const TXError &) {}

void TXUpdaterDelegate::updaterShouldQuitToInstall(TXUpdater *, TXUpdate &, const TXQuitReply &reply) {
    reply.askApplication();
}

QStringList TXUpdaterDelegate::relaunchArgumentsForUpdater(TXUpdater *) { return {}; }
QString TXUpdaterDelegate::relaunchDirectoryForUpdater(TXUpdater *) { return {}; }

TXUpdater *TXUpdater::sharedUpdater() {
    if (TXUpdater *updater = sharedInstance.load(std::memory_order_acquire))
        return updater;
    const QMutexLocker locker(&sharedMutex);
    if (!sharedInstance.load(std::memory_order_relaxed)) {
        auto *updater = new TXUpdater;
        sharedInstance.store(updater, std::memory_order_release);
        updater->scheduleCheckForUpdate();
    }
    return sharedInstance.load(std::memory_order_relaxed);
}

TXUpdater::TXUpdater()
    : d(std::make_unique<Private>()) {
    if (const QCoreApplication *application = QCoreApplication::instance()) {
        moveToThread(application->thread());
        d->timer.moveToThread(application->thread());
    }
    tx::setVersionComparator(nullptr);
    tx::quitQuestion() = [](TXUpdate &update, const TXQuitReply &reply) {
        TXUpdater *updater = sharedUpdater();
        if (TXUpdaterDelegate *delegate = updater->delegate())
            delegate->updaterShouldQuitToInstall(updater, update, reply);
        else
            reply.askApplication();
    };
    tx::handoverQuestion() = [] {
        TXUpdater *updater = sharedUpdater();
        TXUpdaterDelegate *delegate = updater->delegate();
        return delegate ? tx::HandoverAnswer{delegate->relaunchArgumentsForUpdater(updater),
                                             delegate->relaunchDirectoryForUpdater(updater)}
                        : tx::HandoverAnswer();
    };
    tx::postToMain(tx::refreshMenuEntry);
}

TXUpdater::~TXUpdater() = default;

bool TXUpdater::isChecking() const { return d->isChecking; }

void TXUpdater::setChecking(bool checking) {
    if (d->isChecking.exchange(checking) != checking)
        announce(&TXUpdater::isCheckingChanged);
}

void TXUpdater::announce(void (TXUpdater::*signal)()) {
    if (QThread::currentThread() == thread())
        Q_EMIT(this->*signal)();
    else
        tx::postToMain([this, signal] { Q_EMIT(this->*signal)(); });
}

TXUpdaterDelegate *TXUpdater::delegate() const { return d->delegate; }
void TXUpdater::setDelegate(TXUpdaterDelegate *delegate) { d->delegate = delegate; }

QUrl TXUpdater::feedURL() const {
    const QString text = defaults().stringValue(TXUpdatePrefFeedURLKey);
    return text.isNull() ? QUrl() : QUrl(text);
}

void TXUpdater::setFeedURL(const QUrl &url) { setFeedURL(url, {}); }

void TXUpdater::setFeedURL(const QUrl &url, const QString &feedName) {
    (void)defaults().setValue(TXUpdatePrefFeedNameKey, feedName.isEmpty() ? QVariant() : QVariant(feedName));
    (void)defaults().setValue(TXUpdatePrefFeedURLKey,
                              url.isEmpty() ? QVariant() : QVariant(url.toString(QUrl::FullyEncoded)));
    announce(&TXUpdater::settingsChanged);
}

QString TXUpdater::feedName() const {
    const tx::Result<tx::trust::AppInfo> info = tx::hostTrust();
    return info ? QString::fromStdString(info->feedName) : QString();
}

TXUpdater::VersionComparator TXUpdater::versionComparator() const { return tx::versionComparator(); }

void TXUpdater::setVersionComparator(const VersionComparator &comparator) {
    tx::setVersionComparator(comparator);
}

double TXUpdater::updateCheckInterval() const {
    return defaults().doubleValue(TXUpdatePrefUpdateCheckIntervalKey);
}

void TXUpdater::setUpdateCheckInterval(double seconds) {
    unscheduleCheckForUpdate();
    (void)defaults().setValue(TXUpdatePrefUpdateCheckIntervalKey, seconds);
    scheduleCheckForUpdate();
    announce(&TXUpdater::settingsChanged);
}

bool TXUpdater::automaticallyChecksForUpdates() const {
    return defaults().boolValue(TXUpdatePrefAutomaticallyChecksForUpdatesKey);
}

void TXUpdater::setAutomaticallyChecksForUpdates(bool automatically) {
    unscheduleCheckForUpdate();
    (void)defaults().setValue(TXUpdatePrefAutomaticallyChecksForUpdatesKey, automatically);
    scheduleCheckForUpdate();
    announce(&TXUpdater::settingsChanged);
}

bool TXUpdater::automaticallyDownloadsUpdates() const {
    return defaults().boolValue(TXUpdatePrefAutomaticallyDownloadsUpdatesKey);
}

void TXUpdater::setAutomaticallyDownloadsUpdates(bool automatically) {
    (void)defaults().setValue(TXUpdatePrefAutomaticallyDownloadsUpdatesKey, automatically);
    announce(&TXUpdater::settingsChanged);
}

bool TXUpdater::sendsSystemProfile() const { return defaults().boolValue(TXUpdatePrefSendsSystemProfileKey); }

void TXUpdater::setSendsSystemProfile(bool sends) {
    (void)defaults().setValue(TXUpdatePrefSendsSystemProfileKey, sends);
    announce(&TXUpdater::settingsChanged);
}

QDateTime TXUpdater::lastUpdateCheckDate() const {
    return defaults().dateValue(TXUpdatePrefLastUpdateCheckDateKey);
}

bool TXUpdater::isUpdating() const { return false; }
QString TXUpdater::updateCacheDirectoryFilePath() const { return tx::UpdateFolder::ofHost().path(); }
QString TXUpdater::anonymousUUID() { return tx::anonymousUUID(); }

void TXUpdater::scheduleCheckForUpdate() {
    tx::postToMain([this] {
        unscheduleCheckForUpdate();
        const double seconds = updateCheckInterval();
        if (!automaticallyChecksForUpdates() || !(seconds > 0))
            return;
        // No date is later than this; larger numbers would overflow the count of milliseconds.
        constexpr double longest = 1e12;
        d->timer.start(std::chrono::milliseconds(static_cast<qint64>(std::min(seconds, longest) * 1000)));
    });
}

void TXUpdater::unscheduleCheckForUpdate() {
    if (QThread::currentThread() == thread())
        d->timer.stop();
    else
        tx::postToMain([this] { d->timer.stop(); });
}

void TXUpdater::autocheckForUpdate() { checkForUpdate(nullptr); }

void TXUpdater::checkForUpdate(const CompletionHandler &handler) {
    if (isUpdating() || d->isChecking.exchange(true))
        return;
    announce(&TXUpdater::isCheckingChanged);
    (void)tx::checkHostIdentity(); // logs; the feed is read anyway, for programs that only show it
    // Only a profile needs a thread of its own, because measuring it blocks. Every other check changes
    // threads only to reach the network thread and to come back.
    if (isProfileDue())
        tx::runInBackground([this, handler] { d->measureProfile(*this, handler); });
    else
        d->askDelegate(*this, handler, nullptr);
}

bool TXUpdater::joinCheck(const CompletionHandler &handler) {
    if (!d->isChecking)
        return false;
    d->joined.append(handler);
    return true;
}

void TXUpdater::Private::end(TXUpdater &updater, const CompletionHandler &handler,
                             const TXUpdateFeedPtr &feed, const TXError &error, bool sentProfile) {
    const TXUpdateFeedPtr result = tx::reportedFeed(feed, error);
    tx::postToMain([&updater, handler, result, error, sentProfile] {
        // Before the report, because a handler may start the next check.
        updater.setChecking(false);
        updater.report(handler, result, error, sentProfile);
    });
    updater.scheduleCheckForUpdate();
}

bool TXUpdater::Private::endsForKeys(TXUpdater &updater, const CompletionHandler &handler) {
    const auto info = tx::hostTrust();
    if (!info)
        end(updater, handler, {}, info.error(), false);
    return !info;
}

void TXUpdater::Private::measureProfile(TXUpdater &updater, const CompletionHandler &handler) {
    if (!endsForKeys(updater, handler))
        askDelegate(updater, handler, TXUpdateSystemProfile::systemProfile());
}

void TXUpdater::Private::askDelegate(TXUpdater &updater, const CompletionHandler &handler,
                                     const TXUpdateSystemProfilePtr &profile) {
    if (!delegate) {
        fetch(updater, handler, profile, {});
        return;
    }
    tx::postToMain([this, &updater, handler, profile] {
        if (endsForKeys(updater, handler))
            return;
        TXUpdaterDelegate *asked = delegate;
        fetch(updater, handler, profile, asked ? asked->feedParametersForUpdater(&updater) : QVariantMap());
    });
}

void TXUpdater::Private::fetch(TXUpdater &updater, const CompletionHandler &handler,
                               const TXUpdateSystemProfilePtr &profile, const QVariantMap &parameters) {
    tx::NetworkThread::instance().post(
        [this, &updater, handler, profile, parameters](QNetworkAccessManager &) {
            TXUpdateFeed::fetchFeedAtURL(updater.feedURL(), parameters, profile,
                                         [this, &updater, handler, sent = profile != nullptr](
                                             const TXUpdateFeedPtr &feed, const TXError &error) {
                                             end(updater, handler, feed, error, sent);
                                         });
        });
}

TXUpdateFeedPtr tx::reportedFeed(const TXUpdateFeedPtr &feed, const TXError &error) {
    if (!feed && !error)
        qFatal("TXUpdater: feed || error");
    return error ? TXUpdateFeedPtr() : feed;
}

bool TXUpdater::isProfileDue() const {
    if (!sendsSystemProfile())
        return false;
    constexpr qint64 week = 604800LL * 1000;
    QDateTime sent = defaults().dateValue(TXUpdatePrefLastSystemProfileDateKey);
    if (!sent.isValid())
        sent = QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC); // long ago: a first profile is due
    return sent.msecsTo(tx::services().now()) > week;
}

void TXUpdater::report(const CompletionHandler &handler, const TXUpdateFeedPtr &feed, const TXError &error,
                       bool sentProfile) {
    // The handler may start the next check, which other callers then join.
    const QList<CompletionHandler> joined = std::exchange(d->joined, {});
    if (handler)
        handler(feed, error);
    else if (TXUpdaterDelegate *delegate = d->delegate)
        delegate->updaterDidCheckForUpdate(this, feed, error);
    for (const CompletionHandler &also : joined)
        also(feed, error);
    if (feed)
        (void)defaults().setValue(TXUpdatePrefLastUpdateCheckDateKey, tx::services().now());
    // The profile counts as sent whether the check succeeded or not.
    if (sentProfile)
        (void)defaults().setValue(TXUpdatePrefLastSystemProfileDateKey, tx::services().now());
    announce(&TXUpdater::settingsChanged);
    if (error)
        Q_EMIT failed(error);
    // recommendedUpdate() creates all updates of the feed, which may be many.
    else if (feed && isSignalConnected(QMetaMethod::fromSignal(&TXUpdater::updateFound))) {
        if (const TXUpdatePtr update = feed->recommendedUpdate())
            Q_EMIT updateFound(update);
    }
    Q_EMIT checkFinished(feed);
}

TXUpdateAppMover::Result TXUpdater::moveToApplicationsFolderIfNecessary() {
    return TXUpdateAppMover::moveToApplicationsFolderIfNecessary();
}

int TXUpdater::compareVersionToVersion(const QString &a, const QString &b) {
    return tx::compareVersions(a, b);
}

bool TXUpdater::isVersionNewerThanVersion(const QString &a, const QString &b) {
    return tx::isVersionNewer(a, b);
}

bool TXUpdater::isVersionNewerOrEqualToVersion(const QString &a, const QString &b) {
    return tx::compareVersions(a, b) >= 0;
}

bool TXUpdater::isVersionOlderOrEqualToVersion(const QString &a, const QString &b) {
    return tx::compareVersions(a, b) <= 0;
}

bool TXUpdater::isItemRelevantForAppBuild(const TXUpdateItem &item, const QString &build,
                                          const QString &osVersion) {
    return tx::isItemRelevant(item, build, osVersion);
}

QList<TXUpdatePtr> TXUpdater::relevantItemsForAppBuild(const QList<TXUpdatePtr> &items, const QString &build,
                                                       const QString &osVersion) {
    return tx::relevantItems(items, build, osVersion);
}

QList<TXUpdatePostPtr> TXUpdater::relevantItemsForAppBuild(const QList<TXUpdatePostPtr> &items,
                                                           const QString &build, const QString &osVersion) {
    return tx::relevantItems(items, build, osVersion);
}

bool TXUpdater::isUpdateIgnored(const TXUpdate &update) { return tx::isUpdateIgnored(update); }
