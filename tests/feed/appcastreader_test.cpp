// SPDX-License-Identifier: MIT
#include "feed/appcastreader.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"

#include <TarvixUpdate/TXLog.h>

#include <QCoreApplication>
#include <QStringEncoder>
#include <QThread>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;

namespace {

class AppcastReader : public tx::test::FrameworkTest {
protected:
    QStringList skipped;

    tx::Result<TXUpdateFeed::TrackMap> read(const QByteArray &document, const QString &build = u"1042"_s) {
        skipped.clear();
        tx::ReaderContext context{build, u"12.0.0"_s, {}, {}, false};
        context.skipped = [this](const tx::SkippedEntry &e) {
            skipped << u"%1[%2] %3"_s.arg(e.track).arg(e.index).arg(e.reason);
        };
        return tx::readAppcast(document, context);
    }
    QList<TXUpdatePtr> updatesOf(const QByteArray &document) {
        const auto tracks = read(document);
        EXPECT_TRUE(bool(tracks)) << tracks.error().toString().toStdString();
        return tracks ? tracks->value(u"release"_s)->updates() : QList<TXUpdatePtr>();
    }
    static QByteArray channel(const QByteArray &items) {
        return "<rss xmlns:sparkle=\"http://e.org/s\"><channel>" + items + "</channel></rss>";
    }
    /// The update of a single item; null when it is dropped.
    TXUpdatePtr update(const QByteArray &children) {
        const QList<TXUpdatePtr> updates = updatesOf(channel("<item>" + children + "</item>"));
        return updates.isEmpty() ? nullptr : updates.first();
    }
    /// The same with what an item needs.
    TXUpdatePtr kept(const QByteArray &children) {
        return update("<sparkle:version>1043</sparkle:version><link>https://e.org/w</link>" + children);
    }
    QString failureOf(const QByteArray &document) {
        const auto tracks = read(document);
        return tracks ? u"(none)"_s : tracks.error().localizedFailureReason();
    }
};

TEST_F(AppcastReader, ItemFillsEveryProperty) {
    const TXUpdatePtr u = update(R"(
        <title>Version 2.1</title>
        <description><![CDATA[<h2>New & better</h2>]]></description>
        <pubDate>2026-05-01 10:00:00</pubDate>
        <sparkle:releaseNotesLink>https://e.org/notes.html</sparkle:releaseNotesLink>
        <link>https://e.org/page</link>
        <enclosure url="https://e.org/a.zip" sparkle:version="1043" sparkle:shortVersionString="2.1"
                   sparkle:extra="more" length="7" type="application/octet-stream"/>)");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->title(), u"Version 2.1"_s);
    EXPECT_EQ(u->itemDescription(), u"<h2>New & better</h2>"_s);
    EXPECT_EQ(u->dateString(), u"2026-05-01 10:00:00"_s);
    EXPECT_EQ(u->date().toUTC().toString(Qt::ISODate), u"2026-05-01T17:00:00Z"_s);
    EXPECT_EQ(u->releaseNotesURL(), QUrl(u"https://e.org/notes.html"_s));
    EXPECT_EQ(u->version(), u"1043"_s);
    EXPECT_EQ(u->displayVersion(), u"2.1"_s);
    EXPECT_EQ(u->extra(), u"more"_s);
    EXPECT_EQ(u->fileURL(), QUrl(u"https://e.org/a.zip"_s));
    EXPECT_EQ(u->linkURL(), QUrl(u"https://e.org/page"_s));
    EXPECT_FALSE(u->conditions()) << "an item has no record of conditions";
    EXPECT_FALSE(u->excludeFromAutoDownloading());
    EXPECT_EQ(u->preferredDisplaySize(), QSizeF(0, 0));
}

TEST_F(AppcastReader, MissingElementsStayAbsent) {
    const TXUpdatePtr u = kept({});
    ASSERT_TRUE(u);
    EXPECT_TRUE(u->title().isNull());
    EXPECT_TRUE(u->itemDescription().isNull());
    EXPECT_TRUE(u->dateString().isNull());
    EXPECT_TRUE(u->extra().isNull());
    EXPECT_TRUE(u->releaseNotesURL().isEmpty());
    EXPECT_TRUE(u->fileURL().isEmpty());
    EXPECT_FALSE(u->canBeDownloaded());
    EXPECT_EQ(u->linkURL(), QUrl(u"https://e.org/w"_s));
    EXPECT_EQ(u->displayVersion(), u"1043"_s) << "falls back to the version";
}

TEST_F(AppcastReader, VersionsComeFromElementsAndTheEnclosureWins) {
    const QByteArray elements = "<sparkle:version>1043</sparkle:version><sparkle:shortVersionString>2.1"
                                "</sparkle:shortVersionString><sparkle:extra>e</sparkle:extra>";
    const QByteArray attributes =
        R"( sparkle:version="1044" sparkle:shortVersionString="2.2" sparkle:extra="a")";
    const auto enclosure = [](const QByteArray &more) {
        return "<enclosure url=\"https://e.org/a.zip\"" + more + "/>";
    };
    struct Case {
        QByteArray children;
        QString version;
        QString displayVersion;
        QString extra;
    };
    const Case cases[] = {
        {elements + enclosure({}), u"1043"_s, u"2.1"_s, u"e"_s},
        {enclosure(attributes), u"1044"_s, u"2.2"_s, u"a"_s},
        {elements + enclosure(attributes), u"1044"_s, u"2.2"_s, u"a"_s},
        {enclosure(attributes) + elements, u"1044"_s, u"2.2"_s, u"a"_s}, // whatever comes first
        {elements + enclosure(R"( sparkle:version="1044")"), u"1044"_s, u"2.1"_s, u"e"_s},
        {elements + enclosure(R"( sparkle:shortVersionString="")"), u"1043"_s, u""_s, u"e"_s},
        {enclosure(R"( sparkle:version="1044")"), u"1044"_s, u"1044"_s, {}},
    };
    for (const Case &c : cases) {
        const TXUpdatePtr u = update(c.children);
        ASSERT_TRUE(u) << c.children.constData();
        EXPECT_EQ(u->version(), c.version) << c.children.constData();
        EXPECT_EQ(u->displayVersion(), c.displayVersion) << c.children.constData();
        EXPECT_EQ(u->extra(), c.extra) << c.children.constData();
    }
}

TEST_F(AppcastReader, SystemBoundsHaveNoEffect) {
    const TXUpdatePtr u = update(R"(<sparkle:minimumSystemVersion>99.0</sparkle:minimumSystemVersion>
        <sparkle:maximumSystemVersion>1.0</sparkle:maximumSystemVersion>
        <enclosure url="https://e.org/a.zip" sparkle:version="1043" sparkle:minimumSystemVersion="99.0"
                   sparkle:maximumSystemVersion="1.0"/>)");
    ASSERT_TRUE(u);
    EXPECT_FALSE(u->conditions());
}

TEST_F(AppcastReader, ElementTextsAreTrimmedAndAttributesAreNot) {
    const TXUpdatePtr u =
        update("<title> \t\n 2.1 \xE3\x80\x80\xE2\x80\xA8\r\n</title>"
               "<description>\xC2\xA0\xE2\x80\x87 no-break\xC2\xA0text \xE2\x80\xAF\xC2\xA0</description>"
               "<sparkle:version>   1043\n</sparkle:version>"
               "<enclosure url=\"https://e.org/a.zip\" sparkle:shortVersionString=\" 2.1 \"/>");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->title(), u"2.1"_s);
    EXPECT_EQ(u->itemDescription(), u"no-break\u00A0text"_s) << "spaces that do not break are spaces";
    EXPECT_EQ(u->version(), u"1043"_s);
    EXPECT_EQ(u->displayVersion(), u" 2.1 "_s);
}

