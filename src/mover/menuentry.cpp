// SPDX-License-Identifier: MIT
#include "mover/menuentry.h"

#include "base/queues.h"
#include "model/names.h"
#include "mover/desktopentry.h"
#include "mover/documenttypes.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "os/taskoutput.h"
#include "os/userdefaults.h"

#include <TarvixUpdate/TXLog.h>

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

const QString stampKey = u"TXUpdateMenuEntry"_s;
constexpr quint64 largestIcon = 4 << 20;
constexpr int fileMode = 0644;

void log(const QString &format, const QStringList &arguments) { TXLog(TXLogLevelFailure, format, arguments); }

QString dataFolder() {
    const auto &folder = services().folders.data;
    return folder ? folder() : QString();
}

/// The name of the files without an extension.
QString stemOf(const TXBundle &bundle) {
    static const QRegularExpression form(u"\\A[A-Za-z0-9][A-Za-z0-9._-]{0,199}\\z"_s);
    const QString identifier = bundle.bundleIdentifier();
    return form.match(identifier).hasMatch() ? identifier : QString();
}

/// `folder` may contain links; `path` of a running bundle does not.
bool isBelow(const QString &path, const QString &folder) {
    if (folder.isEmpty())
        return false;
    const QString resolved = QFileInfo(folder).canonicalFilePath();
    return path.startsWith(folder + u'/') || (!resolved.isEmpty() && path.startsWith(resolved + u'/'));
}

template <typename T>
T valueOf(const Result<T> &result) {
    return result ? *result : T();
}

/// The content of a file that is not a link and not larger than `largest`; null for every other one.
QByteArray contentOf(const QString &path, quint64 largest) {
    const FileSystem &files = *services().fileSystem;
    const Result<quint64> size = files.fileSize(path);
    if (!size || *size == 0 || *size > largest)
        return {};
    return valueOf(files.readFile(path));
}

/// Refuses a data folder that another user owns or can write to, such as a user's folder if the process is
/// root.
/// Folders that do not exist yet are judged by the nearest one that does.
TXError checkDataFolder(const QString &data) {
    QString existing = data;
    while (existing.size() > 1 && !services().fileSystem->exists(existing))
        existing = QFileInfo(existing).path();
    return services().fileSystem->checkOwnFile(existing);
}

/// The folder of the icon theme for this picture; null if the theme has none.
QString iconFolderFor(const QByteArray &picture, QString *extension) {
    if (picture.startsWith("\x89PNG\r\n\x1a\n") && picture.size() > 24) {
        const auto side = [&picture](int at) {
            return uint(uchar(picture[at])) << 24 | uint(uchar(picture[at + 1])) << 16 |
                   uint(uchar(picture[at + 2])) << 8 | uint(uchar(picture[at + 3]));
        };
        *extension = u".png"_s;
        static const QList<uint> sides{16, 22, 24, 32, 36, 48, 64, 72, 96, 128, 192, 256, 512};
        return side(16) == side(20) && sides.contains(side(16)) ? u"%1x%1"_s.arg(side(16)) : QString();
    }
    *extension = picture.left(4096).contains("<svg") ? u".svg"_s : QString();
    return extension->isEmpty() ? QString() : u"scalable"_s;
}

/// Runs one of the desktop's programs, if it is installed, for at most ten seconds. Its databases only speed
/// up or complete what the desktop finds, so a failure is not an error.
void runDatabaseProgram(const QString &program, const QStringList &arguments) {
    (void)outputOf({.program = program, .arguments = arguments});
}

/// Updates the databases for these changed files, which are relative to the data folder.
void updateDatabases(const QString &data, const QStringList &changed) {
    const auto has = [&changed](const QString &beginning) {
        return std::any_of(changed.begin(), changed.end(),
                           [&](const QString &file) { return file.startsWith(beginning); });
    };
    if (has(u"mime/"_s))
        runDatabaseProgram(u"update-mime-database"_s, {data + u"/mime"_s});
    if (has(u"icons/"_s))
        runDatabaseProgram(u"gtk-update-icon-cache"_s, {u"--quiet"_s, u"--force"_s, u"--ignore-theme-index"_s,
                                                        data + u"/icons/hicolor"_s});
    if (has(u"applications/"_s))
        runDatabaseProgram(u"update-desktop-database"_s, {u"--quiet"_s, data + u"/applications"_s});
}

