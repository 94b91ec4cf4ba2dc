// SPDX-License-Identifier: MIT
// The program to which the framework gives an archive.
#include "tests/tools/archive/refusedcall.h"

#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QProcess>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <utility>

using namespace Qt::StringLiterals;
using tx::test::ArchiveEntry;
using tx::test::ArchiveKind;
using tx::test::namesIn;
using tx::test::ProcessResult;
using tx::test::runProcess;
using tx::test::waitUntil;

namespace {

class Unpacker : public tx::test::FrameworkTest {
protected:
    const QString tool = tx::test::resourcesFolder() + u"/TXUpdateUnpacker"_s;
    const QString out = path(u"out"_s);
    const QString file = path(u"archive"_s);

    Unpacker() {
        QDir().mkpath(out);
        tx::test::makeArchive(file, ArchiveKind::Tgz, {{u"A.app/f"_s, ArchiveEntry::File, "x"}});
    }
};

TEST_F(Unpacker, MisusePrintsUsage) {
    for (const QStringList &words : {QStringList{},
                                     {u"zip"_s},
                                     {u"rar"_s, out},
                                     {u""_s, out},
                                     {u"zip"_s, out, u"more"_s},
                                     {u"--end-with-caller"_s, out},
                                     {u"--other"_s, u"zip"_s, out},
                                     {u"--end-with-caller"_s, u"zip"_s, out, u"more"_s}}) {
        const ProcessResult result = runProcess(tool, words);
        EXPECT_EQ(result.status, 64) << words.join(u' ').toStdString();
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("usage: TXUpdateUnpacker "));
    }
}

TEST_F(Unpacker, MessagesNameTheCommandForTheType) {
    for (const auto &[type, command] : {std::pair(u"zip"_s, "ditto"),
                                        {u"tar"_s, "tar"},
                                        {u"tgz"_s, "tar"},
                                        {u"tbz"_s, "tar"},
                                        {u"tzst"_s, "tar"}}) {
        const ProcessResult damaged = runProcess(tool, {type, out}, "no archive");
        EXPECT_EQ(damaged.status, 1);
        EXPECT_TRUE(damaged.errors.startsWith(command + QByteArray(": "))) << damaged.errors.constData();
        const ProcessResult nowhere = runProcess(tool, {type, path(u"none"_s)});
        EXPECT_EQ(nowhere.status, 1);
        EXPECT_EQ(nowhere.errors,
                  command + (": " + QFile::encodeName(path(u"none"_s))) + ": No such file or directory\n");
    }
}

TEST_F(Unpacker, ArchiveThatCannotBeReadHasAnExitStatusOfItsOwn) {
    // A folder can be opened, but not read.
    for (const QString &type : {u"zip"_s, u"tar"_s, u"tgz"_s, u"tbz"_s, u"tzst"_s}) {
        const ProcessResult result =
            runProcess(u"/bin/sh"_s, {u"-c"_s, u"exec \"$0\" \"$1\" \"$2\" < \"$2\""_s, tool, type, out});
        EXPECT_EQ(result.status, 74);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("Is a directory"));
        EXPECT_TRUE(namesIn(out).isEmpty());
    }
    // A file on a disk that fails. (gzip is read through another descriptor.)
    for (const QString &type : {u"zip"_s, u"tar"_s, u"tbz"_s, u"tzst"_s}) {
        QProcess process;
        process.setStandardInputFile(file);
        process.setChildProcessModifier([] { tx::test::refuseCall({SYS_read, 0, STDIN_FILENO}, EIO); });
        process.start(tool, {type, out});
        ASSERT_TRUE(process.waitForFinished(100000));
        EXPECT_EQ(process.exitCode(), 74) << type.toStdString();
        EXPECT_THAT(process.readAllStandardError().toStdString(), testing::HasSubstr("Input/output error"));
        EXPECT_TRUE(namesIn(out).isEmpty());
    }
}

