// SPDX-License-Identifier: MIT
#include "bundle/bundleplan.h"

#include "bundle/libraryfinder.h"
#include "bundle/problem.h"
#include "bundle/programs.h"
#include "bundle/qmlimports.h"
#include "bundle/qtinstallation.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

QByteArray loaderCache() {
    for (const QString &program : {u"/sbin/ldconfig"_s, u"/usr/sbin/ldconfig"_s, u"ldconfig"_s}) {
        // If the system has no loader cache, only the loader's default folders are searched. A missing
        // library is reported by name later.
        if (const Result<QByteArray> output = outputOfProgram(program, {u"-p"_s}, u"libc-bin"_s))
            return *output;
    }
    return {};
}

class Planner {
public:
    Planner(const Wishes &wishes, ElfFile program)
        : m_wishes(wishes)
        , m_finder(program, loaderCache()) {
        m_plan.executable = std::move(program);
        m_plan.places = placesOf(wishes.layout, QFileInfo(wishes.executable).fileName(), wishes.name);
        m_plan.program = m_plan.places.programs + u'/' + QFileInfo(wishes.executable).fileName();
    }

    TXError make() {
        if (TXError error = add(m_wishes.executable, m_plan.program, Kind::Program, {}))
            return error;
        if (TXError error = addResources())
            return error;
        // Added files may need further files: Qt modules have plug-ins, plug-ins need libraries, and
        // libraries may be Qt modules.
        for (qsizetype done = -1; done != m_plan.items.size();) {
            done = m_plan.items.size();
            if (TXError error = follow())
                return error;
            if (TXError error = addQt())
                return error;
            if (TXError error = addFramework())
                return error;
        }
        if (!m_unresolved.isEmpty())
            return problem(u"libraries were not found: %1"_s.arg(m_unresolved.join(u", "_s)), {},
                           u"Install them, or name their folder in LD_LIBRARY_PATH."_s);
        if (TXError error = addTranslations())
            return error;
        addCompanions();
        noteBuildPaths();
        std::sort(m_plan.items.begin(), m_plan.items.end(),
                  [](const Item &a, const Item &b) { return a.place < b.place; });
        return {};
    }

    [[nodiscard]] Plan plan() { return std::move(m_plan); }

private:
    /// Adds a file once. Notes each file that needs it.
    TXError add(const QString &source, const QString &place, Kind kind, const QString &asker) {
        const auto known = m_byPlace.constFind(place);
        if (known != m_byPlace.constEnd()) {
            Item &item = m_plan.items[*known];
            if (!asker.isEmpty() && !item.askers.contains(asker))
                item.askers << asker;
            if (item.source != source)
                note(u"%1 and %2 have the same place in the bundle; the first one is taken"_s.arg(item.source,
                                                                                                  source));
            return {};
        }
        Result<std::optional<ElfFile>> elf = readElf(source);
        if (!elf)
            return elf.error();
        Item item{source, place, kind, {}, QFileInfo(source).size(), *elf};
        if (!asker.isEmpty())
            item.askers << asker;
        m_byPlace.insert(place, m_plan.items.size());
        m_plan.items.append(item);
        return {};
    }

    void note(const QString &warning) {
        if (!m_plan.warnings.contains(warning))
            m_plan.warnings << warning;
    }

    /// Adds the files that newly added files need.
    TXError follow() {
        for (; m_followed < m_plan.items.size(); ++m_followed) {
            const std::optional<ElfFile> elf = m_plan.items[m_followed].elf;
            const QString asker = QFileInfo(m_plan.items[m_followed].place).fileName();
            if (!elf)
                continue;
            for (const QString &name : elf->needed) {
                if (TXError error = need(name, *elf, asker))
                    return error;
            }
            for (const QStringList &names : loadedBy(asker)) {
                const auto there = std::find_if(names.begin(), names.end(), [&](const QString &name) {
                    return !m_finder.find(name, *elf).isNull();
                });
                if (there == names.end())
                    note(u"%1, which %2 loads, is not installed"_s.arg(names.constFirst(), asker));
                else if (TXError error = need(*there, *elf, asker))
                    return error;
            }
        }
        return {};
    }

