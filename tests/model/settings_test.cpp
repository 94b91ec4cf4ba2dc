// SPDX-License-Identifier: MIT
#include "model/names.h"
#include "model/settings.h"
#include "os/userdefaults.h"
#include "tests/support/environment.h"

#include <TarvixUpdate/TXRateLimiter.h>
#include <TarvixUpdate/TXUpdater.h>

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

class Settings : public tx::test::FrameworkTest {};

TEST_F(Settings, KeysHaveTheirStrings) {
    const QList<std::pair<QString, QString>> keys{
        {TXUpdatePrefUpdateCheckIntervalKey, u"TXUpdateUpdateCheckInterval"_s},
        {TXUpdatePrefAutomaticallyChecksForUpdatesKey, u"TXUpdateAutomaticallyChecksForUpdates"_s},
        {TXUpdatePrefAutomaticallyDownloadsUpdatesKey, u"TXUpdateAutomaticallyDownloadsUpdates"_s},
        {TXUpdatePrefSendsSystemProfileKey, u"TXUpdateSendsSystemProfile"_s},
        {TXUpdatePrefFeedURLKey, u"TXUpdateFeedURL"_s},
        {TXUpdatePrefFeedNameKey, u"TXUpdateFeedName"_s},
        {TXUpdatePrefLastUpdateCheckDateKey, u"TXUpdateLastUpdateCheckDate"_s},
        {TXUpdatePrefLastSystemProfileDateKey, u"TXUpdateLastSystemProfileDate"_s},
        {TXUpdatePrefAnonymousUUIDKey, u"TXUpdateAnonymousUUID"_s},
        {TXUpdatePrefIgnoreVersionKey, u"TXUpdateIgnoreVersion"_s},
        {TXUpdatePrefPostsCheckInfoKey, u"TXUpdatePostsCheckInfo"_s}};
    for (const auto &[key, text] : keys)
        EXPECT_EQ(key, text);
}

TEST_F(Settings, AbsentOnesReadAsFalseZeroAndNull) {
    const TXUpdater *updater = TXUpdater::sharedUpdater();
    EXPECT_EQ(updater->updateCheckInterval(), 0.0);
    EXPECT_FALSE(updater->automaticallyChecksForUpdates());
    EXPECT_FALSE(updater->automaticallyDownloadsUpdates());
    EXPECT_FALSE(updater->sendsSystemProfile());
    EXPECT_TRUE(updater->feedURL().isEmpty());
    EXPECT_FALSE(updater->lastUpdateCheckDate().isValid());
    EXPECT_FALSE(updater->isUpdating());
}

TEST_F(Settings, AreStoredUnderTheirKeysWithTheirTypes) {
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setUpdateCheckInterval(3600.5);
    updater->setAutomaticallyChecksForUpdates(true);
    updater->setAutomaticallyDownloadsUpdates(true);
    updater->setSendsSystemProfile(true);
    updater->setFeedURL(QUrl(u"https://example.org/feed.json?channel=beta"_s));
    const tx::UserDefaults stored(path(u"home/.config/org.example.Host.plist"_s));
    EXPECT_EQ(stored.value(u"TXUpdateUpdateCheckInterval"_s), QVariant(3600.5));
    EXPECT_EQ(stored.value(u"TXUpdateAutomaticallyChecksForUpdates"_s), QVariant(true));
    EXPECT_EQ(stored.value(u"TXUpdateAutomaticallyDownloadsUpdates"_s), QVariant(true));
    EXPECT_EQ(stored.value(u"TXUpdateSendsSystemProfile"_s), QVariant(true));
    EXPECT_EQ(stored.value(u"TXUpdateFeedURL"_s), QVariant(u"https://example.org/feed.json?channel=beta"_s));
    EXPECT_EQ(updater->updateCheckInterval(), 3600.5);
    EXPECT_TRUE(updater->automaticallyChecksForUpdates());
    EXPECT_TRUE(updater->automaticallyDownloadsUpdates());
    EXPECT_TRUE(updater->sendsSystemProfile());
    EXPECT_EQ(updater->feedURL(), QUrl(u"https://example.org/feed.json?channel=beta"_s));
}

TEST_F(Settings, NullFeedAddressRemovesTheKey) {
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setFeedURL(QUrl(u"https://example.org/"_s));
    updater->setFeedURL({});
    EXPECT_FALSE(tx::UserDefaults::standard().value(TXUpdatePrefFeedURLKey).isValid());
    EXPECT_TRUE(updater->feedURL().isEmpty());
}

TEST_F(Settings, AnonymousIdentifierIsMadeOnceAndKept) {
    const QString first = TXUpdater::anonymousUUID();
    static const QRegularExpression form(u"^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"_s);
    EXPECT_TRUE(form.match(first).hasMatch()) << first.toStdString();
    EXPECT_EQ(TXUpdater::anonymousUUID(), first);
    EXPECT_EQ(tx::UserDefaults(path(u"home/.config/org.example.Host.plist"_s))
                  .stringValue(TXUpdatePrefAnonymousUUIDKey),
              first);
    ASSERT_TRUE(tx::UserDefaults::standard().setValue(TXUpdatePrefAnonymousUUIDKey, u"kept"_s).isNull());
    EXPECT_EQ(TXUpdater::anonymousUUID(), u"kept"_s);
}

TEST_F(Settings, CacheDirectoryIsNamedAfterTheHostAndNotMade) {
    const QString directory = TXUpdater::sharedUpdater()->updateCacheDirectoryFilePath();
    EXPECT_EQ(directory, path(u"home/.cache/TarvixUpdate/org.example.Host.TXUpdater"_s));
    EXPECT_FALSE(QFileInfo::exists(directory));
}

TEST_F(Settings, RateLimiterPassesOnlyAfterMoreThanTheInterval) {
    double now = 100;
    tx::services().secondsSinceReferenceDate = [&now] { return now; };
    double last = 0;
    int calls = 0;
    const auto limited = [&] { __TXUpdateAllowOnceEvery([&calls] { ++calls; }, &last, 0.5); };
    limited();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(last, 100);
    now = 100.5; // exactly the interval is not more than it
    limited();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(last, 100);
    now = 100.625;
    limited();
    EXPECT_EQ(calls, 2);
    now = 50; // the clock was set back
    limited();
    EXPECT_EQ(calls, 3);
}

TEST(FileNames, StayInTheirFolder) {
    EXPECT_EQ(tx::safeFileName(u"../a\\b\nc"_s), u"..-a-b-c"_s);
    EXPECT_EQ(tx::shortenedFileName(u"\u00E4"_s.repeated(300), u".zip"_s).toUtf8().size(), 254);
    EXPECT_EQ(tx::shortenedFileName(u"\U0001F600"_s.repeated(100), u".z"_s),
              u"\U0001F600"_s.repeated(63) + u".z"_s);
}

} // namespace
