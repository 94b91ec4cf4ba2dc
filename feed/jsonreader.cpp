// SPDX-License-Identifier: MIT
#include "feed/jsonreader.h"

#include "core/names.h"
#include "core/relevance.h"
#include "core/versioncomparison.h"
#include "feed/feedvalues.h"
#include "feed/updateentry.h"

#include <TarvixUpdate/TXLog.h>

#include <QStringDecoder>

#include <simdjson.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

using Member = FeedEntry::Member;
namespace dom = simdjson::dom;

QString fromUtf8(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

/// A number as people write it: 120, 1.5, 1e+20.
std::string textOfNumber(double number) {
    constexpr double exactLimit = 9007199254740992.0;
    if (number == static_cast<double>(static_cast<qint64>(number)) && std::abs(number) < exactLimit)
        return std::to_string(static_cast<qint64>(number));
    return QByteArray::number(number, 'g', QLocale::FloatingPointShortest).toStdString();
}

/// Stores one member as a text. What is no text stands in its text form.
void store(FeedEntry &entry, Member member, dom::element value) {
    switch (value.type()) {
    case dom::element_type::STRING:
        entry.set(member, value.get_string().value_unsafe());
        break;
    case dom::element_type::INT64:
        entry.setOwned(member, std::to_string(value.get_int64().value_unsafe()));
        break;
    case dom::element_type::UINT64:
        entry.setOwned(member, std::to_string(value.get_uint64().value_unsafe()));
        break;
    case dom::element_type::DOUBLE: {
        const double number = value.get_double().value_unsafe();
        entry.setOwned(member, std::abs(number) < 9e15 ? textOfNumber(number)
                                                       : QByteArray::number(number).toStdString());
        break;
    }
    case dom::element_type::BOOL:
        entry.setOwned(member, value.get_bool().value_unsafe() ? "1" : "0");
        break;
    case dom::element_type::NULL_VALUE:
        entry.clear(member);
        break;
    case dom::element_type::ARRAY:
    case dom::element_type::OBJECT:
        entry.setOwned(member, simdjson::minify(value));
        break;
    }
}

FeedEntry entryFrom(dom::object object) {
    FeedEntry entry;
    for (const dom::key_value_pair &pair : object) {
        if (const std::optional<Member> member = FeedEntry::memberNamed(pair.key))
            store(entry, *member, pair.value);
    }
    return entry;
}

/// False, with the reason, when the entry lacks what an update needs.
bool describesUpdate(const FeedEntry &entry, QString *failureReason) {
    QString reason;
    if (!entry.has(Member::Build))
        reason = u"Update lacks 'build' attribute"_s;
    else if (!hasAddress(entry))
        reason = u"Update lacks download URL or a link."_s;
    if (!reason.isNull() && failureReason)
        *failureReason = reason;
    return reason.isNull();
}

class TrackReader {
public:
    TrackReader(const QString &name, const ReaderContext &context)
        : m_name(name)
        , m_context(context) {}

    TXError read(dom::array entries) {
        qsizetype index = 0;
        for (const dom::element element : entries) {
            dom::object object;
            if (element.get(object) != simdjson::SUCCESS)
                return unreadableFeed(u"entry %1 of the track \"%2\" is no object"_s.arg(index).arg(m_name));
            readEntry(entryFrom(object), index++);
        }
        return {};
    }

    [[nodiscard]] TXUpdateTrackPtr takeTrack() {
        return TXUpdateTrack::trackWithUpdates(
            m_name, [updates = std::move(m_updates)] { return updatesFrom(updates, WithConditions::Yes); },
            m_posts);
    }

private:
    void readEntry(const FeedEntry &entry, qsizetype index) {
        const std::string_view type = entry.bytes(Member::Type);
        if (type == "build")
            readUpdate(entry, index);
        else if (type == "post" || type == "post.v2")
            readPost(entry, index);
        else
            skip(index, entry.has(Member::Type) ? u"unknown type \"%1\""_s.arg(entry.text(Member::Type))
                                                : u"no type"_s);
    }

    void readUpdate(const FeedEntry &entry, qsizetype index) {
        // Most entries of a long feed are for older builds: look at the version and the bounds before
        // anything is made. When reasons are wanted, what is wrong with an entry itself comes first.
        const bool wantsReasons = static_cast<bool>(m_context.skipped);
        const Objection objection = entry.has(Member::Build) ? objectionToUpdate(entry) : Objection::None;
        if (objection != Objection::None && !wantsReasons)
            return;
        QString reason;
        if (!describesUpdate(entry, &reason)) {
            skip(index, reason);
            return;
        }
        logMissingDate(entry);
        if (objection != Objection::None)
            skip(index, describe(objection, TXUpdateItemConditions::conditionsFromDictionary(entry),
                                 entry.text(Member::Build), m_context.appBuild, m_context.systemVersion));
        else
            m_updates.append(entry);
    }

    Objection objectionToUpdate(const FeedEntry &entry) const {
        if (m_context.keepsIrrelevant)
            return Objection::None;
        const bool isBound = entry.has(Member::MinBuild) || entry.has(Member::MaxBuild) ||
                             entry.has(Member::MinSystemVersion) || entry.has(Member::MaxSystemVersion);
        if (isBound) {
            const Objection objection = objectionTo(TXUpdateItemConditions::conditionsFromDictionary(entry),
                                                    m_context.appBuild, m_context.systemVersion);
            if (objection != Objection::None)
                return objection;
        }
        return isVersionNewer(entry.text(Member::Build), m_context.appBuild) ? Objection::None
                                                                             : Objection::NotNewer;
    }

    void readPost(const FeedEntry &entry, qsizetype index) {
        QString reason;
        const TXUpdatePostPtr post = json_postFromDictionary(entry, &reason);
        if (!post) {
            skip(index, reason);
            return;
        }
        if (!m_context.keepsIrrelevant) {
            const QDateTime end = post->endDate();
            const Objection objection =
                objectionTo(*post->conditions(), m_context.appBuild, m_context.systemVersion);
            if (end.isValid() && m_context.now > end)
                reason = u"endDate %1 has passed"_s.arg(post->endDateString());
            else if (objection != Objection::None)
                reason =
                    describe(objection, *post->conditions(), {}, m_context.appBuild, m_context.systemVersion);
        }
        if (reason.isNull())
            m_posts.append(post);
        else
            skip(index, reason);
    }

    void skip(qsizetype index, const QString &reason) const {
        if (m_context.skipped)
            m_context.skipped({m_name, index, reason});
    }

    QString m_name;
    const ReaderContext &m_context;
    PackedEntries m_updates;
    QList<TXUpdatePostPtr> m_posts;
};

} // namespace

