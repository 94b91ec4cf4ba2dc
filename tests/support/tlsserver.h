// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <atomic>
#include <memory>

namespace tx::test {

/// An HTTPS server with a certificate that it signed itself, made below `folder`.
class TlsServer {
public:
    explicit TlsServer(const QString &folder);
    ~TlsServer();
    TlsServer(const TlsServer &) = delete;
    TlsServer &operator=(const TlsServer &) = delete;

    [[nodiscard]] QString url(const QString &path) const;
    /// Requests that reached it.
    [[nodiscard]] int requests() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace tx::test
