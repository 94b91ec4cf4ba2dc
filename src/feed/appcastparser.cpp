// SPDX-License-Identifier: MIT
#include "feed/appcastparser.h"

#include "feed/readercontext.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

constexpr int deepestNesting = 256;
/// How far entities may expand a document: so many times its length, but at least one mebibyte. The strings
/// among that may be at most twice as long as the document.
constexpr size_t largestAmplification = 10;
constexpr size_t longestTexts = 2;
constexpr size_t amplificationThreshold = 1 << 20;
/// The parser compares each attribute of a tag with every other one, and creates objects for the declarations
/// of a document type.
constexpr qsizetype longestTag = 16 << 10;
constexpr qsizetype longestDoctype = 64 << 10;
/// Bytes of all the names that the parser keeps.
constexpr size_t longestNames = 1 << 20;
constexpr size_t mostElementsOfAnItem = 1000;
/// What an element or a reference counts towards that limit, in addition to its text.
constexpr size_t costOfElement = 16;

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
    // In nearly all strings the ends are ASCII. Otherwise look at them character by character, because a
    // string may be as long as the document.
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    const auto isSpaceOf = [](std::string_view character) {
        const QString wide = QString::fromUtf8(character.data(), static_cast<qsizetype>(character.size()));
        return wide.size() == 1 && wide.front().isSpace();
    };
    const auto isContinued = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    std::string_view view = text;
    while (!view.empty() && (!isAscii(view.front()) || isPlainSpace(view.front()))) {
        size_t length = 1;
        while (length < view.size() && isContinued(view[length]))
            ++length;
        if (!isSpaceOf(view.substr(0, length)))
            break;
        view.remove_prefix(length);
    }
    while (!view.empty() && (!isAscii(view.back()) || isPlainSpace(view.back()))) {
        size_t length = 1;
        while (length < view.size() && isContinued(view[view.size() - length]))
            ++length;
        if (!isSpaceOf(view.substr(view.size() - length)))
            break;
        view.remove_suffix(length);
    }
    if (view.size() != text.size()) {
        const auto offset = static_cast<size_t>(view.data() - text.data());
        text.resize(offset + view.size());
        text.erase(0, offset);
    }
}

struct DeleteContext {
    void operator()(xmlParserCtxt *context) const {
        xmlFreeDoc(context->myDoc); // the declarations of the document's own DTD
        xmlFreeParserCtxt(context);
    }
};

class Parser {
public:
    Parser(const QByteArray &document, const AppcastVisitor &visit)
        : m_visit(visit)
        , m_document(document)
        , m_mostDelivered(
              std::max(static_cast<size_t>(document.size()) * largestAmplification, amplificationThreshold))
        , m_mostText(std::max(static_cast<size_t>(document.size()) * longestTexts, amplificationThreshold))
        // In pieces, because the parser copies a document that it gets as a whole.
        , m_context(document.isEmpty()
                        ? nullptr
                        : xmlCreateIOParserCtxt(
                              nullptr, nullptr,
                              [](void *parser, char *buffer, int length) {
                                  return static_cast<Parser *>(parser)->readMore(buffer, length);
                              },
                              nullptr, this, XML_CHAR_ENCODING_NONE)) {}

    TXError parse() {
        if (!m_context)
            return unreadableFeed(u"the document is empty"_s);
        m_context->_private = this;
        xmlCtxtUseOptions(m_context.get(), options | XML_PARSE_HUGE);
        setHandlers(*m_context->sax);
        xmlDictSetLimit(m_context->dict, longestNames);
        xmlParseDocument(m_context.get());
        if (m_visitorError)
            return m_visitorError;
        if (m_context->wellFormed && m_error.isNull())
            return {};
        return unreadableFeed(u"%1 (line %2, column %3)"_s.arg(m_error.isNull() ? u"it is broken"_s : m_error)
                                  .arg(m_line)
                                  .arg(m_column));
    }

private:
    /// The number of elements from the root to an item.
    static constexpr int itemDepth = 3;
    /// Entities of the document's own DTD are expanded.
    static constexpr int options = XML_PARSE_NONET | XML_PARSE_NOENT;

    static Parser &self(void *context) {
        return *static_cast<Parser *>(static_cast<xmlParserCtxt *>(context)->_private);
    }
    static const char *plain(const xmlChar *text) { return reinterpret_cast<const char *>(text); }

