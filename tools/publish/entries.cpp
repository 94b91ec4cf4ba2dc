// SPDX-License-Identifier: MIT
#include "publish/entries.h"

#include "model/itemdate.h"
#include "model/versioncomparison.h"
#include "trust/archives.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

QString memberOf(const JsonEntry &members, const QString &name) {
    const auto found = members.find(name);
    return found == members.end() ? QString() : found->text;
}

/// Returns whether the lower bound `later` admits everything that the lower bound `earlier` admits.
bool coversFrom(const QString &later, const QString &earlier) {
    return later.isNull() || (!earlier.isNull() && compareVersions(later, earlier) <= 0);
}
bool coversTo(const QString &later, const QString &earlier) {
    return later.isNull() || (!earlier.isNull() && compareVersions(later, earlier) >= 0);
}

bool meet(const QString &from, const QString &to) {
    return from.isNull() || to.isNull() || compareVersions(from, to) <= 0;
}

QByteArray jsonOf(const std::vector<std::string> &texts) {
    if (texts.size() == 1)
        return jsonString(QString::fromStdString(texts.front()));
    QJsonArray list;
    for (const std::string &text : texts)
        list << QString::fromStdString(text);
    return QJsonDocument(list).toJson(QJsonDocument::Compact);
}

} // namespace

Bounds boundsOf(const JsonEntry &members) {
    return {memberOf(members, u"minBuild"_s), memberOf(members, u"maxBuild"_s),
            memberOf(members, u"minSystemVersion"_s), memberOf(members, u"maxSystemVersion"_s)};
}

bool isBuild(const JsonEntry &members) { return memberOf(members, u"type"_s) == u"build"; }

QByteArray buildEntry(const BuildWords &words, const QUrl &archive,
                      const std::vector<std::string> &signatures) {
    EntryMembers members{{u"type"_s, "\"build\""}};
    const auto add = [&members](const QString &name, const QString &text) {
        if (!text.isNull())
            members.append({name, jsonString(text)});
    };
    const auto addUrl = [&add](const QString &name, const QUrl &url) {
        if (!url.isEmpty())
            add(name, url.toString(QUrl::FullyEncoded));
    };
    add(u"title"_s, words.title);
    add(u"build"_s, words.build);
    add(u"version"_s, words.version);
    add(u"date"_s, itemDateToString(words.date));
    add(u"description"_s, words.description);
    addUrl(u"releaseNotesURL"_s, words.notes);
    add(u"preferredDisplaySize"_s, words.notesSize);
    addUrl(u"downloadURL"_s, archive);
    add(u"autodownload"_s, words.autodownload);
    add(u"minBuild"_s, words.bounds.minBuild);
    add(u"maxBuild"_s, words.bounds.maxBuild);
    add(u"minSystemVersion"_s, words.bounds.minSystem);
    add(u"maxSystemVersion"_s, words.bounds.maxSystem);
    if (!signatures.empty())
        members.append({u"signature"_s, jsonOf(signatures)});
    return entryText(members);
}

bool overlap(const Bounds &a, const Bounds &b) {
    return meet(a.minBuild, b.maxBuild) && meet(b.minBuild, a.maxBuild) && meet(a.minSystem, b.maxSystem) &&
           meet(b.minSystem, a.maxSystem);
}

QString whyStillNeeded(const JsonEntry &earlier, const QString &build, const Bounds &bounds,
                       const QStringList &signers) {
    if (!isBuild(earlier))
        return u"is not a build"_s;
    const QString version = memberOf(earlier, u"build"_s);
    if (compareVersions(build, version) <= 0)
        return u"is not older"_s;
    Bounds its = boundsOf(earlier);
    // Every application that sees the entry has an older build than the entry's.
    if (its.maxBuild.isNull() || compareVersions(version, its.maxBuild) < 0)
        its.maxBuild = version;
    if (!coversFrom(bounds.minBuild, its.minBuild) || !coversTo(bounds.maxBuild, its.maxBuild))
        return u"is for installed builds for which the new one is not"_s;
    if (!coversFrom(bounds.minSystem, its.minSystem) || !coversTo(bounds.maxSystem, its.maxSystem))
        return u"is for systems for which the new one is not"_s;
    for (const QString &signer : signatureOf(earlier).signers) {
        if (!signers.contains(signer))
            return u"is signed by the key %1, which does not sign the new one"_s.arg(signer);
    }
    return {};
}

EntrySignature signatureOf(const JsonEntry &members) {
    EntrySignature result;
    const auto found = members.find(u"signature"_s);
    if (found == members.end())
        return result;
    QStringList texts{found->text};
    if (!found->isText) {
        texts.clear();
        for (const QJsonValue &value : QJsonDocument::fromJson(found->text.toUtf8()).array())
            texts << value.toString();
    }
    for (const QString &text : texts) {
        const auto parsed = trust::SignatureText::parse(text.toStdString());
        if (!parsed)
            continue;
        result.signers << QString::fromStdString(trust::keyNumberText(parsed->number));
        const auto claim = trust::parseArchiveComment(parsed->words());
        if (claim)
            result.identifier = QString::fromStdString(claim->bundle);
    }
    return result;
}

} // namespace tx::publishing
