// SPDX-License-Identifier: MIT
// Real processes of a host application and of its installer, in which each change of the file system, each
// program that is started and each hand-over fails, is killed or hangs, once or always; started again until
// the update has settled.
#include "tests/survival/survivaltest.h"

using namespace Qt::StringLiterals;
using tx::test::executable;
using tx::test::namesIn;
using tx::test::Outcome;
using tx::test::readFile;
using tx::test::treeOf;
using tx::test::writeFile;

namespace {

class Survives : public tx::test::Survival {
protected:
    /// Plans a fault, starts the host until it has nothing more to do, and looks after each time.
    void survive(const QString &how, const QString &point) {
        SCOPED_TRACE((how + u" at "_s + point).toStdString());
        prepare();
        setPlan(how, point);
        const bool hangs = how.startsWith(u"hang"_s);
        const bool once = how.endsWith(u"-once"_s);
        constexpr int most = 4;
        int runs = 0;
        bool explained = false;
        Outcome last;
        while (runs < (once ? most : 2) && last.status != 10) {
            last = update(hangs);
            ++runs;
            expectComplete();
            expectReadableSettings();
            EXPECT_LE(launched(), runs) << "no restart loop";
            explained = explained || last.status != 0 || !log().isEmpty() || treeOf(subject()) == newTree ||
                        last.text.contains("An earlier installation did not come to its end.");
        }
        EXPECT_TRUE(explained) << "somebody says why\n" << last.text.constData() << log().constData();
        if (once) {
            EXPECT_EQ(last.status, 10) << "it has settled\n" << last.text.constData() << log().constData();
        }
        // The fault goes, and the next run comes through.
        setPlan({}, {});
        Outcome then = update();
        if (then.status != 10)
            then = update();
        EXPECT_EQ(then.status, 10) << then.text.constData() << log().constData();
        EXPECT_EQ(treeOf(subject()), newTree);
        expectReadableSettings();
        expectNoStraysAfterCleaning();
    }
    /// What is left is left for the next update, and gone after it.
    void expectNoStraysAfterCleaning() {
        if (!namesIn(cache).isEmpty() || namesIn(root + u"/Applications"_s).size() > 1 ||
            namesIn(app).size() > 1) {
            openFolder();
            tx::test::makeBundle(app, {.build = u"1"_s, .displayVersion = u"1.0"_s, .program = program("1")});
            if (inPlace)
                closeFolder();
            EXPECT_EQ(update().status, 0);
            EXPECT_EQ(treeOf(subject()), newTree);
        }
        expectNoStrays();
    }
};

TEST_F(Survives, WithoutAFaultTheUpdateComesThroughAndOpensOnce) {
    prepare();
    const Outcome outcome = update();
    EXPECT_EQ(outcome.status, 0) << outcome.text.constData();
    EXPECT_EQ(treeOf(app), newTree);
    EXPECT_EQ(readFile(launches), QByteArray("2\n"));
    EXPECT_TRUE(log().isEmpty()) << log().constData();
    expectNoStrays();
    EXPECT_EQ(update().status, 10);
    const QStringList points = trace();
    for (const QString &point :
         {u"create .txupdate-download #1"_s, u"write .txupdate-download #1"_s, u"rename New - 2.zip #1"_s,
          u"start TXUpdateUnpacker #1"_s, u"unpacker #1"_s, u"copy TXUpdateInstaller.app #1"_s,
          u"start TXUpdateInstaller #1"_s, u"exit #1"_s, u"installer exchange My Host.app #1"_s,
          u"installer open #1"_s})
        EXPECT_TRUE(points.contains(point)) << point.toStdString() << " is not among\n"
                                            << points.join(u'\n').toStdString();
}

TEST_F(Survives, NewBuildThatDiesAtItsStartIsOpenedOnce) {
    prepare();
    const QString fresh = path(u"staging/My Host.app"_s);
    writeFile(fresh + u"/Contents/Linux/Program"_s,
              "#!/bin/sh\necho died >> '" + launches.toUtf8() + "'\nkill -9 $$\n", executable);
    tx::test::makeArchive(path(u"archive"_s), tx::test::ArchiveKind::Zip, tx::test::entriesOf(fresh));
    archive = readFile(path(u"archive"_s));
    EXPECT_EQ(update().status, 0);
    EXPECT_EQ(treeOf(app), treeOf(fresh));
    EXPECT_EQ(readFile(launches), QByteArray("died\n"));
    expectNoStrays();
}

/// A downloaded application that moves into the user's Applications folder.
class SurvivingMove : public tx::test::Survival {
protected:
    const QString source = root + u"/home/Downloads/My Host.app"_s;
    const QString places = root + u"/home/Applications"_s;
    const QString destination = places + u"/My Host.app"_s;

