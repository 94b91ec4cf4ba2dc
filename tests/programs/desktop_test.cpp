// SPDX-License-Identifier: MIT
// The example application in its window on a desktop of its own, X11 with a window manager and Wayland: from
// the click on "Check for Updates…" to the new build that was opened again, with the keys and clicks of a
// user, real pages and a real server. And the demonstration, with a display that gives no pictures, and
// without a display.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QImage>
#include <QProcess>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;
using tx::test::waitUntil;

namespace {

/// Sets a variable of the environment for a while, or takes it away (null).
class Variable {
public:
    Variable(const char *name, const QByteArray &value)
        : m_name(name)
        , m_before(qgetenv(name))
        , m_was(qEnvironmentVariableIsSet(name)) {
        value.isNull() ? qunsetenv(name) : qputenv(name, value);
    }
    ~Variable() { m_was ? qputenv(m_name, m_before) : qunsetenv(m_name); }
    Q_DISABLE_COPY_MOVE(Variable)

private:
    const char *m_name;
    QByteArray m_before;
    bool m_was;
};

constexpr QFile::Permissions executable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
const QString demoScripts = tx::test::sourcesFolder() + u"/../scripts/demo/"_s;

/// Runs one of the scripts to its end, which takes minutes under a sanitizer.
tx::test::ProcessResult runScript(const QString &program, const QStringList &arguments) {
    QProcess process;
    process.start(program, arguments);
    process.closeWriteChannel();
    if (!process.waitForFinished(280000)) {
        process.terminate();
        process.waitForFinished();
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), process.readAllStandardError()};
}

/// The programs that these tests start, without what a sanitizer would say about the web engine and root
/// would lack.
class GraphicalTest : public tx::test::FrameworkTest {
    // Root in a container has no sandbox; these pages are the test's own.
    const Variable sandbox{"QTWEBENGINE_DISABLE_SANDBOX", "1"};
    const Variable leaks{"LSAN_OPTIONS", "suppressions=" + tx::test::sourcesFolder().toUtf8() +
                                             "/support/leaks.supp:print_suppressions=0"};
    const Variable addresses{"ASAN_OPTIONS", "new_delete_type_mismatch=0"};
    const Variable platform{"QT_QPA_PLATFORM", {}};
};

class OnADesktop : public GraphicalTest, public testing::WithParamInterface<const char *> {
protected:
    QProcess desktop;
    const QString app = path(u"My Applications/Notes.app"_s);
    const QString launches = path(u"launches"_s);
    const QString pictures = path(u"pictures"_s);
    const tx::test::ProcessReaper reaper{app + u"/Contents/Linux/TarvixNotes"_s};
    const Variable launchLog{"TARVIX_NOTES_LAUNCH_LOG", launches.toUtf8()};
    const Variable pictureFolder{"TARVIX_NOTES_PICTURES", pictures.toUtf8()};

    OnADesktop() {
        desktop.setStandardOutputFile(QProcess::nullDevice());
        desktop.setStandardErrorFile(path(u"desktop-errors"_s));
        makeBundle(app, u"1"_s, u"1.0"_s);
    }
    ~OnADesktop() override {
        desktop.closeWriteChannel();
        desktop.waitForFinished();
    }
    /// The variables by which programs find the desktop, which stays until the end of the test.
    QProcessEnvironment desktopsEnvironment() {
        const QString variables = path(u"variables"_s);
        desktop.start(demoScripts + u"desktop"_s,
                      {QString::fromLatin1(GetParam()), u"sh"_s, u"-c"_s,
                       u"env -0 > \"$0.new\" && mv \"$0.new\" \"$0\" && exec cat"_s, variables});
        EXPECT_TRUE(waitUntil([&] {
            return QFileInfo::exists(variables) || desktop.state() == QProcess::NotRunning;
        })) << tx::test::readFile(path(u"desktop-errors"_s)).constData();
        QProcessEnvironment environment;
        for (const QByteArray &variable : tx::test::readFile(variables).split('\0')) {
            const qsizetype end = variable.indexOf('=');
            if (end > 0)
                environment.insert(QString::fromUtf8(variable.first(end)),
                                   QString::fromUtf8(variable.sliced(end + 1)));
        }
        return environment;
    }
    static void makeBundle(const QString &bundle, const QString &build, const QString &version) {
        const auto made =
            tx::test::runProcess(tx::test::sourcesFolder() + u"/../examples/notes/make-bundle"_s,
                                 {tx::test::programsFolder() + u"/.."_s, build, version, bundle});
        ASSERT_EQ(made.status, 0) << made.errors.constData();
    }
};

