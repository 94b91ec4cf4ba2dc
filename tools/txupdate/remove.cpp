// SPDX-License-Identifier: MIT
// txupdate remove.
#include "txupdate/commands.h"
#include "txupdate/feedjson.h"

#include "mover/removal.h"

#include <QJsonArray>
#include <QJsonObject>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace tx::cli {

int remove(const AppOptions &options) {
    const Result<RemovedApplication> removed = removeApplication(options.bundle);
    if (!removed) {
        printError(removed.error(), options.json);
        return ExitFailed;
    }
    if (options.json) {
        printJson(
            QJsonObject{{u"bundle"_s, removed->bundlePath},
                        {u"trash"_s, removed->trash.isNull() ? QJsonValue() : QJsonValue(removed->trash)},
                        {u"files"_s, QJsonArray::fromStringList(removed->files)}});
        return ExitDone;
    }
    if (!removed->trash.isNull())
        std::printf("%s is in the Trash: %s\n", qUtf8Printable(removed->bundlePath),
                    qUtf8Printable(removed->trash));
    for (const QString &file : removed->files)
        std::printf("removed %s\n", qUtf8Printable(file));
    return ExitDone;
}

} // namespace tx::cli
