// SPDX-License-Identifier: MIT
#include "mover/menuentry.h"

#include "base/queues.h"
#include "mover/desktopentry.h"
#include "os/directories.h"
#include "tests/mover/menuentrytest.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <grp.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using tx::MenuEntryOutcome;
using tx::test::readFile;
using tx::test::runProcess;
using tx::test::waitUntil;
using tx::test::writeFile;

namespace {

using MenuEntry = tx::test::MenuEntryTest;
using tx::test::svg;

/// The beginning of a picture in the PNG format with these sides.
QByteArray png(int width, int height) {
    QByteArray picture("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
    for (const int side : {width, height}) {
        for (const int shift : {24, 16, 8, 0})
            picture += char(side >> shift);
    }
    return picture + "rest";
}

TEST_F(MenuEntry, ApplicationGetsEntryIconAndMimeTypesThatTheDesktopsProgramsAccept) {
    EXPECT_EQ(tx::putMenuEntry(makeWhole()), MenuEntryOutcome::Current);
    expectValid();
    EXPECT_EQ(value(u"Name"_s), u"Host 1042"_s);
    EXPECT_EQ(value(u"Icon"_s), u"org.example.Host"_s);
    EXPECT_EQ(value(u"MimeType"_s), u"application/x-txu-one;"_s);
    EXPECT_EQ(value(u"Categories"_s), u"Office;"_s);
    EXPECT_TRUE(readFile(icon(u"scalable"_s)).startsWith(svg));
    // What the real programs made of it.
    EXPECT_TRUE(readFile(data + u"/mime/globs2"_s).contains(":application/x-txu-one:*.one\n"));
    EXPECT_TRUE(readFile(data + u"/applications/mimeinfo.cache"_s)
                    .contains("application/x-txu-one=org.example.Host.desktop;"));
    for (const QString &file : {entryPath, icon(u"scalable"_s), package()}) {
        struct stat info {};
        ASSERT_EQ(stat(QFile::encodeName(file).constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0644U) << file.toStdString();
    }
}

TEST_F(MenuEntry, DesktopStartsApplicationsWithAnyName) {
    for (const QString &name : {u"Plain.app"_s, u"My \"App\" it's.app"_s, u"a $HOME `x` b.app"_s,
                                u"back\\slash \\n.app"_s, u"100% %F.app"_s, u"\u00e4 (x) & ; #.app"_s}) {
        SCOPED_TRACE(name.toStdString());
        bundlePath = applications + u'/' + name;
        const QString out = path(u"out"_s);
        QFile::remove(out);
        make(documents(), u"1042"_s,
             "#!/bin/sh\nprintf '<%s>' \"$@\" > '" + out.toUtf8() + ".new'\nmv '" + out.toUtf8() + ".new' '" +
                 out.toUtf8() + "'\n");
        ASSERT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current);
        expectValid();
        const QString document = path(u"a document.one"_s);
        writeFile(document, "x");
        const auto result = runProcess(u"gio"_s, {u"launch"_s, entryPath, document});
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        ASSERT_TRUE(waitUntil([&] { return QFileInfo::exists(out); }));
        EXPECT_EQ(readFile(out), '<' + document.toUtf8() + '>');
        // TryExec: the entry is no application any more when the program is gone.
        ASSERT_TRUE(QDir(bundlePath).removeRecursively());
        EXPECT_NE(runProcess(u"gio"_s, {u"launch"_s, entryPath}).status, 0);
    }
}

TEST_F(MenuEntry, OwnEntryAndIconsAreFoundInTheOtherLayout) {
    bundlePath = applications + u"/myhost"_s;
    make({{u"CFBundleIconFile"_s, u"host.png"_s}});
    ASSERT_TRUE(QDir().rename(bundlePath + u"/Contents/Linux"_s, bundlePath + u"/Contents/bin"_s));
    addResource(u"share/applications/host.desktop"_s,
                "[Desktop Entry]\nType=Application\nName=Mine\nExec=Program\n");
    addResource(u"share/applications/zzz.desktop"_s, "nothing");
    addResource(u"share/icons/hicolor/48x48/apps/host.png"_s, png(48, 48));
    addResource(u"share/icons/hicolor/256x256/apps/host.png"_s, png(256, 256));
    EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current);
    expectValid();
    EXPECT_EQ(value(u"Name"_s), u"Mine"_s);
    EXPECT_EQ(value(u"Icon"_s), u"org.example.Host"_s);
    EXPECT_EQ(value(u"TryExec"_s), bundlePath + u"/Contents/bin/Program"_s);
    EXPECT_EQ(readFile(icon(u"48x48"_s, u"png"_s)), png(48, 48));
    EXPECT_EQ(readFile(icon(u"256x256"_s, u"png"_s)), png(256, 256));
}

TEST_F(MenuEntry, PictureThatTheThemeHasNoPlaceForIsNamedByItsPath) {
    const struct {
        const char *name;
        QByteArray content;
        bool isUsed;
    } cases[] = {{"i.png", png(300, 300), true},   {"i.png", png(48, 32), true},
                 {"i.png", "no picture", false},   {"i.png", png(48, 48).left(20), false},
                 {"../../Info.plist", svg, false}, {".svg", svg, false}};
    for (const auto &each : cases) {
        make({{u"CFBundleIconFile"_s, QString::fromLatin1(each.name)}});
        if (!QByteArray(each.name).contains("Info"))
            addResource(u"Resources/"_s + QString::fromLatin1(each.name), each.content);
        EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current);
        EXPECT_EQ(value(u"Icon"_s), each.isUsed ? bundlePath + u"/Contents/Resources/i.png"_s : QString())
            << each.name;
        EXPECT_FALSE(QFileInfo::exists(data + u"/icons"_s));
    }
    // A link leads out of the bundle.
    make({{u"CFBundleIconFile"_s, u"i.svg"_s}});
    writeFile(path(u"secret.svg"_s), svg);
    QDir().mkpath(bundlePath + u"/Contents/Resources"_s);
    ASSERT_TRUE(QFile::link(path(u"secret.svg"_s), bundlePath + u"/Contents/Resources/i.svg"_s));
    EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current);
    EXPECT_FALSE(QFileInfo::exists(data + u"/icons"_s));
}

