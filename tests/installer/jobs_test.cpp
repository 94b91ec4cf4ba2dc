// SPDX-License-Identifier: MIT
#include "installer/jobs.h"

#include "installer/applicationmove.h"
#include "installer/ownplace.h"
#include "platform/linux/interrupted.h"
#include "platform/linux/rootspath.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <cerrno>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::posix::FileError;
using tx::test::namesIn;
using tx::test::treeOf;
using tx::test::writeFile;

namespace {

/// Records each change and fails the one of a number, from 1.
class CountedFiles final : public tx::installer::Files {
public:
    int failing = 0;
    bool exchanges = true;
    QStringList done;

    FileError rename(const std::string &from, const std::string &to) override {
        return at("rename", to, [&] { return Files::rename(from, to); });
    }
    FileError exchange(const std::string &a, const std::string &b) override {
        return at("exchange", b, [&] { return exchanges ? Files::exchange(a, b) : FileError{EINVAL, b}; });
    }
    FileError copyTree(const std::string &from, const std::string &to,
                       const tx::posix::CopyRules &rules) override {
        return at("copy", to, [&] { return Files::copyTree(from, to, rules); });
    }
    FileError removeTree(const std::string &path) override {
        return at("remove", path, [&] { return Files::removeTree(path); });
    }
    FileError removeFile(const std::string &path) override {
        return at("removeFile", path, [&] { return Files::removeFile(path); });
    }
    FileError lock(const std::string &path, tx::posix::Descriptor &lock) override {
        return at("lock", path, [&] { return Files::lock(path, lock); });
    }
    FileError syncFileSystem(const std::string &path) override {
        return at("sync", path, [&] { return Files::syncFileSystem(path); });
    }
    FileError syncDirectory(const std::string &path) override {
        return at("syncDirectory", path, [&] { return Files::syncDirectory(path); });
    }

private:
    template <typename Work>
    FileError at(const char *name, const std::string &path, const Work &work) {
        done << QString::fromLatin1(name) + u' ' + QString::fromStdString(tx::posix::lastComponentOf(path));
        return done.size() == failing ? FileError{EIO, path} : work();
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
    EXPECT_EQ(files.done,
              (QStringList{u"lock .Host.app.txupdate-lock"_s, u"remove .Host.app.txupdate-move"_s,
                           u"remove .Host.app.txupdate-old"_s, u"copy .Host.app.txupdate-move"_s,
                           u"sync .Host.app.txupdate-move"_s, u"exchange Host.app"_s, u"syncDirectory opt"_s,
                           u"remove .Host.app.txupdate-move"_s, u"remove .Host.app.txupdate-old"_s,
                           u"removeFile .Host.app.txupdate-lock"_s}));
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
    files.failing = 5; // the copy
    EXPECT_NE(move(), "");
    EXPECT_EQ(files.done[4], u"copy .Host.app.txupdate-move"_s) << files.done.join(u", "_s).toStdString();
    EXPECT_EQ(treeOf(destination), oldTree);
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
    tx::posix::Descriptor lock;
    ASSERT_FALSE(tx::installer::Files().lock(tx::lockPathFor(destination.toStdString()), lock));
    EXPECT_THAT(move(), testing::HasSubstr("is running"));
    EXPECT_EQ(treeOf(destination), oldTree);
    lock.reset();
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
    tx::installer::JobContext context;
    std::vector<std::string> became;
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
        context.applicationsFolders = {path(u"opt"_s).toStdString()};
        QDir().mkpath(path(u"opt"_s));
        context.become = [this](int, const std::vector<std::string> &words) {
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
        return tx::installer::runJob(texts, context);
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
    }
    writeFile(path(u"file"_s), "x");
    if (geteuid() != 0) {
        EXPECT_THAT(tx::posix::openRootsOwn(path(u"file"_s).toStdString(), entry),
                    testing::HasSubstr("does not belong to root"));
    } else {
        chmod(QFile::encodeName(path(u"file"_s)).constData(), 0664);
        EXPECT_THAT(tx::posix::openRootsOwn(path(u"file"_s).toStdString(), entry),
                    testing::HasSubstr("can be written to by other users"));
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
