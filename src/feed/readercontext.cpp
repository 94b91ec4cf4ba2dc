// SPDX-License-Identifier: MIT
#include "feed/readercontext.h"

#include "model/entrysignatures.h"
#include "model/feedvalues.h"
#include "model/names.h"
#include "os/services.h"

#include <TarvixUpdate/TXLog.h>
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

QString reasonAgainstSignatures(const FeedEntry &entry, const ReaderContext &context) {
    if (!context.trust)
        return {};
    if (!isFeedAddress(entry.bytes(FeedEntry::Member::DownloadURL)))
        return context.isSigned ? QString() : u"it names only a web page, and the feed is not signed"_s;
    const trust::Verdict refused = examineSignatures(
        entry, *context.trust->keys,
        {context.trust->bundle, std::string(entry.bytes(FeedEntry::Member::Build)), context.trust->feedName});
    if (!refused)
        return {};
    const QString reason = u"no usable signature: "_s + QString::fromStdString(refused->what);
    TXLog(TXLogLevelDetail, u"TXUpdate: Build %@ is left out: %@"_s,
          {entry.text(FeedEntry::Member::Build), reason});
    return reason;
}

TXError unreadableFeed(const QString &what) {
    return TXError(updaterErrorDomain, 0, u"The feed cannot be read: "_s + what, what);
}

} // namespace tx
