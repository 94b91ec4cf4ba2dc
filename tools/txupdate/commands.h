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
    ExitRepeat = 75    ///< it failed after something was uploaded; the user should run the same command again
};

struct FeedOptions {
    QString source; ///< a file or a URL
    QString build;
    QString system;
    QString contentType; ///< if null, that of the response, or for a file the type of its content
    QString url;         ///< null: the source itself, and none for a file
    bool json = false;
    bool archives = false; ///< fetch and examine every archive
    QString app;           ///< the application whose keys and updates are checked; null for any application
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
/// Moves an application of this user to the Trash and removes its menu entry. Uses `bundle` and `json`.
int remove(const AppOptions &options);
/// Serves a folder. `rate` limits each response, in bytes a second; 0 means no limit. `hosts` are additional
/// host names to which the server responds.
int serve(const QString &directory, int port, qint64 rate, const QStringList &hosts);

/// Makes this process act as the application in this bundle. Returns false and prints an error if it is not
/// an application.
[[nodiscard]] bool adopt(const QString &bundle);

/// "txupdate: <line>" on standard error.
void complain(const QString &line);

} // namespace tx::cli
