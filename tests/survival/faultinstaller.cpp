// SPDX-License-Identifier: MIT
// The installer tool, as installer/main.cpp has it, on a file system that follows a fault plan: the file
// beside its Info.plist, as there is next to no environment.

#include "installer/hostanswer.h"
#include "installer/installer.h"
#include "platform/linux/openbundle.h"
#include "tests/survival/faultplan.h"

#include <climits>
#include <cstdio>
#include <unistd.h>

namespace {

using tx::posix::FileError;

class PlannedFiles final : public tx::installer::Files {
public:
    explicit PlannedFiles(tx::test::FaultPlan &plan)
        : m_plan(plan) {}
    FileError rename(const std::string &from, const std::string &to) override {
        return at("installer rename", to, [&] { return Files::rename(from, to); });
    }
    FileError exchange(const std::string &a, const std::string &b) override {
        return at("installer exchange", b, [&] { return Files::exchange(a, b); });
    }
    FileError copyTree(const std::string &from, const std::string &to,
                       const tx::posix::CopyRules &rules) override {
        return at("installer copy", to, [&] { return Files::copyTree(from, to, rules); });
    }
    FileError makeDirectory(const std::string &path) override {
        return at("installer make", path, [&] { return Files::makeDirectory(path); });
    }
    FileError removeTree(const std::string &path) override {
        return at("installer remove", path, [&] { return Files::removeTree(path); });
    }
    FileError removeFile(const std::string &path) override {
        return at("installer remove file", path, [&] { return Files::removeFile(path); });
    }
    FileError changeOwner(const std::string &path, uid_t owner, gid_t group) override {
        return at("installer owner", path, [&] { return Files::changeOwner(path, owner, group); });
    }
    FileError limitSpecialBits(const std::string &tree, const std::string &installed) override {
        return at("installer bits", tree, [&] { return Files::limitSpecialBits(tree, installed); });
    }
    FileError lock(const std::string &path, tx::posix::Descriptor &lock) override {
        return at("installer lock", path, [&] { return Files::lock(path, lock); });
    }
    FileError syncFileSystem(const std::string &path) override {
        return at("installer sync", path, [&] { return Files::syncFileSystem(path); });
    }
    FileError syncDirectory(const std::string &path) override {
        return at("installer sync folder", path, [&] { return Files::syncDirectory(path); });
    }

private:
    template <typename Work>
    FileError at(const std::string &what, const std::string &path, const Work &work) {
        if (const int number = m_plan.at(what + ' ' + tx::posix::lastComponentOf(path)))
            return {number, path};
        return work();
    }

    tx::test::FaultPlan &m_plan;
};

} // namespace

int main(int argc, char **argv) {
    using namespace tx::installer;
    char own[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", own, sizeof own);
    const std::string contents = tx::posix::parentOf(
        tx::posix::parentOf(std::string(own, static_cast<size_t>(std::max<ssize_t>(length, 0)))));
    char planPath[PATH_MAX] = {};
    (void)!readlink((contents + "/plan").c_str(), planPath, sizeof planPath - 1);
    tx::test::FaultPlan plan(planPath);
    const std::string logPath = std::string(planPath) + ".log";
    HostAnswer answer;
    const auto log = [&](const std::string &line) {
        answer.note(line);
        std::ofstream(logPath, std::ios::app) << line << '\n';
    };
    if (plan.at("installer start") != 0) {
        log("the installer could not start");
        answer.refuse();
        return 1;
    }
    PlannedFiles files(plan);
    Context context{.files = &files};
    context.toolBundle = tx::posix::parentOf(contents);
    const std::string folder = tx::posix::parentOf(context.toolBundle);
    context.environmentRecord = folder + "/TXUpdateInstaller.environment";
    Arguments arguments;
    std::string why;
    const int prepared = prepare(std::vector<std::string>(argv + 1, argv + argc), context.environmentRecord,
                                 *context.rights, arguments, context.session, why);
    if (prepared != StatusDone) {
        log(why);
        answer.refuse();
        return prepared;
    }
    context.log = log;
    context.open = [&plan](const std::string &application, const Session &session) -> std::string {
        if (plan.at("installer open") != 0)
            return "the application could not be opened";
        tx::OpenOptions options;
        options.environment = session.environment;
        return tx::openBundle(application, options).error;
    };
    context.ready = [&answer] { return answer.ready(); };
    const int status = install(arguments, context);
    answer.refuse();
    return status;
}
