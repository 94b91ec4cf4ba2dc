// SPDX-License-Identifier: MIT
#pragma once

#include "install/archiveverification.h"
#include "install/unpackedapplication.h"
#include "posix/posixfiles.h"

#include <TarvixUpdate/TXError.h>

#include <QString>

#include <functional>
#include <memory>

/// Lets the framework's program TXUpdateUnpacker unpack a downloaded archive into the archive's own folder,
/// and then looks for the application among the unpacked files. The program gets the open archive as its
/// standard input, and reads it with lowered rights. For a host with keys, only verified archives are
/// unpacked.
///
/// Thread: call `unarchive` on any thread. The work runs on the background queue, the handlers on the main
/// thread. Errors: domain "TXUpdater" with code 0, or TXUpdateErrorDomain if the host's keys do not admit the
/// application. That application is removed; other unpacked files stay.
class TXUpdateUnarchiver final {
public:
    using ProgressHandler = std::function<void()>;
    /// The application's path and a null error, or a null path and an error. Both null: the archive's type is
    /// unknown; the handler is then called at once, on the caller's thread.
    using CompletionHandler = std::function<void(const QString &application, const TXError &error)>;

    /// A new version of the host. `build`: the announced one, for messages.
    [[nodiscard]] static tx::WantedApplication forHost(const QString &build);

    /// Returns at once. `progress` is called while the archive is unpacked, at most every 0.1 s; it may be
    /// null. `wanted`: the application that is looked for, by default one with the host's identifier.
    static void unarchive(const QString &archivePath, const ProgressHandler &progress,
                          const CompletionHandler &completion,
                          const tx::WantedApplication &wanted = forHost({}));
    /// Unpacks a verified archive and checks the application in it. The file at `archivePath` is not read:
    /// its name only gives the type of the archive, and its folder is the destination.
    static void unarchive(const tx::VerifiedArchivePtr &archive, const QString &archivePath,
                          const ProgressHandler &progress, const CompletionHandler &completion,
                          const tx::WantedApplication &wanted);

    /// Removes the quarantine mark from an entry and from everything below it.
    static void releaseFromQuarantine(const QString &path);

    /// Returns the bundle directly in `directory` that has the host's identifier. Null if there is none, or
    /// if it contains devices, pipes or sockets.
    [[nodiscard]] static QString findUnarchivedApplicationInDirectory(const QString &directory);

    /// The shell command that unpacks an archive of that name from its standard input into the folder in
    /// TXUPDATE_UNARCHIVER_DESTINATION, with the framework's tools first in PATH; null for an unknown type.
    /// The framework does not run it: it is for people and scripts, and has the same result.
    [[nodiscard]] static QString commandForFileName(const QString &fileName);

    /// Why an archive of that name, which is of an unknown type, is not unpacked, and which ones are; in the
    /// user's language.
    [[nodiscard]] static QString reasonAgainstType(const QString &fileName);

    TXUpdateUnarchiver(const QString &archivePath, const ProgressHandler &progress,
                       const CompletionHandler &completion, tx::WantedApplication wanted = forHost({}),
                       tx::VerifiedArchivePtr verified = {});

private:
    static void begin(const std::shared_ptr<TXUpdateUnarchiver> &unarchiver);
    /// The archive, at its first byte; not open if that fails.
    [[nodiscard]] tx::posix::Descriptor openArchive() const;
    /// `type`: the name of the archive's type for TXUpdateUnpacker.
    void run(const QString &type);
    /// Returns why no application was unpacked, or null and the path of the application.
    [[nodiscard]] QString unpack(int archive, const QString &type, const QString &destination,
                                 QString &application);

    const QString m_archivePath;
    const ProgressHandler m_progress;
    const CompletionHandler m_completion;
    const tx::WantedApplication m_wanted;
    const tx::VerifiedArchivePtr m_verified; ///< null for a host without keys
};
