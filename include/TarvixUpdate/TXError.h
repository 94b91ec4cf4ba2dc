// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QSharedDataPointer>
#include <QString>
#include <QVariantMap>

/// What went wrong: a domain and a code for programs, strings for people. A default-made value means "no
/// error".
///
///     if (const TXError error = result.error())
///         showMessage(error.localizedDescription(), error.localizedRecoverySuggestion());
///
/// Thread: a value; copies may be used on any thread. Absent strings are null.
class [[nodiscard]] [[gnu::visibility("default")]] TXError {
public:
    /// No error.
    TXError();
    /// An error. `domain` and `code` identify it for programs; the other arguments are shown to users.
    TXError(const QString &domain, int code, const QString &description = {},
            const QString &failureReason = {}, const QString &recoverySuggestion = {});
    /// Copies are cheap: they share their content.
    TXError(const TXError &other);
    /// `other` becomes "no error".
    TXError(TXError && other) noexcept;
    /// See the copy constructor.
    TXError &operator=(const TXError &other);
    /// See the move constructor.
    TXError &operator=(TXError &&other) noexcept;
    ~TXError(); ///< Copies keep the content.

    /// True for "no error".
    [[nodiscard]] bool isNull() const;
    /// True when this is an error.
    explicit operator bool() const { return !isNull(); }

    /// The set of codes that `code` belongs to, such as TXURLErrorDomain.
    [[nodiscard]] QString domain() const;
    /// The number of the error within its domain.
    [[nodiscard]] int code() const;
    /// What happened.
    [[nodiscard]] QString localizedDescription() const;
    /// Why it happened.
    [[nodiscard]] QString localizedFailureReason() const;
    /// What the user can do.
    [[nodiscard]] QString localizedRecoverySuggestion() const;
    /// The error that caused this one; null if there is none.
    TXError underlyingError() const;
    /// Further facts, such as "path".
    [[nodiscard]] QVariantMap userInfo() const;

    /// A copy with another cause.
    TXError withUnderlyingError(const TXError &error) const;
    /// A copy with other facts.
    TXError withUserInfo(const QVariantMap &userInfo) const;

    /// One line for logs: domain, code, description, reason and the chain of causes.
    [[nodiscard]] QString toString() const;

    /// True if domain, code, strings, facts and causes are equal.
    friend TX_EXPORT bool operator==(const TXError &a, const TXError &b);

private:
    struct Data;
    QSharedDataPointer<Data> d;
};

TX_EXPORT extern const QString TXURLErrorDomain;   ///< "NSURLErrorDomain": the codes of URL loading
TX_EXPORT extern const QString TXPOSIXErrorDomain; ///< "NSPOSIXErrorDomain": errno values
TX_EXPORT extern const QString TXCocoaErrorDomain; ///< "NSCocoaErrorDomain": launching of programs
