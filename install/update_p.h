// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdate.h>

struct TXUpdate::Private {
    QString title;
    QString version;
    QString displayVersion;
    QString dateString;
    QString itemDescription;
    QString extra;
    // Kept encoded and parsed when asked for: a parsed address takes ten times the memory, and a feed may
    // hold thousands of updates of which one is used.
    QByteArray releaseNotesURL;
    QByteArray fileURL;
    QByteArray linkURL;
    QSizeF preferredDisplaySize{0, 0};
    std::optional<TXUpdateItemConditions> conditions;
    bool excludeFromAutoDownloading = false;

    bool isDownloaded = false;
    bool isDownloading = false;
    bool isInstalling = false;
    bool isInstalled = false;
    double downloadProgress = 0;
    quint64 downloadSize = 0;
    QString downloadPath;
    std::shared_ptr<tx::UpdateDownload> download;
    CompletionHandler installErrorHandler;
};

namespace tx {

/// Stores a value and announces the change when it is one.
template <typename T, typename Signal>
void assign(TXUpdate &update, T &member, const T &value, Signal signal) {
    if (member == value)
        return;
    member = value;
    Q_EMIT(update.*signal)();
}

} // namespace tx
