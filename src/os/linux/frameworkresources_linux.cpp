// SPDX-License-Identifier: MIT
#include "os/frameworkresources.h"

#include "base/shared.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QString findResources() {
    Dl_info info{};
    // The object that this very function was loaded from: the shared library, or the program itself.
    QString folder;
    if (dladdr(reinterpret_cast<const void *>(&frameworkResourcesPath), &info) != 0 && info.dli_fname)
        folder = QFileInfo(QFile::decodeName(info.dli_fname)).canonicalPath();
    // In a bundle and in a build tree the resources are beside the library. An installed package has them
    // below libexec, reached from the library or from a program. A program of a build tree finds them below
    // lib.
    for (const QString &relative :
         {u"/TarvixUpdate/Resources"_s, u"/" TARVIXUPDATE_RESOURCES_FROM_LIB ""_s,
          u"/" TARVIXUPDATE_RESOURCES_FROM_BIN ""_s, u"/../lib/TarvixUpdate/Resources"_s}) {
        const QString candidate = QDir::cleanPath(folder + relative);
        if (!folder.isEmpty() && QFileInfo(candidate).isDir())
            return candidate;
    }
    const QString fallback = qEnvironmentVariable("TXUPDATE_RESOURCES");
    return fallback.isEmpty() ? folder + u"/TarvixUpdate/Resources"_s : fallback;
}

} // namespace

TX_SHARED QString frameworkResourcesPath() {
    static const auto &path = *new QString(findResources()); // a thread may outlast static objects
    return path;
}

} // namespace tx
