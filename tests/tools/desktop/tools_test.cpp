// SPDX-License-Identifier: MIT
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::ArchiveEntry;
using tx::test::ArchiveKind;
using tx::test::runProcess;

namespace {

QString tool(const QString &name) { return tx::test::resourcesFolder() + u'/' + name; }

class Ditto : public tx::test::FrameworkTest {
protected:
    const QString out = path(u"out"_s);

    Ditto() { QDir().mkpath(out); }
    tx::test::ProcessResult unpack(const QByteArray &archive) {
        return runProcess(tool(u"ditto"_s), {u"-x"_s, u"-k"_s, u"-"_s, out}, archive);
    }
    tx::test::ProcessResult unpack(const QList<ArchiveEntry> &entries) {
        tx::test::makeArchive(path(u"a.zip"_s), ArchiveKind::Zip, entries);
        return unpack(tx::test::readFile(path(u"a.zip"_s)));
    }
};

TEST_F(Ditto, RestoresModesAndLinksFromAPipe) {
    const auto result = unpack({{u"A.app/"_s, ArchiveEntry::Directory, {}, 0755},
                                {u"A.app/run"_s, ArchiveEntry::File, "#!/bin/sh\n", 0755},
                                {u"A.app/data"_s, ArchiveEntry::File, QByteArray(200000, 'x'), 0640},
                                {u"A.app/empty"_s, ArchiveEntry::File, "", 0600},
                                {u"A.app/link"_s, ArchiveEntry::SymbolicLink, "run", 0777},
                                {u"A.app/\u00FC \u65E5.txt"_s, ArchiveEntry::File, "u", 0644}});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    struct stat info {};
    ASSERT_EQ(lstat((out + u"/A.app/run"_s).toUtf8().constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755U);
    ASSERT_EQ(lstat((out + u"/A.app/data"_s).toUtf8().constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
    EXPECT_EQ(info.st_size, 200000);
    EXPECT_TRUE(QFileInfo(out + u"/A.app/link"_s).isSymLink());
    EXPECT_EQ(tx::test::readFile(out + u"/A.app/link"_s), QByteArray("#!/bin/sh\n"));
    EXPECT_EQ(tx::test::readFile(out + u"/A.app/\u00FC \u65E5.txt"_s), QByteArray("u"));
    EXPECT_EQ(tx::test::namesIn(out), QStringList{u"A.app"_s}) << "no spool is left";
}

TEST_F(Ditto, ReadsAFileWithoutSpooling) {
    tx::test::makeArchive(path(u"a.zip"_s), ArchiveKind::Zip, {{u"f"_s, ArchiveEntry::File, "x", 0755}});
    const auto result = runProcess(u"/bin/sh"_s, {u"-c"_s, u"\"$0\" -x -k - \"$1\" < \"$2\""_s,
                                                  tool(u"ditto"_s), out, path(u"a.zip"_s)});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(tx::test::readFile(out + u"/f"_s), QByteArray("x"));
}

TEST_F(Ditto, DamagedInputIsReported) {
    tx::test::makeArchive(path(u"a.zip"_s), ArchiveKind::Zip,
                          {{u"f"_s, ArchiveEntry::File, QByteArray(9999, 'x')}});
    const QByteArray whole = tx::test::readFile(path(u"a.zip"_s));
    for (const QByteArray &bad : {QByteArray(), QByteArray("no zip at all"), whole.left(whole.size() / 2)}) {
        const auto result = unpack(bad);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("ditto: "));
    }
}

TEST_F(Ditto, DropsWhatAnotherDesktopKeepsBeside) {
    EXPECT_EQ(
        unpack({{u"__MACOSX/._f"_s, ArchiveEntry::File, "x"}, {u"f"_s, ArchiveEntry::File, "x"}}).status, 0);
    EXPECT_EQ(tx::test::namesIn(out), QStringList{u"f"_s});
}

TEST_F(Ditto, MisusePrintsUsage) {
    for (const QStringList &words :
         {QStringList{}, QStringList{u"-x"_s, u"-k"_s, u"-"_s}, QStringList{u"-c"_s, u"-k"_s, u"-"_s, out},
          QStringList{u"-x"_s, u"-k"_s, u"file.zip"_s, out}}) {
        const auto result = runProcess(tool(u"ditto"_s), words);
        EXPECT_EQ(result.status, 64);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("usage: ditto"));
    }
    EXPECT_EQ(runProcess(tool(u"ditto"_s), {u"-x"_s, u"-k"_s, u"-"_s, path(u"none"_s)}).status, 1);
}

class Xattr : public tx::test::FrameworkTest {
protected:
    // The folder of temporary files may lie on a file system without user attributes.
    QTemporaryDir folder{u"/dev/shm/tarvix-XXXXXX"_s};
    bool mark(const QString &file, const char *name = "user.com.apple.quarantine") {
        tx::test::writeFile(file, "x");
        return setxattr(file.toUtf8().constData(), name, "q", 1, 0) == 0 || (perror("setxattr"), false);
    }
    static bool has(const QString &file) {
        return getxattr(file.toUtf8().constData(), "user.com.apple.quarantine", nullptr, 0) >= 0;
    }
};

TEST_F(Xattr, RemovesAnAttributeBelowAFolder) {
    const QString app = path(u"A.app"_s);
    tx::test::writeFile(app + u"/without"_s, "x");
    const bool supported = mark(app + u"/deep/with"_s);
    const auto result = runProcess(tool(u"xattr"_s), {u"-d"_s, u"-r"_s, u"com.apple.quarantine"_s, app});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_FALSE(has(app + u"/deep/with"_s));
    if (supported) {
        ASSERT_TRUE(mark(app + u"/named"_s));
        EXPECT_EQ(runProcess(tool(u"xattr"_s), {app + u"/named"_s}).output,
                  QByteArray("com.apple.quarantine\n"));
        EXPECT_EQ(
            runProcess(tool(u"xattr"_s), {u"-d"_s, u"com.apple.quarantine"_s, app + u"/named"_s}).status, 0);
        EXPECT_FALSE(has(app + u"/named"_s));
    }
}

TEST_F(Xattr, NamedFileWithoutTheAttributeIsAFailure) {
    tx::test::writeFile(path(u"f"_s), "x");
    const auto result = runProcess(tool(u"xattr"_s), {u"-d"_s, u"com.apple.quarantine"_s, path(u"f"_s)});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("No such xattr"));
    EXPECT_EQ(runProcess(tool(u"xattr"_s), {path(u"none"_s)}).status, 1);
}

TEST_F(Xattr, MisusePrintsUsage) {
    for (const QStringList &words : {QStringList{}, QStringList{u"-d"_s, u"name"_s},
                                     QStringList{u"-x"_s, u"f"_s}, QStringList{u"-r"_s, u"f"_s}}) {
        const auto result = runProcess(tool(u"xattr"_s), words);
        EXPECT_EQ(result.status, 64);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("usage: xattr"));
    }
}

