// SPDX-License-Identifier: MIT
#include "base/propertylist.h"
#include "profile/measure.h"
#include "profile/valuescan.h"

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// The string under a key; null if there is none.
QString textIn(const QVariantMap &item, const QString &key) {
    const QVariant value = item.value(key);
    return value.typeId() == QMetaType::QString ? value.toString() : QString();
}

void readHardware(TXUpdateSystemProfile &profile, Processor processor, const QVariantMap &item) {
    // Each item overwrites the values of earlier ones, also with absent values; speed and memory stay if
    // there is no number.
    profile.setMachineName(textIn(item, u"machine_name"_s));
    profile.setMachineModel(textIn(item, u"machine_model"_s));
    if (processor == Processor::X86) {
        profile.setCPUType(textIn(item, u"cpu_type"_s));
        profile.setCPUCount(static_cast<quint64>(integerValue(item.value(u"number_processors"_s))));
    } else {
        profile.setCPUType(textIn(item, u"chip_type"_s));
        // All cores, the fast and the economical ones: "proc 10:8:2".
        const QString prefix = u"proc "_s;
        const QString text = textIn(item, u"number_processors"_s);
        if (text.startsWith(prefix))
            profile.setCPUCount(
                static_cast<quint64>(integerValue(text.mid(prefix.size()).section(u':', 0, 0))));
    }
    if (const auto speed = scanWithUnit(textIn(item, u"current_processor_speed"_s)))
        profile.setCPUSpeed(*speed);
    if (const auto memory = scanWithUnit(textIn(item, u"physical_memory"_s)))
        profile.setRAM(*memory);
}

void readDisplays(TXUpdateSystemProfile &profile, const QVariantMap &item) {
    if (textIn(item, u"sppci_device_type"_s) != u"spdisplays_gpu")
        return;
    profile.setGPUType(textIn(item, u"sppci_model"_s));
    const QStringList memory = textIn(item, u"spdisplays_vram"_s).split(u' ');
    if (memory.size() != 2)
        return;
    constexpr quint64 megabytesPerGigabyte = 1024;
    const auto amount = static_cast<quint64>(integerValue(memory[0]));
    profile.setVRAM(profile.VRAM() + (memory[1] == u"GB" ? amount * megabytesPerGigabyte : amount));
}

/// The elements of a list; none for a value that is not a list, such as a string, which would give its
/// characters.
QVariantList elementsOf(const QVariant &value) {
    return value.typeId() == QMetaType::QVariantList ? value.toList() : QVariantList();
}

} // namespace

void readHardwareAndDisplays(TXUpdateSystemProfile &profile, Processor processor,
                             const QByteArray &propertyList) {
    const Result<QVariant> list = readPropertyList(propertyList);
    if (!list)
        return;
    const QVariantList sections = elementsOf(*list);
    for (const QVariant &section : sections) {
        const QVariantMap members = section.toMap();
        const QString type = textIn(members, u"_dataType"_s);
        const QVariantList items = elementsOf(members.value(u"_items"_s));
        for (const QVariant &item : items) {
            if (type == u"SPHardwareDataType")
                readHardware(profile, processor, item.toMap());
            else if (type == u"SPDisplaysDataType")
                readDisplays(profile, item.toMap());
        }
    }
}

} // namespace tx