TEST_F(AppcastReader, TextIsTheWholeStringValue) {
    const std::pair<QByteArray, QString> cases[] = {
        {"<title>a<b>b<i>c</i></b>d</title>", u"abcd"_s},
        {"<title>a<![CDATA[<b> & ]]>c</title>", u"a<b> & c"_s},
        {"<title>a<!-- no -->b<?no no?>c</title>", u"abc"_s},
        {"<title>&lt;b&gt; &amp; &#233;&#x1F600;</title>", u"<b> & \u00E9\U0001F600"_s},
        {"<title>a<title>b</title>c</title>", u"abc"_s},
        {"<title/>", u""_s},
        {"<title>   </title>", u""_s},
        {"<title>a<enclosure url=\"x\"/>b</title>", u"ab"_s},
    };
    for (const auto &[children, title] : cases) {
        const TXUpdatePtr u = kept(children);
        ASSERT_TRUE(u) << children.constData();
        EXPECT_EQ(u->title(), title) << children.constData();
        EXPECT_FALSE(u->title().isNull()) << children.constData();
    }
}

TEST_F(AppcastReader, ChildrenWithoutNamesAreSkipped) {
    const TXUpdatePtr u =
        kept("text <!-- <title>no</title> --> <?title no?> <![CDATA[ <title>no</title> ]]>");
    ASSERT_TRUE(u);
    EXPECT_TRUE(u->title().isNull());
}

