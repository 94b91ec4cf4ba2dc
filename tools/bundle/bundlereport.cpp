// SPDX-License-Identifier: MIT
#include "bundle/bundlereport.h"

#include <QJsonArray>
#include <QVersionNumber>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

QString shownSize(qint64 size) {
    return size < 1000000 ? u"%1 kB"_s.arg(double(size) / 1e3, 0, 'f', 1)
                          : u"%1 MB"_s.arg(double(size) / 1e6, 0, 'f', 1);
}

QString nameOf(Kind kind) {
    switch (kind) {
    case Kind::Program:
        return u"program"_s;
    case Kind::Library:
        return u"library"_s;
    case Kind::Plugin:
        return u"plugin"_s;
    case Kind::QmlModule:
        return u"qml"_s;
    case Kind::Framework:
        return u"framework"_s;
    case Kind::Translation:
        return u"translation"_s;
    case Kind::Resource:
        break;
    }
    return u"resource"_s;
}

/// Names only the first few, because every file needs the C library.
QString shownAskers(const QStringList &askers) {
    constexpr qsizetype most = 5;
    const QString names = askers.mid(0, most).join(u", "_s);
    return askers.size() <= most ? names : u"%1 and %2 more"_s.arg(names).arg(askers.size() - most);
}

void raise(QString &oldest, const QString &needed) {
    if (QVersionNumber::fromString(needed) > QVersionNumber::fromString(oldest))
        oldest = needed;
}

} // namespace

Summary summaryOf(const Plan &plan) {
    Summary summary;
    summary.machine = plan.executable.machineName();
    for (const Item &item : plan.items) {
        summary.size += item.size;
        ++summary.files;
        if (!item.elf)
            continue;
        raise(summary.oldestGlibc, item.elf->newestVersions.value(u"GLIBC"_s));
        raise(summary.oldestLibstdcxx, item.elf->newestVersions.value(u"GLIBCXX"_s));
    }
    const auto addPackage = [&summary](const SystemLibrary *line) {
        const auto isSame = [line](const SystemLibrary *known) { return known->package == line->package; };
        if (std::none_of(summary.packages.begin(), summary.packages.end(), isSame))
            summary.packages << line;
    };
    for (const LeftOut &left : plan.leftOut)
        addPackage(left.line);
    for (const SystemLibrary *line : plan.companions)
        addPackage(line);
    std::sort(summary.packages.begin(), summary.packages.end(),
              [](const SystemLibrary *a, const SystemLibrary *b) { return a->package < b->package; });
    return summary;
}

QString listOf(const Plan &plan) {
    QString text;
    for (const Item &item : plan.items)
        text += u"%1  %2%3\n"_s.arg(shownSize(item.size), 10)
                    .arg(item.place,
                         item.askers.isEmpty() ? QString() : u"  (for "_s + shownAskers(item.askers) + u')');
    text += u"Left to the system:\n"_s;
    for (const LeftOut &left : plan.leftOut)
        text += u"  %1  package %2: %3  (for %4)\n"_s.arg(left.name, left.line->package, left.line->reason,
                                                          shownAskers(left.askers));
    return text;
}

QString textOf(const Summary &summary) {
    QStringList packages;
    for (const SystemLibrary *line : summary.packages)
        packages << line->package;
    return u"%1 in %2 files for %3\nOldest glibc on which it can run: %4; symbols of libstdc++: %5\n"
           "Expects these packages of the desktop (Debian's names): %6\n"_s.arg(shownSize(summary.size))
               .arg(summary.files)
               .arg(summary.machine, summary.oldestGlibc.isEmpty() ? u"any"_s : summary.oldestGlibc,
                    summary.oldestLibstdcxx.isEmpty() ? u"any"_s : u"GLIBCXX_"_s + summary.oldestLibstdcxx,
                    packages.join(u' '));
}

QJsonObject jsonOf(const Plan &plan) {
    QJsonArray files;
    for (const Item &item : plan.items)
        files << QJsonObject{{u"place"_s, item.place},
                             {u"source"_s, item.source},
                             {u"kind"_s, nameOf(item.kind)},
                             {u"size"_s, item.size},
                             {u"for"_s, QJsonArray::fromStringList(item.askers)}};
    QJsonArray system;
    for (const LeftOut &left : plan.leftOut)
        system << QJsonObject{{u"library"_s, left.name},
                              {u"package"_s, left.line->package},
                              {u"reason"_s, left.line->reason},
                              {u"for"_s, QJsonArray::fromStringList(left.askers)}};
    const Summary summary = summaryOf(plan);
    QJsonArray packages;
    for (const SystemLibrary *line : summary.packages)
        packages << line->package;
    return {{u"bundle"_s, plan.places.bundle},
            {u"files"_s, files},
            {u"system"_s, system},
            {u"packages"_s, packages},
            {u"size"_s, summary.size},
            {u"machine"_s, summary.machine},
            {u"oldestGlibc"_s, summary.oldestGlibc},
            {u"oldestLibstdcxx"_s, summary.oldestLibstdcxx},
            {u"warnings"_s, QJsonArray::fromStringList(plan.warnings)}};
}

} // namespace tx::bundling
