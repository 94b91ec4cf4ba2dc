// SPDX-License-Identifier: MIT
// TXUpdateUnpacker TYPE DIR: unpacks the archive on standard input into DIR, with lowered rights. The
// framework gives it the open archive; ditto and tar, which are for people and scripts, become this program.

#include "archive/extraction.h"
#include "archive/lowerrights.h"
#include "archive/unpack.h"

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/prctl.h>

namespace {

using tx::tools::ArchiveType;
using tx::tools::fail;

int usage() {
    std::fputs("usage: TXUpdateUnpacker [--end-with-caller] zip|tar|tgz|tbz|tzst DIR\n"
               "Unpacks the archive on standard input into DIR. An archive that is damaged, would leave DIR "
               "or takes\n"
               "more than TXUPDATE_UNARCHIVER_LIMIT bytes leaves nothing there. The program reads the "
               "archive after\n"
               "it has lowered its rights: it can then open files only in DIR, if the kernel has Landlock.\n"
               "--end-with-caller  end when the thread that started the program ends\n"
               "Exit status: 0 unpacked, 1 not, 64 misuse, 74 the archive cannot be read.\n",
               stderr);
    return 64;
}

std::optional<ArchiveType> typeNamed(std::string_view name) {
    constexpr std::pair<std::string_view, ArchiveType> types[] = {{"zip", ArchiveType::Zip},
                                                                  {"tar", ArchiveType::Tar},
                                                                  {"tgz", ArchiveType::TarGzip},
                                                                  {"tbz", ArchiveType::TarBzip2},
                                                                  {"tzst", ArchiveType::TarZstd}};
    for (const auto &[known, type] : types) {
        if (name == known)
            return type;
    }
    return std::nullopt;
}

int run(ArchiveType type, const char *place) {
    // Messages name the command that does the same.
    const char *tool = type == ArchiveType::Zip ? "ditto" : "tar";
    // Both read files outside of the folder. Names in zip archives are UTF-8, whatever the caller's locale
    // is; the library normalizes them. Their times are in the local time zone.
    if (type == ArchiveType::Zip)
        std::setlocale(LC_CTYPE, "C.UTF-8");
    tzset();
    const std::unique_ptr<char, decltype(&std::free)> folder(realpath(place, nullptr), &std::free);
    if (!folder)
        return fail(tool, place, std::strerror(errno));
    const auto limit = static_cast<uint64_t>(tx::tools::unpackedLimit());
    if (const std::string problem = tx::tools::lowerRights(folder.get(), limit); !problem.empty())
        return fail(tool, "cannot lower its rights", problem.c_str());
    try {
        return tx::tools::unpack(type, folder.get(), tool);
    } catch (const std::exception &error) { // out of memory
        return fail(tool, "the archive cannot be unpacked", error.what());
    }
}

} // namespace

int main(int argc, char **argv) {
    const bool endsWithCaller = argc == 4 && std::strcmp(argv[1], "--end-with-caller") == 0;
    const std::optional<ArchiveType> type =
        argc == 3 || endsWithCaller ? typeNamed(argv[argc - 2]) : std::nullopt;
    if (!type)
        return usage();
    // The end of a caller that gives a file cannot be noticed while the file is read. Nobody would use what
    // is unpacked, and the folder would stay locked.
    if (endsWithCaller && prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) != 0)
        return fail("TXUpdateUnpacker", "cannot end with its caller", std::strerror(errno));
    // Leaves without the checks of a sanitizer at the end, for which the process has no right.
    std::_Exit(run(*type, argv[argc - 1]));
}
