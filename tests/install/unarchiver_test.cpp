// SPDX-License-Identifier: MIT
#include "model/host_p.h"
#include "os/filesystem.h"
#include "os/mainbundle.h"
#include "tests/install/unarchivertest.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::ArchiveEntry;
using tx::test::ArchiveKind;
using tx::test::Unarchiver;
using tx::test::UnarchiverKind;

namespace {

TEST_P(UnarchiverKind, UnpacksBesideTheArchiveWithModesAndLinks) {
    const auto entries = newBuild();
    unarchive(archive(GetParam(), entries));
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_TRUE(onMain);
    EXPECT_EQ(application, folder + u"/New.app"_s);
    EXPECT_EQ(tx::test::treeOf(application), tx::test::treeOf(path(u"staging/New.app"_s)));
}

INSTANTIATE_TEST_SUITE_P(Kinds, UnarchiverKind,
                         testing::Values(ArchiveKind::Zip, ArchiveKind::Tgz, ArchiveKind::Tbz,
                                         ArchiveKind::Tzst, ArchiveKind::Tar));

TEST_F(Unarchiver, CommandIsChosenBySuffixInAnyCase) {
    const QString zip = u"ditto -x -k - \"$TXUPDATE_UNARCHIVER_DESTINATION\""_s;
    const QString gzip = u"tar -zxC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_s;
    const QString bzip = u"tar -jxC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_s;
    const QString zstd = u"tar --zstd -xC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_s;
    const QList<std::pair<QString, QString>> cases{
        {u"a.zip"_s, zip},
        {u"Update.ZIP"_s, zip},
        {u"a.tgz"_s, gzip},
        {u"a.tar.gz"_s, gzip},
        {u"a.tbz"_s, bzip},
        {u"a.tar.bz"_s, bzip},
        {u"a.tzst"_s, zstd},
        {u"A.TAR.ZST"_s, zstd},
        {u"a.zst"_s, {}},
        {u"a.tar"_s, u"tar -xC \"$TXUPDATE_UNARCHIVER_DESTINATION\""_s},
        {u"a.tar.bz2"_s, {}},
        {u"a.tbz2"_s, {}},
        {u"App.tar - 5.gz"_s, {}},
        {u"a.dmg"_s, {}},
        {u"zip"_s, {}}};
    for (const auto &[name, command] : cases)
        EXPECT_EQ(TXUpdateUnarchiver::commandForFileName(name), command) << name.toStdString();
}

TEST_F(Unarchiver, UnknownTypeIsReportedAtOnceWithNeitherApplicationNorError) {
    bool called = false;
    TXUpdateUnarchiver::unarchive(path(u"a.dmg"_s), nullptr, [&](const QString &a, const TXError &e) {
        called = true;
        EXPECT_TRUE(a.isNull());
        EXPECT_TRUE(e.isNull());
    });
    EXPECT_TRUE(called) << "before the call returns";
    EXPECT_THAT(logLines(), testing::Contains(u"TXUpdate: Unarchiving could not happen. Unknown type."_s));
    EXPECT_THAT(logLines(),
                testing::Contains(u"TXUpdate: The archive a.dmg is of a type that cannot be unpacked. "
                                  "Archives of these types can be: .zip, .tgz, .tar.gz, .tbz, "
                                  ".tar.bz, .tzst, .tar.zst, .tar."_s));
}

TEST_F(Unarchiver, AbsentArchiveIsNamedAndRevealed) {
    unarchive(folder + u"/none.zip"_s);
    expectFailure(
        u"Could not open the archive. File does not exist at path %1"_s.arg(folder + u"/none.zip"_s));
    EXPECT_EQ(workspace.revealed, QStringList{folder + u"/none.zip"_s});
}

TEST_F(Unarchiver, UnreadableArchiveHasTheFixedNumberAndIsRevealed) {
    const QString file = archive(ArchiveKind::Zip, newBuild());
    ASSERT_EQ(chmod(file.toUtf8().constData(), 0), 0);
    const bool asRoot = geteuid() == 0;
    // Root may read everything; the background job runs as root then, so what cannot be opened is a loop of
    // links.
    if (asRoot) {
        QFile::remove(file);
        ASSERT_TRUE(QFile::link(file, file));
    }
    unarchive(file);
    expectFailure(u"Could not open the archive. Unknown error -54 (-54)"_s);
    EXPECT_EQ(workspace.revealed, QStringList{file});
}

TEST_F(Unarchiver, CorruptArchiveLeavesNoApplication) {
    for (const QByteArray &content : {QByteArray("neither"), QByteArray(), QByteArray(40000, '\x1f')}) {
        for (const QString &name : {u"a.zip"_s, u"a.tgz"_s, u"a.tbz"_s, u"a.tar"_s}) {
            completions = 0;
            tx::test::writeFile(folder + u'/' + name, content);
            unarchive(folder + u'/' + name);
            expectMissing(
                {u"Found: nothing. The archive is empty or damaged, or it is not of the type that its "
                 "name says."_s});
        }
    }
    // In the words of the program that unpacks it, which also go to the log.
    expectMissing({u"The tool that unpacks it says: tar: "_s});
    EXPECT_THAT(logLines(), testing::Contains(testing::Truly(
                                [](const QString &line) { return line.startsWith(u"TXUpdate: tar: "_s); })));
}

TEST_F(Unarchiver, OtherProductAndNestedFolderAreNotTaken) {
    const QString lookedFor =
        u"Looked for: an application with the identifier org.example.Host, build ?, which "
        "is not inside another folder (depth 0)."_s;
    unarchive(archive(ArchiveKind::Zip, newBuild(u"org.example.Other"_s)));
    expectMissing(
        {lookedFor, u"Found: New.app with the identifier org.example.Other, build 2000, depth 0."_s});
    QDir(folder).removeRecursively();
    auto nested = newBuild();
    for (ArchiveEntry &entry : nested)
        entry.name.prepend(u"Folder/"_s);
    completions = 0;
    unarchive(archive(ArchiveKind::Tgz, nested, u"Nested"_s));
    expectMissing(
        {lookedFor, u"Found: Folder/New.app with the identifier org.example.Host, build 2000, depth 1."_s});
}

TEST_F(Unarchiver, WhatWasLookedForAndFoundIsNamed) {
    struct Case {
        const char *what;
        std::function<void(const QString &)> make;
        QStringList expected, absent;
    };
    const auto bundle = [](const QString &name, const QString &identifier, const QString &build) {
        return [=](const QString &top) {
            tx::test::makeBundle(top + u'/' + name, {.identifier = identifier, .build = build});
        };
    };
    const Case cases[] = {
        {"no application",
         [](const QString &top) {
             for (const QString &name : {u"README"_s, u"b"_s, u"c"_s, u"d"_s, u"e"_s, u"f"_s})
                 tx::test::writeFile(top + u'/' + name, "x");
         },
         {u"Found: no application, but "_s, u"README"_s, u"; …."_s},
         {u"App.tar"_s}},
        {"three folders deep",
         bundle(u"a/b/c/My App.app"_s, hostIdentifier, u"7"_s),
         {u"Found: a/b/c/My App.app with the identifier org.example.Host, build 7, depth 3."_s},
         {}},
        {"four folders deep",
         bundle(u"a/b/c/d/My App.app"_s, hostIdentifier, u"7"_s),
         {u"Found: no application, but a."_s},
         {}},
        {"without identifier",
         [](const QString &top) { tx::test::writeFile(top + u"/X.app/Contents/Info.plist"_s, "nonsense"); },
         {u"Found: X.app with the identifier ?, build ?, depth 0."_s},
         {}},
        {"an application within one",
         [&](const QString &top) {
             bundle(u"Outer.app"_s, u"org.example.Outer"_s, u"1"_s)(top);
             bundle(u"Outer.app/Contents/Inner.app"_s, hostIdentifier, u"2"_s)(top);
         },
         {u"Found: Outer.app with the identifier org.example.Outer, build 1, depth 0."_s},
         {u"Inner.app"_s}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        QDir(folder).removeRecursively();
        QDir(path(u"made"_s)).removeRecursively();
        QDir().mkpath(folder);
        // What earlier installations have left there is not out of the archive.
        tx::test::makeBundle(folder + u"/TXUpdateInstaller.app"_s, {.identifier = u"org.example.Tool"_s});
        c.make(path(u"made/top"_s));
        QList<ArchiveEntry> entries = tx::test::entriesOf(path(u"made/top"_s));
        entries.removeIf(
            [](const ArchiveEntry &entry) { return entry.name == u"top"_s || entry.name == u"top/"_s; });
        for (ArchiveEntry &entry : entries)
            entry.name.remove(0, 4);
        completions = 0;
        wanted.build = u"2000"_s;
        unarchive(archive(ArchiveKind::Tar, entries));
        expectMissing(QStringList{u"Looked for: an application with the identifier org.example.Host, build "
                                  "2000, which"_s} +
                      c.expected);
        for (const QString &part : c.absent + QStringList{u"TXUpdateInstaller"_s})
            EXPECT_FALSE(error.localizedFailureReason().contains(part));
    }
}

TEST_F(Unarchiver, HostWithoutIdentifierIsToldWhatToAdd) {
    const QString bundle = path(u"Bare.app"_s);
    tx::test::writeFile(bundle + u"/Contents/Linux/Program"_s, "x");
    tx::setMainBundle(TXBundle(bundle));
    tx::resetHost();
    wanted = TXUpdateUnarchiver::forHost({});
    unarchive(archive(ArchiveKind::Zip, newBuild()));
    expectMissing({u"This application has no identifier by which a new version could be recognized. The file "
                   "%1/Contents/Info.plist does not exist or cannot be read. Add the file with the keys "
                   "CFBundleIdentifier and CFBundleVersion to the application."_s.arg(bundle)});
}

TEST_F(Unarchiver, LinkToAnApplicationIsNotTaken) {
    tx::test::makeBundle(path(u"outside/Real.app"_s), {});
    unarchive(archive(ArchiveKind::Tar, {{u"A.app"_s, ArchiveEntry::SymbolicLink,
                                          path(u"outside/Real.app"_s).toUtf8(), 0777}}));
    expectMissing({u"Found: nothing."_s, u"The tool that unpacks it says: tar: A.app: "_s});
}

TEST_F(Unarchiver, EntriesThatWouldLeaveTheFolderDoNot) {
    tx::test::writeFile(path(u"victim"_s), "kept");
    for (const ArchiveKind kind : {ArchiveKind::Zip, ArchiveKind::Tgz}) {
        completions = 0;
        auto entries = newBuild();
        entries.append({u"../victim"_s, ArchiveEntry::File, "bad", 0644});
        entries.append({path(u"absolute"_s), ArchiveEntry::File, "bad", 0644});
        entries.append({u"New.app/up"_s, ArchiveEntry::SymbolicLink, "../..", 0777});
        entries.append({u"New.app/up/victim"_s, ArchiveEntry::File, "bad", 0644});
        unarchive(archive(kind, entries));
        EXPECT_EQ(tx::test::readFile(path(u"victim"_s)), QByteArray("kept"));
        EXPECT_FALSE(QFileInfo::exists(path(u"absolute"_s)));
    }
}

TEST_F(Unarchiver, ApplicationWithASpecialFileIsNotTaken) {
    auto entries = newBuild();
    entries.append({u"New.app/Contents/pipe"_s, ArchiveEntry::Fifo, {}, 0644});
    entries.append({u"New.app/Contents/null"_s, ArchiveEntry::CharacterDevice, {}, 0666});
    unarchive(archive(ArchiveKind::Tgz, entries));
    expectMissing(
        {u"The tool that unpacks it says: tar: New.app/Contents/pipe: is no file that an application "
         "may hold"_s});
    // Nor is one that came there by another way.
    tx::test::makeBundle(path(u"found/Other.app"_s), {});
    ASSERT_EQ(mkfifo(QFile::encodeName(path(u"found/Other.app/Contents/pipe"_s)).constData(), 0600), 0);
    EXPECT_TRUE(TXUpdateUnarchiver::findUnarchivedApplicationInDirectory(path(u"found"_s)).isNull());
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("is no file that an application may hold"));
}

/// A command that unpacks as it should and then does something more to what it unpacked.
class MeddlingTasks : public tx::Tasks {
public:
    QByteArray script; ///< run with the folder as its argument
    MeddlingTasks() { tx::services().tasks = this; }
    ~MeddlingTasks() override { tx::services().tasks = &tx::nativeTasks(); }
    Q_DISABLE_COPY_MOVE(MeddlingTasks)
    tx::Result<std::unique_ptr<tx::Task>> start(const tx::TaskRequest &request) override {
        tx::TaskRequest more = request;
        more.program = u"/bin/sh"_s;
        more.arguments =
            QStringList{u"-c"_s,
                        u"folder=$1; shift; \"$@\" || exit; %1; exit 0"_s.arg(QString::fromUtf8(script)),
                        u"sh"_s, folder, request.program} +
            request.arguments;
        return tx::nativeTasks().start(more);
    }
    QString folder;
};

TEST_F(Unarchiver, WhatTheCommandUnpackedIsLookedThroughItself) {
    // The tools refuse such archives; the unarchiver does not rely on that.
    const struct {
        QByteArray script;
        const char *reason;
        bool refusedForRoot = true;
    } cases[] = {
        {"mkfifo \"$folder/New.app/Contents/pipe\"", "pipe is no file that an application may hold"},
        {"mkdir -p \"$folder/New.app/Contents/a/b\"; mkfifo \"$folder/New.app/Contents/a/b/deep\"",
         "a/b/deep is no file that an application may hold"},
        {"mkdir -m 0311 \"$folder/New.app/Contents/closed\"", "closed", false},
    };
    for (const auto &c : cases) {
        MeddlingTasks tasks;
        tasks.folder = folder;
        tasks.script = c.script;
        completions = 0;
        const QString file = archive(ArchiveKind::Tgz, newBuild());
        unarchive(file);
        if (geteuid() == 0 && !c.refusedForRoot) {
            EXPECT_EQ(application, folder + u"/New.app"_s) << "root may look into every folder";
        } else {
            expectMissing({QString::fromLatin1(c.reason), u". Found: New.app"_s});
            EXPECT_THAT(logLines().join(u'\n').toStdString(), testing::HasSubstr(c.reason));
        }
        EXPECT_TRUE(tx::services().fileSystem->remove(folder + u"/New.app"_s).isNull())
            << "whatever it holds";
        EXPECT_TRUE(QFile::remove(file));
    }
}

TEST_F(Unarchiver, ManyEntries) {
    // In memory: how fast a disk makes that many files is not what is tested.
    const QTemporaryDir memory(u"/dev/shm/tarvix-XXXXXX"_s);
    ASSERT_TRUE(memory.isValid());
    auto entries = newBuild();
    for (int i = 0; i < 100000; ++i)
        entries.append(
            {u"New.app/Contents/Resources/%1/%2"_s.arg(i / 1000).arg(i), ArchiveEntry::File, {}, 0644});
    tx::test::makeArchive(memory.filePath(u"App.tar"_s), ArchiveKind::Tar, entries);
    unarchive(memory.filePath(u"App.tar"_s));
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_TRUE(QFileInfo::exists(application + u"/Contents/Resources/99/99999"_s));
}

TEST_F(Unarchiver, StepsAreLogged) {
    const QString file = archive(ArchiveKind::Zip, newBuild());
    unarchive(file);
    EXPECT_EQ(logLines(),
              (QStringList{u"TXUpdate: Unarchive "_s + file, u"TXUpdate: Unarchiving: opening the file"_s}));
}

/// Passes removals on and keeps what was asked for.
class AttributeRecorder : public tx::test::FaultFileSystem {
public:
    QStringList touched;
    QList<QByteArray> names;
    TXError removeExtendedAttribute(const QString &path, const QByteArray &name) override {
        touched << path;
        if (!names.contains(name))
            names << name;
        return FaultFileSystem::removeExtendedAttribute(path, name);
    }
};

TEST_F(Unarchiver, QuarantineIsRemovedFromAnEntryAndBelowIt) {
    AttributeRecorder files;
    QStringList &touched = files.touched;
    tx::test::writeFile(path(u"q/deep/er/file"_s), "x");
    ASSERT_TRUE(QFile::link(path(u"home"_s), path(u"q/link"_s)));
    const QStringList marked{path(u"q"_s), path(u"q/deep/er"_s), path(u"q/deep/er/file"_s)};
    for (const QString &entry : marked) {
        const bool set = setxattr(entry.toUtf8().constData(), "user.com.apple.quarantine", "q", 1, 0) == 0;
        ASSERT_TRUE(set || errno == ENOTSUP) << entry.toStdString();
    }
    TXUpdateUnarchiver::releaseFromQuarantine(path(u"q"_s));
    for (const QString &entry : marked)
        EXPECT_LT(getxattr(entry.toUtf8().constData(), "user.com.apple.quarantine", nullptr, 0), 0);
    // Also where the file system has no such attributes.
    EXPECT_EQ(files.names, QList<QByteArray>{"user.com.apple.quarantine"});
    touched.sort();
    EXPECT_EQ(touched, (QStringList{path(u"q"_s), path(u"q/deep"_s), path(u"q/deep/er"_s),
                                    path(u"q/deep/er/file"_s), path(u"q/link"_s)}));
    touched.clear();
    TXUpdateUnarchiver::releaseFromQuarantine(path(u"q/link"_s));
    EXPECT_EQ(touched, QStringList{path(u"q/link"_s)}) << "a link is not followed";
}

TEST_F(Unarchiver, ArchiveLeavesQuarantineWhenItIsUnpacked) {
    AttributeRecorder files;
    const QString file = archive(ArchiveKind::Zip, newBuild());
    unarchive(file);
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_EQ(files.touched, QStringList{file});
}

TEST_F(Unarchiver, ApplicationIsFoundByIdentifierWhateverItsName) {
    tx::test::makeBundle(path(u"found/Other.app"_s), {.identifier = u"org.example.Other"_s});
    tx::test::writeFile(path(u"found/file"_s), "x");
    EXPECT_TRUE(TXUpdateUnarchiver::findUnarchivedApplicationInDirectory(path(u"found"_s)).isNull());
    tx::test::makeBundle(path(u"found/any name"_s), {});
    EXPECT_EQ(TXUpdateUnarchiver::findUnarchivedApplicationInDirectory(path(u"found"_s)),
              path(u"found/any name"_s));
    EXPECT_TRUE(TXUpdateUnarchiver::findUnarchivedApplicationInDirectory(path(u"none"_s)).isNull());
}

} // namespace
