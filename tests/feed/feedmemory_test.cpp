// SPDX-License-Identifier: MIT
// How much memory a feed takes, whatever its shape.
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"

#include <QProcess>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;

namespace {

constexpr qsizetype size = (16 << 20) - 1000;
constexpr int any = -2;
constexpr int refused = -1;

struct Shape {
    const char *name;
    bool isJson;
    std::function<QByteArray()> make;
    int items = any;  ///< how many come of it
    double times = 7; ///< what it may take of its size: six, and what the network happens to hold just then
};

/// `part` as often as it fits between the two; "#" in it becomes a number of six digits.
QByteArray filled(const QByteArray &begin, const QByteArray &part, const QByteArray &end,
                  bool separated = false) {
    QByteArray result;
    result.reserve(size + 1000);
    result += begin;
    const qsizetype number = part.indexOf('#');
    for (int i = 100000; result.size() + part.size() + end.size() + 6 < size; ++i) {
        if (number < 0)
            result += part;
        else
            result.append(part.first(number)).append(QByteArray::number(i)).append(part.sliced(number + 1));
        if (separated)
            result += ',';
    }
    if (separated)
        result.chop(1);
    return result + end;
}

QByteArray list(const QByteArray &entry) { return filled(R"({"release":[)", entry, "]}", true); }
QByteArray entry(const QByteArray &member) {
    return filled(R"({"release":[{"type":"build","build":"9999","webpageURL":"http://e/",)", member, "}]}",
                  true);
}
QByteArray channel(const QByteArray &part, const QByteArray &begin = {}, const QByteArray &end = {}) {
    return filled("<rss xmlns:sparkle='x'><channel>" + begin, part, end + "</channel></rss>");
}
QByteArray item(const QByteArray &part, const QByteArray &begin = {}, const QByteArray &end = {}) {
    return channel(part, "<item><sparkle:version>9999</sparkle:version><link>http://e/</link>" + begin,
                   end + "</item>");
}
QByteArray padded(qsizetype length) { return QByteArray(length, 'x'); }

const Shape shapes[] = {
    {"EmptyEntries", true, [] { return list("{}"); }, 0},
    {"TinyEntries", true, [] { return list(R"({"type":"build"})"); }, 0},
    {"TinyOlderEntries", true,
     [] { return list(R"({"type":"build","build":"1","webpageURL":"http://e/"})"); }, refused},
    {"TinyNewerEntries", true,
     [] { return list(R"({"type":"build","build":"9999","url":"","webpageURL":"http://e/"})"); }, refused},
    {"NewerEntries", true,
     [] {
         return list(R"({"type":"build","title":"T","build":"9999","webpageURL":"http://e/","pad":")" +
                     padded(240) + R"("})");
     }},
    {"EntriesAsPublishersWriteThem", true,
     [] {
         return list(
             R"({"type":"build","title":"Example 4.#","description":"Finds notes as you type, opens large files faster and no longer forgets its window, which some of you have asked for. Thanks to all who wrote to us about it, and to those who tried what we sent them.","date":"2026-05-01 10:00:00","build":"#","version":"4.1","releaseNotesURL":"https://updates.example.org/notes/1.html","downloadURL":"https://updates.example.org/archives/Example-1.zip","minSystemVersion":"10.0","launch":"any"})");
     }},
    {"TinyPosts", true, [] { return list(R"({"type":"post","url":"a:b"})"); }, refused},
    {"Posts", true,
     [] { return list(R"({"type":"post","url":"http://e/","pad":")" + padded(220) + R"("})"); }},
    {"LongText", true, [] { return entry(R"("description":")" + padded(size - 1000) + '"'); }, 1, 13},
    {"LongTextOfEscapes", true,
     [] { return entry(R"("description":")" + QByteArray("\\u00fc").repeated((size - 1000) / 6) + '"'); }, 1},
    {"LongUnknownText", true, [] { return entry("\"x\":\"" + padded(size - 1000) + '"'); }, 1},
    {"LongName", true, [] { return entry('"' + padded(size - 1000) + "\":1"); }, 1},
    {"Deep", true, [] { return filled("{\"release\":[", "[", ""); }, refused},
    {"DeepAgainAndAgain", true, [] { return entry("\"x\":" + QByteArray(200, '[') + QByteArray(200, ']')); },
     1},
    {"Numbers", true, [] { return filled(R"({"release":[{"x":[)", "1", "]}]}", true); }, 0},
    {"NumbersForAText", true, [] { return filled(R"({"release":[{"title":[)", "1", "]}]}", true); }, refused},
    {"UnknownMembers", true, [] { return entry("\"#\":1"); }, 1},
    {"KnownMember", true, [] { return entry("\"url\":\"\""); }, 1},
    {"KnownMemberOfAnotherType", true, [] { return entry("\"url\":1"); }, 1},
    {"Tracks", true, [] { return filled("{", "\"#\":[]", "}", true); }, refused},
    {"TracksWithAnEntry", true,
     [] {
         return filled("{", R"("#":[{"type":"build","build":"9999","webpageURL":"http://e/"}])", "}", true);
     },
     refused},
    {"OneTrackAgainAndAgain", true, [] { return filled("{", "\"a\":[]", "}", true); }},
    {"Blanks", true, [] { return filled("{}", " ", ""); }, 0},
    {"Utf16", true,
     [] {
         const QString text = QString::fromLatin1(list("{}").first(size / 2 - 10));
         QByteArray result("\xFF\xFE");
         return result.append(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
     }},
    {"Brackets", true, [] { return filled("", "]", ""); }, refused},
    {"EmptyItems", false, [] { return channel("<item/>"); }, 0},
    {"TinyNewerItems", false,
     [] { return channel("<item><sparkle:version>9999</sparkle:version><link>a:b</link></item>"); }, refused},
    {"NewerItems", false,
     [] {
         return channel("<item><sparkle:version>9999</sparkle:version><link>http://e/</link><x>" +
                        padded(200) + "</x></item>");
     }},
    {"LongDescription", false, [] { return item("x", "<description>", "</description>"); }, 1},
    {"LongDescriptionAsData", false, [] { return item("x", "<description><![CDATA[", "]]></description>"); },
     1},
    {"LongDescriptionBetweenNoBreakSpaces", false,
     [] { return item("x", "<description>\xC2\xA0", "\xC2\xA0</description>"); }, 1},
    {"LongBlanks", false, [] { return item(" ", "<description>", "</description>"); }, 1},
    {"Attributes", false, [] { return item(" a#=''", "<enclosure", "/>"); }, refused},
    {"LongAttribute", false, [] { return item("x", "<enclosure url='", "'/>"); }, refused},
    {"ElementsOfAnItem", false, [] { return item("<a#/>"); }, refused},
    {"ElementsElsewhere", false, [] { return channel("<a#/>"); }, refused},
    {"SameElements", false, [] { return item("<a/>"); }, 1},
    {"ItemsOfManyElements", false,
     [] { return channel("<item>" + QByteArray("<b/>").repeated(900) + "</item>"); }, 0},
    {"DeepElements", false, [] { return channel("<a>"); }, refused},
    {"LongComment", false, [] { return channel("x", "<!--", "-->"); }, 0},
    {"Comments", false, [] { return channel("<!--x-->\n"); }, 0},
    {"LongInstruction", false, [] { return channel("x", "<?x ", "?>"); }},
    {"EntityDeclarations", false, [] { return filled("<!DOCTYPE rss [", "<!ENTITY e# 'x'>", "]><rss/>"); },
     refused},
    {"ContentModel", false, [] { return filled("<!DOCTYPE rss [<!ELEMENT a (b", ",b", ")>]><rss/>"); },
     refused},
    {"Entities", false,
     [] {
         return filled("<!DOCTYPE rss [<!ENTITY e '" + padded(40) +
                           "'>]><rss xmlns:sparkle='x'><channel><item><description>",
                       "&e;", "</description></item></channel></rss>");
     },
     refused},
    {"Latin1", false,
     [] {
         return filled("<?xml version='1.0' encoding='ISO-8859-1'?><rss "
                       "xmlns:sparkle='x'><channel><item><sparkle:version>9999</sparkle:version><link>http://"
                       "e/</link><description>",
                       "\xE9", "</description></item></channel></rss>");
     },
     refused},
};

class FeedMemory : public tx::test::FrameworkTest, public testing::WithParamInterface<Shape> {};

TEST_P(FeedMemory, TakesNoMoreThanItMay) {
    const Shape &shape = GetParam();
    const QByteArray document = shape.make();
    ASSERT_GT(document.size(), 15 << 20);
    ASSERT_LE(document.size(), 16 << 20);
    FeedServer server;
    server.always([&](const HttpRequest &request) {
        if (request.path() == "/small")
            return HttpReply::json("{}");
        return shape.isJson ? HttpReply::json(document) : HttpReply::file(document, "text/xml");
    });
    QProcess process;
    process.start(QStringLiteral(TEST_HELPERS) + u"/feed_reader"_s,
                  {server.url(u"/small"_s), server.url(u"/feed"_s)});
    ASSERT_TRUE(process.waitForFinished(200000)) << "not in bounded time";
    ASSERT_EQ(process.exitCode(), 0);
    const QByteArray output = process.readAllStandardOutput();
    const QList<QByteArray> words = output.split(' ');
    ASSERT_GE(words.size(), 2) << process.readAllStandardError().constData();
    const double times = words[0].toDouble() * 1024 / static_cast<double>(document.size());
    RecordProperty("times", std::to_string(times));
    EXPECT_GT(times, 0.9) << "the document itself counts";
    EXPECT_LE(times, *TEST_SANITIZERS ? 60 : shape.times) << output.constData();
    if (shape.items != any) {
        EXPECT_EQ(words[1].toInt(), shape.items) << output.constData();
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, FeedMemory, testing::ValuesIn(shapes),
                         [](const auto &shape) { return std::string(shape.param.name); });

} // namespace
