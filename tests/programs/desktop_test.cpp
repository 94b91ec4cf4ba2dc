// SPDX-License-Identifier: MIT
// The example application in its window on a display of its own: from the click on "Check for Updates..." to
// the new build that was opened again, with the keys and clicks of a user, real pages and a real server.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/processes.h"

#include <QImage>
#include <QProcess>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;
using tx::test::waitUntil;

namespace {

class OnADesktop : public tx::test::FrameworkTest {
protected:
    QProcess display;
    const QString app = path(u"My Applications/Notes.app"_s);
    const QString launches = path(u"launches"_s);
    const QString pictures = path(u"pictures"_s);
    const tx::test::ProcessReaper reaper{app + u"/Contents/Linux/TarvixNotes"_s};

    OnADesktop() {
        display.setStandardOutputFile(QProcess::nullDevice());
        display.setStandardErrorFile(QProcess::nullDevice());
        const QString number = path(u"display"_s);
        display.start(
            u"/bin/sh"_s,
            {u"-c"_s, u"exec Xvfb -displayfd 3 -screen 0 1280x900x24 -nolisten tcp 3> \"$0\""_s, number});
        EXPECT_TRUE(waitUntil([&] { return tx::test::readFile(number).endsWith('\n'); }));
        qputenv("DISPLAY", ':' + tx::test::readFile(number).trimmed());
        qunsetenv("WAYLAND_DISPLAY");
        qputenv("QT_QPA_PLATFORM", "xcb");
        // Root in a container has no sandbox; these pages are the test's own.
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
        qputenv("LSAN_OPTIONS", "suppressions=" TEST_SOURCES "/support/leaks.supp:print_suppressions=0");
        qputenv("ASAN_OPTIONS", "new_delete_type_mismatch=0");
        qputenv("TARVIX_NOTES_LAUNCH_LOG", launches.toUtf8());
        qputenv("TARVIX_NOTES_PICTURES", pictures.toUtf8());
        makeBundle(app, u"1"_s, u"1.0"_s);
    }
    ~OnADesktop() override {
        for (const char *name : {"DISPLAY", "TARVIX_NOTES_PICTURES", "TARVIX_NOTES_FEED"})
            qunsetenv(name);
        qputenv("QT_QPA_PLATFORM", "offscreen");
        display.terminate();
        display.waitForFinished();
    }
    static void makeBundle(const QString &bundle, const QString &build, const QString &version) {
        const auto made =
            tx::test::runProcess(QStringLiteral(TEST_SOURCES) + u"/../examples/notes/make-bundle"_s,
                                 {QStringLiteral(TEST_PROGRAMS) + u"/.."_s, build, version, bundle});
        ASSERT_EQ(made.status, 0) << made.errors.constData();
    }
};

TEST_F(OnADesktop, WholeUpdateFromTheMenuToTheNewBuild) {
    makeBundle(path(u"new/Notes.app"_s), u"4"_s, u"2.0"_s);
    const QStringList content = tx::test::treeOf(path(u"new/Notes.app"_s));
    tx::test::makeArchive(path(u"archive.zip"_s), tx::test::ArchiveKind::Zip,
                          tx::test::entriesOf(path(u"new/Notes.app"_s)));
    const QByteArray archive = tx::test::readFile(path(u"archive.zip"_s));
    FeedServer server;
    const QByteArray site = server.url(u""_s).toUtf8();
    server.always([&](const HttpRequest &request) {
        if (request.path().endsWith(".zip"))
            return HttpReply::file(archive);
        if (request.path().endsWith(".html"))
            return HttpReply::file("<h1>Notes</h1>", "text/html");
        return HttpReply::json(
            R"({"release":[{"type":"build","build":"4","version":"2.0","date":"2026-11-01 10:00:00","releaseNotesURL":")" +
            site + R"(/notes.html","downloadURL":")" + site +
            R"(/a.zip"},{"type":"post","title":"News","date":"2026-11-01 10:00:00","display":"passive","minBuild":"4",)"
            R"("launch":"any","url":")" +
            site +
            R"(/news.html"},{"type":"post","title":"Bye","date":"2026-11-01 10:00:00","display":"atQuit",)"
            R"("minBuild":"4","launch":"any","url":")" +
            site + R"(/quit.html"}]})");
    });
    qputenv("TARVIX_NOTES_FEED", (site + "/feed.json"));
    QProcess notes;
    notes.start(app + u"/Contents/Linux/TarvixNotes"_s, QStringList());
    ASSERT_TRUE(notes.waitForFinished(120000));
    EXPECT_EQ(notes.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(notes.exitCode(), 0) << notes.readAllStandardError().constData();
    ASSERT_TRUE(
        waitUntil([&] { return tx::test::readFile(launches).contains("build=4 version=2.0"); }, 60000));
    EXPECT_EQ(tx::test::treeOf(app), content) << "byte for byte";
    EXPECT_TRUE(QFileInfo::exists(pictures + u"/5-unsaved.png"_s)) << "asked about unsaved notes";
    EXPECT_THAT(tx::test::readFile(path(u"home/.local/share/tarvix-notes.txt"_s)).toStdString(),
                testing::HasSubstr("Written before the update."));
    EXPECT_TRUE(waitUntil([&] { return !QImage(pictures + u"/9-at-quit.png"_s).isNull(); }, 120000))
        << tx::test::namesIn(pictures).join(u' ').toStdString();
    for (const QString &name : tx::test::namesIn(pictures)) {
        // A state was shown, not an empty window.
        const QImage picture(pictures + u'/' + name);
        ASSERT_FALSE(picture.isNull()) << name.toStdString();
        QSet<QRgb> colours;
        for (int x = 0; x < picture.width(); x += 3) {
            for (int y = 0; y < picture.height(); y += 3)
                colours << picture.pixel(x, y);
        }
        EXPECT_GT(colours.size(), 8) << name.toStdString();
    }
    EXPECT_EQ(tx::test::namesIn(path(u"My Applications"_s)), QStringList{u"Notes.app"_s});
}

} // namespace
