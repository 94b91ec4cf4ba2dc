// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdate.h>

namespace tx {

/// What a reader fills an update with. Addresses are percent-encoded, empty when absent.
struct UpdateFields {
    QString title;
    QString version;
    QString displayVersion;
    QString dateString;
    QString itemDescription;
    QString extra;
    QByteArray releaseNotesURL;
    QByteArray fileURL;
    QByteArray linkURL;
    QSizeF preferredDisplaySize{0, 0};
    std::optional<TXUpdateItemConditions> conditions;
    bool excludeFromAutoDownloading = false;
    bool isFromSecureFeed = false; ///< which names only https archives
};

/// Makes updates without announcing each property. Thread: any; the update belongs to the main thread, where
/// it is also deleted, whoever lets go of it last.
class UpdateBuilder {
public:
    static TXUpdatePtr make(UpdateFields fields);
};

} // namespace tx
