// SPDX-License-Identifier: MIT
#include "installer/jobs.h"

#include "installer/applicationmove.h"
#include "installer/oneline.h"
#include "installer/ownplace.h"
#include "installer/programoutput.h"
#include "posix/interrupted.h"
#include "posix/rootspath.h"
#include "tests/support/accesslist.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/tools/installer/stepfiles.h"

#include <cerrno>
#include <csignal>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::namesIn;
using tx::test::treeOf;
using tx::test::writeFile;

namespace {

/// Records each change and fails the one of a number, from 1.
class CountedFiles final : public tx::test::StepFiles {
public:
    int failing = 0;
    bool exchanges = true;
    QStringList done;

private:
    FileError step(const Step &step, const std::function<FileError()> &work) override {
        done << QString::fromStdString(step.name + ' ' + tx::posix::lastComponentOf(step.place));
        if (done.size() == failing)
            return {EIO, step.place};
        return step.name == "exchange" && !exchanges ? FileError{EINVAL, step.place} : work();
    }
};

class MovedApplication : public tx::test::FrameworkTest {
protected:
    const QString source = path(u"Loads/Host.app"_s);
    const QString folder = path(u"opt"_s);
    const QString destination = folder + u"/Host.app"_s;
    const QString staged = folder + u"/.Host.app.txupdate-move"_s;
    CountedFiles files;
    QStringList oldTree;
    QStringList newTree;

