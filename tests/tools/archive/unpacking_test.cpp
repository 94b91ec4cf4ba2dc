// SPDX-License-Identifier: MIT
// The tools that unpack archives, with archives that nobody made for their application's good.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QProcess>

#include <climits>
#include <filesystem>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::ArchiveEntry;
using tx::test::ArchiveKind;
using tx::test::namesIn;
using tx::test::ProcessResult;
using tx::test::runProcess;

namespace {

/// An archive through a pipe into the command for its type, or an archive as a file for the program to which
/// the framework gives it.
struct Way {
    ArchiveKind kind;
    bool asFile = false;
};

class Unpacking : public tx::test::FrameworkTest, public testing::WithParamInterface<Way> {
protected:
    const QString out = path(u"out"_s);
    const QString file = path(u"archive"_s);

    Unpacking() { QDir().mkpath(out); }
    static ArchiveKind kind() { return GetParam().kind; }
    static QStringList command(const QString &folder) {
        if (GetParam().asFile)
            return {tx::test::resourcesFolder() + u"/TXUpdateUnpacker"_s, u"--end-with-caller"_s,
                    QString::fromLatin1(tx::test::suffixOf(kind())).mid(1), folder};
        const QString tar = tx::test::resourcesFolder() + u"/Archives/tar"_s;
        switch (kind()) {
        case ArchiveKind::Zip:
            return {tx::test::resourcesFolder() + u"/ditto"_s, u"-x"_s, u"-k"_s, u"-"_s, folder};
        case ArchiveKind::Tgz:
            return {tar, u"-zxC"_s, folder};
        case ArchiveKind::Tbz:
            return {tar, u"-jxC"_s, folder};
        case ArchiveKind::Tzst:
            return {tar, u"--zstd"_s, u"-xC"_s, folder};
        default:
            return {tar, u"-xC"_s, folder};
        }
    }
    ProcessResult unpackInto(const QString &folder, const QByteArray &archive,
                             const QStringList &environment = {}) const {
        QStringList words = command(folder);
        if (!GetParam().asFile)
            return runProcess(words.takeFirst(), words, archive, environment);
        tx::test::writeFile(path(u"given"_s), archive);
        return runProcess(u"/bin/sh"_s,
                          QStringList{u"-c"_s, u"exec \"$@\" < \"$0\""_s, path(u"given"_s)} + words, {},
                          environment);
    }
    ProcessResult unpackBytes(const QByteArray &archive, const QStringList &environment = {}) const {
        return unpackInto(out, archive, environment);
    }
    ProcessResult unpack(const QList<ArchiveEntry> &entries, const QStringList &environment = {}) const {
        tx::test::makeArchive(file, kind(), entries);
        return unpackBytes(tx::test::readFile(file), environment);
    }
    void expectNothing(const ProcessResult &result, const std::string &reason) const {
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr(reason));
        EXPECT_TRUE(namesIn(out).isEmpty()) << namesIn(out).join(u' ').toStdString();
    }
    static bool isTar() { return kind() != ArchiveKind::Zip; }
    mode_t modeOf(const QString &name) const {
        struct stat info {};
        EXPECT_EQ(lstat(QFile::encodeName(out + u'/' + name).constData(), &info), 0) << name.toStdString();
        return info.st_mode & 07777;
    }
};

/// Zip archives have no hard links, and those of the builder no special files.
class TarUnpacking : public Unpacking {};
/// Plain tar archives have a sum for their headers only.
class SummedUnpacking : public Unpacking {};
class GzipUnpacking : public Unpacking {};
class PipedUnpacking : public Unpacking {};

const ArchiveEntry good{u"good"_s, ArchiveEntry::File, "good", 0644};

