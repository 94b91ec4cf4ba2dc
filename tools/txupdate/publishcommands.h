// SPDX-License-Identifier: MIT
#pragma once

#include "txupdate/trustcommands.h"

#include <QStringList>

#include <optional>

/// The commands that change what is published. Each returns an exit status. An option that is null or empty
/// is taken from the configuration file, otherwise a default is used.
namespace tx::cli {

struct PlaceOptions {
    QString configuration; ///< a file; if null, txupdate.toml if it exists in the current folder
    QString to;
    QString url;
    QString feed;
    QString feedName;
    QStringList keys;
    QString expires;
    PassphraseOptions passphrase;
    bool isDryRun = false;
    bool isServed = true; ///< the target's files can be read by GET
    bool json = false;
};

struct PublishOptions {
    PlaceOptions place;
    QString bundle;
    QStringList archives;
    QString tzstFrom;
    QString track;
    QString title;
    QString version;
    QString date;
    QString description;
    QString notes;
    QString notesSize;
    QString autodownload;
    QString minBuild;
    QString maxBuild;
    QString minSystem;
    QString maxSystem;
    QString identifier;
    std::optional<qint64> largestArchive;
    std::optional<qint64> largestUnpacked;
};

struct FeedEditOptions {
    PlaceOptions place;
    SignedFor application;
    QString track;
    QString build; ///< the build to withdraw
    bool removesArchives = false;
};

/// The user is asked on the terminal for values that are null, unless they have a default.
struct InitOptions {
    QString identifier;
    QString to;
    QString url;
    QString bundle;
    QString key;
    QString ci; ///< "github", "gitlab" or "none"
    bool withoutPassphrase = false;
    PassphraseOptions passphrase;
};

int init(const InitOptions &options);
int publish(const PublishOptions &options);
int withdraw(const FeedEditOptions &options);
int feedResign(const FeedEditOptions &options);

} // namespace tx::cli
