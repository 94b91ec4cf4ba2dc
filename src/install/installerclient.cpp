// SPDX-License-Identifier: MIT
#include "install/installerclient.h"

#include "base/format.h"
#include "install/handoverquestion.h"
#include "model/bundletrust.h"
#include "model/names.h"
#include "model/updatefolder.h"
#include "os/authorization.h"
#include "os/creationmask.h"
#include "os/directories.h"
#include "os/filesystem.h"
#include "os/frameworkresources.h"
#include "os/localization.h"
#include "os/readyword.h"
#include "os/services.h"
#include "os/tasks.h"
#include "posix/updatefoldernames.h"
#include "trust/encoding.h"
#include "trust/verifiedarchive.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateHost.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcessEnvironment>

#include <chrono>
#include <optional>
#include <string>

using namespace Qt::StringLiterals;
using tx::services;
using tx::UpdateFolder;

namespace {

TXError installError(const QString &reason) {
    return TXError(tx::updaterErrorDomain, 0, u"The application update could not be installed."_s, reason);
}

bool fail(TXError *place, const TXError &error) {
    if (place)
        *place = error;
    return false;
}

TXError stepError(const QString &reason, const TXError &cause) {
    return installError(reason).withUnderlyingError(cause);
}

void logRights(const QList<tx::AuthorizationItem> &rights) {
    for (const tx::AuthorizationItem &right : rights) {
        TXLog(TXLogLevelStep, u"Obtained right:  %s / %lu"_s,
              {QString::fromUtf8(right.name), QString::number(right.flags)});
        if (right.value)
            TXLog(TXLogLevelStep, u"value: %@"_s, {QString::fromUtf8(*right.value)});
        else
            TXLog(TXLogLevelStep, u"value: is NULL"_s);
    }
}

/// The path with all links resolved, or unchanged if it cannot be resolved.
QString withoutLinks(const QString &path) {
    const QString resolved = QFileInfo(path).canonicalFilePath();
    return resolved.isEmpty() ? path : resolved;
}

/// The text of the password dialog: only in English, because the system has its own text in other languages.
QList<tx::AuthorizationItem> promptEnvironment(const QString &application) {
    if (tx::localeLanguageCode().compare(u"en"_s, Qt::CaseInsensitive) != 0)
        return {};
    const QString prompt = tx::formatText(u"An administrator's password is required to install %@."_s,
                                          {QFileInfo(application).fileName()});
    tx::AuthorizationItem item;
    item.name = "prompt";
    item.value = prompt.toUtf8();
    item.valueLength = static_cast<quint64>(prompt.size()); // in characters, as the interface requires
    return {item};
}

QString ownProcess() { return QString::number(QCoreApplication::applicationPid()); }

/// Additional time that the program running as root gets to verify the archive, at 5 MB a second.
std::chrono::milliseconds timeToVerify(const tx::trust::VerifiedArchive *archive) {
    return std::chrono::milliseconds(archive ? archive->size() / 5000 : 0);
}

/// Without `verified`: for an application without keys. The paths contain no symbolic links.
tx::AuthorizedJob jobFor(const QString &application, const QString &archive,
                         const tx::trust::VerifiedArchive *verified) {
    if (!verified)
        return {{u"install"_s, ownProcess(), withoutLinks(application), withoutLinks(archive)}};
    tx::AuthorizedJob job;
    job.archive = verified->descriptor();
    job.words = {u"install-signed"_s,
                 ownProcess(),
                 withoutLinks(TXUpdateHost::host()->bundle().bundlePath()),
                 withoutLinks(application),
                 withoutLinks(archive),
                 QString(),
                 QString()};
    if (const auto &plain = verified->signatures().plain) {
        job.words[5] = QString::fromStdString(tx::trust::base64(plain->bytes.data(), plain->bytes.size()));
        job.words[6] = QString::number(plain->size);
    }
    for (const std::string &text : verified->signatures().texts)
        job.words << QString::fromStdString(text);
    return job;
}

} // namespace

TXUpdateInstallerClient::TXUpdateInstallerClient() = default;
TXUpdateInstallerClient::~TXUpdateInstallerClient() = default;

TXUpdateInstallerClient *TXUpdateInstallerClient::sharedInstance() {
    static auto *instance = new TXUpdateInstallerClient;
    return instance;
}

QString TXUpdateInstallerClient::sourceOfTool() {
    return tx::frameworkResourcesPath() + u'/' + QLatin1StringView(tx::installerToolName);
}

QString TXUpdateInstallerClient::copyOfTool() { return UpdateFolder::ofHost().installerTool(); }

QString TXUpdateInstallerClient::executableOfTool() { return UpdateFolder::ofHost().installerExecutable(); }

QString TXUpdateInstallerClient::executableOfInstalledTool() {
    return sourceOfTool() + QLatin1StringView(tx::installerExecutableInTool);
}

QString TXUpdateInstallerClient::environmentRecord() { return UpdateFolder::ofHost().environmentRecord(); }

