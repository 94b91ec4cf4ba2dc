// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/feedserver.h"

#include <QSslCertificate>
#include <QSslConfiguration>
#include <QString>

#include <functional>
#include <memory>

namespace tx::test {

/// An HTTPS server with a certificate that it signed itself.
class TlsServer {
public:
    TlsServer();
    ~TlsServer();
    TlsServer(const TlsServer &) = delete;
    TlsServer &operator=(const TlsServer &) = delete;

    [[nodiscard]] QString url(const QString &path) const;
    /// What it answers; an empty JSON object by default. Call before the first request.
    void answer(std::function<HttpReply(const QByteArray &path)> reply);
    /// Has another certificate for the connections to come.
    void changeCertificate();
    /// The certificate that it had first, in DER.
    [[nodiscard]] QByteArray certificate() const;
    /// Requests that reached it.
    [[nodiscard]] int requests() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// Trusts a server's certificate while it lives.
class Trusted {
public:
    explicit Trusted(const tx::test::TlsServer &server)
        : m_before(QSslConfiguration::defaultConfiguration()) {
        QSslConfiguration trusting = m_before;
        trusting.addCaCertificate(QSslCertificate(server.certificate(), QSsl::Der));
        QSslConfiguration::setDefaultConfiguration(trusting);
    }
    ~Trusted() { QSslConfiguration::setDefaultConfiguration(m_before); }
    Q_DISABLE_COPY_MOVE(Trusted)

private:
    QSslConfiguration m_before;
};

} // namespace tx::test
