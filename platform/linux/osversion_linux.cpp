// SPDX-License-Identifier: MIT
#include "platform/osversion.h"

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

} // namespace

OSVersion osVersionFrom(const QString &osRelease, const QString &kernelRelease) {
    OSVersion version;
    version.build = kernelRelease;
    for (const QString &line : osRelease.split(u'\n')) {
        if (!line.startsWith(u"VERSION_ID="_s))
            continue;
        QString value = line.mid(11).trimmed();
        if (value.size() >= 2 && (value.startsWith(u'"') || value.startsWith(u'\'')))
            value = value.mid(1, value.size() - 2);
        if (readNumbers(value, version))
            return version;
    }
    readNumbers(kernelRelease, version);
    return version;
}

OSVersion operatingSystemVersion() {
    QString text;
    for (const QString &path : {u"/etc/os-release"_s, u"/usr/lib/os-release"_s}) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) {
            text = QString::fromUtf8(file.readAll());
            break;
        }
    }
    struct utsname names {};
    uname(&names);
    return osVersionFrom(text, QString::fromLocal8Bit(names.release));
}

} // namespace tx
