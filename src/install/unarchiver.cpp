// SPDX-License-Identifier: MIT
#include "install/unarchiver.h"

#include "base/queues.h"
#include "install/archivelimits.h"
#include "model/names.h"
#include "os/filesystem.h"
#include "os/frameworkresources.h"
#include "os/localization.h"
#include "os/services.h"
#include "os/tasks.h"
#include "os/workspace.h"
#include "posix/posixfiles.h"

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXRateLimiter.h>
#include <TarvixUpdate/TXUpdateHost.h>

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>

#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>
#include <utility>

using namespace Qt::StringLiterals;
using tx::services;

namespace {

struct ArchiveType {
    QLatin1StringView suffix;
    QLatin1StringView name; ///< for the program that unpacks
    QLatin1StringView command;
};

constexpr ArchiveType archiveTypes[] = {
    {".zip"_L1, "zip"_L1, "ditto -x -k - \"$TXUPDATE_UNARCHIVER_DESTINATION\""_L1},
    {".tgz"_L1, "tgz"_L1, "tar -zxC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_L1},
    {".tar.gz"_L1, "tgz"_L1, "tar -zxC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_L1},
    {".tbz"_L1, "tbz"_L1, "tar -jxC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_L1},
    {".tar.bz"_L1, "tbz"_L1, "tar -jxC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_L1},
    {".tzst"_L1, "tzst"_L1, "tar --zstd -xC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_L1},
    {".tar.zst"_L1, "tzst"_L1, "tar --zstd -xC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_L1},
    {".tar"_L1, "tar"_L1, "tar -xC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_L1},
};

/// Null for an unknown type.
const ArchiveType *typeOf(const QString &fileName) {
    const QString name = fileName.toLower();
    for (const ArchiveType &type : archiveTypes) {
        if (name.endsWith(type.suffix))
            return &type;
    }
    return nullptr;
}

/// The program's exit status if it cannot read the archive.
constexpr int archiveUnreadable = 74;
constexpr std::chrono::milliseconds progressInterval(100);

/// The name as programs on this system write it; on Linux, names of attributes need such a prefix.
const QByteArray quarantine = "user.com.apple.quarantine";

QString openFailure(const QString &archivePath) {
    // The number is the same for every reason, because users have been told to report it.
    constexpr int number = -54;
    if (services().fileSystem->exists(archivePath))
        return tx::localizedFormat(u"Could not open the archive. %s (%d)"_s,
                                   {QString::fromLocal8Bit(std::strerror(number)), QString::number(number)});
    return tx::localizedFormat(u"Could not open the archive. File does not exist at path %@"_s,
                               {archivePath});
}

} // namespace

TXUpdateUnarchiver::TXUpdateUnarchiver(const QString &archivePath, const ProgressHandler &progress,
                                       const CompletionHandler &completion, tx::WantedApplication wanted,
                                       tx::VerifiedArchivePtr verified)
    : m_archivePath(archivePath)
    , m_progress(progress)
    , m_completion(completion)
    , m_wanted(std::move(wanted))
    , m_verified(std::move(verified)) {}

tx::WantedApplication TXUpdateUnarchiver::forHost(const QString &build) {
    return {TXUpdateHost::host()->bundle().bundleIdentifier(), build};
}

QString TXUpdateUnarchiver::reasonAgainstType(const QString &fileName) {
    QStringList suffixes;
    for (const ArchiveType &type : archiveTypes)
        suffixes << type.suffix;
    return tx::localizedFormat(
        u"The archive %@ is of a type that cannot be unpacked. Archives of these types can be: %@."_s,
        {fileName, suffixes.join(u", "_s)});
}

QString TXUpdateUnarchiver::commandForFileName(const QString &fileName) {
    const ArchiveType *type = typeOf(fileName);
    return type ? QString(type->command) : QString();
}

void TXUpdateUnarchiver::unarchive(const QString &archivePath, const ProgressHandler &progress,
                                   const CompletionHandler &completion, const tx::WantedApplication &wanted) {
    begin(std::make_shared<TXUpdateUnarchiver>(archivePath, progress, completion, wanted));
}

void TXUpdateUnarchiver::unarchive(const tx::VerifiedArchivePtr &archive, const QString &archivePath,
                                   const ProgressHandler &progress, const CompletionHandler &completion,
                                   const tx::WantedApplication &wanted) {
    begin(std::make_shared<TXUpdateUnarchiver>(archivePath, progress, completion, wanted, archive));
}

void TXUpdateUnarchiver::begin(const std::shared_ptr<TXUpdateUnarchiver> &unarchiver) {
    if (!unarchiver->m_verified && tx::unpacksOnlyVerified()) {
        tx::postToMain([completion = unarchiver->m_completion] {
            completion({}, tx::archiveTrustError({tx::trust::FaultKind::Unsigned,
                                                  "only a verified archive may be unpacked here"}));
        });
        return;
    }
    const QString fileName = QFileInfo(unarchiver->m_archivePath).fileName();
    TXLog(TXLogLevelStep, u"TXUpdate: Unarchive %@"_s, {unarchiver->m_archivePath});
    if (const ArchiveType *type = typeOf(fileName)) {
        tx::runInBackground([unarchiver, name = QString(type->name)] { unarchiver->run(name); });
        return;
    }
    TXLog(TXLogLevelStep, u"TXUpdate: Unarchiving could not happen. Unknown type."_s);
    TXLog(TXLogLevelFailure, u"TXUpdate: %@"_s, {reasonAgainstType(fileName)});
    unarchiver->m_completion({}, {});
}

tx::posix::Descriptor TXUpdateUnarchiver::openArchive() const {
    if (!m_verified)
        return tx::posix::Descriptor(
            open(QFile::encodeName(m_archivePath).constData(), O_RDONLY | O_CLOEXEC));
    // The duplicated descriptor shares the read position with the original.
    tx::posix::Descriptor archive(fcntl(m_verified->descriptor(), F_DUPFD_CLOEXEC, 0));
    return lseek(archive.get(), 0, SEEK_SET) == 0 ? std::move(archive) : tx::posix::Descriptor();
}

void TXUpdateUnarchiver::run(const QString &type) {
    releaseFromQuarantine(m_archivePath);
    TXLog(TXLogLevelStep, u"TXUpdate: Unarchiving: opening the file"_s);
    const tx::posix::Descriptor archive = openArchive();
    QString reason;
    QString application;
    if (archive.isOpen()) {
        reason = unpack(archive.get(), type, QFileInfo(m_archivePath).path(), application);
    } else {
        reason = openFailure(m_archivePath);
        (void)services().workspace->reveal(m_archivePath);
    }
    TXError error;
    if (!reason.isNull()) {
        application = QString();
        TXLog(TXLogLevelStep, u"TXUpdate: Unarchiving failed... %@"_s, {reason});
        error = TXError(tx::updaterErrorDomain, 0,
                        tx::localizedString(u"The update could not be unarchived."_s), reason,
                        u"You can always download the latest version from the website, but try quitting and "
                        "relaunching the application first."_s);
    }
    if (!application.isNull() && m_verified)
        error = tx::checkUnpackedTrust(*m_verified, application);
    if (error && !application.isNull()) {
        TXLog(TXLogLevelFailure, u"TXUpdate: %@ is not installed. %@"_s, {application, error.toString()});
        (void)services().fileSystem->remove(application);
        application = QString();
    }
    tx::postToMain([completion = m_completion, application, error] { completion(application, error); });
}

QString TXUpdateUnarchiver::unpack(int archive, const QString &type, const QString &destination,
                                   QString &application) {
    QStringList environment = QProcessEnvironment::systemEnvironment().toStringList();
    environment.removeIf([](const QString &v) { return v.startsWith(u"TXUPDATE_UNARCHIVER_"_s); });
    environment << u"TXUPDATE_UNARCHIVER_LIMIT="_s + QString::number(tx::archiveLimits().unpacked);
    const tx::Result<std::unique_ptr<tx::Task>> task =
        services().tasks->start({.program = tx::frameworkResourcesPath() + u"/TXUpdateUnpacker"_s,
                                 .arguments = {u"--end-with-caller"_s, type, destination},
                                 .environment = environment,
                                 .inputFile = archive,
                                 .keepsErrors = true,
                                 .ownSession = true});
    if (!task)
        return tx::localizedFormat(u"Opening the pipe for the archive failed %d."_s,
                                   {QString::number(task.error().code())});
    // When the process ends, nobody needs the unpacked application, and the program might hang.
    const tx::InterruptAtEnd interrupt([&task] { (*task)->kill(); });
    std::optional<int> status;
    do {
        static double lastTime = 0;
        __TXUpdateAllowOnceEvery(
            [this] {
                if (m_progress)
                    tx::postToMain(m_progress);
            },
            &lastTime, 0.1);
        status = (*task)->waitWithin(progressInterval);
    } while (!status);
    QString toolSays = (*task)->errorText();
    if (!toolSays.isEmpty())
        TXLog(TXLogLevelFailure, u"TXUpdate: %@"_s, {toolSays});
    if (tx::applicationIsEnding())
        return {}; // nobody is told, and the source of messages may be destroyed
    if (*status == archiveUnreadable)
        return tx::localizedFormat(u"An error occured while reading from the archive %d."_s, {u"1"_s});
    // The status does not matter; it matters whether the application is there. But an application that was
    // there before is not the one in a verified archive that could not be unpacked.
    tx::FoundApplication found;
    if (*status == 0 || !m_verified)
        found = tx::findApplication(destination, m_wanted);
    if (*status != 0 && toolSays.isEmpty())
        toolSays = u"TXUpdateUnpacker: exit status %1"_s.arg(*status);
    application = found.path;
    if (!application.isNull())
        return {};
    return tx::localizedString(u"Could not find the unarchived application."_s) + u' ' +
           tx::explainMissingApplication(destination, m_archivePath, m_wanted, found.refusal,
                                         *status == 0 ? std::nullopt : std::optional(toolSays));
}

void TXUpdateUnarchiver::releaseFromQuarantine(const QString &path) {
    tx::FileSystem &files = *services().fileSystem;
    (void)files.removeExtendedAttribute(path, quarantine);
    const QFileInfo info(path);
    if (!info.isDir() || info.isSymLink())
        return;
    QDirIterator entries(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext())
        (void)files.removeExtendedAttribute(entries.next(), quarantine);
}

QString TXUpdateUnarchiver::findUnarchivedApplicationInDirectory(const QString &directory) {
    return tx::findApplication(directory, forHost({})).path;
}