TEST_F(AppcastReader, LaterChildOfTheSameNameReplacesTheEarlierOne) {
    const TXUpdatePtr u = kept(R"(<title xml:lang="en">News</title><title xml:lang="de">Neues</title>
        <sparkle:releaseNotesLink xml:lang="en">https://e.org/en</sparkle:releaseNotesLink>
        <sparkle:releaseNotesLink xml:lang="de">https://e.org/de</sparkle:releaseNotesLink>
        <enclosure url="https://e.org/1.zip" sparkle:extra="1"/><enclosure url="https://e.org/2.zip"/>)");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->title(), u"Neues"_s);
    EXPECT_EQ(u->releaseNotesURL(), QUrl(u"https://e.org/de"_s));
    EXPECT_EQ(u->fileURL(), QUrl(u"https://e.org/2.zip"_s)) << "the last enclosure counts";
    EXPECT_TRUE(u->extra().isNull()) << "as a whole";
}

TEST_F(AppcastReader, EnclosureWithoutAttributesCountsForNothing) {
    const TXUpdatePtr u =
        kept(R"(<enclosure url="https://e.org/1.zip"/><enclosure>https://e.org/2.zip</enclosure>)");
    ASSERT_TRUE(u);
    EXPECT_TRUE(u->fileURL().isEmpty());
    EXPECT_EQ(u->version(), u"1043"_s);
}

TEST_F(AppcastReader, WhatOtherUpdatersReadIsPassedOver) {
    // Differences to older builds, channels, signatures, texts for several languages, escaped and marked-up
    // notes.
    const TXUpdatePtr u = update(R"(<title>4.3.0</title><sparkle:channel>beta</sparkle:channel>
        <description>&lt;h2&gt;New&lt;/h2&gt; <b>and</b> <i>better</i></description>
        <sparkle:fullReleaseNotesLink>https://e.org/all</sparkle:fullReleaseNotesLink>
        <enclosure url="https://e.org/full.zip" sparkle:version="1043" sparkle:installationType="package"
                   sparkle:edSignature="AtkK==" length="48231123" type="application/octet-stream"/>
        <sparkle:deltas>
            <enclosure url="https://e.org/delta.zip" sparkle:version="1044" sparkle:deltaFrom="1041"/>
            <title>no</title>
        </sparkle:deltas>
        <sparkle:criticalUpdate sparkle:version="1.5"/><guid isPermaLink="false">1043</guid>)");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->title(), u"4.3.0"_s);
    EXPECT_EQ(u->version(), u"1043"_s);
    EXPECT_EQ(u->fileURL(), QUrl(u"https://e.org/full.zip"_s))
        << "an enclosure of a child is none of the item";
    EXPECT_EQ(u->itemDescription(), u"<h2>New</h2> and better"_s);
    EXPECT_TRUE(u->releaseNotesURL().isEmpty());
}

TEST_F(AppcastReader, NamesCountAsTheyAreWritten) {
    // Another prefix for the same namespace is another name; an undeclared prefix is as good as any.
    EXPECT_FALSE(
        update("<s:version xmlns:s=\"http://e.org/s\">1043</s:version><link>https://e.org/w</link>"));
    EXPECT_EQ(skipped, QStringList{u"release[0] Feed item lacks sparkle:version attribute"_s});
    const QList<TXUpdatePtr> updates =
        updatesOf("<rss><channel><item><sparkle:version>1043</sparkle:version><link>https://e.org/w</link>"
                  "<other:title>no</other:title><enclosure "
                  "other:url=\"https://e.org/no.zip\"/></item></channel></rss>");
    ASSERT_EQ(updates.size(), 1);
    EXPECT_TRUE(updates[0]->title().isNull());
    EXPECT_TRUE(updates[0]->fileURL().isEmpty()) << "an attribute of another namespace";
    const TXUpdatePtr u = kept("<title xmlns=\"http://e.org/any\">T</title>");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->title(), u"T"_s) << "a child's namespace plays no part";
}

