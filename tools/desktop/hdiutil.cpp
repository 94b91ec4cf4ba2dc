// SPDX-License-Identifier: MIT
// hdiutil info [-plist] | detach TARGET: the disk images that are attached as loop devices.

#include "desktop/diskimages.h"

#include <cstdio>
#include <string>

namespace {

int usage() {
    std::fputs(
        "usage: hdiutil info [-plist]\n"
        "       hdiutil detach MOUNT-POINT|DEVICE|IMAGE\n"
        "Lists the disk images that are attached, with their devices and mount points, or detaches one.\n"
        "Exit status: 0 done, 1 failed, 64 misuse.\n",
        stderr);
    return 64;
}

} // namespace

int main(int argc, char **argv) {
    using namespace tx::images;
    const std::string command = argc > 1 ? argv[1] : "";
    const std::string argument = argc > 2 ? argv[2] : "";
    const std::vector<Image> images = attachedImages("");
    if (command == "info" && (argc == 2 || (argc == 3 && argument == "-plist"))) {
        const std::string text = argc == 3 ? asPropertyList(images) : asText(images);
        const bool written =
            std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
        if (!written)
            std::perror("hdiutil");
        return written ? 0 : 1;
    }
    if (command != "detach" || argc != 3)
        return usage();
    const std::string why = detach(images, argument, Actions::ofThisSystem());
    if (why.empty())
        return 0;
    std::fprintf(stderr, "hdiutil: %s\n", why.c_str());
    return 1;
}
