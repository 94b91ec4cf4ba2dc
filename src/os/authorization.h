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

/// What is done with an administrator's rights.
struct AuthorizedJob {
    QStringList words;
    int archive = -1; ///< open for reading; goes with "install-signed" only
};

/// The name of an item of the environment of AuthorizationCopyRights whose value is shown among the details
/// of the question for the password.
inline constexpr const char *authorizationDetail = "detail";

class AuthorizationReference {
public:
    virtual ~AuthorizationReference() = default;
};

/// Does three jobs with an administrator's rights after asking the user for them. Calls block while the
/// system shows its dialog. Thread: any.
class Authorization {
public:
    virtual ~Authorization() = default;
    virtual int create(const QList<AuthorizationItem> &environment, unsigned flags,
                       std::unique_ptr<AuthorizationReference> &reference) = 0;
    /// Asks the user for `rights`; the granted ones go to `authorized`. Of `environment` only
    /// authorizationDetail is used on Linux, which has its own text for the question.
    virtual int copyRights(AuthorizationReference &reference, const QList<AuthorizationItem> &rights,
                           const QList<AuthorizationItem> &environment, unsigned flags,
                           QList<AuthorizationItem> *authorized) = 0;
    /// Begins one of the three jobs that exist: {"install", process, new application, archive} installs an
    /// update of the application that the framework's resources are a part of and that has no keys;
    /// {"install-signed", process, application, new application, archive, plain signature, its length,
    /// signature texts...} verifies, unpacks and installs one of an application with keys; {"move", folder}
    /// copies that application into an Applications folder. The job uses up the rights. Its words come out
    /// of `task`: "ready\n" from the installer, "moved\n" from the move.
    virtual int executeWithPrivileges(AuthorizationReference &reference, const AuthorizedJob &job,
                                      unsigned flags, std::unique_ptr<Task> &task) = 0;
    /// Whether this application has a way to an administrator's rights: its own program for that must be a
    /// part of it that only root can change. If not, a line in the log says why.
    [[nodiscard]] virtual bool canExecute() const = 0;
    virtual void free(std::unique_ptr<AuthorizationReference> reference, unsigned flags) = 0;
};

Authorization &nativeAuthorization();

} // namespace tx
