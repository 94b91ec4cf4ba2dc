// SPDX-License-Identifier: MIT
#include "install/updateinstallation.h"

#include "base/format.h"
#include "base/queues.h"
#include "install/archiveverification.h"
#include "install/buildcheck.h"
#include "install/installerclient.h"
#include "install/packagecheck.h"
#include "install/quitreply.h"
#include "install/unarchiver.h"
#include "install/updatedownload.h"
#include "model/names.h"
#include "model/update_p.h"
#include "os/applicationcheck.h"
#include "os/directories.h"
#include "os/filesystem.h"
#include "os/localization.h"
#include "os/services.h"
#include "os/workspace.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateHost.h>
#include <TarvixUpdate/TXUpdateSettings.h>

#include <QFileInfo>
#include <QPointer>

using namespace Qt::StringLiterals;

void TXUpdate::installWithErrorHandler(const CompletionHandler &handler) {
    if (isInstalling() || !isDownloaded())
        return;
    d->details().installErrorHandler = handler;
    const QPointer<TXUpdate> guard(this);
    if (!tx::changeState(*this, tx::UpdateState::Preparing) || !guard)
        return;
    TXLog(TXLogLevelStep, u"TXUpdate: Beginning Installation"_s);
    // Held until the process ends; then the installer tool takes it.
    if (const TXError error = tx::UpdateDownload::occupyFolder(
            tx::services(), *this, tx::UpdateFolder::ofArchive(downloadPath()),
            u"The application update could not be installed."_s)) {
        tx::UpdateInstallation::install_failed(*this, error);
        return;
    }
    tx::UpdateInstallation::install_checkOwner(*this);
}

void TXUpdate::cancelInstalling() {}

