// SPDX-License-Identifier: MIT
#include "feed/readercontext.h"

#include "model/names.h"
#include "os/services.h"

#include <TarvixUpdate/TXUpdateHost.h>

using namespace Qt::StringLiterals;

namespace tx {

ReaderContext ReaderContext::forHost(const QUrl &feedURL) {
    const TXUpdateHost *host = TXUpdateHost::host();
    ReaderContext context;
    context.appBuild = host->version();
    context.systemVersion = host->systemVersionString();
    context.now = services().now();
    context.isSecure = feedURL.scheme() == u"https";
    return context;
}

TXError unreadableFeed(const QString &what) {
    return TXError(updaterErrorDomain, 0, u"The feed cannot be read: "_s + what, what);
}

} // namespace tx
