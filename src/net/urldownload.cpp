// SPDX-License-Identifier: MIT
#include "net/urldownload.h"

#include "base/contentdecoder.h"
#include "base/mailbox.h"
#include "net/networkthread.h"
#include "net/transferwatch.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "posix/updatefoldernames.h"

#include <QFileInfo>
#include <QPointer>
#include <QSslError>
#include <QThread>

#include <atomic>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

constexpr qint64 bufferSize = 256 << 10;

/// Shared by the two threads of a download.
struct Link {
    /// Lives on the starting thread and takes the posts to it.
    std::shared_ptr<Mailbox> receiver{new Mailbox(QThread::currentThread()),
                                      [](Mailbox *mailbox) { mailbox->deleteLater(); }};
    std::atomic<qint64> unreportedBytes{0};
    /// Only the starting thread uses the rest; null once the download has ended.
    UrlDownloadDelegate *delegate = nullptr;
    UrlDownload *download = nullptr;
    QString contentType;

    void toOwner(std::function<void(UrlDownloadDelegate &, UrlDownload &)> work,
                 const std::shared_ptr<Link> &self) {
        receiver->post([self, work = std::move(work)] {
            if (self->delegate)
                work(*self->delegate, *self->download);
        });
    }
};

/// The network thread's side: reads the reply in bounded steps and writes the file unbuffered, so that the
/// memory stays the same however large the archive is.
class DownloadJob final : public QObject {
public:
    DownloadJob(std::shared_ptr<Link> link, const UrlRequest &request, QNetworkAccessManager &manager)
        : m_link(std::move(link))
        , m_request(request)
        // A server that sends a byte from time to time makes progress, but not enough.
        , m_watch({.idle = request.timeout, .rate = request.minimumRate}, [this](const QString &what) {
            if (!m_over)
                fail(urlError(UrlErrorTimedOut, m_reply->url(), what));
        }) {
        QNetworkRequest networkRequest = networkRequestFor(request);
        // Without a coding, the announced length is that of the file. An explicit header also keeps the
        // access manager from decoding what a server encodes anyway: the delegate decides about that.
        networkRequest.setRawHeader("Accept-Encoding", "identity");
        m_reply = manager.get(networkRequest);
        m_reply->setParent(this);
        m_reply->setReadBufferSize(bufferSize);
        connect(m_reply, &QNetworkReply::metaDataChanged, this, [this] { headersArrived(); });
        connect(m_reply, &QNetworkReply::readyRead, this, [this] { drain(); });
        connect(m_reply, &QNetworkReply::sslErrors, this,
                [this](const QList<QSslError> &errors) { m_untrusted = meansUntrusted(errors); });
        connect(m_reply, &QNetworkReply::finished, this, [this] { replyFinished(); });
    }

    ~DownloadJob() override {
        // A manager deletes its replies before it is destroyed.
        if (m_reply) {
            m_reply->disconnect(this);
            if (QNetworkAccessManager *manager = m_reply->manager())
                closeIdleConnections(*manager);
        }
        discardFile();
    }
    Q_DISABLE_COPY_MOVE(DownloadJob)

    void setDestination(const QString &path, bool decode) {
        if (m_over)
            return;
        if (decode)
            m_decoder = ContentDecoder::forCoding(m_reply->rawHeader("Content-Encoding"));
        // A file under the final name is always complete and on disk.
        const QString partial = path.section(u'/', 0, -2) + u'/' + QLatin1StringView(incompleteDownloadName);
        FileSystem &files = *services().fileSystem;
        TXError error = files.exists(path) ? files.remove(path) : TXError();
        if (!error && files.exists(partial))
            error = files.remove(partial);
        Result<std::unique_ptr<OutputFile>> file =
            error ? Result<std::unique_ptr<OutputFile>>(error) : files.create(partial);
        if (!file) {
            fail(urlError(UrlErrorCannotCreateFile, m_reply->url(), file.error().localizedDescription()));
            return;
        }
        m_destination = path;
        m_path = partial;
        m_file = std::move(*file);
        m_watch.setPaused(false);
        drain();
        if (!m_over && m_replyFinished)
            complete();
    }

private:
    void headersArrived() {
        const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (m_over || m_announced || (status >= 300 && status < 400))
            return;
        if (status >= 400) {
            fail(statusError(status));
            return;
        }
        m_announced = true;
        m_watch.setPaused(true); // until there is a destination
        bool known = false;
        const qint64 length = m_reply->rawHeader("Content-Length").toLongLong(&known);
        m_expected = known ? length : -1;
        if (m_request.sizeLimit > 0 && m_expected > m_request.sizeLimit) {
            fail(tooLarge());
            return;
        }
        const QString name = suggestedFilename(m_reply->rawHeader("Content-Disposition"), m_reply->url());
        const QString type = QString::fromLatin1(m_reply->rawHeader("Content-Type"));
        m_link->toOwner(
            [expected = m_expected, name, type, link = m_link](UrlDownloadDelegate &delegate,
                                                               UrlDownload &download) {
                link->contentType = type;
                delegate.downloadDidReceiveResponse(download, expected);
                if (link->delegate)
                    delegate.downloadDecideDestinationWithSuggestedFilename(download, name);
            },
            m_link);
    }

