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

/// The wanted application directly in `directory`; its path is null if there is none. An application that
/// contains devices, pipes or sockets is ignored. Thread: any.
struct FoundApplication {
    QString path;
    QString refusal; ///< why one that has the right identifier was not taken
};
[[nodiscard]] FoundApplication findApplication(const QString &directory, const WantedApplication &wanted);

/// Says in the user's language which application was expected and what was found: name, identifier, build and
/// depth of each application, otherwise the names of the entries. `archive` is the archive's file, which is
/// also in the directory. `toolSays` is the output of the unpacking program if it unpacked nothing. Thread:
/// any.
[[nodiscard]] QString explainMissingApplication(const QString &directory, const QString &archive,
                                                const WantedApplication &wanted, const QString &refusal,
                                                const std::optional<QString> &toolSays);

} // namespace tx
