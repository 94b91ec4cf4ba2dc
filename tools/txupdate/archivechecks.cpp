// SPDX-License-Identifier: MIT
#include "txupdate/archivechecks.h"

#include "install/archiveverification.h"
#include "install/buildcheck.h"
#include "install/unarchiver.h"
#include "model/host_p.h"
#include "model/versioncomparison.h"
#include "os/applicationcheck.h"
#include "os/directories.h"
#include "os/mainbundle.h"
#include "txupdate/commands.h"

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXUpdateHost.h>

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QMap>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cstdio>
#include <optional>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

/// The result for an archive. Without a problem it can be installed.
struct Finding {
    QString problem;
    QString remark;
};

/// All strings of an error, without duplicates.
QString allOf(const TXError &error) {
    QStringList sentences;
    for (const QString &text :
         {error.localizedDescription(), error.localizedFailureReason(), error.localizedRecoverySuggestion(),
          error.underlyingError().localizedDescription()}) {
        if (!text.isEmpty() && !sentences.contains(text))
            sentences << text;
    }
    return sentences.join(u' ');
}

/// Used for the application whose updates are checked if it is unknown.
bool pretendToBeAnyApplication(const QString &folder) {
    const QString bundle = folder + u"/AnyApplication.app"_s;
    QFile info(bundle + u"/Contents/Info.plist"_s);
    const QByteArray content = "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>txupdate"
                               "</string></dict></plist>\n";
    if (!QDir().mkpath(bundle + u"/Contents"_s) || !info.open(QIODevice::WriteOnly) ||
        info.write(content) != content.size() || !info.flush())
        return false;
    setMainBundle(TXBundle(bundle));
    resetHost();
    return true;
}

class ArchiveCheck {
public:
    /// `app`: null for any application.
    explicit ArchiveCheck(const QString &app)
        : m_hasApplication(!app.isNull())
        , m_build(m_hasApplication ? installedBuild() : QString()) {
        if (m_hasApplication)
            m_identifier = TXUpdateHost::host()->bundle().bundleIdentifier();
    }

    Finding examine(const TXUpdatePtr &update) {
        Finding finding;
        // Entries that are not newer than this application are for users of older versions, so they pass.
        const bool isOffered = !m_hasApplication || isVersionNewer(update->version(), m_build);
        if (!isOffered)
            finding.remark = u"not offered to build %1; "_s.arg(m_build);
        TXUpdateHost::host()->setVersion(m_hasApplication && isOffered ? m_build : QString());
        if (TXError error = download(*update)) {
            finding.problem = allOf(error);
            return finding;
        }
        const QString archive = update->downloadPath();
        finding.remark += u"%1, %2"_s.arg(
            QFileInfo(archive).fileName(),
            QLocale::c().formattedDataSize(QFileInfo(archive).size(), 1, QLocale::DataSizeSIFormat));
        if (TXUpdateUnarchiver::commandForFileName(QFileInfo(archive).fileName()).isNull()) {
            finding.problem = TXUpdateUnarchiver::reasonAgainstType(QFileInfo(archive).fileName());
            return finding;
        }
        QString application;
        if (const TXError error = unpack(archive, *update, application))
            finding.problem = allOf(error);
        else if (const TXError otherBuild = checkUnpackedBuild(update->version(), application))
            finding.problem = allOf(otherBuild);
        else if (const QString why = whyApplicationCannotStart(application, placeOf(application));
                 !why.isNull())
            finding.problem = QString(why).replace(application, QFileInfo(application).fileName());
        if (finding.problem.isNull() || !application.isNull())
            finding.remark += u", "_s + TXBundle(application).bundleIdentifier();
        if (!application.isNull() && !m_identifier)
            m_identifier = TXBundle(application).bundleIdentifier();
        return finding;
    }

private:
    static TXError download(TXUpdate &update) {
        TXError result;
        QEventLoop loop;
        update.downloadWithProgress(nullptr, [&](const TXError &error) {
            result = error;
            loop.quit();
        });
        loop.exec();
        return result;
    }