    TXError statusError(int status) const {
        const bool missing = status == 404 || status == 410;
        return urlError(missing ? UrlErrorFileDoesNotExist : UrlErrorBadServerResponse, m_reply->url(),
                        u"The server answered with the status %1."_s.arg(status));
    }

    TXError tooLarge() const {
        return urlError(UrlErrorDataLengthExceedsMaximum, m_reply->url(),
                        u"more than %1 bytes"_s.arg(m_request.sizeLimit));
    }

    void drain() {
        QByteArray &buffer = m_buffer;
        if (!m_file || m_over)
            return;
        buffer.resize(bufferSize);
        for (;;) {
            const qint64 n = m_reply->read(buffer.data(), buffer.size());
            if (n <= 0)
                return;
            m_received += n;
            m_watch.noteProgress(n);
            if (m_request.sizeLimit > 0 && m_received > m_request.sizeLimit) {
                fail(tooLarge());
                return;
            }
            if (!store(QByteArrayView(buffer.constData(), n)))
                return;
        }
    }

    bool store(QByteArrayView data) {
        if (!m_decoder)
            return writeOut(data);
        if (m_decoder->decode(data, [this](QByteArrayView decoded) { return writeOut(decoded); }))
            return true;
        if (!m_over)
            fail(urlError(UrlErrorCannotDecodeContentData, m_reply->url(), u"The coded data is damaged."_s));
        return false;
    }

    bool writeOut(QByteArrayView data) {
        m_written += data.size();
        if (m_request.sizeLimit > 0 && m_written > m_request.sizeLimit) {
            fail(tooLarge());
            return false;
        }
        if (const TXError error = m_file->write(data)) {
            fail(urlError(UrlErrorCannotWriteToFile, m_reply->url(), error.localizedDescription()));
            return false;
        }
        if (m_request.written)
            m_request.written(data);
        // Only one message is pending at a time, however small the pieces; it reports all that has arrived
        // meanwhile.
        if (m_link->unreportedBytes.fetch_add(data.size()) == 0) {
            m_link->toOwner(
                [link = m_link](UrlDownloadDelegate &delegate, UrlDownload &download) {
                    delegate.downloadDidReceiveDataOfLength(download, link->unreportedBytes.exchange(0));
                },
                m_link);
        }
        return true;
    }

    void replyFinished() {
        if (m_over)
            return;
        if (failedInTransport(*m_reply)) {
            fail(transportError(*m_reply, m_untrusted));
            return;
        }
        headersArrived(); // a reply without a body may not have announced itself
        m_replyFinished = true;
        if (!m_over && !m_announced)
            fail(urlError(UrlErrorBadServerResponse, m_reply->url(), u"The server redirects nowhere."_s));
        else if (!m_over && m_file)
            complete();
    }

    void complete() {
        drain();
        if (m_over)
            return;
        if ((m_expected >= 0 && m_received != m_expected) || (m_decoder && !m_decoder->isComplete())) {
            fail(urlError(UrlErrorNetworkConnectionLost, m_reply->url(),
                          u"%1 of %2 bytes arrived."_s.arg(m_received).arg(m_expected)));
            return;
        }
        TXError error = m_file->sync();
        m_file.reset();
        if (!error)
            error = services().fileSystem->rename(m_path, m_destination);
        if (error) {
            fail(urlError(UrlErrorCannotWriteToFile, m_reply->url(), error.localizedDescription()));
            return;
        }
        m_over = true;
        m_path.clear();
        m_link->toOwner([](UrlDownloadDelegate &delegate,
                           UrlDownload &download) { delegate.downloadDidFinish(download); },
                        m_link);
    }

