// SPDX-License-Identifier: MIT
// A whole update on a machine that has the C library and nothing else: no Qt, no shell, no other library.
// What an application needs beyond that is in its bundle.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QProcess>

#include <filesystem>
#include <optional>

using namespace Qt::StringLiterals;
using tx::test::ArchiveKind;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::namesIn;
using tx::test::readFile;
using tx::test::runProcess;
using tx::test::waitUntil;

namespace {

bool isPartOfTheCLibrary(const QString &name) {
    for (const char *part : {"libc.so.", "libm.so.", "ld-linux", "libresolv.so.", "librt.so.", "libdl.so.",
                             "libpthread.so.", "libmvec.so."}) {
        if (name.startsWith(QLatin1StringView(part)))
            return true;
    }
    return false;
}

class MinimalRoot : public tx::test::FrameworkTest, public testing::WithParamInterface<ArchiveKind> {
protected:
    const QString root = path(u"root"_s);
    const QString place = u"/Applications/Notes.app"_s; ///< in that root
    const QString app = root + place;
    FeedServer server;

    MinimalRoot() {
        bundle(app, u"1"_s);
        QDir().mkpath(root + u"/home"_s);
        QDir().mkpath(root + u"/tmp"_s);
        copyLibraries();
        // The new build stands alone as well.
        const QString fresh = path(u"staging/Notes.app"_s);
        bundle(fresh, u"2"_s);
        QDir(fresh + u"/Contents/Frameworks"_s).removeRecursively();
        QFile::remove(fresh + u"/Contents/Linux/TarvixNotes"_s);
        QFile::copy(tx::test::helpersFolder() + u"/launch_recorder"_s,
                    fresh + u"/Contents/Linux/TarvixNotes"_s);
    }
    static void bundle(const QString &where, const QString &build) {
        const auto made = runProcess(tx::test::sourcesFolder() + u"/../examples/notes/make-bundle"_s,
                                     {tx::test::programsFolder() + u"/.."_s, build, build + u".0"_s, where});
        ASSERT_EQ(made.status, 0) << made.errors.constData();
    }
    /// The C library into the root, all others into the bundle. The tools of a build with sanitizers need
    /// those, which are not theirs to bring.
    void copyLibraries() const {
        const bool sanitized = !QStringLiteral(TEST_SANITIZERS).isEmpty();
        const auto listed = runProcess(u"ldd"_s, {app + u"/Contents/Linux/TarvixNotes"_s});
        ASSERT_EQ(listed.status, 0) << listed.errors.constData();
        for (const QByteArray &line : listed.output.split('\n')) {
            const QString file = QString::fromUtf8(line).section(u"=> "_s, -1).trimmed().section(u' ', 0, 0);
            const QString name = QFileInfo(file).fileName();
            if (!file.startsWith(u'/') || file.startsWith(app))
                continue;
            const bool isOwn = !isPartOfTheCLibrary(name);
            const QString target =
                isOwn && !sanitized ? app + u"/Contents/Frameworks/"_s + name : root + file;
            QDir().mkpath(QFileInfo(target).path());
            std::filesystem::copy_file(std::filesystem::canonical(file.toStdString()), target.toStdString(),
                                       std::filesystem::copy_options::overwrite_existing);
        }
    }
    void serveNewBuild() {
        const QString name = u"/Notes"_s + QString::fromLatin1(tx::test::suffixOf(GetParam()));
        tx::test::makeArchive(path(u"archive"_s), GetParam(),
                              tx::test::entriesOf(path(u"staging/Notes.app"_s)));
        server.expect("GET", "/feed.json",
                      HttpReply::json("{\"release\":[{\"type\":\"build\",\"build\":\"2\",\"version\":\"2.0\","
                                      "\"downloadURL\":\"" +
                                      server.url(name).toUtf8() + "\"}]}"));
        server.expect("GET", name.toUtf8(), HttpReply::file(readFile(path(u"archive"_s))));
    }
    /// Starts a program whose root folder is this test's.
    void start(QProcess &process, const QStringList &command) const {
        QProcessEnvironment environment;
        environment.insert(u"PATH"_s, qEnvironmentVariable("PATH"));
        environment.insert(u"HOME"_s, u"/home"_s);
        environment.insert(u"LD_LIBRARY_PATH"_s, place + u"/Contents/Frameworks"_s);
        environment.insert(u"TARVIX_NOTES_LAUNCH_LOG"_s, u"/launches"_s);
        process.setProcessEnvironment(environment);
        process.start(tx::test::sourcesFolder() + u"/programs/in-own-root"_s, QStringList{root} + command);
        EXPECT_TRUE(process.waitForFinished(120000));
    }
    /// False where the system lets nobody have a root of its own, as for an ordinary user in another root:
    /// there the tools' own needs (House.ToolsNeedNothingButTheCLibrary) say as much as can be said.
    bool mayHaveRoot() const {
        QProcess process;
        start(process, {u"/nothing"_s});
        constexpr int notPermitted = 125;
        constexpr int notFound = 127;
        EXPECT_THAT(process.exitCode(), testing::AnyOf(notPermitted, notFound))
            << process.readAllStandardError().constData();
        return process.exitCode() != notPermitted;
    }
    /// The host's end.
    tx::test::ProcessResult update() const {
        QProcess process;
        start(process, {place + u"/Contents/Linux/TarvixNotes"_s, u"update"_s, server.url(u"/feed.json"_s)});
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }
    QString build() const { return TXBundle(app).infoString(u"CFBundleVersion"_s); }
    QStringList cache() const {
        return namesIn(root + u"/home/.cache/TarvixUpdate/org.example.TarvixNotes.TXUpdater"_s);
    }
};

TEST_P(MinimalRoot, UpdateComesThroughAndTheNewBuildIsOpened) {
    if (!mayHaveRoot())
        return;
    serveNewBuild();
    const auto result = update();
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    ASSERT_TRUE(waitUntil([this] { return readFile(root + u"/launches"_s).contains("recorder "); }))
        << result.output.constData() << result.errors.constData() << build().toStdString();
    EXPECT_TRUE(readFile(root + u"/launches"_s)
                    .endsWith("recorder " + place.toUtf8() + "/Contents/Linux/TarvixNotes\n"));
    EXPECT_EQ(build(), u"2"_s);
    EXPECT_EQ(tx::test::treeOf(app), tx::test::treeOf(path(u"staging/Notes.app"_s)));
    EXPECT_EQ(namesIn(root + u"/Applications"_s), QStringList{u"Notes.app"_s});
    EXPECT_TRUE(waitUntil([this] { return cache().isEmpty(); })) << cache().join(u' ').toStdString();
}

INSTANTIATE_TEST_SUITE_P(Kinds, MinimalRoot,
                         testing::Values(ArchiveKind::Zip, ArchiveKind::Tgz, ArchiveKind::Tbz));

/// An installer tool that the system cannot start: it needs a library that is not there.
class MinimalRootInstaller : public MinimalRoot {};

TEST_P(MinimalRootInstaller, ThatCannotStartLeavesTheHostAndTheApplication) {
    const QString tool =
        app +
        u"/Contents/Frameworks/TarvixUpdate/Resources/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s;
    ASSERT_TRUE(QFile::remove(tool));
    ASSERT_TRUE(QFile::copy(app + u"/Contents/Linux/TarvixNotes"_s, tool));
    if (!mayHaveRoot())
        return;
    serveNewBuild();
    const auto result = update();
    EXPECT_EQ(result.status, 2) << "in the Downloads folder" << result.output.constData()
                                << result.errors.constData();
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("It ended with status 127"));
    EXPECT_EQ(build(), u"1"_s);
    EXPECT_EQ(namesIn(root + u"/home/Downloads"_s), QStringList{u"Notes 2.0.app"_s});
    EXPECT_FALSE(cache().contains(u"TXUpdateInstaller.app"_s));
}

INSTANTIATE_TEST_SUITE_P(Kinds, MinimalRootInstaller, testing::Values(ArchiveKind::Tar));

} // namespace