QStringList TXUpdateInstallerClient::toolArguments(const QString &application, const QString &archive) const {
    return {QString::number(QCoreApplication::applicationPid()), application,
            TXUpdateHost::host()->bundle().bundlePath(), archive};
}

bool TXUpdateInstallerClient::installUnarchivedApp(const QString &application, const QString &archive,
                                                   TXError *error,
                                                   const tx::trust::VerifiedArchive *verified) {
    if (application.isNull())
        return fail(error, installError(u"There is no application to install."_s));
    const bool needsAuthorization =
        needsAuthorizationToInstallToURL(TXUpdateHost::host()->bundle().bundlePath(), application);
    // With an administrator's rights, the installed tool itself is started: a copy in this user's folder
    // could be replaced while the user types the password.
    if (needsAuthorization) {
        TXError cause = prepareFolder();
        if (!cause)
            cause = recordSession();
        if (cause)
            return fail(error, cause);
    } else if (!prepareInstallerHelperTool(error)) {
        return false;
    }
    bool launched = false;
    if (needsAuthorization) {
        TXLog(TXLogLevelStep, u"TXUpdate: Installing needs authorization"_s);
        launched = launchToolWithAuthorizationToInstallURL(application, archive, error, verified);
    } else {
        TXLog(TXLogLevelStep, u"TXUpdate: Installing needs no authorization"_s);
        launched = launchToolToInstallURL(application, archive, error);
    }
    if (!launched) {
        removeInstallerHelperTool();
        return false;
    }
    TXLog(TXLogLevelStep, u"TXUpdate: installer task launched successfully. Exiting now..."_s);
    services().exitProcess(0);
    return true;
}

bool TXUpdateInstallerClient::needsAuthorizationToInstallToURL(const QString &destination,
                                                               const QString &source) const {
    const tx::FileSystem &files = *services().fileSystem;
    if (!files.isWritable(destination))
        return true;
    return !files.isWritable(QFileInfo(destination).path()) &&
           !files.contentsCanBeExchanged(destination, source);
}

TXError TXUpdateInstallerClient::prepareFolder() {
    tx::FileSystem &files = *services().fileSystem;
    const QString folder = UpdateFolder::ofHost().path();
    TXError cause = files.exists(folder) ? TXError() : files.createDirectory(folder, true);
    if (!cause)
        cause = files.checkPrivateDirectory(folder);
    return cause ? stepError(u"The folder to contain the installer tool could not be created."_s, cause)
                 : TXError();
}

TXError TXUpdateInstallerClient::recordSession() {
    // The tool is started with hardly any environment, but opens the new application in this session.
    QByteArray record;
    for (const QString &variable : QProcessEnvironment::systemEnvironment().toStringList())
        record += variable.toLocal8Bit() + '\0';
    // The tool may be started with another umask.
    if (const std::optional<unsigned> mask = tx::fileCreationMask())
        record += "umask " + QByteArray::number(*mask, 8) + '\0';
    // An empty string ends the variables.
    record += '\0' + QByteArray::fromStdString(tx::packed(tx::askForHandover()));
    const TXError cause = services().fileSystem->replaceFile(environmentRecord(), record, 0600);
    return cause ? stepError(u"The installer tool could not be copied into its temporary location."_s, cause)
                 : TXError();
}

bool TXUpdateInstallerClient::prepareInstallerHelperTool(TXError *error) {
    tx::FileSystem &files = *services().fileSystem;
    const QString copy = copyOfTool();
    if (files.exists(copy)) {
        if (const TXError cause = files.remove(copy))
            return fail(error, stepError(u"A pre-existing installer tool could not be removed."_s, cause));
    }
    if (const TXError cause = prepareFolder())
        return fail(error, cause);
    if (const TXError cause = files.copy(sourceOfTool(), copy))
        return fail(error, stepError(u"The installer tool could not be copied into its temporary location."_s,
                                     cause));
    if (const TXError cause = recordSession())
        return fail(error, cause);
    if (!files.exists(copy))
        return fail(error, installError(u"The copied installer tool does not exist where it should."_s));
    return true;
}

bool TXUpdateInstallerClient::launchToolToInstallURL(const QString &application, const QString &archive,
                                                     TXError *error) {
    tx::TaskRequest request;
    request.program = executableOfTool();
    request.arguments = toolArguments(application, archive);
    request.environment = {u"HostApplicationName="_s + TXUpdateHost::host()->name()};
    request.ownSession = true;
    TXLog(TXLogLevelStep, u"TXUpdate: Launching installer %@"_s,
          {u'(' + request.arguments.join(u", "_s) + u')'});
    request.readsOutput = true;
    const tx::Result<std::unique_ptr<tx::Task>> task = services().tasks->start(request);
    if (task) {
        const QString why = tx::waitForReadyWord(**task, services().installerReadyTime);
        if (why.isNull())
            return true;
        TXLog(TXLogLevelFailure, u"TXUpdate: The installer tool is not ready. %@"_s, {why});
        return fail(error, installError(u"The installer tool cannot do its work. "_s + why));
    }
    const QString reason = task.error().localizedDescription();
    TXLog(TXLogLevelFailure, u"TXUpdate: Installer task failed to launch. %@"_s, {reason});
    return fail(error, TXError(TXCocoaErrorDomain, 0,
                               tx::localizedString(u"The update could not be installed because the updater "
                                                   "tool could not be launched."_s),
                               reason));
}

