// SPDX-License-Identifier: MIT
#include "tests/install/installingtest.h"

using namespace Qt::StringLiterals;
using tx::test::Installing;
using tx::test::waitUntil;
using tx::test::WithoutInstaller;

namespace {

TEST_F(Installing, HandsTheUnpackedApplicationToTheInstaller) {
    tx::test::RecordingTasks tasks;
    tasks.runsForReal = true;
    tasks.failing = [this](const tx::TaskRequest &r) {
        if (r.program.endsWith(u"/TXUpdateInstaller"_s))
            exits << -1; // counted, and replaced by a harmless start below
        return 0;
    };
    // The real tool would wait for this process to end: let a stand-in take its place.
    tx::test::FaultFileSystem files;
    files.observer = [](const QString &operation, const QString &p) {
        if (operation == u"replaceFile" && p.endsWith(u".environment"_s))
            tx::test::writeFile(TXUpdateInstallerClient::executableOfTool(), "#!/bin/sh\necho ready\n",
                                QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    };
    QSignalSpy installing(update.get(), &TXUpdate::isInstallingChanged);
    install();
    EXPECT_TRUE(update->isInstalling());
    ASSERT_TRUE(waitUntil([this] { return exits.contains(0); }));
    EXPECT_EQ(exits, (QList<int>{-1, 0}));
    EXPECT_EQ(tasks.started.last().arguments[1], cache + u"/MyApp.app"_s);
    EXPECT_EQ(tasks.started.last().arguments[3], cache + u"/MyApp - 2000.zip"_s);
    tx::test::drainEvents();
    EXPECT_EQ(calls, 0) << "the handler is never called on success";
    EXPECT_TRUE(update->isInstalling());
    EXPECT_EQ(installing.count(), 1);
    EXPECT_EQ(states(), u"Downloaded, Preparing, Unpacking, AskingToQuit, HandingOver"_s);
    const QStringList log = logLines();
    EXPECT_LT(log.indexOf(u"TXUpdate: Beginning Installation"_s),
              log.indexOf(u"TXUpdate: Beginning unarchive"_s));
    EXPECT_LT(log.indexOf(u"TXUpdate: Beginning unarchive"_s), log.indexOf(u"TXUpdate: Beginning install"_s));
}

TEST_F(WithoutInstaller, ApplicationThatCannotStartIsNeitherInstalledNorOffered) {
    QDir(cache).removeRecursively();
    ASSERT_TRUE(QFile::setPermissions(path(u"staging/MyApp.app/Contents/Linux/Program"_s),
                                      QFile::ReadOwner | QFile::WriteOwner));
    tx::test::makeArchive(cache + u"/MyApp - 2000.zip"_s, tx::test::ArchiveKind::Zip,
                          tx::test::entriesOf(path(u"staging/MyApp.app"_s)));
    chmod(cache.toUtf8().constData(), 0700);
    installAndWait();
    EXPECT_EQ(error.domain(), u"TXUpdater"_s);
    EXPECT_EQ(error.localizedDescription(), u"The application update could not be installed."_s);
    EXPECT_THAT(error.localizedFailureReason().toStdString(),
                testing::HasSubstr("its executable Contents/Linux/Program may not be executed"));
    for (const tx::TaskRequest &started : tasks.started)
        EXPECT_FALSE(started.program.endsWith(u"/TXUpdateInstaller"_s));
    EXPECT_TRUE(tx::test::namesIn(*tx::downloadsDirectory()).isEmpty());
    EXPECT_TRUE(alerts.isEmpty());
    EXPECT_TRUE(exits.isEmpty());
}

TEST_F(Installing, IsIgnoredBeforeTheDownloadAndWhileInstalling) {
    update->setDownloaded(false);
    install();
    tx::test::drainEvents();
    EXPECT_FALSE(update->isInstalling());
    update->setDownloaded(true);
    update->setDownloadPath(cache + u"/broken.zip"_s);
    tx::test::writeFile(cache + u"/broken.zip"_s, "x");
    int first = 0;
    update->installWithErrorHandler([&](const TXError &) { ++first; });
    install();                  // dropped
    update->cancelInstalling(); // does nothing
    EXPECT_TRUE(update->isInstalling());
    ASSERT_TRUE(waitUntil([&] { return first > 0; }));
    tx::test::drainEvents();
    EXPECT_EQ(calls, 0);
}

TEST_F(Installing, UnarchivingErrorIsHandedOn) {
    tx::test::writeFile(cache + u"/broken.zip"_s, "x");
    downloaded(cache + u"/broken.zip"_s);
    installAndWait();
    EXPECT_EQ(error.localizedDescription(), u"The update could not be unarchived."_s);
    EXPECT_TRUE(QFileInfo::exists(cache + u"/broken.zip"_s)) << "the archive stays";
    EXPECT_TRUE(alerts.isEmpty());
}

TEST_F(Installing, FailureLeadsBackToTheDownloadedArchive) {
    tx::test::writeFile(cache + u"/broken.zip"_s, "x");
    downloaded(cache + u"/broken.zip"_s);
    installAndWait();
    calls = 0;
    installAndWait();
    EXPECT_EQ(states(), u"Downloaded, Preparing, Unpacking, Downloaded, Preparing, Unpacking, Downloaded"_s);
}

TEST_F(Installing, UpdateThatTheHostHasInstalledCanBeInstalledAgain) {
    update->setInstalled(true);
    EXPECT_TRUE(update->isDownloaded());
    tx::test::writeFile(cache + u"/broken.zip"_s, "x");
    downloaded(cache + u"/broken.zip"_s);
    QSignalSpy installed(update.get(), &TXUpdate::isInstalledChanged);
    installAndWait();
    EXPECT_EQ(installed.count(), 1);
    EXPECT_EQ(states(), u"Downloaded, Installed, Preparing, Unpacking, Downloaded"_s);
}

TEST_F(Installing, HostCannotInterfereWithAnInstallation) {
    tx::test::writeFile(cache + u"/broken.zip"_s, "x");
    downloaded(cache + u"/broken.zip"_s);
    install();
    update->setDownloaded(false);
    update->setInstalled(true);
    EXPECT_TRUE(update->isDownloaded());
    EXPECT_TRUE(update->isInstalling());
    EXPECT_FALSE(update->isInstalled());
    EXPECT_EQ(logLines()
                  .filter(u"TXUpdate: The state of build 2000 stays Preparing: the application "
                          "cannot change it to "_s)
                  .size(),
              2);
    ASSERT_TRUE(waitUntil([this] { return calls > 0; }));
    EXPECT_TRUE(update->isDownloaded());
}

TEST_F(Installing, SignalTellsTheErrorOnceBeforeTheHandler) {
    tx::test::writeFile(cache + u"/broken.zip"_s, "x");
    downloaded(cache + u"/broken.zip"_s);
    QList<TXError> told;
    QObject context;
    QObject::connect(update.get(), &TXUpdate::installationFinished, &context, [&](const TXError &e) {
        told << e;
        EXPECT_EQ(calls, 0);
        EXPECT_FALSE(update->isInstalling());
    });
    installAndWait();
    ASSERT_EQ(told.size(), 1);
    EXPECT_TRUE(told.first());
    EXPECT_EQ(told.first(), error);
}

TEST_F(Installing, SignalMayDestroyTheUpdate) {
    tx::test::writeFile(cache + u"/broken.zip"_s, "x");
    downloaded(cache + u"/broken.zip"_s);
    QObject context;
    QObject::connect(update.get(), &TXUpdate::installationFinished, &context, [this] { update.reset(); });
    install();
    ASSERT_TRUE(waitUntil([this] { return calls > 0; }));
    tx::test::drainEvents();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(error.localizedDescription(), u"The update could not be unarchived."_s);
}

TEST_F(Installing, ApplicationOfAPackageIsNotExchanged) {
    const QString bundle = TXUpdateHost::host()->bundle().bundlePath();
    const tx::PackageDatabases before = tx::packageDatabases();
    tx::packageDatabases() = {path(u"dpkg"_s), {}, {}};
    tx::test::writeFile(path(u"dpkg/info/notes.list"_s), bundle.toUtf8() + "\n");
    installAndWait();
    EXPECT_EQ(error, TXError(u"TXUpdater"_s, 0, u"The application update could not be installed."_s,
                             u"The application belongs to the package notes of dpkg."_s,
                             u"Install the new version with the package manager of the system."_s));
    // Nor is it when that cannot be told.
    ASSERT_TRUE(QFile::remove(path(u"dpkg/info/notes.list"_s)));
    QDir().mkpath(path(u"dpkg/info/notes.list"_s));
    calls = 0;
    installAndWait();
    EXPECT_THAT(error.localizedFailureReason().toStdString(),
                testing::HasSubstr("Whether the application belongs to a package could not be determined."));
    EXPECT_FALSE(error.underlyingError().isNull());
    EXPECT_FALSE(QFileInfo::exists(cache + u"/MyApp.app"_s)) << "nothing was unpacked";
    EXPECT_TRUE(QFileInfo::exists(cache + u"/MyApp - 2000.zip"_s));
    EXPECT_TRUE(exits.isEmpty());
    EXPECT_TRUE(alerts.isEmpty());
    tx::packageDatabases() = before;
}

TEST_F(Installing, BuildThatIsNotTheAnnouncedOneOrNotNewerIsNotInstalled) {
    struct Case {
        QString announced, unpacked, installed;
    };
    for (const Case &c :
         {Case{u"9"_s, u"1"_s, u"5"_s}, Case{u"9"_s, u"8"_s, u"5"_s}, Case{u"9"_s, u"10"_s, u"5"_s},
          Case{u"5"_s, u"5"_s, u"5"_s}, Case{u"4"_s, u"4"_s, u"5"_s}, Case{u"9"_s, u"5"_s, u"5"_s},
          Case{u"9"_s, {}, u"5"_s}, Case{{}, u"9"_s, u"5"_s}}) {
        becomeHost(c.installed);
        tx::test::makeBundle(path(u"staging/MyApp.app"_s), {.build = c.unpacked});
        const QString archive = cache + u"/MyApp - 9.zip"_s;
        tx::test::makeArchive(archive, tx::test::ArchiveKind::Zip,
                              tx::test::entriesOf(path(u"staging/MyApp.app"_s)));
        update = std::make_shared<TXUpdate>();
        update->setVersion(c.announced);
        downloaded(archive);
        calls = 0;
        install();
        ASSERT_TRUE(waitUntil([this] { return calls > 0; }));
        tx::test::drainEvents();
        EXPECT_EQ(calls, 1);
        const auto shown = [](const QString &build) { return build.isEmpty() ? u"?"_s : build; };
        EXPECT_EQ(error,
                  TXError(u"TXUpdater"_s, 0, u"The application update could not be installed."_s,
                          u"The update was announced as build %1, but the downloaded application is build "
                          "%2. Build %3 is installed."_s.arg(shown(c.announced), shown(c.unpacked),
                                                             shown(c.installed)),
                          u"An update must be the announced build and newer than the installed one. "
                          "Download the latest version from the website."_s));
        EXPECT_FALSE(update->isInstalling());
        EXPECT_FALSE(update->isDownloaded()) << "another try downloads it again";
        EXPECT_TRUE(update->downloadPath().isNull());
        EXPECT_FALSE(QFileInfo::exists(archive));
        EXPECT_FALSE(QFileInfo::exists(cache + u"/MyApp.app"_s));
        EXPECT_TRUE(alerts.isEmpty()) << "nor does it go to the Downloads folder";
        EXPECT_TRUE(exits.isEmpty());
        EXPECT_FALSE(QFileInfo::exists(TXUpdateInstallerClient::copyOfTool()));
    }
}

TEST_F(WithoutInstaller, BuildsAreComparedAsVersions) {
    becomeHost(u"1.9"_s);
    update->setVersion(u"1-010"_s);
    tx::test::makeBundle(path(u"staging/MyApp.app"_s), {.build = u"1.10"_s});
    tx::test::makeArchive(update->downloadPath(), tx::test::ArchiveKind::Zip,
                          tx::test::entriesOf(path(u"staging/MyApp.app"_s)));
    installAndWait();
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_EQ(alerts.size(), 1) << "it was handed over, and then had nobody to install it";
}

TEST_F(WithoutInstaller, HostsComparatorSaysWhatIsNewer) {
    becomeHost(u"3000"_s);
    tx::setVersionComparator([](const QString &a, const QString &b) { return -tx::compareVersions(a, b); });
    installAndWait();
    tx::setVersionComparator(nullptr);
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_EQ(alerts.size(), 1);
}

TEST_F(Installing, InstalledBuildIsTheOneOnDisk) {
    becomeHost(u"5"_s);
    const QString bundle = TXUpdateHost::host()->bundle().bundlePath();
    EXPECT_EQ(tx::installedBuild(), u"5"_s);
    // Another copy of the application was updated meanwhile.
    const QByteArray info = tx::test::readFile(bundle + u"/Contents/Info.plist"_s);
    tx::test::writeFile(bundle + u"/Contents/Info.plist"_s,
                        QByteArray(info).replace("<string>5</string>", "<string>2500</string>"));
    EXPECT_EQ(tx::installedBuild(), u"2500"_s);
    EXPECT_TRUE(tx::checkUnpackedBuild(u"2000"_s, path(u"staging/MyApp.app"_s)));
    tx::test::writeFile(bundle + u"/Contents/Info.plist"_s, info);
    EXPECT_FALSE(tx::checkUnpackedBuild(u"2000"_s, path(u"staging/MyApp.app"_s)));
    // A host may pretend to be another build, and is updated as that one.
    TXUpdateHost::host()->setVersion(u"3000"_s);
    EXPECT_EQ(tx::installedBuild(), u"3000"_s);
    EXPECT_TRUE(tx::checkUnpackedBuild(u"2000"_s, path(u"staging/MyApp.app"_s)));
}

TEST_F(WithoutInstaller, NewVersionGoesIntoDownloadsAndTheUserIsTold) {
    QSignalSpy finished(update.get(), &TXUpdate::installationFinished);
    installAndWait();
    ASSERT_EQ(finished.count(), 1);
    EXPECT_FALSE(finished[0][0].value<TXError>());
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    const QString target = *tx::downloadsDirectory() + u"/MyApp 2.1.app"_s;
    EXPECT_EQ(tx::test::treeOf(target), tx::test::treeOf(path(u"staging/MyApp.app"_s)));
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts.first().message, u"The new version is ready for you to install."_s);
    EXPECT_EQ(
        alerts.first().informative,
        u"The application could not be installed automatically. Instead, simply quit the application and "
        "replace the old version with the new one.\n\nThe new version is MyApp 2.1.app in the folder %1."_s
            .arg(*tx::downloadsDirectory()));
    EXPECT_EQ(alerts.first().buttons, QStringList{u"Show New Version"_s});
    EXPECT_EQ(workspace.revealed, QStringList{target});
    EXPECT_TRUE(exits.isEmpty());
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("[TXUpdate] Installing the update failed: NSCocoaErrorDomain"));
}

