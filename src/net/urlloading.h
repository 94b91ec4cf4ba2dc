// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QPair>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>

namespace tx {

/// Codes of TXURLErrorDomain.
enum UrlErrorCode : int {
    UrlErrorUnknown = -1,
    UrlErrorCancelled = -999,
    UrlErrorBadURL = -1000,
    UrlErrorTimedOut = -1001,
    UrlErrorUnsupportedURL = -1002,
    UrlErrorCannotFindHost = -1003,
    UrlErrorCannotConnectToHost = -1004,
    UrlErrorNetworkConnectionLost = -1005,
    UrlErrorHTTPTooManyRedirects = -1007,
    UrlErrorNotConnectedToInternet = -1009,
    UrlErrorBadServerResponse = -1011,
    UrlErrorCannotDecodeContentData = -1016,
    UrlErrorRequiresSecureConnection = -1022,
    UrlErrorFileDoesNotExist = -1100,
    UrlErrorDataLengthExceedsMaximum = -1103,
    UrlErrorSecureConnectionFailed = -1200,
    UrlErrorServerCertificateUntrusted = -1202,
    UrlErrorCannotCreateFile = -3000,
    UrlErrorCannotWriteToFile = -3003,
};

/// The error for a code, with `detail` as the text of its underlying error.
TXError urlError(int code, const QUrl &url, const QString &detail);

using HeaderList = QList<QPair<QByteArray, QByteArray>>;

struct UrlRequest {
    QUrl url; ///< http or https; every other scheme fails
    QByteArray method = "GET";
    HeaderList headers;
    QByteArray body;
    std::chrono::milliseconds timeout = std::chrono::seconds(60); ///< longest time without any progress
    qint64 sizeLimit = 0;                   ///< bytes of the body that are accepted; 0: no limit
    std::chrono::milliseconds timeLimit{0}; ///< longest time for all of a load; 0: no limit
    /// Called on the network thread with each piece of a downloaded file, in order, when the piece is
    /// written.
    std::function<void(QByteArrayView piece)> written;
    qint64 minimumRate = 0; ///< bytes a second of a download, on average over any 60 s; 0: no limit
};

struct UrlResponse {
    int statusCode = 0;
    HeaderList headers;
    QByteArray body;

    /// The value under `name`, looked up in any case; null when absent.
    [[nodiscard]] QByteArray header(const QByteArray &name) const;
};

/// Called on the network thread, once; never when the application ends first. The response is the handler's:
/// nothing else keeps the body.
using UrlLoadHandler = std::function<void(UrlResponse response, const TXError &error)>;

class UrlDownload;

/// What happens to a download, in this order; all on the thread that started it.
class UrlDownloadDelegate {
public:
    virtual ~UrlDownloadDelegate() = default;
    /// `expectedLength` is -1 when the server does not say.
    virtual void downloadDidReceiveResponse(UrlDownload &download, qint64 expectedLength) = 0;
    /// Answer with setDestination or cancel.
    virtual void downloadDecideDestinationWithSuggestedFilename(UrlDownload &download,
                                                                const QString &filename) = 0;
    virtual bool downloadShouldDecodeSourceDataOfMIMEType(UrlDownload &download, const QString &type) = 0;
    virtual void downloadDidReceiveDataOfLength(UrlDownload &download, qint64 length) = 0;
    virtual void downloadDidFinish(UrlDownload &download) = 0;
    /// The partial file has been deleted.
    virtual void downloadDidFailWithError(UrlDownload &download, const TXError &error) = 0;
};

/// A running transfer into a file. Destroying it cancels it. Thread: the one that started it.
class UrlDownload {
public:
    virtual ~UrlDownload() = default;
    /// Sets the path of the file. An existing file is replaced. The new file appears there when it is
    /// completely written.
    virtual void setDestination(const QString &path) = 0;
    /// Stops the transfer, deletes the partial file and calls nobody any more. Returns when that is done.
    virtual void cancel() = 0;
};

/// Transfers over HTTP with the system's proxies, on a thread of the framework's own. Thread: any.
class UrlLoader {
public:
    virtual ~UrlLoader() = default;
    virtual void load(const UrlRequest &request, UrlLoadHandler handler) = 0;
    /// The delegate must outlive the download. `request.sizeLimit` applies to both the received and the
    /// decoded bytes.
    virtual std::unique_ptr<UrlDownload> startDownload(const UrlRequest &request,
                                                       UrlDownloadDelegate &delegate) = 0;
    /// Ends the thread; transfers end without a word.
    virtual void stop() = 0;
};

UrlLoader &nativeUrlLoader();

} // namespace tx
