// SPDX-License-Identifier: MIT
// installer_fault_driver MODE CALL ARGUMENTS...: the installer on a file system that, at the CALLth change
// (from 1), MODE: "fail" fails it, "kill-before" and "kill-after" end the process by SIGKILL, "half" copies
// half and then kills. "noexchange:" before the mode takes the atomic exchange away, "cross:" makes renaming
// into place impossible, "layered:" renaming the installed application, as on an overlay. Prints each change
// to standard output; the application is not opened but named.

#include "installer/installer.h"

#include "platform/linux/openbundle.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace {

using tx::posix::FileError;

class FaultFiles final : public tx::installer::Files {
public:
    FaultFiles(std::string mode, int call)
        : m_mode(std::move(mode))
        , m_call(call) {
        m_exchanges = !take("noexchange:");
        m_crosses = take("cross:");
        m_layered = take("layered:");
    }

    FileError rename(const std::string &from, const std::string &to) override {
        return at("rename", from, [&] {
            if (m_layered && from.find("/.") == std::string::npos && to.find("/.") != std::string::npos &&
                to.find(".txupdate-new") == std::string::npos)
                return FileError{EXDEV, from};
            const bool staging = to.find(".txupdate-new") != std::string::npos;
            return m_crosses && staging ? FileError{EXDEV, from} : Files::rename(from, to);
        });
    }
    FileError exchange(const std::string &a, const std::string &b) override {
        return at("exchange", b, [&] {
            return m_layered     ? FileError{EXDEV, b}
                   : m_exchanges ? Files::exchange(a, b)
                                 : FileError{EINVAL, b};
        });
    }
    FileError copyTree(const std::string &from, const std::string &to,
                       const tx::posix::CopyRules &rules) override {
        if (m_mode == "half" && m_done + 1 == m_call) {
            std::filesystem::create_directories(to + "/Contents");
            raise(SIGKILL);
        }
        return at("copy", to, [&] { return Files::copyTree(from, to, rules); });
    }
    FileError makeDirectory(const std::string &path) override {
        return at("make", path, [&] { return Files::makeDirectory(path); });
    }
    FileError removeTree(const std::string &path) override {
        if (m_mode == "half" && m_done + 1 == m_call) {
            std::filesystem::remove_all(path + "/Contents/Linux");
            std::filesystem::remove_all(path + "/Linux"); // of what is a bundle's contents
            raise(SIGKILL);
        }
        return at("remove", path, [&] { return Files::removeTree(path); });
    }
    FileError removeFile(const std::string &path) override {
        return at("removeFile", path, [&] { return Files::removeFile(path); });
    }
    FileError changeOwner(const std::string &path, uid_t owner, gid_t group) override {
        return at("owner", path, [&] { return Files::changeOwner(path, owner, group); });
    }
    FileError limitSpecialBits(const std::string &tree, const std::string &installed) override {
        return at("bits", tree, [&] { return Files::limitSpecialBits(tree, installed); });
    }
    FileError lock(const std::string &path, tx::posix::Descriptor &lock) override {
        return at("lock", path, [&] { return Files::lock(path, lock); });
    }
    FileError syncFileSystem(const std::string &path) override {
        return at("sync", path, [&] { return Files::syncFileSystem(path); });
    }
    FileError syncDirectory(const std::string &path) override {
        return at("syncDirectory", path, [&] { return Files::syncDirectory(path); });
    }

private:
    bool take(const std::string &prefix) {
        if (m_mode.rfind(prefix, 0) != 0)
            return false;
        m_mode.erase(0, prefix.size());
        return true;
    }

    template <typename Work>
    FileError at(const char *name, const std::string &path, const Work &work) {
        ++m_done;
        std::printf("%d %s %s\n", m_done, name, path.c_str());
        std::fflush(stdout);
        if (m_done == m_call) {
            if (m_mode == "fail")
                return {EIO, path};
            if (m_mode == "kill-before")
                raise(SIGKILL);
        }
        const FileError error = work();
        if (m_done == m_call && m_mode == "kill-after")
            raise(SIGKILL);
        return error;
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