TEST_P(Unpacking, AnEntryThatWouldLeaveTheFolderSpoilsTheWholeArchive) {
    tx::test::writeFile(path(u"victim"_s), "kept");
    const QList<QList<ArchiveEntry>> cases{
        {{u"../victim"_s, ArchiveEntry::File, "bad"}},
        {{path(u"victim"_s), ArchiveEntry::File, "bad"}},
        {{u"a/../../victim"_s, ArchiveEntry::File, "bad"}},
        {{u"a/.."_s, ArchiveEntry::File, "bad"}},
        {{u"up"_s, ArchiveEntry::SymbolicLink, "..", 0777}, {u"up/victim"_s, ArchiveEntry::File, "bad"}},
        {{u"up"_s, ArchiveEntry::SymbolicLink, path({}).toUtf8(), 0777},
         {u"up/victim"_s, ArchiveEntry::File, "bad"}},
        {{u"a/up"_s, ArchiveEntry::SymbolicLink, "../../..", 0777},
         {u"a/up/new/"_s, ArchiveEntry::Directory, {}, 0755}},
    };
    for (const QList<ArchiveEntry> &bad : cases) {
        expectNothing(unpack(QList<ArchiveEntry>{good} + bad), "");
        EXPECT_EQ(tx::test::readFile(path(u"victim"_s)), QByteArray("kept")) << bad.last().name.toStdString();
        EXPECT_FALSE(QFileInfo::exists(path(u"new"_s)));
    }
}

TEST_P(Unpacking, LinkThatIsAbsoluteOrLeadsOutOfItsFolderSpoilsTheWholeArchive) {
    const auto link = [](const QString &name, const QByteArray &target) {
        return ArchiveEntry{name, ArchiveEntry::SymbolicLink, target, 0777};
    };
    const ArchiveEntry folder{u"A.app/d/"_s, ArchiveEntry::Directory, {}, 0755};
    struct Case {
        QList<ArchiveEntry> entries;
        const char *reason;
    };
    const QByteArray inFolder = (out + u"/.txupdate-unpacking/A.app/f"_s).toUtf8();
    for (const Case &c : {
             Case{{link(u"A.app/abs"_s, "/etc/shadow")}, "A.app/abs: is a link to an absolute path"},
             Case{{link(u"A.app/abs"_s, inFolder)}, "A.app/abs: is a link to an absolute path"},
             Case{{link(u"toplink"_s, "/etc")}, "toplink: is a link to an absolute path"},
             Case{{link(u"toplink"_s, "..")}, "toplink: is a link that leads out of its folder"},
             Case{{link(u"toplink"_s, "A.app/../../x")}, "toplink: is a link that leads out of its folder"},
             Case{{link(u"A.app/up"_s, "../../../../root/x")}, "A.app/up: is a link that leads out"},
             Case{{link(u"A.app/up"_s, "./d/..//../x")}, "A.app/up: is a link that leads out"},
             Case{{link(u"./A.app//up"_s, "../../x")}, "up: is a link that leads out"},
             Case{{link(u"A.app/up"_s, "missing/../../x")}, "A.app/up: is a link that leads out"},
             // The bundle may get another name, and the next one may be another application.
             Case{{link(u"A.app/up"_s, "../B.app/x")}, "A.app/up: is a link that leads out"},
             Case{{link(u"A.app/up"_s, "../A.app/x")}, "A.app/up: is a link that leads out"},
             // Through another link, which is made before or after it.
             Case{{folder, link(u"A.app/d/here"_s, "../d"), link(u"A.app/up"_s, "d/here/../../x")},
                  "A.app/up: is a link that leads out"},
             Case{{folder, link(u"A.app/one"_s, "d/.."), link(u"A.app/up"_s, "one/../x")},
                  "A.app/up: is a link that leads out"},
             Case{{folder, link(u"A.app/up"_s, "one/../x"), link(u"A.app/one"_s, "d/..")},
                  "A.app/up: is a link that leads out"},
             Case{{link(u"up"_s, "one/../../x"), link(u"one"_s, "A.app/two"), link(u"A.app/two"_s, "d/..")},
                  "up: is a link that leads out"},
             Case{{link(u"up"_s, "A.app/in/../../x"), link(u"A.app/in"_s, "d/.."), folder},
                  "up: is a link that leads out"},
             Case{{link(u"a"_s, "b"), link(u"b"_s, "a")}, "a: is a link that leads through too many others"},
             Case{{link(u"A.app/self"_s, "self/x")}, "is a link that leads through too many others"},
         })
        expectNothing(unpack(QList<ArchiveEntry>{good} + c.entries), c.reason);
    // More than the system follows, though they lead somewhere.
    QList<ArchiveEntry> chain{good};
    for (int i = 0; i < 45; ++i)
        chain << link(u"A.app/l%1"_s.arg(i), "l" + QByteArray::number(i + 1));
    chain << ArchiveEntry{u"A.app/l45"_s, ArchiveEntry::File, "x"};
    expectNothing(unpack(chain), "is a link that leads through too many others");
}

