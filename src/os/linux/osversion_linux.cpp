// SPDX-License-Identifier: MIT
#include "os/osversion.h"

#include "base/shared.h"

#include <QFile>
#include <QStringList>

#include <sys/utsname.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// The leading numbers of a text such as "12", "22.04" or "6.1.0-18-amd64".
bool readNumbers(QStringView text, OSVersion &version) {
    int numbers[3] = {0, 0, 0};
    qsizetype position = 0;
    for (int i = 0; i < 3; ++i) {
        const qsizetype start = position;
        while (position < text.size() && text[position] >= u'0' && text[position] <= u'9')
            ++position;
        if (start == position)
            return i > 0;
        numbers[i] = text.mid(start, position - start).toInt();
        version.majorVersion = numbers[0];
        version.minorVersion = numbers[1];
        version.patchVersion = numbers[2];
        if (position >= text.size() || text[position] != u'.')
            return true;
        ++position;
    }
    return true;
}

/// The value of a variable in an os-release text; null when it is not set.
QString valueIn(const QString &osRelease, const QString &name) {
    QString result;
    for (const QString &line : osRelease.split(u'\n')) {
        if (!line.startsWith(name + u'='))
            continue;
        QString value = line.mid(name.size() + 1).trimmed();
        if (value.size() >= 2 && (value.startsWith(u'"') || value.startsWith(u'\'')))
            value = value.mid(1, value.size() - 2);
        result = value; // the last one counts, as in a shell
    }
    return result;
}

QString osRelease() {
    for (const QString &path : {u"/etc/os-release"_s, u"/usr/lib/os-release"_s}) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            return QString::fromUtf8(file.readAll());
    }
    return {};
}

} // namespace

OSVersion osVersionFrom(const QString &osRelease, const QString &kernelRelease) {
    OSVersion version;
    version.build = kernelRelease;
    if (readNumbers(valueIn(osRelease, u"VERSION_ID"_s), version))
        return version;
    readNumbers(kernelRelease, version);
    return version;
}

OSVersion operatingSystemVersion() {
    struct utsname names {};
    uname(&names);
    return osVersionFrom(osRelease(), QString::fromLocal8Bit(names.release));
}

QString osNameFrom(const QString &osRelease) {
    const QString name = valueIn(osRelease, u"NAME"_s);
    return name.isEmpty() ? u"Linux"_s : name;
}

TX_SHARED QString operatingSystemName() { return osNameFrom(osRelease()); }

} // namespace tx
