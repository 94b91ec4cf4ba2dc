// SPDX-License-Identifier: MIT
#include "txupdate/helpers.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace tx::cli {

QString helperProgram(const QString &name) {
    const QString own = QFileInfo(u"/proc/self/exe"_s).canonicalPath();
    const QString beside = own + u'/' + name;
    // The installed one comes first: an earlier version was installed beside this program.
    const QString installed = QDir::cleanPath(own + u"/" TARVIXUPDATE_HELPERS_FROM_BIN "/"_s + name);
    return QFileInfo(installed).isExecutable() || !QFileInfo::exists(beside) ? installed : beside;
}

} // namespace tx::cli