    void prepareMove() {
        prepare();
        tx::test::makeBundle(source, {.build = u"2"_s, .program = program("2")});
        writeFile(source + u"/Contents/Resources/data"_s, QByteArray(50000, 'n'));
        newTree = treeOf(source);
        tx::test::makeBundle(places + u"/Other.app"_s, {.identifier = u"org.example.Other"_s});
        tx::test::makeBundle(destination, {.build = u"1"_s, .program = program("1")});
        oldTree = treeOf(destination);
    }
    Outcome move(bool hangs = false) const { return run({u"move"_s}, hangs, source); }
    void survive(const QString &how, const QString &point) {
        SCOPED_TRACE((how + u" at "_s + point).toStdString());
        prepareMove();
        setPlan(how, point);
        const bool hangs = how.startsWith(u"hang"_s);
        int runs = 0;
        for (Outcome last; runs < 3 && last.status != 0 && QFileInfo::exists(source);) {
            last = move(hangs);
            ++runs;
            EXPECT_LE(launched(), runs) << "no restart loop";
            if (QFileInfo::exists(source)) {
                EXPECT_EQ(treeOf(source), newTree) << "the one that runs stays whole";
            } else {
                EXPECT_EQ(treeOf(destination), newTree);
            }
            EXPECT_TRUE(treeOf(destination) == oldTree || treeOf(destination) == newTree);
            EXPECT_TRUE(last.status != 0 || treeOf(destination) == newTree) << last.text.constData();
        }
        setPlan({}, {});
        if (QFileInfo::exists(source)) {
            EXPECT_EQ(move().status, 0);
        }
        EXPECT_EQ(treeOf(destination), newTree);
        EXPECT_FALSE(QFileInfo::exists(source));
        EXPECT_EQ(namesIn(places), (QStringList{u"My Host.app"_s, u"Other.app"_s}));
    }
};

class MoveMatrix : public SurvivingMove, public testing::WithParamInterface<const char *> {};

TEST_P(MoveMatrix, LosesNothingAndSettles) {
    prepareMove();
    const Outcome clean = move();
    ASSERT_EQ(clean.status, 0) << clean.text.constData();
    ASSERT_EQ(treeOf(destination), newTree);
    const QStringList points = trace();
    EXPECT_GT(points.size(), 8);
    for (const QString &point : points) {
        survive(QString::fromLatin1(GetParam()), point);
        if (HasFailure())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Matrix, MoveMatrix,
                         testing::Values("fail-once", "fail-always", "kill-once", "kill-always", "hang-once"),
                         [](const testing::TestParamInfo<const char *> &each) {
                             std::string name = each.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

/// An application that is started again after it has ended, by two roads.
class RelaunchMatrix : public tx::test::Survival, public testing::WithParamInterface<const char *> {
protected:
    void prepareRelaunch() {
        prepare();
        // It runs for a while, so that the second road finds it.
        writeFile(app + u"/Contents/Linux/Program"_s,
                  "#!/bin/sh\necho 1 >> '" + launches.toUtf8() + "'\nsleep 3\n", executable);
        oldTree = treeOf(app);
    }
};

TEST_P(RelaunchMatrix, OpensItOnceWhicheverRoadIsLeft) {
    const QString how = QString::fromLatin1(GetParam());
    prepareRelaunch();
    EXPECT_EQ(run({u"relaunch"_s}, false).status, 0);
    EXPECT_EQ(launched(), 1);
    const QStringList points = trace();
    ASSERT_EQ(points, (QStringList{u"start TXUpdateLauncher #1"_s, u"start sh #1"_s}));
    for (const QString &point : points) {
        SCOPED_TRACE(point.toStdString());
        prepareRelaunch();
        setPlan(how, point);
        const Outcome outcome = run({u"relaunch"_s}, how.startsWith(u"hang"_s));
        EXPECT_EQ(treeOf(app), oldTree);
        EXPECT_LE(launched(), 1) << "no restart loop";
        if (how.startsWith(u"fail"_s)) {
            EXPECT_EQ(launched(), 1) << "by the other road";
            EXPECT_THAT(outcome.text.toStdString(), testing::HasSubstr("failed to launch with"));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Matrix, RelaunchMatrix,
                         testing::Values("fail-once", "fail-always", "kill-once", "kill-always", "hang-once"),
                         [](const testing::TestParamInfo<const char *> &each) {
                             std::string name = each.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

struct Row {
    const char *how;
    const char
        *part; ///< "host"; "tool" for the programs that it starts; "contents" for those in a folder of others
};
void PrintTo(const Row &row, std::ostream *out) { *out << row.part << ' ' << row.how; }

class KillMatrix : public Survives, public testing::WithParamInterface<Row> {};

TEST_P(KillMatrix, LosesNothingAndSettles) {
    inPlace = GetParam().part == QByteArrayView("contents");
    if (inPlace)
        newTree = treeOf(path(u"staging/My Host.app/Contents"_s));
    prepare();
    const Outcome clean = update();
    ASSERT_EQ(clean.status, 0) << clean.text.constData();
    ASSERT_EQ(treeOf(subject()), newTree);
    int points = 0;
    for (const QString &point : trace()) {
        const bool isTool = point.startsWith(u"installer"_s) || point.startsWith(u"unpacker"_s);
        if (isTool == (GetParam().part == QByteArrayView("host")))
            continue;
        survive(QString::fromLatin1(GetParam().how), point);
        ++points;
        if (HasFailure())
            return;
    }
    EXPECT_GT(points, 8);
}

INSTANTIATE_TEST_SUITE_P(Matrix, KillMatrix,
                         testing::Values(Row{"fail-once", "host"}, Row{"fail-always", "host"},
                                         Row{"kill-once", "host"}, Row{"kill-always", "host"},
                                         Row{"hang-once", "host"}, Row{"fail-once", "tool"},
                                         Row{"fail-always", "tool"}, Row{"kill-once", "tool"},
                                         Row{"kill-always", "tool"}, Row{"hang-once", "tool"},
                                         Row{"fail-once", "contents"}, Row{"kill-once", "contents"},
                                         Row{"hang-once", "contents"}),
                         [](const testing::TestParamInfo<Row> &each) {
                             std::string name = std::string(each.param.part) + '_' + each.param.how;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

} // namespace
