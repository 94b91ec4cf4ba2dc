// SPDX-License-Identifier: MIT
#include "os/filesystem.h"
#include "os/mainbundle.h"
#include "os/userdefaults.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/places.h"

#include <QProcess>

#include <thread>

using namespace Qt::StringLiterals;
using tx::UserDefaults;

namespace {

class Defaults : public tx::test::FrameworkTest {
protected:
    const QString file = path(u"settings/app.plist"_s);
};

TEST_F(Defaults, KeepTypedValuesAcrossProcesses) {
    UserDefaults first(file);
    const QDateTime date(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC);
    ASSERT_TRUE(first.setValue(u"b"_s, true).isNull());
    ASSERT_TRUE(first.setValue(u"d"_s, 2.5).isNull());
    ASSERT_TRUE(first.setValue(u"s"_s, u"x"_s).isNull());
    ASSERT_TRUE(first.setValue(u"t"_s, date).isNull());
    ASSERT_TRUE(first.setValue(u"m"_s, QVariantMap{{u"l"_s, QVariantList{u"a"_s}}}).isNull());
    const UserDefaults second(file);
    EXPECT_TRUE(second.boolValue(u"b"_s));
    EXPECT_EQ(second.doubleValue(u"d"_s), 2.5);
    EXPECT_EQ(second.stringValue(u"s"_s), u"x"_s);
    EXPECT_EQ(second.dateValue(u"t"_s), date);
    EXPECT_EQ(second.mapValue(u"m"_s), (QVariantMap{{u"l"_s, QVariantList{u"a"_s}}}));
    ASSERT_TRUE(first.remove(u"s"_s).isNull());
    EXPECT_TRUE(second.stringValue(u"s"_s).isNull()) << "a change of another writer is seen";
}

TEST_F(Defaults, AbsentAndMistypedValuesReadAsNothing) {
    UserDefaults defaults(file);
    EXPECT_FALSE(defaults.boolValue(u"k"_s));
    EXPECT_EQ(defaults.doubleValue(u"k"_s), 0.0);
    EXPECT_TRUE(defaults.stringValue(u"k"_s).isNull());
    EXPECT_FALSE(defaults.dateValue(u"k"_s).isValid());
    EXPECT_TRUE(defaults.mapValue(u"k"_s).isEmpty());
    ASSERT_TRUE(defaults.setValue(u"k"_s, QVariantList{1}).isNull());
    EXPECT_TRUE(defaults.stringValue(u"k"_s).isNull());
    EXPECT_FALSE(defaults.dateValue(u"k"_s).isValid());
    ASSERT_TRUE(defaults.setValue(u"k"_s, 5).isNull());
    EXPECT_TRUE(defaults.stringValue(u"k"_s).isNull()) << "a number is not a text";
    ASSERT_TRUE(defaults.setValue(u"k"_s, u"2026-01-15T12:00:00Z"_s).isNull());
    EXPECT_FALSE(defaults.dateValue(u"k"_s).isValid()) << "nor is a text a date";
}

TEST_F(Defaults, TextsCountAsTrueOnlyWhenTheySaySo) {
    UserDefaults defaults(file);
    for (const QString &text : {u"yes"_s, u"YES"_s, u"true"_s, u"True"_s, u"1"_s}) {
        ASSERT_TRUE(defaults.setValue(u"k"_s, text).isNull());
        EXPECT_TRUE(defaults.boolValue(u"k"_s)) << text.toStdString();
    }
    for (const QString &text : {u"no"_s, u"false"_s, u"0"_s, u"2"_s, u"on"_s, u" yes"_s, u""_s}) {
        ASSERT_TRUE(defaults.setValue(u"k"_s, text).isNull());
        EXPECT_FALSE(defaults.boolValue(u"k"_s)) << text.toStdString();
    }
}

TEST_F(Defaults, FileIsReadableByAPersonAndByTheUserAlone) {
    UserDefaults defaults(file);
    ASSERT_TRUE(defaults.setValue(u"TXUpdateFeedURL"_s, u"https://e.org/"_s).isNull());
    const QByteArray text = tx::test::readFile(file);
    EXPECT_TRUE(text.contains("<key>TXUpdateFeedURL</key>")) << text.constData();
    EXPECT_TRUE(text.contains("<string>https://e.org/</string>"));
    EXPECT_EQ(QFile::permissions(file) & ~(QFile::ReadUser | QFile::WriteUser),
              QFile::Permissions(QFile::ReadOwner | QFile::WriteOwner));
}

TEST_F(Defaults, TornOrForeignFileIsSetAside) {
    for (const QByteArray &content :
         {QByteArray("<plist><dict><key>a</key><str"), QByteArray("[Settings]\na=1\n"),
          QByteArray("<plist><array/></plist>"), QByteArray()}) {
        tx::test::writeFile(file, content);
        UserDefaults defaults(file);
        EXPECT_FALSE(defaults.value(u"a"_s).isValid());
        EXPECT_EQ(tx::test::readFile(file), content) << "reading changes nothing";
        ASSERT_TRUE(defaults.setValue(u"b"_s, true).isNull());
        EXPECT_TRUE(UserDefaults(file).boolValue(u"b"_s));
    }
    EXPECT_EQ(tx::test::readFile(file + u".broken-1"_s), QByteArray("<plist><dict><key>a</key><str"));
    EXPECT_EQ(tx::test::readFile(file + u".broken-2"_s), QByteArray("[Settings]\na=1\n"));
    EXPECT_TRUE(QFileInfo::exists(file + u".broken-4"_s));
    const std::string log = logLines().join(u'\n').toStdString();
    EXPECT_THAT(log, testing::HasSubstr("cannot be read and count as empty"));
    EXPECT_THAT(log, testing::HasSubstr("was set aside as " + file.toStdString() + ".broken-1"));
}

TEST_F(Defaults, TwoProcessesLoseNoWrite) {
    QProcess writers[2];
    const QString program = tx::test::helpersFolder() + u"/defaults_writer"_s;
    writers[0].start(program, {file, u"a"_s, u"300"_s});
    writers[1].start(program, {file, u"b"_s, u"300"_s});
    for (QProcess &writer : writers) {
        ASSERT_TRUE(writer.waitForFinished(100000));
        EXPECT_EQ(writer.exitCode(), 0);
    }
    const UserDefaults defaults(file);
    int found = 0;
    for (int i = 0; i < 300; ++i)
        found += defaults.value(u"a%1"_s.arg(i)).toInt() == i && defaults.value(u"b%1"_s.arg(i)).isValid();
    EXPECT_EQ(found, 300);
}

TEST_F(Defaults, ThreadsLoseNoWrite) {
    UserDefaults defaults(file);
    const auto write = [&](const QString &prefix) {
        for (int i = 0; i < 50; ++i)
            EXPECT_TRUE(defaults.setValue(prefix + QString::number(i), i).isNull());
    };
    std::thread other([&] { write(u"a"_s); });
    write(u"b"_s);
    other.join();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(defaults.value(u"a%1"_s.arg(i)), i);
        EXPECT_EQ(defaults.value(u"b%1"_s.arg(i)), i);
    }
}