TEST_P(OnADesktop, WholeUpdateFromTheMenuToTheNewBuild) {
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
    const bool isWayland = std::string(GetParam()) == "wayland";
    QProcessEnvironment environment = desktopsEnvironment();
    ASSERT_EQ(environment.contains(u"WAYLAND_DISPLAY"_s), isWayland) << "no other desktop's";
    ASSERT_EQ(environment.contains(u"DISPLAY"_s), !isWayland);
    environment.insert(u"TARVIX_NOTES_FEED"_s, QString::fromUtf8(site) + u"/feed.json"_s);
    if (isWayland) {
        environment.insert(u"QT_QPA_PLATFORM"_s, u"wayland"_s);
        environment.insert(u"TARVIX_NOTES_CAMERA"_s, demoScripts + u"picture"_s);
    }
    QProcess notes;
    notes.setProcessEnvironment(environment);
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
    EXPECT_TRUE(QFileInfo::exists(pictures + u"/6-unreachable.png"_s)) << "said that a server did not answer";
    if (!isWayland) {
        // The picture of the 720 pixels of the window and 24 of the desktop at each side.
        EXPECT_GT(QImage(pictures + u"/1-window.png"_s).width(), 720 + 2 * 24) << "with the window's frame";
    }
    for (const QString &name : tx::test::namesIn(pictures)) {
        // A state was shown, not an empty window or the desktop alone.
        const QImage picture(pictures + u'/' + name);
        ASSERT_FALSE(picture.isNull()) << name.toStdString();
        EXPECT_EQ(picture.pixelColor(0, 0), QColor(0x6b, 0x8e, 0xae))
            << "the desktop: " << name.toStdString();
        QSet<QRgb> colours;
        for (int x = 0; x < picture.width(); x += 3) {
            for (int y = 0; y < picture.height(); y += 3)
                colours << picture.pixel(x, y);
        }
        EXPECT_GT(colours.size(), 8) << name.toStdString();
    }
    EXPECT_EQ(tx::test::namesIn(path(u"My Applications"_s)), QStringList{u"Notes.app"_s});
}
INSTANTIATE_TEST_SUITE_P(X11AndWayland, OnADesktop, testing::Values("x11", "wayland"),
                         [](const auto &tested) { return std::string(tested.param); });

/// run-demo, but for building.
class Demonstration : public GraphicalTest {
protected:
    const QString pictures = path(u"pictures"_s);
    const QStringList arguments{demoScripts + u"window"_s, tx::test::programsFolder() + u"/.."_s, u"light"_s,
                                pictures};
    const Variable display{"DISPLAY", {}};
    const Variable wayland{"WAYLAND_DISPLAY", {}};
};

TEST_F(Demonstration, ShowsItselfOnAVirtualDisplayWithoutADesktop) {
    const auto done = runScript(arguments.first(), arguments.mid(1));
    EXPECT_EQ(done.status, 0) << done.output.constData() << done.errors.constData();
    EXPECT_THAT(done.output.toStdString(), testing::HasSubstr("No display: showing it on a virtual one\n"));
    EXPECT_THAT(done.output.toStdString(), testing::HasSubstr("Version 1.0 (build 1) became 2.0 (build 4)"));
    EXPECT_THAT(done.output.toStdString(), testing::Not(testing::HasSubstr("could not be taken")));
    EXPECT_THAT(tx::test::namesIn(pictures),
                testing::IsSupersetOf({u"1-window.png"_s, u"2-checking.png"_s, u"3-update.png"_s,
                                       u"3-plain-notes.png"_s, u"6-unreachable.png"_s, u"8-news.png"_s,
                                       u"9-at-quit.png"_s, u"10-move.png"_s}));
}

