// SPDX-License-Identifier: MIT
#include "feed/jsonentries.h"

#include "feed/jsonvalues.h"

#include <QList>

namespace tx {

namespace {

error_code readMember(ondemand::value value, JsonMember &member) {
    ondemand::json_type type{};
    if (const error_code error = value.type().get(type))
        return error;
    if (type == ondemand::json_type::null)
        return readNull(value);
    member.isText = type == ondemand::json_type::string;
    if (!member.isText) {
        std::string json;
        const error_code error = walk(value, depthOfMember, &json);
        member.text = fromUtf8(json);
        return error;
    }
    std::string_view text;
    const error_code error = readText(value, text);
    member.text = fromUtf8(text);
    return error;
}

error_code readEntry(ondemand::value value, JsonEntry &entry) {
    ondemand::object object;
    if (const error_code error = value.get_object().get(object))
        return error;
    for (auto field : object) {
        std::string_view name;
        ondemand::value content;
        JsonMember member;
        error_code error = readName(field, name);
        const QString key = fromUtf8(name);
        if (!error)
            error = field.value().get(content);
        if (!error)
            error = readMember(content, member);
        if (error)
            return error;
        entry.insert(key, member);
    }
    return simdjson::SUCCESS;
}

error_code readTrack(ondemand::value value, QList<JsonEntry> &entries) {
    ondemand::array array;
    if (const error_code error = value.get_array().get(array))
        return error;
    for (auto element : array) {
        ondemand::value content;
        JsonEntry entry;
        error_code error = element.get(content);
        if (!error)
            error = readEntry(content, entry);
        if (error)
            return error;
        entries.append(entry);
    }
    return simdjson::SUCCESS;
}

} // namespace

bool forEachJsonEntry(const QByteArray &feed,
                      const std::function<void(const QString &, const JsonEntry &, qsizetype)> &work) {
    const PaddedDocument bytes(feed);
    ondemand::parser parser;
    ondemand::document document;
    ondemand::object members;
    if (parser.allocate(bytes.size(), size_t(deepestNesting) + 16) ||
        parser.iterate(bytes.view()).get(document) || document.get_object().get(members))
        return false;
    QMap<QString, QList<JsonEntry>> tracks;
    for (auto member : members) {
        std::string_view name;
        ondemand::value value;
        QList<JsonEntry> entries;
        if (readName(member, name))
            return false;
        const QString key = fromUtf8(name);
        if (member.value().get(value) || readTrack(value, entries))
            return false;
        tracks.insert(key, entries);
    }
    for (auto track = tracks.cbegin(); track != tracks.cend(); ++track) {
        qsizetype index = 0;
        for (const JsonEntry &entry : *track)
            work(track.key(), entry, index++);
    }
    return true;
}

} // namespace tx