TEST_F(AppcastReader, OnlyItemsOfTheChannelCount) {
    const QByteArray item =
        "<item><sparkle:version>1043</sparkle:version><link>https://e.org/w</link></item>";
    const std::pair<QByteArray, int> cases[] = {
        {"<rss><channel>" + item + item + "</channel></rss>", 2},
        {"<rss><channel>" + item + "</channel><channel>" + item + "</channel></rss>", 2},
        {"<rss><channel><title>t</title><item/>" + item + "</channel></rss>", 1},
        {"<rss>" + item + "<channel/></rss>", 0},
        {"<rss><channel><items>" + item + "</items></channel></rss>", 0},
        {"<rss><rss><channel>" + item + "</channel></rss></rss>", 0},
        {"<feed><channel>" + item + "</channel></feed>", 0},
        {"<RSS><channel>" + item + "</channel></RSS>", 0},
        {"<rss><channel/></rss>", 0},
        {"<rss/>", 0},
        {"<html><body>Log in</body></html>", 0},
        {"<rss xmlns=\"http://e.org/default\"><channel>" + item + "</channel></rss>", 0},
        {"<rss><channel xmlns=\"http://e.org/default\">" + item + "</channel></rss>", 0},
        {"<rss xmlns=\"http://e.org/default\"><channel xmlns=\"\">" + item + "</channel></rss>", 0},
        {"<rss xmlns=\"\"><channel xmlns=\"\">" + item + "</channel></rss>", 1},
        {"<r:rss xmlns:r=\"http://e.org/r\"><channel>" + item + "</channel></r:rss>", 0},
    };
    for (const auto &[document, count] : cases) {
        EXPECT_EQ(updatesOf(document).size(), count) << document.constData();
        EXPECT_EQ(read(document)->keys(), QStringList{u"release"_s}) << document.constData();
        EXPECT_TRUE(read(document)->value(u"release"_s)->posts().isEmpty());
    }
    // An item in an item is a child like any other.
    const QByteArray nested = item.chopped(7) + "<item><sparkle:version>1050</sparkle:version></item></item>";
    const QList<TXUpdatePtr> updates = updatesOf("<rss><channel>" + nested + "</channel></rss>");
    ASSERT_EQ(updates.size(), 1);
    EXPECT_EQ(updates[0]->version(), u"1043"_s);
}

