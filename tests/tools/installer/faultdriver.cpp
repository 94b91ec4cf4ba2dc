// SPDX-License-Identifier: MIT
// installer_fault_driver MODE CALL ARGUMENTS...: the installer on a file system that, at the CALLth change
// (from 1), MODE: "fail" fails it, "kill-before" and "kill-after" end the process by SIGKILL, "half" copies
// half and then kills. "noexchange:" before the mode takes the atomic exchange away, "cross:" makes renaming
// into place impossible, "layered:" renaming the installed application, as on an overlay. Prints each change
// to standard output; the application is not opened but named.

#include "installer/installer.h"

#include "posix/openbundle.h"
#include "tests/tools/installer/stepfiles.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <unistd.h>

namespace {

class FaultFiles final : public tx::test::StepFiles {
public:
    FaultFiles(std::string mode, int call)
        : m_mode(std::move(mode))
        , m_call(call) {
        m_exchanges = !take("noexchange:");
        m_crosses = take("cross:");
        m_layered = take("layered:");
    }

private:
    bool take(const std::string &prefix) {
        if (m_mode.rfind(prefix, 0) != 0)
            return false;
        m_mode.erase(0, prefix.size());
        return true;
    }

    FileError step(const Step &step, const std::function<FileError()> &work) override {
        const bool isNow = ++m_done == m_call;
        if (isNow && m_mode == "half")
            endHalfWay(step);
        std::printf("%d %s %s\n", m_done, step.name.c_str(), step.place.c_str());
        std::fflush(stdout);
        if (isNow && m_mode == "fail")
            return {EIO, step.place};
        if (isNow && m_mode == "kill-before")
            raise(SIGKILL);
        const int number = whatTheFileSystemLacks(step);
        const FileError error = number != 0 ? FileError{number, step.place} : work();
        if (isNow && m_mode == "kill-after")
            raise(SIGKILL);
        return error;
    }

    static void endHalfWay(const Step &step) {
        if (step.name == "copy")
            std::filesystem::create_directories(step.place + "/Contents");
        if (step.name == "remove") {
            std::filesystem::remove_all(step.place + "/Contents/Linux");
            std::filesystem::remove_all(step.place + "/Linux"); // of what is a bundle's contents
        }
        if (step.name == "copy" || step.name == "remove")
            raise(SIGKILL);
    }

    [[nodiscard]] int whatTheFileSystemLacks(const Step &step) const {
        const bool isStaging = step.place.find(".txupdate-new") != std::string::npos;
        const bool isLeaving =
            step.from.find("/.") == std::string::npos && step.place.find("/.") != std::string::npos;
        if (step.name == "exchange")
            return m_layered ? EXDEV : m_exchanges ? 0 : EINVAL;
        if (step.name == "rename" && ((m_crosses && isStaging) || (m_layered && isLeaving && !isStaging)))
            return EXDEV;
        return 0;
    }

    std::string m_mode;
    int m_call;
    int m_done = 0;
    bool m_exchanges = true;
    bool m_crosses = false;
    bool m_layered = false;
};

} // namespace

int main(int argc, char **argv) {
    using namespace tx::installer;
    if (argc < 3)
        return 64;
    Arguments arguments;
    std::string why;
    if (!readArguments(std::vector<std::string>(argv + 3, argv + argc), arguments, why)) {
        std::fprintf(stderr, "%s\n", why.c_str());
        return StatusUsage;
    }
    FaultFiles files(argv[1], std::atoi(argv[2]));
    Context context{.files = &files};
    context.hostLimit = std::chrono::milliseconds(300);
    if (!identifyUser(arguments, context.session, why)) {
        std::fprintf(stderr, "%s\n", why.c_str());
        return StatusUsage;
    }
    context.log = [](const std::string &line) { std::fprintf(stderr, "%s\n", line.c_str()); };
    context.open = [](const std::string &bundle, const Session &) {
        std::printf("opened %s\n", bundle.c_str());
        return std::string();
    };
    return install(arguments, context);
}