    TXError unpack(const QString &archive, const TXUpdate &update, QString &application) const {
        TXError result;
        QEventLoop loop;
        const auto done = [&](const QString &found, const TXError &error) {
            application = found;
            result = error;
            loop.quit();
        };
        const Result<std::shared_ptr<const ArchiveTrust>> trusted = archiveTrustOf(update);
        if (!trusted)
            return trusted.error();
        const WantedApplication wanted{m_identifier, update.version()};
        if (*trusted) {
            const Result<VerifiedArchivePtr> verified = verifyArchive(**trusted, archive);
            if (!verified)
                return verified.error();
            TXUpdateUnarchiver::unarchive(*verified, archive, nullptr, done, wanted);
        } else {
            TXUpdateUnarchiver::unarchive(archive, nullptr, done, wanted);
        }
        loop.exec();
        return result;
    }

    /// The future path of the application. Scripts may name an interpreter in it by its absolute path.
    [[nodiscard]] QString placeOf(const QString &application) const {
        return m_hasApplication ? TXUpdateHost::host()->bundle().bundlePath()
                                : localApplicationsDirectory() + u'/' + QFileInfo(application).fileName();
    }

    const bool m_hasApplication;
    const QString m_build;
    std::optional<QString> m_identifier; ///< that all archives must have, if known
};

void print(const char *result, const QString &track, const TXUpdate &update, const QString &remark) {
    std::printf("%-7s %-10s build %-10s %s  %s\n", result, track.toUtf8().constData(),
                update.version().toUtf8().constData(),
                update.fileURL().toString(QUrl::RemoveUserInfo).toUtf8().constData(),
                remark.toUtf8().constData());
}

} // namespace

bool checkArchives(const TXUpdateFeed::TrackMap &tracks, const QString &app) {
    // Not the folder of the application itself, in which it may have an update that it downloaded. Nor /tmp,
    // which may be small.
    const QString cache = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    QDir().mkpath(cache);
    const QTemporaryDir scratch(cache + u"/txupdate-validate-XXXXXX"_s);
    if (!scratch.isValid()) {
        complain(
            u"no folder for the archives can be made in %1: %2. Set XDG_CACHE_HOME to a folder that you can "
            "write to."_s.arg(cache, scratch.errorString()));
        return false;
    }
    if (app.isNull() ? !pretendToBeAnyApplication(scratch.path()) : !adopt(app)) {
        if (app.isNull())
            complain(u"%1 cannot be written to"_s.arg(scratch.path()));
        return false;
    }
    ArchiveCheck check(app);
    QMap<std::pair<QString, QString>, Finding> known; // by URL and build
    int checked = 0;
    int failed = 0;
    for (const TXUpdateTrackPtr &track : tracks) {
        for (const TXUpdatePtr &update : track->updates()) {
            if (update->fileURL().isEmpty()) {
                print("-", track->name(), *update,
                      u"no archive, only a page: %1"_s.arg(update->linkURL().toString()));
                continue;
            }
            const std::pair key(update->fileURL().toString(), update->version());
            if (!known.contains(key)) {
                const QTemporaryDir own(scratch.filePath(u"XXXXXX"_s));
                qputenv("XDG_CACHE_HOME", QFile::encodeName(own.path()));
                known[key] = check.examine(update);
                ++checked;
                failed += known[key].problem.isNull() ? 0 : 1;
            }
            const Finding &finding = known[key];
            print(finding.problem.isNull() ? "ok" : "FAILED", track->name(), *update, finding.remark);
            if (!finding.problem.isNull())
                std::printf("        %s\n", finding.problem.toUtf8().constData());
        }
    }
    std::printf("%d archives fetched, %d cannot be installed\n", checked, failed);
    return failed == 0;
}

} // namespace tx::cli
