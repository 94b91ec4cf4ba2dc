// SPDX-License-Identifier: MIT
#include "txupdate/publisherchecks.h"

#include "feed/appcastparser.h"
#include "feed/jsonentries.h"
#include "install/unarchiver.h"
#include "install/updatedownload.h"
#include "model/feedentry.h"
#include "model/feedvalues.h"
#include "model/itemdate.h"
#include "net/urldownload.h"

#include <QSet>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

bool isPost(const JsonEntry &entry) {
    const QString type = entry.value(u"type"_s).text;
    return type == u"post" || type == u"post.v2";
}

bool isWebAddress(const QString &text) {
    const QUrl url = urlFromFeedText(text);
    return url.scheme() == u"http" || url.scheme() == u"https";
}

QString badAddress(const QString &text, const QString &where) {
    return u"bad URL \"%1\" in \"%2\""_s.arg(text, where);
}

QString badDate(const QString &what, const QString &text) {
    return u"the %1 \"%2\" is not of the form yyyy-MM-dd HH:mm:ss"_s.arg(what, text);
}

/// Why the archive at this URL cannot be installed; null if it can, or if there is no URL.
QString doubtAboutArchive(const QString &address, const QString &build) {
    const QUrl url = urlFromFeedText(address);
    if (url.isEmpty())
        return {};
    const QString name = downloadFileName(suggestedFilename({}, url), build, url);
    if (!TXUpdateUnarchiver::commandForFileName(name).isNull())
        return {};
    return u"the archive \"%1\" cannot be unpacked: use .zip, .tgz, .tbz, .tzst or .tar"_s.arg(
        url.fileName());
}

class TrackCheck {
public:
    TrackCheck(QString name, QList<SkippedEntry> &doubts)
        : m_name(std::move(name))
        , m_doubts(doubts) {}

    void look(const JsonEntry &entry, qsizetype index) {
        m_index = index;
        const bool build = entry.value(u"type"_s).text == u"build";
        if (!build && !isPost(entry))
            return; // dropped as a whole
        const QString date = entry.value(u"date"_s).text;
        if (!entry.contains(u"date"_s))
            doubt(u"no date"_s);
        else if (!itemDateFromString(date).isValid())
            doubt(badDate(u"date"_s, date));
        if (entry.contains(u"endDate"_s) && !itemDateFromString(entry.value(u"endDate"_s).text).isValid())
            doubt(badDate(u"endDate"_s, entry.value(u"endDate"_s).text));
        lookAtMembers(entry);
        if (build)
            lookAtBuild(entry);
    }

private:
    void doubt(const QString &reason) { m_doubts.append({m_name, m_index, reason}); }

    void lookAtMembers(const JsonEntry &entry) {
        for (auto it = entry.begin(); it != entry.end(); ++it) {
            const std::string name = it.key().toStdString();
            if (!FeedEntry::memberNamed(name)) {
                doubt(u"unknown member \"%1\""_s.arg(it.key()));
                continue;
            }
            if (!it->isText && it.key() != u"signature") // which may be a list
                doubt(u"\"%1\" is no text"_s.arg(it.key()));
            if (!it.key().endsWith(u"URL"_s) && it.key() != u"url")
                continue;
            if (!isWebAddress(it->text))
                doubt(badAddress(it->text, it.key()));
        }
    }

    void lookAtBuild(const JsonEntry &entry) {
        const QString build = entry.value(u"build"_s).text;
        if (m_builds.contains(build))
            doubt(u"duplicate build \"%1\""_s.arg(build));
        m_builds.insert(build);
        if (const QString reason = doubtAboutArchive(entry.value(u"downloadURL"_s).text, build);
            !reason.isNull())
            doubt(reason);
    }

    QString m_name;
    QList<SkippedEntry> &m_doubts;
    QSet<QString> m_builds;
    qsizetype m_index = 0;
};

class AppcastCheck {
public:
    explicit AppcastCheck(QList<SkippedEntry> &doubts)
        : m_doubts(doubts) {}

