// SPDX-License-Identifier: MIT
#include "tests/install/downloadtest.h"

#include <QMap>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using tx::test::Download;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::readFile;

namespace {

struct NameCase {
    QString suggested;
    QString version;
    QString expected;
};

class DownloadName : public testing::TestWithParam<NameCase> {};

TEST_P(DownloadName, StaysInItsFolder) {
    const QString name =
        tx::downloadFileName(GetParam().suggested, GetParam().version, QUrl(u"https://e.org/"_s));
    static const QRegularExpression digest(u"=[0-9a-f]{32}"_s);
    EXPECT_EQ(QString(name).replace(digest, u"=#"_s), GetParam().expected);
    EXPECT_FALSE(name.contains(u'/'));
    EXPECT_LE(name.toUtf8().size(), 255);
}

INSTANTIATE_TEST_SUITE_P(
    Names, DownloadName,
    testing::Values(
        NameCase{u"App.zip"_s, u"1234"_s, u"App - 1234.zip"_s},
        NameCase{u"Foo.zip.txt"_s, u"5"_s, u"Foo - 5.zip"_s},
        NameCase{u"Foo.dmg"_s, u"5"_s, u"Foo - 5.dmg"_s}, NameCase{u"App"_s, u"1234"_s, u"App - 1234."_s},
        NameCase{u"App.txt"_s, u"5"_s, u"App - 5."_s}, NameCase{u"App.tar.gz"_s, u"5"_s, u"App.tar - 5.gz"_s},
        NameCase{u"../../etc/passwd.zip"_s, u"5"_s, u"..-..-etc-passwd - 5=#.zip"_s},
        NameCase{u".."_s, u"5"_s, u".. - 5."_s}, NameCase{u".hidden"_s, u"5"_s, u".hidden - 5."_s},
        NameCase{u"a\nb\x01.zip"_s, u"5"_s, u"a-b- - 5=#.zip"_s},
        NameCase{u"a\\b.zip"_s, u"../6\x7f"_s, u"a-b - ..-6-=#.zip"_s},
        NameCase{u"x"_s.repeated(300) + u".zip"_s, u"5"_s, u"x"_s.repeated(214) + u" - 5=#.zip"_s},
        NameCase{u"App.zip"_s, u"9"_s.repeated(300), u"App - "_s + u"9"_s.repeated(40) + u"=#.zip"_s},
        NameCase{u"a."_s + u"z"_s.repeated(300), u"5"_s, u"a."_s + u"z"_s.repeated(215) + u" - 5=#."_s},
        NameCase{u"App.zip"_s, {}, u"App - (null).zip"_s},
        NameCase{u"App.zip"_s, u"2.1.3-rc.1+64~b_2"_s, u"App - 2.1.3-rc.1+64~b_2.zip"_s},
        NameCase{u"App.zip"_s, u"2 (b)"_s, u"App - 2 (b)=#.zip"_s}));

TEST(DownloadNames, NeverMeanTwoBuilds) {
    const QString nines = u"9"_s.repeated(40);
    const QString stem = u"x"_s.repeated(300);
    const std::pair<QString, QString> builds[] = {
        {u"App.zip"_s, nines},       {u"App.zip"_s, nines + u'1'}, {u"App.zip"_s, nines + u'2'},
        {u"App.zip"_s, u"1-2"_s},    {u"App.zip"_s, u"1/2"_s},     {u"App.zip"_s, u"1\\2"_s},
        {u"App.zip"_s, u"1\t2"_s},   {u"App.zip"_s, {}},           {u"App.zip"_s, u"(null)"_s},
        {u"App.zip"_s, u""_s},       {u"App - 1.zip"_s, u"2"_s},   {u"App.zip"_s, u"1 - 2"_s},
        {u"App.zip"_s, u"- 3"_s},    {u"App -.zip"_s, u"3"_s},     {stem + u"1.zip"_s, u"4"_s},
        {stem + u"2.zip"_s, u"4"_s}, {u"a/b.zip"_s, u"5"_s},       {u"a-b.zip"_s, u"5"_s},
        {u"App.zip"_s, u"\u00e9"_s}, {u"App.zip"_s, u"e\u0301"_s}, {u"App.zip"_s, u"1.2"_s},
        {u"App.2"_s, u"1"_s},        {u"App.zip"_s, u"6.zip"_s},   {u"App"_s, u"6.zip"_s}};
    QMap<QString, QString> builtOf;
    for (const auto &[suggested, version] : builds) {
        const QString name = tx::downloadFileName(suggested, version, QUrl(u"https://e.org/"_s));
        const QString build = suggested + u" / "_s + version;
        EXPECT_FALSE(builtOf.contains(name)) << build.toStdString() << " and " << builtOf[name].toStdString();
        builtOf[name] = build;
        // Nor does a version that is written like another one's digest.
        const QString imitated = name.section(u" - "_s, -1).section(u'.', 0, -2);
        if (imitated != version && imitated.contains(u'=')) {
            EXPECT_NE(tx::downloadFileName(suggested, imitated, QUrl(u"https://e.org/"_s)), name)
                << build.toStdString();
        }
    }
    const auto named = [](const QString &version, const QString &url) {
        return tx::downloadFileName(u"App.zip"_s, version, QUrl(url));
    };
    EXPECT_EQ(named(u"5"_s, u"https://e.org/a"_s), named(u"5"_s, u"https://e.org/b"_s)) << "as documented";
    EXPECT_NE(named(u"5/6"_s, u"https://e.org/a"_s), named(u"5/6"_s, u"https://e.org/b"_s));
    EXPECT_EQ(named(u"5/6"_s, u"https://e.org/a"_s), named(u"5/6"_s, u"https://e.org/a"_s)) << "reused";
}

TEST_F(Download, ArchiveOfAnotherBuildIsNotReusedHoweverLongItsVersion) {
    FeedServer server;
    for (const QString &last : {u"1"_s, u"2"_s}) {
        update = std::make_shared<TXUpdate>();
        update->setVersion(u"9"_s.repeated(60) + last);
        completions = 0;
        server.expect("GET", "/App.zip", HttpReply::file("build " + last.toUtf8()));
        run(server.url(u"/App.zip"_s));
        EXPECT_EQ(readFile(update->downloadPath()), "build " + last.toUtf8());
    }
}

} // namespace
