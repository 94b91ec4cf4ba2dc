// SPDX-License-Identifier: MIT
#include "installer/contents.h"

#include "posix/bundlecontents.h"
#include "posix/interrupted.h"

#include <fcntl.h>
#include <unistd.h>

namespace tx::installer {

bool replacesContents(const Arguments &arguments, const Context &context) {
    const std::string folder = posix::parentOf(arguments.hostBundle);
    if (faccessat(AT_FDCWD, folder.c_str(), W_OK, AT_EACCESS) == 0)
        return false;
    const std::string problem = posix::contentsProblem(arguments.hostBundle, arguments.newApplication);
    if (!problem.empty())
        context.log("the contents of the application cannot be replaced in their place: " + problem);
    return problem.empty();
}

std::string standingContents(const std::string &bundle) {
    const std::string contents = posix::contentsOf(bundle);
    if (isOwnBackup(wholePathFor(contents)))
        return wholePathFor(contents);
    if (!posix::entryExists(contents) && isOwnBackup(backupPathFor(contents)))
        return backupPathFor(contents);
    return bundle;
}

Arguments contentsArguments(const Arguments &arguments) {
    Arguments inside = arguments;
    inside.hostBundle = posix::contentsOf(arguments.hostBundle);
    inside.newApplication = posix::contentsOf(arguments.newApplication);
    return inside;
}

Context contentsContext(const Arguments &arguments, const Context &context) {
    Context inside = context;
    inside.open = [arguments, context](const std::string &, const Session &session) {
        // Its contents were moved away for the installation, and restored when that failed.
        if (!posix::entryExists(posix::contentsOf(arguments.newApplication))) {
            if (const posix::FileError error = context.files->removeTree(arguments.newApplication))
                context.log("cannot remove " + error.path);
        }
        return context.open(arguments.hostBundle, session);
    };
    return inside;
}

} // namespace tx::installer
