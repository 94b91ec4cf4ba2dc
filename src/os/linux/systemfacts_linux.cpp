// SPDX-License-Identifier: MIT
#include "os/systemfacts.h"

#include "os/osversion.h"

#include <QFile>

#include <sys/utsname.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QByteArray cpuInfo() {
    QFile file(u"/proc/cpuinfo"_s);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The value of the first line of that name.
std::optional<QString> valueOf(const QByteArray &text, const QByteArray &name) {
    for (const QByteArray &line : text.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.left(colon).trimmed() == name)
            return QString::fromUtf8(line.mid(colon + 1).trimmed());
    }
    return std::nullopt;
}

} // namespace

QString operatingSystemVersionString() {
    const OSVersion version = operatingSystemVersion();
    const QString text =
        u"Version %1.%2.%3"_s.arg(version.majorVersion).arg(version.minorVersion).arg(version.patchVersion);
    return version.build.isEmpty() ? text : text + u" (Build %1)"_s.arg(version.build);
}

std::optional<int> systemControlNumber(const QString &name) {
    struct utsname names {};
    uname(&names);
    const QByteArrayView machine(names.machine);
    if (name == u"hw.optional.x86_64")
        return machine == "x86_64" ? 1 : 0;
    if (name != u"hw.cpu64bit_capable")
        return std::nullopt;
    // A 32-bit system may run on a processor that can do more: its flags say so.
    if (machine.endsWith("64"))
        return 1;
    const QString flags = u' ' + valueOf(cpuInfo(), "flags").value_or(QString()) + u' ';
    return flags.contains(u" lm "_s) ? 1 : 0;
}

std::optional<QString> brandFromCpuInfo(const QByteArray &cpuInfo) {
    for (const char *name : {"model name", "Hardware", "Processor"}) {
        if (const auto value = valueOf(cpuInfo, name); value && !value->isEmpty())
            return value;
    }
    return std::nullopt;
}

std::optional<QString> systemControlText(const QString &name) {
    return name == u"machdep.cpu.brand_string" ? brandFromCpuInfo(cpuInfo()) : std::nullopt;
}

} // namespace tx