    MovedApplication() { prepare(); }
    void prepare() {
        QDir(folder).removeRecursively();
        tx::test::makeBundle(source, {.build = u"2"_s});
        tx::test::makeBundle(destination, {.build = u"1"_s});
        writeFile(destination + u"/Contents/older"_s, "x");
        oldTree = treeOf(destination);
        newTree = treeOf(source);
        files.done.clear();
    }
    std::string move(uid_t owner = geteuid()) {
        return tx::installer::moveApplication(source.toStdString(), folder.toStdString(), owner, files);
    }
    QStringList strays() const {
        QStringList names = namesIn(folder);
        names.removeOne(u"Host.app"_s);
        return names;
    }
};

TEST_F(MovedApplication, IsCopiedAndOnDiskBeforeItTakesItsName) {
    EXPECT_EQ(move(), "");
    EXPECT_EQ(treeOf(destination), newTree);
    EXPECT_TRUE(strays().isEmpty());
    EXPECT_EQ(
        files.done,
        (QStringList{u"lock .Host.app.txupdate-lock"_s, u"lock .Contents.txupdate-lock"_s,
                     u"remove .Host.app.txupdate-move"_s, u"remove .Host.app.txupdate-old"_s,
                     u"copy .Host.app.txupdate-move"_s, u"sync .Host.app.txupdate-move"_s,
                     u"exchange Host.app"_s, u"syncDirectory opt"_s, u"remove .Host.app.txupdate-move"_s,
                     u"remove .Host.app.txupdate-old"_s, u"removeFile .Host.app.txupdate-lock"_s}));
}

TEST_F(MovedApplication, FailingStepLeavesTheInstalledApplicationAndTheFinishedCopy) {
    for (const bool exchanges : {true, false}) {
        prepare();
        files.exchanges = exchanges;
        files.failing = 0;
        ASSERT_EQ(move(), "");
        EXPECT_EQ(treeOf(destination), newTree);
        EXPECT_TRUE(strays().isEmpty());
        const QStringList steps = files.done;
        for (int step = 1; step <= steps.size(); ++step) {
            prepare();
            files.failing = step;
            const std::string problem = move();
            const QString what = steps[step - 1];
            SCOPED_TRACE(what.toStdString() + ": " + problem);
            const bool swapped = step - 1 > steps.indexOf(u"syncDirectory opt"_s);
            EXPECT_EQ(problem.empty(), swapped);
            EXPECT_TRUE(treeOf(destination) == oldTree || treeOf(destination) == newTree);
            if (!swapped && what != u"syncDirectory opt") {
                EXPECT_EQ(treeOf(destination), oldTree) << "the installed application stays";
            }
            if (what.startsWith(u"exchange") || what.startsWith(u"rename")) {
                EXPECT_EQ(treeOf(staged), newTree) << "the finished copy stays";
                EXPECT_THAT(problem, testing::HasSubstr("cannot take its name"));
            }
            // A later move is not in the way of itself.
            files.failing = 0;
            EXPECT_EQ(move(), "");
            EXPECT_EQ(treeOf(destination), newTree);
            EXPECT_TRUE(strays().isEmpty()) << strays().join(u' ').toStdString();
        }
    }
}

TEST_F(MovedApplication, InterruptedBetweenTwoRenamesComesBack) {
    ASSERT_TRUE(
        QFile::rename(destination, QString::fromStdString(tx::backupPathFor(destination.toStdString()))));
    files.failing = 6; // the copy
    EXPECT_NE(move(), "");
    EXPECT_EQ(files.done[5], u"copy .Host.app.txupdate-move"_s) << files.done.join(u", "_s).toStdString();
    EXPECT_EQ(treeOf(destination), oldTree);
}

TEST_F(MovedApplication, WhatAnInterruptedInstallationLeftDoesNotComeBackOverTheMovedOne) {
    const QString whole = QString::fromStdString(tx::wholePathFor(destination.toStdString()));
    for (const bool isThere : {true, false}) {
        prepare();
        tx::test::makeBundle(whole, {.build = u"0"_s});
        if (!isThere)
            QDir(destination).removeRecursively();
        EXPECT_EQ(move(), "");
        EXPECT_FALSE(tx::restoreBackup(destination.toStdString())) << "as the relaunch does";
        EXPECT_EQ(treeOf(destination), newTree);
        EXPECT_TRUE(strays().isEmpty()) << strays().join(u' ').toStdString();
    }
    // One that cannot be undone is left alone.
    prepare();
    tx::test::makeBundle(whole, {.build = u"0"_s});
    QDir(destination).removeRecursively();
    const QStringList before = treeOf(folder);
    files.failing = 2;
    EXPECT_THAT(move(), testing::HasSubstr("an interrupted installation of " + destination.toStdString() +
                                           " cannot be undone: "));
    EXPECT_EQ(files.done[1], u"rename Host.app"_s);
    EXPECT_EQ(treeOf(folder), before) << "and the lock is free again";
}

TEST_F(MovedApplication, FilesOfAnotherUserAreNotCopied) {
    // Only root can make another user's file; another user's rule stands in for it otherwise.
    if (geteuid() == 0) {
        ASSERT_EQ(lchown(QFile::encodeName(source + u"/Contents/Info.plist"_s).constData(), 65534, 65534), 0);
    }
    const std::string problem = move(geteuid() == 0 ? 0 : 65534);
    EXPECT_THAT(problem, testing::HasSubstr("cannot be copied"));
    EXPECT_EQ(treeOf(destination), oldTree);
    EXPECT_TRUE(strays().isEmpty()) << strays().join(u' ').toStdString();
}

TEST_F(MovedApplication, WaitsForNoInstallationAndIsNotMovedOntoItself) {
    // The second lock is that of a user who may not write to the folder around the application.
    for (const QString &changed : {destination, destination + u"/Contents"_s}) {
        const std::string path = tx::lockPathFor(changed.toStdString());
        tx::posix::Descriptor lock;
        ASSERT_FALSE(tx::installer::Files().lock(path, lock));
        const QStringList before = treeOf(folder);
        EXPECT_EQ(move(), "an installation of " + destination.toStdString() + " is running");
        EXPECT_EQ(treeOf(folder), before);
        ASSERT_EQ(unlink(path.c_str()), 0);
    }
    EXPECT_EQ(treeOf(folder + u"/Host.app"_s), oldTree);
    EXPECT_THAT(
        tx::installer::moveApplication(destination.toStdString(), folder.toStdString(), geteuid(), files),
        testing::HasSubstr("already"));
    EXPECT_EQ(treeOf(destination), oldTree);
}

/// A job in this process, with the rights of this user.
class Job : public tx::test::FrameworkTest {
protected:
    const QString bundle = path(u"Place/Host.app"_s);
    const QString resources = bundle + u"/Contents/Frameworks/TarvixUpdate/Resources"_s;
    const QString installer = resources + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s;
    tx::installer::Files files;
    tx::PrivateFiles privateFiles;
    tx::installer::JobContext context;
    std::vector<std::string> became;
    std::vector<std::string> asked; ///< the last program that was run, and its arguments
    std::string said;
    std::string log;

