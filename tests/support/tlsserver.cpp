// SPDX-License-Identifier: MIT
#include "tests/support/tlsserver.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <openssl/x509v3.h>

#include <mutex>

using namespace Qt::StringLiterals;

namespace tx::test {

struct TlsServer::State {
    std::unique_ptr<httplib::SSLServer> server;
    std::thread thread;
    int port = 0;
    std::atomic<int> requests{0};
    QByteArray certificate;
    std::mutex mutex;
    std::function<HttpReply(const QByteArray &)> answer = [](const QByteArray &) {
        return HttpReply::json("{}");
    };
};

namespace {

/// A certificate for 127.0.0.1 that signs itself, with its key.
class OwnCertificate {
public:
    OwnCertificate()
        : m_key(EVP_EC_gen("P-256"))
        , m_certificate(X509_new()) {
        constexpr long days = 86400;
        X509 *certificate = m_certificate.get();
        X509_set_version(certificate, 2);
        BIGNUM *number = BN_new();
        BN_rand(number, 64, 0, 0);
        BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate));
        BN_free(number);
        X509_gmtime_adj(X509_getm_notBefore(certificate), -days);
        X509_gmtime_adj(X509_getm_notAfter(certificate), 2 * days);
        X509_set_pubkey(certificate, m_key.get());
        X509_NAME *name = X509_get_subject_name(certificate);
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char *>("127.0.0.1"), -1, -1, 0);
        X509_set_issuer_name(certificate, name);
        for (const auto &[identifier, value] :
             {std::pair(NID_subject_alt_name, "IP:127.0.0.1"), std::pair(NID_basic_constraints, "CA:TRUE")}) {
            X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, nullptr, identifier, value);
            X509_add_ext(certificate, extension, -1);
            X509_EXTENSION_free(extension);
        }
        EXPECT_GT(X509_sign(certificate, m_key.get(), EVP_sha256()), 0);
    }
    [[nodiscard]] X509 *certificate() const { return m_certificate.get(); }
    [[nodiscard]] EVP_PKEY *key() const { return m_key.get(); }
    [[nodiscard]] QByteArray der() const {
        unsigned char *data = nullptr;
        const int length = i2d_X509(m_certificate.get(), &data);
        QByteArray result(reinterpret_cast<const char *>(data), length);
        OPENSSL_free(data);
        return result;
    }

private:
    struct Free {
        void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
        void operator()(X509 *certificate) const { X509_free(certificate); }
    };
    std::unique_ptr<EVP_PKEY, Free> m_key;
    std::unique_ptr<X509, Free> m_certificate;
};

} // namespace

TlsServer::TlsServer()
    : m_state(std::make_unique<State>()) {
    const OwnCertificate own;
    m_state->certificate = own.der();
    m_state->server = std::make_unique<httplib::SSLServer>(own.certificate(), own.key());
    // Each request is a handshake of its own.
    m_state->server->set_keep_alive_max_count(1);
    m_state->server->Get(
        ".*", [state = m_state.get()](const httplib::Request &request, httplib::Response &response) {
            ++state->requests;
            const std::lock_guard lock(state->mutex);
            const HttpReply reply = state->answer(QByteArray::fromStdString(request.path));
            response.status = reply.status;
            std::string type = "application/json";
            for (const auto &[name, value] : reply.headers) {
                if (name == "Content-Type")
                    type = value.toStdString();
                else
                    response.set_header(name.toStdString(), value.toStdString());
            }
            response.set_content(reply.body.toStdString(), type);
        });
    m_state->port = m_state->server->bind_to_any_port("127.0.0.1");
    EXPECT_GT(m_state->port, 0);
    m_state->thread = std::thread([state = m_state.get()] { state->server->listen_after_bind(); });
}

void TlsServer::answer(std::function<HttpReply(const QByteArray &path)> reply) {
    const std::lock_guard lock(m_state->mutex);
    m_state->answer = std::move(reply);
}

void TlsServer::changeCertificate() {
    const OwnCertificate own;
    SSL_CTX *context = m_state->server->ssl_context();
    EXPECT_EQ(SSL_CTX_use_certificate(context, own.certificate()), 1);
    EXPECT_EQ(SSL_CTX_use_PrivateKey(context, own.key()), 1);
}

QByteArray TlsServer::certificate() const { return m_state->certificate; }

TlsServer::~TlsServer() {
    m_state->server->stop();
    m_state->thread.join();
}

QString TlsServer::url(const QString &path) const {
    return u"https://127.0.0.1:%1%2"_s.arg(m_state->port).arg(path);
}

int TlsServer::requests() const { return m_state->requests; }

} // namespace tx::test
