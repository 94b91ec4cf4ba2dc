// SPDX-License-Identifier: MIT
#include "publish/feeddocument.h"

#include "feed/jsonvalues.h"
#include "publish/faults.h"
#include "trust/firstline.h"
#include "trust/signaturetext.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMap>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

Fault input(const std::string &what) { return {FaultKind::Input, what}; }

const Fault notAFeed{FaultKind::Input,
                     "the feed cannot be read: an object of lists of objects was expected, "
                     "in JSON. See txupdate feed validate. (Appcasts are edited by hand and "
                     "signed by txupdate feed sign.)"};

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::optional<trust::FeedClaim> claimOf(const trust::FirstLine &line) {
    for (const std::string &text : line.texts) {
        const auto parsed = trust::SignatureText::parse(text);
        if (!parsed || parsed->words().first() != trust::feedWord)
            continue;
        const auto claim = trust::parseFeedComment(parsed->words());
        if (claim)
            return *claim;
    }
    return std::nullopt;
}

/// The offsets of lists and their elements in a document.
class Places {
public:
    explicit Places(const PaddedDocument &document)
        : m_begin(document.view().data()) {}

    std::pair<qsizetype, qsizetype> of(std::string_view raw) const {
        while (!raw.empty() && isBlank(raw.back()))
            raw.remove_suffix(1);
        const qsizetype begin = raw.data() - m_begin;
        return {begin, begin + qsizetype(raw.size())};
    }

private:
    const char *m_begin;
};

/// Adds the position of each element of the list `raw`. All elements must be objects.
bool addElements(std::string_view raw, qsizetype offset, QList<std::pair<qsizetype, qsizetype>> &elements) {
    const PaddedDocument copy(QByteArray(raw.data(), qsizetype(raw.size())));
    const Places places(copy);
    ondemand::parser parser;
    ondemand::document document;
    ondemand::array array;
    if (parser.iterate(copy.view()).get(document) || document.get_array().get(array))
        return false;
    for (auto element : array) {
        ondemand::object object;
        std::string_view text;
        if (element.get_object().get(object) || object.raw_json().get(text))
            return false;
        const auto [begin, end] = places.of(text);
        elements.append({begin + offset, end + offset});
    }
    return true;
}

} // namespace

QByteArray jsonString(const QString &text) {
    const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return list.mid(1, list.size() - 2);
}

QByteArray entryText(const EntryMembers &members) {
    QByteArray text = "{";
    for (const auto &[name, value] : members)
        text += (text.size() > 1 ? ",\n      " : "\n      ") + jsonString(name) + ": " + value;
    return text + "\n    }";
}

Outcome<FeedDocument> FeedDocument::parse(const QByteArray &bytes) {
    FeedDocument result;
    const QByteArray document = asUtf8(bytes);
    const Outcome<std::optional<trust::FirstLine>> line =
        trust::parseFirstLine({document.constData(), size_t(document.size())});
    if (!line)
        return line.fault();
    if (*line && (*line)->format != trust::FeedFormat::Json)
        return notAFeed;
    if (*line) {
        result.m_line = document.left(qsizetype((*line)->bodyAt));
        result.m_body = '{' + document.mid(qsizetype((*line)->bodyAt));
        result.m_claim = claimOf(**line);
    } else {
        result.m_body = document.trimmed().isEmpty() ? QByteArray("{\n}\n") : document;
    }

    QMap<QString, QList<JsonEntry>> values;
    if (!forEachJsonEntry(result.m_body, [&](const QString &track, const JsonEntry &entry, qsizetype) {
            values[track].append(entry);
        }))
        return notAFeed;
    const PaddedDocument copy(result.m_body);
    const Places places(copy);
    ondemand::parser parser;
    ondemand::document parsed;
    ondemand::object members;
    if (parser.iterate(copy.view()).get(parsed) || parsed.get_object().get(members))
        return notAFeed;
    for (auto member : members) {
        Track track;
        std::string_view name;
        ondemand::array list;
        std::string_view raw;
        if (readName(member, name))
            return notAFeed;
        track.name = fromUtf8(name);
        if (member.value().get_array().get(list) || list.raw_json().get(raw))
            return notAFeed;
        std::tie(track.begin, track.end) = places.of(raw);
        if (!addElements(raw, track.begin, track.elements))
            return notAFeed;
        const QList<JsonEntry> entries = values.take(track.name);
        if (entries.size() != track.elements.size())
            return input("the feed has the track \"" + track.name.toStdString() +
                         "\" twice, and applications see only the last one. Make one of them");
        for (qsizetype i = 0; i < entries.size(); ++i) {
            const auto [begin, end] = track.elements[i];
            result.m_entries.append({track.name, i, entries[i], result.m_body.mid(begin, end - begin)});
        }
        result.m_tracks.append(track);
    }
    return result;
}

