// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "txupdate/commands.h"

#include <QByteArray>
#include <QUrl>

namespace tx::cli {

struct FeedSource {
    QByteArray data;
    bool isJson = false;
    QByteArray type; ///< with which it is served; null when that is not known
    QUrl url;        ///< from which applications get it; empty when that is not known
};

/// Reads a document from a file, or from a URL without adding parameters. Errors: those that an application
/// would get.
Result<FeedSource> readSource(const FeedOptions &options);

} // namespace tx::cli