TEST_P(Unpacking, LinksWithinTheirFolderStay) {
    const QList<std::pair<QString, QByteArray>> links{
        {u"A.app/Contents/Frameworks/Current"_s, "1.0"},
        {u"A.app/Contents/Frameworks/lib.so"_s, "Current/lib.so.1"},
        {u"A.app/Contents/up"_s, "Frameworks/../../Contents/./Linux//program"},
        {u"A.app/Contents/missing"_s, "nothing/here"},
        {u"A.app/Contents/before"_s, "missing/../Linux"},
        {u"Current"_s, "A.app/Contents"},
        {u"Again"_s, "Current/../Info.plist"},
    };
    QList<ArchiveEntry> entries{{u"A.app/Contents/Frameworks/1.0/lib.so.1"_s, ArchiveEntry::File, "library"},
                                {u"A.app/Contents/Linux/program"_s, ArchiveEntry::File, "program"}};
    for (const auto &[name, target] : links)
        entries.prepend({name, ArchiveEntry::SymbolicLink, target, 0777});
    const ProcessResult result = unpack(entries);
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    for (const auto &[name, target] : links)
        EXPECT_EQ(std::filesystem::read_symlink((out + u'/' + name).toStdString()), target.toStdString());
    EXPECT_EQ(tx::test::readFile(out + u"/Current/Frameworks/lib.so"_s), QByteArray("library"));
}

TEST_P(Unpacking, WhatItsOwnerCannotLookAtSpoilsTheWholeArchive) {
    for (const int mode : {0311, 0111, 0400, 0600, 0200, 0077}) {
        expectNothing(unpack({good,
                              {u"A.app/d/"_s, ArchiveEntry::Directory, {}, mode},
                              {u"A.app/d/f"_s, ArchiveEntry::File, "x", 04755}}),
                      "has a mode with which it cannot be looked at");
    }
    for (const int mode : {0311, 0111, 04111, 0200, 0077})
        expectNothing(unpack({good, {u"A.app/f"_s, ArchiveEntry::File, "x", mode}}),
                      "A.app/f: has a mode with which it cannot be looked at");
    EXPECT_EQ(unpack({{u"A.app/f"_s, ArchiveEntry::File, "x", 0400},
                      {u"A.app/d/f"_s, ArchiveEntry::File, "x", 0444},
                      {u"A.app/d/"_s, ArchiveEntry::Directory, {}, 0500}})
                  .status,
              0);
    EXPECT_EQ(modeOf(u"A.app/d"_s), 0500U);
    EXPECT_EQ(chmod(QFile::encodeName(out + u"/A.app/d"_s).constData(), 0700), 0);
}

