// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <QStringList>

#include <memory>

namespace tx {
class AuthorizationReference;
namespace trust {
class VerifiedArchive;
} // namespace trust
} // namespace tx

/// Hands an unpacked application over to the installer tool and ends this process.
///
/// The tool is copied into the update cache directory, started with this process's identifier and the paths
/// of the new application, the host bundle and the archive, and says when it is ready; without that word
/// this process stays. It takes over when this process has gone.
/// Thread: main. Errors: domain "TXUpdater", or NSCocoaErrorDomain when the tool could not be started.
class TXUpdateInstallerClient {
public:
    static TXUpdateInstallerClient *sharedInstance();

    /// Never returns true outside of tests: on success the process ends with status 0.
    /// `verified`: the archive, of a host with keys. The program that runs as root verifies it once more and
    /// installs what it has unpacked itself; without it, such a host installs nothing with an administrator's
    /// rights.
    bool installUnarchivedApp(const QString &application, const QString &archive, TXError *error,
                              const tx::trust::VerifiedArchive *verified = nullptr);

    /// True unless this user may replace the bundle at `destination` by the one at `source`: by writing to
    /// both the bundle and the folder that holds it, or, when only the bundle is this user's, by exchanging
    /// what the two bundles hold (each nothing but a folder "Contents"). Without `source` it is taken for
    /// such a bundle.
    [[nodiscard]] bool needsAuthorizationToInstallToURL(const QString &destination,
                                                        const QString &source = {}) const;

    bool launchToolWithAuthorizationToInstallURL(const QString &application, const QString &archive,
                                                 TXError *error,
                                                 const tx::trust::VerifiedArchive *verified = nullptr);
    bool launchToolToInstallURL(const QString &application, const QString &archive, TXError *error);
    bool prepareInstallerHelperTool(TXError *error);
    void removeInstallerHelperTool();

    /// The tool in the framework's resources, its copy, and the copy's executable.
    [[nodiscard]] static QString sourceOfTool();
    [[nodiscard]] static QString copyOfTool();
    [[nodiscard]] static QString executableOfTool();
    /// The executable in the framework's resources, which runs when an administrator's rights are needed.
    [[nodiscard]] static QString executableOfInstalledTool();
    /// This session's environment, recorded for the tool: "NAME=value" texts, each ended by NUL.
    [[nodiscard]] static QString environmentRecord();

private:
    TXUpdateInstallerClient();
    ~TXUpdateInstallerClient();
    bool prepareFolder(TXError *error);
    bool recordSession(TXError *error);

    /// Of the last question that was not answered with yes: it is not freed, as it may be asked again.
    std::unique_ptr<tx::AuthorizationReference> m_unfreed;
    [[nodiscard]] QStringList toolArguments(const QString &application, const QString &archive) const;
};
