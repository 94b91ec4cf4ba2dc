// SPDX-License-Identifier: MIT
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

QString toText(const std::string &text) { return QString::fromStdString(text); }

QVariant valueFrom(const std::vector<machine::Item> &items);

QVariant valueFrom(const machine::Item::Value &value) {
    if (const auto *text = std::get_if<std::string>(&value))
        return toText(*text);
    if (const auto *number = std::get_if<uint64_t>(&value))
        return static_cast<qint64>(*number);
    return valueFrom(std::get<std::vector<machine::Item>>(value));
}

QVariant valueFrom(const std::vector<machine::Item> &items) {
    QVariantList list;
    for (const machine::Item &item : items) {
        QVariantMap members;
        for (const auto &[key, value] : item.members)
            members.insert(toText(key), valueFrom(value));
        list.append(members);
    }
    return list;
}

} // namespace

QVariant sectionsFrom(const std::vector<machine::Section> &sections) {
    QVariantList list;
    for (const machine::Section &section : sections)
        list.append(
            QVariantMap{{u"_dataType"_s, toText(section.dataType)}, {u"_items"_s, valueFrom(section.items)}});
    return list;
}

void readHardwareAndDisplays(TXUpdateSystemProfile &profile, Processor processor, const QVariant &sections) {
    const QVariantList list = elementsOf(sections);
    for (const QVariant &section : list) {
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