    void fail(const TXError &error) {
        m_over = true;
        discardFile();
        m_link->toOwner(
            [error](UrlDownloadDelegate &delegate, UrlDownload &download) {
                delegate.downloadDidFailWithError(download, error);
            },
            m_link);
        m_reply->abort();
    }

    void discardFile() {
        m_file.reset();
        if (m_path.isEmpty())
            return;
        (void)services().fileSystem->remove(m_path);
        m_path.clear();
    }

    std::shared_ptr<Link> m_link;
    UrlRequest m_request;
    QPointer<QNetworkReply> m_reply;
    std::unique_ptr<OutputFile> m_file;
    std::unique_ptr<ContentDecoder> m_decoder;
    QString m_destination;
    QString m_path; ///< of the incomplete file
    QByteArray m_buffer;
    qint64 m_expected = -1;
    qint64 m_received = 0;
    qint64 m_written = 0; ///< after decoding
    TransferWatch m_watch;
    bool m_announced = false;
    bool m_replyFinished = false;
    bool m_untrusted = false;
    bool m_over = false;
};

/// The starting thread's side.
class NativeUrlDownload final : public UrlDownload {
public:
    NativeUrlDownload(const UrlRequest &request, UrlDownloadDelegate &delegate)
        : m_link(std::make_shared<Link>())
        , m_job(std::make_shared<DownloadJob *>(nullptr)) {
        m_link->delegate = &delegate;
        m_link->download = this;
        NetworkThread::instance().post([request, link = m_link, job = m_job](QNetworkAccessManager &manager) {
            if (const TXError error = checkAddress(request.url)) {
                link->toOwner(
                    [error](UrlDownloadDelegate &owner, UrlDownload &download) {
                        owner.downloadDidFailWithError(download, error);
                    },
                    link);
                return;
            }
            *job = new DownloadJob(link, request, manager);
            (*job)->setParent(&manager); // destroyed with the manager when the application ends
            QObject::connect(*job, &QObject::destroyed, &manager, [job] { *job = nullptr; });
        });
    }

    ~NativeUrlDownload() override { end(); }
    Q_DISABLE_COPY_MOVE(NativeUrlDownload)

    void setDestination(const QString &path) override {
        const bool decode = m_link->delegate && m_link->delegate->downloadShouldDecodeSourceDataOfMIMEType(
                                                    *this, m_link->contentType);
        NetworkThread::instance().post([path, decode, job = m_job](QNetworkAccessManager &) {
            if (*job)
                (*job)->setDestination(path, decode);
        });
    }

    void cancel() override { end(); }

private:
    void end() {
        m_link->delegate = nullptr;
        NetworkThread::instance().runAndWait([job = m_job] { delete *job; });
    }

    std::shared_ptr<Link> m_link;
    std::shared_ptr<DownloadJob *> m_job; ///< only the network thread uses the pointer
};

} // namespace

std::unique_ptr<UrlDownload> startDownload(const UrlRequest &request, UrlDownloadDelegate &delegate) {
    return std::make_unique<NativeUrlDownload>(request, delegate);
}

QString suggestedFilename(const QByteArray &contentDisposition, const QUrl &url) {
    // filename*=UTF-8''... is preferred over filename="...".
    const QString header = QString::fromUtf8(contentDisposition);
    for (const QString &key : {u"filename*="_s, u"filename="_s}) {
        const qsizetype at = header.indexOf(key, 0, Qt::CaseInsensitive);
        if (at < 0)
            continue;
        QString value = header.mid(at + key.size()).trimmed();
        if (value.startsWith(u'"')) {
            value = value.mid(1).section(u'"', 0, 0);
        } else {
            value = value.section(u';', 0, 0).trimmed();
        }
        if (key.endsWith(u"*="))
            value = QUrl::fromPercentEncoding(value.section(u"''"_s, 1).toLatin1());
        if (!value.isEmpty())
            return value;
    }
    const QString last = QFileInfo(url.path()).fileName();
    return last.isEmpty() ? u"Unknown"_s : last;
}

} // namespace tx
