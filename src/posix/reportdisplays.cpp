// SPDX-License-Identifier: MIT
#include "posix/systemfiles.h"
#include "posix/systemreport.h"

#include <algorithm>

namespace tx::machine {

namespace {

/// The value of a line "XXXX  value" that stands after `indent`, from `position` on; the search ends where a
/// line is less indented. npos without one.
size_t findEntry(std::string_view ids, size_t position, std::string_view indent, const std::string &number) {
    while (position < ids.size()) {
        const std::string_view line = ids.substr(position, ids.find('\n', position) - position);
        const bool isComment = line.empty() || line[0] == '#';
        if (!isComment && !line.starts_with(indent))
            return std::string_view::npos;
        const std::string_view rest = isComment ? line : line.substr(indent.size());
        if (!isComment && rest.starts_with(number) && rest.substr(number.size()).starts_with("  "))
            return position + indent.size() + number.size() + 2;
        position += line.size() + 1;
    }
    return std::string_view::npos;
}

std::string lineAt(std::string_view text, size_t position) {
    return cleaned(std::string(text.substr(position, text.find('\n', position) - position)));
}

/// The common name is in brackets: "CoffeeLake-H GT2 [UHD Graphics 630]".
std::string shortName(const std::string &name) {
    const size_t open = name.rfind('[');
    const size_t close = name.find(']', open == std::string::npos ? 0 : open);
    if (open != std::string::npos && close != std::string::npos)
        return name.substr(open + 1, close - open - 1);
    for (const std::string_view suffix : {" Corporation", ", Inc.", " Inc.", " Co., Ltd."}) {
        if (name.ends_with(suffix))
            return name.substr(0, name.size() - suffix.size());
    }
    return name;
}

/// "0x8086" as "8086".
std::string digitsOf(const std::string &text) { return text.starts_with("0x") ? text.substr(2) : text; }

/// Memory of the graphics processor alone, if its driver reports it.
uint64_t videoMemory(const std::string &device) {
    if (const auto bytes = readNumber(device + "/mem_info_vram_total"))
        return *bytes;
    for (const std::string &card : namesIn(device + "/drm")) {
        if (const auto bytes = readNumber(device + "/drm/" + card + "/lmem_total_bytes"))
            return *bytes;
    }
    return 0;
}

/// The screens that are connected to a card.
std::vector<Item> screensOf(const std::string &card, const std::string &name) {
    std::vector<Item> screens;
    for (const std::string &connector : namesIn(card)) {
        const std::string folder = card + '/' + connector;
        if (!connector.starts_with(name + '-') || readLine(folder + "/status") != "connected")
            continue;
        Item screen;
        screen.add("_name", connector.substr(name.size() + 1));
        screen.add("_spdisplays_resolution", readLine(folder + "/modes"));
        screens.push_back(std::move(screen));
    }
    return screens;
}

std::vector<Item> screensOfDevice(const std::string &device) {
    std::vector<Item> screens;
    for (const std::string &card : namesIn(device + "/drm")) {
        if (card.starts_with("card"))
            std::ranges::move(screensOf(device + "/drm/" + card, card), std::back_inserter(screens));
    }
    return screens;
}

Item graphicsProcessor(const std::string &model, const std::string &vendor, const std::string &device) {
    Item item;
    item.add("_name", model);
    item.add("sppci_model", model);
    item.add("sppci_device_type", "spdisplays_gpu");
    item.add("spdisplays_vendor", vendor);
    if (const uint64_t bytes = videoMemory(device); bytes > 0)
        item.add("spdisplays_vram", memoryText(bytes));
    item.add("spdisplays_ndrvs", screensOfDevice(device));
    return item;
}

} // namespace

std::pair<std::string, std::string> pciNames(std::string_view ids, const std::string &vendor,
                                             const std::string &device) {
    const size_t vendorAt =
        findEntry(ids, ids.starts_with(vendor + "  ") ? 0 : ids.find('\n' + vendor + "  ") + 1, "", vendor);
    if (vendorAt == std::string_view::npos)
        return {vendor + ':' + device, vendor};
    const std::string maker = shortName(lineAt(ids, vendorAt));
    const size_t deviceAt =
        findEntry(ids, std::min(ids.find('\n', vendorAt), ids.size() - 1) + 1, "\t", device);
    if (deviceAt == std::string_view::npos)
        return {maker + ' ' + device, maker};
    const std::string model = shortName(lineAt(ids, deviceAt));
    return {model.starts_with(maker) ? model : maker + ' ' + model, maker};
}

Section displays(const Source &source) {
    constexpr std::string_view displayClass = "0x03";
    Section section{"SPDisplaysDataType", {}};
    const std::string devices = source.root + "/sys/bus/pci/devices/";
    std::string ids;
    for (const std::string &name : namesIn(devices)) {
        const std::string device = devices + name;
        if (!readLine(device + "/class").starts_with(displayClass))
            continue;
        for (const char *path : {"/usr/share/misc/pci.ids", "/usr/share/hwdata/pci.ids"}) {
            if (ids.empty())
                ids = readAll(source.root + path);
        }
        const auto [model, vendor] =
            pciNames(ids, digitsOf(readLine(device + "/vendor")), digitsOf(readLine(device + "/device")));
        section.items.push_back(graphicsProcessor(model, vendor, device));
    }
    // Boards without PCI name only the driver.
    const std::string cards = source.root + "/sys/class/drm/";
    for (const std::string &card : namesIn(cards)) {
        const std::string device = cards + card + "/device";
        const std::string uevent = readAll(device + "/uevent");
        const size_t at = uevent.find("DRIVER=");
        if (!card.starts_with("card") || card.find('-') != std::string::npos || at == std::string::npos ||
            !readLine(device + "/vendor").empty())
            continue;
        section.items.push_back(graphicsProcessor(lineAt(uevent, at + 7), {}, device));
    }
    return section;
}

} // namespace tx::machine