TEST_F(Demonstration, SucceedsOnADesktopThatGivesNoPicturesAndSaysSo) {
    const QString camera = path(u"camera"_s);
    tx::test::writeFile(camera, "#!/bin/sh\necho 'photography is forbidden' >&2\nexit 1\n", executable);
    const Variable forbidden("TARVIX_NOTES_CAMERA", camera.toUtf8());
    const auto done = runScript(demoScripts + u"desktop"_s, QStringList(u"wayland"_s) + arguments);
    EXPECT_EQ(done.status, 0) << done.output.constData() << done.errors.constData();
    EXPECT_THAT(done.output.toStdString(), testing::HasSubstr("Some pictures could not be taken"));
    EXPECT_THAT(done.output.toStdString(), testing::HasSubstr("photography is forbidden\n"));
    EXPECT_THAT(done.output.toStdString(), testing::HasSubstr("Version 1.0 (build 1) became 2.0 (build 4)"));
    EXPECT_EQ(tx::test::namesIn(pictures), QStringList());
}

TEST_F(Demonstration, FailsWhenAStateIsNotReached) {
    // An application that ends at once.
    const QString tree = path(u"tree"_s);
    tx::test::writeFile(tree + u"/lib/libTarvixUpdate.so.0"_s, "");
    tx::test::writeFile(tree + u"/lib/TarvixUpdate/Resources/empty"_s, "");
    tx::test::writeFile(tree + u"/bin/TarvixNotes"_s, "#!/bin/sh\nexit 5\n", executable);
    ASSERT_TRUE(QFile::link(QFileInfo(tx::test::programsFolder() + u"/../bin/txupdate"_s).absoluteFilePath(),
                            tree + u"/bin/txupdate"_s));
    const Variable somewhere("DISPLAY", ":0");
    const auto done = runScript(arguments.first(), {tree, u"light"_s, pictures});
    EXPECT_EQ(done.status, 1);
    EXPECT_THAT(done.output.toStdString(), testing::HasSubstr("FAILED: the old build ended with status 5\n"));
    EXPECT_THAT(done.output.toStdString(), testing::HasSubstr("FAILED: the new build did not come up\n"));
    EXPECT_THAT(done.output.toStdString(),
                testing::HasSubstr("FAILED: the state 1-window was not reached\n"));
}

struct Called {
    const char *name;
    QStringList words;
    int status;
    std::string says;
    QString programs = qEnvironmentVariable("PATH");
};
void PrintTo(const Called &called, std::ostream *out) { *out << called.words.join(u' ').toStdString(); }
class DesktopOfItsOwn : public GraphicalTest, public testing::WithParamInterface<Called> {};

TEST_P(DesktopOfItsOwn, SaysWhatItLacksAndHandsOnTheStatus) {
    const auto done = runScript(u"/usr/bin/env"_s, QStringList{u"PATH="_s + GetParam().programs,
                                                               u"/bin/bash"_s, demoScripts + u"desktop"_s} +
                                                       GetParam().words);
    EXPECT_EQ(done.status, GetParam().status);
    EXPECT_THAT((done.output + done.errors).toStdString(), testing::HasSubstr(GetParam().says));
}
const std::string usage = "usage: desktop x11|wayland COMMAND...\n";
INSTANTIATE_TEST_SUITE_P(
    Words, DesktopOfItsOwn,
    testing::Values(
        Called{"Nothing", {}, 64, usage}, Called{"NoCommand", {u"x11"_s}, 64, usage},
        Called{"AnotherKind", {u"mir"_s, u"true"_s}, 64, usage},
        Called{"WithoutXvfb", {u"x11"_s, u"true"_s}, 69, "there is no program Xvfb", u"/nowhere"_s},
        Called{"WithoutSway", {u"wayland"_s, u"true"_s}, 69, "there is no program sway", u"/nowhere"_s},
        Called{"X11",
               {u"x11"_s, u"sh"_s, u"-c"_s, u"echo \"$XDG_SESSION_TYPE $WAYLAND_DISPLAY$DISPLAY\"; exit 7"_s},
               7,
               "x11 :"},
        Called{"Wayland",
               {u"wayland"_s, u"sh"_s, u"-c"_s,
                u"echo \"$XDG_SESSION_TYPE $DISPLAY$WAYLAND_DISPLAY\"; exit 7"_s},
               7,
               "wayland /"}),
    [](const auto &tested) { return std::string(tested.param.name); });

} // namespace
