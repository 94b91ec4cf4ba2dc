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

struct TXUpdateSystemProfile::Private : QSharedData {
    QString OSVersion;
    QString OSBuild;
    QString machineName;
    QString machineModel;
    bool is64bit = false;
    QString CPUType;
    quint64 CPUCount = 0;
    quint64 CPUSpeed = 0;
    quint64 RAM = 0;
    QString GPUType;
    quint64 VRAM = 0;
    quint64 numberOfDisplays = 0;
    QString resolutions;
    QString language;
};

TXUpdateSystemProfilePtr TXUpdateSystemProfile::systemProfile() {
    return std::make_shared<TXUpdateSystemProfile>();
}

TXUpdateSystemProfile::TXUpdateSystemProfile(Contents contents)
    : d(new Private) {
    if (contents == Contents::Measured)
        tx::measure(*this, tx::builtFor);
}

TXUpdateSystemProfile::TXUpdateSystemProfile(const TXUpdateSystemProfile &) = default;
TXUpdateSystemProfile &TXUpdateSystemProfile::operator=(const TXUpdateSystemProfile &) = default;
TXUpdateSystemProfile::~TXUpdateSystemProfile() = default;

QString TXUpdateSystemProfile::OSVersion() const { return d->OSVersion; }
QString TXUpdateSystemProfile::OSBuild() const { return d->OSBuild; }
QString TXUpdateSystemProfile::machineName() const { return d->machineName; }
QString TXUpdateSystemProfile::machineModel() const { return d->machineModel; }
bool TXUpdateSystemProfile::is64bit() const { return d->is64bit; }
QString TXUpdateSystemProfile::CPUType() const { return d->CPUType; }
quint64 TXUpdateSystemProfile::CPUCount() const { return d->CPUCount; }
quint64 TXUpdateSystemProfile::CPUSpeed() const { return d->CPUSpeed; }
quint64 TXUpdateSystemProfile::RAM() const { return d->RAM; }
QString TXUpdateSystemProfile::GPUType() const { return d->GPUType; }
quint64 TXUpdateSystemProfile::VRAM() const { return d->VRAM; }
quint64 TXUpdateSystemProfile::numberOfDisplays() const { return d->numberOfDisplays; }
QString TXUpdateSystemProfile::resolutions() const { return d->resolutions; }
QString TXUpdateSystemProfile::language() const { return d->language; }

void TXUpdateSystemProfile::setOSVersion(const QString &version) { d->OSVersion = version; }
void TXUpdateSystemProfile::setOSBuild(const QString &build) { d->OSBuild = build; }
void TXUpdateSystemProfile::setMachineName(const QString &name) { d->machineName = name; }
void TXUpdateSystemProfile::setMachineModel(const QString &model) { d->machineModel = model; }
void TXUpdateSystemProfile::setIs64bit(bool is64bit) { d->is64bit = is64bit; }
void TXUpdateSystemProfile::setCPUType(const QString &type) { d->CPUType = type; }
void TXUpdateSystemProfile::setCPUCount(quint64 count) { d->CPUCount = count; }
void TXUpdateSystemProfile::setCPUSpeed(quint64 speed) { d->CPUSpeed = speed; }
void TXUpdateSystemProfile::setRAM(quint64 megabytes) { d->RAM = megabytes; }
void TXUpdateSystemProfile::setGPUType(const QString &type) { d->GPUType = type; }
void TXUpdateSystemProfile::setVRAM(quint64 megabytes) { d->VRAM = megabytes; }
void TXUpdateSystemProfile::setNumberOfDisplays(quint64 count) { d->numberOfDisplays = count; }
void TXUpdateSystemProfile::setResolutions(const QString &resolutions) { d->resolutions = resolutions; }
void TXUpdateSystemProfile::setLanguage(const QString &language) { d->language = language; }

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

QString TXUpdateSystemProfile::CPUFamily() const { return tx::cpuFamily(d->CPUType); }

QString TXUpdateSystemProfile::CPUBrandString() {
    return tx::services().systemControlText(u"machdep.cpu.brand_string"_s).value_or(QString());
}

QString TXUpdateSystemProfile::CPUFamilyOfBrandString() { return tx::cpuFamily(CPUBrandString()); }