    TXError need(const QString &name, const ElfFile &by, const QString &asker) {
        if (const SystemLibrary *line = SystemLibraries::known().find(name)) {
            leaveOut(name, line, asker);
            return {};
        }
        const QString path = m_finder.find(name, by);
        if (path.isNull()) {
            m_unresolved << u"%1, which %2 needs"_s.arg(name, asker);
            return {};
        }
        const QString fileName = QFileInfo(name).fileName();
        m_libraryFolders[fileName] = QFileInfo(path).path();
        if (const QString module = qtModuleOf(fileName); !module.isEmpty())
            m_modules.insert(module);
        return add(path, m_plan.places.libraries + u'/' + fileName, Kind::Library, asker);
    }

    void leaveOut(const QString &name, const SystemLibrary *line, const QString &asker) {
        for (LeftOut &known : m_plan.leftOut) {
            if (known.name == name) {
                if (!known.askers.contains(asker))
                    known.askers << asker;
                return;
            }
        }
        m_plan.leftOut.append({name, line, {asker}});
    }

    TXError addQt() {
        if (m_modules.isEmpty())
            return {};
        if (!m_hasQt) {
            const Result<QtInstallation> qt = qtInstallationOf(m_libraryFolders.value(u"libQt6Core.so.6"_s));
            if (!qt)
                return qt.error();
            m_qt = *qt;
            m_hasQt = true;
            for (const QString &plugin : m_wishes.plugins) {
                const QString name = plugin.section(u'/', 1);
                if (TXError error = addPlugins(plugin.section(u'/', 0, 0), name, u"--plugin"_s, true))
                    return error;
            }
        }
        for (const PluginRule &rule : pluginRules()) {
            if (!m_modules.contains(rule.module) || m_rulesDone.contains(&rule))
                continue;
            m_rulesDone.insert(&rule);
            const qsizetype before = m_plan.items.size();
            if (TXError error = addPlugins(rule.folder, rule.name, u"Qt "_s + rule.module, false))
                return error;
            if (m_plan.items.size() > before || (!rule.isNeeded && rule.consequence.isEmpty()))
                continue;
            const QString missing = u"%1/%2, a plug-in of Qt %3, is not installed"_s.arg(
                rule.folder, rule.name.isEmpty() ? u"*.so"_s : rule.name, rule.module);
            if (rule.isNeeded)
                return problem(missing, u"without it there is "_s + rule.consequence,
                               u"Install it, on Debian: apt install %1"_s.arg(rule.package));
            note(u"%1: %2 (Debian: %3)"_s.arg(missing, rule.consequence, rule.package));
        }
        if (TXError error = addQml())
            return error;
        return addWebEngine();
    }

    TXError addPlugins(const QString &folder, const QString &name, const QString &asker, bool mustBe) {
        const QDir dir(m_qt.plugins + u'/' + folder);
        const QStringList files = dir.entryList({name.isEmpty() ? u"*.so"_s : name}, QDir::Files, QDir::Name);
        if (files.isEmpty() && mustBe)
            return problem(u"there is no plug-in %1/%2 in %3"_s.arg(folder, name.isEmpty() ? u"*.so"_s : name,
                                                                    m_qt.plugins));
        for (const QString &file : files) {
            // The picture format PDF would add a large PDF engine.
            if (file == u"libqpdf.so" && !m_modules.contains(u"Pdf"_s) && name != file)
                continue;
            if (TXError error = add(dir.filePath(file), m_plan.places.plugins + u'/' + folder + u'/' + file,
                                    Kind::Plugin, asker))
                return error;
        }
        return {};
    }

