// SPDX-License-Identifier: MIT
#include "desktop/reportformats.h"

#include "posix/plainpropertylist.h"

#include <map>

namespace tx::machine {

namespace {

plain::Value valueOf(const std::vector<Item> &items);

plain::Value valueOf(const Item::Value &value) {
    if (const auto *text = std::get_if<std::string>(&value))
        return {*text};
    if (const auto *number = std::get_if<uint64_t>(&value))
        return {static_cast<int64_t>(*number)};
    return valueOf(std::get<std::vector<Item>>(value));
}

plain::Value valueOf(const std::vector<Item> &items) {
    plain::Array array;
    for (const Item &item : items) {
        plain::Dictionary dictionary;
        for (const auto &[key, value] : item.members)
            dictionary.push_back({key, valueOf(value)});
        array.push_back({dictionary});
    }
    return {array};
}

/// The label that a person reads instead of a key.
std::string titleOf(const std::string &key) {
    static const std::map<std::string, std::string> titles{
        {"SPHardwareDataType", "Hardware"},
        {"SPDisplaysDataType", "Graphics/Displays"},
        {"machine_name", "Model Name"},
        {"machine_model", "Model Identifier"},
        {"cpu_type", "Processor Name"},
        {"chip_type", "Chip"},
        {"current_processor_speed", "Processor Speed"},
        {"number_processors", "Total Number of Cores"},
        {"physical_memory", "Memory"},
        {"sppci_model", "Chipset Model"},
        {"sppci_device_type", "Type"},
        {"spdisplays_vendor", "Vendor"},
        {"spdisplays_vram", "VRAM (Total)"},
        {"spdisplays_ndrvs", "Displays"},
        {"_spdisplays_resolution", "Resolution"},
        {"hardware_overview", "Hardware Overview"},
    };
    const auto title = titles.find(key);
    return title == titles.end() ? key : title->second;
}

std::string wordsFor(const std::string &value) { return value == "spdisplays_gpu" ? "GPU" : value; }

void append(std::string &text, const std::vector<Item> &items, size_t depth) {
    constexpr size_t step = 4;
    const std::string indent(depth, ' ');
    for (const Item &item : items) {
        for (const auto &[key, value] : item.members) {
            if (const auto *nested = std::get_if<std::vector<Item>>(&value)) {
                text += indent + "  " + titleOf(key) + ":\n";
                append(text, *nested, depth + step);
            } else if (const auto *words = std::get_if<std::string>(&value)) {
                text += key == "_name" ? indent + titleOf(*words) + ":\n"
                                       : indent + "  " + titleOf(key) + ": " + wordsFor(*words) + "\n";
            } else {
                text +=
                    indent + "  " + titleOf(key) + ": " + std::to_string(std::get<uint64_t>(value)) + "\n";
            }
        }
    }
}

} // namespace

std::string asPropertyList(const std::vector<Section> &sections) {
    plain::Array root;
    for (const Section &section : sections)
        root.push_back(
            {plain::Dictionary{{"_dataType", {section.dataType}}, {"_items", valueOf(section.items)}}});
    return plain::writePropertyList({root});
}

std::string asText(const std::vector<Section> &sections) {
    std::string text;
    for (const Section &section : sections) {
        text += titleOf(section.dataType) + ":\n";
        append(text, section.items, 4);
    }
    return text;
}

} // namespace tx::machine
