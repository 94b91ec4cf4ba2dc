// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// The hardware and the displays of a machine, read from the system's files. Reading them blocks. Thread:
/// any. None of these functions uses an object that is destroyed when the process ends, or depends on the
/// locale.
namespace tx::machine {

/// One described thing: a disk, a processor, a screen.
struct Item {
    using Value = std::variant<std::string, uint64_t, std::vector<Item>>;
    std::vector<std::pair<std::string, Value>> members;

    /// An empty text is left out.
    void add(const std::string &key, const std::string &text);
    void add(const std::string &key, uint64_t number) { members.emplace_back(key, number); }
    void add(const std::string &key, std::vector<Item> items);
};

/// All items of one data type.
struct Section {
    std::string dataType;
    std::vector<Item> items;
};

/// The source of the facts. `root` is put before every path; it is empty for the running system.
/// `architecture` is the machine's as in uname. Nothing that identifies a machine or person is read: no
/// serial numbers, no identifiers, no names.
struct Source {
    std::string root;
    std::string architecture;

    /// The machine that this runs on.
    static Source thisMachine();
};

[[nodiscard]] Section hardware(const Source &source);
[[nodiscard]] Section displays(const Source &source);
/// Both, in this order.
[[nodiscard]] std::vector<Section> sections(const Source &source);

/// The model and maker of a PCI device by the text of a pci.ids; the numbers themselves when it has no such
/// entry. Both are four lower-case hexadecimal digits.
[[nodiscard]] std::pair<std::string, std::string> pciNames(std::string_view ids, const std::string &vendor,
                                                           const std::string &device);

} // namespace tx::machine
