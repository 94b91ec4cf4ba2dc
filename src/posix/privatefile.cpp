// SPDX-License-Identifier: MIT
#include "posix/privatefile.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tx {

int PrivateFiles::create(int folder) {
    const int file = createWithoutName(folder);
    // What kernels and file systems answer that do not know such files.
    const bool isUnknown = errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL || errno == ENOENT;
    return file < 0 && isUnknown ? createAndUnlink(folder) : file;
}

int PrivateFiles::createWithoutName(int folder) {
    // O_EXCL: nor can it be given a name later.
    return openat(folder, ".", O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC, 0600);
}

int PrivateFiles::createAndUnlink(int folder) {
    uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != ssize_t(sizeof number)) {
        errno = EIO;
        return -1;
    }
    char name[40];
    std::snprintf(name, sizeof name, ".txupdate-%016llx", static_cast<unsigned long long>(number));
    const int file = openat(folder, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (file < 0)
        return -1;
    errno = 0;
    struct stat info {};
    const bool isPrivate =
        unlinkat(folder, name, 0) == 0 && fstat(file, &info) == 0 && info.st_nlink == 0 && info.st_size == 0;
    if (isPrivate)
        return file;
    const int error = errno != 0 ? errno : EIO;
    close(file);
    errno = error;
    return -1;
}

int PrivateFiles::reopenForReading(int file) {
    char path[40];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
    const int reader = open(path, O_RDONLY | O_CLOEXEC); // the link is the kernel's own
    if (reader < 0)
        return -1;
    // Nothing else may have been put where the kernel's files are expected.
    struct stat one {};
    struct stat other {};
    if (fstat(file, &one) == 0 && fstat(reader, &other) == 0 && one.st_dev == other.st_dev &&
        one.st_ino == other.st_ino)
        return reader;
    close(reader);
    errno = EIO;
    return -1;
}

ssize_t PrivateFiles::read(int file, void *buffer, size_t size) {
    ssize_t count = 0;
    do {
        count = ::read(file, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

ssize_t PrivateFiles::write(int file, const void *bytes, size_t size) {
    ssize_t count = 0;
    do {
        count = ::write(file, bytes, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

} // namespace tx
