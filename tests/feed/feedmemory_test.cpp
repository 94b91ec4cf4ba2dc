// SPDX-License-Identifier: MIT
// How much memory a feed takes, whatever its shape.
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"

#include <QProcess>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;

namespace {

constexpr qsizetype size = (16 << 20) - 1000;
constexpr double mostTimes = 6; ///< what a feed may take of its size, whatever its shape

constexpr int many = -3; ///< at least 100,000
constexpr int any = -2;
constexpr int refused = -1;

/// How a feed comes.
enum class Way { WithItsLength, InChunks, Compressed };

struct Shape {
    const char *name;
    bool isJson;
    std::function<QByteArray()> make;
    int items = any; ///< how many come of it
    Way way = Way::WithItsLength;
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
/// A feed of one entry with one long text, and what else it needs.
QByteArray longText(const QByteArray &member, const QByteArray &type = "build",
                    const QByteArray &others = R"("build":"9999","webpageURL":"http://e/",)",
                    const QByteArray &begin = {}) {
    return "{\"release\":[{\"type\":\"" + type + "\"," + others + '"' + member + "\":\"" + begin +
           padded(size - 1000) + "\"}]}";
}
/// A text that hardly gets shorter by compressing, as one that does is taken for an attack.
QByteArray noise(qsizetype length) {
    QByteArray result(length, ' ');
    quint32 state = 1;
    for (char &c : result) {
        state = state * 1664525 + 1013904223;
        c = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_"[state >> 26];
    }
    return result;
}
QByteArray inChunks(const QByteArray &document) {
    constexpr qsizetype chunk = 50000;
    QByteArray result;
    result.reserve(document.size() + document.size() / 1000);
    for (qsizetype i = 0; i < document.size(); i += chunk) {
        const QByteArray part = document.mid(i, chunk);
        result.append(QByteArray::number(part.size(), 16)).append("\r\n").append(part).append("\r\n");
    }
    return result + "0\r\n\r\n";
}
/// In the form of zlib, which HTTP calls "deflate".
QByteArray compressed(const QByteArray &document) { return qCompress(document, 1).sliced(4); }

const Shape shapes[] = {
    {"EmptyEntries", true, [] { return list("{}"); }, 0},
    {"TinyEntries", true, [] { return list(R"({"type":"build"})"); }, 0},
    {"TinyOlderEntries", true,
     [] { return list(R"({"type":"build","build":"1","webpageURL":"http://e/"})"); }, many},
    {"TinyNewerEntries", true,
     [] { return list(R"({"type":"build","build":"9999","url":"","webpageURL":"http://e/"})"); }, many},
    {"TiniestNewerEntries", true, [] { return list(R"({"type":"build","build":9,"webpageURL":"a:b"})"); }},
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
    {"TinyPosts", true, [] { return list(R"({"type":"post","url":"a:b"})"); }, many},
    {"Posts", true,
     [] { return list(R"({"type":"post","url":"http://e/","pad":")" + padded(220) + R"("})"); }},
    {"LongText", true, [] { return entry(R"("description":")" + padded(size - 1000) + '"'); }, 1},
    {"LongTextInChunks", true, [] { return longText("description"); }, 1, Way::InChunks},
    {"LongTextCompressed", true, [] { return entry(R"("description":")" + noise(size - 1000) + '"'); }, 1,
     Way::Compressed},
    {"TinyPostsInChunks", true, [] { return list(R"({"type":"post","url":"a:b"})"); }, many, Way::InChunks},
    {"LongTitle", true, [] { return longText("title"); }, 1},
    {"LongDate", true, [] { return longText("date"); }, 1},
    {"LongBuild", true, [] { return longText("build", "build", R"("webpageURL":"http://e/",)", "9999."); },
     1},
    {"LongVersion", true, [] { return longText("version"); }, 1},
    {"LongAddress", true,
     [] { return longText("downloadURL", "build", R"("build":"9999",)", "https://e.org/"); }, 0},
    {"LongAddressOfThePage", true,
     [] { return longText("webpageURL", "build", R"("build":"9999",)", "a:%"); }, 0},
    {"LongAddressOfNotes", true,
     [] {
         return longText("releaseNotesURL", "build", R"("build":"9999","webpageURL":"a:b",)", "http://e/ ");
     },
     1},
    {"LongSize", true, [] { return longText("preferredDisplaySize"); }, 1},
    {"LongBound", true, [] { return longText("maxSystemVersion"); }, 0},
    {"LongLaunch", true, [] { return longText("launch"); }, 1},
    {"LongUnknownType", true, [] { return entry("\"title\":\"\",\"type\":\"" + padded(size - 1000) + '"'); },
     0},
    {"LongTitleOfAPost", true, [] { return longText("title", "post", R"("url":"a:b",)"); }, 1},
    {"LongDateOfAPost", true, [] { return longText("date", "post", R"("url":"a:b",)"); }, 1},
    {"LongAddressOfAPost", true, [] { return longText("url", "post", {}, "http://e/\xC3\xBC "); }, 0},
    {"LongBoundOfAPost", true, [] { return longText("minBuild", "post", R"("url":"a:b",)"); }, 1},
    {"LongNameOfATrack", true, [] { return "{\"" + padded(size - 1000) + "\":[]}"; }, 0},
    {"LongNameOfNoTrack", true, [] { return "{\"" + padded(size - 1000) + "\":1}"; }, refused},
    {"LongNameOfATrackWithoutEntries", true, [] { return "{\"" + padded(size - 1000) + "\":[1]}"; }, refused},
    {"ListOfNumbers", true,
     [] { return entry("\"title\":[" + QByteArray("8e15,").repeated(60000) + "8e15]"); }, 1},
    {"ListsOfNumbersInEntries", true,
     [] {
         return list(R"({"type":"build","build":"9999","webpageURL":"a:b","title":[)" +
                     QByteArray("8e15,").repeated(50000) + "8e15]}");
     },
     67},
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
     [] { return channel("<item><sparkle:version>9999</sparkle:version><link>a:b</link></item>"); }, many},
    {"NewerItems", false,
     [] {
         return channel("<item><sparkle:version>9999</sparkle:version><link>http://e/</link><x>" +
                        padded(200) + "</x></item>");
     }},
    {"LongDescription", false, [] { return item("x", "<description>", "</description>"); }, 1},
    {"LongDescriptionInChunks", false, [] { return item("x", "<description>", "</description>"); }, 1,
     Way::InChunks},
    {"LongTitleOfAnItem", false, [] { return item("x", "<title>", "</title>"); }, 1},
    {"LongDateOfAnItem", false, [] { return item("x", "<pubDate>", "</pubDate>"); }, 1},
    {"LongLink", false, [] { return item("x", "<link>http://e/ ", "</link>"); }, 0},
    {"LongNotesLink", false,
     [] { return item("x", "<sparkle:releaseNotesLink>http://e/ ", "</sparkle:releaseNotesLink>"); }, 1},
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
    HttpReply reply = shape.isJson ? HttpReply::json(document) : HttpReply::file(document, "text/xml");
    if (shape.way == Way::InChunks) {
        reply.body = inChunks(document);
        reply.headers.emplaceBack("Transfer-Encoding", "chunked");
        reply.announcedLength = -1;
    } else if (shape.way == Way::Compressed) {
        reply.body = compressed(document);
        reply.headers.emplaceBack("Content-Encoding", "deflate");
    }
    FeedServer server;
    server.always([&](const HttpRequest &request) {
        return request.path() == "/small" ? HttpReply::json("{}") : reply;
    });
    QProcess process;
    process.start(tx::test::helpersFolder() + u"/feed_reader"_s,
                  {server.url(u"/small"_s), server.url(u"/feed"_s)});
    ASSERT_TRUE(process.waitForFinished(200000)) << "not in bounded time";
    ASSERT_EQ(process.exitCode(), 0);
    const QByteArray output = process.readAllStandardOutput();
    const QList<QByteArray> words = output.split(' ');
    ASSERT_GE(words.size(), 2) << process.readAllStandardError().constData();
    const double times = words[0].toDouble() * 1024 / static_cast<double>(document.size());
    RecordProperty("times", std::to_string(times));
    EXPECT_GT(times, 0.9) << "the document itself counts";
    EXPECT_LE(times, *TEST_SANITIZERS ? 60 : mostTimes) << output.constData();
    const int items = words[1].toInt();
    EXPECT_TRUE(shape.items == any || items == shape.items || (shape.items == many && items >= 100000))
        << output.constData();
}

INSTANTIATE_TEST_SUITE_P(Shapes, FeedMemory, testing::ValuesIn(shapes),
                         [](const auto &shape) { return std::string(shape.param.name); });

} // namespace
