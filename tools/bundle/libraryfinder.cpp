// SPDX-License-Identifier: MIT
#include "bundle/libraryfinder.h"

#include <QDir>
#include <QFileInfo>

#include <elf.h>

using namespace Qt::StringLiterals;

namespace tx::bundling {

LibraryFinder::LibraryFinder(ElfFile program, const QByteArray &cache)
    : m_program(std::move(program))
    , m_environment(qEnvironmentVariable("LD_LIBRARY_PATH").split(u':', Qt::SkipEmptyParts)) {
    // Example: "      libz.so.1 (libc6,x86-64) => /lib/x86_64-linux-gnu/libz.so.1"
    for (const QByteArray &line : cache.split('\n')) {
        const qsizetype arrow = line.indexOf(" => ");
        const QByteArray left = line.left(arrow).trimmed();
        const qsizetype space = left.indexOf(' ');
        if (arrow > 0 && space > 0)
            m_cache[QString::fromUtf8(left.left(space))] << QString::fromUtf8(line.mid(arrow + 4).trimmed());
    }
    QString triplet;
    if (m_program.machine == EM_X86_64)
        triplet = u"x86_64-linux-gnu"_s;
    else if (m_program.machine == EM_AARCH64)
        triplet = u"aarch64-linux-gnu"_s;
    for (const QString &top : {u"/"_s, u"/usr/"_s}) {
        if (!triplet.isEmpty())
            m_usual << top + u"lib/"_s + triplet;
        m_usual << top + u"lib64"_s << top + u"lib"_s;
    }
}

bool LibraryFinder::fits(const QString &path) const {
    if (!QFileInfo(path).isFile())
        return false;
    const Result<std::optional<ElfFile>> file = readElf(path);
    return file && *file && (*file)->isForSameMachineAs(m_program);
}

QString LibraryFinder::find(const QString &name, const ElfFile &asker) const {
    if (name.contains(u'/'))
        return fits(name) ? QFileInfo(name).canonicalFilePath() : QString();
    const auto folderOf = [](const ElfFile &file) { return QFileInfo(file.path).canonicalPath(); };
    QStringList folders;
    if (asker.runPath.isEmpty())
        folders = expandedRunPath(asker.inheritedRunPath, folderOf(asker)) +
                  expandedRunPath(m_program.inheritedRunPath, folderOf(m_program));
    folders += m_environment + expandedRunPath(asker.runPath, folderOf(asker));
    QStringList candidates;
    for (const QString &folder : folders)
        candidates << folder + u'/' + name;
    candidates += m_cache.value(name);
    for (const QString &folder : m_usual)
        candidates << folder + u'/' + name;
    for (const QString &candidate : candidates) {
        if (fits(candidate))
            return QFileInfo(candidate).canonicalFilePath();
    }
    return {};
}

QStringList expandedRunPath(const QStringList &runPath, const QString &folder) {
    QStringList result;
    for (QString entry : runPath) {
        entry.replace(u"${ORIGIN}"_s, folder).replace(u"$ORIGIN"_s, folder);
        result << QDir::cleanPath(entry);
    }
    return result;
}

} // namespace tx::bundling
