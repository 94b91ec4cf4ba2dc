// SPDX-License-Identifier: MIT
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QDirIterator>

#include <set>
#include <string>

using namespace Qt::StringLiterals;
using tx::test::runProcess;

namespace {

TEST(House, IncludesGoDownTheFloorsOnly) {
    const auto result = runProcess(tx::test::sourcesFolder() + u"/../scripts/check-layers"_s, {});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
}

/// The symbols that a shared library defines and exports.
QByteArray definedSymbols(const QString &library) {
    const auto symbols =
        runProcess(u"nm"_s, {u"-DC"_s, u"--defined-only"_s, tx::test::librariesFolder() + u'/' + library});
    EXPECT_EQ(symbols.status, 0) << symbols.errors.constData();
    return symbols.output;
}

/// A library exports only what the public headers mark, and what the upper library needs from the lower one.
TEST(House, LibrariesShowTheirInterfaceOnly) {
    const QByteArray core = definedSymbols(u"libTarvixUpdateCore.so"_s);
    EXPECT_TRUE(core.contains("TXUpdater::sharedUpdater()"));
    EXPECT_TRUE(core.contains("EscapeForURL"));
    const QByteArray widgets = definedSymbols(u"libTarvixUpdateWidgets.so"_s);
    EXPECT_TRUE(widgets.contains("TXUpdatePanel::"));
    EXPECT_FALSE(widgets.contains(" T tx::")) << widgets.constData();
    for (const QByteArray &library : {core, widgets}) {
        EXPECT_FALSE(library.contains(" T main"));
        // A host may use a libsodium of its own.
        EXPECT_FALSE(library.contains("crypto_generichash"));
        EXPECT_FALSE(library.contains("sodium_init"));
    }
    // Each of these is marked with TX_SHARED where it is defined, for the user-interface library only.
    std::set<std::string> shared;
    for (const QByteArray &line : core.split('\n')) {
        if (const auto at = line.indexOf(" T tx::"); at >= 0)
            shared.insert(line.mid(at + 7).left(line.mid(at + 7).indexOf('(')).toStdString());
    }
    EXPECT_EQ(shared, (std::set<std::string>{"UpdateDownload::begin",
                                             "UserDefaults::standard",
                                             "UserDefaults::value",
                                             "applicationIsEnding",
                                             "checkHostIdentity",
                                             "dateLocaleTag",
                                             "formatText",
                                             "frameworkResourcesPath",
                                             "localizedFormat",
                                             "localizedPlural",
                                             "localizedString",
                                             "openAddress",
                                             "operatingSystemName",
                                             "postToMain",
                                             "presentAlertInLog",
                                             "reasonAgainstSandbox",
                                             "returnFreedMemory",
                                             "runOnMainAndWait",
                                             "services",
                                             "tellsOfFeedTrouble",
                                             "whenApplicationEnds"}));
}

/// The libraries that a program names for the loader.
QStringList neededLibraries(const QString &program) {
    const auto read = runProcess(u"readelf"_s, {u"--dynamic"_s, u"--wide"_s, program});
    EXPECT_EQ(read.status, 0) << read.errors.constData();
    QStringList libraries;
    for (const QByteArray &line : read.output.split('\n')) {
        if (line.contains("(NEEDED)"))
            libraries += QString::fromUtf8(line).section(u'[', 1).section(u']', 0, 0);
    }
    return libraries;
}

/// Everything in the framework's resources that can be started, but the one that uses the bundle's Qt.
TEST(House, ToolsNeedNothingButTheCLibrary) {
    const QString resources = tx::test::resourcesFolder();
    const bool sanitized = !QStringLiteral(TEST_SANITIZERS).isEmpty();
    QStringList tools;
    QDirIterator it(resources, QDir::Files | QDir::Executable, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString file = it.next();
        const QString name = QFileInfo(file).fileName();
        if (name.endsWith(u".so") || name == u"TXUpdateReveal")
            continue;
        tools += name;
        const QStringList needed = neededLibraries(file);
        EXPECT_TRUE(sanitized || needed.contains(u"libc.so.6"_s)) << name.toStdString();
        for (const QString &library : needed) {
            // A build with sanitizers is for tests alone; they bring the compiler's shared libraries with
            // them.
            const bool isCompilers =
                sanitized && (library.startsWith(u"libstdc++.") || library.startsWith(u"libgcc_s.") ||
                              library.contains(u"san."));
            EXPECT_TRUE(isCompilers || library.startsWith(u"libc.so.") || library.startsWith(u"libm.so.") ||
                        library.startsWith(u"ld-linux"))
                << name.toStdString() << " needs " << library.toStdString();
        }
    }
    tools.sort();
    EXPECT_EQ(tools, (QStringList{u"TXUpdateAuthorize"_s, u"TXUpdateInstaller"_s, u"TXUpdateLauncher"_s,
                                  u"TXUpdateUnpacker"_s, u"ditto"_s, u"hdiutil"_s, u"open"_s,
                                  u"system_profiler"_s, u"tar"_s, u"xattr"_s}));
}

} // namespace
