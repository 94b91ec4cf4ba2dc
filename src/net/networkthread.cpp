// SPDX-License-Identifier: MIT
#include "net/networkthread.h"

#include "base/loopbackname.h"
#include "base/queues.h"

#include <TarvixUpdate/TXLog.h>

#include <QNetworkProxy>
#include <QSslError>
#include <QTimer>

#include <utility>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// How long the end of the application waits for a host's handler or a write to a disk that hangs.
constexpr std::chrono::seconds longestWaitAtEnd(5);

/// The system's proxies for the framework's own transfers, without changing the host's global settings.
class SystemProxyFactory final : public QNetworkProxyFactory {
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override {
        // This machine is reached without a proxy, and without looking for one.
        if (isLoopbackName(query.peerHostName()))
            return {QNetworkProxy::NoProxy};
        return systemProxyForQuery(query);
    }
};

} // namespace

NetworkThread &NetworkThread::instance() {
    // Never destroyed: it may be in use while static objects are destroyed.
    static auto *theInstance = new NetworkThread;
    return *theInstance;
}

void NetworkThread::start() {
    if (m_thread || applicationIsEnding())
        return;
    auto *thread = new QThread;
    thread->setObjectName(u"TarvixUpdate network"_s);
    m_manager = new QNetworkAccessManager;
    m_manager->setProxyFactory(new SystemProxyFactory);
    m_manager->moveToThread(thread);
    m_mailbox = std::make_unique<Mailbox>(thread);
    m_thread = thread;
    thread->start();
    whenApplicationEnds([this] { stop(); }, AtEnd::OnAnyThread);
}

std::unique_lock<std::mutex> NetworkThread::lock() {
    if (QThread::currentThread() == m_thread)
        return {};
    return std::unique_lock(m_mutex);
}

void NetworkThread::post(std::function<void(QNetworkAccessManager &)> work) {
    const auto held = lock();
    start();
    if (m_mailbox)
        m_mailbox->post([manager = m_manager, work = std::move(work)] { work(*manager); });
}

void NetworkThread::run(std::function<void(QNetworkAccessManager &)> work) {
    if (QThread::currentThread() == m_thread && m_manager)
        work(*m_manager);
    else
        post(std::move(work));
}

void NetworkThread::runAndWait(const std::function<void()> &work) {
    const auto held = lock();
    if (m_thread)
        m_mailbox->postAndWait(work);
}

void NetworkThread::stop() {
    const auto held = lock();
    QThread *thread = m_thread;
    if (!thread || QThread::currentThread() == thread)
        return;
    const bool ended = m_mailbox->postAndWaitFor(longestWaitAtEnd, [manager = m_manager] {
        // A reply that is deleted reports its end, which nobody must get any more.
        for (QNetworkReply *reply : manager->findChildren<QNetworkReply *>())
            reply->disconnect();
        delete manager;
    });
    m_thread = nullptr;
    m_manager = nullptr;
    if (!ended) {
        (void)m_mailbox.release(); // the thread may still look at it
        TXLog(TXLogLevelFailure, u"TXUpdate: the network thread does not end and is left behind."_s);
        return;
    }
    thread->quit();
    thread->wait();
    m_mailbox.reset();
    delete thread;
}

QNetworkRequest networkRequestFor(const UrlRequest &request) {
    QNetworkRequest result(request.url);
    result.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    result.setMaximumRedirectsAllowed(16);
    result.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    result.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    result.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    result.setRawHeader("User-Agent", "TarvixUpdate/" TARVIXUPDATE_VERSION);
    for (const auto &[name, value] : request.headers)
        result.setRawHeader(name, value);
    return result;
}

void closeIdleConnections(QNetworkAccessManager &manager) {
    // Long enough for the archive to follow its feed on the same connection.
    constexpr std::chrono::milliseconds linger(500);
    const QString name = u"idle connections"_s;
    auto *timer = manager.findChild<QTimer *>(name, Qt::FindDirectChildrenOnly);
    if (!timer) {
        timer = new QTimer(&manager);
        timer->setObjectName(name);
        timer->setSingleShot(true);
        QObject::connect(timer, &QTimer::timeout, &manager, [&manager] {
            if (manager.findChildren<QNetworkReply *>().isEmpty())
                manager.clearConnectionCache();
        });
    }
    timer->start(linger); // again after each transfer
}

