// SPDX-License-Identifier: MIT
#include "posix/handover.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace tx {

namespace {

const std::string prefix = "TXUPDATE_RELAUNCH_";
const std::string folderName = prefix + "FOLDER";
const std::string countName = prefix + "ARGUMENTS";

std::string argumentName(size_t index) { return prefix + "ARGUMENT_" + std::to_string(index); }

/// The value of a variable; empty if it is not set.
std::string valueOf(const std::string &name) {
    const char *value = std::getenv(name.c_str());
    return value ? value : "";
}

/// Removes all variables of a handover, also those that do not belong to a complete one.
void removeVariables() {
    std::vector<std::string> names;
    for (char **variable = environ; variable && *variable; ++variable) {
        if (std::strncmp(*variable, prefix.c_str(), prefix.size()) == 0)
            names.push_back(std::string(*variable).substr(0, std::string(*variable).find('=')));
    }
    for (const std::string &name : names)
        unsetenv(name.c_str());
}

} // namespace

std::string problemOf(const Handover &handover) {
    if (handover.arguments.size() > mostHandoverArguments)
        return "there are " + std::to_string(handover.arguments.size()) + " arguments, " +
               std::to_string(mostHandoverArguments) + " are allowed";
    size_t size = 0;
    for (size_t i = 0; i < handover.arguments.size(); ++i) {
        if (handover.arguments[i].find('\0') != std::string::npos)
            return "argument " + std::to_string(i + 1) + " contains a NUL character";
        size += handover.arguments[i].size() + 1;
    }
    if (size > longestHandover)
        return "the arguments have " + std::to_string(size) + " bytes, " + std::to_string(longestHandover) +
               " are allowed";
    if (handover.folder.empty())
        return {};
    if (handover.folder.front() != '/')
        return "the working folder is not an absolute path";
    if (handover.folder.find('\0') != std::string::npos || handover.folder.size() >= longestHandover)
        return "the working folder is not a path";
    return {};
}

std::string packed(const Handover &handover) {
    std::string bytes = handover.folder + '\0';
    for (const std::string &argument : handover.arguments)
        bytes += argument + '\0';
    return bytes;
}

bool unpack(const std::string &bytes, Handover &handover) {
    handover = {};
    if (bytes.empty() || bytes.back() != '\0' || bytes.size() > 2 * longestHandover)
        return false;
    Handover read;
    read.folder = bytes.c_str();
    for (size_t start = read.folder.size() + 1; start < bytes.size();) {
        const size_t end = bytes.find('\0', start);
        read.arguments.push_back(bytes.substr(start, end - start));
        start = end + 1;
    }
    if (!problemOf(read).empty())
        return false;
    handover = read;
    return true;
}

std::vector<std::string> variablesOf(const Handover &handover) {
    std::vector<std::string> result;
    if (!handover.folder.empty())
        result.push_back(folderName + '=' + handover.folder);
    if (handover.arguments.empty())
        return result;
    result.push_back(countName + '=' + std::to_string(handover.arguments.size()));
    for (size_t i = 0; i < handover.arguments.size(); ++i)
        result.push_back(argumentName(i) + '=' + handover.arguments[i]);
    return result;
}

Handover takeHandover() {
    Handover handover;
    handover.folder = valueOf(folderName);
    const unsigned long count = std::strtoul(valueOf(countName).c_str(), nullptr, 10);
    bool isComplete = count <= mostHandoverArguments;
    for (size_t i = 0; isComplete && i < count; ++i) {
        isComplete = std::getenv(argumentName(i).c_str()) != nullptr;
        handover.arguments.push_back(valueOf(argumentName(i)));
    }
    removeVariables();
    return isComplete && problemOf(handover).empty() ? handover : Handover();
}

} // namespace tx