TEST_F(MenuEntry, NewVersionReplacesEntryAndRemovesWhatItNoLongerHas) {
    const tx::test::RecordingTasks tasks;
    ASSERT_EQ(tx::putMenuEntry(makeWhole(u"1"_s)), MenuEntryOutcome::Current);
    ASSERT_EQ(tx::putMenuEntry(makeWhole(u"2"_s)), MenuEntryOutcome::Current);
    EXPECT_EQ(value(u"Name"_s), u"Host 2"_s);
    EXPECT_TRUE(readFile(icon(u"scalable"_s)).contains("<!-- 2 -->"));
    make({}, u"3"_s);
    ASSERT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current);
    EXPECT_EQ(value(u"Name"_s), u"My Host"_s);
    EXPECT_FALSE(QFileInfo::exists(icon(u"scalable"_s)));
    EXPECT_FALSE(QFileInfo::exists(package()));
    expectValid();
}

TEST_F(MenuEntry, OnlyTheDatabasesOfWhatChangedAreUpdated) {
    const auto programs = [this](const std::function<void()> &put) {
        tx::test::RecordingTasks tasks;
        put();
        QStringList names;
        for (const tx::TaskRequest &task : tasks.started)
            names << task.program;
        return names;
    };
    const auto put = [this] { EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current); };
    makeWhole();
    EXPECT_EQ(programs(put), (QStringList{u"update-mime-database"_s, u"gtk-update-icon-cache"_s,
                                          u"update-desktop-database"_s}));
    EXPECT_EQ(programs(put), QStringList());
    addResource(u"Resources/host.svg"_s, svg + "other");
    EXPECT_EQ(programs(put), QStringList{u"gtk-update-icon-cache"_s});
}

TEST_F(MenuEntry, MissingDatabaseProgramsAreNoError) {
    tx::test::RecordingTasks tasks;
    tasks.failing = [](const tx::TaskRequest &) { return ENOENT; };
    EXPECT_EQ(tx::putMenuEntry(makeWhole()), MenuEntryOutcome::Current);
    EXPECT_EQ(tasks.started.size(), 3);
    EXPECT_FALSE(entry().isEmpty());
    EXPECT_TRUE(logLines().isEmpty()) << logLines().join(u'\n').toStdString();
}