    Job() {
        tx::test::makeBundle(bundle, {});
        writeFile(installer, "tool");
        tx::test::makeBundle(path(u"New.app"_s), {});
        writeFile(path(u"a.zip"_s), "x");
        context.executable = (resources + u"/TXUpdateAuthorize"_s).toStdString();
        context.askingUser = geteuid();
        context.files = &files;
        context.privateFiles = &privateFiles;
        context.saidUnverified = true;
        context.remark = [](const std::string &) {};
        context.applicationsFolders = {path(u"opt"_s).toStdString()};
        context.packages = {path(u"dpkg"_s).toStdString(), {path(u"rpm"_s).toStdString()}};
        context.rpm = path(u"bin/rpm"_s).toStdString();
        context.outputOf = [this](const std::string &program, const std::vector<std::string> &arguments,
                                  std::string &output) {
            asked = {program};
            asked.insert(asked.end(), arguments.begin(), arguments.end());
            return tx::installer::outputOf(program, arguments, output);
        };
        QDir().mkpath(path(u"opt"_s));
        context.become = [this](int, const std::vector<std::string> &words,
                                const std::vector<std::string> &) {
            became = words;
            return ENOEXEC;
        };
        context.say = [this](const std::string &word) { said += word; };
        context.log = [this](const std::string &line) { log += line + '\n'; };
    }
    int run(const QStringList &words) {
        std::vector<std::string> texts;
        for (const QString &word : words)
            texts.push_back(word.toStdString());
        log.clear();
        return tx::installer::runJob(texts, tx::posix::Descriptor(), context);
    }
    /// A package manager with a database that owns something in a bundle, by these lines of dpkg's list.
    void dpkgOwns(const QString &line) { writeFile(path(u"dpkg/info/mine.list"_s), line.toUtf8() + "\n"); }
    /// An rpm that answers by this script, with the paths as its arguments.
    void rpm(const QByteArray &script) {
        writeFile(path(u"rpm/rpmdb.sqlite"_s), "x");
        writeFile(path(u"bin/rpm"_s), "#!/bin/sh\n[ \"$1\" = -qf ] || exit 9\nshift 3\n" + script,
                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    QStringList install() const { return {u"install"_s, u"4711"_s, path(u"New.app"_s), path(u"a.zip"_s)}; }
};

TEST_F(Job, InstallsOverTheApplicationThatItBelongsTo) {
    EXPECT_EQ(run(install()), tx::installer::JobFailed);
    EXPECT_THAT(became,
                testing::ElementsAre(installer.toStdString(), "4711", path(u"New.app"_s).toStdString(),
                                     bundle.toStdString(), path(u"a.zip"_s).toStdString()));
    EXPECT_THAT(log, testing::HasSubstr("could not be started: Exec format error"));
    became.clear();
    QFile::remove(installer);
    EXPECT_EQ(run(install()), tx::installer::JobForbidden);
    EXPECT_TRUE(became.empty());
}

TEST_F(Job, TakesOnlyWhatBelongsToWhoAskedOrToRoot) {
    context.askingUser = geteuid() + 1;
    const int status = run(install());
    if (geteuid() == 0) {
        EXPECT_EQ(status, tx::installer::JobFailed) << "root's";
        ASSERT_EQ(chown(QFile::encodeName(path(u"a.zip"_s)).constData(), 65534, 65534), 0);
        became.clear();
        EXPECT_EQ(run(install()), tx::installer::JobRefused);
    } else {
        EXPECT_EQ(status, tx::installer::JobRefused);
    }
    EXPECT_TRUE(became.empty());
    EXPECT_THAT(log, testing::HasSubstr("belongs to another user"));
}

TEST_F(Job, MovesIntoAKnownFolderOnly) {
    EXPECT_EQ(run({u"move"_s, path(u"opt"_s)}), tx::installer::JobDone);
    EXPECT_EQ(said, "moved\n");
    EXPECT_EQ(treeOf(path(u"opt/Host.app"_s)), treeOf(bundle));
    said.clear();
    EXPECT_EQ(run({u"move"_s, path(u""_s).chopped(1)}), tx::installer::JobRefused);
    EXPECT_THAT(log, testing::HasSubstr("is not an Applications folder"));
    // A known folder may be a link; its target is what is named.
    ASSERT_TRUE(QFile::link(path(u"opt"_s), path(u"link"_s)));
    context.applicationsFolders = {path(u"link"_s).toStdString()};
    EXPECT_EQ(run({u"move"_s, path(u"link"_s)}), tx::installer::JobRefused);
    EXPECT_EQ(run({u"move"_s, path(u"opt"_s)}), tx::installer::JobDone);
    // And only what is named like an application.
    ASSERT_TRUE(QFile::rename(bundle, path(u"Place/Host"_s)));
    context.executable =
        path(u"Place/Host/Contents/Frameworks/TarvixUpdate/Resources/TXUpdateAuthorize"_s).toStdString();
    EXPECT_EQ(run({u"move"_s, path(u"opt"_s)}), tx::installer::JobRefused);
    EXPECT_THAT(log, testing::HasSubstr("is not named"));
}

TEST_F(Job, ApplicationOfAPackageIsNotExchanged) {
    const QStringList before = treeOf(bundle);
    for (const QString &line :
         {bundle, bundle + u"/Contents/Info.plist"_s, QString::fromStdString(context.executable)}) {
        dpkgOwns(line);
        EXPECT_EQ(run(install()), tx::installer::JobFailed);
        EXPECT_EQ(log, bundle.toStdString() + " belongs to the package mine of dpkg; install the new version "
                                              "with the package manager of the system\n");
        EXPECT_TRUE(became.empty()) << line.toStdString();
    }
    // Nor is it when that cannot be told.
    QFile::remove(path(u"dpkg/info/mine.list"_s));
    QDir().mkpath(path(u"dpkg/info/mine.list"_s));
    EXPECT_EQ(run(install()), tx::installer::JobFailed);
    EXPECT_THAT(log, testing::AllOf(testing::HasSubstr("could not be determined"),
                                    testing::HasSubstr("the database of dpkg cannot be read"),
                                    testing::HasSubstr("mine.list")));
    EXPECT_TRUE(became.empty());
    EXPECT_TRUE(asked.empty()) << "rpm has no database here";
    QDir(path(u"dpkg/info/mine.list"_s)).removeRecursively();
    dpkgOwns(bundle + u".old"_s);
    (void)run(install());
    EXPECT_FALSE(became.empty()) << "another application's package";
    EXPECT_EQ(treeOf(bundle), before);
}

TEST_F(Job, RpmIsAskedWhereItHasADatabase) {
    const QByteArray unowned = "for f; do echo \"file $f is not owned by any package\"; done; exit $#\n";
    rpm("for f; do case $f in */Info.plist) echo 'owner my-rpm';; *) "
        "echo \"file $f is not owned by any package\";; esac; done; exit 3");
    EXPECT_EQ(run(install()), tx::installer::JobFailed);
    EXPECT_THAT(log, testing::HasSubstr(bundle.toStdString() + " belongs to the package my-rpm of rpm; "));
    EXPECT_TRUE(became.empty());
    EXPECT_THAT(asked, testing::IsSupersetOf({path(u"bin/rpm"_s).toStdString(), bundle.toStdString(),
                                              (bundle + u"/Contents"_s).toStdString(),
                                              (bundle + u"/Contents/Linux/Program"_s).toStdString()}));
    for (const QByteArray &script :
         {QByteArray("exit 0"), QByteArray("kill -9 $$"), QByteArray("shift; ") + unowned,
          QByteArray("echo 'error: no database' >&2; ") + unowned}) {
        rpm(script);
        EXPECT_EQ(run(install()), tx::installer::JobFailed);
        EXPECT_THAT(log, testing::HasSubstr("the database of rpm cannot be read")) << script.constData();
    }
    EXPECT_TRUE(became.empty());
    // A program that cannot be run, or that others could have written.
    rpm(unowned);
    ASSERT_EQ(chmod(context.rpm.c_str(), 0600), 0);
    EXPECT_EQ(run(install()), tx::installer::JobFailed);
    EXPECT_THAT(log, testing::HasSubstr("bin/rpm cannot be run: Permission denied"));
    ASSERT_EQ(chmod(context.rpm.c_str(), 0777), 0);
    asked.clear();
    context.asRoot = true;
    EXPECT_EQ(run(install()), tx::installer::JobFailed);
    EXPECT_THAT(log, testing::HasSubstr("the database of rpm cannot be read: "));
    EXPECT_TRUE(asked.empty()) << log;
    EXPECT_TRUE(became.empty());
    context.asRoot = false;
    (void)run(install());
    EXPECT_FALSE(became.empty()) << log;
}

TEST_F(Job, MovesOverNoApplicationOfAPackage) {
    tx::test::makeBundle(path(u"opt/Host.app"_s), {.build = u"9"_s});
    const QStringList before = treeOf(path(u"opt/Host.app"_s));
    dpkgOwns(path(u"opt/Host.app/Contents/Info.plist"_s));
    EXPECT_EQ(run({u"move"_s, path(u"opt"_s)}), tx::installer::JobFailed);
    EXPECT_THAT(log, testing::HasSubstr("opt/Host.app belongs to the package mine of dpkg; "));
    EXPECT_EQ(said, "");
    EXPECT_EQ(treeOf(path(u"opt/Host.app"_s)), before);
    dpkgOwns(u"/nothing"_s);
    EXPECT_EQ(run({u"move"_s, path(u"opt"_s)}), tx::installer::JobDone) << log;
    EXPECT_EQ(treeOf(path(u"opt/Host.app"_s)), treeOf(bundle));
}

TEST_F(Job, MovesOverNoLinkOfAPackage) {
    const QString link = path(u"opt/Host.app"_s);
    tx::test::makeBundle(path(u"usr/Host.app"_s), {.build = u"9"_s});
    const QStringList target = treeOf(path(u"usr/Host.app"_s));
    dpkgOwns(link);
    for (const QString &to : {path(u"usr/Host.app"_s), u"/nonexistent"_s}) {
        ASSERT_TRUE(QFile::link(to, link));
        EXPECT_EQ(run({u"move"_s, path(u"opt"_s)}), tx::installer::JobFailed);
        EXPECT_THAT(log, testing::HasSubstr("opt/Host.app belongs to the package mine of dpkg; "));
        EXPECT_EQ(QFile::symLinkTarget(link), to);
        QFile::remove(link);
    }
    // rpm is asked for the link, and not for what is behind it.
    dpkgOwns(u"/nothing"_s);
    ASSERT_TRUE(QFile::link(path(u"usr/Host.app"_s), link));
    rpm("echo 'owner my-rpm'");
    EXPECT_EQ(run({u"move"_s, path(u"opt"_s)}), tx::installer::JobFailed);
    EXPECT_THAT(log, testing::HasSubstr("opt/Host.app belongs to the package my-rpm of rpm; "));
    EXPECT_EQ(asked.back(), link.toStdString());
    EXPECT_EQ(asked.size(), 5U) << "the program, three words and the link";
    EXPECT_EQ(said, "");
    // A link of nobody's is replaced, whoever owns what it leads to.
    QDir(path(u"rpm"_s)).removeRecursively();
    dpkgOwns(path(u"usr/Host.app"_s));
    EXPECT_EQ(run({u"move"_s, path(u"opt"_s)}), tx::installer::JobDone) << log;
    EXPECT_EQ(treeOf(link), treeOf(bundle));
    EXPECT_EQ(treeOf(path(u"usr/Host.app"_s)), target);
}

class ProgramOutput : public tx::test::FrameworkTest {
protected:
    std::string output;
    std::string run(const std::string &script, const tx::installer::OutputLimits &limits = {}) {
        return tx::installer::outputOf("/bin/sh", {"-c", script}, output, limits);
    }
};

TEST_F(ProgramOutput, HoldsBothOutputsWhateverTheStatus) {
    EXPECT_EQ(run("echo out; echo err >&2; exit 200"), "");
    EXPECT_EQ(output, "out\nerr\n");
    EXPECT_EQ(run("true"), "");
    EXPECT_EQ(output, "");
}

TEST_F(ProgramOutput, ProgramGetsNothingOfThisProcess) {
    qputenv("TX_TEST_VARIABLE", "x");
    EXPECT_EQ(run("pwd; cat; env | grep -v ^_ | grep -v ^PWD= | grep -v ^SHLVL= | sort"), "");
    EXPECT_EQ(output, "/\nLC_ALL=C\nPATH=/usr/sbin:/usr/bin:/sbin:/bin\n");
    qunsetenv("TX_TEST_VARIABLE");
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(run("kill -PIPE $$; echo survived"), "");
    std::signal(SIGPIPE, before);
    EXPECT_EQ(output, "") << "its signals are as usual";
}

TEST_F(ProgramOutput, TooLongOrTooMuchEndsItWithWhatItStarted) {
    const QString mark = path(u"pids"_s);
    const auto ended = [&] {
        // Both processes wrote their number; those that are killed are gone or zombies.
        for (const QByteArray &pid : tx::test::readFile(mark).simplified().split(' ')) {
            const QByteArray stat = tx::test::readFile(u"/proc/%1/stat"_s.arg(QString::fromLatin1(pid)));
            if (pid.toInt() <= 1 || !(stat.isEmpty() || stat.contains(") Z")))
                return false;
        }
        return true;
    };
    const std::string begin =
        "echo $$ > '" + mark.toStdString() + "'; sleep 1000 & echo $! >> '" + mark.toStdString() + "'; ";
    EXPECT_EQ(run(begin + "wait", {.time = std::chrono::milliseconds(1500)}), "/bin/sh takes too long");
    EXPECT_TRUE(tx::test::waitUntil(ended));
    EXPECT_EQ(run(begin + "echo 123456; wait", {.size = 6}), "/bin/sh says too much");
    EXPECT_TRUE(tx::test::waitUntil(ended));
    EXPECT_EQ(run("echo 12345", {.size = 6}), "");
    EXPECT_EQ(tx::installer::outputOf("/nonexistent/program", {}, output),
              "/nonexistent/program cannot be run: No such file or directory");
}

TEST(JobWords, EndInNulAndAreBounded) {
    std::vector<std::string> words;
    EXPECT_TRUE(tx::installer::readWords(std::string("a\0b c\0\0", 7), words));
    EXPECT_THAT(words, testing::ElementsAre("a", "b c", ""));
    EXPECT_FALSE(tx::installer::readWords("", words));
    EXPECT_FALSE(tx::installer::readWords("a", words));
    EXPECT_FALSE(tx::installer::readWords(std::string("a\0b", 3), words));
    const std::string longest(tx::installer::longestJob - 1, 'x');
    EXPECT_TRUE(tx::installer::readWords(longest + '\0', words));
    EXPECT_FALSE(tx::installer::readWords(longest + 'x' + '\0', words));
}

TEST(JobWords, UsersAreDecimalNumbers) {
    uid_t user = 7;
    for (const char *text :
         {"", "x", "1x", "-1", "+1", " 1", "01", "4294967295", "4294967296", "99999999999"})
        EXPECT_FALSE(tx::installer::readUser(text, user)) << text;
    EXPECT_FALSE(tx::installer::readUser(nullptr, user));
    EXPECT_EQ(user, 7U);
    EXPECT_TRUE(tx::installer::readUser("0", user));
    EXPECT_EQ(user, 0U);
    EXPECT_TRUE(tx::installer::readUser("4294967294", user));
    EXPECT_EQ(user, 4294967294U);
}

TEST(LogLine, HoldsWhateverItIsGivenOnOneLine) {
    const std::pair<std::string, const char *> cases[] = {
        {"/opt/My App's \"Ü\" 日本.app", "/opt/My App's \"Ü\" 日本.app"},
        {"a\nroot: let in", "a\\u{a}root: let in"},
        {"a\r\t\x1b[2J\x7f", "a\\u{d}\\u{9}\\u{1b}[2J\\u{7f}"},
        {std::string("a\0b", 3), "a\\u{0}b"},
        {"\u0085\u2028\u2029\u202e\u2066\u200b\ufeff\u00ad",
         "\\u{85}\\u{2028}\\u{2029}\\u{202e}\\u{2066}\\u{200b}\\u{feff}\\u{ad}"},
        {"\\u{a}", "\\\\u{a}"}, // nor can it be taken for one that was escaped
        {"\xff\xc3", "\\x{ff}\\x{c3}"},
        {"\xc0\x8a\xe0\x80\x8a", "\\x{c0}\\x{8a}\\x{e0}\\x{80}\\x{8a}"}, // longer than it need be
        {"\xed\xa0\x80", "\\x{ed}\\x{a0}\\x{80}"},                       // half of a pair
        {"\xf0\x9f\x98\x80\xf4\x90\x80\x80", "😀\\x{f4}\\x{90}\\x{80}\\x{80}"},
        {"\xc3(", "\\x{c3}("},
        {"", ""},
    };
    for (const auto &[text, expected] : cases)
        EXPECT_EQ(tx::installer::onOneLine(text), expected);
}

class RootsPath : public tx::test::FrameworkTest {};

TEST_F(RootsPath, PlainPathsHaveNamesOnly) {
    for (const char *text : {"", "/", "a", "a/b", "//a", "/a/", "/a//b", "/./a", "/a/..", "/a/../b", "/a/."})
        EXPECT_FALSE(tx::posix::isPlainPath(text)) << text;
    EXPECT_FALSE(tx::posix::isPlainPath(std::string("/a\0b", 4)));
    for (const char *text : {"/a", "/a/b", "/..a", "/a.b/c..", "/ "})
        EXPECT_TRUE(tx::posix::isPlainPath(text)) << text;
}

TEST_F(RootsPath, LinksOnTheWayAreRefused) {
    writeFile(path(u"folder/file"_s), "x");
    ASSERT_TRUE(QFile::link(path(u"folder"_s), path(u"link"_s)));
    ASSERT_TRUE(QFile::link(path(u"folder/file"_s), path(u"last"_s)));
    const auto open = [this](const QString &relative) {
        tx::posix::Descriptor entry;
        const std::string problem = tx::posix::openWithoutLinks(path(relative).toStdString(), entry);
        EXPECT_EQ(entry.isOpen(), problem.empty());
        return problem;
    };
    EXPECT_EQ(open(u"folder/file"_s), "");
    EXPECT_THAT(open(u"link/file"_s), testing::HasSubstr("/link is a link"));
    EXPECT_THAT(open(u"last"_s), testing::HasSubstr("/last is a link"));
    EXPECT_THAT(open(u"folder/none"_s), testing::HasSubstr("No such file"));
    EXPECT_THAT(open(u"folder/file/x"_s), testing::HasSubstr("Not a directory"));
}

TEST_F(RootsPath, ProgramsOfTheSystemAreRootsAndTheUsersAreNot) {
    tx::posix::Descriptor entry;
    const QString system = QFileInfo(u"/bin/sh"_s).canonicalFilePath();
    const std::string problem = tx::posix::openRootsOwn(system.toStdString(), entry);
    struct stat info {};
    ASSERT_EQ(stat("/", &info), 0);
    if (info.st_uid == 0) {
        EXPECT_EQ(problem, "");
        EXPECT_EQ(tx::installer::notRootsOwnProgram(system.toStdString()),
                  system.toStdString() + " is not the program that runs");
    }
    EXPECT_NE(tx::installer::notRootsOwnProgram(""), "");
    writeFile(path(u"file"_s), "x");
    if (geteuid() != 0) {
        EXPECT_THAT(tx::posix::openRootsOwn(path(u"file"_s).toStdString(), entry),
                    testing::HasSubstr("does not belong to root"));
    } else {
        // Somebody in an access list, whose mask are the group's bits; and root's own group.
        const QString file = path(u"file"_s);
        const bool hasLists = tx::test::setAccessList(file, tx::test::accessFor(4242, 6));
        EXPECT_TRUE(hasLists || errno == EOPNOTSUPP);
        for (const bool isListed : {hasLists, false}) {
            if (!isListed)
                chmod(QFile::encodeName(file).constData(), 0664);
            EXPECT_THAT(tx::posix::openRootsOwn(file.toStdString(), entry),
                        testing::HasSubstr("can be written to by other users"));
            (void)removexattr(QFile::encodeName(file).constData(), "system.posix_acl_access");
        }
    }
}

TEST_F(RootsPath, ApplicationIsTheNearestBundleAround) {
    tx::test::makeBundle(path(u"Outer.app/Contents/Applications/Inner.app"_s), {});
    tx::test::makeBundle(path(u"Outer.app"_s), {});
    tx::test::makeBundle(path(u"Outer.app/Contents/Applications/Inner.app"_s), {});
    writeFile(path(u"Flat/Info.plist"_s), "x");
    const auto around = [this](const QString &relative) {
        return QString::fromStdString(tx::posix::applicationAround(path(relative).toStdString()));
    };
    EXPECT_EQ(around(u"Outer.app/Contents/Frameworks/x/tool"_s), path(u"Outer.app"_s));
    EXPECT_EQ(around(u"Outer.app/Contents/Applications/Inner.app/Contents/x/tool"_s),
              path(u"Outer.app/Contents/Applications/Inner.app"_s));
    EXPECT_EQ(around(u"Flat/lib/tool"_s), path(u"Flat"_s));
    EXPECT_EQ(around(u"Elsewhere/tool"_s), QString());
    EXPECT_EQ(tx::posix::applicationAround("relative/tool"), "");
}

} // namespace
