// SPDX-License-Identifier: MIT
#include "publish/fetching.h"

#include "base/loopbackname.h"
#include "base/queues.h"
#include "feed/feedlimits.h"
#include "net/urldownload.h"
#include "os/services.h"
#include "publish/faults.h"

#include <QEventLoop>
#include <QFile>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

constexpr std::chrono::seconds patience(30);

std::string shown(const QUrl &url) { return url.toString(QUrl::RemoveUserInfo).toStdString(); }

Fault faultOf(const QUrl &url, const TXError &error) {
    QString why = error.localizedDescription();
    if (!error.underlyingError().localizedDescription().isEmpty())
        why += u" ("_s + error.underlyingError().localizedDescription() + u')';
    return {FaultKind::File, "the server does not give " + shown(url) + ": " + why.toStdString()};
}

class Download final : public UrlDownloadDelegate {
public:
    Download(QString destination, Progress &progress)
        : m_destination(std::move(destination))
        , m_progress(progress) {}

    TXError run(const UrlRequest &request) {
        m_transfer = services().urlLoader->startDownload(request, *this);
        m_loop.exec();
        return m_error;
    }

    void downloadDidReceiveResponse(UrlDownload &, qint64) override {}
    void downloadDecideDestinationWithSuggestedFilename(UrlDownload &download, const QString &) override {
        download.setDestination(m_destination);
    }
    bool downloadShouldDecodeSourceDataOfMIMEType(UrlDownload &, const QString &) override { return false; }
    void downloadDidReceiveDataOfLength(UrlDownload &, qint64 length) override { m_progress.add(length); }
    void downloadDidFinish(UrlDownload &) override { m_loop.quit(); }
    void downloadDidFailWithError(UrlDownload &, const TXError &error) override {
        m_error = error;
        m_loop.quit();
    }

private:
    const QString m_destination;
    Progress &m_progress;
    QEventLoop m_loop;
    TXError m_error;
    std::unique_ptr<UrlDownload> m_transfer;
};

} // namespace

Outcome<FetchedFile> digestOfFile(const QString &path, Progress &progress) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Fault{FaultKind::File, u"%1: %2"_s.arg(path, file.errorString()).toStdString()};
    trust::DigestStream stream;
    QByteArray buffer(1 << 18, Qt::Uninitialized);
    for (;;) {
        const qint64 count = file.read(buffer.data(), buffer.size());
        if (count < 0)
            return Fault{FaultKind::File, u"%1: %2"_s.arg(path, file.errorString()).toStdString()};
        if (count == 0)
            return FetchedFile{stream.size(), stream.digest()};
        stream.add(buffer.constData(), size_t(count));
        progress.add(count);
    }
}

Verdict fetchFile(const QUrl &url, const QString &path, qint64 most, Progress &progress) {
    UrlRequest request;
    request.url = url;
    request.timeout = patience;
    request.sizeLimit = most;
    // A cache may still hold the bytes from before the upload.
    request.headers = {{"Cache-Control", "no-cache"}};
    Download download(path, progress);
    if (const TXError error = download.run(request))
        return faultOf(url, error);
    return std::nullopt;
}

Outcome<FetchedFile> fetchDigest(const QUrl &url, const QString &scratch, qint64 most, Progress &progress) {
    if (Verdict failed = fetchFile(url, scratch, most, progress))
        return *std::move(failed);
    Progress silent(-1);
    const Outcome<FetchedFile> result = digestOfFile(scratch, silent);
    QFile::remove(scratch);
    return result;
}

Result<UrlResponse> loadAndWait(const UrlRequest &request) {
    Result<UrlResponse> result = UrlResponse();
    QEventLoop loop;
    services().urlLoader->load(request, [&](UrlResponse response, const TXError &error) {
        result = error ? Result<UrlResponse>(error) : Result<UrlResponse>(std::move(response));
        postToMain([&loop] { loop.quit(); });
    });
    loop.exec();
    return result;
}

Outcome<FetchedPage> fetchPage(const QUrl &url) {
    UrlRequest request;
    request.url = url;
    request.timeout = patience;
    request.sizeLimit = largestFeed();
    request.headers = {{"Cache-Control", "no-cache"}};
    const Result<UrlResponse> response = loadAndWait(request);
    if (!response)
        return faultOf(url, response.error());
    constexpr int good = 200;
    if (response->statusCode != good)
        return Fault{FaultKind::File, "the server does not give " + shown(url) + ": it answers with status " +
                                          std::to_string(response->statusCode)};
    return FetchedPage{response->body, response->header("Content-Type")};
}

Verdict checkPublicUrl(const QUrl &url, const QString &what) {
    const bool isHere = url.scheme() == u"http" && isLoopbackName(url.host());
    if (url.isValid() && !url.host().isEmpty() && (url.scheme() == u"https" || isHere))
        return std::nullopt;
    return Fault{FaultKind::Input,
                 u"%1, \"%2\", is not an https URL. Applications load nothing that others on "
                 "the way can change"_s.arg(what, url.toString(QUrl::RemoveUserInfo))
                     .toStdString()};
}

} // namespace tx::publishing
