// SPDX-License-Identifier: MIT
#include "bundle/bundlewriter.h"

#include "base/propertylist.h"
#include "bundle/bundlechecks.h"
#include "bundle/problem.h"
#include "bundle/programs.h"

#include <QDir>
#include <QFileInfo>
#include <QScopeGuard>
#include <QStandardPaths>

#include <algorithm>
#include <functional>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

class Writer {
public:
    Writer(const Plan &plan, const Wishes &wishes, BundleFiles &files)
        : m_plan(plan)
        , m_wishes(wishes)
        , m_files(files)
        , m_place(QDir::cleanPath(wishes.output + u'/' + plan.places.bundle))
        , m_stage(QDir::cleanPath(wishes.output + u"/."_s + plan.places.bundle + u".txupdate-bundle"_s))
        , m_debugPlace(QDir::cleanPath(u"%1/%2-%3.debug"_s.arg(
              wishes.output, QFileInfo(plan.places.bundle).completeBaseName(), wishes.build)))
        , m_debugStage(m_stage + u".debug"_s) {}

    Result<WrittenBundle> write(const QVariantMap &info,
                                const std::function<void(qint64, qint64)> &onProgress) {
        WrittenBundle result;
        result.path = m_place;
        const QScopeGuard cleanUp([this] {
            (void)m_files.remove(m_stage);
            (void)m_files.remove(m_debugStage);
        });
        if (TXError error = checkPublished())
            return error;
        for (const QString &folder : {m_stage, m_debugStage}) {
            if (TXError error = m_files.remove(folder))
                return error;
        }
        if (TXError error = copyAll(onProgress))
            return error;
        if (TXError error = writeOwn(info))
            return error;
        if (TXError error = addLicences(result.warnings))
            return error;
        if (TXError error = addLinks())
            return error;
        result.problems = problemsOf(m_stage, m_plan, m_wishes.identifier);
        if (!result.problems.isEmpty())
            return result;
        if (TXError error = putIntoPlace(m_stage, m_place))
            return error;
        if (m_hasDebugSymbols) {
            if (TXError error = putIntoPlace(m_debugStage, m_debugPlace))
                return error;
            result.debugSymbols = m_debugPlace;
        }
        return result;
    }

private:
    /// Refuses another identifier than the published bundle has: users of that bundle would never be offered
    /// the update.
    TXError checkPublished() {
        const QString published = m_wishes.published.isEmpty() ? m_place : m_wishes.published;
        const QString identifier = identifierOf(published);
        if (!m_wishes.published.isEmpty() && identifier.isEmpty())
            return problem(u"%1, which --published names, is not an application"_s.arg(published));
        if (!identifier.isEmpty() && identifier != m_wishes.identifier)
            return problem(u"%1 has the identifier %2, and this build would have %3"_s.arg(
                               published, identifier, m_wishes.identifier),
                           u"Installed applications take no update with another identifier."_s,
                           u"Keep the identifier, or remove that bundle if it was never published."_s);
        if (identifier.isEmpty() && m_wishes.published.isEmpty() && QFileInfo::exists(m_place))
            return problem(u"%1 exists and is not a bundle"_s.arg(m_place), {},
                           u"Remove it, or name another folder with -o."_s);
        return {};
    }

    TXError copyAll(const std::function<void(qint64, qint64)> &onProgress) {
        qint64 total = 0;
        for (const Item &item : m_plan.items)
            total += item.size;
        qint64 done = 0;
        for (const Item &item : m_plan.items) {
            if (TXError error = copy(item))
                return error;
            done += item.size;
            if (onProgress)
                onProgress(done, total);
        }
        return {};
    }

    TXError copy(const Item &item) {
        const QString to = m_stage + u'/' + item.place;
        if (TXError error = m_files.makeFolder(QFileInfo(to).path()))
            return error;
        if (TXError error = m_files.copyFile(item.source, to))
            return error;
        // The checks at the end report a file for another architecture. The programs below would fail on it
        // with a less useful message.
        if (!item.elf || !item.elf->isForSameMachineAs(m_plan.executable))
            return {};
        if (item.elf->hasDebugSections) {
            if (TXError error = splitDebugSymbols(to, item.place))
                return error;
        }
        return setRunPath(*item.elf, to, item.place);
    }

    /// Must run before the RUNPATH is set, because strip cannot handle the sections that patchelf moves.
    TXError splitDebugSymbols(const QString &file, const QString &place) {
        const QString symbols = m_debugStage + u'/' + place + u".debug"_s;
        if (TXError error = m_files.makeFolder(QFileInfo(symbols).path()))
            return error;
        m_hasDebugSymbols = true;
        const QString objcopy = binutil(u"objcopy"_s);
        for (const QStringList &command : {QStringList{objcopy, u"--only-keep-debug"_s, file, symbols},
                                           QStringList{binutil(u"strip"_s), u"--strip-unneeded"_s, file},
                                           QStringList{objcopy, u"--add-gnu-debuglink="_s + symbols, file}}) {
            if (const auto done = outputOfProgram(command[0], command.mid(1), u"binutils"_s); !done)
                return done.error();
        }
        return {};
    }

