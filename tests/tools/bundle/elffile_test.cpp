// SPDX-License-Identifier: MIT
#include "bundle/elffile.h"
#include "bundle/libraryfinder.h"
#include "bundle/problem.h"
#include "tests/tools/bundle/bundletest.h"

#include <cstddef>
#include <elf.h>

using namespace Qt::StringLiterals;
using tx::bundling::ElfFile;
using tx::bundling::LibraryFinder;
using tx::bundling::readElf;
using tx::test::readFile;
using tx::test::writeFile;

namespace {

class ElfReader : public tx::test::BundleTest {};

TEST_F(ElfReader, SampleNamesWhatTheLoaderWouldRead) {
    const auto file = readElf(sample());
    ASSERT_TRUE(file && *file);
    EXPECT_TRUE((*file)->interpreter.startsWith(u"/lib")) << (*file)->interpreter.toStdString();
    EXPECT_TRUE((*file)->isDynamic);
    EXPECT_TRUE((*file)->needed.contains(u"libQt6Widgets.so.6"_s));
    EXPECT_TRUE((*file)->needed.contains(u"libsamplepart.so"_s));
    EXPECT_TRUE((*file)->runPath.contains(sampleFolder())) << (*file)->runPath.join(u' ').toStdString();
    EXPECT_TRUE((*file)->soname.isEmpty());
    EXPECT_TRUE((*file)->hasDebugSections);
    const auto part = readElf(samplePart());
    ASSERT_TRUE(part && *part);
    EXPECT_EQ((*part)->soname, u"libsamplepart.so"_s);
    EXPECT_TRUE((*part)->interpreter.isEmpty());
    EXPECT_TRUE((*part)->isForSameMachineAs(**file));
}

TEST_F(ElfReader, NewestNeededVersionCountsByNumberAndNotByText) {
    const auto file = readElf(sample());
    ASSERT_TRUE(file && *file);
    // The compiler's start-up code needs 2.34. A comparison as strings would take "2.4" for newer.
    const QString glibc = (*file)->newestVersions.value(u"GLIBC"_s);
    EXPECT_TRUE(glibc.startsWith(u"2.")) << glibc.toStdString();
    EXPECT_GE(glibc.mid(2).toInt(), 34);
}

TEST_F(ElfReader, OtherFilesAreNoneAndMissingOnesAnError) {
    for (const QByteArray &content : {QByteArray(), QByteArray("#!/bin/sh\n"),
                                      QByteArray("\x7f"
                                                 "EL")}) {
        writeFile(path(u"file"_s), content);
        const auto file = readElf(path(u"file"_s));
        ASSERT_TRUE(file) << content.constData();
        EXPECT_FALSE(*file) << content.constData();
    }
    const auto missing = readElf(path(u"missing"_s));
    EXPECT_THAT(tx::bundling::lineOf(missing.error()).toStdString(),
                testing::HasSubstr("No such file or directory"));
}

TEST_F(ElfReader, CutOffFileIsAnErrorOrNoneButNeverAnswered) {
    const QByteArray whole = readFile(sample());
    for (qsizetype length = 20; length < whole.size(); length += whole.size() / 23) {
        writeFile(path(u"cut"_s), whole.left(length));
        const auto file = readElf(path(u"cut"_s));
        EXPECT_FALSE(file && *file) << length << " of " << whole.size();
    }
}

TEST_F(ElfReader, StringsOfMemoryAreFoundAndThoseOfDebugSectionsAreNot) {
    // The sample's RUNPATH is loaded. The compiler's working directory is only in debug sections.
    const auto found = tx::bundling::loadedStringsWith(sample(), {"ATTRIBUTE platform"});
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->isEmpty());
    const auto platform = tx::bundling::loadedStringsWith(sample(), {"platform %"});
    ASSERT_TRUE(platform);
    EXPECT_EQ(*platform, QStringList{u"platform %s"_s});
    const auto source = tx::bundling::loadedStringsWith(sample(), {"tests/tools/bundle/sample.cpp"});
    ASSERT_TRUE(source);
    EXPECT_TRUE(source->isEmpty()) << source->join(u' ').toStdString();
    EXPECT_TRUE(readFile(sample()).contains("tests/tools/bundle/sample.cpp"));
}

class Finder : public tx::test::BundleTest {
protected:
    void put(const QString &place) {
        QDir().mkpath(QFileInfo(path(place)).path());
        writeFile(path(place), readFile(samplePart()));
    }
    ElfFile asker() const {
        ElfFile file = **readElf(sample());
        file.path = path(u"own/program"_s);
        file.runPath.clear();
        return file;
    }
    QString found(const ElfFile &by, const QByteArray &cache = {}) const {
        const QString file = LibraryFinder(by, cache).find(u"libx.so"_s, by);
        return file.isNull() ? QString()
                             : QDir(QFileInfo(path(u"."_s)).canonicalFilePath()).relativeFilePath(file);
    }
};

TEST_F(Finder, FoldersAreAskedInTheLoadersOrder) {
    for (const QString &folder : {u"run"_s, u"inherited"_s, u"environment"_s, u"cache"_s})
        put(folder + u"/libx.so"_s);
    put(u"own/program"_s);
    const QByteArray cache = "\tlibx.so (libc6,x86-64) => " + path(u"cache/libx.so"_s).toUtf8() + '\n';
    ElfFile file = asker();
    EXPECT_EQ(found(file), QString());
    EXPECT_EQ(found(file, cache), u"cache/libx.so"_s);
    file.runPath = QStringList{u"$ORIGIN/../run"_s};
    EXPECT_EQ(found(file, cache), u"run/libx.so"_s);
    qputenv("LD_LIBRARY_PATH", path(u"environment"_s).toUtf8());
    EXPECT_EQ(found(file, cache), u"environment/libx.so"_s);
    file.runPath.clear();
    file.inheritedRunPath = QStringList{u"${ORIGIN}/../inherited"_s};
    EXPECT_EQ(found(file, cache), u"inherited/libx.so"_s);
    qunsetenv("LD_LIBRARY_PATH");
}

TEST_F(Finder, LibraryOfAnotherMachineIsPassedOver) {
    put(u"wrong/libx.so"_s);
    put(u"right/libx.so"_s);
    QByteArray other = readFile(samplePart());
    other[qsizetype(offsetof(Elf64_Ehdr, e_machine))] = char(EM_S390);
    writeFile(path(u"wrong/libx.so"_s), other);
    ElfFile file = asker();
    file.runPath = QStringList{path(u"wrong"_s), path(u"right"_s)};
    EXPECT_EQ(found(file), u"right/libx.so"_s);
    file.runPath = QStringList{path(u"wrong"_s)};
    EXPECT_EQ(found(file), QString());
}

} // namespace