QByteArray asUtf8(const QByteArray &data) {
    const auto encoding = QStringConverter::encodingForData(data);
    if (!encoding)
        return data;
    if (*encoding == QStringConverter::Utf8)
        return data.mid(3);
    QStringDecoder decoder(*encoding);
    const QString text = decoder.decode(data);
    // The decoder lets halves of characters pass, which would become question marks.
    return decoder.hasError() || !text.isValidUtf16() ? QByteArray() : text.toUtf8();
}

Result<TXUpdateFeed::TrackMap> readJsonFeed(const QByteArray &data, const ReaderContext &context) {
    const QByteArray document = asUtf8(data);
    constexpr size_t deepestNesting = 256;
    dom::parser parser;
    if (parser.allocate(static_cast<size_t>(document.size()), deepestNesting) != simdjson::SUCCESS)
        return unreadableFeed(u"it is too large"_s);
    dom::element root;
    if (const auto error = parser.parse(document.constData(), static_cast<size_t>(document.size())).get(root))
        return unreadableFeed(QString::fromUtf8(simdjson::error_message(error)));
    dom::object tracks;
    if (root.get(tracks) != simdjson::SUCCESS)
        return unreadableFeed(u"its top level is no object"_s);

    // Of members with the same name the last one counts.
    QMap<QString, dom::element> members;
    for (const dom::key_value_pair &pair : tracks)
        members.insert(fromUtf8(pair.key), pair.value);
    TXUpdateFeed::TrackMap result;
    for (auto it = members.begin(); it != members.end(); ++it) {
        dom::array entries;
        if (it.value().get(entries) != simdjson::SUCCESS)
            return unreadableFeed(u"the track \"%1\" is no list"_s.arg(it.key()));
        TrackReader reader(it.key(), context);
        if (const TXError error = reader.read(entries))
            return error;
        result.insert(it.key(), reader.takeTrack());
    }
    return result;
}

TXUpdatePtr json_updateFromDictionary(const FeedEntry &entry, QString *failureReason) {
    if (!describesUpdate(entry, failureReason))
        return nullptr;
    logMissingDate(entry);
    return updateFrom(entry, WithConditions::Yes);
}

TXUpdatePostPtr json_postFromDictionary(const FeedEntry &entry, QString *failureReason) {
    auto post = std::make_shared<TXUpdatePost>();
    post->setTitle(entry.text(Member::Title));
    post->setDateString(entry.text(Member::Date));
    post->setEndDateString(entry.text(Member::EndDate));
    post->setDisplayTime(TXUpdatePostDisplayTimeFromString(entry.text(Member::Display)));
    post->setConditions(TXUpdateItemConditions::conditionsFromDictionary(entry));
    for (const Member member : {Member::PostURL, Member::Url}) {
        if (const QUrl url = urlFromFeedText(entry.text(member)); !url.isEmpty())
            post->setPostURL(url);
    }
    post->setPreferredDisplaySize(sizeFromFeedText(entry.text(Member::PreferredDisplaySize)));
    if (post->postURL().isEmpty()) {
        if (failureReason)
            *failureReason = u"Post lacks URL."_s;
        return nullptr;
    }
    return post;
}

} // namespace tx
