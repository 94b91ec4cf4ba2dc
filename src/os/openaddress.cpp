// SPDX-License-Identifier: MIT
#include "os/openaddress.h"

#include "base/shared.h"
#include "os/services.h"
#include "os/workspace.h"

#include <TarvixUpdate/TXLog.h>

#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QUrl withoutAttachments(QUrl url) {
    QUrlQuery kept;
    for (const auto &[name, value] : QUrlQuery(url).queryItems(QUrl::FullyEncoded)) {
        for (const QLatin1StringView known : {"to"_L1, "cc"_L1, "bcc"_L1, "subject"_L1, "body"_L1}) {
            if (name.compare(known, Qt::CaseInsensitive) == 0)
                kept.addQueryItem(name, value);
        }
    }
    url.setQuery(kept);
    url.setFragment({});
    return url;
}

} // namespace

TX_SHARED bool openAddress(const QUrl &url, OpenedBy openedBy) {
    const QString scheme = url.scheme();
    QUrl allowed;
    if (url.isValid() && (scheme == u"http" || scheme == u"https") && !url.host().isEmpty())
        allowed = url;
    else if (url.isValid() && scheme == u"mailto" && openedBy == OpenedBy::User)
        allowed = withoutAttachments(url);
    if (allowed.isEmpty()) {
        TXLog(TXLogLevelFailure,
              u"TXUpdate: the address %@ is not opened: only http and https addresses are, and mail "
              "addresses that the user clicked on"_s,
              {url.toDisplayString()});
        return false;
    }
    const TXError error = services().workspace->openUrl(allowed);
    if (error)
        TXLog(TXLogLevelFailure, u"TXUpdate: the address %@ cannot be opened. %@"_s,
              {allowed.toDisplayString(), error.toString()});
    return error.isNull();
}

} // namespace tx