TEST_F(WithoutInstaller, SpecialBitsDoNotReachDownloads) {
    const auto modeOf = [](const QString &file) {
        struct stat info {};
        EXPECT_EQ(lstat(QFile::encodeName(file).constData(), &info), 0) << file.toStdString();
        return info.st_mode & 07777U;
    };
    const QString helper = u"/Contents/Resources/deep/helper"_s;
    QList<tx::test::ArchiveEntry> entries = tx::test::entriesOf(path(u"staging/MyApp.app"_s));
    entries += {{u"MyApp.app"_s + helper, tx::test::ArchiveEntry::File, "#!/bin/sh\n", 06755},
                {u"MyApp.app/Contents/Resources/plain"_s, tx::test::ArchiveEntry::File, "x", 0644}};
    QTemporaryDir otherDisk(u"/dev/shm/tarvix-XXXXXX"_s);
    ASSERT_TRUE(otherDisk.isValid());
    const QString downloads = tx::downloadsDirectoryPath();
    tx::test::FaultFileSystem faults;
    mode_t unpacked = 0;
    faults.observer = [&](const QString &operation, const QString &place) {
        if (operation == u"dropSpecialBits")
            unpacked = modeOf(place + helper);
    };
    const auto installOnce = [&] {
        QDir(cache).removeRecursively();
        tx::test::makeArchive(cache + u"/MyApp - 2000.zip"_s, tx::test::ArchiveKind::Zip, entries);
        chmod(cache.toUtf8().constData(), 0700);
        calls = 0;
        unpacked = 0;
        installAndWait();
        EXPECT_EQ(unpacked, 06755U) << "without the bits there is nothing to take away";
    };
    const QString inDownloads = downloads + u"/MyApp 2.1.app"_s;
    for (const bool far : {false, true}) {
        SCOPED_TRACE(far);
        if (far) {
            ASSERT_TRUE(QDir(downloads).removeRecursively());
            ASSERT_TRUE(QFile::link(otherDisk.path(), downloads));
        }
        installOnce();
        EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
        EXPECT_EQ(modeOf(inDownloads + helper), 0755U);
        EXPECT_EQ(modeOf(inDownloads + u"/Contents/Resources/plain"_s), 0644U);
        ASSERT_TRUE(QDir(inDownloads).removeRecursively());
    }
    // Where they cannot be taken away, nothing leaves the private folder.
    faults.failOn(u"dropSpecialBits"_s, EIO);
    installOnce();
    EXPECT_EQ(error.domain(), u"TXUpdate"_s);
    EXPECT_EQ(error.localizedDescription(), u"The application could not be installed automatically."_s);
    EXPECT_TRUE(tx::test::namesIn(downloads).isEmpty());
    EXPECT_TRUE(QFileInfo::exists(cache + u"/MyApp.app"_s + helper));
}

