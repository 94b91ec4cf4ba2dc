// SPDX-License-Identifier: MIT
// A host that was bundled with the framework updates itself.
#include "tests/support/feedserver.h"
#include "tests/tools/bundle/bundletest.h"

#include <TarvixUpdate/TXBundle.h>

#include <QProcess>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using tx::test::ArchiveKind;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::ProcessResult;

namespace {

class BundledHost : public tx::test::BundleTest {
protected:
    const QString launches = path(u"launches"_s);

    BundledHost() {
        qputenv("TARVIX_NOTES_LAUNCH_LOG", launches.toUtf8());
        // On the terminal, whatever desktop runs the test.
        qunsetenv("DISPLAY");
        qunsetenv("WAYLAND_DISPLAY");
    }
    static ProcessResult bundleNotes(const QString &build, const QString &output,
                                     const QStringList &more = {}) {
        return tx::test::runProcess(tx::test::programsFolder() + u"/txupdate"_s,
                                    QStringList{u"bundle"_s, tx::test::programsFolder() + u"/TarvixNotes"_s,
                                                u"--identifier"_s, u"org.example.TarvixNotes"_s, u"--name"_s,
                                                u"Tarvix Notes"_s, u"--build"_s, build, u"--version"_s,
                                                build + u".0"_s, u"-o"_s, output} +
                                        tx::test::sanitizerWords() + more);
    }
    void updateFrom(const QString &layout, const QString &bundle, const QString &executable) {
        const ProcessResult old = bundleNotes(u"1"_s, path(u"apps"_s), {u"--layout"_s, layout});
        ASSERT_EQ(old.status, 0) << old.errors.constData();
        const ProcessResult made = bundleNotes(u"2"_s, path(u"staging"_s), {u"--layout"_s, layout});
        ASSERT_EQ(made.status, 0) << made.errors.constData();
        tx::test::makeArchive(path(u"new.tar"_s), ArchiveKind::Tar,
                              tx::test::entriesOf(path(u"staging/"_s + bundle)));
        const QString program = path(u"apps/"_s + bundle + executable);
        const tx::test::ProcessReaper reaper{QFileInfo(program).canonicalFilePath()};
        FeedServer server;
        server.expect("GET", "/feed.json",
                      HttpReply::json("{\"release\":[{\"type\":\"build\",\"build\":\"2\",\"version\":\"2.0\","
                                      "\"downloadURL\":\"" +
                                      server.url(u"/new.tar"_s).toUtf8() + "\"}]}"));
        server.expect("GET", "/new.tar", HttpReply::file(tx::test::readFile(path(u"new.tar"_s))));
        QProcess process;
        process.start(program, {u"update"_s, server.url(u"/feed.json"_s)});
        ASSERT_TRUE(process.waitForFinished(60000));
        EXPECT_EQ(process.exitCode(), 0)
            << process.readAll().constData() << process.readAllStandardError().constData();
        const auto isReopened = [this] {
            return tx::test::readFile(launches).contains("build=2 version=2.0");
        };
        // With a sanitizer on a busy machine, the new version takes long to load its libraries.
        ASSERT_TRUE(tx::test::waitUntil(isReopened, 60000)) << tx::test::readFile(launches).constData();
        EXPECT_TRUE(tx::test::readFile(launches).contains(" path=" + path(u"apps/"_s + bundle).toUtf8()))
            << tx::test::readFile(launches).constData();
        EXPECT_EQ(TXBundle(path(u"apps/"_s + bundle)).infoString(u"CFBundleVersion"_s), u"2"_s);
        EXPECT_EQ(tx::test::treeOf(path(u"apps/"_s + bundle)),
                  tx::test::treeOf(path(u"staging/"_s + bundle)));
        expectPolicyNamesItsProgram(path(u"apps/"_s + bundle), layout);
    }
    /// polkit finds the policy by the path of the program, which depends on the layout.
    void expectPolicyNamesItsProgram(const QString &bundle, const QString &layout) {
        const QString policy = path(u"policy"_s);
        const ProcessResult written = tx::test::runProcess(
            u"cmake"_s, {u"-DFILE="_s + policy, u"-DNAME=Notes"_s, u"-DBUNDLE="_s + bundle,
                         u"-DLAYOUT="_s + layout, u"-DIDENTIFIER=org.example.TarvixNotes"_s, u"-P"_s,
                         tx::test::sourcesFolder() + u"/../cmake/TarvixUpdatePolicy.cmake"_s});
        ASSERT_EQ(written.status, 0) << written.errors.constData();
        static const QRegularExpression program(u"policykit\\.exec\\.path\"><!\\[CDATA\\[(.*)\\]\\]>"_s);
        const QString named = program.match(QString::fromUtf8(tx::test::readFile(policy))).captured(1);
        EXPECT_TRUE(named.endsWith(u"/TXUpdateAuthorize")) << named.toStdString();
        EXPECT_TRUE(QFileInfo(named).isExecutable()) << named.toStdString();
        EXPECT_EQ(named, QFileInfo(named).canonicalFilePath()) << "the host names the real path";
    }
    static QStringList placesIn(const QJsonObject &list) {
        QStringList places;
        for (const QJsonValue &value : list[u"files"_s].toArray())
            places << value.toObject()[u"place"_s].toString();
        return places;
    }
};

TEST_F(BundledHost, UpdatesItselfInItsAppFolder) {
    updateFrom(u"app"_s, u"TarvixNotes.app"_s, u"/Contents/Linux/TarvixNotes"_s);
}

TEST_F(BundledHost, UpdatesItselfInItsPrefix) {
    updateFrom(u"prefix"_s, u"TarvixNotes"_s, u"/bin/TarvixNotes"_s);
    EXPECT_EQ(tx::test::namesIn(path(u"apps/TarvixNotes"_s)),
              (QStringList{u"Contents"_s, u"Info.plist"_s, u"bin"_s, u"lib"_s, u"share"_s}));
}

TEST_F(BundledHost, ToolsOfTheFrameworkGoAlongAndItsPageModuleWhenItIsAskedFor) {
    const ProcessResult without = bundleNotes(u"1"_s, path(u"dist"_s), {u"--dry-run"_s, u"--json"_s});
    ASSERT_EQ(without.status, 0) << without.errors.constData();
    const QStringList places = placesIn(json(without));
    const QString resources = u"Contents/Frameworks/TarvixUpdate/Resources/"_s;
    for (const QString &tool :
         {u"TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s, u"TXUpdateInterface.so"_s,
          u"TXUpdateUnpacker"_s, u"ditto"_s, u"en.lproj/TarvixUpdate.strings"_s})
        EXPECT_TRUE(places.contains(resources + tool)) << tool.toStdString();
    EXPECT_TRUE(places.contains(u"Contents/PlugIns/tls/libqopensslbackend.so"_s));
    EXPECT_TRUE(places.contains(u"Contents/PlugIns/imageformats/libqsvg.so"_s));
    EXPECT_THAT(places, testing::Contains(testing::Truly([](const QString &place) {
                    return place.startsWith(u"Contents/Frameworks/libssl.so.");
                })));
    EXPECT_TRUE(places.contains(u"Contents/Frameworks/libQt6UiTools.so.6"_s));
    EXPECT_FALSE(places.contains(resources + u"TXUpdateWebView.so"_s));
    EXPECT_FALSE(places.contains(u"Contents/Frameworks/libQt6WebEngineCore.so.6"_s));

    const ProcessResult with =
        bundleNotes(u"1"_s, path(u"dist"_s), {u"--dry-run"_s, u"--json"_s, u"--with-web-engine"_s});
    ASSERT_EQ(with.status, 0) << with.errors.constData();
    const QStringList all = placesIn(json(with));
    EXPECT_TRUE(all.contains(resources + u"TXUpdateWebView.so"_s));
    EXPECT_TRUE(all.contains(u"Contents/Frameworks/libQt6WebEngineCore.so.6"_s));
    EXPECT_TRUE(all.contains(u"Contents/Linux/QtWebEngineProcess"_s));
    EXPECT_TRUE(all.contains(u"Contents/Resources/qtwebengine/resources/icudtl.dat"_s) ||
                all.contains(u"Contents/Resources/qtwebengine/resources/qtwebengine_resources.pak"_s));
}

TEST_F(BundledHost, HostWithoutWindowsGetsNothingForWindowsAndRuns) {
    const ProcessResult made =
        tx::test::runProcess(tx::test::programsFolder() + u"/txupdate"_s,
                             QStringList{u"bundle"_s, sampleFolder() + u"/windowless_sample"_s,
                                         u"--identifier"_s, u"org.example.Daemon"_s, u"--name"_s, u"Daemon"_s,
                                         u"--build"_s, u"1"_s, u"-o"_s, path(u"dist"_s), u"--json"_s} +
                                 tx::test::sanitizerWords());
    ASSERT_EQ(made.status, 0) << made.errors.constData();
    const QStringList places = placesIn(json(made));
    EXPECT_TRUE(places.contains(
        u"Contents/Frameworks/TarvixUpdate/Resources/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s));
    EXPECT_TRUE(places.contains(u"Contents/Frameworks/libQt6Network.so.6"_s));
    for (const QString &place : places) {
        EXPECT_FALSE(place.contains(u"PlugIns/platforms") || place.contains(u"libQt6Gui") ||
                     place.contains(u"libQt6Widgets") || place.endsWith(u"TXUpdateInterface.so"))
            << place.toStdString();
    }
    // Without a display, in another folder, and without the files that it was built from.
    QDir().mkpath(path(u"user"_s));
    ASSERT_TRUE(QDir().rename(path(u"dist/Daemon.app"_s), path(u"user/Daemon.app"_s)));
    const QString home = path(u"user/Daemon.app/"_s);
    const ProcessResult ran = tx::test::runProcess(
        u"env"_s, {u"-u"_s, u"DISPLAY"_s, u"-u"_s, u"WAYLAND_DISPLAY"_s, u"-u"_s, u"QT_QPA_PLATFORM"_s,
                   u"-u"_s, u"TXUPDATE_RESOURCES"_s, home + u"Contents/Linux/windowless_sample"_s});
    EXPECT_EQ(ran.status, 0) << ran.errors.constData();
    int own = 0;
    for (const QByteArray &line : ran.output.split('\n')) {
        if (!line.contains("libQt6") && !line.contains("libTarvixUpdate"))
            continue;
        ++own;
        EXPECT_TRUE(line.startsWith("library " + home.toUtf8())) << line.constData();
    }
    EXPECT_GE(own, 3) << ran.output.constData();
}

} // namespace
