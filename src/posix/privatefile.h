// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <sys/types.h>

namespace tx {

/// Files that have no name, so that no other process can open them: for a copy that must not change while it
/// is used. Uses no Qt, because the statically linked tools need it. Tests replace this class to make a step
/// fail. Thread: any. Errors: -1 and errno.
class PrivateFiles {
public:
    virtual ~PrivateFiles() = default;

    /// A new, empty file without a name, on the file system of the open folder `folder`, mode 0600. The
    /// descriptor reads and writes and is closed by exec.
    virtual int create(int folder);
    /// The two ways to that: in one step, where the file system can do it, or with a name that nobody can
    /// guess and that is removed at once.
    virtual int createWithoutName(int folder);
    virtual int createAndUnlink(int folder);
    /// A second descriptor of the file of `file`, which can only read and begins at its first byte.
    virtual int reopenForReading(int file);
    /// As the system's calls; a call that a signal interrupted is made again.
    virtual ssize_t read(int file, void *buffer, size_t size);
    virtual ssize_t write(int file, const void *bytes, size_t size);
};

} // namespace tx