TEST_F(WithoutInstaller, ApplicationWithoutAnExtensionGetsNoDot) {
    for (const auto &[folder, name] :
         {std::pair(u"MyApp"_s, u"MyApp 2.1"_s), std::pair(u"My App."_s, u"My App 2.1"_s),
          std::pair(u"My.App.app"_s, u"My.App 2.1.app"_s)}) {
        tx::test::makeBundle(path(u"new/"_s + folder), {.build = u"2000"_s});
        tx::test::makeArchive(cache + u"/MyApp - 2000.zip"_s, tx::test::ArchiveKind::Zip,
                              tx::test::entriesOf(path(u"new/"_s + folder)));
        calls = 0;
        installAndWait();
        EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
        EXPECT_THAT(tx::test::namesIn(*tx::downloadsDirectory()), testing::Contains(name))
            << folder.toStdString();
        EXPECT_EQ(workspace.revealed.last(), *tx::downloadsDirectory() + u'/' + name);
    }
}

TEST_F(WithoutInstaller, VersionCannotLeadOutOfDownloads) {
    update->setDisplayVersion(u"../../evil"_s);
    installAndWait();
    EXPECT_TRUE(QFileInfo(*tx::downloadsDirectory() + u"/MyApp ..-..-evil.app"_s).isDir());
}