bool TXUpdateInstallerClient::launchToolWithAuthorizationToInstallURL(
    const QString &application, const QString &archive, TXError *error,
    const tx::trust::VerifiedArchive *verified) {
    const tx::trust::Outcome<tx::trust::AppInfo> own =
        tx::trust::infoOfBundle(TXUpdateHost::host()->bundle());
    if (!own)
        return fail(error, installError(QString::fromStdString(own.fault().what)));
    if (own->keys && !verified)
        return fail(error, installError(u"This application installs only updates that its keys "
                                        "have signed, and this one was not verified. Download it again."_s));
    tx::Authorization &authorization = *services().authorization;
    tx::AuthorizationItem administrator;
    administrator.name = "system.privilege.admin";
    const QList<tx::AuthorizationItem> rights{administrator};
    const QList<tx::AuthorizationItem> environment = promptEnvironment(application);
    QList<tx::AuthorizationItem> question = environment;
    if (!own->keys) {
        TXLog(TXLogLevelStep,
              u"TXUpdate: AuthInstall: The application has no keys; nobody verifies the update."_s);
        tx::AuthorizationItem detail;
        detail.name = tx::authorizationDetail;
        detail.value = "the-update-is-not-verified";
        question << detail;
    }
    std::unique_ptr<tx::AuthorizationReference> reference;

    TXLog(TXLogLevelStep, u"TXUpdate: AuthInstall: creating authorization"_s);
    int status = 0;
    do {
        status = authorization.create(environment, tx::AuthorizationFlagDefaults, reference);
    } while (status == tx::AuthorizationDenied);
    if (status != tx::AuthorizationSuccess) {
        TXLog(TXLogLevelFailure, u"TXUpdate: AuthInstall: authorization failed with error %d"_s,
              {QString::number(status)});
        return fail(error, installError(u"Couldn't get authorization to launch the installer tool."_s));
    }

    QList<tx::AuthorizationItem> authorized;
    status =
        authorization.copyRights(*reference, rights, question,
                                 tx::AuthorizationFlagInteractionAllowed | tx::AuthorizationFlagExtendRights |
                                     tx::AuthorizationFlagPreAuthorize,
                                 &authorized);
    if (status != tx::AuthorizationSuccess) {
        TXLog(TXLogLevelFailure, u"AuthorizationCopyRights returned %ld"_s, {QString::number(status)});
        m_unfreed = std::move(reference);
        return fail(error, installError(tx::formatText(
                               u"Couldn't get authorization to launch the installer tool. %d"_s,
                               {QString::number(status)})));
    }
    logRights(authorized);

    const QString tool = executableOfInstalledTool();
    TXLog(TXLogLevelStep, u"TXUpdate: AuthInstall: Will execute with privileges.\nPath: %s"_s, {tool});
    // The installer determines the application that it replaces itself.
    const tx::AuthorizedJob job = jobFor(application, archive, own->keys ? verified : nullptr);
    const std::chrono::milliseconds limit = services().installerReadyTime + timeToVerify(verified);
    std::unique_ptr<tx::Task> task;
    status = authorization.executeWithPrivileges(*reference, job, tx::AuthorizationFlagDefaults, task);
    authorization.free(std::move(reference), tx::AuthorizationFlagDestroyRights);
    if (status == tx::AuthorizationSuccess) {
        const QString why = tx::waitForReadyWord(*task, limit);
        if (why.isNull())
            return true;
        TXLog(TXLogLevelFailure, u"TXUpdate: The installer tool is not ready. %@"_s, {why});
        return fail(error, installError(u"The installer tool cannot do its work. "_s + why));
    }
    TXLog(TXLogLevelFailure, u"TXUpdate: AuthInstall: execution failed with error %d"_s,
          {QString::number(status)});
    QString reason =
        tx::formatText(u"The authorized installer tool failed to launch. %d"_s, {QString::number(status)});
    if (status == tx::AuthorizationToolExecuteFailure && !services().fileSystem->exists(tool))
        reason += tx::formatText(u"\nThe installer tool doesn't exist at:\n%s"_s, {tool});
    return fail(error, installError(reason));
}

void TXUpdateInstallerClient::removeInstallerHelperTool() {
    tx::FileSystem &files = *services().fileSystem;
    for (const QString &path : {copyOfTool(), environmentRecord()}) {
        if (!files.exists(path))
            continue;
        if (const TXError error = files.remove(path))
            TXLog(TXLogLevelFailure, u"The installer helper tool could not be removed. %@"_s,
                  {error.toString()});
    }
}