QByteArray FeedDocument::listWith(const Track &track, const QList<QByteArray> &added,
                                  const QList<qsizetype> &kept) const {
    const auto between = [this](qsizetype begin, qsizetype end) { return m_body.mid(begin, end - begin); };
    QByteArray lead = "\n    "; // text between "[" and the first element
    QByteArray tail = "\n  ";   // text between the last element and "]"
    if (!track.elements.isEmpty()) {
        lead = between(track.begin + 1, track.elements.first().first);
        tail = between(track.elements.last().second, track.end - 1);
    }
    QByteArray list = "[";
    bool isFirst = true;
    for (const QByteArray &text : added) {
        list += (isFirst ? lead : "," + lead) + text;
        isFirst = false;
    }
    for (const qsizetype index : kept) {
        const auto [begin, end] = track.elements[index];
        if (isFirst)
            list += lead;
        else if (index == 0)
            list += "," + lead;
        else
            list += between(track.elements[index - 1].second, begin);
        list += between(begin, end);
        isFirst = false;
    }
    return list + (isFirst ? QByteArray() : tail) + ']';
}

Outcome<QByteArray> FeedDocument::edited(const QString &name, const QList<QByteArray> &added,
                                         const QList<qsizetype> &dropped) const {
    QByteArray body = m_body;
    QList<QByteArray> expected; // the entries' texts after the edit
    bool isThere = false;
    QMap<QString, QList<qsizetype>> kept;
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        if (!dropped.contains(i))
            kept[m_entries[i].track].append(m_entries[i].index);
    }
    for (auto track = m_tracks.crbegin(); track != m_tracks.crend(); ++track) {
        const bool isTheOne = track->name == name;
        isThere = isThere || isTheOne;
        const QList<qsizetype> here = kept.value(track->name);
        if (!isTheOne && here.size() == track->elements.size())
            continue;
        body.replace(track->begin, track->end - track->begin,
                     listWith(*track, isTheOne ? added : QList<QByteArray>(), here));
    }
    if (!isThere && !added.isEmpty()) {
        Track track;
        track.end = 2;
        const QByteArray member = jsonString(name) + ": " + listWith(track, added, {});
        qsizetype end = body.lastIndexOf('}');
        while (end > 0 && isBlank(body[end - 1]))
            --end;
        body.insert(end, (m_tracks.isEmpty() ? "\n  " : ",\n  ") + member);
    }

    // The result was assembled as text. Parse it to make sure that it contains the intended entries.
    for (const Track &track : m_tracks) {
        if (track.name == name)
            expected += added;
        for (const Entry &entry : m_entries) {
            if (entry.track == track.name && kept.value(entry.track).contains(entry.index))
                expected.append(entry.text);
        }
    }
    if (!isThere)
        expected += added;
    const QByteArray document = m_line.isEmpty() ? body : m_line + body.mid(body.indexOf('{') + 1);
    const Outcome<FeedDocument> again = parse(document);
    if (!again)
        return again.fault();
    const bool isAsMeant =
        std::equal(again->m_entries.begin(), again->m_entries.end(), expected.begin(), expected.end(),
                   [](const Entry &entry, const QByteArray &text) { return entry.text == text; });
    if (!isAsMeant)
        return input("the feed cannot be edited without changing other entries. Let txupdate feed validate "
                     "look at it");
    return document;
}

} // namespace tx::publishing
