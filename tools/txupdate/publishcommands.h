// SPDX-License-Identifier: MIT
#pragma once

#include "txupdate/trustcommands.h"

#include <QStringList>

#include <optional>

/// The commands that change what is published. Each returns an exit status. What is null or empty is taken
/// from the configuration, else from the usual values.
namespace tx::cli {

struct PlaceOptions {
    QString configuration; ///< a file; null: txupdate.toml, when there is one in the current folder
    QString to;
    QString url;
    QString feed;
    QString feedName;
    QStringList keys;
    QString expires;
    PassphraseOptions passphrase;
    bool isDryRun = false;
    bool isServed = true; ///< checks are made by GET
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
    QString build; ///< to withdraw
    bool removesArchives = false;
};

/// What is null is asked for on the terminal, or has a usual value.
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