TEST_F(AppcastReader, ItemsThatLackWhatAnUpdateNeedsAreDroppedWithTheReason) {
    const QString noVersion = u"release[0] Feed item lacks sparkle:version attribute"_s;
    const QString noAddress = u"release[0] Feed item lacks enclosure element with URL or a link element."_s;
    const std::pair<QByteArray, QString> cases[] = {
        {"<link>https://e.org/w</link>", noVersion},
        {"<version>1043</version><enclosure url=\"https://e.org/a.zip\" version=\"1043\"/>", noVersion},
        {"", noVersion},
        {"<sparkle:version>1043</sparkle:version>", noAddress},
        {"<sparkle:version>1043</sparkle:version><link></link>", noAddress},
        {"<sparkle:version>1043</sparkle:version><enclosure url=\"\"/>", noAddress},
        {"<sparkle:version>1043</sparkle:version><enclosure URL=\"https://e.org/a.zip\"/>", noAddress},
        {"<sparkle:version>1043</sparkle:version><link>http://[::bad</link>", noAddress},
        {"<sparkle:version>1043</sparkle:version><enclosure url=\"http://[::bad\"/>", noAddress},
    };
    for (const auto &[children, reason] : cases) {
        EXPECT_FALSE(update(children)) << children.constData();
        EXPECT_EQ(skipped, QStringList{reason}) << children.constData();
    }
}

TEST_F(AppcastReader, OneItemsReasonIsGivenToWhoeverAsks) {
    tx::AppcastItem item;
    QString reason;
    EXPECT_FALSE(tx::xml_updateFromDictionary(item, &reason));
    EXPECT_EQ(reason, u"Feed item lacks sparkle:version attribute"_s);
    EXPECT_FALSE(tx::xml_updateFromDictionary(item, nullptr));
    item.elements.replace("sparkle:version") = "7";
    EXPECT_FALSE(tx::xml_updateFromDictionary(item, &reason));
    EXPECT_EQ(reason, u"Feed item lacks enclosure element with URL or a link element."_s);
    item.hasEnclosure = true;
    item.enclosure.replace("url") = "https://e.org/a.zip";
    const TXUpdatePtr u = tx::xml_updateFromDictionary(item, &reason);
    ASSERT_TRUE(u);
    EXPECT_EQ(u->version(), u"7"_s);
}

TEST_F(AppcastReader, AttributesMakeADictionary) {
    const char *attributes[] = {"url", "u", "xmlns:x", "ns", "x:y", " z ", "xmlns", "ns", nullptr};
    tx::NamedTexts dictionary;
    dictionary.replace("old") = "gone";
    tx::attributesAsDictionary(attributes, dictionary);
    EXPECT_EQ(dictionary.size(), 2U);
    EXPECT_EQ(*dictionary.find("url"), "u");
    EXPECT_EQ(*dictionary.find("x:y"), " z ");
    EXPECT_FALSE(dictionary.find("old"));
}

TEST_F(AppcastReader, InvalidAddressesCountAsNone) {
    const TXUpdatePtr u = kept("<sparkle:releaseNotesLink>http://[bad</sparkle:releaseNotesLink>"
                               "<enclosure url=\"http://[bad\"/>");
    ASSERT_TRUE(u);
    EXPECT_TRUE(u->releaseNotesURL().isEmpty());
    EXPECT_TRUE(u->fileURL().isEmpty());
    const TXUpdatePtr encoded = kept("<enclosure url=\"https://e.org/\xC3\xA4 b.zip\"/>");
    ASSERT_TRUE(encoded);
    EXPECT_EQ(encoded->fileURL().toString(QUrl::FullyEncoded), u"https://e.org/%C3%A4%20b.zip"_s);
}

