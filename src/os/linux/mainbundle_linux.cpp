// SPDX-License-Identifier: MIT
#include "os/mainbundle.h"

#include <QFile>

#include <climits>
#include <unistd.h>

namespace tx {

namespace {

/// Kept as plain bytes so that loading the framework costs one system call and no Qt objects.
struct StartPath {
    char text[PATH_MAX] = {};
    StartPath() {
        const ssize_t length = readlink("/proc/self/exe", text, sizeof text - 1);
        text[length > 0 ? length : 0] = '\0';
    }
};

const StartPath startPath;

} // namespace

QString executablePathAtStart() { return QFile::decodeName(startPath.text); }

} // namespace tx
