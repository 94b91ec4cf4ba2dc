// SPDX-License-Identifier: MIT
#include "feed/jsonreader.h"

#include "feed/feedbudget.h"
#include "feed/jsonvalues.h"
#include "model/conditions.h"
#include "model/feedvalues.h"
#include "model/itemdate.h"
#include "model/names.h"
#include "model/post_p.h"
#include "model/relevance.h"
#include "model/track_p.h"
#include "model/updateentry.h"
#include "model/versioncomparison.h"
#include "trust/signaturetext.h"

#include <TarvixUpdate/TXLog.h>

#include <utility>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

using Member = FeedEntry::Member;
/// Stores one member as a string; a value of another type is converted.
error_code store(FeedEntry &entry, Member member, ondemand::value value) {
    ondemand::json_type type{};
    if (const error_code error = value.type().get(type))
        return error;
    std::string_view text;
    error_code error = simdjson::SUCCESS;
    switch (type) {
    case ondemand::json_type::string:
        error = readText(value, text);
        if (!error)
            entry.set(member, text);
        return error;
    case ondemand::json_type::number:
        error = readNumber(value, text);
        if (!error)
            entry.set(member, text);
        return error;
    case ondemand::json_type::boolean: {
        bool boolean = false;
        error = value.get_bool().get(boolean);
        entry.setOwned(member, boolean ? "1" : "0");
        return error;
    }
    case ondemand::json_type::null:
        entry.clear(member);
        return readNull(value);
    default: {
        std::string json;
        error = walk(value, depthOfMember, &json);
        entry.setOwned(member, std::move(json));
        return error;
    }
    }
}

/// Stores a signature or a list of signatures. Any other value is stored unchanged; it is not a valid
/// signature.
error_code storeSignature(FeedEntry &entry, ondemand::value value) {
    ondemand::json_type type{};
    if (const error_code error = value.type().get(type))
        return error;
    if (type != ondemand::json_type::array)
        return store(entry, Member::Signature, value);
    ondemand::array list;
    if (const error_code error = value.get_array().get(list))
        return error;
    std::string texts;
    bool isFirst = true;
    for (auto element : list) {
        ondemand::value child;
        if (const error_code error = element.get(child))
            return error;
        if (const error_code error = child.type().get(type))
            return error;
        std::string_view text = "not a text";
        if (const error_code error = type == ondemand::json_type::string
                                         ? readText(child, text)
                                         : walk(child, depthOfMember + 1, nullptr))
            return error;
        // Strings beyond the limit are not kept. One byte over the limit shows that the limit was exceeded.
        if (texts.size() <= trust::mostTextBytes)
            (texts += std::string_view("\0", isFirst ? 0 : 1)) += text.substr(0, trust::mostTextBytes + 1);
        isFirst = false;
    }
    entry.setOwned(Member::Signature, std::move(texts));
    return simdjson::SUCCESS;
}

/// If `wantsSignature` is false, the member with the signature is ignored like an unknown member.
error_code readMembers(ondemand::object object, FeedEntry &entry, bool wantsSignature) {
    for (auto field : object) {
        std::string_view key;
        ondemand::value value;
        if (const error_code error = readName(field, key))
            return error;
        if (const error_code error = field.value().get(value))
            return error;
        const std::optional<Member> member = FeedEntry::memberNamed(key);
        const bool isSignature = member == Member::Signature;
        error_code error = simdjson::SUCCESS;
        if (isSignature && wantsSignature)
            error = storeSignature(entry, value);
        else
            error =
                member && !isSignature ? store(entry, *member, value) : walk(value, depthOfMember, nullptr);
        if (error)
            return error;
    }
    return simdjson::SUCCESS;
}

TXError brokenDocument(error_code error) {
    if (error == simdjson::CAPACITY)
        return unreadableFeed(
            u"a list or an object, where a text belongs, is longer than %1 bytes"_s.arg(longestTextForm));
    return unreadableFeed(QString::fromUtf8(simdjson::error_message(error)));
}

/// The name of a track, for an error.
QString shown(const QString &name) {
    constexpr qsizetype longest = 100;
    return name.size() > longest ? name.left(longest) + u"..."_s : name;
}

/// An error of the document, which ends reading, or of one track, which a later track of the same name may
/// replace.
struct Outcome {
    TXError document;
    TXError track;
};

/// False, with the reason, if the entry lacks something that an update needs.
bool describesUpdate(const FeedEntry &entry, QString *failureReason) {
    return hasWhatAnUpdateNeeds(entry, u"Update lacks 'build' attribute"_s,
                                u"Update lacks download URL or a link."_s, failureReason);
}

