// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <libxml/parser.h>
#include <libxml/xpath.h>

#include <cstring>
#include <string>
#include <vector>

/// The fields that an update is made of, as plain strings.
struct PlainItem {
    std::string title, description, date, notes, link, url, version, displayVersion, extra;
};

/// The yardstick of the appcast reader: libxml2's document tree, its items by XPath, each field by name.
inline std::vector<PlainItem> itemsWithLibxml(const QByteArray &document) {
    const auto isNamed = [](const xmlNode *node, const char *name) {
        return std::strcmp(reinterpret_cast<const char *>(node->name), name) == 0;
    };
    const auto taken = [](xmlChar *text) {
        std::string result = text ? reinterpret_cast<const char *>(text) : "";
        xmlFree(text);
        return result;
    };
    const auto attribute = [&](xmlNode *node, const char *name) {
        return taken(xmlGetProp(node, reinterpret_cast<const xmlChar *>(name)));
    };
    std::vector<PlainItem> items;
    xmlDoc *tree = xmlReadMemory(document.constData(), static_cast<int>(document.size()), nullptr, nullptr,
                                 XML_PARSE_NONET | XML_PARSE_HUGE);
    xmlXPathContext *context = xmlXPathNewContext(tree);
    xmlXPathObject *found =
        xmlXPathEvalExpression(reinterpret_cast<const xmlChar *>("/rss/channel/item"), context);
    for (int i = 0; i < found->nodesetval->nodeNr; ++i) {
        PlainItem item;
        for (xmlNode *child = found->nodesetval->nodeTab[i]->children; child; child = child->next) {
            if (child->type != XML_ELEMENT_NODE)
                continue;
            if (isNamed(child, "title"))
                item.title = taken(xmlNodeGetContent(child));
            else if (isNamed(child, "description"))
                item.description = taken(xmlNodeGetContent(child));
            else if (isNamed(child, "pubDate"))
                item.date = taken(xmlNodeGetContent(child));
            else if (isNamed(child, "releaseNotesLink"))
                item.notes = taken(xmlNodeGetContent(child));
            else if (isNamed(child, "link"))
                item.link = taken(xmlNodeGetContent(child));
            else if (isNamed(child, "enclosure")) {
                item.url = attribute(child, "url");
                item.version = attribute(child, "version");
                item.displayVersion = attribute(child, "shortVersionString");
                item.extra = attribute(child, "extra");
            }
        }
        items.push_back(std::move(item));
    }
    xmlXPathFreeObject(found);
    xmlXPathFreeContext(context);
    xmlFreeDoc(tree);
    return items;
}
