// SPDX-License-Identifier: MIT
#pragma once

#include "publish/faults.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tx::publishing {

/// The settings in txupdate.toml, which the publishing commands need each time. A null or absent member is
/// not set. Paths are absolute, or relative to the current folder.
struct Configuration {
    QString bundle;
    QString to;         ///< a folder or an rclone remote
    QString url;        ///< the URL at which the files of `to` are served
    QString feed;       ///< file name of the feed
    QString feedName;   ///< the name that the feed's signature carries
    QString identifier; ///< the application's identifier
    QString track;
    QString tzstFrom;
    QString autodownload;
    QString minSystem;
    QStringList keys;
    QStringList archives;           ///< "tgz", "zip", "tzst"
    std::optional<QString> expires; ///< a number of days, or "never"
    std::optional<qint64> largestArchive;
    std::optional<qint64> largestUnpacked;
};

/// Reads a configuration file. Relative paths in the file are relative to its folder. Faults: File; Input,
/// which names the line, for a syntax error, an unknown name or a value of the wrong type.
Outcome<Configuration> readConfiguration(const QString &path);

/// Returns a TOML string with quotes.
[[nodiscard]] QByteArray tomlString(const QString &text);

} // namespace tx::publishing