bool describesPost(const FeedEntry &entry, QString *failureReason) {
    const bool result =
        isFeedAddress(entry.bytes(Member::PostURL)) || isFeedAddress(entry.bytes(Member::Url));
    if (!result && failureReason)
        *failureReason = u"Post lacks URL."_s;
    return result;
}

class TrackReader {
public:
    TrackReader(const QString &name, const ReaderContext &context, FeedBudget &budget)
        : m_name(name)
        , m_context(context)
        , m_budget(budget) {}

    Outcome read(ondemand::array entries) {
        qsizetype index = 0;
        TXError noObject;
        for (auto element : entries) {
            ondemand::value value;
            if (const error_code error = element.get(value))
                return {brokenDocument(error), {}};
            ondemand::json_type type{};
            if (const error_code error = value.type().get(type))
                return {brokenDocument(error), {}};
            if (type != ondemand::json_type::object) {
                if (const error_code error = walk(value, depthOfEntry, nullptr))
                    return {brokenDocument(error), {}};
                if (!noObject)
                    noObject = unreadableFeed(
                        u"entry %1 of the track \"%2\" is no object"_s.arg(index).arg(shown(m_name)));
                continue;
            }
            FeedEntry entry;
            ondemand::object object;
            error_code error = value.get_object().get(object);
            if (!error)
                error = readMembers(object, entry, m_context.trust || m_context.keepsSignatures);
            if (error)
                return {brokenDocument(error), {}};
            readEntry(entry, index++);
            if (m_isTooMuch)
                return {unreadableFeed(u"its entries take too much memory"_s), {}};
        }
        return {{}, noObject};
    }

    [[nodiscard]] TXUpdateTrackPtr takeTrack() {
        std::function<QList<TXUpdatePtr>()> makeUpdates;
        if (!m_updates.isEmpty())
            makeUpdates = [updates = std::move(m_updates), isSecure = m_context.isSecure] {
                return updatesFrom(updates, WithConditions::Yes, isSecure);
            };
        std::function<QList<TXUpdatePostPtr>()> makePosts;
        if (!m_posts.isEmpty())
            makePosts = [posts = std::move(m_posts)] {
                QList<TXUpdatePostPtr> result;
                result.reserve(posts.size());
                posts.forEach([&result](PackedEntry entry) {
                    result.append(TXUpdatePostPrivate::make(std::move(entry)));
                });
                return result;
            };
        return TXUpdateTrackPrivate::trackWithItems(m_name, std::move(makeUpdates), std::move(makePosts));
    }

private:
    static constexpr int depthOfEntry = depthOfMember - 1;

    /// `hasRoom`: whether the budget has room for the entry, which matters if a host reads the feed.
    void keep(PackedEntries &entries, const FeedEntry &entry, bool hasRoom) {
        if (m_context.keepsIrrelevant || hasRoom)
            entries.append(entry);
        else
            m_isTooMuch = true;
    }

    void readEntry(const FeedEntry &entry, qsizetype index) {
        const std::string_view type = entry.bytes(Member::Type);
        if (type == "build")
            readUpdate(entry, index);
        else if (type == "post" || type == "post.v2")
            readPost(entry, index);
        else if (m_context.skipped)
            skip(index, entry.has(Member::Type) ? u"unknown type \"%1\""_s.arg(entry.text(Member::Type))
                                                : u"no type"_s);
    }

    void readUpdate(const FeedEntry &entry, qsizetype index) {
        // Most entries of a long feed are for older builds, so test version and bounds before creating
        // anything. If reasons are wanted, errors of the entry itself come first.
        const bool wantsReasons = static_cast<bool>(m_context.skipped);
        const Objection objection = entry.has(Member::Build) ? objectionToUpdate(entry) : Objection::None;
        if (objection != Objection::None && !wantsReasons)
            return;
        QString reason;
        if (!describesUpdate(entry, &reason)) {
            skip(index, reason);
            return;
        }
        if (const QString unsignedReason = reasonAgainstSignatures(entry, m_context);
            !unsignedReason.isNull()) {
            skip(index, unsignedReason);
            return;
        }
        logMissingDate(entry);
        if (objection != Objection::None)
            skip(index, describe(objection, conditionsFrom(entry), entry.text(Member::Build),
                                 m_context.appBuild, m_context.systemVersion));
        else
            keep(m_updates, entry, m_budget.takeUpdate(entry));
    }

