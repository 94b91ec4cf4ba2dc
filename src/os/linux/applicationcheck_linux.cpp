// SPDX-License-Identifier: MIT
#include "os/applicationcheck.h"

#include "posix/startable.h"

#include <QFile>

namespace tx {

QString whyApplicationCannotStart(const QString &bundlePath, const QString &placeOfBundle) {
    const std::string why = whyItCannotStart(QFile::encodeName(bundlePath).toStdString(),
                                             QFile::encodeName(placeOfBundle).toStdString());
    return why.empty() ? QString() : QFile::decodeName(why.c_str());
}

} // namespace tx
