// SPDX-License-Identifier: MIT
#include "posix/startable.h"

#include "os/applicationcheck.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class Startable : public tx::test::FrameworkTest {
protected:
    const QString app = path(u"New.app"_s);
    const QString program = app + u"/Contents/Linux/Program"_s;

    void make(const QByteArray &content, mode_t mode = 0755) {
        QDir(app).removeRecursively();
        tx::test::makeBundle(app, {.program = content});
        ASSERT_EQ(chmod(QFile::encodeName(program).constData(), mode), 0);
    }
    /// Empty: it can.
    std::string why(const QString &place = u"/nowhere/Host.app"_s) const {
        return tx::whyItCannotStart(app.toStdString(), place.toStdString());
    }
    /// The beginning of this process's program, which is of this machine.
    static QByteArray elf() {
        QFile self(u"/proc/self/exe"_s);
        EXPECT_TRUE(self.open(QIODevice::ReadOnly));
        return self.read(4096);
    }
    static QByteArray elf(qsizetype offset, char value) {
        QByteArray changed = elf();
        changed[offset] = value;
        return changed;
    }
};

TEST_F(Startable, ProgramsOfThisMachineAndScriptsCan) {
    make(elf());
    EXPECT_EQ(why(), "");
    EXPECT_TRUE(tx::whyApplicationCannotStart(app, u"/nowhere"_s).isNull());
    for (const char *script : {"#!/bin/sh\n", "#! /bin/sh -e\n", "#!/bin/sh", "#!/usr/bin/env sh\n"}) {
        make(script);
        EXPECT_EQ(why(), "") << script;
    }
    make(elf(), 0100);
    if (geteuid() == 0) {
        EXPECT_EQ(why(), "") << "the owner's bit is enough";
    } else {
        EXPECT_THAT(why(), testing::HasSubstr("cannot be read"));
    }
}

TEST_F(Startable, WhatCannotStartIsNamed) {
    struct Case {
        const char *what;
        QByteArray content;
        mode_t mode;
        const char *reason;
    };
    const unsigned char otherMachine = elf()[EI_NIDENT + 2] == EM_AARCH64 % 256 ? EM_X86_64 : EM_AARCH64;
    for (const Case &c :
         {Case{"no bit", elf(), 0644, "it lacks its execute bit"},
          Case{"the bit for others alone", elf(), 0655, "it lacks its execute bit"},
          Case{"text", "hello", 0755, "neither a program of this system nor a script"},
          Case{"nothing", "", 0755, "neither a program of this system nor a script"},
          Case{"half a header", elf().left(20), 0755, "neither a program of this system nor a script"},
          Case{"another machine", elf(EI_NIDENT + 2, static_cast<char>(otherMachine)), 0755,
               "for another kind of machine"},
          Case{"another class", elf(EI_CLASS, elf()[EI_CLASS] == ELFCLASS64 ? ELFCLASS32 : ELFCLASS64), 0755,
               "for another kind of machine"},
          Case{"another byte order", elf(EI_DATA, elf()[EI_DATA] == ELFDATA2LSB ? ELFDATA2MSB : ELFDATA2LSB),
               0755, "for another kind of machine"},
          Case{"object file", elf(EI_NIDENT, ET_REL), 0755, "an ELF file that is not a program"},
          Case{"core dump", elf(EI_NIDENT, ET_CORE), 0755, "an ELF file that is not a program"},
          Case{"missing interpreter", "#!/no/such/interpreter -x\n", 0755,
               "whose interpreter /no/such/interpreter cannot be used"},
          Case{"folder as interpreter", "#!/tmp\n", 0755, "whose interpreter /tmp is not a program"},
          Case{"file as interpreter", "#!/etc/passwd\n", 0755,
               "whose interpreter /etc/passwd is not a program"},
          Case{"relative interpreter", "#!sh\n", 0755, "names no interpreter by an absolute path"},
          Case{"no interpreter", "#!\n", 0755, "names no interpreter by an absolute path"}}) {
        make(c.content, c.mode);
        EXPECT_THAT(why(), testing::HasSubstr(c.reason)) << c.what;
        EXPECT_THAT(why(), testing::HasSubstr("cannot be started: its executable Contents/Linux/Program"))
            << c.what;
        EXPECT_FALSE(tx::whyApplicationCannotStart(app, u"/nowhere"_s).isNull());
    }
}

