// SPDX-License-Identifier: MIT
#include "platform/authorization.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr unsigned interactive = tx::AuthorizationFlagInteractionAllowed | tx::AuthorizationFlagExtendRights |
                                 tx::AuthorizationFlagPreAuthorize;

/// pkexec is played by a script in front of the PATH.
class Polkit : public tx::test::FrameworkTest {
protected:
    std::unique_ptr<tx::AuthorizationReference> reference;
    tx::Authorization &authorization = tx::nativeAuthorization();
    const QByteArray pathBefore = qgetenv("PATH");

    Polkit() { EXPECT_EQ(authorization.create({}, 0, reference), 0); }
    ~Polkit() override { qputenv("PATH", pathBefore); }

    void pkexec(const QByteArray &script) {
        tx::test::writeFile(path(u"bin/pkexec"_s), "#!/bin/sh\n" + script + '\n',
                            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("PATH", path(u"bin:"_s).toUtf8() + pathBefore);
    }
    int copyRights(unsigned flags = interactive) {
        tx::AuthorizationItem right;
        right.name = "system.privilege.admin";
        return authorization.copyRights(*reference, {right}, {}, flags, &granted);
    }
    QList<tx::AuthorizationItem> granted;
};

TEST_F(Polkit, RunsTheProgramWithItsExactArguments) {
    pkexec("exec \"$@\"");
    ASSERT_EQ(copyRights(), 0);
    ASSERT_EQ(granted.size(), 1);
    EXPECT_EQ(granted.first().name, QByteArray("system.privilege.admin"));
    const QString out = path(u"out"_s);
    EXPECT_EQ(authorization.executeWithPrivileges(
                  *reference, u"/bin/sh"_s, 0,
                  {u"-c"_s, u"printf '[%s]' \"$@\" > \"$0.tmp\"; mv \"$0.tmp\" \"$0\""_s, out, u"a b"_s,
                   u"it's"_s, u"\u00FC\n$HOME"_s}),
              0);
    ASSERT_TRUE(tx::test::waitUntil([&] { return QFileInfo::exists(out); }));
    EXPECT_EQ(tx::test::readFile(out), QByteArray("[a b][it's][\xC3\xBC\n$HOME]"));
    authorization.free(std::move(reference), tx::AuthorizationFlagDestroyRights);
}

TEST_F(Polkit, CancelledDialogIsItsOwnStatus) {
    pkexec("exit 126");
    EXPECT_EQ(copyRights(), -60006);
}

TEST_F(Polkit, DeniedAndMissingAreDenied) {
    pkexec("exit 127");
    EXPECT_EQ(copyRights(), -60005);
    qputenv("PATH", "/nonexistent");
    EXPECT_EQ(copyRights(), -60005);
}

TEST_F(Polkit, WithoutInteractionNobodyIsAsked) {
    pkexec("exec \"$@\"");
    EXPECT_EQ(copyRights(0), -60005);
}

TEST_F(Polkit, ProgramThatCannotBeExecutedIsReported) {
    pkexec("exec \"$@\"");
    ASSERT_EQ(copyRights(), 0);
    EXPECT_EQ(authorization.executeWithPrivileges(*reference, u"/no/such/tool"_s, 0, {}), -60031);
    EXPECT_EQ(authorization.executeWithPrivileges(*reference, u"/bin/true"_s, 0, {}), -60005)
        << "the rights were used up";
}

TEST_F(Polkit, SeveralProgramsRunToTheirEndsOneAfterTheOther) {
    pkexec("exec \"$@\"");
    ASSERT_EQ(copyRights(), 0);
    const auto run = [this](const QString &program, const QStringList &arguments) {
        return authorization.executeWithPrivilegesAndWait(*reference, program, 0, arguments);
    };
    EXPECT_EQ(
        run(u"/bin/sh"_s, {u"-c"_s, u"printf '%s' \"$1\" > \"$0\""_s, path(u"a"_s), u"it's \"$x\"\n"_s}), 0);
    EXPECT_EQ(tx::test::readFile(path(u"a"_s)), QByteArray("it's \"$x\"\n"));
    EXPECT_EQ(run(u"/bin/sh"_s, {u"-c"_s, u"exit 3"_s}), 3);
    EXPECT_FALSE(run(u"/no/such/tool"_s, {}));
    EXPECT_FALSE(run(u"/bin/sh"_s, {u"-c"_s, u"kill -9 $$"_s})) << "a signal ended it";
    EXPECT_EQ(run(u"/bin/true"_s, {}), 0) << "and the helper still listens";
    EXPECT_FALSE(run(u"true"_s, {})) << "no absolute path";
    EXPECT_TRUE(authorization.canExecute());
}

TEST_F(Polkit, WhatOthersCouldHaveWrittenIsNotRun) {
    const QString program = path(u"folder/program"_s);
    tx::test::writeFile(program, "#!/bin/sh\ntouch \"$1\"\n",
                        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    pkexec("exec \"$@\"");
    ASSERT_EQ(copyRights(), 0);
    const auto run = [&](const QString &mark) {
        return authorization.executeWithPrivilegesAndWait(*reference, program, 0, {path(mark)});
    };
    EXPECT_EQ(run(u"before"_s), 0);
    ASSERT_EQ(chmod(QFile::encodeName(path(u"folder"_s)).constData(), 0777), 0);
    EXPECT_FALSE(run(u"after"_s));
    EXPECT_FALSE(QFileInfo::exists(path(u"after"_s)));
    EXPECT_EQ(authorization.executeWithPrivileges(*reference, program, 0, {path(u"after"_s)}),
              tx::AuthorizationToolExecuteFailure);
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("is not run with an administrator's rights"));
    ASSERT_EQ(chmod(QFile::encodeName(path(u"folder"_s)).constData(), 0700), 0);
}

TEST_F(Polkit, NothingRunsWithoutRights) {
    ASSERT_EQ(authorization.create({}, 0, reference), 0);
    EXPECT_FALSE(authorization.executeWithPrivilegesAndWait(*reference, u"/bin/true"_s, 0, {}));
}

TEST_F(Polkit, HelperRefusesMisuse) {
    const QString helper = QStringLiteral(TEST_RESOURCES) + u"/TXUpdateAuthorize"_s;
    const auto misused = tx::test::runProcess(helper, {u"x"_s});
    EXPECT_EQ(misused.status, 64);
    EXPECT_THAT(misused.errors.toStdString(), testing::HasSubstr("usage"));
    EXPECT_EQ(tx::test::runProcess(helper, {}, "").status, 64) << "no command";
    EXPECT_EQ(tx::test::runProcess(helper, {}, "true").status, 64) << "not ended by NUL";
    EXPECT_EQ(tx::test::runProcess(helper, {}, QByteArray("true\0", 5)).status, 64) << "no absolute path";
    EXPECT_EQ(tx::test::runProcess(helper, {}, "run x\n").status, 64);
    EXPECT_EQ(tx::test::runProcess(helper, {}, "run 99999999\n").status, 64);
    EXPECT_EQ(tx::test::runProcess(helper, {}, "run 11\n/bin/true").status, 64) << "ends too early";
    EXPECT_EQ(tx::test::runProcess(helper, {}, QByteArray(1000, 'r')).status, 64);
    const auto two =
        tx::test::runProcess(helper, {}, QByteArray("run 10\n/bin/true\0run 11\n/bin/false\0", 35));
    EXPECT_EQ(two.status, 0);
    EXPECT_EQ(two.output, QByteArray("authorized\nexit 0\nexit 1\n"));
}

} // namespace