TEST_F(MenuEntry, FilesOfOthersAreNeverChanged) {
    const tx::test::RecordingTasks tasks;
    // An entry without our key, a link and a folder in its place.
    makeWhole();
    const QByteArray foreign = "[Desktop Entry]\nType=Application\nName=Theirs\nExec=theirs\n";
    writeFile(entryPath, foreign);
    EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::LeftAlone);
    EXPECT_EQ(entry(), foreign);
    EXPECT_FALSE(QFileInfo::exists(data + u"/icons"_s)) << "nothing else is written either";
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("was not written by this application"));
    ASSERT_TRUE(QFile::remove(entryPath));
    ASSERT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current);
    const QByteArray own = entry();
    ASSERT_TRUE(QFile::rename(entryPath, path(u"kept.desktop"_s)));
    ASSERT_TRUE(QFile::link(path(u"kept.desktop"_s), entryPath));
    makeWhole(u"2"_s);
    EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::LeftAlone)
        << "a link is the user's work";
    EXPECT_EQ(readFile(path(u"kept.desktop"_s)), own);
    // Icon and MIME types with our names, which no entry of ours lists.
    ASSERT_TRUE(QFile::remove(entryPath));
    writeFile(icon(u"scalable"_s), "theirs");
    writeFile(package(), "theirs");
    EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current);
    EXPECT_EQ(readFile(icon(u"scalable"_s)), "theirs");
    EXPECT_EQ(readFile(package()), "theirs");
    EXPECT_EQ(value(u"Icon"_s), bundlePath + u"/Contents/Resources/host.svg"_s);
    const auto removed = tx::removeMenuEntry(bundlePath);
    ASSERT_TRUE(removed);
    EXPECT_EQ(*removed, QStringList{entryPath});
    EXPECT_EQ(readFile(package()), "theirs");
}

TEST_F(MenuEntry, EachFailingStepLeavesTheEarlierEntryOrNone) {
    const tx::test::RecordingTasks tasks;
    const QStringList changes{u"createDirectory"_s, u"replaceFile"_s, u"remove"_s};
    for (const bool isFirst : {true, false}) {
        int failures = 0;
        for (int failing = 1; failing < 20; ++failing) {
            QDir(data).removeRecursively();
            files.decide = nullptr;
            QByteArray earlier;
            if (!isFirst) {
                ASSERT_EQ(tx::putMenuEntry(makeWhole(u"1"_s)), MenuEntryOutcome::Current);
                earlier = entry();
            }
            QVariantMap more{{u"CFBundleIconFile"_s, u"host.png"_s}};
            make(more, u"2"_s);
            addResource(u"Resources/host.png"_s, png(48, 48));
            int step = 0;
            files.decide = [&](const QString &operation, const QString &) {
                return changes.contains(operation) && ++step == failing ? ENOSPC : 0;
            };
            const MenuEntryOutcome outcome = tx::putMenuEntry(TXBundle(bundlePath));
            files.decide = nullptr;
            if (step < failing)
                break;
            ++failures;
            EXPECT_EQ(outcome, MenuEntryOutcome::Failed) << failing;
            const QByteArray now = entry();
            const bool isNew = tx::entryValue(now, u"Name"_s) == u"My Host";
            EXPECT_TRUE(now == earlier || isNew) << now.constData();
            if (!isNew && !isFirst) {
                EXPECT_TRUE(QFileInfo::exists(icon(u"scalable"_s))) << "the earlier entry needs it";
            }
            EXPECT_THAT(logLines().last().toStdString(), testing::HasSubstr("could not be written"));
            EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current)
                << "the next start repairs it";
            EXPECT_EQ(value(u"Icon"_s), u"org.example.Host"_s);
            EXPECT_TRUE(QFileInfo::exists(icon(u"48x48"_s, u"png"_s)));
            EXPECT_FALSE(QFileInfo::exists(icon(u"scalable"_s))) << failing;
        }
        EXPECT_GE(failures, 4);
    }
}

TEST_F(MenuEntry, ApplicationsThatNoEntryCanNameGetNone) {
    const struct {
        const char *what;
        QString bundle;
        QVariantMap info;
    } cases[] = {{"line feed", u"a\nExec=evil.app"_s, {}},
                 {"equals sign", u"a=b.app"_s, {}},
                 {"identifier", u"a.app"_s, {{u"CFBundleIdentifier"_s, u"../../evil"_s}}},
                 {"identifier with line feed", u"a.app"_s, {{u"CFBundleIdentifier"_s, u"org.example.x\n"_s}}},
                 {"no executable", u"a.app"_s, {{u"CFBundleExecutable"_s, u"../../../evil"_s}}}};
    for (const auto &each : cases) {
        bundlePath = applications + u'/' + each.bundle;
        EXPECT_EQ(tx::putMenuEntry(make(each.info)), MenuEntryOutcome::LeftAlone) << each.what;
        EXPECT_FALSE(QFileInfo::exists(data)) << each.what;
    }
}