    /// Gives the parser the next piece of the document. The parser reads a tag or a document type completely
    /// before it reports it, and needs more memory than its length, so both are ended here if they are too
    /// long.
    int readMore(char *buffer, int length) {
        const bool isInDoctype = m_doctypeBegin >= 0;
        const auto state = m_context ? m_context->instate : XML_PARSER_START;
        const bool mayBeTag = state == XML_PARSER_CONTENT || state == XML_PARSER_ATTRIBUTE_VALUE ||
                              state == XML_PARSER_START_TAG;
        if (!mayBeTag)
            m_lastEvent = m_position; // comments and other parts that are not reported
        // The parser must not be stopped here, in the middle of its input. Without more input it ends by
        // itself.
        if (isInDoctype && m_position - m_doctypeBegin > longestDoctype)
            return noteHere(u"its document type is longer than %1 bytes"_s.arg(longestDoctype));
        if (m_position - m_lastEvent > longestTag)
            return noteHere(u"a tag is longer than %1 bytes"_s.arg(longestTag));
        constexpr qsizetype piece = 4096; // bytes that are read ahead count as read
        const auto count = std::min({qsizetype(length), piece, m_document.size() - m_position});
        std::memcpy(buffer, m_document.constData() + m_position, static_cast<size_t>(count));
        m_position += count;
        return static_cast<int>(count);
    }

    static void setHandlers(xmlSAXHandler &handler) {
        // The older interface reports elements and attributes with their names as written.
        handler.initialized = 1;
        handler.startElementNs = nullptr;
        handler.endElementNs = nullptr;
        handler.startElement = [](void *context, const xmlChar *name, const xmlChar **attributes) {
            static const char *const none[] = {nullptr};
            self(context).begin(static_cast<xmlParserCtxt *>(context), plain(name),
                                attributes ? reinterpret_cast<const char *const *>(attributes) : none);
        };
        handler.endElement = [](void *context, const xmlChar *) {
            self(context).end(static_cast<xmlParserCtxt *>(context));
        };
        handler.characters = [](void *context, const xmlChar *text, int length) {
            self(context).add(static_cast<xmlParserCtxt *>(context),
                              {plain(text), static_cast<size_t>(length)});
        };
        handler.ignorableWhitespace = handler.characters;
        handler.cdataBlock = handler.characters;
        handler.comment = nullptr;
        handler.processingInstruction = nullptr;
        handler.reference = nullptr;
        handler.error = noteError;
        handler.fatalError = nullptr;
        handler.warning = nullptr;
        // The parser's limits stay for a document with its own DTD. Without one, a long string may exceed
        // them.
        handler.internalSubset = [](void *context, const xmlChar *name, const xmlChar *externalId,
                                    const xmlChar *systemId) {
            self(context).m_doctypeBegin = self(context).m_position;
            xmlCtxtUseOptions(static_cast<xmlParserCtxt *>(context), options);
            xmlSAX2InternalSubset(context, name, externalId, systemId);
        };
        // Nothing outside the document is opened; external entities are empty.
        handler.externalSubset = nullptr;
        handler.resolveEntity = [](void *, const xmlChar *, const xmlChar *) { return xmlParserInputPtr(); };
        handler.getEntity = [](void *context, const xmlChar *name) {
            return self(context).counted(context, xmlSAX2GetEntity(context, name));
        };
        handler.getParameterEntity = [](void *context, const xmlChar *name) {
            return self(context).counted(context, xmlSAX2GetParameterEntity(context, name));
        };
        handler.entityDecl = [](void *context, const xmlChar *name, int type, const xmlChar *publicId,
                                const xmlChar *systemId, xmlChar *content) {
            xmlChar empty[] = {0};
            if (type == XML_EXTERNAL_GENERAL_PARSED_ENTITY)
                xmlSAX2EntityDecl(context, name, XML_INTERNAL_GENERAL_ENTITY, nullptr, nullptr, empty);
            else if (type == XML_EXTERNAL_PARAMETER_ENTITY)
                xmlSAX2EntityDecl(context, name, XML_INTERNAL_PARAMETER_ENTITY, nullptr, nullptr, empty);
            else
                xmlSAX2EntityDecl(context, name, type, publicId, systemId, content);
        };
    }

    /// The parser reports an error in parts, but also stores it as a whole.
    static void noteError(void *context, const char *, ...) {
        self(context).note(static_cast<xmlParserCtxt *>(context)->lastError);
    }

    /// The first error is the cause; later ones follow from it.
    void note(const xmlError &error) {
        if (error.level < XML_ERR_ERROR || !m_error.isNull())
            return;
        m_error = QString::fromUtf8(error.message).trimmed();
        m_line = error.line;
        m_column = error.int2;
    }

    int noteHere(const QString &why) {
        if (m_error.isNull()) {
            m_error = why;
            m_line = xmlSAX2GetLineNumber(m_context.get());
            m_column = xmlSAX2GetColumnNumber(m_context.get());
        }
        return -1;
    }