TEST_F(Defaults, FailedWriteIsReportedAndLosesNothing) {
    UserDefaults defaults(file);
    ASSERT_TRUE(defaults.setValue(u"a"_s, 1).isNull());
    const QByteArray before = tx::test::readFile(file);
    {
        tx::test::FaultFileSystem faults;
        faults.failOn(u"replaceFile"_s, ENOSPC);
        const TXError error = defaults.setValue(u"b"_s, 2);
        EXPECT_EQ(error.domain(), u"NSPOSIXErrorDomain"_s);
        EXPECT_EQ(error.code(), ENOSPC);
    }
    EXPECT_EQ(tx::test::readFile(file), before);
    EXPECT_EQ(defaults.value(u"a"_s), 1);
    EXPECT_FALSE(defaults.value(u"b"_s).isValid());
    EXPECT_EQ(tx::test::namesIn(path(u"settings"_s)), (QStringList{u".app.plist.lock"_s, u"app.plist"_s}));
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("the setting b could not be stored"));
}

TEST_F(Defaults, LinkInPlaceOfTheFileIsKept) {
    const QString kept = path(u"dotfiles/app.plist"_s);
    tx::test::writeFile(kept, "<plist><dict/></plist>");
    QDir().mkpath(path(u"settings"_s));
    ASSERT_TRUE(QFile::link(kept, file));
    UserDefaults defaults(file);
    ASSERT_TRUE(defaults.setValue(u"a"_s, true).isNull());
    EXPECT_TRUE(QFileInfo(file).isSymLink());
    EXPECT_TRUE(UserDefaults(kept).boolValue(u"a"_s));
}

TEST_F(Defaults, StandardOnesBelongToTheMainBundle) {
    EXPECT_EQ(UserDefaults::standard().filePath(), path(u"home/.config/org.example.Host.plist"_s));
    ASSERT_TRUE(UserDefaults::standard().setValue(u"a"_s, true).isNull());
    EXPECT_TRUE(QFileInfo::exists(path(u"home/.config/org.example.Host.plist"_s)));
}

TEST_F(Defaults, FirstTextWins) {
    UserDefaults defaults(file);
    EXPECT_EQ(defaults.textOrSet(u"id"_s, u"one"_s), u"one"_s);
    EXPECT_EQ(UserDefaults(file).textOrSet(u"id"_s, u"two"_s), u"one"_s);
}

TEST_F(Defaults, TextThatAnotherProcessStoredMeanwhileWins) {
    tx::test::FaultFileSystem files;
    bool cameInBetween = false;
    files.observer = [&](const QString &operation, const QString &) {
        if (operation == u"lock" && !std::exchange(cameInBetween, true)) {
            EXPECT_TRUE(UserDefaults(file).setValue(u"id"_s, u"another's"_s).isNull());
        }
    };
    UserDefaults defaults(file);
    EXPECT_EQ(defaults.textOrSet(u"id"_s, u"own"_s), u"another's"_s);
    EXPECT_TRUE(cameInBetween);
}

TEST_F(Defaults, IdentifierIsAFileNameAndNotAPath) {
    tx::test::makeBundle(path(u"Odd.app"_s), {.identifier = u"../org/example"_s});
    tx::setMainBundle(TXBundle(path(u"Odd.app"_s)));
    EXPECT_EQ(UserDefaults::standard().filePath(), path(u"home/.config/..-org-example.plist"_s));
}

} // namespace
