// SPDX-License-Identifier: MIT
#include "installer/jobs.h"

#include "installer/applicationmove.h"
#include "installer/jobs_p.h"
#include "installer/signedinstall.h"
#include "posix/rootspath.h"
#include "posix/updatefoldernames.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/stat.h>

namespace tx::installer {

std::string openTrusted(const std::string &path, const JobContext &context, posix::Descriptor &entry) {
    return context.asRoot ? posix::openRootsOwn(path, entry) : posix::openWithoutLinks(path, entry);
}

std::string problemOf(const std::string &path, mode_t type, const JobContext &context) {
    posix::Descriptor entry;
    if (std::string problem = posix::openWithoutLinks(path, entry); !problem.empty())
        return problem;
    struct stat info {};
    if (fstat(entry.get(), &info) != 0)
        return path + ": " + std::strerror(errno);
    if ((info.st_mode & S_IFMT) != type)
        return path + (type == S_IFDIR ? " is not a folder" : " is not a file");
    if (info.st_uid != context.askingUser && info.st_uid != 0)
        return path + " belongs to another user";
    return {};
}

bool isProcess(const std::string &word) {
    if (word.empty() || word.size() > 10 || word.front() == '0' ||
        word.find_first_not_of("0123456789") != std::string::npos)
        return false;
    const unsigned long long number = std::stoull(word);
    return number > 1 && number <= INT_MAX;
}

int refuse(const JobContext &context, const std::string &why) {
    context.log("refused: " + why);
    return JobRefused;
}

std::string packageProblem(const std::string &application, const JobContext &context) {
    const auto askRpm = [&](const std::vector<std::string> &arguments, std::string &output) {
        // With root's rights as well: a program of the user could give any answer.
        posix::Descriptor program;
        const std::string problem = openTrusted(context.rpm, context, program);
        return problem.empty() ? context.outputOf(context.rpm, arguments, output) : problem;
    };
    const BundleOwner owner = ownerOfEntry(context.packages, application, askRpm);
    if (!owner.failure.empty())
        return "whether " + application + " belongs to a package could not be determined, the database of " +
               owner.manager + " cannot be read: " + owner.failure;
    return owner.package.empty()
               ? std::string()
               : application + " belongs to the package " + owner.package + " of " + owner.manager +
                     "; install the new version with the package manager of the system";
}

int becomeInstaller(const JobContext &context, const std::vector<std::string> &words,
                    const std::vector<std::string> &variables) {
    const std::string installer =
        posix::parentOf(context.executable) + '/' + installerToolName + installerExecutableInTool;
    posix::Descriptor file;
    if (const std::string problem = openTrusted(installer, context, file); !problem.empty()) {
        context.log(problem);
        return JobForbidden;
    }
    std::vector<std::string> all{installer};
    all.insert(all.end(), words.begin(), words.end());
    const int number = context.become(file.get(), all, variables);
    context.log(installer + " could not be started: " + std::strerror(number));
    return JobFailed;
}

namespace {

int installUpdate(const std::vector<std::string> &words, const std::string &application,
                  const JobContext &context) {
    if (!isProcess(words[1]))
        return refuse(context, "\"" + words[1] + "\" is not the process identifier of an application");
    for (const auto &[path, type] : {std::pair(words[2], mode_t(S_IFDIR)), {words[3], mode_t(S_IFREG)}}) {
        if (const std::string problem = problemOf(path, type, context); !problem.empty())
            return refuse(context, problem);
    }
    if (const std::string problem = packageProblem(application, context); !problem.empty()) {
        context.log(problem);
        return JobFailed;
    }
    const trust::Outcome<trust::AppInfo> installed = trustOf(application, context);
    if (!installed) {
        context.log(installed.fault().what);
        return installed.fault().kind == trust::FaultKind::File ? JobFailed : JobUnverified;
    }
    if (installed->keys)
        return refuse(context, application + " has keys, so it is updated only by archives that they have "
                                             "signed and that this program can verify");
    if (!context.saidUnverified)
        return refuse(context, application + " has no keys (TXUpdatePublicKeys), and the question for the "
                                             "password did not say that the update is not verified");
    context.remark(application +
                   " has no keys (TXUpdatePublicKeys): an update of it is installed that nobody "
                   "has verified");
    return becomeInstaller(context, {words[1], words[2], application, words[3]}, {});
}

int moveIntoFolder(const std::string &folder, const std::string &application, const JobContext &context) {
    bool isKnown = false;
    for (const std::string &known : context.applicationsFolders) {
        const std::unique_ptr<char, decltype(&std::free)> real(realpath(known.c_str(), nullptr), &std::free);
        isKnown = isKnown || (real && folder == real.get());
    }
    if (!isKnown)
        return refuse(context, "\"" + folder + "\" is not an Applications folder");
    const std::string suffix = ".app";
    const std::string name = posix::lastComponentOf(application);
    if (name.size() <= suffix.size() || name.front() == '.' ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
        return refuse(context, application + " is not named \"Name.app\"");
    posix::Descriptor destination;
    posix::Descriptor source;
    std::string problem = openTrusted(folder, context, destination);
    if (problem.empty())
        problem = openTrusted(application, context, source);
    struct stat info {};
    if (problem.empty() && fstat(source.get(), &info) != 0)
        problem = application + ": " + std::strerror(errno);
    const std::string replaced = folder + '/' + name;
    if (problem.empty() && posix::entryExists(replaced))
        problem = packageProblem(replaced, context);
    if (problem.empty())
        problem = moveApplication(application, folder, info.st_uid, *context.files);
    if (!problem.empty()) {
        context.log(problem);
        return JobFailed;
    }
    context.say("moved\n");
    return JobDone;
}

} // namespace

bool readWords(const std::string &input, std::vector<std::string> &words) {
    if (input.empty() || input.size() > longestJob || input.back() != '\0')
        return false;
    words.clear();
    for (size_t start = 0; start < input.size();) {
        const size_t end = input.find('\0', start);
        words.push_back(input.substr(start, end - start));
        start = end + 1;
    }
    return true;
}

int runJob(const std::vector<std::string> &words, const posix::Descriptor &archive,
           const JobContext &context) {
    constexpr size_t fewestSigned = 7;
    const bool verifies = words.size() >= fewestSigned && words[0] == "install-signed";
    const bool installs = words.size() == 4 && words[0] == "install";
    const bool moves = words.size() == 2 && words[0] == "move";
    if (!verifies && !installs && !moves)
        return refuse(context,
                      "expected \"install PID NEW-APPLICATION ARCHIVE\", \"install-signed PID "
                      "APPLICATION NEW-APPLICATION ARCHIVE PLAIN-SIGNATURE LENGTH TEXT...\" or \"move "
                      "FOLDER\"");
    if (!verifies && archive.isOpen())
        return refuse(context, "the job \"" + words[0] + "\" takes no archive");
    const std::string application = posix::applicationAround(context.executable);
    if (application.empty())
        return refuse(context, context.executable + " is not a part of an application");
    if (verifies)
        return installSigned(words, application, archive, context);
    return installs ? installUpdate(words, application, context)
                    : moveIntoFolder(words[1], application, context);
}

} // namespace tx::installer