TEST_F(MenuEntry, HostileInfoListAddsNoLine) {
    make({{u"CFBundleName"_s, u"x\nExec=/bin/evil\n[Desktop Action y]"_s},
          {u"CFBundleDisplayName"_s, u" \n"_s},
          {u"CFBundleIconFile"_s, u"x\nExec=/bin/evil"_s},
          {u"CFBundleDocumentTypes"_s,
           QVariantList{QVariantMap{{u"CFBundleTypeName"_s, u"</comment><glob pattern=\"*\"/>"_s},
                                    {u"CFBundleTypeMIMETypes"_s,
                                     QStringList{u"application/x-b"_s, u"application/x-b\nExec=evil"_s}},
                                    {u"CFBundleTypeExtensions"_s, QStringList{u"one"_s, u"\"/><x"_s}}}}}});
    EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current);
    expectValid();
    EXPECT_EQ(entry().count("\nExec="), 1);
    EXPECT_EQ(entry().count('['), 2) << "the second one is in the name";
    EXPECT_EQ(value(u"MimeType"_s), u"application/x-b;"_s);
    EXPECT_EQ(readFile(package()).count("<glob"), 1);
}

TEST_F(MenuEntry, FolderThatOthersCanChangeGetsNone) {
    // As root: the home of the user for whom root runs. Everybody: a folder that others may write to.
    makeWhole();
    QDir().mkpath(data);
    const QByteArray folder = QFile::encodeName(data);
    ASSERT_EQ(geteuid() == 0 ? chown(folder.constData(), 65534, 65534) : chmod(folder.constData(), 0777), 0);
    EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Failed);
    EXPECT_TRUE(tx::test::namesIn(data).isEmpty());
    // Not even a folder is made there.
    tx::services().folders.data = [this] { return data + u"/new/share"_s; };
    EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Failed);
    EXPECT_TRUE(tx::test::namesIn(data).isEmpty());
}

TEST_F(MenuEntry, ThereIsNoMenuInASandbox) {
    EXPECT_EQ(tx::menuDataDirectory(), path(u"home/.local/share"_s));
    for (const char *variable : {"FLATPAK_ID", "SNAP"}) {
        qputenv(variable, "x");
        EXPECT_TRUE(tx::menuDataDirectory().isNull()) << variable;
        qunsetenv(variable);
    }
    qputenv("XDG_DATA_HOME", "relative");
    EXPECT_EQ(tx::menuDataDirectory(), path(u"home/.local/share"_s)) << "the standard ignores such a value";
    tx::services().folders.data = [] { return QString(); };
    EXPECT_FALSE(tx::belongsInMenu(makeWhole()));
}

TEST_F(MenuEntry, OnlyApplicationsInAnApplicationsFolderBelongInTheMenu) {
    const auto belongs = [this](const QString &place, const QVariantMap &info = {}) {
        bundlePath = place;
        return tx::belongsInMenu(make(info));
    };
    EXPECT_TRUE(belongs(applications + u"/A.app"_s));
    EXPECT_TRUE(belongs(path(u"opt/A.app"_s)));
    EXPECT_TRUE(belongs(path(u"disk/Applications/more/A.app"_s)));
    EXPECT_FALSE(belongs(path(u"home/Downloads/A.app"_s)));
    EXPECT_FALSE(belongs(path(u"opt2/A.app"_s))) << "a name that only begins like the folder";
    EXPECT_FALSE(belongs(path(u"x/Applications"_s))) << "the bundle's own name";
    EXPECT_FALSE(belongs(applications + u"/A.app"_s, {{u"TXUpdateDesktopEntry"_s, false}}));
    EXPECT_TRUE(belongs(applications + u"/A.app"_s, {{u"TXUpdateDesktopEntry"_s, true}}));
    EXPECT_FALSE(belongs(applications + u"/A.app"_s, {{u"CFBundleIdentifier"_s, u""_s}}));
    // The folder as a link to another disk; a running application knows its path without links.
    ASSERT_TRUE(QDir().mkpath(path(u"elsewhere"_s)));
    ASSERT_TRUE(QFile::link(path(u"elsewhere"_s), path(u"linked"_s)));
    tx::services().folders.userApplications = [this] { return path(u"linked"_s); };
    EXPECT_TRUE(belongs(QFileInfo(path(u"elsewhere"_s)).canonicalFilePath() + u"/A.app"_s));
}