/// Whether an entry may list this file, which is removed with the entry.
bool isFileOf(const QString &stem, const QString &file) {
    static const QRegularExpression icon(u"\\Aicons/hicolor/[0-9a-z]+/apps/([^/]+)\\.(?:png|svg)\\z"_s);
    const auto match = icon.match(file);
    return file == u"mime/packages/"_s + stem + u".xml"_s || (match.hasMatch() && match.captured(1) == stem);
}

/// Returns the files that an entry lists, except those that cannot belong to it.
QStringList filesOf(const QByteArray &entry, const QString &stem) {
    QStringList result;
    for (const QString &file : entryList(entry, entryFilesKey)) {
        if (isFileOf(stem, file))
            result << file;
    }
    return result;
}

class EntryWriter {
public:
    EntryWriter(const TXBundle &bundle, const QString &formerPath)
        : m_bundle(bundle)
        , m_formerPath(formerPath)
        , m_stem(stemOf(bundle))
        , m_data(dataFolder())
        , m_entryFile(u"applications/"_s + m_stem + u".desktop"_s) {}

    MenuEntryOutcome put() {
        QString why = reasonAgainstExecutable(m_bundle.executablePath());
        if (why.isNull() && m_stem.isEmpty())
            why = u"its identifier cannot be a file name"_s;
        if (!why.isNull())
            return leaveAlone(why);
        if (const TXError error = checkDataFolder(m_data))
            return fail(error);
        const QString path = m_data + u'/' + m_entryFile;
        if (services().fileSystem->exists(path)) {
            const QByteArray earlier = contentOf(path, largestEntry);
            const std::optional<QString> owner = entryValue(earlier, entryBundleKey);
            if (!owner)
                return leaveAlone(path + u" was not written by this application"_s);
            if (*owner != m_bundle.bundlePath() && *owner != m_formerPath &&
                services().fileSystem->exists(*owner)) {
                (void)leaveAlone(u"the entry belongs to "_s + *owner);
                return MenuEntryOutcome::OtherCopy;
            }
            m_earlierFiles = filesOf(earlier, m_stem);
        }
        if (const TXError error = write())
            return fail(error);
        updateDatabases(m_data, m_changed);
        return MenuEntryOutcome::Current;
    }

private:
    MenuEntryOutcome leaveAlone(const QString &why) const {
        log(u"TXUpdate: %@ gets no menu entry: %@."_s, {m_bundle.bundlePath(), why});
        return MenuEntryOutcome::LeftAlone;
    }
    MenuEntryOutcome fail(const TXError &error) const {
        log(u"TXUpdate: The menu entry of %@ could not be written. %@"_s,
            {m_bundle.bundlePath(), error.toString()});
        return MenuEntryOutcome::Failed;
    }

    TXError write() {
        const QByteArray own = ownEntry();
        EntryFacts facts;
        facts.bundlePath = m_bundle.bundlePath();
        facts.executable = m_bundle.executablePath();
        facts.name = name();
        const QList<DocumentType> types = documentTypesOf(m_bundle.infoDictionary());
        facts.mimeTypes = mimeTypesOf(types);
        if (const QByteArray package = mimePackageOf(types); !package.isEmpty()) {
            if (const TXError error = addFile(u"mime/packages/"_s + m_stem + u".xml"_s, package))
                return error;
        }
        if (const TXError error = addIcons(own, facts.icon))
            return error;
        // A file that cannot be removed below stays listed, so that a later version removes it.
        QStringList obsolete;
        for (const QString &file : m_earlierFiles) {
            if (!m_files.contains(file) && services().fileSystem->exists(m_data + u'/' + file))
                obsolete << file;
        }
        facts.files = m_files + obsolete;
        QByteArray entry = desktopEntryOf(facts, own);
        if (entry.isNull()) {
            log(u"TXUpdate: The desktop entry in %@ is not one of an application. The menu entry is made "
                u"from "
                "Info.plist."_s,
                {m_bundle.bundlePath()});
            entry = desktopEntryOf(facts, {});
        }
        if (const TXError error = replace(m_entryFile, entry))
            return error;
        // Only now, because the earlier entry needed them.
        for (const QString &file : obsolete) {
            if (const TXError error = services().fileSystem->remove(m_data + u'/' + file))
                return error;
            m_changed << file;
        }
        return {};
    }