namespace tx {

void UpdateInstallation::install_checkOwner(TXUpdate &update) {
    checkPackageOwner(u"The application update could not be installed."_s,
                      [guard = QPointer<TXUpdate>(&update)](const TXError &refusal) {
                          if (!guard)
                              return;
                          if (refusal)
                              install_failed(*guard, refusal);
                          else
                              install_doUnarchive(*guard);
                      });
}

void UpdateInstallation::install_doUnarchive(TXUpdate &update) {
    const Result<std::shared_ptr<const ArchiveTrust>> trusted = archiveTrustOf(update);
    if (!trusted)
        install_failed(update, trusted.error());
    else if (*trusted)
        verify(update, *trusted);
    else
        unarchive(update);
}

void UpdateInstallation::verify(TXUpdate &update, const std::shared_ptr<const ArchiveTrust> &trusted) {
    if (!changeState(update, UpdateState::Verifying))
        return;
    TXLog(TXLogLevelStep, u"TXUpdate: Beginning verification"_s);
    // Verification continues if the update is destroyed. The lock keeps others from writing to the folder
    // until then.
    runInBackground([guard = QPointer<TXUpdate>(&update), lock = detailsOf(update).folderLock, trusted,
                     path = update.downloadPath()] {
        const Result<VerifiedArchivePtr> archive = verifyArchive(*trusted, path);
        postToMain([guard, lock, archive] {
            if (!guard)
                return;
            if (archive) {
                detailsOf(*guard).verified = *archive;
                unarchive(*guard);
            } else {
                endUnverified(*guard, archive.error());
            }
        });
    });
}

void UpdateInstallation::unarchive(TXUpdate &update) {
    if (!changeState(update, UpdateState::Unpacking))
        return;
    TXLog(TXLogLevelStep, u"TXUpdate: Beginning unarchive"_s);
    const QPointer<TXUpdate> guard(&update);
    // Unpacking continues if the update is destroyed. The lock keeps others from writing to the folder until
    // then.
    const auto done = [guard, lock = detailsOf(update).folderLock](const QString &application,
                                                                   const TXError &error) {
        if (!guard)
            return;
        if (error)
            endUnverified(*guard, error);
        else
            install_doInstall(*guard, application);
    };
    const WantedApplication wanted = TXUpdateUnarchiver::forHost(update.version());
    if (const VerifiedArchivePtr archive = detailsOf(update).verified)
        TXUpdateUnarchiver::unarchive(
            archive, update.downloadPath(), [] {}, done, wanted);
    else
        TXUpdateUnarchiver::unarchive(
            update.downloadPath(), [] {}, done, wanted);
}

void UpdateInstallation::endUnverified(TXUpdate &update, const TXError &error) {
    const bool isRefused =
        error.domain() == TXUpdateErrorDomain && error.code() != TXUpdateErrorArchiveNotRead;
    if (!isRefused) {
        install_failed(update, error);
        return;
    }
    TXLog(TXLogLevelFailure, u"TXUpdate: %@ is not installed. %@"_s,
          {update.downloadPath(), error.toString()});
    discardDownload(update, {}, error);
}

void UpdateInstallation::install_doInstall(TXUpdate &update, const QString &application) {
    TXLog(TXLogLevelStep, u"TXUpdate: Beginning install"_s);
    TXError error;
    if (!application.isNull())
        error = checkUnpackedBuild(update.version(), application);
    if (error) {
        TXLog(TXLogLevelFailure, u"TXUpdate: %@ is not installed. %@"_s, {application, error.toString()});
        discardDownload(update, application, error);
        return;
    }
    // Such an application is useless in the Downloads folder as well.
    if (const QString why =
            application.isNull()
                ? QString()
                : whyApplicationCannotStart(application, TXUpdateHost::host()->bundle().bundlePath());
        !why.isNull()) {
        TXLog(TXLogLevelFailure, u"[TXUpdate] The new application is not installed. %@"_s, {why});
        install_failed(
            update, TXError(updaterErrorDomain, 0, u"The application update could not be installed."_s, why));
        return;
    }
    if (application.isNull())
        handOver(update, application); // fails, so the user need not save anything first
    else
        askToQuit(update, application);
}

void UpdateInstallation::askToQuit(TXUpdate &update, const QString &application) {
    if (!changeState(update, UpdateState::AskingToQuit))
        return;
    const QPointer<TXUpdate> guard(&update);
    const auto answered = [guard, application](const std::shared_ptr<void> &permission) {
        if (!guard)
            return;
        if (permission) {
            detailsOf(*guard).quitPermission = permission;
            handOver(*guard, application);
            return;
        }
        TXLog(TXLogLevelStep, u"TXUpdate: The application does not quit. Nothing is installed."_s);
        install_failed(
            *guard,
            TXError(TXCocoaErrorDomain, TXErrorCancelled,
                    localizedString(u"The update was not installed because the application was not quit."_s),
                    {}, localizedString(u"You can install the update later."_s)));
    };
    const TXQuitReply reply = TXQuitReplyPrivate::make(answered);
    if (const QuitQuestion question = quitQuestion())
        question(update, reply);
    else
        reply.askApplication();
}

void UpdateInstallation::handOver(TXUpdate &update, const QString &application) {
    if (!changeState(update, UpdateState::HandingOver))
        return;
    TXError error;
    if (TXUpdateInstallerClient::sharedInstance()->installUnarchivedApp(
            application, update.downloadPath(), &error, detailsOf(update).verified.get()))
        return;
    TXLog(TXLogLevelFailure, u"[TXUpdate] Installing the update failed: %@"_s, {error.toString()});
    moveIntoDownloads(update, application);
}

void UpdateInstallation::discardDownload(TXUpdate &update, const QString &application, const TXError &why) {
    // The next attempt downloads what the feed then names, and does not reuse this archive.
    for (const QString &path : {application, update.downloadPath()}) {
        if (path.isNull())
            continue;
        if (const TXError error = services().fileSystem->remove(path))
            TXLog(TXLogLevelFailure, u"TXUpdate: %@ cannot be removed. %@"_s, {path, error.toString()});
    }
    const QPointer<TXUpdate> guard(&update);
    endWithState(update, why, UpdateState::Available);
    if (guard)
        update.setDownloadPath({});
}

void UpdateInstallation::moveIntoDownloads(TXUpdate &update, const QString &application) {
    const Result<QString> downloads = downloadsDirectory();
    if (!downloads) {
        install_failed(update, downloads.error());
        return;
    }
    const QFileInfo file(application);
    QString name = formatText(
        u"%@ %@"_s, {application.isNull() ? QString() : file.completeBaseName(), update.displayVersion()});
    if (!file.suffix().isEmpty())
        name += u'.' + file.suffix();
    const QString target = *downloads + u'/' + safeFileName(name);
    // No installed file justifies such a bit there, and the user may copy the application anywhere.
    TXError error = services().fileSystem->dropSpecialBits(application);
    if (!error)
        error = services().fileSystem->move(application, target);
    if (error) {
        TXLog(TXLogLevelFailure, u"[TXUpdate] Fallback to moving the update into Downloads failed: %@"_s,
              {error.toString()});
        install_failed(
            update,
            TXError(u"TXUpdate"_s, 0,
                    localizedString(u"The application could not be installed automatically."_s),
                    application.isNull()
                        ? TXUpdateUnarchiver::reasonAgainstType(QFileInfo(update.downloadPath()).fileName())
                        : QString(),
                    localizedString(
                        u"To update, go to the website and download the latest version directly."_s)));
        return;
    }
    const QPointer<TXUpdate> guard(&update);
    (void)services().presentAlert(
        {localizedString(u"The new version is ready for you to install."_s),
         localizedString(u"The application could not be installed automatically. Instead, simply quit the "
                         "application and replace the old version with the new one."_s) +
             u"\n\n"_s +
             localizedFormat(u"The new version is %@ in the folder %@."_s,
                             {QFileInfo(target).fileName(), *downloads}),
         {localizedString(u"Show New Version"_s)}});
    (void)services().workspace->reveal(target);
    if (guard)
        install_failed(update, {});
}

void UpdateInstallation::install_failed(TXUpdate &update, const TXError &error) {
    endWithState(update, error, UpdateState::Downloaded);
}

void UpdateInstallation::endWithState(TXUpdate &update, const TXError &error, UpdateState state) {
    const UpdateState before = stateOf(update);
    if (!enterState(update, state))
        return;
    UpdateDetails &d = detailsOf(update);
    d.folderLock.reset();
    d.verified.reset();
    const TXUpdate::CompletionHandler handler = std::exchange(d.installErrorHandler, nullptr);
    // An application that has closed its windows for this ends after the handler has told the user.
    const QPointer<TXUpdate> guard(&update);
    postToMain([handler, error, guard, permission = std::exchange(d.quitPermission, nullptr)] {
        if (guard)
            Q_EMIT guard->installationFinished(error);
        if (handler)
            handler(error);
    });
    announceState(update, before, state);
}

} // namespace tx
