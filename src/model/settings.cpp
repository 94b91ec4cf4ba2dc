// SPDX-License-Identifier: MIT
#include "model/settings.h"

#include "os/userdefaults.h"

#include <TarvixUpdate/TXUpdateHost.h>

#include <QUuid>

using namespace Qt::StringLiterals;

const QString TXUpdatePrefUpdateCheckIntervalKey = u"TXUpdateUpdateCheckInterval"_s;
const QString TXUpdatePrefAutomaticallyChecksForUpdatesKey = u"TXUpdateAutomaticallyChecksForUpdates"_s;
const QString TXUpdatePrefAutomaticallyDownloadsUpdatesKey = u"TXUpdateAutomaticallyDownloadsUpdates"_s;
const QString TXUpdatePrefSendsSystemProfileKey = u"TXUpdateSendsSystemProfile"_s;
const QString TXUpdatePrefFeedURLKey = u"TXUpdateFeedURL"_s;
const QString TXUpdatePrefFeedNameKey = u"TXUpdateFeedName"_s;
const QString TXUpdatePrefLastUpdateCheckDateKey = u"TXUpdateLastUpdateCheckDate"_s;
const QString TXUpdatePrefLastSystemProfileDateKey = u"TXUpdateLastSystemProfileDate"_s;
const QString TXUpdatePrefAnonymousUUIDKey = u"TXUpdateAnonymousUUID"_s;
const QString TXUpdatePrefIgnoreVersionKey = u"TXUpdateIgnoreVersion"_s;
const QString TXUpdatePrefPostsCheckInfoKey = u"TXUpdatePostsCheckInfo"_s;
const QString TXUpdateErrorDomain = u"org.tarvixupdate.TarvixUpdate.ErrorDomain"_s;

namespace tx {

QString anonymousUUID() {
    UserDefaults &defaults = UserDefaults::standard();
    const QString stored = defaults.stringValue(TXUpdatePrefAnonymousUUIDKey);
    if (!stored.isNull())
        return stored;
    // Two processes that start at once agree on the one that was stored first.
    return defaults.textOrSet(TXUpdatePrefAnonymousUUIDKey,
                              QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
}

qint64 hostLimit(const QString &key, qint64 usual) {
    bool isNumber = false;
    const qint64 number = TXUpdateHost::host()->bundle().infoDictionary().value(key).toLongLong(&isNumber);
    return isNumber && number > 0 ? number : usual;
}

} // namespace tx