    QString name() const {
        for (const QString &key : {u"CFBundleDisplayName"_s, u"CFBundleName"_s}) {
            if (const QString name = m_bundle.infoString(key); !name.trimmed().isEmpty())
                return name;
        }
        return QFileInfo(m_bundle.bundlePath()).completeBaseName();
    }

    /// The entry in the bundle; null if there is none. Of several, that of the executable or the identifier.
    QByteArray ownEntry() const {
        for (const QString &folder : {u"/share/applications"_s, u"/Resources"_s}) {
            const QString path = m_bundle.contentsPath() + folder;
            QStringList names = valueOf(services().fileSystem->list(path));
            names.removeIf([](const QString &name) { return !name.endsWith(u".desktop"); });
            std::sort(names.begin(), names.end());
            const QString program = m_bundle.infoString(u"CFBundleExecutable"_s) + u".desktop"_s;
            for (const QString &preferred : {m_stem + u".desktop"_s, program}) {
                if (names.removeOne(preferred))
                    names.prepend(preferred);
            }
            if (!names.isEmpty())
                return contentOf(path + u'/' + names.constFirst(), largestEntry);
        }
        return {};
    }

    /// Adds the bundle's pictures to the icon theme. `icon` becomes the value for the entry.
    TXError addIcons(const QByteArray &own, QString &icon) {
        QString wanted = m_bundle.infoString(u"CFBundleIconFile"_s);
        const QString ownIcon = entryValue(own, u"Icon"_s).value_or(QString());
        if (wanted.isEmpty())
            wanted = ownIcon;
        // A name for a theme that the bundle has no picture of.
        icon = ownIcon.contains(u'/') ? QString() : ownIcon;
        if (wanted.isEmpty() || wanted.contains(u'/') || wanted.startsWith(u'.'))
            return {};
        QStringList folders{m_bundle.contentsPath() + u"/Resources"_s, m_bundle.resourcesPath()};
        const QString theme = m_bundle.contentsPath() + u"/share/icons/hicolor"_s;
        QStringList sizes = valueOf(services().fileSystem->list(theme));
        std::sort(sizes.begin(), sizes.end());
        for (const QString &size : sizes)
            folders << theme + u'/' + size + u"/apps"_s;
        folders.removeDuplicates();
        bool isInTheme = false;
        for (const QString &folder : folders) {
            for (const QString &suffix : {u""_s, u".svg"_s, u".png"_s}) {
                const QString path = folder + u'/' + wanted + suffix;
                const QByteArray picture = contentOf(path, largestIcon);
                QString extension;
                const QString place = iconFolderFor(picture, &extension);
                if (extension.isEmpty())
                    continue;
                const QString file = u"icons/hicolor/"_s + place + u"/apps/"_s + m_stem + extension;
                if (!place.isEmpty() && !m_files.contains(file)) {
                    if (const TXError error = addFile(file, picture))
                        return error;
                }
                isInTheme = isInTheme || m_files.contains(file);
                // The theme has no place for it: the picture in the bundle is used.
                icon = isInTheme ? m_stem : path;
            }
        }
        return {};
    }

    /// Writes a file that belongs to the entry, unless another program's file has its name.
    TXError addFile(const QString &file, const QByteArray &content) {
        const QString path = m_data + u'/' + file;
        if (!m_earlierFiles.contains(file) && services().fileSystem->exists(path) &&
            contentOf(path, largestIcon) != content) {
            log(u"TXUpdate: %@ is left as it is: another program has written it."_s, {path});
            return {};
        }
        const TXError error = replace(file, content);
        if (!error)
            m_files << file;
        return error;
    }

    TXError replace(const QString &file, const QByteArray &content) {
        const QString path = m_data + u'/' + file;
        if (contentOf(path, largestIcon) == content)
            return {};
        FileSystem &files = *services().fileSystem;
        TXError error = files.createDirectory(QFileInfo(path).path(), true);
        if (!error)
            error = files.replaceFile(path, content, fileMode);
        if (!error)
            m_changed << file;
        return error;
    }