TEST_P(Unpacking, PathThatTheSystemCannotNameSpoilsTheWholeArchive) {
    const auto nameOfLength = [](qsizetype length) {
        QString name = u"A.app/"_s;
        while (name.size() + 202 < length)
            name += QString(200, u'd') + u'/';
        return name + QString(length - name.size(), u'f');
    };
    constexpr qsizetype longest = PATH_MAX - 1024;
    for (const qsizetype length : {longest + 1, qsizetype(PATH_MAX), qsizetype(3 * PATH_MAX)})
        expectNothing(unpack({good, {nameOfLength(length), ArchiveEntry::File, "x", 04755}}),
                      "the path is too long");
    // A folder that is deep itself leaves less.
    const QString name = nameOfLength(longest);
    const ProcessResult result = unpack({{name, ArchiveEntry::File, "x"}});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(tx::test::readFile(out + u'/' + name), QByteArray("x"));
    QString deep = out;
    while (deep.size() < 1100)
        deep += u"/"_s + QString(100, u'e');
    ASSERT_TRUE(QDir().mkpath(deep));
    const ProcessResult inDeep = unpackInto(deep, tx::test::readFile(file));
    EXPECT_EQ(inDeep.status, 1);
    EXPECT_THAT(inDeep.errors.toStdString(), testing::HasSubstr("the path is too long"));
    EXPECT_TRUE(namesIn(deep).isEmpty());
}

TEST_P(Unpacking, WritingThroughALinkInTheArchiveWritesBesideIt) {
    tx::test::writeFile(path(u"victim"_s), "kept");
    (void)unpack({{u"f"_s, ArchiveEntry::SymbolicLink, path(u"victim"_s).toUtf8(), 0777},
                  {u"f"_s, ArchiveEntry::File, "bad"}});
    EXPECT_EQ(tx::test::readFile(path(u"victim"_s)), QByteArray("kept"));
}

TEST_P(Unpacking, NameThatStandsThereTwiceSpoilsTheWholeArchive) {
    expectNothing(unpack({{u"A.app/f"_s, ArchiveEntry::File, "1"}, {u"A.app/f"_s, ArchiveEntry::File, "2"}}),
                  "f: stands there twice");
    EXPECT_EQ(unpack({{u"A.app/d/f"_s, ArchiveEntry::File, "1"},
                      {u"A.app/d/"_s, ArchiveEntry::Directory, {}, 0755}})
                  .status,
              0);
}

TEST_P(TarUnpacking, HardLinksStayInTheArchive) {
    EXPECT_EQ(unpack({{u"A.app/one"_s, ArchiveEntry::File, "content"},
                      {u"A.app/two"_s, ArchiveEntry::HardLink, "A.app/one"}})
                  .status,
              0);
    EXPECT_EQ(tx::test::readFile(out + u"/A.app/two"_s), QByteArray("content"));
    QDir(out + u"/A.app"_s).removeRecursively();
    tx::test::writeFile(path(u"secret"_s), "secret");
    const QList<QList<ArchiveEntry>> cases{
        {{u"leak"_s, ArchiveEntry::HardLink, "../secret"}},
        {{u"leak"_s, ArchiveEntry::HardLink, path(u"secret"_s).toUtf8()}},
        {{u"up"_s, ArchiveEntry::SymbolicLink, path({}).toUtf8(), 0777},
         {u"leak"_s, ArchiveEntry::HardLink, "up/secret"}},
        {{u"leak"_s, ArchiveEntry::HardLink, "missing"}},
        // A second name of a link leads elsewhere; and what is reached through a link may be replaced.
        {{u"A.app/d/link"_s, ArchiveEntry::SymbolicLink, "../good", 0777},
         {u"A.app/leak"_s, ArchiveEntry::HardLink, "A.app/d/link"}},
        {{u"A.app/d/f"_s, ArchiveEntry::File, "x"},
         {u"A.app/e"_s, ArchiveEntry::SymbolicLink, "d", 0777},
         {u"A.app/leak"_s, ArchiveEntry::HardLink, "A.app/e/f"}},
        {{u"A.app/d/f"_s, ArchiveEntry::File, "x"}, {u"A.app/leak"_s, ArchiveEntry::HardLink, "A.app/d"}},
    };
    for (const QList<ArchiveEntry> &bad : cases)
        expectNothing(unpack(QList<ArchiveEntry>{good} + bad),
                      bad.last().name == u"leak" ? "" : "A.app/leak: is a second name of A.app/");
    struct stat info {};
    ASSERT_EQ(stat(QFile::encodeName(path(u"secret"_s)).constData(), &info), 0);
    EXPECT_EQ(info.st_nlink, 1U);
}