bool meansUntrusted(const QList<QSslError> &errors) {
    for (const QSslError &error : errors) {
        switch (error.error()) {
        case QSslError::NoError:
        case QSslError::NoPeerCertificate:
        case QSslError::NoSslSupport:
            break;
        default:
            return true;
        }
    }
    return false;
}

bool failedInTransport(const QNetworkReply &reply) {
    const QNetworkReply::NetworkError error = reply.error();
    if (error == QNetworkReply::NoError)
        return false;
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const bool hasStatus = status.isValid();
    // A body that cannot be decoded, with a status that is not an error.
    if (error == QNetworkReply::UnknownContentError && status.toInt() < 400)
        return true;
    // Errors from 201 on stand for an HTTP status, except those about protocols.
    return !hasStatus || error < QNetworkReply::ContentAccessDenied ||
           error == QNetworkReply::ProtocolUnknownError || error == QNetworkReply::ProtocolFailure;
}

TXError urlError(int code, const QUrl &url, const QString &detail) {
    QString description = u"The request failed."_s;
    switch (code) {
    case UrlErrorBadURL:
        description = u"The address is invalid."_s;
        break;
    case UrlErrorTimedOut:
        description = u"The request timed out."_s;
        break;
    case UrlErrorUnsupportedURL:
        description = u"The address is not supported."_s;
        break;
    case UrlErrorCannotFindHost:
        description = u"The server could not be found."_s;
        break;
    case UrlErrorCannotConnectToHost:
        description = u"Could not connect to the server."_s;
        break;
    case UrlErrorNetworkConnectionLost:
        description = u"The network connection was lost."_s;
        break;
    case UrlErrorHTTPTooManyRedirects:
        description = u"The server redirects too often."_s;
        break;
    case UrlErrorNotConnectedToInternet:
        description = u"There is no connection to the internet."_s;
        break;
    case UrlErrorBadServerResponse:
        description = u"The server answered with an error."_s;
        break;
    case UrlErrorRequiresSecureConnection:
        description = u"The server redirects to an insecure address."_s;
        break;
    case UrlErrorFileDoesNotExist:
        description = u"The file does not exist on the server."_s;
        break;
    case UrlErrorDataLengthExceedsMaximum:
        description = u"The server sends more than is accepted."_s;
        break;
    case UrlErrorSecureConnectionFailed:
        description = u"A secure connection could not be made."_s;
        break;
    case UrlErrorServerCertificateUntrusted:
        description = u"The certificate of the server is not trusted."_s;
        break;
    case UrlErrorCannotCreateFile:
    case UrlErrorCannotWriteToFile:
        description = u"The file could not be written."_s;
        break;
    default:
        break;
    }
    TXError error(TXURLErrorDomain, code, description);
    if (!url.isEmpty())
        error = error.withUserInfo({{u"url"_s, url.toString(QUrl::RemoveUserInfo)}});
    return detail.isEmpty() ? error
                            : error.withUnderlyingError(TXError(u"TarvixUpdateNetwork"_s, code, detail));
}

TXError transportError(const QNetworkReply &reply, bool untrusted) {
    int code = UrlErrorUnknown;
    switch (reply.error()) {
    case QNetworkReply::ConnectionRefusedError:
        code = UrlErrorCannotConnectToHost;
        break;
    case QNetworkReply::RemoteHostClosedError:
        code = UrlErrorNetworkConnectionLost;
        break;
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::ProxyNotFoundError:
        code = UrlErrorCannotFindHost;
        break;
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: // raised when a time limit is exceeded
        code = UrlErrorTimedOut;
        break;
    case QNetworkReply::SslHandshakeFailedError:
        code = untrusted ? UrlErrorServerCertificateUntrusted : UrlErrorSecureConnectionFailed;
        break;
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::UnknownNetworkError: // unreachable networks among them
        code = UrlErrorNotConnectedToInternet;
        break;
    case QNetworkReply::TooManyRedirectsError:
        code = UrlErrorHTTPTooManyRedirects;
        break;
    case QNetworkReply::InsecureRedirectError:
        code = UrlErrorRequiresSecureConnection;
        break;
    case QNetworkReply::ProtocolUnknownError:
    case QNetworkReply::ProtocolInvalidOperationError:
        code = UrlErrorUnsupportedURL;
        break;
    case QNetworkReply::ProtocolFailure:
        code = UrlErrorBadServerResponse;
        break;
    case QNetworkReply::UnknownContentError:
        code = UrlErrorCannotDecodeContentData;
        break;
    default:
        break;
    }
    return urlError(code, reply.url(), reply.errorString());
}

} // namespace tx
