// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tx::images {

/// A device of an image (the whole image or a partition), and its mount point.
struct Entity {
    std::string device;                   ///< such as /dev/loop0
    std::vector<std::string> mountPoints; ///< in the order of the mount table
};

/// The file of a loop device.
struct Image {
    std::string file;
    std::vector<Entity> entities; ///< the whole device first
};

/// All images that are attached, by the loop devices and the mount table below `root` ("" for this system's
/// own).
[[nodiscard]] std::vector<Image> attachedImages(const std::string &root);

/// The images as an XML property list, and for a person.
[[nodiscard]] std::string asPropertyList(const std::vector<Image> &images);
[[nodiscard]] std::string asText(const std::vector<Image> &images);

/// What detaching does to the system. Each returns an empty text, or why it failed.
struct Actions {
    std::function<std::string(const std::string &mountPoint)> unmount;
    std::function<std::string(const std::string &device)> release;

    /// With this process's rights, else through the desktop's udisksctl.
    static Actions ofThisSystem();
};

/// Unmounts everything of the image that has this mount point, device or file, and releases its device. An
/// empty text, or why not; what was unmounted by then stays so.
[[nodiscard]] std::string detach(const std::vector<Image> &images, const std::string &target,
                                 const Actions &actions);

} // namespace tx::images
