// SPDX-License-Identifier: MIT
#pragma once

#include "publish/entries.h"
#include "publish/faults.h"
#include "publish/packing.h"
#include "publish/target.h"
#include "trust/keyfiles.h"

#include <QUrl>

#include <functional>

namespace tx::publishing {

/// Signs a feed. Takes the bytes of a feed, with or without an earlier signature, and returns the bytes to
/// publish.
using FeedSigner = std::function<Outcome<QByteArray>(const QByteArray &document)>;

/// Where a feed is published, and how it is signed.
struct FeedPlace {
    QString feed = QStringLiteral("feed.json");   ///< file name at the target
    QUrl base;                                    ///< the URL at which the target's files are served
    QString feedName = QStringLiteral("release"); ///< the name that the signature carries
    FeedSigner sign;                              ///< null if the feed is not signed
    std::function<void(const QString &line)> say; ///< shows a message to the user during the work
    bool isDryRun = false;                        ///< stops before anything is changed
    bool isServed = true;                         ///< false: files are read back from the target, not by GET
};

struct PublishRequest {
    FeedPlace place;
    QString bundle;
    QList<ArchiveType> types{ArchiveType::Tgz};
    QString
        tzstFrom; ///< the first build that can unpack .tzst; older builds get the archive of the other type
    QString track = QStringLiteral("release");
    QString title;   ///< if null, the application's name and version
    QString version; ///< if null, the bundle's
    QDateTime date;  ///< if invalid, the current time
    QString description;
    QString notes; ///< null, a local file, or a URL
    QString notesSize;
    QString autodownload;
    Bounds bounds;
    QString identifier; ///< the identifier that the bundle must have; if null, that of the published entries
    PublishedLimits limits;
    std::optional<qint64> newest; ///< newest time in the archive, in seconds since 1970
    const std::vector<trust::SecretKey> *keys = nullptr;
};

/// The changes that were made, or that a dry run would make.
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
    QStringList dropped; ///< descriptions of the entries that the new one replaces
    QStringList kept;    ///< descriptions of the entries that some applications still need, with the reason
    QStringList warnings;
};

/// The steps that were completed, so that a fault can advise the user.
struct Trace {
    bool hasUploaded = false;     ///< the user should repeat the same command
    bool hasReplacedFeed = false; ///< the new feed is published
};

/// Packs, signs and uploads a build, and then replaces the feed. The feed names an archive only when the
/// archive is complete at the target and signed. After an interruption at any point, repeating the command
/// leads to the same result. Changes nothing if it refuses. Faults: any kind.
Outcome<PublishReport> publish(const PublishRequest &request, Target &target, Progress &progress,
                               Trace &trace);

/// Removes a build from a track of the feed. With `removesArchives` also removes the build's archives from
/// the target.
Outcome<PublishReport> withdraw(const FeedPlace &place, const QString &track, const QString &build,
                                bool removesArchives, Target &target, Trace &trace);

/// Signs the feed again. If there is no feed and `begins` is set, publishes a feed with an empty track.
Outcome<PublishReport> resign(const FeedPlace &place, bool begins, Target &target, Trace &trace);

/// Returns the URL of a file at the target.
[[nodiscard]] QUrl urlOf(const FeedPlace &place, const QString &name);

} // namespace tx::publishing
