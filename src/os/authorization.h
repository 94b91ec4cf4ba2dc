// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <memory>
#include <optional>

namespace tx {

class Task;

/// Status values of authorization; 0 is success.
enum AuthorizationStatus : int {
    AuthorizationSuccess = 0,
    AuthorizationDenied = -60005,
    AuthorizationCanceled = -60006,
    AuthorizationToolExecuteFailure = -60031,
};

enum AuthorizationFlags : unsigned {
    AuthorizationFlagDefaults = 0,
    AuthorizationFlagInteractionAllowed = 1U << 0,
    AuthorizationFlagExtendRights = 1U << 1,
    AuthorizationFlagDestroyRights = 1U << 3,
    AuthorizationFlagPreAuthorize = 1U << 4,
};

/// A right, or one entry of the environment of the question to the user.
struct AuthorizationItem {
    QByteArray name;
    std::optional<QByteArray> value;
    quint64 valueLength = 0; ///< as the caller counts it
    quint32 flags = 0;
};

/// A job that runs as root.
struct AuthorizedJob {
    QStringList words;
    int archive = -1; ///< a descriptor open for reading; only for "install-signed"
};

/// The key of an item in the environment of AuthorizationCopyRights. Its value is shown among the details of
/// the password dialog.
inline constexpr const char *authorizationDetail = "detail";

class AuthorizationReference {
public:
    virtual ~AuthorizationReference() = default;
};

/// Runs one of three jobs as root after asking the user for permission. Calls block while the system shows
/// its dialog. Thread: any.
/// system shows its dialog. Thread: any.
class Authorization {
public:
    virtual ~Authorization() = default;
    virtual int create(const QList<AuthorizationItem> &environment, unsigned flags,
                       std::unique_ptr<AuthorizationReference> &reference) = 0;
    /// Asks the user for `rights` and stores the granted ones in `authorized`. On Linux only the item
    /// authorizationDetail of `environment` is used, because the dialog's text comes from the system.
    virtual int copyRights(AuthorizationReference &reference, const QList<AuthorizationItem> &rights,
                           const QList<AuthorizationItem> &environment, unsigned flags,
                           QList<AuthorizationItem> *authorized) = 0;
    /// Starts one of the three jobs:
    ///
    ///   {"install", process, new application, archive}
    ///       Updates the application that contains the framework's resources. The application has no keys.
    ///   {"install-signed", process, application, new application, archive, plain signature, its length,
    ///    signature texts...}
    ///       Verifies, unpacks and installs an update of an application with keys.
    ///   {"move", folder}
    ///       Copies the application into an Applications folder.
    ///
    /// A job can be started once for each call of copyRights(). `task` delivers its output: "ready\n" from
    /// the installer, "moved\n" from the move.
    virtual int executeWithPrivileges(AuthorizationReference &reference, const AuthorizedJob &job,
                                      unsigned flags, std::unique_ptr<Task> &task) = 0;
    /// Returns whether this application can get root's rights: its helper program must be part of it, and
    /// only root may be able to change that program. If not, logs the reason.
    [[nodiscard]] virtual bool canExecute() const = 0;
    virtual void free(std::unique_ptr<AuthorizationReference> reference, unsigned flags) = 0;
};

Authorization &nativeAuthorization();

} // namespace tx
