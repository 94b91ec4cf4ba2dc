// SPDX-License-Identifier: MIT
#include "desktop/diskimages.h"

#include "posix/plainpropertylist.h"
#include "posix/systemfiles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/loop.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tx::images {

namespace {

/// A mount table writes blanks and the like as \040.
std::string unescaped(const std::string &text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isEscape =
            text[i] == '\\' && i + 3 < text.size() && text.find_first_not_of("01234567", i + 1) >= i + 4;
        if (isEscape) {
            result +=
                static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
            i += 3;
        } else {
            result += text[i];
        }
    }
    return result;
}

/// The mount points of the device with these numbers, "7:0".
std::vector<std::string> mountPointsOf(const std::string &mountTable, const std::string &numbers) {
    std::vector<std::string> result;
    std::istringstream lines(mountTable);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string id;
        std::string parent;
        std::string device;
        std::string root;
        std::string point;
        if (words >> id >> parent >> device >> root >> point && device == numbers)
            result.push_back(unescaped(point));
    }
    return result;
}

/// Runs a program and discards its output; true if it succeeded.
bool run(std::vector<std::string> words) {
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int null = open("/dev/null", O_RDWR);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

plain::Value valueOf(const Image &image) {
    plain::Array entities;
    for (const Entity &entity : image.entities) {
        // A device that is mounted twice is listed twice.
        for (size_t i = 0; i < std::max<size_t>(entity.mountPoints.size(), 1); ++i) {
            plain::Dictionary entry{{"dev-entry", {entity.device}}};
            if (i < entity.mountPoints.size())
                entry.push_back({"mount-point", {entity.mountPoints[i]}});
            entities.push_back({entry});
        }
    }
    return {plain::Dictionary{{"image-path", {image.file}}, {"system-entities", {entities}}}};
}

} // namespace

std::vector<Image> attachedImages(const std::string &root) {
    std::vector<Image> images;
    const std::string blocks = root + "/sys/block/";
    const std::string mountTable = machine::readAll(root + "/proc/self/mountinfo");
    for (const std::string &name : machine::namesIn(blocks)) {
        std::string file = machine::readAll(blocks + name + "/loop/backing_file");
        if (file.ends_with('\n'))
            file.pop_back();
        if (!name.starts_with("loop") || file.empty())
            continue;
        Image image{file, {}};
        const auto add = [&](const std::string &device, const std::string &folder) {
            image.entities.push_back(
                {"/dev/" + device, mountPointsOf(mountTable, machine::readLine(folder + "/dev"))});
        };
        add(name, blocks + name);
        for (const std::string &part : machine::namesIn(blocks + name)) {
            if (part.starts_with(name + "p"))
                add(part, blocks + name + '/' + part);
        }
        images.push_back(std::move(image));
    }
    return images;
}

std::string asPropertyList(const std::vector<Image> &images) {
    plain::Array list;
    for (const Image &image : images)
        list.push_back(valueOf(image));
    return plain::writePropertyList({plain::Dictionary{{"images", {list}}}});
}

std::string asText(const std::vector<Image> &images) {
    std::string text;
    for (const Image &image : images) {
        text += image.file + '\n';
        for (const Entity &entity : image.entities) {
            text += "    " + entity.device;
            for (const std::string &point : entity.mountPoints)
                text += "    " + point;
            text += '\n';
        }
    }
    return text;
}

Actions Actions::ofThisSystem() {
    Actions actions;
    actions.unmount = [](const std::string &mountPoint) -> std::string {
        if (umount2(mountPoint.c_str(), UMOUNT_NOFOLLOW) == 0)
            return {};
        const int number = errno;
        // What the desktop mounted for this user, the desktop unmounts.
        if (number == EPERM && run({"umount", mountPoint}))
            return {};
        return "cannot unmount " + mountPoint + ": " + std::strerror(number);
    };
    actions.release = [](const std::string &device) -> std::string {
        const int loop = open(device.c_str(), O_RDONLY | O_CLOEXEC);
        const int number = loop < 0 || ioctl(loop, LOOP_CLR_FD, 0) != 0 ? errno : 0;
        if (loop >= 0)
            close(loop);
        // A device set to detach with its last mount has already detached.
        if (number == 0 || number == ENXIO || run({"udisksctl", "loop-delete", "-b", device}))
            return {};
        return "cannot release " + device + ": " + std::strerror(number);
    };
    return actions;
}

std::string detach(const std::vector<Image> &images, const std::string &target, const Actions &actions) {
    const auto isTarget = [&](const Image &image) {
        return image.file == target || std::ranges::any_of(image.entities, [&](const Entity &entity) {
                   return entity.device == target ||
                          std::ranges::find(entity.mountPoints, target) != entity.mountPoints.end();
               });
    };
    const auto image = std::ranges::find_if(images, isTarget);
    if (image == images.end())
        return target + ": no disk image is attached there";
    for (const Entity &entity : image->entities) {
        // The last mount is on top.
        for (auto point = entity.mountPoints.rbegin(); point != entity.mountPoints.rend(); ++point) {
            if (std::string why = actions.unmount(*point); !why.empty())
                return why;
        }
    }
    return actions.release(image->entities.front().device);
}

} // namespace tx::images