TEST_F(Unpacker, ZipArchiveInAFileIsReadInPlace) {
    // Its directory is at the end, so an archive from a pipe is copied first. Here no copy can be made: it
    // would be larger than any file that this user may write.
    QByteArray noise(3000, 0); // which is not compressed
    for (qsizetype i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<char>((i * i * 7919) >> 5);
    QList<ArchiveEntry> entries;
    for (int i = 0; i < 30; ++i)
        entries.append({QString::number(i), ArchiveEntry::File, noise});
    tx::test::makeArchive(file, ArchiveKind::Zip, entries);
    const qint64 size = QFileInfo(file).size();
    ASSERT_GT(size, 2 * noise.size());
    for (const bool piped : {false, true}) {
        QProcess process;
        if (!piped)
            process.setStandardInputFile(file);
        process.setChildProcessModifier([size] {
            const struct rlimit less { rlim_t(size - 1), rlim_t(size - 1) };
            setrlimit(RLIMIT_FSIZE, &less);
        });
        process.start(tool, {u"zip"_s, out});
        if (piped) {
            process.write(tx::test::readFile(file));
            process.closeWriteChannel();
        }
        ASSERT_TRUE(process.waitForFinished(100000));
        EXPECT_EQ(process.exitCode(), piped ? 1 : 0) << process.readAllStandardError().constData();
        if (!piped) {
            EXPECT_EQ(namesIn(out).size(), entries.size());
        }
    }
}

TEST_F(Unpacker, RightsThatCannotBeLoweredLeaveTheArchiveUnread) {
    const struct {
        int number;
        int status;
    } cases[] = {{EPERM, 1}, {EINVAL, 1}, {ENOSYS, 0}, {EOPNOTSUPP, 0}};
    for (const auto &c : cases) {
        QProcess process;
        process.setStandardInputFile(file);
        process.setChildProcessModifier([&c] { tx::test::refuseCall(tx::test::createRuleset, c.number); });
        process.start(tool, {u"tgz"_s, out});
        ASSERT_TRUE(process.waitForFinished(100000));
        EXPECT_EQ(process.exitCode(), c.status) << c.number;
        EXPECT_EQ(process.readAllStandardError(),
                  c.status == 0 ? QByteArray()
                                : QByteArray("tar: cannot lower its rights: Landlock: ") +
                                      std::strerror(c.number) + '\n');
        EXPECT_EQ(namesIn(out), c.status == 0 ? QStringList{u"A.app"_s} : QStringList());
        QDir(out + u"/A.app"_s).removeRecursively();
    }
}

/// A program in the shell's background, which waits for an archive that does not come.
class WaitingUnpacker : public Unpacker {
protected:
    QProcess shell;
    qint64 process = 0;
    int descriptor = -1; ///< the archive

    void start(const QStringList &options) {
        const QString pipe = path(u"pipe"_s);
        ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        descriptor = open(QFile::encodeName(pipe).constData(), O_RDWR | O_CLOEXEC);
        ASSERT_GE(descriptor, 0);
        shell.start(u"/bin/sh"_s,
                    QStringList{u"-c"_s, u"pipe=$1; shift; \"$@\" < \"$pipe\" & echo $!; wait"_s, u"sh"_s,
                                pipe, tool} +
                        options + QStringList{u"tgz"_s, out});
        ASSERT_TRUE(shell.waitForReadyRead(100000));
        process = shell.readLine().trimmed().toLongLong();
        ASSERT_GT(process, 1);
        // It has made its folder, so it waits for the archive.
        ASSERT_TRUE(waitUntil([this] { return state().contains("(TXUpdateUnpacke)") && readsArchive(); }));
        shell.kill();
        shell.waitForFinished();
    }
    ~WaitingUnpacker() override {
        if (process > 1 && isThere())
            ::kill(static_cast<pid_t>(process), SIGKILL);
        if (descriptor >= 0)
            close(descriptor);
    }
    QByteArray state() const { return tx::test::readFile(u"/proc/%1/stat"_s.arg(process)); }
    bool readsArchive() const {
        return tx::test::readFile(u"/proc/%1/status"_s.arg(process)).contains("NoNewPrivs:\t1");
    }
    /// It runs. Where nobody collects it, it stays as a zombie.
    bool isThere() const {
        const QByteArray now = state();
        return now.contains("(TXUpdateUnpacke)") && !now.mid(now.lastIndexOf(')')).startsWith(") Z");
    }
};

TEST_F(WaitingUnpacker, EndsWithItsCaller) {
    start({u"--end-with-caller"_s});
    EXPECT_TRUE(waitUntil([this] { return !isThere(); }));
}

TEST_F(WaitingUnpacker, StaysWithoutItsCallerUnlessAskedToEndWithIt) {
    start({});
    const QByteArray archive = tx::test::readFile(file);
    ASSERT_EQ(write(descriptor, archive.constData(), size_t(archive.size())), archive.size());
    close(std::exchange(descriptor, -1));
    EXPECT_TRUE(waitUntil([this] { return QFileInfo::exists(out + u"/A.app/f"_s); }));
}

} // namespace