TEST_P(TarUnpacking, DevicesAndPipesSpoilTheWholeArchive) {
    for (const ArchiveEntry::Type type : {ArchiveEntry::Fifo, ArchiveEntry::CharacterDevice})
        expectNothing(unpack({good, {u"special"_s, type}}),
                      "special: is no file that an application may hold");
}

TEST_P(Unpacking, SetuidStaysAndNobodyElseMayWrite) {
    const auto result = unpack({{u"A.app/"_s, ArchiveEntry::Directory, {}, 0777},
                                {u"A.app/helper"_s, ArchiveEntry::File, "x", 06755},
                                {u"A.app/open"_s, ArchiveEntry::File, "x", 0666},
                                {u"A.app/none"_s, ArchiveEntry::File, "x", 0}});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(modeOf(u"A.app/helper"_s), 06755U) << "the installer decides about it";
    EXPECT_EQ(modeOf(u"A.app/open"_s), 0644U);
    EXPECT_EQ(modeOf(u"A.app"_s), 0755U);
    EXPECT_EQ(modeOf(u"A.app/none"_s), 0644U);
}

TEST_P(Unpacking, MoreThanTheLimitLeavesNothing) {
    const QByteArray part(7 << 20, '\0');
    const QList<ArchiveEntry> entries{{u"a"_s, ArchiveEntry::File, part},
                                      {u"b"_s, ArchiveEntry::File, part},
                                      {u"c"_s, ArchiveEntry::File, part}};
    const auto limited = [](int bytes) { return QStringList{u"TXUPDATE_UNARCHIVER_LIMIT=%1"_s.arg(bytes)}; };
    expectNothing(unpack(entries, limited(16 << 20)), "the archive takes more room than is accepted");
    EXPECT_EQ(unpack(entries, limited(22 << 20)).status, 0);
    EXPECT_EQ(namesIn(out).size(), 3);
    for (const QString &name : namesIn(out))
        QFile::remove(out + u'/' + name);
    QList<ArchiveEntry> many;
    for (int i = 0; i < 300; ++i)
        many.append({QString::number(i), ArchiveEntry::File, {}});
    expectNothing(unpack(many, limited(1 << 20)), "the archive takes more room than is accepted");
}

TEST_P(GzipUnpacking, TenGigabytesOfZerosAreRefusedByTheUsualLimit) {
    tx::test::makeArchiveOfZeros(file, "zeros", qint64(10) << 30);
    EXPECT_LT(QFileInfo(file).size(), 11 << 20);
    expectNothing(unpackBytes(tx::test::readFile(file)),
                  "zeros: the archive takes more room than is accepted");
    // The builder makes such archives right: a small one is unpacked.
    tx::test::makeArchiveOfZeros(file, "zeros", 20 << 20);
    const ProcessResult small = unpackBytes(tx::test::readFile(file));
    EXPECT_EQ(small.status, 0) << small.errors.constData();
    EXPECT_EQ(QFileInfo(out + u"/zeros"_s).size(), 20 << 20);
}