TEST_F(WithoutInstaller, FailedMoveHasItsWords) {
    tx::test::FaultFileSystem faults;
    faults.failOn(u"move"_s, EACCES);
    installAndWait();
    EXPECT_EQ(error, TXError(u"TXUpdate"_s, 0, u"The application could not be installed automatically."_s, {},
                             u"To update, go to the website and download the latest version directly."_s));
    EXPECT_TRUE(alerts.isEmpty());
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("[TXUpdate] Fallback to moving the update into Downloads failed: "));
}

TEST_F(WithoutInstaller, ApplicationThatStandsInDownloadsAlreadyIsKept) {
    const QString target = *tx::downloadsDirectory() + u"/MyApp 2.1.app"_s;
    tx::test::writeFile(target + u"/kept"_s, "x");
    installAndWait();
    EXPECT_EQ(error.domain(), u"TXUpdate"_s);
    EXPECT_TRUE(QFileInfo::exists(target + u"/kept"_s));
}

TEST_F(WithoutInstaller, MissingDownloadsFolderIsTheSystemsError) {
    tx::test::FaultFileSystem faults;
    faults.failOn(u"createDirectory"_s, EROFS, u"Downloads"_s);
    installAndWait();
    EXPECT_EQ(error.domain(), u"NSPOSIXErrorDomain"_s);
    EXPECT_EQ(error.code(), EROFS);
}