TEST_F(AppcastReader, OnlyNewerItemsStayInDocumentOrder) {
    QByteArray items;
    for (const char *version : {"1041", "1050", "1042", "1043", "1049"})
        items += QByteArray("<item><sparkle:version>") + version +
                 "</sparkle:version><link>https://e.org/w</link></item>";
    const auto tracks = read(channel(items));
    ASSERT_TRUE(bool(tracks));
    const TXUpdateTrackPtr track = tracks->value(u"release"_s);
    EXPECT_EQ(track->name(), u"release"_s);
    QStringList versions;
    for (const TXUpdatePtr &u : track->updates())
        versions << u->version();
    EXPECT_EQ(versions, (QStringList{u"1050"_s, u"1043"_s, u"1049"_s}));
    EXPECT_EQ(track->recommendedUpdate()->version(), u"1050"_s);
    EXPECT_EQ(skipped.size(), 2);
    EXPECT_TRUE(skipped[0].startsWith(u"release[0] "_s));
    EXPECT_TRUE(skipped[1].startsWith(u"release[2] "_s));
}

TEST_F(AppcastReader, UsualDatesGiveNoDateAndNoMessage) {
    const TXUpdatePtr u = kept("<pubDate>Tue, 10 Jun 2003 04:00:00 GMT</pubDate>");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->dateString(), u"Tue, 10 Jun 2003 04:00:00 GMT"_s);
    EXPECT_TRUE(logLines().isEmpty()) << logLines().join(u'\n').toStdString();
    EXPECT_FALSE(u->date().isValid());
}

TEST_F(AppcastReader, BrokenDocumentFailsAsAWholeAndSaysWhere) {
    const QByteArray item =
        "<item><sparkle:version>1043</sparkle:version><link>https://e.org/w</link></item>";
    QByteArray deep = "<rss>";
    for (int i = 0; i < 300; ++i)
        deep += "<a>";
    const std::pair<QByteArray, QString> cases[] = {
        {"", u"the document is empty"_s},
        {"no feed", u"Start tag expected, '<' not found (line 1, column 1)"_s},
        {"{\"release\":[]}", u"Start tag expected"_s},
        {"<rss>\n <channel>" + item, u"Premature end of data in tag channel line 2 (line 2, "_s},
        {"<rss><channel>" + item + "</channel></rss><rss/>", u"Extra content at the end of the document"_s},
        {"<rss><channel>" + item + "</rss></channel>", u"Opening and ending tag mismatch"_s},
        {"<rss a=\"1\" a=\"2\"/>", u"Attribute a redefined"_s},
        {"<rss a=1/>", u"AttValue: "_s},
        {"<rss>&nbsp;</rss>", u"Entity 'nbsp' not defined"_s},
        {"<rss>\x01</rss>", u"PCDATA invalid Char value 1"_s},
        {"<rss>&#1;</rss>", u"xmlParseCharRef: invalid xmlChar value 1"_s},
        {"<rss>\xFF</rss>", u"Input is not proper UTF-8"_s},
        {"<rss>\xED\xA0\x80</rss>", u"Char 0xD800 out of allowed range"_s}, // half of a surrogate pair
        {"<?xml version=\"1.0\" encoding=\"x-none\"?><rss/>", u"Unsupported encoding x-none"_s},
        {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><rss/>",
         u"Document labelled UTF-16 but has UTF-8 content"_s},
        {" <?xml version=\"1.0\"?><rss/>", u"XML declaration allowed only at the start of the document"_s},
        {deep, u"elements are nested more than 256 deep (line 1, "_s},
    };
    for (const auto &[document, reason] : cases)
        EXPECT_TRUE(failureOf(document).startsWith(reason))
            << document.constData() << ": " << failureOf(document).toStdString();
}