    const TXBundle m_bundle;
    const QString m_formerPath;
    const QString m_stem;
    const QString m_data;
    const QString m_entryFile;
    QStringList m_earlierFiles;
    QStringList m_files;   ///< that belong to the new entry
    QStringList m_changed; ///< written or removed
};

bool isInApplicationsFolder(const QString &path) {
    const Folders &folders = services().folders;
    return isBelow(path, folders.userApplications()) || isBelow(path, folders.localApplications()) ||
           path.section(u'/', 0, -2).split(u'/').contains(u"Applications"_s);
}

/// What the entry was written for.
QString stampOf(const TXBundle &bundle) {
    return u"1 %1 %2 %3"_s.arg(bundle.infoString(u"CFBundleVersion"_s),
                               bundle.infoString(u"TXUpdateBuildDate"_s), bundle.bundlePath());
}

bool optsOut(const TXBundle &bundle) {
    const QVariant wish = bundle.infoDictionary().value(u"TXUpdateDesktopEntry"_s);
    return wish.isValid() && !wish.toBool();
}

void remember(const TXBundle &bundle, MenuEntryOutcome outcome) {
    if (outcome == MenuEntryOutcome::Current || outcome == MenuEntryOutcome::LeftAlone)
        (void)UserDefaults::standard().setValue(stampKey, stampOf(bundle));
}

} // namespace

bool belongsInMenu(const TXBundle &bundle) {
    return !bundle.bundleIdentifier().isEmpty() && QDir::isAbsolutePath(dataFolder()) && !optsOut(bundle) &&
           isInApplicationsFolder(bundle.bundlePath());
}

MenuEntryOutcome putMenuEntry(const TXBundle &bundle, const QString &formerPath) {
    return EntryWriter(bundle, formerPath).put();
}

Result<QStringList> removeMenuEntry(const QString &bundlePath) {
    const QString data = dataFolder();
    FileSystem &files = *services().fileSystem;
    const QString folder = data + u"/applications"_s;
    if (!QDir::isAbsolutePath(data) || !files.exists(folder))
        return QStringList();
    const Result<QStringList> names = files.list(folder);
    if (!names)
        return names.error();
    QStringList removed;
    for (const QString &name : *names) {
        const QString entryFile = u"applications/"_s + name;
        const QByteArray entry =
            name.endsWith(u".desktop") ? contentOf(data + u'/' + entryFile, largestEntry) : QByteArray();
        if (entryValue(entry, entryBundleKey) != bundlePath)
            continue;
        if (const TXError error = checkDataFolder(data))
            return error;
        // The entry last: if a file cannot be removed, the entry still lists it.
        QStringList all = filesOf(entry, name.chopped(8));
        all.append(entryFile);
        for (const QString &file : all) {
            if (!files.exists(data + u'/' + file))
                continue;
            if (const TXError error = files.remove(data + u'/' + file))
                return error;
            removed << file;
        }
    }
    updateDatabases(data, removed);
    for (QString &file : removed)
        file.prepend(data + u'/');
    return removed;
}

void putMenuEntryAfterMove(const TXBundle &bundle, const QString &formerPath) {
    if (belongsInMenu(bundle))
        remember(bundle, putMenuEntry(bundle, formerPath));
}

void refreshMenuEntry() {
    const TXBundle bundle = TXBundle::mainBundle();
    const bool isWanted = belongsInMenu(bundle);
    const bool isRefused = optsOut(bundle);
    // An application elsewhere, such as one in a build folder, does not touch the entry of an installed one.
    if (!isWanted && !isRefused)
        return;
    const QString stored = UserDefaults::standard().stringValue(stampKey);
    if (isWanted ? stored == stampOf(bundle) : stored.isNull())
        return;
    runInBackground([bundle, isWanted] {
        if (isWanted) {
            remember(bundle, putMenuEntry(bundle));
        } else if (const Result<QStringList> removed = removeMenuEntry(bundle.bundlePath()); removed) {
            forgetMenuEntry();
        } else {
            log(u"TXUpdate: The menu entry of %@ could not be removed. %@"_s,
                {bundle.bundlePath(), removed.error().toString()});
        }
    });
}

void forgetMenuEntry() {
    UserDefaults &defaults = UserDefaults::standard();
    if (!defaults.stringValue(stampKey).isNull())
        (void)defaults.remove(stampKey);
}

} // namespace tx
