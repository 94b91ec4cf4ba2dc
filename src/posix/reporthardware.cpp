// SPDX-License-Identifier: MIT
#include "posix/systemfiles.h"
#include "posix/systemreport.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <set>
#include <sys/utsname.h>

namespace tx::machine {

namespace {

/// Placeholders that manufacturers leave in the fields for names.
bool isPlaceholder(const std::string &text) {
    constexpr std::array<std::string_view, 14> placeholders{"",
                                                            "None",
                                                            "N/A",
                                                            "Not Applicable",
                                                            "Not Specified",
                                                            "Unknown",
                                                            "Default string",
                                                            "System Version",
                                                            "System Product Name",
                                                            "To be filled by O.E.M.",
                                                            "To Be Filled By O.E.M.",
                                                            "O.E.M.",
                                                            "Type1ProductConfigId",
                                                            "Undefined"};
    return std::find(placeholders.begin(), placeholders.end(), text) != placeholders.end();
}

std::string meaningful(const std::string &text) { return isPlaceholder(text) ? std::string() : text; }

void addMachine(Item &item, const Source &source) {
    const std::string dmi = source.root + "/sys/class/dmi/id/";
    std::string model = meaningful(readLine(dmi + "product_name"));
    if (model.empty()) {
        const std::string board = readAll(source.root + "/proc/device-tree/model");
        model = cleaned(board.substr(0, board.find('\0')));
    }
    const std::string family = meaningful(readLine(dmi + "product_family"));
    item.add("machine_name", family.empty() ? model : family);
    item.add("machine_model", model);
}

std::string firstOf(const std::vector<std::string> &values) {
    return values.empty() ? std::string() : values[0];
}

/// Names of the processors that give only numbers.
std::string armName(const std::string &implementer, const std::string &part) {
    struct Name {
        const char *implementer;
        const char *part;
        const char *name;
    };
    constexpr Name names[] = {
        {"0x41", "0xd03", "ARM Cortex-A53"},  {"0x41", "0xd04", "ARM Cortex-A35"},
        {"0x41", "0xd05", "ARM Cortex-A55"},  {"0x41", "0xd07", "ARM Cortex-A57"},
        {"0x41", "0xd08", "ARM Cortex-A72"},  {"0x41", "0xd09", "ARM Cortex-A73"},
        {"0x41", "0xd0a", "ARM Cortex-A75"},  {"0x41", "0xd0b", "ARM Cortex-A76"},
        {"0x41", "0xd0c", "ARM Neoverse-N1"}, {"0x41", "0xd0d", "ARM Cortex-A77"},
        {"0x41", "0xd40", "ARM Neoverse-V1"}, {"0x41", "0xd41", "ARM Cortex-A78"},
        {"0x41", "0xd44", "ARM Cortex-X1"},   {"0x41", "0xd49", "ARM Neoverse-N2"},
        {"0x41", "0xd4b", "ARM Cortex-A78C"}, {"0x41", "0xd4f", "ARM Neoverse-V2"},
        {"0x61", "0x022", "Apple M1"},        {"0x61", "0x023", "Apple M1"},
        {"0x61", "0x032", "Apple M2"},        {"0x61", "0x033", "Apple M2"},
    };
    for (const Name &name : names) {
        if (implementer == name.implementer && part == name.part)
            return name.name;
    }
    return implementer.empty() ? std::string() : "ARM " + implementer + "/" + part;
}

/// "2.6 GHz", "3 GHz". The locale of the process, which an application may choose, has no influence.
std::string speedText(double gigahertz) {
    std::array<char, 32> text{};
    const std::to_chars_result written =
        std::to_chars(text.begin(), text.end(), gigahertz, std::chars_format::fixed, 1);
    std::string result(text.begin(), written.ec == std::errc() ? written.ptr : text.begin());
    if (result.ends_with(".0"))
        result.resize(result.size() - 2);
    return gigahertz > 0 && !result.empty() ? result + " GHz" : std::string();
}

/// The number at the beginning of a text, after blanks; 0 if there is none.
double numberIn(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    double value = 0;
    (void)std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

std::string speed(const Source &source, const std::string &cpuInfo, const std::string &name) {
    constexpr double kilohertz = 1e6;
    constexpr double megahertz = 1e3;
    const std::string frequencies = source.root + "/sys/devices/system/cpu/cpu0/cpufreq/";
    if (const auto base = readNumber(frequencies + "base_frequency"))
        return speedText(static_cast<double>(*base) / kilohertz);
    if (const size_t at = name.rfind("@ "); at != std::string::npos)
        return speedText(numberIn(std::string_view(name).substr(at + 2)));
    if (const auto highest = readNumber(frequencies + "cpuinfo_max_freq"))
        return speedText(static_cast<double>(*highest) / kilohertz);
    return speedText(numberIn(firstOf(valuesOf(cpuInfo, "cpu MHz"))) / megahertz);
}

void addX86Processor(Item &item, const Source &source, const std::string &cpuInfo) {
    const std::string name = firstOf(valuesOf(cpuInfo, "model name"));
    item.add("cpu_type", name);
    item.add("current_processor_speed", speed(source, cpuInfo, name));
    const std::vector<std::string> packages = valuesOf(cpuInfo, "physical id");
    const std::vector<std::string> cores = valuesOf(cpuInfo, "core id");
    std::set<std::pair<std::string, std::string>> different;
    for (size_t i = 0; i < std::min(packages.size(), cores.size()); ++i)
        different.emplace(packages[i], cores[i]);
    const size_t count = different.empty() ? valuesOf(cpuInfo, "processor").size() : different.size();
    if (count > 0)
        item.add("number_processors", uint64_t(count));
}

void addArmProcessor(Item &item, const Source &source, const std::string &cpuInfo) {
    std::string name = firstOf(valuesOf(cpuInfo, "model name"));
    if (name.empty())
        name = firstOf(valuesOf(cpuInfo, "Hardware"));
    if (name.empty())
        name = armName(firstOf(valuesOf(cpuInfo, "CPU implementer")), firstOf(valuesOf(cpuInfo, "CPU part")));
    item.add("chip_type", name);
    std::vector<uint64_t> capacities;
    const std::string folder = source.root + "/sys/devices/system/cpu/";
    for (const std::string &entry : namesIn(folder)) {
        if (entry.size() > 3 && entry.starts_with("cpu") &&
            entry.find_first_not_of("0123456789", 3) == std::string::npos)
            capacities.push_back(readNumber(folder + entry + "/cpu_capacity").value_or(0));
    }
    if (capacities.empty())
        return;
    const uint64_t highest = *std::max_element(capacities.begin(), capacities.end());
    const auto fast = std::count(capacities.begin(), capacities.end(), highest);
    item.add("number_processors", "proc " + std::to_string(capacities.size()) + ':' + std::to_string(fast) +
                                      ':' + std::to_string(static_cast<long>(capacities.size()) - fast));
}

/// The installed memory: the system's own total excludes memory that the kernel reserves.
uint64_t memory(const Source &source) {
    const std::string folder = source.root + "/sys/devices/system/memory/";
    if (const auto block = readNumber(folder + "block_size_bytes", 16)) {
        uint64_t online = 0;
        for (const std::string &entry : namesIn(folder)) {
            if (entry.starts_with("memory") && readLine(folder + entry + "/state") == "online")
                ++online;
        }
        if (online > 0)
            return online * *block;
    }
    constexpr uint64_t kibibyte = 1024;
    constexpr uint64_t coarse = 1ULL << 30;
    constexpr uint64_t fine = 1ULL << 26;
    const uint64_t total =
        std::strtoull(firstOf(valuesOf(readAll(source.root + "/proc/meminfo"), "MemTotal")).c_str(), nullptr,
                      10) *
        kibibyte;
    const uint64_t step = total >= coarse ? coarse : fine;
    return (total + step - 1) / step * step;
}

} // namespace

Source Source::thisMachine() {
    struct utsname names {};
    uname(&names);
    return {"", names.machine};
}

Section hardware(const Source &source) {
    Item item;
    item.add("_name", "hardware_overview");
    addMachine(item, source);
    const std::string cpuInfo = readAll(source.root + "/proc/cpuinfo");
    if (source.architecture == "aarch64")
        addArmProcessor(item, source, cpuInfo);
    else
        addX86Processor(item, source, cpuInfo);
    if (const uint64_t bytes = memory(source); bytes > 0)
        item.add("physical_memory", memoryText(bytes));
    return {"SPHardwareDataType", {item}};
}

} // namespace tx::machine