TEST_P(Unpacking, TruncatedAtAnyByteLeavesNothing) {
    QByteArray noise(30000, 0);
    for (qsizetype i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<char>((i * 7919) >> 3);
    tx::test::makeArchive(file, kind(),
                          {{u"A.app/Info.plist"_s, ArchiveEntry::File, "info"},
                           {u"A.app/noise"_s, ArchiveEntry::File, noise},
                           {u"A.app/last"_s, ArchiveEntry::File, "last"}});
    const QByteArray whole = tx::test::readFile(file);
    const qsizetype end = whole.size() - (kind() == ArchiveKind::Tar ? 10240 : 1);
    for (qsizetype length = 0; length < end; length += std::max<qsizetype>(1, whole.size() / 40))
        expectNothing(unpackBytes(whole.left(length)), "");
    // At the boundary between two files of a plain archive, where a reader could take it for its end.
    if (kind() == ArchiveKind::Tar) {
        const qsizetype boundary = whole.indexOf("A.app/last");
        ASSERT_GT(boundary, 0);
        expectNothing(unpackBytes(whole.left(boundary)), "its end is missing");
    }
    EXPECT_EQ(unpackBytes(whole).status, 0);
    EXPECT_EQ(namesIn(out + u"/A.app"_s).size(), 3);
}

TEST_P(SummedUnpacking, ChangedBytesAreNoticed) {
    QByteArray noise(30000, 0);
    for (qsizetype i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<char>((i * i * 7919) >> 3);
    tx::test::makeArchive(file, kind(), {{u"noise"_s, ArchiveEntry::File, noise}});
    const QByteArray whole = tx::test::readFile(file);
    for (const qsizetype at : {whole.size() / 3, whole.size() / 2, whole.size() * 2 / 3}) {
        QByteArray changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 0x10);
        expectNothing(unpackBytes(changed), "");
    }
}

TEST_P(Unpacking, NamesInAnyEncodingAreKept) {
    const QList<QByteArray> names{"plain",
                                  "\xC3\xBC and \xE6\x97\xA5\xE6\x9C\xAC", // UTF-8
                                  "u\xCC\x88 decomposed",
                                  "line\nbreak\ttab",
                                  "quote' \" $HOME `id` %s",
                                  "-rf"};
    QList<ArchiveEntry> entries;
    for (const QByteArray &name : names)
        entries.append({{}, ArchiveEntry::File, name, 0644, name});
    const ProcessResult result = unpack(entries, {u"LC_ALL=C"_s});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(namesIn(out).size(), names.size());
    for (const QByteArray &name : names) {
        // The library composes what stands in zip archives.
        const QString expected = kind() == ArchiveKind::Zip
                                     ? QString::fromUtf8(name).normalized(QString::NormalizationForm_C)
                                     : QString::fromUtf8(name);
        const std::filesystem::path unpacked(out.toStdString() + '/' + expected.toStdString());
        EXPECT_TRUE(std::filesystem::exists(unpacked)) << name.constData();
    }
}

TEST_P(Unpacking, NamesThatAreNoTextAreKeptBelowTheTopOnly) {
    const QByteArray names[] = {"latin \xFC", "\xFF\xFE\x41", "\x83\x65"};
    for (const QByteArray &name : names) {
        expectNothing(unpack({good, {{}, ArchiveEntry::File, "x", 0644, name}}), "");
        if (!isTar())
            continue; // the builder writes no such names into them
        EXPECT_EQ(unpack({{{}, ArchiveEntry::File, "x", 0644, "A.app/" + name}}).status, 0);
        EXPECT_TRUE(std::filesystem::exists((out + u"/A.app/"_s).toStdString() + name.toStdString()));
        std::filesystem::remove_all((out + u"/A.app"_s).toStdString());
    }
}

TEST_P(Unpacking, WhatAKilledRunLeftIsNotMixedIn) {
    tx::test::writeFile(out + u"/.txupdate-unpacking/A.app/old"_s, "of a killed run");
    tx::test::writeFile(out + u"/A.app/old"_s, "of an earlier archive");
    EXPECT_EQ(unpack({{u"A.app/new"_s, ArchiveEntry::File, "new"}}).status, 0);
    EXPECT_EQ(namesIn(out), QStringList{u"A.app"_s});
    EXPECT_EQ(namesIn(out + u"/A.app"_s), QStringList{u"new"_s});
}

TEST_P(PipedUnpacking, KilledAtAnyTimeItLeavesAllOrNothing) {
    QList<ArchiveEntry> entries;
    for (int i = 0; i < 300; ++i)
        entries.append({u"A.app/%1"_s.arg(i), ArchiveEntry::File, QByteArray(3000, 'x')});
    tx::test::makeArchive(file, kind(), entries);
    const QByteArray archive = tx::test::readFile(file);
    int killed = 0;
    for (int fed = 0; fed <= 10; ++fed) {
        QProcess process;
        QStringList words = command(out);
        process.start(words.takeFirst(), words);
        ASSERT_TRUE(process.waitForStarted());
        process.write(archive.left(archive.size() * fed / 10));
        if (fed == 10)
            process.closeWriteChannel();
        process.waitForBytesWritten(2000);
        process.waitForFinished(fed == 10 ? 1 : 20);
        process.kill();
        process.waitForFinished();
        killed += process.exitStatus() == QProcess::CrashExit;
        const QStringList there = namesIn(out + u"/A.app"_s);
        EXPECT_TRUE(there.isEmpty() || there.size() == entries.size()) << there.size();
    }
    EXPECT_GE(killed, 10);
    EXPECT_EQ(unpackBytes(archive).status, 0);
    EXPECT_EQ(namesIn(out), QStringList{u"A.app"_s}) << "the next run clears up";
    EXPECT_EQ(namesIn(out + u"/A.app"_s).size(), entries.size());
}

TEST_P(TarUnpacking, FolderOfAllEntriesIsNoEntry) {
    const mode_t before = modeOf(u"."_s);
    EXPECT_EQ(
        unpack({{u"./"_s, ArchiveEntry::Directory, {}, 0500}, {u"./A.app/x"_s, ArchiveEntry::File, "x"}})
            .status,
        0);
    EXPECT_EQ(tx::test::readFile(out + u"/A.app/x"_s), QByteArray("x"));
    EXPECT_EQ(modeOf(u"."_s), before);
}

std::string nameOf(const testing::TestParamInfo<Way> &each) {
    return std::string(tx::test::suffixOf(each.param.kind)).substr(1) + (each.param.asFile ? "AsFile" : "");
}

constexpr Way tarPipes[] = {{ArchiveKind::Tgz}, {ArchiveKind::Tbz}, {ArchiveKind::Tzst}, {ArchiveKind::Tar}};
constexpr Way pipes[] = {
    {ArchiveKind::Zip}, {ArchiveKind::Tgz}, {ArchiveKind::Tbz}, {ArchiveKind::Tzst}, {ArchiveKind::Tar}};
constexpr Way tarFiles[] = {
    {ArchiveKind::Tgz, true}, {ArchiveKind::Tbz, true}, {ArchiveKind::Tzst, true}, {ArchiveKind::Tar, true}};
constexpr Way files[] = {{ArchiveKind::Zip, true},
                         {ArchiveKind::Tgz, true},
                         {ArchiveKind::Tbz, true},
                         {ArchiveKind::Tzst, true},
                         {ArchiveKind::Tar, true}};

INSTANTIATE_TEST_SUITE_P(Kinds, Unpacking, testing::ValuesIn(pipes), nameOf);
INSTANTIATE_TEST_SUITE_P(Files, Unpacking, testing::ValuesIn(files), nameOf);
INSTANTIATE_TEST_SUITE_P(Kinds, TarUnpacking, testing::ValuesIn(tarPipes), nameOf);
INSTANTIATE_TEST_SUITE_P(Files, TarUnpacking, testing::ValuesIn(tarFiles), nameOf);
INSTANTIATE_TEST_SUITE_P(Kinds, PipedUnpacking, testing::ValuesIn(pipes), nameOf);
INSTANTIATE_TEST_SUITE_P(Kinds, SummedUnpacking,
                         testing::Values(Way{ArchiveKind::Zip}, Way{ArchiveKind::Tgz}, Way{ArchiveKind::Tbz},
                                         Way{ArchiveKind::Zip, true}, Way{ArchiveKind::Tgz, true},
                                         Way{ArchiveKind::Tbz, true}),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Kinds, GzipUnpacking, testing::Values(Way{ArchiveKind::Tgz}), nameOf);

TEST(TarTool, MisusePrintsUsage) {
    const QString tar = tx::test::resourcesFolder() + u"/Archives/tar"_s;
    for (const QStringList &words :
         {QStringList{}, QStringList{u"-xC"_s}, QStringList{u"-cC"_s, u"/tmp"_s},
          QStringList{u"-xC"_s, u"/tmp"_s, u"more"_s}, QStringList{u"xf"_s, u"a.tar"_s},
          QStringList{u"--zstd"_s, u"/tmp"_s}, QStringList{u"--zstd"_s, u"-zxC"_s, u"/tmp"_s}}) {
        const ProcessResult result = runProcess(tar, words);
        EXPECT_EQ(result.status, 64);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("usage: tar"));
    }
    EXPECT_EQ(runProcess(tar, {u"-xC"_s, u"/no/such/folder"_s}).status, 1);
}

