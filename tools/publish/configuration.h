// SPDX-License-Identifier: MIT
#pragma once

#include "trust/fault.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tx::publishing {

/// txupdate.toml: what the publishing commands need to know every time. Null and absent: not said. Paths are
/// absolute, or relative to the current folder.
struct Configuration {
    QString bundle;
    QString to;         ///< a folder or a remote of rclone
    QString url;        ///< under which the files of `to` are served
    QString feed;       ///< name of the feed's file
    QString feedName;   ///< in its signature
    QString identifier; ///< of the application
    QString track;
    QString tzstFrom;
    QString autodownload;
    QString minSystem;
    QStringList keys;
    QStringList archives;           ///< "tgz", "zip", "tzst"
    std::optional<QString> expires; ///< days, or "never"
    std::optional<qint64> largestArchive;
    std::optional<qint64> largestUnpacked;
};

/// The configuration in a file. Relative paths in it are those of its folder. Faults: File; Input with the
/// line, also for a name that is not known and a value of another type.
trust::Outcome<Configuration> readConfiguration(const QString &path);

/// A TOML string with its quotes.
[[nodiscard]] QByteArray tomlString(const QString &text);

} // namespace tx::publishing
