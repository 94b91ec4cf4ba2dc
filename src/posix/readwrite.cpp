// SPDX-License-Identifier: MIT
#include "posix/readwrite.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace tx::posix {

namespace {

/// Takes ownership of the descriptor.
int read(int folder, std::vector<std::string> &names) {
    DIR *stream = folder >= 0 ? fdopendir(folder) : nullptr;
    if (!stream) {
        const int number = errno;
        if (folder >= 0)
            close(folder);
        return number;
    }
    errno = 0;
    while (const dirent *entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    const int number = errno;
    closedir(stream);
    return number;
}

constexpr int reading = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

} // namespace

size_t writeAll(int fd, const void *data, size_t size) {
    size_t written = 0;
    while (written < size) {
        const ssize_t n = ::write(fd, static_cast<const char *>(data) + written, size - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n == 0)
            errno = EIO; // a write of 0 bytes does not set errno
        if (n <= 0)
            break;
        written += static_cast<size_t>(n);
    }
    return written;
}

// Opens the folder again, so that the position of the caller's descriptor does not change.
int namesIn(int folder, std::vector<std::string> &names) { return read(openat(folder, ".", reading), names); }

int namesIn(const std::string &path, std::vector<std::string> &names) {
    return read(open(path.c_str(), reading), names);
}

} // namespace tx::posix