TEST_F(Startable, ExecutableStaysInsideItsBundle) {
    struct Case {
        const char *what;
        QString target;
        const char *reason; ///< empty: it can be started
    };
    tx::test::writeFile(path(u"outside"_s), "#!/bin/sh\n", QFile::ReadOwner | QFile::ExeOwner);
    for (const Case &c :
         {Case{"beside", u"other"_s, ""}, Case{"elsewhere inside", u"../Resources/run"_s, ""},
          Case{"up and down", u"../../Contents/./Linux//other"_s, ""},
          Case{"through a folder link", u"../Versions/Current/run"_s, ""},
          Case{"absolute", path(u"outside"_s), "leads out of the application"},
          Case{"absolute, but inside", app + u"/Contents/Linux/other"_s, "leads out of the application"},
          Case{"above", u"../../../outside"_s, "leads out of the application"},
          Case{"out and in again", u"../../../New.app/Contents/Linux/other"_s,
               "leads out of the application"},
          Case{"through a folder link outside", u"../Away/outside"_s, "leads out of the application"}}) {
        make("#!/bin/sh\n");
        const auto executable = QFile::ReadOwner | QFile::ExeOwner;
        tx::test::writeFile(app + u"/Contents/Linux/other"_s, "#!/bin/sh\n", executable);
        tx::test::writeFile(app + u"/Contents/Resources/run"_s, "#!/bin/sh\n", executable);
        tx::test::writeFile(app + u"/Contents/Versions/A/run"_s, "#!/bin/sh\n", executable);
        ASSERT_TRUE(QFile::link(u"A"_s, app + u"/Contents/Versions/Current"_s));
        ASSERT_TRUE(QFile::link(u"../.."_s, app + u"/Contents/Away"_s));
        ASSERT_TRUE(QFile::remove(program));
        ASSERT_TRUE(QFile::link(c.target, program));
        if (*c.reason == '\0') {
            EXPECT_EQ(why(), "") << c.what;
        } else {
            EXPECT_THAT(why(), testing::HasSubstr(c.reason)) << c.what;
        }
    }
}

TEST_F(Startable, OtherThingsInItsPlaceAreNotStarted) {
    make("#!/bin/sh\n");
    ASSERT_TRUE(QFile::remove(program));
    EXPECT_THAT(why(), testing::HasSubstr(
                           "has no executable: \"Program\", which its Info.plist names, is not in it"));
    ASSERT_TRUE(QFile::link(u"Program"_s, program));
    EXPECT_THAT(why(), testing::HasSubstr("has no executable"));
    ASSERT_TRUE(QFile::remove(program));
    ASSERT_EQ(mkfifo(QFile::encodeName(program).constData(), 0755), 0);
    EXPECT_THAT(why(), testing::HasSubstr("has no executable")) << "and nobody waits for its other end";
    tx::test::writeFile(app + u"/Contents/Info.plist"_s, "<plist version=\"1.0\"><dict/></plist>");
    EXPECT_THAT(why(), testing::HasSubstr("its Info.plist names none"));
    tx::test::writeFile(app + u"/Contents/Info.plist"_s, "rubbish");
    EXPECT_THAT(why(), testing::HasSubstr("it has no readable Info.plist"));
    EXPECT_THAT(tx::whyItCannotStart(path(u"none.app"_s).toStdString(), "/x"),
                testing::HasSubstr("it has no readable Info.plist"));
}

TEST_F(Startable, InterpreterInsideTheBundleIsLookedForThere) {
    const QString place = path(u"Applications/Host.app"_s);
    make("#!" + place.toUtf8() + "/Contents/Linux/interpreter\n");
    EXPECT_THAT(why(place), testing::HasSubstr("cannot be looked at: No such file"));
    const QString interpreter = app + u"/Contents/Linux/interpreter"_s;
    tx::test::writeFile(interpreter, elf());
    EXPECT_THAT(why(place), testing::HasSubstr("it lacks its execute bit"));
    ASSERT_EQ(chmod(QFile::encodeName(interpreter).constData(), 0755), 0);
    EXPECT_EQ(why(place), "");
    EXPECT_NE(why(u"/elsewhere/Host.app"_s), "") << "there it is not";
    tx::test::writeFile(interpreter, "#!" + place.toUtf8() + "/Contents/Linux/interpreter\n");
    ASSERT_EQ(chmod(QFile::encodeName(interpreter).constData(), 0755), 0);
    EXPECT_THAT(why(place), testing::HasSubstr("one script too many"));
}

} // namespace
