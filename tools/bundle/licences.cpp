// SPDX-License-Identifier: MIT
#include "bundle/licences.h"

#include "bundle/programs.h"
#include "os/services.h"
#include "os/tasks.h"

#include <QFileInfo>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

/// The package database may list a file in /usr/lib under /lib, where it was before these folders were
/// merged.
QString otherNameOf(const QString &file) { return file.startsWith(u"/usr/lib") ? file.mid(4) : QString(); }

} // namespace

QMap<QString, QString> packagesIn(const QByteArray &output) {
    QMap<QString, QString> result;
    for (const QByteArray &line : output.split('\n')) {
        // Example: "libz1:amd64: /lib/x86_64-linux-gnu/libz.so.1.2.13". If several packages own a file, their
        // names are separated by commas.
        const qsizetype colon = line.indexOf(": ");
        if (colon <= 0 || line.startsWith("diversion "))
            continue;
        const QByteArray first = line.left(colon).split(',').constFirst();
        result.insert(QString::fromUtf8(line.mid(colon + 2)),
                      QString::fromUtf8(first.split(':').constFirst()));
    }
    return result;
}

Result<Licences> licencesOf(const QStringList &files) {
    Licences result;
    QStringList names;
    for (const QString &file : files) {
        names << file;
        if (const QString other = otherNameOf(file); !other.isEmpty())
            names << other;
    }
    QMap<QString, QString> packages;
    if (!names.isEmpty() && QFileInfo(u"/var/lib/dpkg/info"_s).isDir()) {
        // dpkg exits with status 1 if a file has no package, but still prints the packages of the others.
        const Result<QByteArray> output = outputOfProgram(
            u"sh"_s,
            QStringList{u"-c"_s, u"LC_ALL=C dpkg -S -- \"$@\" 2>/dev/null; [ $? -le 1 ]"_s, u"sh"_s} + names,
            u"dpkg"_s);
        if (!output)
            return output.error();
        packages = packagesIn(*output);
    }
    QSet<QString> seen;
    for (const QString &file : files) {
        QString package = packages.value(file);
        if (package.isEmpty())
            package = packages.value(otherNameOf(file));
        const QString text = u"/usr/share/doc/"_s + package + u"/copyright"_s;
        if (package.isEmpty() || !QFileInfo(text).isFile()) {
            result.unknown << file;
        } else if (!seen.contains(package)) {
            seen.insert(package);
            result.found.append({package, text});
        }
    }
    std::sort(result.found.begin(), result.found.end(),
              [](const Licence &a, const Licence &b) { return a.package < b.package; });
    return result;
}

} // namespace tx::bundling
