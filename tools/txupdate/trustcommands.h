// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// The commands of publishers who sign. Each returns an exit status; results go to standard output, errors to
/// standard error. Keys and passphrases are never printed.
namespace tx::cli {

/// Where passphrases come from: the descriptor, else the variable TXUPDATE_PASSPHRASE, else the terminal.
struct PassphraseOptions {
    int descriptor = -1; ///< one line a key, in the order of the keys; -1: none
};

struct KeygenOptions {
    QString name; ///< of the files, without extension
    bool withoutPassphrase = false;
    PassphraseOptions passphrase;
};

/// For which application something is signed: a bundle, or its identifier (and build).
struct SignedFor {
    QString bundle; ///< null: none was given
    QString identifier;
    QString build;
};

struct SignOptions {
    QString archive;
    SignedFor application;
    QString feedName; ///< the only feed that may offer it; null: any
    QStringList keys; ///< files, with or without ".key"
    PassphraseOptions passphrase;
};

struct FeedSignOptions {
    QString feed;
    SignedFor application;
    QString feedName; ///< null: the bundle's, else "release"
    QStringList keys;
    std::optional<int> validDays; ///< absent: for ever
    PassphraseOptions passphrase;
};

struct VerifyOptions {
    QString source;    ///< an archive, or the file or URL of a feed
    QString bundle;    ///< the installed application, whose keys count
    QString signature; ///< the archive's; null: the file beside it
};

int keygen(const KeygenOptions &options);
int sign(const SignOptions &options);
int verify(const VerifyOptions &options);
int feedSign(const FeedSignOptions &options);
int feedVerify(const VerifyOptions &options);

} // namespace tx::cli
