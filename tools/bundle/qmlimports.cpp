// SPDX-License-Identifier: MIT
#include "bundle/qmlimports.h"

#include "bundle/problem.h"
#include "bundle/programs.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtEndian>

#include <zlib.h>
#include <zstd.h>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

constexpr qsizetype mostOfOneResource = 4 << 20;
/// Every document that imports QtQml or QtQuick also gets this module. Only the library of the QML engine
/// says so; no file that the scanner could read does.
const QString importedByTheEngine = u"QtQml.WorkerScript"_s;

/// Adds the modules that `text` imports to `names`.
void noteImports(const QByteArray &text, QStringList &names) {
    // The size before an uncompressed resource may contain any byte.
    static const QRegularExpression form(
        u"import[ \\t]+([A-Z][A-Za-z0-9_]*(?:\\.[A-Za-z][A-Za-z0-9_]*)*)(?=[ \\t\\r\\n;])"_s);
    for (auto matches = form.globalMatch(QString::fromLatin1(text)); matches.hasNext();) {
        const QString name = matches.next().captured(1);
        if (!names.contains(name))
            names << name;
    }
}

/// Adds the imports in resources that Qt's resource compiler compressed with zstd: frames that state their
/// size.
void noteImportsInZstd(const QByteArray &program, QStringList &names) {
    const QByteArray magic("\x28\xb5\x2f\xfd", 4);
    for (qsizetype at = 0; (at = program.indexOf(magic, at)) >= 0; at += magic.size()) {
        const char *start = program.constData() + at;
        const auto left = static_cast<size_t>(program.size() - at);
        const unsigned long long size = ZSTD_getFrameContentSize(start, left);
        const size_t packed = ZSTD_findFrameCompressedSize(start, left);
        if (size == ZSTD_CONTENTSIZE_ERROR || size == ZSTD_CONTENTSIZE_UNKNOWN || size > mostOfOneResource ||
            ZSTD_isError(packed))
            continue;
        QByteArray text(static_cast<qsizetype>(size), Qt::Uninitialized);
        if (!ZSTD_isError(ZSTD_decompress(text.data(), static_cast<size_t>(text.size()), start, packed)))
            noteImports(text, names);
    }
}

/// Adds the imports in resources that it compressed with zlib: four bytes with the size come first.
void noteImportsInZlib(const QByteArray &program, QStringList &names) {
    for (qsizetype at = 4; (at = program.indexOf('\x78', at)) >= 0 && at + 2 < program.size(); ++at) {
        const uchar second = uchar(program[at + 1]);
        const quint32 size = qFromBigEndian<quint32>(program.constData() + at - 4);
        if ((second != 0x9c && second != 0xda && second != 0x01 && second != 0x5e) || size == 0 ||
            size > quint32(mostOfOneResource))
            continue;
        QByteArray text(qsizetype(size), Qt::Uninitialized);
        uLongf length = size;
        uLong packed = uLong(program.size() - at);
        if (uncompress2(reinterpret_cast<Bytef *>(text.data()), &length,
                        reinterpret_cast<const Bytef *>(program.constData() + at), &packed) == Z_OK &&
            length == size)
            noteImports(text, names);
    }
}

} // namespace

Result<QStringList> importsInside(const QString &program) {
    QFile file(program);
    if (!file.open(QIODevice::ReadOnly))
        return problem(u"%1 cannot be read"_s.arg(program), file.errorString());
    const QByteArray content = file.readAll();
    QStringList names;
    noteImports(content, names);
    noteImportsInZstd(content, names);
    noteImportsInZlib(content, names);
    names.sort();
    return names;
}

Result<QmlImports> qmlImports(const QString &scanner, const QString &qml, const QStringList &names,
                              const QStringList &folders) {
    const QTemporaryDir work;
    QFile file(work.filePath(u"Imports.qml"_s));
    if (!work.isValid() || !file.open(QIODevice::WriteOnly))
        return problem(u"a temporary file cannot be made"_s, work.errorString() + file.errorString());
    for (const QString &name : names)
        file.write("import " + name.toUtf8() + '\n');
    if (!names.contains(importedByTheEngine))
        file.write("import " + importedByTheEngine.toUtf8() + '\n');
    file.write("QtObject {}\n");
    file.close();
    QStringList words;
    for (const QString &folder : QStringList{work.path()} + folders)
        words << u"-rootPath"_s << folder;
    const Result<QByteArray> output =
        outputOfProgram(scanner, words + QStringList{u"-importPath"_s, qml}, u"qt6-declarative-dev-tools"_s);
    if (!output)
        return output.error();
    const QJsonDocument answer = QJsonDocument::fromJson(*output);
    if (!answer.isArray())
        return problem(u"the answer of %1 cannot be read"_s.arg(scanner),
                       u"expected a JSON array, found: %1"_s.arg(QString::fromUtf8(output->left(200))));
    QmlImports result;
    const QString top = QDir(qml).canonicalPath() + u'/';
    for (const QJsonValue &value : answer.array()) {
        const QJsonObject entry = value.toObject();
        const QString name = entry[u"name"_s].toString();
        if (entry[u"type"_s].toString() != u"module")
            continue;
        const QString folder = QDir(entry[u"path"_s].toString()).canonicalPath();
        if (entry[u"path"_s].toString().isEmpty())
            result.missing << name;
        else if (folder.startsWith(
                     top)) // otherwise the module belongs to the application and is copied with its files
            result.modules.append({name, folder, folder.mid(top.size())});
    }
    result.missing.removeDuplicates();
    return result;
}

QStringList filesOf(const QmlModule &module) {
    QStringList result;
    const QDir top(module.folder);
    QStringList folders{QString()};
    while (!folders.isEmpty()) {
        const QString below = folders.takeFirst();
        const QDir folder(below.isEmpty() ? module.folder : top.filePath(below));
        for (const QFileInfo &entry :
             folder.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name)) {
            const QString way = below.isEmpty() ? entry.fileName() : below + u'/' + entry.fileName();
            if (entry.isDir()) {
                // A folder with a qmldir is another module, which is added if something imports it.
                if (entry.fileName() != u"designer" && !QFileInfo::exists(entry.filePath() + u"/qmldir"_s))
                    folders << way;
            } else if (!way.endsWith(u".qmltypes")) {
                result << way;
            }
        }
    }
    return result;
}

} // namespace tx::bundling