    TXError addQml() {
        if (m_qmlDone || !m_modules.contains(u"Qml"_s))
            return {};
        m_qmlDone = true;
        Result<QStringList> names = importsInside(m_wishes.executable);
        if (!names)
            return names.error();
        if (names->isEmpty() && m_wishes.qmlFolders.isEmpty()) {
            note(
                u"the program links Qt's QML engine, but no QML was found in it; name its folder with --qml"_s);
            return {};
        }
        const QString scanner = m_qt.programs + u"/qmlimportscanner"_s;
        if (m_qt.qml.isNull() || !QFileInfo::exists(scanner))
            return problem(
                u"the QML modules cannot be found"_s,
                m_qt.qml.isNull() ? u"Qt's folder \"qml\" is missing"_s : u"qmlimportscanner is missing"_s,
                u"Install them, on Debian: apt install qt6-declarative-dev-tools, and the packages "
                "qml6-module-... of what the program imports"_s);
        const Result<QmlImports> imports = qmlImports(scanner, m_qt.qml, *names, m_wishes.qmlFolders);
        if (!imports)
            return imports.error();
        for (const QmlModule &module : imports->modules) {
            for (const QString &file : filesOf(module)) {
                if (TXError error = add(module.folder + u'/' + file,
                                        m_plan.places.qml + u'/' + module.place + u'/' + file,
                                        Kind::QmlModule, u"import "_s + module.name))
                    return error;
            }
        }
        for (const QString &name : imports->missing) {
            // Qt's controls import the styles of other systems. Those styles are not needed here.
            if (name.startsWith(u"QtQuick.Controls."))
                continue;
            const QString package = u"qml6-module-"_s + QString(name).replace(u'.', u'-').toLower();
            note(u"the QML module %1 is imported and not installed; that is right if %2"_s.arg(
                name, name.startsWith(u"Qt")
                          ? u"the program does without it on this system (Debian: %1)"_s.arg(package)
                          : u"it is compiled into the program"_s));
        }
        return {};
    }

    TXError addWebEngine() {
        if (m_engineDone || !m_modules.contains(u"WebEngineCore"_s))
            return {};
        m_engineDone = true;
        const QString process = m_qt.programs + u"/QtWebEngineProcess"_s;
        if (m_qt.programs.isNull() || m_qt.resources.isNull() || !QFileInfo(process).isFile())
            return problem(
                u"the web engine's process and resources were not found"_s, {},
                u"Install them, on Debian: apt install libqt6webenginecore6-bin libqt6webengine6-data"_s);
        const QString asker = u"Qt WebEngineCore"_s;
        if (TXError error =
                add(process, m_plan.places.programs + u"/QtWebEngineProcess"_s, Kind::Program, asker))
            return error;
        if (TXError error = addTree(m_qt.resources, m_plan.places.resources + u"/qtwebengine/resources"_s,
                                    Kind::Resource, asker))
            return error;
        if (QFileInfo::exists(m_qt.translations + u"/qtwebengine_locales"_s))
            return addTree(m_qt.translations + u"/qtwebengine_locales"_s,
                           m_plan.places.translations + u"/qtwebengine_locales"_s, Kind::Translation, asker);
        return {};
    }

    /// Adds the framework's tools and plug-ins if its library is among the copied files.
    TXError addFramework() {
        static const QRegularExpression library(u"^libTarvixUpdate(Core)?\\.so\\."_s);
        const auto core = std::find_if(m_libraryFolders.keyBegin(), m_libraryFolders.keyEnd(),
                                       [](const QString &name) { return library.match(name).hasMatch(); });
        if (m_frameworkDone || core == m_libraryFolders.keyEnd())
            return {};
        m_frameworkDone = true;
        QString resources;
        // Beside the library, or below libexec, where earlier installations have no version in the name.
        const QString versioned = u"libexec/TarvixUpdate-"_s + core->section(u".so."_s, 1);
        for (const QString &way :
             {u"TarvixUpdate/Resources"_s, u"../"_s + versioned + u"/Resources"_s,
              u"../../"_s + versioned + u"/Resources"_s, u"../libexec/TarvixUpdate/Resources"_s,
              u"../../libexec/TarvixUpdate/Resources"_s}) {
            const QString folder = QDir::cleanPath(m_libraryFolders.value(*core) + u'/' + way);
            if (resources.isNull() && QFileInfo(folder + u"/TXUpdateInstaller.app"_s).isDir())
                resources = folder;
        }
        if (resources.isNull())
            return problem(u"the framework's tools were not found beside %1/%2"_s.arg(
                               m_libraryFolders.value(*core), *core),
                           {}, u"Build or install the framework completely."_s);
        QStringList without;
        if (!m_wishes.withWebEngine)
            without << u"TXUpdateWebView.so"_s;
        // A host that links only the core library does not need the plug-in for windows and its libraries.
        if (core->startsWith(u"libTarvixUpdateCore.") &&
            std::none_of(m_libraryFolders.keyBegin(), m_libraryFolders.keyEnd(),
                         [](const QString &name) { return name.startsWith(u"libTarvixUpdateWidgets."); }))
            without << u"TXUpdateInterface.so"_s << u"TXUpdateWebView.so"_s;
        return addTree(resources, m_plan.places.libraries + u"/TarvixUpdate/Resources"_s, Kind::Framework,
                       *core, without);
    }

