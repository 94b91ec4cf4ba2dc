// SPDX-License-Identifier: MIT
#include "bundle/bundlechecks.h"

#include "bundle/libraryfinder.h"
#include "bundle/problem.h"

#include <TarvixUpdate/TXBundle.h>

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QHash>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

/// Returns whether a file comes from a package of the system. Such files contain paths of the distribution's
/// build machines, which are harmless.
bool isOfTheSystem(const QString &source) {
    return (source.startsWith(u"/usr/") && !source.startsWith(u"/usr/local/")) || source.startsWith(u"/lib");
}

class Checker {
public:
    Checker(const QString &bundle, const Plan &plan)
        : m_bundle(QDir(bundle).canonicalPath())
        , m_plan(plan) {
        for (const Item &item : plan.items)
            m_sources.insert(item.place, item.source);
    }

    QStringList check(const QString &identifier) {
        QDirIterator entries(m_bundle, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        while (entries.hasNext()) {
            const QString path = entries.next();
            const QString place = path.mid(m_bundle.size() + 1);
            if (QFileInfo(path).isSymLink())
                checkLink(path, place);
            else if (QFileInfo(path).isFile())
                checkFile(path, place);
        }
        checkInfo(identifier);
        m_problems.sort();
        return m_problems;
    }

private:
    void checkLink(const QString &path, const QString &place) {
        const QString target = QFileInfo(path).canonicalFilePath();
        if (!target.startsWith(m_bundle + u'/'))
            m_problems << u"%1 is a link that leads out of the bundle, or nowhere"_s.arg(place);
    }

    void checkFile(const QString &path, const QString &place) {
        const Result<std::optional<ElfFile>> elf = readElf(path);
        if (!elf) {
            m_problems << lineOf(elf.error());
            return;
        }
        const bool isProgram =
            place == m_plan.program || (*elf && !(*elf)->interpreter.isEmpty() && (*elf)->soname.isEmpty());
        if (isProgram && !(QFileInfo(path).permissions() & QFile::ExeOwner))
            m_problems << u"%1 may not be executed: it lacks its execute bit"_s.arg(place);
        if (!*elf)
            return;
        if (!(*elf)->isForSameMachineAs(m_plan.executable))
            m_problems << u"%1 is for another machine: %2, and the program is for %3"_s.arg(
                place, (*elf)->machineName(), m_plan.executable.machineName());
        if (isProgram && !(*elf)->interpreter.startsWith(u"/lib"))
            m_problems << u"%1 asks for a loader that users do not have: %2"_s.arg(place,
                                                                                   (*elf)->interpreter);
        checkLibraries(**elf, place);
        checkBuildPaths(path, place);
    }

    void checkLibraries(const ElfFile &elf, const QString &place) {
        for (const QString &folder : elf.runPath + elf.inheritedRunPath) {
            const QString real =
                QDir::cleanPath(QString(folder).replace(u"$ORIGIN"_s, QFileInfo(elf.path).path()));
            if (!folder.startsWith(u"$ORIGIN") || !(real + u'/').startsWith(m_bundle + u'/'))
                m_problems << u"%1 looks for libraries outside the bundle: %2"_s.arg(place, folder);
        }
        const QStringList folders =
            expandedRunPath(elf.runPath + elf.inheritedRunPath, QFileInfo(elf.path).path());
        for (const QString &name : elf.needed) {
            const bool isThere = SystemLibraries::known().find(name) ||
                                 std::any_of(folders.begin(), folders.end(), [&name](const QString &folder) {
                                     return QFileInfo(folder + u'/' + name).isFile();
                                 });
            if (!isThere)
                m_problems << u"%1 needs %2, which the loader would not find"_s.arg(place, name);
        }
    }

    void checkBuildPaths(const QString &path, const QString &place) {
        const QString source = m_sources.value(place);
        if (isOfTheSystem(source))
            return;
        const Result<QStringList> found = loadedStringsWith(path, m_plan.buildPaths);
        if (!found) {
            m_problems << lineOf(found.error());
            return;
        }
        if (!found->isEmpty())
            m_problems << u"%1 holds paths of the machine on which it was built: %2. Compile it with "
                          "-ffile-prefix-map=FOLDER=., or allow them with --allow-build-paths"_s.arg(
                              place, found->first(std::min<qsizetype>(3, found->size())).join(u", "_s));
    }

    void checkInfo(const QString &identifier) {
        const TXBundle bundle(m_bundle);
        if (bundle.bundleIdentifier() != identifier)
            m_problems << u"Info.plist says identifier \"%1\" instead of \"%2\""_s.arg(
                bundle.bundleIdentifier(), identifier);
        const QString program = QFileInfo(m_bundle + u'/' + m_plan.program).canonicalFilePath();
        if (bundle.executablePath().isEmpty() ||
            QFileInfo(bundle.executablePath()).canonicalFilePath() != program)
            m_problems << u"Info.plist does not lead to the program %1"_s.arg(m_plan.program);
    }

    QString m_bundle;
    const Plan &m_plan;
    QHash<QString, QString> m_sources;
    QStringList m_problems;
};

} // namespace

QStringList problemsOf(const QString &bundle, const Plan &plan, const QString &identifier) {
    return Checker(bundle, plan).check(identifier);
}

QString identifierOf(const QString &bundle) { return TXBundle(bundle).bundleIdentifier(); }

} // namespace tx::bundling
