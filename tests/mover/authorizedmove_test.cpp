// SPDX-License-Identifier: MIT
#include "tests/mover/appmovertest.h"

using namespace Qt::StringLiterals;
using tx::test::AppMover;
using tx::test::namesIn;
using tx::test::previousKey;
using tx::test::suppressionKey;
using tx::test::treeOf;

namespace {

/// The preferred folder takes an administrator.
class AuthorizedMove : public AppMover {
protected:
    tx::test::ScriptedAuthorization authorization;
    const QString failure = u"ERROR -- Could not copy myself to /Applications with authorization"_s;

    AuthorizedMove() {
        files.failOn(u"isWritable"_s, EACCES, local);
        authorization.jobSays = "moved\n";
    }
};

TEST_F(AuthorizedMove, OneJobMovesTheApplicationWithPrivileges) {
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(authorization.calls,
              (QStringList{u"create 0"_s, u"copyRights"_s, u"execute 0"_s, u"free 0"_s}));
    EXPECT_EQ(authorization.rightsFlags, 19U);
    ASSERT_EQ(authorization.lastRights.size(), 1);
    EXPECT_EQ(authorization.lastRights[0].name, QByteArray("system.privilege.admin"));
    EXPECT_FALSE(authorization.lastRights[0].value);
    EXPECT_TRUE(authorization.lastEnvironment.isEmpty());
    EXPECT_EQ(authorization.job, (QStringList{u"move"_s, QFileInfo(local).canonicalFilePath()}))
        << "which application it moves the program knows itself";
    EXPECT_EQ(exits, QList<int>{0});
    for (const QString &program : programs())
        EXPECT_FALSE(program.startsWith(u"xattr"_s)) << "not on this road";
}

TEST_F(AuthorizedMove, EveryFailureEndsInTheSameWords) {
    struct Case {
        const char *what;
        std::function<void(tx::test::ScriptedAuthorization &)> arrange;
        QStringList calls;
        QStringList lines;
        QString why;
    };
    const QString denied =
        u"The system did not grant an administrator's rights. Ask an administrator to move the application."_s;
    const auto failed = [](const QString &words) {
        return u"The program that moves the application as an administrator failed: %1. The application is still where it was."_s
            .arg(words);
    };
    const QStringList asked{u"create 0"_s, u"copyRights"_s, u"free 0"_s};
    const QStringList executed{u"create 0"_s, u"copyRights"_s, u"execute 0"_s, u"free 0"_s};
    const QString reason = u"ERROR -- The privileged program did not move the application: "_s;
    const Case cases[] = {
        {"no authorization",
         [](auto &a) { a.createStatuses = {-60008}; },
         {u"create 0"_s},
         {failure},
         denied},
        {"cancelled",
         [](auto &a) { a.rightsStatus = -60006; },
         asked,
         {u"INFO -- Not moving because user cancelled authorization"_s, failure},
         u"No administrator's password was given. The application is still where it was."_s},
        {"denied", [](auto &a) { a.rightsStatus = -60005; }, asked, {failure}, denied},
        {"nobody is asked where there is no way",
         [](auto &a) { a.executes = false; },
         {u"create 0"_s, u"free 0"_s},
         {failure},
         u"Only an administrator can change the folder %1, and this application cannot ask for an administrator's password. Create the folder %2 for applications of your own, and then try again."_s
             .arg(QFileInfo(local).canonicalFilePath(), user)},
        {"not executed", [](auto &a) { a.executeStatus = -60031; }, executed, {failure}, denied},
        {"refused",
         [](auto &a) {
             a.jobSays = "it cannot be copied\n";
             a.jobStatus = 73;
         },
         executed,
         {reason + u"it cannot be copied"_s, failure},
         failed(u"it cannot be copied"_s)},
        {"ended without a word",
         [](auto &a) { a.jobSays = ""; },
         executed,
         {reason + u"it gave no reason"_s, failure},
         failed(u"it gave no reason"_s)},
        {"said so and failed",
         [](auto &a) { a.jobStatus = 1; },
         executed,
         {reason + u"moved"_s, failure},
         failed(u"moved"_s)},
    };
    for (const Case &c : cases) {
        tx::test::ScriptedAuthorization scripted;
        scripted.jobSays = "moved\n";
        c.arrange(scripted);
        alerts.clear();
        const qsizetype before = logLines().size();
        EXPECT_EQ(move(), -1) << c.what;
        EXPECT_EQ(scripted.calls, c.calls) << c.what << ": " << scripted.calls.join(u", "_s).toStdString();
        EXPECT_EQ(logLines().mid(before), c.lines) << c.what;
        ASSERT_EQ(alerts.size(), 1);
        EXPECT_EQ(alerts[0].message, u"Could not move to Applications folder."_s);
        EXPECT_EQ(alerts[0].informative, c.why) << c.what;
    }
    EXPECT_TRUE(QFileInfo::exists(path(u"home/Loads/Host.app"_s)));
    EXPECT_TRUE(exits.isEmpty());
}

TEST_F(AuthorizedMove, OnlyApplicationsAreMoved) {
    startFrom(u"home/Loads"_s, u"1042"_s, u"Host"_s);
    EXPECT_EQ(move(), -1);
    EXPECT_TRUE(authorization.calls.isEmpty()) << "the destination does not end in .app";
    EXPECT_EQ(alerts.last().informative,
              u"%1 is not an application: its name does not end in \".app\". Move it yourself."_s.arg(
                  path(u"home/Loads/Host"_s)));
    QDir(local).removeRecursively();
    startFrom(u"home/Loads"_s);
    EXPECT_EQ(move(), -1) << "there is no Applications folder";
    EXPECT_EQ(
        alerts.last().informative,
        u"There is no folder %1. Create the folder %2 for applications of your own."_s.arg(local, user));
    EXPECT_TRUE(authorization.calls.isEmpty());
    EXPECT_EQ(logLines(), (QStringList{failure, failure}));
}

} // namespace
