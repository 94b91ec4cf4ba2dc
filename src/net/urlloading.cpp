// SPDX-License-Identifier: MIT
#include "net/urlloading.h"

#include "net/networkthread.h"
#include "net/transferwatch.h"
#include "net/urldownload.h"

#include <QSslError>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// One request whose body is kept in memory. Lives on the network thread as a child of its reply.
class LoadJob final : public QObject {
public:
    LoadJob(QNetworkReply *reply, const UrlRequest &request, UrlLoadHandler handler)
        : QObject(reply)
        , m_reply(reply)
        , m_sizeLimit(request.sizeLimit)
        , m_handler(std::move(handler))
        // A server that sends a byte from time to time makes progress, but not forever.
        , m_watch({.idle = request.timeout, .total = request.timeLimit}, [this](const QString &what) {
            m_broken = what;
            m_reply->abort();
        }) {
        reply->setReadBufferSize(bufferSize);
        connect(reply, &QNetworkReply::readyRead, this, [this] { readSome(); });
        connect(reply, &QNetworkReply::sslErrors, this,
                [this](const QList<QSslError> &errors) { m_untrusted = meansUntrusted(errors); });
        connect(reply, &QNetworkReply::finished, this, [this] { finish(); });
        connect(reply, &QNetworkReply::metaDataChanged, this, [this] { m_watch.noteProgress(); });
        connect(reply, &QNetworkReply::uploadProgress, this, [this] { m_watch.noteProgress(); });
    }

private:
    void readSome() {
        if (m_tooLarge)
            return;
        m_watch.noteProgress();
        QByteArray &body = m_response.body;
        if (body.isEmpty()) {
            // The server's length is only a hint, used up to the limit. Memory for bytes that do not arrive
            // is never touched.
            constexpr qint64 usual = 1LL << 20;
            const qint64 length = m_reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
            makeRoom(std::clamp(length, 0LL, m_sizeLimit > 0 ? m_sizeLimit : usual));
        }
        // Directly into the body and in small pieces: buffers in between would take memory as well.
        while (m_reply->bytesAvailable() > 0 && !m_tooLarge) {
            const qsizetype before = body.size();
            makeRoom(before + std::min(m_reply->bytesAvailable(), bufferSize));
            // If a body must be decoded, the number of available bytes is unknown.
            const qsizetype piece = std::min<qint64>(body.capacity() - room - before, bufferSize);
            body.resize(before + piece);
            const qint64 count = m_reply->read(body.data() + before, piece);
            body.resize(before + std::max<qint64>(count, 0));
            if (count <= 0)
                break;
            m_tooLarge = m_sizeLimit > 0 && body.size() > m_sizeLimit;
        }
        if (m_tooLarge) {
            body = QByteArray();
            m_reply->abort();
        }
    }

    /// Grows the body to `size` plus the padding that the reader of a feed needs, so that the reader need not
    /// copy it. Growing copies, so the size doubles, up to the limit.
    void makeRoom(qsizetype size) {
        QByteArray &body = m_response.body;
        if (body.capacity() >= size + room)
            return;
        qsizetype larger = std::max(size, 2 * body.capacity());
        if (m_sizeLimit > 0)
            larger = std::max<qsizetype>(size, std::min<qint64>(larger, m_sizeLimit));
        body.reserve(larger + room);
    }

    void finish() {
        TXError error;
        if (!m_tooLarge && !failedInTransport(*m_reply))
            readSome();
        if (m_tooLarge)
            error = urlError(UrlErrorDataLengthExceedsMaximum, m_reply->url(),
                             u"more than %1 bytes"_s.arg(m_sizeLimit));
        else if (!m_broken.isNull())
            error = urlError(UrlErrorTimedOut, m_reply->url(), m_broken);
        else if (failedInTransport(*m_reply))
            error = transportError(*m_reply, m_untrusted);
        m_response.statusCode = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        m_response.headers = m_reply->rawHeaderPairs();
        const UrlLoadHandler handler = std::move(m_handler);
        m_reply->deleteLater();
        QNetworkAccessManager &manager = *m_reply->manager();
        handler(std::exchange(m_response, {}), error);
        closeIdleConnections(manager); // last: it is not urgent
    }

    // Without a limit the access manager reads all that a fast server sends before it reports it.
    static constexpr qint64 bufferSize = 256 << 10;
    static constexpr qsizetype room = 64;

    QNetworkReply *m_reply;
    qint64 m_sizeLimit;
    UrlLoadHandler m_handler;
    TransferWatch m_watch;
    QString m_broken; ///< the time limit that was exceeded
    UrlResponse m_response;
    bool m_untrusted = false;
    bool m_tooLarge = false;
};

class NativeUrlLoader final : public UrlLoader {
public:
    void load(const UrlRequest &request, UrlLoadHandler handler) override {
        NetworkThread::instance().run(
            [request, handler = std::move(handler)](QNetworkAccessManager &manager) {
                if (const TXError error = checkAddress(request.url)) {
                    handler({}, error);
                    return;
                }
                const QNetworkRequest sent = networkRequestFor(request);
                // A request of another kind is sent only after a body has been passed between threads.
                QNetworkReply *reply = request.method == "GET" && request.body.isNull()
                                           ? manager.get(sent)
                                           : manager.sendCustomRequest(sent, request.method, request.body);
                new LoadJob(reply, request, handler);
            });
    }

    std::unique_ptr<UrlDownload> startDownload(const UrlRequest &request,
                                               UrlDownloadDelegate &delegate) override {
        return tx::startDownload(request, delegate);
    }

    void stop() override { NetworkThread::instance().stop(); }
};

} // namespace

TXError checkAddress(const QUrl &url) {
    if (!url.isValid() || url.isEmpty())
        return urlError(UrlErrorBadURL, url, u"The address is invalid."_s);
    if (url.scheme() != u"http" && url.scheme() != u"https")
        return urlError(UrlErrorUnsupportedURL, url,
                        url.scheme().isEmpty()
                            ? u"The address has no protocol."_s
                            : u"The protocol \"%1\" is not supported."_s.arg(url.scheme()));
    if (url.host().isEmpty())
        return urlError(UrlErrorBadURL, url, u"The address names no host."_s);
    return {};
}

QByteArray UrlResponse::header(const QByteArray &name) const {
    for (const auto &[key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

UrlLoader &nativeUrlLoader() {
    static auto &instance = *new NativeUrlLoader; // a thread may outlast static objects
    return instance;
}

} // namespace tx
