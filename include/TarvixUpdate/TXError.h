// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QSharedDataPointer>
#include <QString>
#include <QVariantMap>

/// What went wrong: a domain and a code for programs, texts for people. A default-made value means "no
/// error".
///
///     if (const TXError error = result.error())
///         showMessage(error.localizedDescription(), error.localizedRecoverySuggestion());
///
/// Thread: a value; copies may be used on any thread. Texts that are absent are null strings.
class [[nodiscard]] [[gnu::visibility("default")]] TXError {
public:
    TXError();
    TXError(const QString &domain, int code, const QString &description = {},
            const QString &failureReason = {}, const QString &recoverySuggestion = {});
    TXError(const TXError &other);
    TXError(TXError && other) noexcept;
    TXError &operator=(const TXError &other);
    TXError &operator=(TXError &&other) noexcept;
    ~TXError();

    [[nodiscard]] bool isNull() const;
    /// True when this is an error.
    explicit operator bool() const { return !isNull(); }

    [[nodiscard]] QString domain() const;
    [[nodiscard]] int code() const;
    [[nodiscard]] QString localizedDescription() const;
    [[nodiscard]] QString localizedFailureReason() const;
    [[nodiscard]] QString localizedRecoverySuggestion() const;
    /// The error that caused this one; null when there is none.
    TXError underlyingError() const;
    /// Further facts, such as "path".
    [[nodiscard]] QVariantMap userInfo() const;

    /// Copies with one member replaced.
    TXError withUnderlyingError(const TXError &error) const;
    TXError withUserInfo(const QVariantMap &userInfo) const;

    /// One line for logs: domain, code, description, reason and the chain of causes.
    [[nodiscard]] QString toString() const;

    friend TX_EXPORT bool operator==(const TXError &a, const TXError &b);

private:
    struct Data;
    QSharedDataPointer<Data> d;
};

/// Domains that the platform's own errors carry.
TX_EXPORT extern const QString TXURLErrorDomain;   ///< "NSURLErrorDomain": the codes of URL loading
TX_EXPORT extern const QString TXPOSIXErrorDomain; ///< "NSPOSIXErrorDomain": errno values
TX_EXPORT extern const QString TXCocoaErrorDomain; ///< "NSCocoaErrorDomain": launching of programs
