// SPDX-License-Identifier: MIT
#include "os/directories.h"

#include "base/shared.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "posix/userfolders.h"

#include <QFile>
#include <QLocale>
#include <QStandardPaths>

#include <TarvixUpdate/TXLog.h>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QString decoded(const std::string &path) { return QFile::decodeName(path.c_str()); }

/// QStandardPaths asks user-dirs.dirs; without a home in the environment it would answer "/".
QString userDirectory(QStandardPaths::StandardLocation location, const QString &usualName) {
    const QString path =
        qEnvironmentVariableIsEmpty("HOME") ? QString() : QStandardPaths::writableLocation(location);
    return path.isEmpty() ? homeDirectory() + u'/' + usualName : path;
}

} // namespace

QString homeDirectory() { return decoded(posix::homeFolder()); }

QString configurationDirectory() { return decoded(posix::configFolder()); }

QString downloadsDirectoryPath() { return userDirectory(QStandardPaths::DownloadLocation, u"Downloads"_s); }

QString desktopDirectoryPath() { return userDirectory(QStandardPaths::DesktopLocation, u"Desktop"_s); }

Result<QString> downloadsDirectory() {
    const QString path = downloadsDirectoryPath();
    if (const TXError error = services().fileSystem->createDirectory(path, true))
        return error;
    return path;
}

QString temporaryDirectory() {
    std::string why;
    const std::string path = posix::privateTemporaryFolder(&why);
    if (!path.empty())
        return decoded(path);
    TXLog(TXLogLevelFailure, u"TXUpdate: the temporary folder cannot be used. %@"_s, {decoded(why)});
    return decoded(posix::cacheFolder()) + u"/TarvixUpdate"_s;
}

QString userApplicationsDirectory() {
    return homeDirectory() + u'/' + QStringLiteral(TARVIXUPDATE_USER_APPLICATIONS_DIR);
}

QString localApplicationsDirectory() { return QStringLiteral(TARVIXUPDATE_LOCAL_APPLICATIONS_DIR); }

QString menuDataDirectory() {
    const bool isInSandbox = services().fileSystem->exists(u"/.flatpak-info"_s) ||
                             !qEnvironmentVariableIsEmpty("FLATPAK_ID") ||
                             !qEnvironmentVariableIsEmpty("SNAP");
    return isInSandbox || getuid() != geteuid() || getgid() != getegid() ? QString()
                                                                         : decoded(posix::dataFolder());
}

QStringList preferredLanguages() {
    QStringList languages = QLocale::system().uiLanguages();
    languages.removeAll(u"C"_s); // no language, but the absence of a choice
    return languages;
}

TX_SHARED QString dateLocaleTag() {
    if (QLocale() != QLocale::system())
        return QLocale().bcp47Name();
    for (const char *category : {"LC_ALL", "LC_TIME", "LANG"}) {
        if (const QString name = qEnvironmentVariable(category); !name.isEmpty())
            return QLocale(name).bcp47Name();
    }
    return QLocale::c().bcp47Name();
}

QString localeLanguageCode() { return QLocale().name().section(u'_', 0, 0); }

} // namespace tx
