// SPDX-License-Identifier: MIT
#include "txupdate/feedsource.h"

#include "feed/feedlimits.h"
#include "feed/jsonvalues.h"
#include "publish/fetching.h"

#include <TarvixUpdate/TXUpdateFeed.h>

#include <QFile>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

const QString jsonType = u"application/json"_s;

Result<FeedSource> fetch(const QUrl &url, const QString &contentType) {
    UrlRequest request;
    request.url = url;
    request.timeout = std::chrono::seconds(30);
    request.sizeLimit = largestFeed();
    const Result<UrlResponse> response = publishing::loadAndWait(request);
    if (!response)
        return TXUpdateFeed::errorForLoading(response.error());
    if (response->statusCode != 200)
        return TXUpdateFeed::errorForHTTPStatus(response->statusCode);
    const QString served =
        contentType.isNull() ? QString::fromLatin1(response->header("Content-Type")) : contentType;
    return FeedSource{response->body, served == jsonType, served.toLatin1(), url};
}

Result<FeedSource> readDocument(const FeedOptions &options) {
    const QUrl url(options.source);
    if (url.scheme() == u"http" || url.scheme() == u"https")
        return fetch(url, options.contentType);
    QFile file(options.source);
    if (!file.open(QIODevice::ReadOnly))
        return TXError(u"NSPOSIXErrorDomain"_s, 0, u"%1: %2"_s.arg(options.source, file.errorString()));
    FeedSource source{file.readAll(), false, options.contentType.toLatin1(), {}};
    if (!options.contentType.isNull())
        source.isJson = options.contentType == jsonType;
    else
        source.isJson = !asUtf8(source.data).trimmed().startsWith('<');
    return source;
}

} // namespace

Result<FeedSource> readSource(const FeedOptions &options) {
    Result<FeedSource> source = readDocument(options);
    if (source && !options.url.isNull())
        source->url = QUrl(options.url);
    return source;
}

} // namespace tx::cli
