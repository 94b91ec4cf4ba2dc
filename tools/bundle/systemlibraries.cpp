// SPDX-License-Identifier: MIT
#include "bundle/systemlibraries.h"

#include "bundle/problem.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace tx::bundling {

extern const char *const systemLibrariesText; // content of system-libraries.txt

namespace {

const SystemLibrary *lineFor(const QString &name, const QList<SystemLibrary> &lines) {
    for (const SystemLibrary &line : lines) {
        if (QRegularExpression(QRegularExpression::wildcardToRegularExpression(line.pattern))
                .match(name)
                .hasMatch())
            return &line;
    }
    return nullptr;
}

} // namespace

Result<SystemLibraries> SystemLibraries::parse(const QString &text) {
    SystemLibraries result;
    int number = 0;
    for (const QString &line : text.split(u'\n')) {
        ++number;
        if (line.trimmed().isEmpty() || line.startsWith(u'#'))
            continue;
        const QStringList words = line.simplified().split(u' ');
        if (words.size() < 4 || (words[0] != u"system" && words[0] != u"beside"))
            return problem(
                u"line %1 of the list of the system's libraries cannot be read"_s.arg(number),
                u"expected \"system\" or \"beside\", a name, a package and a reason, found: %1"_s.arg(line));
        const SystemLibrary entry{words[1], words[2], words.mid(3).join(u' ')};
        (words[0] == u"system" ? result.m_left : result.m_companions) << entry;
    }
    return result;
}

const SystemLibraries &SystemLibraries::known() {
    static const Result<SystemLibraries> list = parse(QString::fromUtf8(systemLibrariesText));
    if (!list)
        qFatal("%s", qPrintable(lineOf(list.error()))); // the file belongs to the build, and a test parses it
    return *list;
}

const SystemLibrary *SystemLibraries::find(const QString &name) const { return lineFor(name, m_left); }
const SystemLibrary *SystemLibraries::companionOf(const QString &name) const {
    return lineFor(name, m_companions);
}

} // namespace tx::bundling
