// SPDX-License-Identifier: MIT
#include "feed/appcastparser.h"

#include "feed/readercontext.h"

#define XML_DTD // expat.h declares the limits for entities only then
#include <expat.h>

#include <array>
#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

constexpr int deepestNesting = 256;
/// Entities may make a document this many times longer, once it is longer than a mebibyte.
constexpr float largestAmplification = 10;
constexpr unsigned long long amplificationThreshold = 1ULL << 20;

/// White space at the ends of a text. A no-break space is none: it is there to be seen.
bool isTrimmed(QChar c) {
    constexpr QChar noBreakSpaces[] = {u'\u00A0', u'\u2007', u'\u202F'};
    return c.isSpace() &&
           std::find(std::begin(noBreakSpaces), std::end(noBreakSpaces), c) == std::end(noBreakSpaces);
}

bool isPlainSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Drops white space and line breaks from both ends.
void trim(std::string &text) {
    size_t end = text.size();
    while (end > 0 && isPlainSpace(text[end - 1]))
        --end;
    text.resize(end);
    size_t begin = 0;
    while (begin < end && isPlainSpace(text[begin]))
        ++begin;
    text.erase(0, begin);
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (text.empty() || (isAscii(text.front()) && isAscii(text.back())))
        return;
    const QString wide = QString::fromStdString(text);
    QStringView view = wide;
    while (!view.isEmpty() && isTrimmed(view.front()))
        view = view.mid(1);
    while (!view.isEmpty() && isTrimmed(view.back()))
        view.chop(1);
    if (view.size() != wide.size())
        text = view.toUtf8().toStdString();
}

class Parser {
public:
    using Visitor = std::function<void(const AppcastItem &, qsizetype)>;

    explicit Parser(const Visitor &visit)
        : m_visit(visit)
        , m_parser(XML_ParserCreate(nullptr), XML_ParserFree) {
        XML_SetUserData(m_parser.get(), this);
        XML_SetElementHandler(
            m_parser.get(),
            [](void *self, const char *name, const char **attributes) {
                static_cast<Parser *>(self)->begin(name, attributes);
            },
            [](void *self, const char *) { static_cast<Parser *>(self)->end(); });
        XML_SetCharacterDataHandler(m_parser.get(), [](void *self, const char *text, int length) {
            static_cast<Parser *>(self)->add({text, static_cast<size_t>(length)});
        });
        XML_SetBillionLaughsAttackProtectionMaximumAmplification(m_parser.get(), largestAmplification);
        XML_SetBillionLaughsAttackProtectionActivationThreshold(m_parser.get(), amplificationThreshold);
    }

    TXError parse(const QByteArray &document) {
        const XML_Status status =
            XML_Parse(m_parser.get(), document.constData(), static_cast<int>(document.size()), XML_TRUE);
        if (status == XML_STATUS_OK)
            return {};
        const QString what = m_tooDeep ? u"elements are nested more than %1 deep"_s.arg(deepestNesting)
                                       : QString::fromUtf8(XML_ErrorString(XML_GetErrorCode(m_parser.get())));
        return unreadableFeed(u"%1 (line %2, column %3)"_s.arg(what)
                                  .arg(XML_GetCurrentLineNumber(m_parser.get()))
                                  .arg(XML_GetCurrentColumnNumber(m_parser.get()) + 1));
    }

private:
    /// How many elements from the top lead to an item.
    static constexpr int itemDepth = 3;

    void begin(const char *name, const char **attributes) {
        ++m_depth;
        if (m_depth > deepestNesting) {
            m_tooDeep = true;
            XML_StopParser(m_parser.get(), XML_FALSE);
        } else if (m_depth <= itemDepth) {
            beginOnPath(name, attributes);
        } else if (m_inItem && m_depth == itemDepth + 1) {
            beginChild(name, attributes);
        }
    }

    /// Follows /rss/channel/item, whose names are in no namespace.
    void beginOnPath(const char *name, const char **attributes) {
        constexpr std::array<const char *, itemDepth> path{"rss", "channel", "item"};
        const auto level = static_cast<size_t>(m_depth - 1);
        bool inNamespace = level > 0 && m_inNamespace[level - 1];
        for (const char **attribute = attributes; *attribute; attribute += 2) {
            if (std::strcmp(attribute[0], "xmlns") == 0)
                inNamespace = attribute[1][0] != '\0';
        }
        m_inNamespace[level] = inNamespace;
        m_matches[level] =
            (level == 0 || m_matches[level - 1]) && !inNamespace && std::strcmp(name, path[level]) == 0;
        if (m_depth == itemDepth && m_matches[level]) {
            m_inItem = true;
            m_item.clear();
        }
    }

    void beginChild(const char *name, const char **attributes) {
        if (std::strcmp(name, "enclosure") == 0) {
            m_item.hasEnclosure = true;
            attributesAsDictionary(attributes, m_item.enclosure);
        } else {
            m_text = &m_item.elements.replace(name);
        }
    }

    void add(std::string_view text) {
        if (m_text)
            m_text->append(text);
    }

    void end() {
        if (m_text && m_depth == itemDepth + 1) {
            trim(*m_text);
            m_text = nullptr;
        } else if (m_inItem && m_depth == itemDepth) {
            m_inItem = false;
            m_visit(m_item, m_index++);
        }
        --m_depth;
    }

    const Visitor &m_visit;
    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> m_parser;
    int m_depth = 0;
    bool m_tooDeep = false;
    std::array<bool, itemDepth> m_inNamespace{};
    std::array<bool, itemDepth> m_matches{};
    bool m_inItem = false;
    AppcastItem m_item;
    std::string *m_text = nullptr; ///< of the child that is being read
    qsizetype m_index = 0;
};

} // namespace

TXError forEachAppcastItem(const QByteArray &document,
                           const std::function<void(const AppcastItem &, qsizetype)> &visit) {
    return Parser(visit).parse(document);
}

} // namespace tx
