// SPDX-License-Identifier: MIT
#include "tests/support/tlsserver.h"

#include "tests/support/processes.h"

#include <QDir>

#include <gtest/gtest.h>
#include <httplib.h>

using namespace Qt::StringLiterals;

namespace tx::test {

struct TlsServer::State {
    std::unique_ptr<httplib::SSLServer> server;
    std::thread thread;
    int port = 0;
    std::atomic<int> requests{0};
};

TlsServer::TlsServer(const QString &folder)
    : m_state(std::make_unique<State>()) {
    QDir().mkpath(folder);
    const QString key = folder + u"/key.pem"_s;
    const QString certificate = folder + u"/certificate.pem"_s;
    const ProcessResult made =
        runProcess(u"openssl"_s, {u"req"_s, u"-x509"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s,
                                  u"ec_paramgen_curve:prime256v1"_s, u"-nodes"_s, u"-keyout"_s, key,
                                  u"-out"_s, certificate, u"-days"_s, u"2"_s, u"-subj"_s, u"/CN=127.0.0.1"_s,
                                  u"-addext"_s, u"subjectAltName=IP:127.0.0.1"_s});
    EXPECT_EQ(made.status, 0) << made.errors.constData();
    m_state->server =
        std::make_unique<httplib::SSLServer>(certificate.toUtf8().constData(), key.toUtf8().constData());
    m_state->server->Get(".*",
                         [state = m_state.get()](const httplib::Request &, httplib::Response &response) {
                             ++state->requests;
                             response.set_content("{}", "application/json");
                         });
    m_state->port = m_state->server->bind_to_any_port("127.0.0.1");
    EXPECT_GT(m_state->port, 0);
    m_state->thread = std::thread([state = m_state.get()] { state->server->listen_after_bind(); });
}

TlsServer::~TlsServer() {
    m_state->server->stop();
    m_state->thread.join();
}

QString TlsServer::url(const QString &path) const {
    return u"https://127.0.0.1:%1%2"_s.arg(m_state->port).arg(path);
}

int TlsServer::requests() const { return m_state->requests; }

} // namespace tx::test
