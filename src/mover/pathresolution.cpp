// SPDX-License-Identifier: MIT
#include "mover/pathresolution.h"

#include "os/entrykind.h"
#include "os/services.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QString parentOf(const QString &path) {
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash > 0 ? path.left(slash) : u"/"_s;
}

QString joined(const QString &folder, const QString &name) {
    return folder.endsWith(u'/') ? folder + name : folder + u'/' + name;
}

} // namespace

QString stringByResolvingSymlinksAndAliases(const QString &path) {
    const QString standardized = standardizedPath(path);
    if (!standardized.startsWith(u'/'))
        return {};
    QString result = u"/"_s;
    for (const QString &component : standardized.split(u'/', Qt::SkipEmptyParts)) {
        result = stringByIterativelyResolvingSymlinkOrAlias(joined(result, component));
        if (result.isNull())
            return {};
    }
    return result;
}

QString stringByIterativelyResolvingSymlinkOrAlias(const QString &path) {
    constexpr int mostSteps = 64;
    QString current = path;
    for (int step = 0; step <= mostSteps; ++step) {
        QString next;
        switch (entryKind(current)) {
        case EntryKind::None:
            return {};
        case EntryKind::Directory:
            return current;
        case EntryKind::SymbolicLink:
            next = stringByConditionallyResolvingSymlink(current);
            if (next.isNull())
                return {};
            break;
        case EntryKind::Other:
            next = stringByConditionallyResolvingAlias(current);
            if (next.isNull())
                return current;
            break;
        }
        current = next;
    }
    return {};
}

QString stringByResolvingSymlink(const QString &path) {
    const QString target = stringByConditionallyResolvingSymlink(path);
    return target.isNull() ? path : target;
}

QString stringByResolvingAlias(const QString &path) {
    const QString target = stringByConditionallyResolvingAlias(path);
    return target.isNull() ? path : target;
}

QString stringByConditionallyResolvingSymlink(const QString &path) {
    const std::optional<QString> target = symbolicLinkTarget(path);
    if (!target)
        return {};
    return target->startsWith(u'/') ? *target : standardizedPath(joined(parentOf(path), *target));
}

QString stringByConditionallyResolvingAlias(const QString &path) {
    return services().aliasTarget(path).value_or(QString());
}

} // namespace tx
