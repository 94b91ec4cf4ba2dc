// SPDX-License-Identifier: MIT
#include "tests/mover/appmovertest.h"

using namespace Qt::StringLiterals;
using tx::test::AppMover;
using tx::test::namesIn;
using tx::test::previousKey;
using tx::test::suppressionKey;
using tx::test::treeOf;

namespace {

TEST_F(AppMover, ApplicationsFoldersAreLeftAlone) {
    for (const QString &folder : {u"home/Apps"_s, u"home/Apps/Sub"_s, u"opt/Maker"_s,
                                  u"Volumes/Data/Applications"_s, u"x/Applications/y"_s}) {
        startFrom(folder);
        EXPECT_EQ(ask(), 1) << folder.toStdString();
    }
    EXPECT_TRUE(alerts.isEmpty());
    EXPECT_TRUE(stored(previousKey).isNull()) << "the question was not reached";
    startFrom(u"x/My Applications"_s);
    answer = 1;
    EXPECT_EQ(ask(), 0) << "another name is another folder";
}

TEST_F(AppMover, DecliningIsRememberedForTheFolder) {
    answer = 1;
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(stored(previousKey), path(u"home/Loads"_s));
    EXPECT_EQ(ask(), 1) << "asked about this very place before";
    startFrom(u"home/Table"_s);
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(alerts.size(), 2);
    EXPECT_TRUE(stored(suppressionKey).isNull());
    EXPECT_TRUE(exits.isEmpty());
}

TEST_F(AppMover, TickedBoxAsksNothingUntilTheNextBuild) {
    answer = 1;
    ticks = true;
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(stored(suppressionKey), u"1042"_s);
    startFrom(u"home/Table"_s);
    EXPECT_EQ(ask(), 1);
    EXPECT_EQ(stored(previousKey), path(u"home/Loads"_s)) << "the first answer comes first";
    startFrom(u"home/Table"_s, u"1043"_s);
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(alerts.size(), 2);
}

TEST_F(AppMover, BoxDoesNotCountWhenTheMoveIsAccepted) {
    ticks = true;
    EXPECT_EQ(ask(), 1);
    EXPECT_EQ(exits, QList<int>{0});
    EXPECT_TRUE(stored(suppressionKey).isNull());
}

TEST_F(AppMover, QuestionHasItsTextsAndButtons) {
    answer = 1;
    EXPECT_EQ(ask(), 0);
    ASSERT_EQ(alerts.size(), 1);
    const tx::Alert &alert = alerts[0];
    EXPECT_EQ(alert.message, u"My Host is not in the Applications folder."_s);
    EXPECT_EQ(alert.informative,
              u"Rather than having My Host clutter up your downloads folder, would you like to move "
              "it into your Applications folder right now?"_s);
    EXPECT_EQ(alert.buttons, (QStringList{u"Move to Applications Folder"_s, u"Do Not Move"_s}));
    EXPECT_EQ(alert.suppressionText, u"Do not show this message again"_s);
    EXPECT_TRUE(alert.bringsToFront);
    EXPECT_EQ(tx::presentAlertInLog(alert), 1) << "without windows nobody said yes";
}

TEST_F(AppMover, QuestionNamesThePlace) {
    const auto textFrom = [this](const QString &folder, bool translocated = false) {
        return tx::moveQuestion(tx::ApplicationPlaces(path(folder + u"/Host.app"_s)), u"N"_s, translocated)
            .informative;
    };
    const auto rather = [](const QString &place, const QString &location) {
        return u"Rather than having N clutter up your %1, would you like to move it into your %2 folder right now?"_s
            .arg(place, location);
    };
    EXPECT_EQ(textFrom(u"home/Loads/sub"_s), rather(u"downloads folder"_s, u"Applications"_s));
    EXPECT_EQ(textFrom(u"mnt/Downloads"_s), rather(u"downloads folder"_s, u"Applications"_s));
    EXPECT_EQ(textFrom(u"home/Table/sub"_s), rather(u"Desktop folder"_s, u"Applications"_s));
    EXPECT_EQ(textFrom(u"mnt/Stuff"_s), rather(u"folder named \"Stuff\""_s, u"Applications"_s));
    EXPECT_EQ(textFrom(u"mnt/Downloads/Stuff"_s), rather(u"folder named \"Stuff\""_s, u"Applications"_s));
    EXPECT_EQ(textFrom(u"mnt/Stuff"_s, true),
              u"Would you like to move N into your Applications folder right now?"_s);
    files.failOn(u"isWritable"_s, EACCES, local);
    tx::test::ScriptedAuthorization authorization;
    EXPECT_EQ(textFrom(u"mnt/Stuff"_s, true),
              u"Would you like to move N into your Applications folder right now? Note "
              "that this will require an administrator password."_s);
    authorization.executes = false;
    EXPECT_EQ(textFrom(u"mnt/Stuff"_s, true),
              u"Would you like to move N into your Applications folder right now?"_s)
        << "nobody will be asked for a password";
    useUserFolder();
    EXPECT_EQ(textFrom(u"mnt/Stuff"_s), rather(u"folder named \"Stuff\""_s, u"~/Applications"_s));
}

TEST_F(AppMover, QuestionNamesThePlaceInTheUsersLanguage) {
    struct Case {
        QString language, folder, text;
    };
    for (
        const Case &c : {
            Case{
                u"de"_s, u"home/Loads"_s,
                u"N befindet sich im Ordner „Downloads“. Möchten Sie die Anwendung jetzt in den Ordner „Programme“ verschieben?"_s},
            Case{
                u"de"_s, u"home/Table"_s,
                u"N befindet sich auf dem Schreibtisch. Möchten Sie die Anwendung jetzt in den Ordner „Programme“ verschieben?"_s},
            Case{
                u"fr"_s, u"mnt/Stuff"_s,
                u"N se trouve dans le dossier «\u00A0Stuff\u00A0». Voulez-vous déplacer l’application dans votre dossier «\u00A0Applications\u00A0» maintenant\u00A0?"_s},
            Case{
                u"es"_s, u"home/Table"_s,
                u"N está en el escritorio. ¿Quiere mover la aplicación a su carpeta «Aplicaciones» ahora?"_s},
            Case{
                u"pt-BR"_s, u"home/Loads"_s,
                u"N está na pasta “Downloads”. Deseja mover o aplicativo para a sua pasta “Aplicativos” agora?"_s},
            Case{u"ru"_s, u"mnt/Stuff"_s,
                 u"N сейчас находится в папке «Stuff». Переместить приложение в папку «Программы»?"_s},
            Case{u"ja"_s, u"home/Table"_s,
                 u"Nは現在デスクトップにあります。今すぐ「アプリケーション」フォルダに移動しますか？"_s},
            Case{u"zh-Hans"_s, u"home/Loads"_s,
                 u"N 目前位于“下载”文件夹。要现在将它移到“应用程序”文件夹吗？"_s},
            Case{u"ar"_s, u"home/Table"_s,
                 u"N موجود على سطح المكتب. هل تريد نقل التطبيق إلى مجلد «التطبيقات» الآن؟"_s},
        }) {
        tx::services().preferredLanguages = [&] { return QStringList{c.language}; };
        const tx::ApplicationPlaces places(path(c.folder + u"/Host.app"_s));
        EXPECT_EQ(tx::moveQuestion(places, u"N"_s, false).informative, c.text);
    }
    // What is a path stays one.
    useUserFolder();
    const tx::ApplicationPlaces places(path(u"home/Loads/Host.app"_s));
    tx::services().preferredLanguages = [] { return QStringList{u"de"_s}; };
    EXPECT_TRUE(tx::moveQuestion(places, u"N"_s, false).informative.contains(u"„~/Applications“"_s));
}

TEST_F(AppMover, TextsComeFromTheirOwnTable) {
    qputenv("LC_ALL", "de_DE.UTF-8");
    tx::test::writeFile(
        path(u"home/Loads/Host.app/Contents/Resources/de.lproj/MoveApplication.strings"_s),
        "\"Do Not Move\" = \"Nein\"; \"%@ is not in the Applications folder.\" = \"%@ liegt falsch.\";");
    answer = 1;
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(alerts[0].message, u"My Host liegt falsch."_s);
    EXPECT_EQ(alerts[0].buttons[1], u"Nein"_s);
}

TEST_F(AppMover, PlaceIsInTheWordsOfTheTableThatTheQuestionComesFrom) {
    tx::services().preferredLanguages = [] { return QStringList{u"de"_s}; };
    const QString resources = u"home/Loads/%1.app/Contents/Resources/de.lproj/MoveApplication.strings"_s;
    const QByteArray question =
        "\"Rather than having %@ clutter up your %@, would you like to move it into your %@ folder right "
        "now?\" = \"%@ liegt in deinem %@. In deinen Ordner %@ bewegen?\";";
    const QByteArray shortQuestion =
        "\"Would you like to move %@ into your %@ folder right now?\" = \"%@ in deinen Ordner %@ bewegen?\";";
    const QByteArray words = "\"downloads folder\" = \"Ladeordner\"; \"Desktop folder\" = \"Tischordner\";"
                             "\"folder named \\\"%@\\\"\" = \"%@-Ordner\"; \"Applications\" = \"Apps\";";
    struct Case {
        const char *what;
        QByteArray table;
        QString folder, text;
        bool isTranslocated = false;
    };
    int number = 0;
    for (
        const Case &c :
        {Case{"the question alone", question, u"home/Loads"_s,
              u"N liegt in deinem downloads folder. In deinen Ordner Applications bewegen?"_s},
         Case{"the question alone", question, u"home/Table"_s,
              u"N liegt in deinem Desktop folder. In deinen Ordner Applications bewegen?"_s},
         Case{"the question alone", question, u"mnt/Stuff"_s,
              u"N liegt in deinem folder named \"Stuff\". In deinen Ordner Applications bewegen?"_s},
         Case{"with words", question + words, u"home/Loads"_s,
              u"N liegt in deinem Ladeordner. In deinen Ordner Apps bewegen?"_s},
         Case{"with words", question + words, u"mnt/Stuff"_s,
              u"N liegt in deinem Stuff-Ordner. In deinen Ordner Apps bewegen?"_s},
         Case{
             "words alone", words, u"home/Loads"_s,
             u"N befindet sich im Ordner „Downloads“. Möchten Sie die Anwendung jetzt in den Ordner „Programme“ verschieben?"_s},
         Case{"the short question alone", shortQuestion, u"home/Loads"_s,
              u"N in deinen Ordner Applications bewegen?"_s, true},
         Case{"the short question with words", shortQuestion + words, u"home/Loads"_s,
              u"N in deinen Ordner Apps bewegen?"_s, true}}) {
        // A table is read once, so each case has a host of its own.
        const QString host = u"Host%1"_s.arg(++number);
        startFrom(u"home/Loads"_s, u"1042"_s, host + u".app"_s);
        tx::test::writeFile(path(resources.arg(host)), c.table);
        const tx::ApplicationPlaces places(path(c.folder + u"/Host.app"_s));
        EXPECT_EQ(tx::moveQuestion(places, u"N"_s, c.isTranslocated).informative, c.text) << c.what;
    }
}

TEST_F(AppMover, UserFolderIsChosenOnlyWhenItHoldsAnApplication) {
    const auto chosen = [this] {
        bool isUser = false;
        const tx::ApplicationPlaces places(path(u"home/Loads/Host.app"_s));
        const QString folder = places.preferredInstallLocation(&isUser);
        EXPECT_EQ(places.destinationPath(), folder.isNull() ? QString() : folder + u"/Host.app"_s);
        return std::pair(folder, isUser);
    };
    const QString root = QFileInfo(path(u"."_s)).canonicalFilePath();
    EXPECT_EQ(chosen(), std::pair(root + u"/opt"_s, false)) << "missing";
    QDir().mkpath(user);
    EXPECT_EQ(chosen(), std::pair(root + u"/opt"_s, false)) << "empty";
    tx::test::writeFile(user + u"/notes.txt"_s, "x");
    EXPECT_EQ(chosen(), std::pair(root + u"/opt"_s, false)) << "without an application";
    useUserFolder();
    EXPECT_EQ(chosen(), std::pair(root + u"/home/Apps"_s, true));
    ASSERT_TRUE(QDir().rename(user, path(u"home/real"_s)));
    ASSERT_EQ(symlink("real", QFile::encodeName(user).constData()), 0);
    EXPECT_EQ(chosen(), std::pair(root + u"/home/real"_s, true)) << "links are resolved";
    QFile::remove(user);
    tx::test::writeFile(user, "a file");
    EXPECT_EQ(chosen(), std::pair(root + u"/opt"_s, false));
    QDir(local).removeRecursively();
    EXPECT_EQ(chosen(), std::pair(QString(), false)) << "there is none";
}

TEST_F(AppMover, UserFolderWithoutAnApplicationIsChosenWhereThereIsNoWayToRights) {
    tx::test::ScriptedAuthorization authorization;
    authorization.executes = false;
    const auto takesUser = [this] {
        bool isUser = false;
        const tx::ApplicationPlaces places(path(u"home/Loads/Host.app"_s));
        const QString folder = places.preferredInstallLocation(&isUser);
        EXPECT_EQ(folder, QFileInfo(isUser ? user : local).canonicalFilePath());
        return isUser;
    };
    QDir().mkpath(user);
    EXPECT_FALSE(takesUser()) << "this machine's folder can be written to";
    {
        tx::test::FaultFileSystem closed;
        closed.failOn(u"isWritable"_s, EACCES, local);
        EXPECT_TRUE(takesUser());
        tx::test::writeFile(user + u"/notes.txt"_s, "x");
        EXPECT_TRUE(takesUser()) << "without an application";
        authorization.executes = true;
        EXPECT_FALSE(takesUser()) << "there is a way";
        authorization.executes = false;
        closed.failOn(u"isWritable"_s, EACCES);
        EXPECT_FALSE(takesUser()) << "neither can be written to";
        closed.failOn(u"isWritable"_s, EACCES, local);
        QDir(user).removeRecursively();
        EXPECT_FALSE(takesUser()) << "it is not there";
        tx::test::writeFile(user, "a file");
        EXPECT_FALSE(takesUser()) << "nor is a file a folder";
        QFile::remove(user);
        QDir().mkpath(user);
        EXPECT_EQ(ask(), 1);
    }
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_THAT(alerts[0].informative.toStdString(), testing::HasSubstr("into your ~/Applications folder"));
    EXPECT_THAT(alerts[0].informative.toStdString(), testing::Not(testing::HasSubstr("password")));
    EXPECT_EQ(namesIn(user), QStringList{u"Host.app"_s}) << "and moved there";
    EXPECT_EQ(exits, QList<int>{0});
}

TEST_F(AppMover, DiskImageIsARemovableVolumeThatCannotBeWritten) {
    const tx::ApplicationPlaces places(path(u"mnt/Host.app"_s));
    EXPECT_FALSE(places.isInDiskImage()) << "no volume is known";
    tx::VolumeInfo volume{.rootPath = path(u"mnt"_s)};
    tx::services().volumeInfo = [&volume](const QString &) { return std::optional(volume); };
    QDir().mkpath(path(u"mnt"_s));
    volume.isRemovable = true;
    EXPECT_FALSE(places.isInDiskImage()) << "a writable one";
    files.failOn(u"isWritable"_s, EROFS, path(u"mnt"_s));
    EXPECT_EQ(places.diskImageVolumePath(), path(u"mnt"_s));
    volume.isRemovable = false;
    EXPECT_FALSE(places.isInDiskImage()) << "a fixed disk";
}

/// With a tool for disk images of the test's own.
class AppMoverImage : public AppMover {
protected:
    AppMoverImage() {
        tasks.runsForReal = true;
        tx::services().hdiutilPath = [this] { return path(u"hdiutil"_s); };
        tx::services().volumeInfo = [this](const QString &) {
            return std::optional(tx::VolumeInfo{.rootPath = path(u"it's mounted"_s), .isRemovable = true});
        };
        files.failOn(u"isWritable"_s, EROFS, path(u"it's mounted"_s));
        startFrom(u"it's mounted"_s);
    }
    void setImages(const QVariant &list) {
        setTool("cat <<'EOF'\n" + tx::writePropertyList(list) + "\nEOF\n");
    }
    void setTool(const QByteArray &script) {
        tx::test::writeFile(path(u"hdiutil"_s), "#!/bin/sh\n[ \"$*\" = 'info -plist' ] || exit 64\n" + script,
                            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    static QVariantMap image(const QString &file, const QStringList &mountPoints) {
        QVariantList entities{QVariantMap{{u"dev-entry"_s, u"/dev/loop7"_s}}};
        for (const QString &point : mountPoints)
            entities.append(QVariantMap{{u"mount-point"_s, point}});
        return {{u"image-path"_s, file}, {u"system-entities"_s, entities}};
    }
};

TEST_F(AppMoverImage, FileBehindAVolumeIsAskedOfTheTool) {
    const auto file = [this] {
        return tx::ApplicationPlaces::diskImageFileForVolumePath(path(u"it's mounted"_s));
    };
    setImages(
        QVariantMap{{u"images"_s, QVariantList{image(u"/a.img"_s, {u"/other"_s}),
                                               image(u"/b.img"_s, {u"/x"_s, path(u"it's mounted"_s)})}}});
    EXPECT_EQ(file(), u"/b.img"_s);
    EXPECT_TRUE(tx::ApplicationPlaces::diskImageFileForVolumePath({}).isNull());
    EXPECT_TRUE(tx::ApplicationPlaces::diskImageFileForVolumePath(u"/y"_s).isNull());
    setImages(QVariantList{});
    EXPECT_TRUE(file().isNull());
    for (const QByteArray script : {"echo nonsense", "exit 1", ":"}) {
        setTool(script);
        EXPECT_TRUE(file().isNull()) << script.constData();
    }
    QFile::remove(path(u"hdiutil"_s));
    EXPECT_TRUE(file().isNull());
}

TEST_F(AppMoverImage, QuestionNamesTheImage) {
    setImages(QVariantMap{
        {u"images"_s, QVariantList{image(u"/home/me/My Host.img"_s, {path(u"it's mounted"_s)})}}});
    answer = 1;
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(alerts[0].informative, u"My Host is running from inside of the disk image. You should move My "
                                     u"Host into your Applications folder "
                                     "and then delete the disk image file (My Host.img)."_s);
}

TEST_F(AppMoverImage, VolumeWithoutAnImageFileIsNotAskedAboutOne) {
    setImages(QVariantMap{{u"images"_s, QVariantList{}}});
    answer = 1;
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(alerts[0].informative,
              u"Would you like to move My Host into your Applications folder right now?"_s);
}

TEST_F(AppMoverImage, ImageIsDetachedAndDeletedInsteadOfTrashed) {
    setImages(
        QVariantMap{{u"images"_s, QVariantList{image(path(u"my host's.img"_s), {path(u"it's mounted"_s)})}}});
    tasks.failing = [](const tx::TaskRequest &task) { return task.program == u"/bin/sh" ? ENOENT : 0; };
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(tasks.started.last().arguments.value(1),
              u"(sleep 5 && hdiutil detach '%1' && rm '%2') &"_s.arg(path(u"it'\\''s mounted"_s),
                                                                     path(u"my host'\\''s.img"_s)));
    EXPECT_TRUE(workspace.trashed.isEmpty());
    EXPECT_EQ(exits, QList<int>{0}) << "failures of the shells are ignored";
    setTool("exit 1\n");
    QDir(local + u"/Host.app"_s).removeRecursively();
    tasks.started.clear();
    EXPECT_EQ(move(), 1);
    for (const tx::TaskRequest &task : tasks.started)
        EXPECT_FALSE(task.arguments.value(1).contains(u"detach"_s)) << "which file it is was not to be known";
    EXPECT_TRUE(workspace.trashed.isEmpty());
}

TEST_F(AppMoverImage, ImageStaysWhenTheDiskMayNotHoldTheCopy) {
    setImages(QVariantMap{{u"images"_s, QVariantList{image(path(u"my.img"_s), {path(u"it's mounted"_s)})}}});
    tasks.failing = [](const tx::TaskRequest &task) { return task.program == u"/bin/sh" ? ENOENT : 0; };
    files.failOn(u"syncFolder"_s, EIO);
    EXPECT_EQ(move(), -1);
    EXPECT_TRUE(exits.isEmpty());
    for (const tx::TaskRequest &task : tasks.started)
        EXPECT_NE(task.program, u"/bin/sh"_s) << task.arguments.value(1).toStdString();
    EXPECT_TRUE(QFileInfo::exists(path(u"it's mounted/Host.app"_s)));
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_THAT(alerts.last().informative.toStdString(),
                testing::HasSubstr("the disk may not hold the copy"));
}

TEST_F(AppMover, MovesRelaunchesAndDisposesOfTheOldCopy) {
    const QString old = startFrom(u"home/Loads"_s, u"1042"_s, u"it's \"new\" $HOME.app"_s);
    const QStringList content = treeOf(old);
    const QString moved = QFileInfo(local).canonicalFilePath() + u"/it's \"new\" $HOME.app"_s;
    bool relaunchedFirst = false;
    tasks.failing = [&](const tx::TaskRequest &task) {
        relaunchedFirst |= task.program == u"/bin/sh" && QFileInfo::exists(old);
        return 0;
    };
    EXPECT_EQ(ask(), 1);
    EXPECT_EQ(exits, QList<int>{0});
    EXPECT_EQ(treeOf(moved), content);
    EXPECT_EQ(namesIn(local), QStringList{u"it's \"new\" $HOME.app"_s}) << "nothing else is left there";
    EXPECT_FALSE(QFileInfo::exists(old));
    EXPECT_EQ(namesIn(trash), QStringList{u"it's \"new\" $HOME.app"_s});
    EXPECT_TRUE(relaunchedFirst);
    EXPECT_EQ(programs(),
              (QStringList{u"xattr -d -r com.apple.quarantine "_s + moved,
                           u"sh -c (while [ `ps -p %1 | wc -l` -gt 1 ]; do sleep 0.1; done; open '%2') &"_s
                               .arg(QCoreApplication::applicationPid())
                               .arg(QString(moved).replace(u'\'', u"'\\''"_s))}));
    EXPECT_TRUE(tasks.started[1].ownSession);
    EXPECT_TRUE(logLines().isEmpty()) << logLines().join(u'\n').toStdString();
}

TEST_F(AppMover, WhatComesAfterwardsUsesTheToolsOfTheMovedCopy) {
    const QString own = path(u"home/Loads/Host.app/Contents/Frameworks/TarvixUpdate/Resources"_s);
    const QString moved =
        QFileInfo(local).canonicalFilePath() + u"/Host.app/Contents/Frameworks/TarvixUpdate/Resources"_s;
    for (const auto &[resources, first] :
         {std::pair(own, moved), std::pair(u"/usr/lib/T"_s, u"/usr/lib/T"_s)}) {
        startFrom(u"home/Loads"_s);
        QDir(local + u"/Host.app"_s).removeRecursively();
        tx::services().resourcesPath = [resources = resources] { return resources; };
        EXPECT_EQ(move(), 1);
        const QStringList environment = tasks.started.last().environment.value_or(QStringList());
        EXPECT_TRUE(environment.filter(u"PATH="_s).last().startsWith(u"PATH="_s + first + u':'))
            << environment.filter(u"PATH="_s).join(u' ').toStdString();
    }
}

TEST_F(AppMover, WhatStandsAtTheDestinationGoesToTheTrash) {
    const QString destination = local + u"/Host.app"_s;
    const std::function<void()> kinds[] = {
        [&] { tx::test::makeBundle(destination, {.build = u"7"_s}); },
        [&] { tx::test::writeFile(destination, "a file"); },
        [&] { ASSERT_EQ(symlink("/usr", QFile::encodeName(destination).constData()), 0); },
    };
    for (const auto &make : kinds) {
        startFrom(u"home/Loads"_s);
        QDir(destination).removeRecursively();
        make();
        workspace.trashed.clear();
        EXPECT_EQ(move(), 1);
        EXPECT_EQ(TXBundle(destination).infoString(u"CFBundleVersion"_s), u"1042"_s);
        EXPECT_EQ(workspace.trashed.size(), 2) << "and the old copy";
        EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
    }
}

TEST_F(AppMover, RunningCopyAtTheDestinationIsOpenedInstead) {
    const QString destination = QFileInfo(local).canonicalFilePath() + u"/Host.app"_s;
    tx::test::makeBundle(destination, {.build = u"7"_s});
    workspace.running = {destination + u"/Contents/Linux/helper"_s};
    const QStringList before = treeOf(path(u"home/Loads/Host.app"_s));
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(exits, QList<int>{0});
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts[0].message, u"A copy of My Host in the Applications folder is already running."_s);
    EXPECT_EQ(alerts[0].informative,
              u"If you want to replace the existing copy, first quit it and then relaunch this "
              "copy. This copy of My Host will now quit."_s);
    EXPECT_EQ(alerts[0].buttons, QStringList{u"Quit"_s});
    EXPECT_EQ(programs(), QStringList{u"open "_s + destination});
    EXPECT_EQ(TXBundle(destination).infoString(u"CFBundleVersion"_s), u"7"_s);
    EXPECT_EQ(treeOf(path(u"home/Loads/Host.app"_s)), before);
    workspace.running = {destination + u"2/Contents/Linux/other"_s};
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(TXBundle(destination).infoString(u"CFBundleVersion"_s), u"1042"_s) << "a neighbour is no copy";
}

TEST_F(AppMover, FailureLeavesEverythingAsItWas) {
    const QString destination = QFileInfo(local).canonicalFilePath() + u"/Host.app"_s;
    struct Case {
        QString operation;
        int number;
        bool replaces;
    };
    for (const Case &c :
         {Case{u"copy"_s, ENOSPC, false}, Case{u"copy"_s, EACCES, true}, Case{u"sync"_s, EIO, true},
          Case{u"move"_s, EIO, false}, Case{u"remove"_s, EACCES, false}}) {
        QDir(destination).removeRecursively();
        if (c.replaces)
            tx::test::makeBundle(destination, {.build = u"7"_s});
        const QStringList before = treeOf(local);
        const QStringList own = treeOf(path(u"home/Loads/Host.app"_s));
        tx::test::FaultFileSystem faults;
        faults.failOn(c.operation, c.number, u".txupdate-move"_s);
        if (c.operation == u"move")
            faults.failOn(u"move"_s, c.number);
        alerts.clear();
        EXPECT_EQ(move(), -1) << c.operation.toStdString();
        EXPECT_EQ(treeOf(local), before) << c.operation.toStdString();
        EXPECT_EQ(treeOf(path(u"home/Loads/Host.app"_s)), own);
        ASSERT_EQ(alerts.size(), 1);
        EXPECT_EQ(alerts[0].message, u"Could not move to Applications folder."_s);
        EXPECT_EQ(
            alerts[0].informative,
            u"The application could not be copied to the folder %1: %2. It is still where it was."_s.arg(
                QFileInfo(local).canonicalFilePath(), QString::fromLocal8Bit(std::strerror(c.number))));
        EXPECT_TRUE(logLines().contains(u"ERROR -- Could not copy myself to "_s + destination));
        EXPECT_TRUE(workspace.trashed.isEmpty()) << "nothing went away before the copy was complete";
    }
    EXPECT_TRUE(exits.isEmpty());
    EXPECT_TRUE(logLines()[0].startsWith(u"ERROR -- Could not copy '"_s)) << logLines()[0].toStdString();
}

TEST_F(AppMover, TrashThatFailsIsAFailureAndNoDeletion) {
    const QString destination = local + u"/Host.app"_s;
    tx::test::makeBundle(destination, {.build = u"7"_s});
    workspace.trashFails = true;
    EXPECT_EQ(move(), -1);
    EXPECT_EQ(TXBundle(destination).infoString(u"CFBundleVersion"_s), u"7"_s);
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
    EXPECT_EQ(
        alerts.last().informative,
        u"What is at %1/Host.app already could not be moved to the Trash: %2. Remove it yourself, then try "
        "again."_s.arg(QFileInfo(local).canonicalFilePath(), QString::fromLocal8Bit(std::strerror(EIO))));
    EXPECT_TRUE(logLines()[0].startsWith(u"ERROR -- Could not trash '"_s)) << logLines()[0].toStdString();
    QDir(destination).removeRecursively();
    EXPECT_EQ(move(), 1) << "the old copy stays, and the moved one is opened";
    EXPECT_EQ(exits, QList<int>{0});
    EXPECT_EQ(logLines().last(),
              u"WARNING -- Could not delete application after moving it to Applications folder"_s);
    EXPECT_TRUE(QFileInfo::exists(path(u"home/Loads/Host.app"_s)));
}

TEST_F(AppMover, WhatStoodThereComesBackWhenTheCopyCannotTakeItsName) {
    const QString destination = QFileInfo(local).canonicalFilePath() + u"/Host.app"_s;
    tx::test::makeBundle(destination, {.build = u"7"_s});
    const QStringList older = treeOf(destination);
    // A file system that cannot exchange two entries, and where the first rename to that name fails.
    files.decide = [destination, renames = 0](const QString &operation, const QString &to) mutable {
        if (operation == u"exchange")
            return EINVAL;
        return operation == u"rename" && to == destination && ++renames == 1 ? EIO : 0;
    };
    EXPECT_EQ(move(), -1);
    EXPECT_EQ(treeOf(destination), older);
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
    EXPECT_TRUE(workspace.trashed.isEmpty());
}

TEST_F(AppMover, LeftoversOfAKilledMoveAreCleared) {
    tx::test::writeFile(local + u"/.Host.app.txupdate-move/Contents/half"_s, "x");
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
    EXPECT_FALSE(QFileInfo::exists(local + u"/Host.app/Contents/half"_s));
}

} // namespace
