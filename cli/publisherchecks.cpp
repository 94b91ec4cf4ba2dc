// SPDX-License-Identifier: MIT
#include "cli/publisherchecks.h"

#include "feed/feedentry.h"
#include "feed/feedvalues.h"
#include "feed/itemdate.h"
#include "feed/jsonreader.h"
#include "install/unarchiver.h"
#include "install/updatedownload.h"
#include "platform/urldownload.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

bool isPost(const QJsonObject &entry) {
    const QString type = entry[u"type"_s].toString();
    return type == u"post" || type == u"post.v2";
}

class TrackCheck {
public:
    TrackCheck(QString name, QList<SkippedEntry> &doubts)
        : m_name(std::move(name))
        , m_doubts(doubts) {}

    void look(const QJsonObject &entry, qsizetype index) {
        m_index = index;
        const bool build = entry[u"type"_s].toString() == u"build";
        if (!build && !isPost(entry))
            return; // dropped as a whole
        const QString date = entry[u"date"_s].toString();
        if (!entry.contains(u"date"_s))
            doubt(u"no date"_s);
        else if (!itemDateFromString(date).isValid())
            doubt(u"the date \"%1\" is not of the form yyyy-MM-dd HH:mm:ss"_s.arg(date));
        if (entry.contains(u"endDate"_s) && !itemDateFromString(entry[u"endDate"_s].toString()).isValid())
            doubt(u"the endDate \"%1\" is not of the form yyyy-MM-dd HH:mm:ss"_s.arg(
                entry[u"endDate"_s].toString()));
        lookAtMembers(entry);
        if (build)
            lookAtBuild(entry);
    }

private:
    void doubt(const QString &reason) { m_doubts.append({m_name, m_index, reason}); }

    void lookAtMembers(const QJsonObject &entry) {
        for (auto it = entry.begin(); it != entry.end(); ++it) {
            const std::string name = it.key().toStdString();
            if (!FeedEntry::memberNamed(name)) {
                doubt(u"unknown member \"%1\""_s.arg(it.key()));
                continue;
            }
            if (!it.value().isString())
                doubt(u"\"%1\" is no text"_s.arg(it.key()));
            if (!it.key().endsWith(u"URL"_s) && it.key() != u"url")
                continue;
            const QUrl url = urlFromFeedText(it.value().toString());
            if (url.scheme() != u"http" && url.scheme() != u"https")
                doubt(u"bad URL \"%1\" in \"%2\""_s.arg(it.value().toString(), it.key()));
        }
    }

    void lookAtBuild(const QJsonObject &entry) {
        const QString build = entry[u"build"_s].toString();
        if (m_builds.contains(build))
            doubt(u"duplicate build \"%1\""_s.arg(build));
        m_builds.insert(build);
        const QUrl url = urlFromFeedText(entry[u"downloadURL"_s].toString());
        if (url.isEmpty())
            return;
        const QString name = downloadFileName(suggestedFilename({}, url), build);
        if (TXUpdateUnarchiver::commandForFileName(name).isNull())
            doubt(
                u"the archive \"%1\" cannot be unpacked: use .zip, .tgz, .tbz or .tar"_s.arg(url.fileName()));
    }

    QString m_name;
    QList<SkippedEntry> &m_doubts;
    QSet<QString> m_builds;
    qsizetype m_index = 0;
};

void forEachEntry(const QByteArray &jsonFeed,
                  const std::function<void(const QString &, const QJsonObject &, qsizetype)> &work) {
    const QJsonObject tracks = QJsonDocument::fromJson(asUtf8(jsonFeed)).object();
    for (auto track = tracks.begin(); track != tracks.end(); ++track) {
        qsizetype index = 0;
        const QJsonArray entries = track.value().toArray();
        for (const auto &entry : entries)
            work(track.key(), entry.toObject(), index++);
    }
}

} // namespace

QList<SkippedEntry> doubtsAbout(const QByteArray &jsonFeed) {
    QList<SkippedEntry> doubts;
    std::map<QString, TrackCheck> checks;
    forEachEntry(jsonFeed, [&](const QString &track, const QJsonObject &entry, qsizetype index) {
        checks.try_emplace(track, track, doubts).first->second.look(entry, index);
    });
    return doubts;
}

QList<SkippedEntry> endedPosts(const QByteArray &jsonFeed, const QDateTime &now) {
    QList<SkippedEntry> ended;
    forEachEntry(jsonFeed, [&](const QString &track, const QJsonObject &entry, qsizetype index) {
        const QString text = entry[u"endDate"_s].toString();
        const QDateTime end = itemDateFromString(text);
        if (isPost(entry) && end.isValid() && now > end)
            ended.append({track, index, u"endDate %1 has passed"_s.arg(text)});
    });
    return ended;
}

} // namespace tx::cli
