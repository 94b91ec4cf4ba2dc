// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx::cli {

/// Exit statuses of txupdate.
enum ExitStatus : int {
    ExitDone = 0,
    ExitFailed = 1,    ///< the feed fails, an entry would be dropped, or the update did not work
    ExitUsage = 64,    ///< the command line is wrong
    ExitBadInput = 65, ///< a line of the input cannot be read
    ExitRepeat = 75    ///< it failed after something was uploaded: run the same command again
};

struct FeedOptions {
    QString source; ///< a file or an address
    QString build;
    QString system;
    QString contentType; ///< null: the response's, or for a file what its content looks like
    QString url;         ///< null: the source itself, and none for a file
    bool json = false;
    bool archives = false; ///< fetch and examine every archive
    QString app;           ///< as which application's updates, and whose keys; null: any application's
};

struct AppOptions {
    QString bundle;
    QString feed; ///< null: the application's own setting
    bool json = false;
};

/// Each runs one command and returns its exit status. Results go to standard output, errors to standard
/// error.
int compare(const QString &a, const QString &b);
int compareLines();
int version(const QString &text);
int versionLines();
int feedShow(const FeedOptions &options);
int feedValidate(const FeedOptions &options);
int check(const AppOptions &options);
int update(const AppOptions &options);
int profile(bool asJson);
/// `rate`: bytes a second for each answer; 0: as fast as it goes. `hosts`: the names under which it answers,
/// beside those of this machine.
int serve(const QString &directory, int port, qint64 rate, const QStringList &hosts);

/// Acts for the application in this bundle from now on; false, with a complaint, when it is none.
[[nodiscard]] bool adopt(const QString &bundle);

/// "txupdate: <line>" on standard error.
void complain(const QString &line);

} // namespace tx::cli
