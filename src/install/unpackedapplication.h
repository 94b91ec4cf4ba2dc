// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

namespace tx {

/// What an installation looks for among the files that came out of an archive.
struct WantedApplication {
    std::optional<QString> identifier; ///< absent: any application; null: a host that has none
    QString build;                     ///< the announced one, for messages only; null when it is not known
};

/// What is directly in `directory` and is wanted; null path when there is nothing. An application that holds
/// devices, pipes or sockets is not taken. Thread: any.
struct FoundApplication {
    QString path;
    QString refusal; ///< why one that has the right identifier was not taken
};
[[nodiscard]] FoundApplication findApplication(const QString &directory, const WantedApplication &wanted);

/// What was looked for, and what is there instead, in the user's language: name, identifier, build and depth
/// of each application, else the names of the entries. `archive`: the archive's file, which is in the
/// directory too. `toolSays`: the words of the program that unpacked it, when it did not unpack anything.
/// Thread: any.
[[nodiscard]] QString explainMissingApplication(const QString &directory, const QString &archive,
                                                const WantedApplication &wanted, const QString &refusal,
                                                const std::optional<QString> &toolSays);

} // namespace tx