TEST(TarTool, WorkingFolderThatTheUserMayNotReadDoesNoHarm) {
    QTemporaryDir folder;
    const QString place = folder.path();
    tx::test::makeArchive(place + u"/a"_s, ArchiveKind::Tar, {good});
    ASSERT_TRUE(QDir(place).mkdir(u"Archives"_s));
    for (const QString &tool : {u"/Archives/tar"_s, u"/TXUpdateUnpacker"_s})
        ASSERT_TRUE(QFile::copy(tx::test::resourcesFolder() + tool, place + tool));
    ASSERT_TRUE(QDir(place).mkdir(u"out"_s) && QDir(place).mkdir(u"closed"_s));
    QString program = u"sh"_s;
    QStringList words{
        u"-c"_s, u"cd '%1/closed' && chmod 0 . && exec '%1/Archives/tar' -xC '%1/out' < '%1/a'"_s.arg(place)};
    if (geteuid() == 0) {
        // Root may read every folder, so the test runs the program as another user.
        ASSERT_EQ(runProcess(u"chown"_s, {u"-R"_s, u"65534:65534"_s, place}).status, 0);
        words.prepend(program);
        words = QStringList{u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s} + words;
        program = u"setpriv"_s;
    }
    const ProcessResult result = runProcess(program, words);
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(tx::test::namesIn(place + u"/out"_s), QStringList{good.name});
}

TEST(TarTool, WithoutTheProgramThatUnpacksSaysWhichIsMissing) {
    QTemporaryDir folder;
    ASSERT_TRUE(QDir(folder.path()).mkdir(u"Archives"_s));
    const QString tar = folder.filePath(u"Archives/tar"_s);
    ASSERT_TRUE(QFile::copy(tx::test::resourcesFolder() + u"/Archives/tar"_s, tar));
    const ProcessResult result = runProcess(tar, {u"-xC"_s, folder.path()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "tar: " + QFile::encodeName(QFileInfo(folder.path()).canonicalFilePath()) +
                                 "/TXUpdateUnpacker: No such file or directory\n");
}

TEST(TarTool, CompressionIsTheOneThatWasAskedFor) {
    QTemporaryDir folder;
    tx::test::makeArchive(folder.filePath(u"a"_s), ArchiveKind::Tar, {good});
    const ProcessResult result =
        runProcess(tx::test::resourcesFolder() + u"/Archives/tar"_s, {u"-zxC"_s, folder.path()},
                   tx::test::readFile(folder.filePath(u"a"_s)));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("not compressed by gzip"));
}

} // namespace