    /// Returns the binutils program for the bundle's architecture, which may differ from this machine's.
    [[nodiscard]] QString binutil(const QString &name) const {
        const QString machine = m_plan.executable.machineName().replace(u'-', u'_');
        const QString own = machine + u"-linux-gnu-"_s + name;
        return QStandardPaths::findExecutable(own).isEmpty() ? name : own;
    }

    TXError setRunPath(const ElfFile &elf, const QString &file, const QString &place) {
        const bool needsBundle = std::any_of(elf.needed.begin(), elf.needed.end(), [](const QString &name) {
            return !SystemLibraries::known().find(name);
        });
        QString way = wayBetween(QFileInfo(place).path(), m_plan.places.libraries);
        way = way == u"." ? u"$ORIGIN"_s : u"$ORIGIN/"_s + way;
        QStringList words;
        if (needsBundle && elf.runPath != QStringList{way})
            words = {u"--set-rpath"_s, way, file};
        else if (!needsBundle && !(elf.runPath + elf.inheritedRunPath).isEmpty())
            words = {u"--remove-rpath"_s, file};
        else
            return {};
        const auto done = outputOfProgram(u"patchelf"_s, words, u"patchelf"_s);
        return done ? TXError() : done.error();
    }

    TXError writeOwn(const QVariantMap &info) {
        const Places &places = m_plan.places;
        if (TXError error = m_files.writeFile(m_stage + u'/' + places.info, writePropertyList(info)))
            return error;
        const bool hasQt = std::any_of(m_plan.items.begin(), m_plan.items.end(),
                                       [](const Item &item) { return item.kind == Kind::Plugin; });
        if (hasQt) {
            const QString prefix = QFileInfo(places.programs).path();
            const auto line = [&](const QString &key, const QString &place) {
                return u"%1 = %2\n"_s.arg(key, wayBetween(prefix, place)).toUtf8();
            };
            const QByteArray conf = "[Paths]\nPrefix = " + wayBetween(places.programs, prefix).toUtf8() +
                                    '\n' + line(u"Plugins"_s, places.plugins) +
                                    line(u"QmlImports"_s, places.qml) + line(u"Qml2Imports"_s, places.qml) +
                                    line(u"Translations"_s, places.translations) +
                                    line(u"LibraryExecutables"_s, places.programs) +
                                    line(u"Data"_s, places.resources + u"/qtwebengine"_s);
            if (TXError error = m_files.writeFile(m_stage + u'/' + places.programs + u"/qt.conf"_s, conf))
                return error;
        }
        return {};
    }

    /// To what is there. Runs last: a folder may hold only the licences.
    TXError addLinks() {
        for (const auto &[name, target] : m_plan.places.links) {
            if (!QFileInfo::exists(m_stage + u'/' + target))
                continue;
            if (TXError error = m_files.makeLink(m_stage + u'/' + name, target))
                return error;
        }
        return {};
    }

    TXError addLicences(QStringList &warnings) {
        QStringList sources;
        for (const Item &item : m_plan.items) {
            if (item.kind == Kind::Library || item.kind == Kind::Plugin || item.kind == Kind::QmlModule)
                sources << item.source;
        }
        const Result<Licences> licences = licencesOf(sources);
        if (!licences)
            return licences.error();
        const QString folder = m_stage + u'/' + m_plan.places.licences;
        if (TXError error = licences->found.isEmpty() ? TXError() : m_files.makeFolder(folder))
            return error;
        for (const Licence &licence : licences->found) {
            if (TXError error = m_files.copyFile(licence.text, folder + u'/' + licence.package + u".txt"_s))
                return error;
        }
        QStringList unknown;
        for (const QString &file : licences->unknown) {
            if (!QFileInfo(file).fileName().startsWith(u"libTarvixUpdate"))
                unknown << file;
        }
        if (!unknown.isEmpty())
            warnings
                << u"the licences of these are not known, and not in the bundle: %1. Add them with --add"_s
                       .arg(unknown.join(u", "_s));
        return {};
    }

    /// Uses two renames. If the second one fails, the first is undone.
    TXError putIntoPlace(const QString &made, const QString &place) {
        if (!QFileInfo::exists(place))
            return m_files.rename(made, place);
        const QString old = made + u"-old"_s;
        if (TXError error = m_files.remove(old))
            return error;
        if (TXError error = m_files.rename(place, old))
            return error;
        if (TXError error = m_files.rename(made, place)) {
            (void)m_files.rename(old, place);
            return error;
        }
        return m_files.remove(old);
    }

    const Plan &m_plan;
    const Wishes &m_wishes;
    BundleFiles &m_files;
    QString m_place;
    QString m_stage;
    QString m_debugPlace;
    QString m_debugStage;
    bool m_hasDebugSymbols = false;
};

} // namespace

Result<WrittenBundle> writeBundle(const Plan &plan, const Wishes &wishes, const QVariantMap &info,
                                  BundleFiles &files,
                                  const std::function<void(qint64 done, qint64 total)> &onProgress) {
    return Writer(plan, wishes, files).write(info, onProgress);
}

} // namespace tx::bundling
