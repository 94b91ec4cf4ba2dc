// SPDX-License-Identifier: MIT
#include "mover/applicationplaces.h"

#include "base/propertylist.h"
#include "mover/pathresolution.h"
#include "os/authorization.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "os/taskoutput.h"

#include <QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

bool beginsWithAny(const QString &path, const QStringList &folders) {
    return std::any_of(folders.begin(), folders.end(),
                       [&](const QString &folder) { return !folder.isEmpty() && path.startsWith(folder); });
}

bool holdsApplication(const QString &folder) {
    if (!QFileInfo(folder).isDir())
        return false;
    const Result<QStringList> names = services().fileSystem->list(folder);
    return names && std::any_of((*names).begin(), (*names).end(),
                                [](const QString &name) { return QFileInfo(name).suffix() == u"app"; });
}

} // namespace

ApplicationPlaces::ApplicationPlaces(const QString &bundlePath)
    : m_bundlePath(bundlePath) {}

QString ApplicationPlaces::parentDirectory() const { return m_bundlePath.section(u'/', 0, -2); }

const ApplicationPlaces::Preferred &ApplicationPlaces::preferred() const {
    if (!m_preferred) {
        const QString user = services().folders.userApplications();
        const QString local = stringByResolvingSymlinksAndAliases(services().folders.localApplications());
        const FileSystem &files = *services().fileSystem;
        // A folder of the user without any application is better than one that cannot be written to.
        const bool takesUser = holdsApplication(user) || (QFileInfo(user).isDir() && files.isWritable(user) &&
                                                          !files.isWritable(local) && !canGetAuthorization());
        m_preferred = Preferred{takesUser ? stringByResolvingSymlinksAndAliases(user) : local, takesUser};
    }
    return *m_preferred;
}

QString ApplicationPlaces::preferredInstallLocation(bool *isUserFolder) const {
    if (isUserFolder)
        *isUserFolder = preferred().isUserFolder;
    return preferred().folder;
}

QString ApplicationPlaces::destinationPath() const {
    const QString folder = preferred().folder;
    return folder.isNull() ? QString() : folder + u'/' + m_bundlePath.section(u'/', -1);
}

bool ApplicationPlaces::needsAuthorization() const {
    return !services().fileSystem->isWritable(preferred().folder);
}

bool ApplicationPlaces::canGetAuthorization() const {
    // Checked once, because each check logs the reason.
    if (!m_canGetAuthorization)
        m_canGetAuthorization = services().authorization->canExecute();
    return *m_canGetAuthorization;
}

bool ApplicationPlaces::isInApplicationsFolder() const {
    const Folders &folders = services().folders;
    return beginsWithAny(m_bundlePath, {folders.userApplications(), folders.localApplications()}) ||
           m_bundlePath.split(u'/').contains(u"Applications"_s);
}

bool ApplicationPlaces::isInDownloadsFolder() const {
    return beginsWithAny(m_bundlePath, {services().folders.downloads()}) ||
           parentDirectory().section(u'/', -1) == u"Downloads";
}

bool ApplicationPlaces::isInDesktopFolder() const {
    return beginsWithAny(m_bundlePath, {services().folders.desktop()});
}

QString ApplicationPlaces::diskImageVolumePath() const {
    const std::optional<VolumeInfo> volume = services().volumeInfo(m_bundlePath);
    if (!volume || !volume->isRemovable || services().fileSystem->isWritable(volume->rootPath))
        return {};
    return volume->rootPath;
}

QString ApplicationPlaces::diskImageFileForVolumePath(const QString &volumePath) {
    if (volumePath.isNull())
        return {};
    const auto output =
        outputOf({.program = services().hdiutilPath(), .arguments = {u"info"_s, u"-plist"_s}});
    const Result<QVariant> list = readPropertyList(output.value_or(QByteArray()));
    if (!list)
        return {};
    for (const QVariant &image : list->toMap()[u"images"_s].toList()) {
        for (const QVariant &entity : image.toMap()[u"system-entities"_s].toList()) {
            if (entity.toMap()[u"mount-point"_s] == volumePath)
                return image.toMap()[u"image-path"_s].toString();
        }
    }
    return {};
}

} // namespace tx
