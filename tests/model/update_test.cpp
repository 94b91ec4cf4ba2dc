// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXUpdate.h>

#include "tests/support/environment.h"

#include <QMetaProperty>
#include <QSignalSpy>

#include <array>

using namespace Qt::StringLiterals;

namespace {

class UpdateRecord : public tx::test::FrameworkTest {
protected:
    TXUpdate a;
    TXUpdate b;
};

TEST_F(UpdateRecord, TwoEmptyOnesAreEqual) {
    EXPECT_TRUE(a.isEqual(b));
    b.setTitle(u""_s);
    EXPECT_FALSE(a.isEqual(b)) << "absent is not empty";
}

TEST_F(UpdateRecord, EveryComparedPropertyCounts) {
    const QUrl url(u"https://e.org/"_s);
    const QList<std::function<void(TXUpdate &)>> setters{
        [](TXUpdate &u) { u.setTitle(u"x"_s); },
        [](TXUpdate &u) { u.setVersion(u"x"_s); },
        [](TXUpdate &u) { u.setDateString(u"x"_s); },
        [](TXUpdate &u) { u.setItemDescription(u"x"_s); },
        [](TXUpdate &u) { u.setExtra(u"x"_s); },
        [&](TXUpdate &u) { u.setReleaseNotesURL(url); },
        [&](TXUpdate &u) { u.setFileURL(url); },
        [&](TXUpdate &u) { u.setLinkURL(url); },
        [](TXUpdate &u) { u.setConditions(TXUpdateItemConditions()); }};
    for (const auto &set : setters) {
        TXUpdate one;
        TXUpdate other;
        set(one);
        EXPECT_FALSE(one.isEqual(other));
        set(other);
        EXPECT_TRUE(one.isEqual(other));
    }
}

TEST_F(UpdateRecord, DisplayAndStateTakeNoPart) {
    a.setDisplayVersion(u"2.0"_s);
    a.setPreferredDisplaySize({1, 2});
    a.setExcludeFromAutoDownloading(true);
    a.setDownloaded(true);
    a.setInstalled(true);
    EXPECT_TRUE(a.isEqual(b));
}

TEST_F(UpdateRecord, KindOfVersionIsDecidedOnTheDisplayVersion) {
    struct Case {
        QString version;
        bool isMajor, isMinor, isBugfix;
    };
    for (const Case &c : {Case{u"2.0"_s, true, false, false}, Case{u"3.0.0"_s, true, false, false},
                          Case{u"2.1"_s, false, true, false}, Case{u"2.1.3"_s, false, false, true},
                          Case{u"2.0.1"_s, false, false, true}}) {
        a.setVersion(u"1.1.1"_s);
        a.setDisplayVersion(c.version);
        EXPECT_EQ(a.isMajorVersion(), c.isMajor) << c.version.toStdString();
        EXPECT_EQ(a.isMinorVersion(), c.isMinor) << c.version.toStdString();
        EXPECT_EQ(a.isBugfixVersion(), c.isBugfix) << c.version.toStdString();
    }
}

TEST_F(UpdateRecord, DateIsReadAnewOnEachCall) {
    a.setDateString(u"2026-01-01 00:00:00"_s);
    EXPECT_EQ(a.date().toUTC().toString(Qt::ISODate), u"2026-01-01T08:00:00Z"_s);
    a.setDateString(u"tomorrow"_s);
    EXPECT_FALSE(a.date().isValid());
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("Update date getObjectValue error:tomorrow -- yyyy-MM-dd HH:mm:ss -- "
                                   "America/Los_Angeles  ---> "));
}

TEST_F(UpdateRecord, CanBeDownloadedWithAFileAddressOnly) {
    EXPECT_FALSE(a.canBeDownloaded());
    a.setLinkURL(QUrl(u"https://e.org/"_s));
    EXPECT_FALSE(a.canBeDownloaded());
    a.setFileURL(QUrl(u"https://e.org/a b.zip"_s));
    EXPECT_TRUE(a.canBeDownloaded());
    EXPECT_EQ(a.fileURL(), QUrl(u"https://e.org/a b.zip"_s));
}

TEST_F(UpdateRecord, ChangesAreAnnouncedAndReadableAsProperties) {
    QSignalSpy item(&a, &TXUpdate::itemChanged);
    QSignalSpy downloaded(&a, &TXUpdate::isDownloadedChanged);
    a.setTitle(u"x"_s);
    a.setDownloaded(true);
    a.setDownloaded(true);
    EXPECT_EQ(item.count(), 1);
    EXPECT_EQ(downloaded.count(), 1) << "only a change is one";
    EXPECT_EQ(a.property("title"), u"x"_s);
    EXPECT_EQ(a.property("isDownloaded"), true);
    EXPECT_EQ(a.property("downloadProgress"), 0.0);
    for (const char *name : {"version",
                             "displayVersion",
                             "dateString",
                             "itemDescription",
                             "extra",
                             "releaseNotesURL",
                             "fileURL",
                             "linkURL",
                             "preferredDisplaySize",
                             "conditions",
                             "excludeFromAutoDownloading",
                             "isDownloading",
                             "downloadPath",
                             "downloadSize",
                             "isInstalling",
                             "isInstalled",
                             "date",
                             "isMajorVersion",
                             "isMinorVersion",
                             "isBugfixVersion",
                             "canBeDownloaded"}) {
        EXPECT_TRUE(a.property(name).isValid()) << name;
        const QMetaObject *meta = a.metaObject();
        EXPECT_TRUE(meta->property(meta->indexOfProperty(name)).hasNotifySignal()) << name;
    }
}

TEST_F(UpdateRecord, ConditionsAndWhatIsDerivedCanBeObserved) {
    QSignalSpy item(&a, &TXUpdate::itemChanged);
    EXPECT_EQ(a.property("conditions").value<std::optional<TXUpdateItemConditions>>(), std::nullopt);
    a.setConditions(TXUpdateItemConditions{.minimumAppBuild = u"7"_s});
    EXPECT_EQ(item.count(), 1);
    EXPECT_EQ(a.property("conditions").value<std::optional<TXUpdateItemConditions>>(), a.conditions());
    EXPECT_TRUE(a.setProperty("conditions", QVariant::fromValue(std::optional<TXUpdateItemConditions>())));
    EXPECT_FALSE(a.conditions());
    EXPECT_EQ(item.count(), 2);
    const auto kinds = [this] {
        return std::array{a.property("isMajorVersion").toBool(), a.property("isMinorVersion").toBool(),
                          a.property("isBugfixVersion").toBool()};
    };
    const std::pair<QString, std::array<bool, 3>> versions[] = {{u"2.0"_s, {true, false, false}},
                                                                {u"2.1"_s, {false, true, false}},
                                                                {u"2.1.3"_s, {false, false, true}}};
    auto changes = item.count();
    for (const auto &[version, expected] : versions) {
        a.setDisplayVersion(version);
        EXPECT_EQ(item.count(), ++changes);
        EXPECT_EQ(kinds(), expected) << version.toStdString();
    }
    EXPECT_EQ(a.property("canBeDownloaded"), false);
    a.setFileURL(QUrl(u"https://e.org/a.zip"_s));
    EXPECT_EQ(item.count(), ++changes);
    EXPECT_EQ(a.property("canBeDownloaded"), true);
    EXPECT_FALSE(a.property("date").toDateTime().isValid());
    a.setDateString(u"2026-01-01 00:00:00"_s);
    EXPECT_EQ(item.count(), ++changes);
    EXPECT_EQ(a.property("date").toDateTime(), a.date());
    EXPECT_TRUE(a.date().isValid());
}

} // namespace