    Objection objectionToUpdate(const FeedEntry &entry) const {
        if (m_context.keepsIrrelevant)
            return Objection::None;
        const bool isBound = entry.has(Member::MinBuild) || entry.has(Member::MaxBuild) ||
                             entry.has(Member::MinSystemVersion) || entry.has(Member::MaxSystemVersion);
        if (isBound) {
            const Objection objection =
                objectionTo(conditionsFrom(entry), m_context.appBuild, m_context.systemVersion);
            if (objection != Objection::None)
                return objection;
        }
        return isVersionNewer(entry.text(Member::Build), m_context.appBuild) ? Objection::None
                                                                             : Objection::NotNewer;
    }

    void readPost(const FeedEntry &entry, qsizetype index) {
        QString reason;
        if (!describesPost(entry, &reason)) {
            skip(index, reason);
            return;
        }
        if (!m_context.keepsIrrelevant) {
            const QDateTime end = itemDateFromUtf8(entry.bytes(Member::EndDate));
            if (end.isValid() && m_context.now > end) {
                skip(index, u"endDate %1 has passed"_s.arg(entry.text(Member::EndDate)));
                return;
            }
            const auto conditions = conditionsFrom(entry);
            const Objection objection = objectionTo(conditions, m_context.appBuild, m_context.systemVersion);
            if (objection != Objection::None) {
                if (m_context.skipped)
                    skip(index,
                         describe(objection, conditions, {}, m_context.appBuild, m_context.systemVersion));
                return;
            }
        }
        keep(m_posts, entry, m_budget.takePost(entry));
    }

    void skip(qsizetype index, const QString &reason) const {
        if (m_context.skipped)
            m_context.skipped({m_name, index, reason});
    }

    QString m_name;
    const ReaderContext &m_context;
    FeedBudget &m_budget;
    PackedEntries m_updates;
    PackedEntries m_posts;
    bool m_isTooMuch = false;
};

} // namespace

Result<TXUpdateFeed::TrackMap> readJsonFeed(QByteArray data, const ReaderContext &context) {
    FeedBudget budget(data.size());
    const PaddedDocument bytes(std::move(data));
    // The parser creates only a list of positions. A tree of the document's values would take many times its
    // size.
    ondemand::parser parser;
    if (parser.allocate(bytes.size(), size_t(deepestNesting) + 16) != simdjson::SUCCESS)
        return unreadableFeed(u"it is too large"_s);
    ondemand::document document;
    if (const error_code error = parser.iterate(bytes.view()).get(document))
        return brokenDocument(error);
    ondemand::object tracks;
    if (const error_code error = document.get_object().get(tracks))
        return error == simdjson::INCORRECT_TYPE ? unreadableFeed(u"its top level is no object"_s)
                                                 : brokenDocument(error);

    // If members have the same name, the last one counts.
    TXUpdateFeed::TrackMap result;
    QMap<QString, TXError> wrong;
    for (auto member : tracks) {
        std::string_view key;
        ondemand::value value;
        ondemand::json_type type{};
        error_code error = readName(member, key);
        if (!error)
            error = member.value().get(value);
        if (!error)
            error = value.type().get(type);
        if (error)
            return brokenDocument(error);
        const QString name = fromUtf8(key);
        wrong.remove(name);
        if (type != ondemand::json_type::array) {
            constexpr int depthOfTrack = 2;
            if (const error_code broken = walk(value, depthOfTrack, nullptr))
                return brokenDocument(broken);
            wrong.insert(name, unreadableFeed(u"the track \"%1\" is no list"_s.arg(shown(name))));
            continue;
        }
        ondemand::array entries;
        if (const error_code broken = value.get_array().get(entries))
            return brokenDocument(broken);
        TrackReader reader(name, context, budget);
        const Outcome outcome = reader.read(entries);
        if (outcome.document)
            return outcome.document;
        if (outcome.track)
            wrong.insert(name, outcome.track);
        else if (!context.keepsIrrelevant && !budget.takeTrack(name))
            return unreadableFeed(u"its tracks take too much memory"_s);
        result.insert(name, reader.takeTrack());
    }
    if (document.current_location().error() != simdjson::OUT_OF_BOUNDS)
        return brokenDocument(simdjson::TRAILING_CONTENT);
    if (!wrong.isEmpty())
        return wrong.first();
    return result;
}

TXUpdatePtr json_updateFromDictionary(const FeedEntry &entry, QString *failureReason) {
    if (!describesUpdate(entry, failureReason))
        return nullptr;
    logMissingDate(entry);
    return updateFrom(entry, WithConditions::Yes);
}

TXUpdatePostPtr json_postFromDictionary(const FeedEntry &entry, QString *failureReason) {
    return describesPost(entry, failureReason) ? TXUpdatePostPrivate::make(packed(entry)) : nullptr;
}

} // namespace tx
