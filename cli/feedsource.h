// SPDX-License-Identifier: MIT
#pragma once

#include "cli/commands.h"
#include "platform/result.h"

namespace tx::cli {

struct FeedSource {
    QByteArray data;
    bool isJson = false;
};

/// The document at a file's path or an address, which is fetched without added parameters. Errors: those that
/// an application would get.
Result<FeedSource> readSource(const FeedOptions &options);

} // namespace tx::cli
