// SPDX-License-Identifier: MIT
#pragma once

#include "install/archiveverification.h"
#include "install/unpackedapplication.h"

#include <TarvixUpdate/TXError.h>

#include <QString>

#include <cstdio>
#include <functional>
#include <memory>

/// Unpacks a downloaded archive beside itself by streaming it into a command, and finds the application in
/// it. For a host with keys, only what was verified.
///
/// Thread: `unarchive` on any; the work runs on the background queue, handlers on the main thread.
/// Errors: domain "TXUpdater", code 0; or TXUpdateErrorDomain for an application that the host's keys do not
/// admit, which is removed. Other files that were written stay where they are.
class TXUpdateUnarchiver final : public std::enable_shared_from_this<TXUpdateUnarchiver> {
public:
    using ProgressHandler = std::function<void()>;
    /// The application's path and a null error, or a null path and an error. Both null: the archive's type is
    /// unknown; the handler is then called at once, on the caller's thread.
    using CompletionHandler = std::function<void(const QString &application, const TXError &error)>;

    /// A new version of the host. `build`: the announced one, for messages.
    [[nodiscard]] static tx::WantedApplication forHost(const QString &build);

    /// Returns at once. `progress` may be null. `wanted`: the application that is looked for, by default one
    /// with the host's identifier.
    static void unarchive(const QString &archivePath, const ProgressHandler &progress,
                          const CompletionHandler &completion,
                          const tx::WantedApplication &wanted = forHost({}));
    /// The same for an archive that was verified, and the application in it, which is checked, too. Of the
    /// file at `archivePath` nothing is read: its name tells the type, and its folder is the one to unpack
    /// into.
    static void unarchive(const tx::VerifiedArchivePtr &archive, const QString &archivePath,
                          const ProgressHandler &progress, const CompletionHandler &completion,
                          const tx::WantedApplication &wanted);

    /// Removes the quarantine mark from an entry and from everything below it.
    static void releaseFromQuarantine(const QString &path);

    /// The bundle directly in `directory` whose identifier is the host's; null when there is none, or when it
    /// holds devices, pipes or sockets.
    [[nodiscard]] static QString findUnarchivedApplicationInDirectory(const QString &directory);

    /// The shell command that unpacks an archive of that name; null for an unknown type.
    [[nodiscard]] static QString commandForFileName(const QString &fileName);

    /// Why an archive of that name, which is of an unknown type, is not unpacked, and which ones are; in the
    /// user's language.
    [[nodiscard]] static QString reasonAgainstType(const QString &fileName);

    TXUpdateUnarchiver(const QString &archivePath, const ProgressHandler &progress,
                       const CompletionHandler &completion, tx::WantedApplication wanted = forHost({}),
                       tx::VerifiedArchivePtr verified = {});

private:
    static void begin(const std::shared_ptr<TXUpdateUnarchiver> &unarchiver);
    /// Null, with errno, when it cannot be opened.
    [[nodiscard]] std::FILE *openArchive() const;
    void unarchiveWithPipingCommand(const QString &command);
    void stream(const QString &command);
    [[nodiscard]] QString pipeArchive(std::FILE *archive, const QString &command, const QString &destination,
                                      QString &application);

    const QString m_archivePath;
    const ProgressHandler m_progress;
    const CompletionHandler m_completion;
    const tx::WantedApplication m_wanted;
    const tx::VerifiedArchivePtr m_verified; ///< null for a host without keys
};
