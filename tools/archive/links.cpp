// SPDX-License-Identifier: MIT
#include "archive/links.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tx::tools {

namespace {

using Parts = std::vector<std::string>;

/// The number of links that the system follows in one path.
constexpr int mostLinks = 40;

/// The components of a path, without empty ones and those that name the folder itself.
Parts partsOf(const std::string &path) {
    Parts parts;
    for (size_t start = 0; start < path.size();) {
        const size_t end = std::min(path.find('/', start), path.size());
        const std::string part = path.substr(start, end - start);
        if (!part.empty() && part != ".")
            parts.push_back(part);
        start = end + 1;
    }
    return parts;
}

std::string joined(const Parts &parts) {
    std::string path;
    for (const std::string &part : parts)
        path += (path.empty() ? "" : "/") + part;
    return path;
}

/// The target of a link, or an errno value; EINVAL for what is not a link.
int readTarget(const std::string &path, std::string &target) {
    std::vector<char> text(PATH_MAX);
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    if (length < 0)
        return errno;
    target.assign(text.data(), static_cast<size_t>(length));
    return 0;
}

} // namespace

std::string reasonAgainstLink(const std::string &name, const std::string &target) {
    Parts way = partsOf(name);
    if (way.empty())
        return "is a link without a name";
    const size_t top = way.size() > 1 ? 1 : 0;
    way.pop_back();
    // What is still to be followed, the next part last.
    Parts rest;
    const auto follow = [&rest](const std::string &path) {
        const Parts parts = partsOf(path);
        rest.insert(rest.end(), parts.rbegin(), parts.rend());
    };
    if (target.empty())
        return "is a link that leads nowhere";
    if (target.front() == '/')
        return "is a link to an absolute path, " + target;
    follow(target);
    for (int links = 0; !rest.empty();) {
        const std::string part = rest.back();
        rest.pop_back();
        if (part == "..") {
            if (way.size() <= top)
                return "is a link that leads out of its folder, to " + target;
            way.pop_back();
            continue;
        }
        way.push_back(part);
        std::string next;
        const int number = readTarget(joined(way), next);
        if (number == EINVAL || number == ENOENT || number == ENOTDIR)
            continue;
        if (number != 0)
            return std::string("is a link that cannot be followed: ") + std::strerror(number);
        if (++links > mostLinks)
            return "is a link that leads through too many others";
        if (next.empty() || next.front() == '/')
            return "is a link that leads through one to an absolute path, " + next;
        way.pop_back();
        follow(next);
    }
    return {};
}

std::string reasonAgainstLink(const std::string &name) {
    std::string target;
    const int number = readTarget(name, target);
    return number == 0 ? reasonAgainstLink(name, target)
                       : std::string("is a link that cannot be read: ") + std::strerror(number);
}

std::string reasonAgainstHardLink(const std::string &target) {
    const Parts parts = partsOf(target);
    Parts way;
    for (const std::string &part : parts) {
        way.push_back(part);
        struct stat info {};
        if (lstat(joined(way).c_str(), &info) != 0)
            return "is a second name of " + target + ": " + std::strerror(errno);
        if (way.size() < parts.size() ? !S_ISDIR(info.st_mode) : !S_ISREG(info.st_mode))
            return "is a second name of " + target + ", which is not a file of the archive";
    }
    return parts.empty() ? "is a second name of nothing" : std::string();
}

} // namespace tx::tools