    TXError addTree(const QString &folder, const QString &place, Kind kind, const QString &asker,
                    const QStringList &without = {}) {
        // QDir::relativeFilePath() returns a relative path unchanged.
        const QDir root(QFileInfo(folder).absoluteFilePath());
        QDirIterator files(root.path(), QDir::Files | QDir::Hidden | QDir::System,
                           QDirIterator::Subdirectories);
        const QString top = root.canonicalPath() + u'/';
        while (files.hasNext()) {
            const QString file = files.next();
            const QString way = root.relativeFilePath(file);
            const QString source = QFileInfo(file).canonicalFilePath();
            if (without.contains(way))
                continue;
            if (source.isEmpty() ||
                (QFileInfo(file).isSymLink() && !source.startsWith(top) && kind == Kind::Resource))
                return problem(u"%1 is a link that leads out of %2"_s.arg(file, folder), {},
                               u"Name what it leads to instead."_s);
            if (TXError error = add(source, place + u'/' + way, kind, asker))
                return error;
        }
        return {};
    }

    TXError addResources() {
        for (const QString &addition : m_wishes.additions) {
            const QString source = addition.section(u':', 0, 0);
            QString place = addition.section(u':', 1);
            const QFileInfo info(source);
            if (!info.exists())
                return problem(u"%1, which --add names, does not exist"_s.arg(source));
            if (place.isEmpty())
                place = QFileInfo(QDir::cleanPath(info.absoluteFilePath())).fileName();
            place = QDir::cleanPath(place);
            if (QDir::isAbsolutePath(place) || place.startsWith(u".."))
                return problem(u"--add %1 leads out of the bundle"_s.arg(addition));
            const QString target = m_plan.places.resources + u'/' + place;
            if (TXError error = info.isDir()
                                    ? addTree(source, target, Kind::Resource, u"--add"_s)
                                    : add(info.canonicalFilePath(), target, Kind::Resource, u"--add"_s))
                return error;
        }
        if (!m_wishes.icon.isEmpty()) {
            if (TXError error = addIcon())
                return error;
        }
        return m_wishes.desktop.isEmpty() ? TXError() : addDesktopFile();
    }

    TXError addIcon() {
        QFile file(m_wishes.icon);
        if (!QFileInfo(m_wishes.icon).isFile() || !file.open(QIODevice::ReadOnly))
            return problem(u"the icon %1 cannot be read"_s.arg(m_wishes.icon));
        const QByteArray head = file.read(4096);
        QString folder = m_plan.places.icons;
        if (head.startsWith("\x89PNG\r\n\x1a\n") && head.size() >= 24) {
            const auto side = [&head](int at) {
                return uchar(head[at]) << 24 | uchar(head[at + 1]) << 16 | uchar(head[at + 2]) << 8 |
                       uchar(head[at + 3]);
            };
            folder.replace(u"scalable"_s, u"%1x%2"_s.arg(side(16)).arg(side(20)));
        } else if (!head.contains("<svg") && !head.contains("<?xml")) {
            return problem(u"the icon %1 cannot be used"_s.arg(m_wishes.icon),
                           u"it is neither SVG nor PNG"_s);
        }
        return add(QFileInfo(m_wishes.icon).canonicalFilePath(),
                   folder + u'/' + QFileInfo(m_wishes.icon).fileName(), Kind::Resource, u"--icon"_s);
    }

