// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXUpdateSystemProfile.h>

#include "base/format.h"
#include "os/services.h"
#include "profile/cpufamily.h"
#include "profile/measure.h"

using namespace Qt::StringLiterals;

namespace {

struct Field {
    const char *key;
    QString (*value)(const TXUpdateSystemProfile &profile);
};

/// The keys that are sent, in order.
constexpr Field fields[] = {
    {"OSVersion", [](const TXUpdateSystemProfile &p) { return p.OSVersion(); }},
    {"OSBuild", [](const TXUpdateSystemProfile &p) { return p.OSBuild(); }},
    {"machineName", [](const TXUpdateSystemProfile &p) { return p.machineName(); }},
    {"machineModel", [](const TXUpdateSystemProfile &p) { return p.machineModel(); }},
    {"is64bit", [](const TXUpdateSystemProfile &p) { return QString(p.is64bit() ? u'1' : u'0'); }},
    {"CPUType", [](const TXUpdateSystemProfile &p) { return p.CPUType(); }},
    {"CPUCount", [](const TXUpdateSystemProfile &p) { return QString::number(p.CPUCount()); }},
    {"CPUSpeed", [](const TXUpdateSystemProfile &p) { return QString::number(p.CPUSpeed()); }},
    {"RAM", [](const TXUpdateSystemProfile &p) { return QString::number(p.RAM()); }},
    {"GPUType", [](const TXUpdateSystemProfile &p) { return p.GPUType(); }},
    {"VRAM", [](const TXUpdateSystemProfile &p) { return QString::number(p.VRAM()); }},
    {"numberOfDisplays",
     [](const TXUpdateSystemProfile &p) { return QString::number(p.numberOfDisplays()); }},
    {"resolutions", [](const TXUpdateSystemProfile &p) { return p.resolutions(); }},
    {"language", [](const TXUpdateSystemProfile &p) { return p.language(); }},
};

} // namespace

TXUpdateSystemProfilePtr TXUpdateSystemProfile::systemProfile() {
    return std::make_shared<TXUpdateSystemProfile>();
}

TXUpdateSystemProfile::TXUpdateSystemProfile(Contents contents) {
    if (contents == Contents::Measured)
        tx::measure(*this, tx::builtFor);
}

QStringList TXUpdateSystemProfile::JSONKeys() {
    QStringList keys;
    for (const Field &field : fields)
        keys << QString::fromLatin1(field.key);
    return keys;
}

QString TXUpdateSystemProfile::valueForKey(const QString &key) const {
    for (const Field &field : fields) {
        if (key == QLatin1StringView(field.key))
            return field.value(*this);
    }
    return {};
}

QVariantMap TXUpdateSystemProfile::JSONDictionary() const {
    QVariantMap result;
    for (const QString &key : JSONKeys()) {
        if (const QString value = valueForKey(key); !value.isNull())
            result.insert(key, value);
    }
    return result;
}

QString TXUpdateSystemProfile::stringValue() const {
    QString result;
    for (const QString &key : JSONKeys())
        result += tx::formatText(u"%@ = %@\n"_s, {key, valueForKey(key)});
    return result;
}

bool TXUpdateSystemProfile::isAppleSilicon() { return tx::builtFor == tx::Processor::Arm64; }

QString TXUpdateSystemProfile::CPUFamily() const { return tx::cpuFamily(mCPUType); }

QString TXUpdateSystemProfile::CPUBrandString() {
    return tx::services().systemControlText(u"machdep.cpu.brand_string"_s).value_or(QString());
}

QString TXUpdateSystemProfile::CPUFamilyOfBrandString() { return tx::cpuFamily(CPUBrandString()); }