TEST_F(MenuEntry, CopyThatHasTheEntryKeepsItAsLongAsItExists) {
    const tx::test::RecordingTasks tasks;
    const QString first = bundlePath;
    ASSERT_EQ(tx::putMenuEntry(makeWhole()), MenuEntryOutcome::Current);
    bundlePath = path(u"opt/My Host.app"_s);
    const TXBundle second = makeWhole();
    EXPECT_EQ(tx::putMenuEntry(second), MenuEntryOutcome::OtherCopy);
    EXPECT_EQ(value(tx::entryBundleKey), first);
    EXPECT_EQ(tx::putMenuEntry(second, first), MenuEntryOutcome::Current) << "it was moved from there";
    EXPECT_EQ(value(tx::entryBundleKey), bundlePath);
    bundlePath = first;
    ASSERT_TRUE(QDir(path(u"opt/My Host.app"_s)).removeRecursively());
    EXPECT_EQ(tx::putMenuEntry(makeWhole()), MenuEntryOutcome::Current);
    EXPECT_EQ(value(tx::entryBundleKey), first);
}

TEST_F(MenuEntry, RemovalTakesOnlyTheFilesOfTheEntry) {
    const tx::test::RecordingTasks tasks;
    ASSERT_EQ(tx::putMenuEntry(makeWhole()), MenuEntryOutcome::Current);
    const QString other = data + u"/applications/org.other.desktop"_s;
    writeFile(other, "[Desktop Entry]\nType=Application\nName=x\nExec=x\nX-TarvixUpdate-Bundle=/other\n");
    // Somebody added other files to the list.
    writeFile(path(u"home/share/precious"_s), "x");
    writeFile(data + u"/icons/hicolor/48x48/apps/theirs.png"_s, "x");
    writeFile(entryPath,
              entry().replace("X-TarvixUpdate-Files=",
                              "X-TarvixUpdate-Files=precious;../../precious;icons/hicolor/48x48/apps/"
                              "theirs.png;icons/hicolor/../../precious;"));
    // An entry of ours whose name is only the extension.
    const QString nameless = data + u"/applications/.desktop"_s;
    writeFile(nameless, entry());
    EXPECT_TRUE(tx::removeMenuEntry(path(u"nothing.app"_s))->isEmpty());
    const auto removed = tx::removeMenuEntry(bundlePath);
    ASSERT_TRUE(removed);
    EXPECT_THAT(*removed, testing::UnorderedElementsAre(entryPath, icon(u"scalable"_s), package(), nameless));
    EXPECT_FALSE(QFileInfo::exists(entryPath) || QFileInfo::exists(icon(u"scalable"_s)) ||
                 QFileInfo::exists(package()));
    EXPECT_TRUE(QFileInfo::exists(other));
    EXPECT_TRUE(QFileInfo::exists(path(u"home/share/precious"_s)));
    EXPECT_TRUE(QFileInfo::exists(data + u"/icons/hicolor/48x48/apps/theirs.png"_s));
    EXPECT_TRUE(tx::removeMenuEntry(bundlePath)->isEmpty());
}

TEST_F(MenuEntry, RemovalThatFailsCanBeRepeated) {
    const tx::test::RecordingTasks tasks;
    for (const QString &part : {u"scalable"_s, u"packages"_s, u".desktop"_s}) {
        ASSERT_EQ(tx::putMenuEntry(makeWhole()), MenuEntryOutcome::Current);
        files.decide = [&](const QString &operation, const QString &p) {
            return operation == u"remove" && p.contains(part) ? EROFS : 0;
        };
        EXPECT_FALSE(tx::removeMenuEntry(bundlePath));
        files.decide = nullptr;
        EXPECT_TRUE(QFileInfo::exists(entryPath)) << "it still lists the others";
        EXPECT_TRUE(tx::removeMenuEntry(bundlePath));
        EXPECT_FALSE(QFileInfo::exists(entryPath) || QFileInfo::exists(icon(u"scalable"_s)) ||
                     QFileInfo::exists(package()));
    }
}

} // namespace