class Open : public tx::test::FrameworkTest {};

TEST_F(Open, StartsABundleAndHandsTheRestToTheDesktop) {
    const QString app = path(u"A.app"_s);
    const tx::test::ProcessReaper reaper{app + u"/Contents/Linux/Program"_s};
    tx::test::makeBundle(app, {.program = "#!/bin/sh\ntouch '" + path(u"started"_s).toUtf8() + "'\n"});
    EXPECT_EQ(runProcess(tool(u"open"_s), {app + u'/'}).status, 0);
    ASSERT_TRUE(tx::test::waitUntil([this] { return QFileInfo::exists(path(u"started"_s)); }));
    // xdg-open is played by a script.
    tx::test::writeFile(path(u"bin/xdg-open"_s),
                        "#!/bin/sh\nprintf %s \"$1\" > '" + path(u"opened"_s).toUtf8() + "'\n",
                        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QStringList environment{u"PATH="_s + path(u"bin"_s) + u":/usr/bin:/bin"_s};
    tx::test::writeFile(path(u"doc.txt"_s), "x");
    EXPECT_EQ(runProcess(tool(u"open"_s), {path(u"doc.txt"_s)}, {}, environment).status, 0);
    EXPECT_EQ(tx::test::readFile(path(u"opened"_s)), path(u"doc.txt"_s).toUtf8());
    EXPECT_EQ(runProcess(tool(u"open"_s), {u"https://e.org/"_s}, {}, environment).status, 0);
    EXPECT_EQ(tx::test::readFile(path(u"opened"_s)), QByteArray("https://e.org/"));
}

TEST_F(Open, WhatIsOpenedGetsTheUsersOwnTools) {
    const QString app = path(u"A.app"_s);
    const tx::test::ProcessReaper reaper{app + u"/Contents/Linux/Program"_s};
    tx::test::makeBundle(
        app, {.program = "#!/bin/sh\nprintf %s \"$PATH\" > '" + path(u"started"_s).toUtf8() + "'\n"});
    const QStringList environment{u"PATH="_s + tx::test::resourcesFolder() + u":/usr/bin:/bin"_s};
    EXPECT_EQ(runProcess(tool(u"open"_s), {app}, {}, environment).status, 0);
    ASSERT_TRUE(tx::test::waitUntil([this] { return !tx::test::readFile(path(u"started"_s)).isEmpty(); }));
    EXPECT_EQ(tx::test::readFile(path(u"started"_s)), QByteArray("/usr/bin:/bin"));
}

TEST_F(Open, FailuresAndMisuse) {
    const auto missing = runProcess(tool(u"open"_s), {path(u"none"_s)});
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.errors.toStdString(), testing::HasSubstr("No such file"));
    for (const QStringList &words : {QStringList{}, QStringList{u"a"_s, u"b"_s}, QStringList{u"-a"_s}}) {
        const auto result = runProcess(tool(u"open"_s), words);
        EXPECT_EQ(result.status, 64);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("usage: open"));
    }
}

} // namespace