    void stop(xmlParserCtxt *context, const QString &why) {
        if (m_error.isNull()) {
            m_error = why;
            m_line = xmlSAX2GetLineNumber(context);
            m_column = xmlSAX2GetColumnNumber(context);
        }
        xmlStopParser(context);
    }

    /// The entity, or none once entities have expanded too far. The parser reads nested entities in separate
    /// contexts; without an entity it ends in any of them.
    xmlEntityPtr counted(void *context, xmlEntityPtr entity) {
        const size_t length = entity && entity->length > 0 ? static_cast<size_t>(entity->length) : 0;
        return isBounded(static_cast<xmlParserCtxt *>(context), costOfElement, length) ? entity : nullptr;
    }

    /// Counts how far the document has expanded; false if that is too much.
    bool isBounded(xmlParserCtxt *context, size_t cost, size_t text) {
        m_lastEvent = m_position;
        m_delivered += cost + text;
        m_deliveredText += text;
        if (m_delivered <= m_mostDelivered && m_deliveredText <= m_mostText)
            return true;
        stop(context, u"its entities expand to too much"_s);
        return false;
    }

    void begin(xmlParserCtxt *context, const char *name, const char *const *attributes) {
        ++m_depth;
        m_doctypeBegin = -1; // it has ended
        if (m_depth > deepestNesting)
            stop(context, u"elements are nested more than %1 deep"_s.arg(deepestNesting));
        else if (!isBounded(context, costOfElement, 0))
            return;
        else if (m_depth <= itemDepth)
            beginOnPath(name, attributes);
        else if (m_inItem && m_depth == itemDepth + 1)
            beginChild(context, name, attributes);
    }

    /// Follows /rss/channel/item, whose names are in no namespace.
    void beginOnPath(const char *name, const char *const *attributes) {
        constexpr std::array<const char *, itemDepth> path{"rss", "channel", "item"};
        const auto level = static_cast<size_t>(m_depth - 1);
        bool inNamespace = level > 0 && m_inNamespace[level - 1];
        for (const char *const *attribute = attributes; *attribute; attribute += 2) {
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

    void beginChild(xmlParserCtxt *context, const char *name, const char *const *attributes) {
        if (std::strcmp(name, "enclosure") == 0) {
            m_item.hasEnclosure = true;
            attributesAsDictionary(attributes, m_item.enclosure);
        } else {
            m_text = &m_item.elements.replace(name);
            if (m_item.elements.size() > mostElementsOfAnItem)
                stop(context, u"an item has more than %1 elements"_s.arg(mostElementsOfAnItem));
        }
    }

    void add(xmlParserCtxt *context, std::string_view text) {
        if (!isBounded(context, 0, text.size()) || !m_text)
            return;
        // A long string gets all its room at once, because growing would copy it again and again. Room that
        // is not used is never touched.
        constexpr size_t isLong = 1 << 20;
        if (const size_t size = m_text->size() + text.size(); size > isLong && size > m_text->capacity())
            m_text->reserve(size + longestTexts * static_cast<size_t>(m_document.size() - m_position));
        m_text->append(text);
    }

    void end(xmlParserCtxt *context) {
        m_lastEvent = m_position;
        if (m_text && m_depth == itemDepth + 1) {
            trim(*m_text);
            m_text = nullptr;
        } else if (m_inItem && m_depth == itemDepth) {
            m_inItem = false;
            m_visitorError = m_visit(m_item, m_index++);
            if (m_visitorError)
                stop(context, {});
        }
        --m_depth;
    }

    const AppcastVisitor &m_visit;
    const QByteArray &m_document;
    qsizetype m_position = 0;      ///< what the parser has been given
    qsizetype m_lastEvent = 0;     ///< the position at the last event
    qsizetype m_doctypeBegin = -1; ///< -1: none
    const size_t m_mostDelivered;
    const size_t m_mostText;
    size_t m_delivered = 0;
    size_t m_deliveredText = 0;
    std::unique_ptr<xmlParserCtxt, DeleteContext> m_context;
    TXError m_visitorError;
    QString m_error;
    int m_line = 1;
    int m_column = 1;
    int m_depth = 0;
    std::array<bool, itemDepth> m_inNamespace{};
    std::array<bool, itemDepth> m_matches{};
    bool m_inItem = false;
    AppcastItem m_item;
    std::string *m_text = nullptr; ///< of the child that is being read
    qsizetype m_index = 0;
};

} // namespace

TXError forEachAppcastItem(const QByteArray &document, const AppcastVisitor &visit) {
    return Parser(document, visit).parse();
}

} // namespace tx