TEST_F(AppcastReader, EncodingsAreHonoured) {
    const QString text = u"<rss><channel><item><title>Ä</title><sparkle:version>1043</sparkle:version>"
                         "<link>https://e.org/w</link></item></channel></rss>"_s;
    const auto declared = [&](const char *encoding) {
        return u"<?xml version=\"1.0\" encoding=\"%1\"?>"_s.arg(QString::fromLatin1(encoding)) + text;
    };
    QStringEncoder utf16(QStringEncoder::Utf16LE, QStringConverter::Flag::WriteBom);
    QStringEncoder utf16Big(QStringEncoder::Utf16BE, QStringConverter::Flag::WriteBom);
    const QByteArray documents[] = {
        text.toUtf8(),
        declared("UTF-8").toUtf8(),
        "\xEF\xBB\xBF" + declared("utf-8").toUtf8(),
        declared("ISO-8859-1").toLatin1(),
        utf16(declared("UTF-16")),
        utf16Big(text),
    };
    for (const QByteArray &document : documents) {
        const QList<TXUpdatePtr> updates = updatesOf(document);
        ASSERT_EQ(updates.size(), 1) << document.toHex().constData();
        EXPECT_EQ(updates[0]->title(), u"Ä"_s);
    }
}

TEST_F(AppcastReader, InternalEntitiesAreExpandedWithinBounds) {
    const QByteArray rest = "<rss><channel><item><title>&t;</title><sparkle:version>1043</sparkle:version>"
                            "<link>https://e.org/w</link></item></channel></rss>";
    const QList<TXUpdatePtr> updates =
        updatesOf("<!DOCTYPE rss [<!ENTITY n 'Notes'><!ENTITY t '&n; 2'>]>" + rest);
    ASSERT_EQ(updates.size(), 1);
    EXPECT_EQ(updates[0]->title(), u"Notes 2"_s);

    // Each entity is ten of the one before it, and at the bottom stands a text, nothing or an element.
    for (const QByteArray bottom : {"0123456789", "", "<b/>"}) {
        QByteArray declarations = "<!DOCTYPE rss [<!ENTITY a '" + bottom + "'>";
        for (char name = 'b'; name <= 'k'; ++name) {
            QByteArray previous("&");
            previous += static_cast<char>(name - 1);
            previous += ';';
            declarations += QByteArray("<!ENTITY ") + name + " '" + previous.repeated(10) + "'>";
        }
        declarations += "<!ENTITY t '&k;'>]>";
        for (const QByteArray &bomb : {declarations + rest, declarations + "<rss a='&t;'/>"}) {
            const QString failure = failureOf(bomb);
            const bool isAttribute = bomb.endsWith("'/>");
            EXPECT_TRUE(failure.startsWith(u"its entities expand to too much"_s) ||
                        (isAttribute && failure.contains(u"'<' in entity"_s)))
                << bottom.constData() << ": " << failure.toStdString();
        }
    }
    // One long entity, many times.
    const QByteArray many = "<!DOCTYPE rss [<!ENTITY t '" + QByteArray(50000, 'x') + "'>]><rss a='" +
                            QByteArray("&t;").repeated(5000) + "'/>";
    EXPECT_TRUE(failureOf(many).startsWith(u"its entities expand to too much"_s))
        << failureOf(many).toStdString();
    EXPECT_NE(failureOf("<!DOCTYPE rss [<!ENTITY t '&t;'>]>" + rest), u"(none)"_s);
}

TEST_F(AppcastReader, NothingOutsideTheDocumentIsOpened) {
    FeedServer server; // a request would fail the test
    tx::test::writeFile(path(u"secret"_s), "secret");
    const QByteArray rest = "<rss><channel><item><title>a&e;b</title><sparkle:version>1043</sparkle:version>"
                            "<link>https://e.org/w</link></item></channel></rss>";
    const QByteArray file = "file://" + path(u"secret"_s).toUtf8();
    const QByteArray url = server.url(u"/e"_s).toUtf8();
    for (const QByteArray &address : {file, path(u"secret"_s).toUtf8(), url}) {
        const QByteArray doctypes[] = {
            "<!DOCTYPE rss [<!ENTITY e SYSTEM \"" + address + "\">]>",
            "<!DOCTYPE rss SYSTEM \"" + address + "\" [<!ENTITY e ''>]>",
            "<!DOCTYPE rss [<!ENTITY % p SYSTEM \"" + address + "\"> %p; <!ENTITY e ''>]>",
        };
        for (const QByteArray &doctype : doctypes) {
            const QList<TXUpdatePtr> updates = updatesOf(doctype + rest);
            ASSERT_EQ(updates.size(), 1) << doctype.constData();
            EXPECT_EQ(updates[0]->title(), u"ab"_s) << doctype.constData();
        }
    }
}

