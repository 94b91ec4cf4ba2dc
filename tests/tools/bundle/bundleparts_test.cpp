// SPDX-License-Identifier: MIT
#include "base/propertylist.h"
#include "bundle/bundleinfolist.h"
#include "bundle/layout.h"
#include "bundle/licences.h"
#include "bundle/problem.h"
#include "bundle/qmlimports.h"
#include "bundle/qtinstallation.h"
#include "bundle/systemlibraries.h"
#include "tests/tools/bundle/bundletest.h"

#include <zstd.h>

using namespace Qt::StringLiterals;
using namespace tx::bundling;
using tx::test::writeFile;

namespace {

struct SystemCase {
    const char *name;
    bool isLeft;
};

TEST(SystemLibrary, LoaderDriversAndDisplaysAreLeftAndTheRestIsCopied) {
    for (const SystemCase &each : {SystemCase{"libc.so.6", true},
                                   {"ld-linux-x86-64.so.2", true},
                                   {"ld-linux-aarch64.so.1", true},
                                   {"libstdc++.so.6", true},
                                   {"libGL.so.1", true},
                                   {"libX11.so.6", true},
                                   {"libwayland-client.so.0", true},
                                   {"libfontconfig.so.1", true},
                                   {"libQt6Core.so.6", false},
                                   {"libc.so.6.1", false},
                                   {"libxcb-cursor.so.0", false},
                                   {"libicuuc.so.72", false},
                                   {"libssl.so.3", false}}) {
        const tx::bundling::SystemLibrary *line =
            SystemLibraries::known().find(QString::fromLatin1(each.name));
        EXPECT_EQ(line != nullptr, each.isLeft) << each.name;
    }
    EXPECT_EQ(SystemLibraries::known().companionOf(u"libxkbcommon.so.0"_s)->package, u"xkb-data"_s);
    EXPECT_EQ(SystemLibraries::known().companionOf(u"libQt6Core.so.6"_s), nullptr);
}

TEST(SystemLibrary, EveryLineHasAPackageAndAReason) {
    EXPECT_GT(SystemLibraries::known().all().size(), 40);
    for (const tx::bundling::SystemLibrary &line : SystemLibraries::known().all()) {
        EXPECT_FALSE(line.package.isEmpty()) << line.pattern.toStdString();
        EXPECT_GT(line.reason.size(), 10) << line.pattern.toStdString();
    }
}

TEST(SystemLibrary, LineWithoutAReasonIsRefusedByItsNumber) {
    for (const QString &bad : {u"system libx.so.1 libx1"_s, u"keep libx.so.1 libx1 a reason"_s}) {
        const auto list = SystemLibraries::parse(u"# a list\n\n"_s + bad);
        ASSERT_FALSE(list);
        EXPECT_THAT(lineOf(list.error()).toStdString(), testing::HasSubstr("line 3 of the list"));
    }
}

TEST(BundleLayout, PlacesOfBothLayouts) {
    const Places app = placesOf(Layout::App, u"myapp"_s, u"My App"_s);
    EXPECT_EQ(app.bundle, u"MyApp.app"_s);
    EXPECT_EQ(wayBetween(app.programs, app.libraries), u"../Frameworks"_s);
    EXPECT_TRUE(app.links.isEmpty());
    const Places prefix = placesOf(Layout::Prefix, u"myapp"_s, u"My App"_s);
    EXPECT_EQ(prefix.bundle, u"myapp"_s);
    EXPECT_EQ(wayBetween(prefix.plugins + u"/platforms"_s, prefix.libraries), u"../.."_s);
    EXPECT_EQ(wayBetween(prefix.libraries, prefix.libraries), u"."_s);
    EXPECT_TRUE(prefix.links.contains({u"Info.plist"_s, u"Contents/Info.plist"_s}));
    EXPECT_FALSE(layoutNamed(u"other"_s));
}

TEST(QtTable, ModulesAndWhatTheyLoad) {
    EXPECT_EQ(qtModuleOf(u"libQt6Gui.so.6"_s), u"Gui"_s);
    EXPECT_EQ(qtModuleOf(u"libQt6Gui.so"_s), u"Gui"_s);
    EXPECT_TRUE(qtModuleOf(u"libQt5Gui.so.5"_s).isNull());
    EXPECT_TRUE(qtModuleOf(u"libz.so.1"_s).isNull());
    EXPECT_EQ(loadedBy(u"libqopensslbackend.so"_s).constFirst().constFirst(), u"libssl.so.3"_s);
    EXPECT_EQ(translationsOf({u"Core"_s, u"Qml"_s}), (QStringList{u"qtbase_"_s, u"qtdeclarative_"_s}));
    for (const PluginRule &rule : pluginRules())
        EXPECT_TRUE(!rule.isNeeded || !rule.consequence.isEmpty()) << rule.folder.toStdString();
}

TEST(DpkgAnswers, FilesGoWithTheirPackageWithoutItsMachine) {
    const auto packages = packagesIn("zlib1g:amd64: /lib/x86_64-linux-gnu/libz.so.1\n"
                                     "diversion by a from: /usr/lib/b\n"
                                     "one, two: /usr/share/both\n\n");
    EXPECT_EQ(packages.value(u"/lib/x86_64-linux-gnu/libz.so.1"_s), u"zlib1g"_s);
    EXPECT_EQ(packages.value(u"/usr/share/both"_s), u"one"_s);
    EXPECT_EQ(packages.size(), 2);
}

class QmlFinder : public tx::test::BundleTest {
protected:
    QStringList inside(const QByteArray &content) {
        writeFile(path(u"program"_s), content);
        const auto names = importsInside(path(u"program"_s));
        return names ? *names : QStringList{lineOf(names.error())};
    }
    /// A scanner that prints `answer`.
    QString scanner(const QByteArray &answer) {
        writeFile(path(u"answer"_s), answer);
        writeFile(path(u"scanner"_s),
                  "#!/bin/sh\necho \"$@\" > '" + path(u"words"_s).toUtf8() + "'\ncat \"$2\"/*.qml > '" +
                      path(u"read"_s).toUtf8() + "'\ncat '" + path(u"answer"_s).toUtf8() + "'\n",
                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path(u"scanner"_s);
    }
    static inline const QByteArray text =
        "import QtQuick 2.15\nimport QtQuick.Controls as C\nimport Qt.labs.settings 1.1\n"
        "// important Thing\nItem { property string s: \"" +
        QByteArray(2000, 'x') + "\" }\n";
    static inline const QStringList imports{u"Qt.labs.settings"_s, u"QtQuick"_s, u"QtQuick.Controls"_s};
};

TEST_F(QmlFinder, ImportsAreFoundInEveryFormOfResources) {
    EXPECT_EQ(inside(QByteArray("\x7f"
                                "ELF\0\0\0Z",
                                8) +
                     text),
              imports)
        << "as it is";
    // qCompress uses the same format as the resource compiler: the size, then zlib's format.
    EXPECT_EQ(inside("head" + qCompress(text) + "tail"), imports) << "zlib";
    QByteArray packed(qsizetype(ZSTD_compressBound(size_t(text.size()))), Qt::Uninitialized);
    packed.resize(qsizetype(
        ZSTD_compress(packed.data(), size_t(packed.size()), text.constData(), size_t(text.size()), 14)));
    EXPECT_EQ(inside("head" + packed + "tail"), imports) << "zstd";
    EXPECT_EQ(inside("nothing important, and import lower"), QStringList());
}

TEST_F(QmlFinder, DamagedResourcesAreReadOver) {
    QByteArray damaged = qCompress(text);
    damaged[damaged.size() / 2] = char(damaged[damaged.size() / 2] ^ 0x55);
    QByteArray endless("\x28\xb5\x2f\xfd\xe0\xff\xff\xff\xff\xff\xff\xff\x7f",
                       13); // claims a size of 2^63 bytes
    EXPECT_EQ(inside(damaged.left(damaged.size() / 2) + endless + "\nimport Left\n"), QStringList{u"Left"_s});
}

TEST_F(QmlFinder, ModulesOfQtAreFoundAndOthersNamed) {
    QDir().mkpath(path(u"qml/QtQuick"_s));
    QDir().mkpath(path(u"mine/Own"_s));
    const auto found = qmlImports(
        scanner("[{\"name\":\"QtQuick\",\"path\":\"" + path(u"qml/QtQuick"_s).toUtf8() +
                "\",\"type\":\"module\"},{\"name\":\"Own\",\"path\":\"" + path(u"mine/Own"_s).toUtf8() +
                "\",\"type\":\"module\"},{\"name\":\"Gone\",\"type\":\"module\"},{\"name\":\"a.js\",\"type\":"
                "\"javascript\"}]"),
        path(u"qml"_s), imports, {path(u"mine"_s)});
    ASSERT_TRUE(found) << lineOf(found.error()).toStdString();
    ASSERT_EQ(found->modules.size(), 1);
    EXPECT_EQ(found->modules[0].place, u"QtQuick"_s);
    EXPECT_EQ(found->missing, QStringList{u"Gone"_s});
    EXPECT_EQ(tx::test::readFile(path(u"read"_s)),
              QByteArray("import Qt.labs.settings\nimport QtQuick\nimport QtQuick.Controls\n"
                         "import QtQml.WorkerScript\nQtObject {}\n"));
    EXPECT_TRUE(tx::test::readFile(path(u"words"_s)).contains("-importPath " + path(u"qml"_s).toUtf8()));
}

TEST_F(QmlFinder, ScannerThatIsMissingFailsOrTalksIsAnErrorThatSaysSo) {
    const auto missing = qmlImports(path(u"none"_s), path(u"qml"_s), imports, {});
    EXPECT_THAT(lineOf(missing.error()).toStdString(),
                testing::HasSubstr("apt install qt6-declarative-dev-tools"));
    const auto talks = qmlImports(scanner("hello"), path(u"qml"_s), imports, {});
    EXPECT_THAT(lineOf(talks.error()).toStdString(),
                testing::HasSubstr("expected a JSON array, found: hello"));
    writeFile(path(u"failing"_s), "#!/bin/sh\necho no good >&2\nexit 3\n",
              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const auto fails = qmlImports(path(u"failing"_s), path(u"qml"_s), imports, {});
    EXPECT_THAT(lineOf(fails.error()).toStdString(), testing::HasSubstr("failed. no good"));
}

TEST_F(QmlFinder, FolderOfAModuleEndsWhereAnotherModuleBegins) {
    for (const QString &file : {u"qmldir"_s, u"libplugin.so"_s, u"plugin.qmltypes"_s, u"images/a.png"_s,
                                u"designer/tool.qml"_s, u"Inner/qmldir"_s, u"Inner/I.qml"_s}) {
        QDir().mkpath(QFileInfo(path(u"m/"_s + file)).path());
        writeFile(path(u"m/"_s + file), "x");
    }
    QStringList files = filesOf({u"M"_s, path(u"m"_s), u"M"_s});
    files.sort();
    EXPECT_EQ(files, (QStringList{u"images/a.png"_s, u"libplugin.so"_s, u"qmldir"_s}));
}

class BundleInfoList : public tx::test::BundleTest {
protected:
    Wishes wishes() const {
        Wishes result;
        result.executable = sample();
        result.identifier = u"org.example.MyApp"_s;
        result.name = u"My App"_s;
        result.build = u"1042"_s;
        return result;
    }
    const QDateTime now{QDate(2026, 11, 1), QTime(10, 0), Qt::UTC};
    QString refusal(const Wishes &asked) const {
        const auto info = infoListOf(asked, now);
        return info ? QString() : lineOf(info.error());
    }
};

TEST_F(BundleInfoList, SaysWhatTheCommandLineSays) {
    Wishes asked = wishes();
    asked.icon = u"/pictures/my.svg"_s;
    auto info = infoListOf(asked, now);
    ASSERT_TRUE(info) << lineOf(info.error()).toStdString();
    EXPECT_EQ(info->value(u"CFBundleIdentifier"_s), u"org.example.MyApp"_s);
    EXPECT_EQ(info->value(u"CFBundleName"_s), u"My App"_s);
    EXPECT_EQ(info->value(u"CFBundleExecutable"_s), u"sample"_s);
    EXPECT_EQ(info->value(u"CFBundleVersion"_s), u"1042"_s);
    EXPECT_EQ(info->value(u"CFBundleShortVersionString"_s), u"1042"_s);
    EXPECT_EQ(info->value(u"CFBundleIconFile"_s), u"my.svg"_s);
    EXPECT_EQ(info->value(u"TXUpdateBuildDate"_s), u"2026-11-01T10:00:00Z"_s);
    EXPECT_FALSE(info->contains(u"TXUpdatePublicKeys"_s));
    asked.version = u"2.1"_s;
    EXPECT_EQ(infoListOf(asked, now)->value(u"CFBundleShortVersionString"_s), u"2.1"_s);
}

TEST_F(BundleInfoList, IdentifiersAndBuildsThatNobodyCouldUseAreRefused) {
    for (const QString &identifier :
         {u""_s, u"MyApp"_s, u"org..MyApp"_s, u"org.my app"_s, u"org/example.x"_s}) {
        Wishes asked = wishes();
        asked.identifier = identifier;
        EXPECT_THAT(refusal(asked).toStdString(), testing::HasSubstr("is not an identifier"))
            << identifier.toStdString();
    }
    for (const QString &build : {u""_s, u"1 2"_s}) {
        Wishes asked = wishes();
        asked.build = build;
        EXPECT_THAT(refusal(asked).toStdString(), testing::HasSubstr("is not a build"))
            << build.toStdString();
    }
}

TEST_F(BundleInfoList, KeysOfBothPairsComeFirstAndSpare) {
    const auto made = tx::test::runProcess(tx::test::programsFolder() + u"/txupdate"_s,
                                           {u"keygen"_s, u"--no-passphrase"_s, path(u"release"_s)});
    ASSERT_EQ(made.status, 0) << made.errors.constData();
    Wishes asked = wishes();
    asked.keys = QStringList{path(u"release"_s)};
    const auto info = infoListOf(asked, now);
    ASSERT_TRUE(info) << lineOf(info.error()).toStdString();
    const QStringList keys = info->value(u"TXUpdatePublicKeys"_s).toStringList();
    ASSERT_EQ(keys.size(), 2);
    for (const auto &[key, file] :
         {std::pair(keys[0], u"release.pub"_s), std::pair(keys[1], u"release-spare.pub"_s)})
        EXPECT_TRUE(tx::test::readFile(path(file)).contains('\n' + key.mid(9).toUtf8()))
            << file.toStdString();
    asked.keys << path(u"release-spare"_s);
    const auto again = infoListOf(asked, now);
    ASSERT_TRUE(again) << lineOf(again.error()).toStdString();
    EXPECT_EQ(again->value(u"TXUpdatePublicKeys"_s).toStringList(), keys) << "the spare is there already";
    for (const QString &name : {u"none"_s, u"none-spare"_s}) {
        asked.keys = QStringList{path(name)};
        EXPECT_THAT(refusal(asked).toStdString(),
                    testing::HasSubstr(name.toStdString() + ".pub cannot be read"));
    }
    writeFile(path(u"bad.pub"_s), "untrusted comment: x\nRWQ\n");
    asked.keys = QStringList{path(u"bad"_s)};
    EXPECT_THAT(refusal(asked).toStdString(), testing::Not(testing::IsEmpty()));
}

TEST_F(BundleInfoList, MoreKeysComeFromAFileThatContradictsNothing) {
    const auto withFile = [this](const QVariantMap &content) {
        writeFile(path(u"more.plist"_s), tx::writePropertyList(content));
        Wishes asked = wishes();
        asked.info = path(u"more.plist"_s);
        return asked;
    };
    const auto info = infoListOf(withFile({{u"TXUpdateMaximumArchiveSize"_s, 5000000000LL}}), now);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->value(u"TXUpdateMaximumArchiveSize"_s), 5000000000LL);
    EXPECT_THAT(refusal(withFile({{u"CFBundleVersion"_s, u"9"_s}})).toStdString(),
                testing::HasSubstr("sets CFBundleVersion to another value"));
    // Values that no application with keys could use.
    EXPECT_THAT(refusal(withFile({{u"TXUpdatePublicKeys"_s, u"none"_s}})).toStdString(),
                testing::HasSubstr("an array of strings was expected"));
    writeFile(path(u"more.plist"_s), "no list");
    Wishes asked = wishes();
    asked.info = path(u"more.plist"_s);
    EXPECT_THAT(refusal(asked).toStdString(), testing::HasSubstr("is not a property list"));
}

} // namespace
