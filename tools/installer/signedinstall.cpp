// SPDX-License-Identifier: MIT
#include "installer/signedinstall.h"

#include "installer/jobs_p.h"
#include "installer/programoutput.h"
#include "posix/interrupted.h"
#include "posix/privatefile.h"
#include "posix/readwrite.h"
#include "posix/rootspath.h"
#include "posix/startable.h"
#include "posix/versionorder.h"
#include "trust/verifiedarchive.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tx::installer {

namespace {

using trust::Fault;
using trust::FaultKind;
using trust::Outcome;

/// Indices of the job's words: "install-signed PID APPLICATION NEW-APPLICATION ARCHIVE PLAIN-SIGNATURE LENGTH
/// TEXT...".
enum Word : size_t { Process = 1, Application, Unpacked, Archive, Plain, Length, FirstText };

constexpr uint64_t usualArchive = uint64_t(4) << 30;
constexpr uint64_t usualUnpacked = uint64_t(8) << 30;

Fault fileFault(const std::string &what) { return {FaultKind::File, what}; }

std::string describe(const posix::FileError &error) {
    return error.path + ": " + std::strerror(error.number);
}

/// Reads a limit, a number in the application's Info.plist, in the same way as the host.
uint64_t limitOf(const plain::Value &info, const char *key, uint64_t usual) {
    const plain::Value *value = info.member(key);
    const int64_t *number = value ? std::get_if<int64_t>(&value->content) : nullptr;
    return number && *number > 0 ? static_cast<uint64_t>(*number) : usual;
}

std::string textOf(const plain::Value &info, const char *key) {
    const plain::Value *value = info.member(key);
    const std::string *text = value ? value->text() : nullptr;
    return text ? *text : std::string();
}

bool isSameEntry(const posix::Descriptor &a, const posix::Descriptor &b) {
    struct stat first {};
    struct stat second {};
    return fstat(a.get(), &first) == 0 && fstat(b.get(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

Outcome<trust::ArchiveSignatures> signaturesIn(const std::vector<std::string> &words) {
    trust::ArchiveSignatures signatures;
    if (!words[Plain].empty()) {
        Outcome<trust::PlainSignature> plain = trust::PlainSignature::parse(words[Plain], words[Length]);
        if (!plain)
            return plain.fault();
        signatures.plain = *plain;
    }
    signatures.texts.assign(words.begin() + FirstText, words.end());
    return signatures;
}

/// Lists the folders directly in `folder`, sorted. Links are left out.
Outcome<std::vector<std::string>> foldersIn(const posix::Descriptor &folder) {
    std::vector<std::string> names;
    if (const int number = posix::namesIn(folder.get(), names))
        return fileFault(std::string("what was unpacked cannot be listed: ") + std::strerror(number));
    std::vector<std::string> result;
    for (const std::string &name : names) {
        struct stat info {};
        if (fstatat(folder.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode))
            result.push_back(name);
    }
    std::sort(result.begin(), result.end());
    return result;
}

/// The type of an archive, for the program that unpacks it. The first bytes of the archive decide, because
/// anybody can choose the file name. Everything but zip, gzip, bzip2 and zstd counts as tar.
const char *typeOf(int archive) {
    std::array<char, 4> bytes{};
    const ssize_t count = pread(archive, bytes.data(), bytes.size(), 0);
    const std::string_view start(bytes.data(), count > 0 ? static_cast<size_t>(count) : 0);
    if (start == std::string_view("PK\3\4", 4) || start == std::string_view("PK\5\6", 4))
        return "zip";
    if (start.substr(0, 2) == "\x1f\x8b")
        return "tgz";
    if (start.substr(0, 3) == "BZh")
        return "tbz";
    if (start == "\x28\xb5\x2f\xfd")
        return "tzst";
    return "tar";
}

/// One job whose words have been checked.
class SignedInstallation {
public:
    SignedInstallation(const std::string &application, trust::AppInfo installed, const plain::Value &info,
                       trust::ArchiveSignatures signatures, const JobContext &context)
        : m_application(application)
        , m_folder(verifiedPathFor(application))
        , m_installed(std::move(installed))
        , m_signatures(std::move(signatures))
        , m_largestArchive(limitOf(info, "TXUpdateMaximumArchiveSize", usualArchive))
        , m_largestUnpacked(limitOf(info, "TXUpdateMaximumUnpackedSize", usualUnpacked))
        , m_context(context)
        , m_files(*context.files) {}

    int run(const posix::Descriptor &archive, const std::vector<std::string> &words) {
        if (const trust::Verdict refused = checkSize(archive))
            return report(*refused);
        const std::string lock = lockPathFor(m_application);
        // This process or its successor, the installer, holds the lock until it ends. The installer locks
        // again.
        posix::Descriptor held;
        if (const posix::FileError error = m_files.lock(lock, held)) {
            m_context.log(error.number == EWOULDBLOCK
                              ? "another installation of " + m_application + " is running"
                              : "cannot lock " + describe(error));
            return JobFailed;
        }
        m_context.endAfter(longestVerification);
        const Outcome<std::string> fresh = unpackVerified(archive);
        m_context.endAfter(std::chrono::seconds(0));
        const int status =
            fresh ? becomeInstaller(m_context, {words[Process], *fresh, m_application, words[Archive]},
                                    {std::string(verifiedVariable) + '=' + words[Unpacked]})
                  : report(fresh.fault());
        discard(m_folder, [this](const std::string &path) { return m_files.removeTree(path); });
        discard(lock, [this](const std::string &path) { return m_files.removeFile(path); });
        return status;
    }

private:
    int report(const Fault &fault) {
        m_context.log(fault.what);
        return fault.kind == FaultKind::File ? JobFailed : JobUnverified;
    }

    void discard(const std::string &path,
                 const std::function<posix::FileError(const std::string &)> &remove) {
        if (const posix::FileError error = remove(path))
            m_context.log("cannot remove " + describe(error));
    }

    [[nodiscard]] trust::WantedArchive wanted() const {
        // The build is compared with the installed one later. The user may choose the feed.
        return {m_installed.bundle, std::nullopt, std::nullopt};
    }

    /// Checks before copying that the signatures are valid and that the file has the signed size.
    trust::Verdict checkSize(const posix::Descriptor &archive) const {
        const auto proof = trust::ArchiveProof::find(*m_installed.keys, m_signatures, wanted());
        if (!proof)
            return proof.fault();
        struct stat info {};
        if (fstat(archive.get(), &info) != 0)
            return fileFault(std::string("the archive cannot be looked at: ") + std::strerror(errno));
        if (static_cast<uint64_t>(info.st_size) != proof->size())
            return Fault{FaultKind::Mismatch, "the archive has " + std::to_string(info.st_size) +
                                                  " bytes, the signature is for " +
                                                  std::to_string(proof->size())};
        if (proof->size() > m_largestArchive)
            return Fault{FaultKind::Mismatch, "the archive has " + std::to_string(proof->size()) +
                                                  " bytes, the application accepts at most " +
                                                  std::to_string(m_largestArchive)};
        return std::nullopt;
    }

    /// Returns the path of the verified new application. Root owns it, and other users can only read its
    /// folder.
    Outcome<std::string> unpackVerified(const posix::Descriptor &archive) {
        // The folder may contain files of an interrupted run.
        posix::FileError error = m_files.removeTree(m_folder);
        if (!error)
            error = m_files.makeDirectory(m_folder);
        if (error)
            return fileFault("nothing can be put beside the application: " + describe(error));
        const posix::Descriptor folder = posix::openFolderWithoutLinks(m_folder);
        if (!folder.isOpen())
            return fileFault(m_folder + ": " + std::strerror(errno));
        const auto verified = trust::VerifiedArchive::make(
            *m_installed.keys, m_signatures, wanted(), archive.get(), folder.get(), *m_context.privateFiles);
        if (!verified)
            return verified.fault();
        if (const std::string problem = unpack(*verified); !problem.empty())
            return fileFault("the archive cannot be unpacked: " + problem);
        const Outcome<std::string> fresh = findFresh(folder, *verified);
        if (!fresh)
            return fresh;
        // Users must get no more permissions on the new files than on the installed ones.
        error = m_files.limitSpecialBits(*fresh, m_application);
        if (!error)
            error = m_files.openToReaders(m_folder);
        if (error)
            return fileFault("the new application cannot be prepared: " + describe(error));
        const std::string problem = whyItCannotStart(*fresh, m_application);
        return problem.empty() ? fresh : fileFault(problem);
    }

    std::string unpack(const trust::VerifiedArchive &archive) {
        const std::string program = posix::parentOf(m_context.executable) + "/TXUpdateUnpacker";
        posix::Descriptor file;
        if (std::string problem = openTrusted(program, m_context, file); !problem.empty())
            return problem;
        if (lseek(archive.descriptor(), 0, SEEK_SET) != 0)
            return std::strerror(errno);
        const ProgramInput input{archive.descriptor(),
                                 {"TXUPDATE_UNARCHIVER_LIMIT=" + std::to_string(m_largestUnpacked)}};
        std::string output;
        int status = 0;
        std::string problem = m_context.run(
            program, {"--end-with-caller", typeOf(archive.descriptor()), m_folder}, input, output, status);
        if (problem.empty() && status != 0)
            problem = program + " ended with status " + std::to_string(status) + ": " + output;
        return problem;
    }

    /// Returns the only unpacked application with the right identifier, if it may replace the installed one.
    Outcome<std::string> findFresh(const posix::Descriptor &folder, const trust::VerifiedArchive &archive) {
        const Outcome<std::vector<std::string>> names = foldersIn(folder);
        if (!names)
            return names.fault();
        std::optional<std::string> fresh;
        plain::Value info;
        for (const std::string &name : *names) {
            const std::string path = m_folder + '/' + name;
            const posix::Descriptor bundle(
                openat(folder.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
            Outcome<plain::Value> found = readInfo(bundle, path, m_context);
            if (!found || textOf(*found, "CFBundleIdentifier") != m_installed.bundle)
                continue;
            if (fresh)
                return Fault{FaultKind::Mismatch,
                             "the archive holds more than one application with the identifier " +
                                 m_installed.bundle};
            fresh = path;
            info = *std::move(found);
        }
        if (!fresh)
            return Fault{FaultKind::Mismatch,
                         "the archive holds no application with the identifier " + m_installed.bundle};
        const std::string build = textOf(info, "CFBundleVersion");
        // Malformed keys count as none: nobody could update the application with them.
        const Outcome<trust::AppInfo> own = trust::AppInfo::read(info);
        const trust::PublicKeys *keys = own && own->keys ? &*own->keys : nullptr;
        if (const trust::Verdict refused = archive.checkUnpacked(m_installed.bundle, build, keys))
            return *refused;
        const std::optional<int> order = versions::compareAscii(build, m_installed.build);
        if (!order)
            return Fault{
                FaultKind::Mismatch,
                "with an administrator's rights, only builds in ASCII can be compared, found were \"" +
                    build + "\" and \"" + m_installed.build + "\""};
        if (*order <= 0)
            return Fault{FaultKind::Mismatch,
                         "build " + build + " is not newer than the installed build " + m_installed.build};
        return *fresh;
    }

    const std::string &m_application;
    const std::string m_folder;
    const trust::AppInfo m_installed;
    const trust::ArchiveSignatures m_signatures;
    const uint64_t m_largestArchive;
    const uint64_t m_largestUnpacked;
    const JobContext &m_context;
    Files &m_files;
};

} // namespace

trust::Outcome<plain::Value> readInfo(const posix::Descriptor &bundle, const std::string &path,
                                      const JobContext &context) {
    struct stat info {};
    const std::string name = fstatat(bundle.get(), "Contents/Info.plist", &info, AT_SYMLINK_NOFOLLOW) == 0
                                 ? "Contents/Info.plist"
                                 : "Info.plist";
    posix::Descriptor entry;
    const std::string problem = context.asRoot ? posix::openRootsOwnIn(bundle, path, name, entry)
                                               : posix::openWithoutLinksIn(bundle, path, name, entry);
    if (!problem.empty())
        return fileFault(problem);
    if (fstat(entry.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return fileFault(path + '/' + name + " is not a file");
    const posix::Descriptor file(context.privateFiles->reopenForReading(entry.get()));
    std::string document;
    std::vector<char> buffer(64 << 10);
    ssize_t count = file.isOpen() ? 1 : -1;
    while (count > 0 && document.size() <= plain::maximumDocument) {
        count = context.privateFiles->read(file.get(), buffer.data(), buffer.size());
        document.append(buffer.data(), count > 0 ? static_cast<size_t>(count) : 0);
    }
    if (count < 0)
        return fileFault(path + '/' + name + ": " + std::strerror(errno));
    std::optional<plain::Value> list = plain::readPropertyList(document);
    if (!list || !std::holds_alternative<plain::Dictionary>(list->content))
        return fileFault(path + '/' + name + " is not a property list");
    return *std::move(list);
}

trust::Outcome<trust::AppInfo> trustOf(const std::string &application, const JobContext &context) {
    posix::Descriptor bundle;
    if (const std::string problem = openTrusted(application, context, bundle); !problem.empty())
        return fileFault(problem);
    const Outcome<plain::Value> info = readInfo(bundle, application, context);
    return info ? trust::AppInfo::read(*info) : info.fault();
}

int installSigned(const std::vector<std::string> &words, const std::string &application,
                  const posix::Descriptor &archive, const JobContext &context) {
    if (!isProcess(words[Process]))
        return refuse(context, "\"" + words[Process] + "\" is not the process identifier of an application");
    posix::Descriptor bundle;
    if (const std::string problem = openTrusted(application, context, bundle); !problem.empty()) {
        context.log(problem);
        return JobForbidden;
    }
    posix::Descriptor named;
    if (const std::string problem = posix::openWithoutLinks(words[Application], named); !problem.empty())
        return refuse(context, problem);
    if (!isSameEntry(bundle, named))
        return refuse(context, words[Application] + " is not the application that this program is a part of");
    // The installer only removes these, with the user's own permissions.
    for (const auto &[path, type] :
         {std::pair(words[Unpacked], mode_t(S_IFDIR)), {words[Archive], mode_t(S_IFREG)}}) {
        if (const std::string problem = problemOf(path, type, context); !problem.empty())
            return refuse(context, problem);
    }
    if (!archive.isOpen())
        return refuse(context, "the archive did not come with the job");
    if (const std::string problem = packageProblem(application, context); !problem.empty()) {
        context.log(problem);
        return JobFailed;
    }
    const Outcome<plain::Value> info = readInfo(bundle, application, context);
    Outcome<trust::AppInfo> installed =
        info ? trust::AppInfo::read(*info) : Outcome<trust::AppInfo>(info.fault());
    if (!installed) {
        context.log(installed.fault().what);
        return installed.fault().kind == FaultKind::File ? JobFailed : JobUnverified;
    }
    if (!installed->keys)
        return refuse(context, application + " has no keys (TXUpdatePublicKeys) to verify an update with");
    Outcome<trust::ArchiveSignatures> signatures = signaturesIn(words);
    if (!signatures) {
        context.log(signatures.fault().what);
        return JobUnverified;
    }
    return SignedInstallation(application, *std::move(installed), *info, *std::move(signatures), context)
        .run(archive, words);
}

} // namespace tx::installer