    void look(const AppcastItem &item, qsizetype index) {
        m_index = index;
        const QString date = textOf(item.elements, "pubDate");
        if (date.isNull())
            doubt(u"no date"_s);
        else if (!itemDateFromString(date).isValid())
            doubt(badDate(u"pubDate"_s, date));
        lookAtAddress(item.elements, "sparkle:releaseNotesLink");
        lookAtAddress(item.elements, "link");
        lookAtAddress(item.enclosure, "url");
        lookAtNames(item.elements);
        lookAtNames(item.enclosure);
        QString version = textOf(item.enclosure, "sparkle:version");
        if (version.isNull())
            version = textOf(item.elements, "sparkle:version");
        if (version.isNull())
            return; // dropped as a whole
        if (m_versions.contains(version))
            doubt(u"duplicate version \"%1\""_s.arg(version));
        m_versions.insert(version);
        if (const QString reason = doubtAboutArchive(textOf(item.enclosure, "url"), version);
            !reason.isNull())
            doubt(reason);
    }

private:
    static QString textOf(const NamedTexts &texts, std::string_view name) {
        const std::string *text = texts.find(name);
        return text ? QString::fromStdString(*text) : QString();
    }

    void doubt(const QString &reason) { m_doubts.append({u"release"_s, m_index, reason}); }

    void lookAtAddress(const NamedTexts &texts, std::string_view name) {
        const QString text = textOf(texts, name);
        if (!text.isNull() && !isWebAddress(text))
            doubt(badAddress(text, QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()))));
    }

    /// Names that other updaters read, but not this one. All other names are for news readers.
    void lookAtNames(const NamedTexts &texts) {
        for (size_t i = 0; i < texts.size(); ++i) {
            const std::string &name = texts.nameAt(i);
            const bool isKnown = name == "sparkle:version" || name == "sparkle:shortVersionString" ||
                                 name == "sparkle:extra" || name == "sparkle:releaseNotesLink" ||
                                 name == "sparkle:edSignature"; // with a plain key
            if (name.starts_with("sparkle:") && !isKnown)
                doubt(u"\"%1\" has no effect"_s.arg(QString::fromStdString(name)));
        }
    }

    QList<SkippedEntry> &m_doubts;
    QSet<QString> m_versions;
    qsizetype m_index = 0;
};

} // namespace

QList<SkippedEntry> doubtsAbout(const QByteArray &jsonFeed) {
    QList<SkippedEntry> doubts;
    std::map<QString, TrackCheck> checks;
    // The reader has complained about a document that cannot be read.
    (void)forEachJsonEntry(jsonFeed, [&](const QString &track, const JsonEntry &entry, qsizetype index) {
        checks.try_emplace(track, track, doubts).first->second.look(entry, index);
    });
    return doubts;
}

QList<SkippedEntry> doubtsAboutAppcast(const QByteArray &appcast) {
    QList<SkippedEntry> doubts;
    AppcastCheck check(doubts);
    // The reader has complained about a broken document already.
    (void)forEachAppcastItem(appcast, [&](const AppcastItem &item, qsizetype index) -> TXError {
        check.look(item, index);
        return {};
    });
    return doubts;
}

QList<SkippedEntry> insecureArchives(const QByteArray &feed, bool isJson) {
    QList<SkippedEntry> found;
    const auto look = [&found](const QString &track, const QString &address, qsizetype index) {
        const QUrl url = urlFromFeedText(address);
        if (!url.isEmpty() && url.scheme() != u"https")
            found.append(
                {track, index,
                 u"the archive's URL \"%1\" is not https: it cannot be downloaded by applications that "
                 "have the feed from an https URL"_s.arg(address)});
    };
    if (isJson) {
        (void)forEachJsonEntry(feed, [&look](const QString &track, const JsonEntry &entry, qsizetype index) {
            if (entry.value(u"type"_s).text == u"build")
                look(track, entry.value(u"downloadURL"_s).text, index);
        });
    } else {
        (void)forEachAppcastItem(feed, [&look](const AppcastItem &item, qsizetype index) -> TXError {
            if (const std::string *address = item.enclosure.find("url"))
                look(u"release"_s, QString::fromStdString(*address), index);
            return {};
        });
    }
    return found;
}

QList<SkippedEntry> endedPosts(const QByteArray &jsonFeed, const QDateTime &now) {
    QList<SkippedEntry> ended;
    // The reader has complained about a document that cannot be read.
    (void)forEachJsonEntry(jsonFeed, [&](const QString &track, const JsonEntry &entry, qsizetype index) {
        const QString text = entry.value(u"endDate"_s).text;
        const QDateTime end = itemDateFromString(text);
        if (isPost(entry) && end.isValid() && now > end)
            ended.append({track, index, u"endDate %1 has passed"_s.arg(text)});
    });
    return ended;
}

} // namespace tx::cli
