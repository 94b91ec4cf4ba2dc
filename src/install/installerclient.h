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

/// Passes an unpacked application to the installer tool and ends this process.
///
/// The tool is copied into the update cache directory. It is started with the identifier of this process and
/// the paths of the new application, the host bundle and the archive, and reports when it is ready. If it
/// does not report that, this process continues. The tool installs after this process has ended. Thread:
/// main. Errors: domain "TXUpdater", or NSCocoaErrorDomain if the tool could not be started.
class TXUpdateInstallerClient {
public:
    static TXUpdateInstallerClient *sharedInstance();

    /// Starts the installation. On success the process ends with exit status 0, so the function returns true
    /// only in tests. `verified` is the archive of a host with keys: the program that runs as root verifies
    /// it again and installs what it has unpacked itself. Without `verified`, a host with keys never installs
    /// as root.
    bool installUnarchivedApp(const QString &application, const QString &archive, TXError *error,
                              const tx::trust::VerifiedArchive *verified = nullptr);

    /// Returns false if this user may replace the bundle at `destination` with the one at `source`. Either
    /// both the bundle and its parent folder are writable. Or only the bundle is the user's, and both bundles
    /// contain nothing but "Contents" (see contentsProblem()), so that their contents can be exchanged. An
    /// empty `source` is assumed to be such a bundle.
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
    /// The executable in the framework's resources that runs as root if necessary.
    [[nodiscard]] static QString executableOfInstalledTool();
    /// The environment of this session for the tool: "NAME=value" strings, each terminated by NUL. After an
    /// empty string it has what the host passes on to the new version (packed() in src/posix/handover.h).
    [[nodiscard]] static QString environmentRecord();

private:
    TXUpdateInstallerClient();
    ~TXUpdateInstallerClient();
    [[nodiscard]] static TXError prepareFolder();
    [[nodiscard]] static TXError recordSession();

    /// Of the last question that was not answered with yes: it is not freed, as it may be asked again.
    std::unique_ptr<tx::AuthorizationReference> m_unfreed;
    [[nodiscard]] QStringList toolArguments(const QString &application, const QString &archive) const;
};