    TXError addDesktopFile() {
        QFile file(m_wishes.desktop);
        if (!QFileInfo(m_wishes.desktop).isFile() || !file.open(QIODevice::ReadOnly))
            return problem(u"the desktop entry %1 cannot be read"_s.arg(m_wishes.desktop));
        const QByteArray content = '\n' + file.readAll();
        for (const char *line : {"\n[Desktop Entry]", "\nType=Application", "\nExec=", "\nName="}) {
            if (!content.contains(line))
                return problem(u"%1 is not a desktop entry of an application"_s.arg(m_wishes.desktop),
                               u"it has no line %1"_s.arg(QString::fromLatin1(line + 1)));
        }
        return add(QFileInfo(m_wishes.desktop).canonicalFilePath(),
                   m_plan.places.desktopFile + u'/' + QFileInfo(m_wishes.desktop).fileName(), Kind::Resource,
                   u"--desktop"_s);
    }

    TXError addTranslations() {
        if (!m_hasQt)
            return {};
        const qsizetype before = m_plan.items.size();
        for (const QString &beginning : translationsOf(m_modules)) {
            for (const QString &file :
                 QDir(m_qt.translations).entryList({beginning + u"*.qm"_s}, QDir::Files)) {
                if (TXError error = add(m_qt.translations + u'/' + file,
                                        m_plan.places.translations + u'/' + file, Kind::Translation, u"Qt"_s))
                    return error;
            }
        }
        if (m_plan.items.size() == before)
            note(u"Qt's own translations are not installed: its dialogs are in English (Debian: "
                 "qt6-translations-l10n)"_s);
        return {};
    }

    void addCompanions() {
        for (auto name = m_libraryFolders.keyBegin(); name != m_libraryFolders.keyEnd(); ++name) {
            if (const SystemLibrary *line = SystemLibraries::known().companionOf(*name))
                m_plan.companions << line;
        }
    }

    /// Notes the folders in which the program was built: those from CMake's cache, the user's home folder,
    /// and those that the publisher names.
    void noteBuildPaths() {
        if (m_wishes.allowsBuildPaths)
            return;
        QStringList folders = m_wishes.buildFolders;
        if (const QString home = QDir::homePath(); home != u"/")
            folders << home;
        for (QDir folder(QFileInfo(m_wishes.executable).canonicalPath());
             !folder.isRoot() && folder.cdUp();) {
            QFile cache(folder.filePath(u"CMakeCache.txt"_s));
            if (!cache.open(QIODevice::ReadOnly))
                continue;
            folders << folder.path();
            static const QRegularExpression source(u"^CMAKE_HOME_DIRECTORY:INTERNAL=(.+)$"_s,
                                                   QRegularExpression::MultilineOption);
            const auto match = source.match(QString::fromUtf8(cache.readAll()));
            if (match.hasMatch())
                folders << match.captured(1);
            break;
        }
        for (const QString &folder : folders)
            m_plan.buildPaths << QFile::encodeName(QDir::cleanPath(folder)) + '/';
    }

    const Wishes &m_wishes;
    LibraryFinder m_finder;
    Plan m_plan;
    QHash<QString, qsizetype> m_byPlace;
    QMap<QString, QString> m_libraryFolders; ///< folders of copied libraries, by name
    QSet<QString> m_modules;                 ///< names of Qt modules
    QSet<const PluginRule *> m_rulesDone;
    QStringList m_unresolved;
    QtInstallation m_qt;
    qsizetype m_followed = 0;
    bool m_hasQt = false;
    bool m_qmlDone = false;
    bool m_engineDone = false;
    bool m_frameworkDone = false;
};

} // namespace

Result<Plan> makePlan(const Wishes &given) {
    Wishes wishes = given;
    const QFileInfo executable(given.executable);
    if (!executable.isFile())
        return problem(u"%1 is not a file"_s.arg(given.executable), {},
                       u"Name the program that was built."_s);
    wishes.executable = executable.canonicalFilePath();
    const Result<std::optional<ElfFile>> program = readElf(wishes.executable);
    if (!program)
        return program.error();
    if (!*program || !(*program)->isDynamic || (*program)->interpreter.isEmpty())
        return problem(u"%1 is not a program that the dynamic loader starts"_s.arg(given.executable),
                       *program ? u"it is a library, or linked statically"_s : u"it is not an ELF file"_s,
                       u"Name the program itself, not a script that starts it."_s);
    Planner planner(wishes, **program);
    if (TXError error = planner.make())
        return error;
    return planner.plan();
}

} // namespace tx::bundling