TEST_F(Installing, UnknownArchiveTypeRunsIntoTheFallback) {
    tx::test::writeFile(cache + u"/MyApp.dmg"_s, "x");
    downloaded(cache + u"/MyApp.dmg"_s);
    installAndWait();
    EXPECT_EQ(
        error,
        TXError(u"TXUpdate"_s, 0, u"The application could not be installed automatically."_s,
                u"The archive MyApp.dmg is of a type that cannot be unpacked. Archives of these types can "
                "be: .zip, .tgz, .tar.gz, .tbz, .tar.bz, .tzst, .tar.zst, .tar."_s,
                u"To update, go to the website and download the latest version directly."_s));
    EXPECT_TRUE(exits.isEmpty());
    EXPECT_TRUE(alerts.isEmpty());
}

TEST_F(Installing, UpdateMayGoWhileItUnpacks) {
    // Unpacking waits until the test has let go of the update.
    std::binary_semaphore gate{0};
    std::atomic<bool> unpacks{false};
    tx::test::RecordingTasks tasks;
    tasks.runsForReal = true;
    tasks.failing = [&](const tx::TaskRequest &request) {
        if (request.program.endsWith(u"/TXUpdateUnpacker"_s)) {
            unpacks = true;
            gate.acquire();
        }
        return 0;
    };
    install();
    ASSERT_TRUE(waitUntil([&] { return unpacks.load(); }));
    update.reset();
    EXPECT_EQ(calls, 0) << "not while the update is being destroyed";
    ASSERT_TRUE(waitUntil([this] { return calls > 0; }));
    EXPECT_EQ(error.domain(), TXCocoaErrorDomain);
    EXPECT_EQ(error.code(), TXErrorCancelled);

    // Something is still written to the folder, so nobody else gets it.
    TXUpdate other;
    other.setDownloadPath(cache + u"/MyApp - 2000.zip"_s);
    other.setDownloaded(true);
    TXError refused;
    other.installWithErrorHandler([&](const TXError &e) { refused = e; });
    ASSERT_TRUE(waitUntil([&] { return bool(refused); }));
    EXPECT_EQ(refused.underlyingError().code(), EWOULDBLOCK);

    gate.release();
    ASSERT_TRUE(waitUntil([this] { return folderIsFree(); }));
    tx::test::drainEvents();
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(exits.isEmpty()) << "nothing is handed over";
}

} // namespace