TEST_F(AppcastReader, LongFeedsAreRead) {
    QByteArray items;
    constexpr int count = 100000;
    for (int i = 0; i < count; ++i)
        items += "<item><sparkle:version>" + QByteArray::number(2000 + i) +
                 "</sparkle:version><link>https://e.org/w</link></item>";
    const QList<TXUpdatePtr> updates = updatesOf(channel(items));
    ASSERT_EQ(updates.size(), count);
    EXPECT_EQ(updates.first()->version(), u"2000");
    EXPECT_EQ(updates.last()->version(), QString::number(2000 + count - 1));
}

TEST_F(AppcastReader, LongDescriptionIsRead) {
    const QByteArray text = QByteArray("<p>It works &amp; shines.</p>\n").repeated(50 * 1024 * 1024 / 29);
    const TXUpdatePtr u = kept("<description><![CDATA[" + text + "]]></description>");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->itemDescription().size(), text.size() - 1);
}

/// A real check's way: by the type that the server gives.
class AppcastFeed : public AppcastReader {
protected:
    TXUpdateFeedPtr feed;
    TXError error;

    void fetch(const QByteArray &body, const QByteArray &type) {
        FeedServer server;
        server.expect("GET", "/feed", tx::test::HttpReply::file(body, type));
        std::atomic<bool> done{false};
        TXUpdateFeed::fetchFeedAtURL(QUrl(server.url(u"/feed"_s)), {}, {},
                                     [&](const TXUpdateFeedPtr &f, const TXError &e) {
                                         feed = f;
                                         error = e;
                                         done = true;
                                     });
        ASSERT_TRUE(tx::test::waitUntil([&] { return done.load(); }));
    }
};

TEST_F(AppcastFeed, EveryTypeButExactlyJsonIsReadAsAnAppcast) {
    becomeHost(u"1042"_s);
    const QByteArray document = channel("<item><title>T</title><sparkle:version>1043</sparkle:version>"
                                        "<enclosure url=\"https://e.org/a.zip\"/></item>");
    for (const QByteArray type : {"application/xml", "application/rss+xml", "text/plain",
                                  "text/xml; charset=utf-8", "application/json; charset=utf-8"}) {
        fetch(document, type);
        ASSERT_TRUE(error.isNull()) << type.constData();
        ASSERT_EQ(feed->releaseTracks().keys(), QStringList{u"release"_s});
        ASSERT_EQ(feed->updates()->size(), 1);
        EXPECT_EQ(feed->updates()->first()->thread(), QCoreApplication::instance()->thread());
        ASSERT_TRUE(feed->recommendedUpdate());
        EXPECT_EQ(feed->recommendedUpdate()->version(), u"1043"_s);
    }
    fetch(document, "application/json");
    EXPECT_EQ(error.localizedFailureReason(), u"The format of the update feed is invalid."_s);
}

TEST_F(AppcastFeed, DocumentWithoutItemsIsASuccess) {
    fetch("<rss><channel/></rss>", "application/xml");
    EXPECT_TRUE(error.isNull());
    ASSERT_TRUE(feed->updates());
    EXPECT_TRUE(feed->updates()->isEmpty());
    EXPECT_FALSE(feed->recommendedUpdate());
}

TEST_F(AppcastFeed, BodyThatIsNotXmlIsAnInvalidFormat) {
    fetch("<rss><channel>", "application/xml");
    EXPECT_EQ(error.localizedDescription(),
              u"The update feed could not be processed. Check the website for updates."_s);
    EXPECT_EQ(error.localizedFailureReason(), u"The format of the update feed is invalid."_s);
    EXPECT_TRUE(feed->releaseTracks().isEmpty());
}

} // namespace
