// SPDX-License-Identifier: MIT
#include "posix/bundleinfo.h"

#include "posix/plainpropertylist.h"

#include <fstream>
#include <sys/stat.h>

namespace tx {

namespace {

/// A file larger than the limit of property lists is returned one byte too long, so that reading it fails.
std::string readSmallFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::string content;
    char buffer[16384];
    while (file && content.size() <= plain::maximumDocument) {
        file.read(buffer, sizeof buffer);
        content.append(buffer, static_cast<size_t>(file.gcount()));
    }
    return content;
}

std::string stringMember(const plain::Value &dictionary, const char *key) {
    const plain::Value *value = dictionary.member(key);
    const std::string *text = value ? value->text() : nullptr;
    return text ? *text : std::string();
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
    const std::optional<plain::Value> root = plain::readPropertyList(data);
    if (!root || !std::holds_alternative<plain::Dictionary>(root->content))
        return false;
    info.identifier = stringMember(*root, "CFBundleIdentifier");
    info.executableName = stringMember(*root, "CFBundleExecutable");
    const std::string &name = info.executableName;
    info.executable.clear();
    if (!name.empty() && name.find('/') == std::string::npos) {
        for (const char *folder : {"/Linux/", "/MacOS/", "/bin/", "/"}) {
            if (isFile(contents + folder + name)) {
                info.executable = contents + folder + name;
                break;
            }
        }
    }
    return true;
}

} // namespace tx
