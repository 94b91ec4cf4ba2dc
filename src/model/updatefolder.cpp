// SPDX-License-Identifier: MIT
#include "model/updatefolder.h"

#include "model/names.h"
#include "os/directories.h"
#include "posix/updatefoldernames.h"

#include <TarvixUpdate/TXUpdateHost.h>

using namespace Qt::StringLiterals;

namespace tx {

UpdateFolder UpdateFolder::ofHost() {
    const QString identifier = TXUpdateHost::host()->bundle().bundleIdentifier();
    const QString name = (identifier.isNull() ? u"(null)"_s : identifier) + u".TXUpdater"_s;
    return UpdateFolder(temporaryDirectory() + u'/' + safeFileName(name));
}

UpdateFolder UpdateFolder::ofArchive(const QString &archivePath) {
    return UpdateFolder(archivePath.section(u'/', 0, -2));
}

QString UpdateFolder::lockPath() const { return m_path + QLatin1StringView(updateFolderLockSuffix); }

QString UpdateFolder::installerTool() const { return pathOf(QLatin1StringView(installerToolName)); }

QString UpdateFolder::installerExecutable() const {
    return installerTool() + QLatin1StringView(installerExecutableInTool);
}

QString UpdateFolder::environmentRecord() const { return pathOf(QLatin1StringView(environmentRecordName)); }

bool UpdateFolder::isInstallerTool(const QString &name) {
    return name == QLatin1StringView(installerToolName);
}

} // namespace tx
