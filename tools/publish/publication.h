// SPDX-License-Identifier: MIT
#pragma once

#include "publish/entries.h"
#include "publish/packing.h"
#include "publish/target.h"
#include "trust/keyfiles.h"

#include <QUrl>

#include <functional>

namespace tx::publishing {

/// Signs a feed: the bytes of one with or without an earlier signature, to those that are published.
using FeedSigner = std::function<trust::Outcome<QByteArray>(const QByteArray &document)>;

/// Where a feed is, and who signs it.
struct FeedPlace {
    QString feed = QStringLiteral("feed.json");   ///< its name at the target
    QUrl base;                                    ///< under which the target's files are served
    QString feedName = QStringLiteral("release"); ///< that a signature carries
    FeedSigner sign;                              ///< null: the feed has no signature
    std::function<void(const QString &line)> say; ///< what a person reads while it goes on
    bool isDryRun = false;                        ///< ends before anything is changed
    bool isServed = true; ///< false: files are read back from the target instead of by GET
};

struct PublishRequest {
    FeedPlace place;
    QString bundle;
    QList<ArchiveType> types{ArchiveType::Tgz};
    QString tzstFrom; ///< the first build that can unpack .tzst; others get the archive of the other type
    QString track = QStringLiteral("release");
    QString title;   ///< null: name and version
    QString version; ///< null: the bundle's
    QDateTime date;  ///< invalid: now
    QString description;
    QString notes; ///< null, a local file, or a URL
    QString notesSize;
    QString autodownload;
    Bounds bounds;
    QString identifier; ///< that the bundle must have; null: that of what the feed has already
    PublishedLimits limits;
    std::optional<qint64> newest; ///< for packing; seconds since 1970
    const std::vector<trust::SecretKey> *keys = nullptr;
};

/// What was done, or would be.
struct PublishReport {
    enum class State { Published, Unchanged, DryRun };
    struct File {
        QString name;
        QUrl url;
        quint64 size = 0;
    };
    State state = State::Published;
    QString identifier;
    QString build;
    QString version;
    QUrl feed;
    QList<File> archives;
    QUrl notes;
    QStringList dropped; ///< entries that the new one replaces, in words
    QStringList kept;    ///< and those that somebody still needs, with the reason
    QStringList warnings;
};

/// How far it came, for the advice that goes with a fault.
struct Trace {
    bool hasUploaded = false;     ///< repeat the same command
    bool hasReplacedFeed = false; ///< the new feed is out
};

/// Packs, signs and uploads a build, and then replaces the feed. Before the feed is replaced it names nothing
/// that is not there, whole and signed; what is interrupted at any point and repeated ends in the same
/// state. Nothing is changed when it refuses. Faults: any kind.
trust::Outcome<PublishReport> publish(const PublishRequest &request, Target &target, Progress &progress,
                                      Trace &trace);

/// Takes a build out of a track of the feed, and with `removesArchives` its archives from the target.
trust::Outcome<PublishReport> withdraw(const FeedPlace &place, const QString &track, const QString &build,
                                       bool removesArchives, Target &target, Trace &trace);

/// Signs the feed again. A feed that is not there is begun with an empty track when `begins` is set.
trust::Outcome<PublishReport> resign(const FeedPlace &place, bool begins, Target &target, Trace &trace);

/// The URL of a file at the target.
[[nodiscard]] QUrl urlOf(const FeedPlace &place, const QString &name);

} // namespace tx::publishing
