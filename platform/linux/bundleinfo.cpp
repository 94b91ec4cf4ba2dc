// SPDX-License-Identifier: MIT
#include "platform/linux/bundleinfo.h"

#include <plist/plist.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sys/stat.h>

namespace tx {

namespace {

constexpr size_t maximumInfoSize = 4 << 20;

std::string readSmallFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::string content;
    char buffer[16384];
    while (file && content.size() < maximumInfoSize) {
        file.read(buffer, sizeof buffer);
        content.append(buffer, static_cast<size_t>(file.gcount()));
    }
    return content;
}

std::string stringMember(plist_t dictionary, const char *key) {
    plist_t node = plist_dict_get_item(dictionary, key);
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return {};
    char *value = nullptr;
    plist_get_string_val(node, &value);
    std::string text = value ? value : "";
    std::free(value);
    return text;
}

bool isFile(const std::string &path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

} // namespace

bool readBundleInfo(const std::string &bundlePath, BundleInfo &info) {
    std::string contents = bundlePath + "/Contents";
    if (!isFile(contents + "/Info.plist"))
        contents = bundlePath;
    const std::string data = readSmallFile(contents + "/Info.plist");
    plist_t root = nullptr;
    if (!data.empty())
        plist_from_memory(data.data(), static_cast<uint32_t>(data.size()), &root);
    if (!root)
        return false;
    const std::unique_ptr<void, decltype(&plist_free)> owner(root, &plist_free);
    if (plist_get_node_type(root) != PLIST_DICT)
        return false;
    info.identifier = stringMember(root, "CFBundleIdentifier");
    const std::string name = stringMember(root, "CFBundleExecutable");
    info.executable.clear();
    if (!name.empty() && name.find('/') == std::string::npos) {
        for (const char *folder : {"/Linux/", "/MacOS/", "/"}) {
            if (isFile(contents + folder + name)) {
                info.executable = contents + folder + name;
                break;
            }
        }
    }
    return true;
}

} // namespace tx
