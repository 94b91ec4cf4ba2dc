// SPDX-License-Identifier: MIT
// The installer tool (tools/installer/main.cpp) on a file system that follows a fault plan. The plan is a
// file beside its Info.plist, because the environment is almost empty.

#include "installer/hostanswer.h"
#include "installer/installer.h"
#include "posix/openbundle.h"
#include "tests/survival/faultplan.h"
#include "tests/tools/installer/stepfiles.h"

#include <climits>
#include <cstdio>
#include <unistd.h>

namespace {

class PlannedFiles final : public tx::test::StepFiles {
public:
    explicit PlannedFiles(tx::test::FaultPlan &plan)
        : m_plan(plan) {}

private:
    FileError step(const Step &step, const std::function<FileError()> &work) override {
        const int number = m_plan.at("installer " + step.name + ' ' + tx::posix::lastComponentOf(step.place));
        return number != 0 ? FileError{number, step.place} : work();
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
