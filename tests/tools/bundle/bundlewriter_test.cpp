// SPDX-License-Identifier: MIT
// The state of a bundle after the disk or a program has failed at any step.
#include "bundle/bundleinfolist.h"
#include "bundle/bundlewriter.h"
#include "bundle/problem.h"
#include "tests/support/fakes.h"
#include "tests/tools/bundle/bundletest.h"

#include <cerrno>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace tx::bundling;
using tx::Result;

namespace {

/// Fails at the call with this number. Later calls work.
class FailingFiles final : public BundleFiles {
public:
    int failing = -1;
    int calls = 0;

    TXError makeFolder(const QString &path) override {
        return fails() ? failure() : nativeBundleFiles().makeFolder(path);
    }
    TXError copyFile(const QString &from, const QString &to) override {
        return fails() ? failure() : nativeBundleFiles().copyFile(from, to);
    }
    TXError writeFile(const QString &path, const QByteArray &content) override {
        return fails() ? failure() : nativeBundleFiles().writeFile(path, content);
    }
    TXError makeLink(const QString &path, const QString &target) override {
        return fails() ? failure() : nativeBundleFiles().makeLink(path, target);
    }
    TXError rename(const QString &from, const QString &to) override {
        return fails() ? failure() : nativeBundleFiles().rename(from, to);
    }
    TXError remove(const QString &path) override {
        return fails() ? failure() : nativeBundleFiles().remove(path);
    }

private:
    bool fails() { return calls++ == failing; }
    static TXError failure() { return problem(u"the disk is full"_s); }
};

class BundleWriter : public tx::test::BundleTest {
protected:
    BundleWriter() {
        wishes.executable = sample();
        wishes.identifier = u"org.example.Sample"_s;
        wishes.name = u"Sample"_s;
        wishes.build = u"1"_s;
        wishes.output = path(u"dist"_s);
        wishes.layout = Layout::Prefix; // has links
    }
    /// A plan with few files, so that a test can let every step fail.
    Plan smallPlan() const {
        Plan plan = *makePlan(wishes);
        plan.items.removeIf([](const Item &item) {
            return item.kind != Kind::Program && !item.source.endsWith(u"libsamplepart.so");
        });
        return plan;
    }
    Result<WrittenBundle> write(const Plan &plan, BundleFiles &files) const {
        return writeBundle(plan, wishes, *infoListOf(wishes, QDateTime::currentDateTime()), files);
    }
    Wishes wishes;
};

TEST_F(BundleWriter, AtEveryFailingStepTheEarlierBundleStaysAndNothingIsLeft) {
    // The sample is incomplete without its libraries. Only the checks at the end find that.
    Plan plan = smallPlan();
    FailingFiles counting;
    const auto whole = write(plan, counting);
    ASSERT_TRUE(whole) << lineOf(whole.error()).toStdString();
    EXPECT_FALSE(whole->problems.isEmpty());
    EXPECT_TRUE(tx::test::namesIn(path(u"dist"_s)).isEmpty()) << "a bundle with problems is not kept";

    plan = *makePlan(wishes);
    FailingFiles all;
    const auto first = write(plan, all);
    ASSERT_TRUE(first && first->problems.isEmpty())
        << (first ? first->problems.join(u'\n') : lineOf(first.error())).toStdString();
    const QStringList before = tx::test::treeOf(path(u"dist"_s));
    // Tries a few of the many copies, and all other steps, which come first and last.
    FailingFiles again;
    ASSERT_TRUE(write(plan, again));
    for (int step = 0; step < again.calls; step += step < 6 || step > again.calls - 12 ? 1 : 97) {
        FailingFiles failing;
        failing.failing = step;
        const auto result = write(plan, failing);
        if (result) // the last step removes the replaced bundle
            EXPECT_GE(step, again.calls - 2);
        else
            EXPECT_THAT(lineOf(result.error()).toStdString(), testing::HasSubstr("the disk is full")) << step;
        for (const QString &name : {u"dist/sample/Contents/bin/sample"_s, u"dist/sample/Info.plist"_s})
            EXPECT_TRUE(QFileInfo::exists(path(name))) << "step " << step;
    }
    FailingFiles last;
    ASSERT_TRUE(write(plan, last));
    EXPECT_EQ(tx::test::treeOf(path(u"dist"_s)).size(), before.size());
}

TEST_F(BundleWriter, PrefixHasALinkToAFolderThatHoldsOnlyLicences) {
    // Without Qt's translations, which are a package of their own, nothing else is in that folder.
    Plan plan = *makePlan(wishes);
    plan.items.removeIf([](const Item &item) { return item.place.startsWith(u"Contents/share/"_s); });
    const auto result = write(plan, nativeBundleFiles());
    ASSERT_TRUE(result && result->problems.isEmpty());
    const QString bundle = path(u"dist/sample"_s);
    EXPECT_EQ(tx::test::namesIn(bundle + u"/Contents/share"_s), QStringList{u"licenses"_s});
    EXPECT_EQ(QFileInfo(bundle + u"/share"_s).symLinkTarget(), bundle + u"/Contents/share"_s);
}

TEST_F(BundleWriter, ProgressIsToldAfterEachFileAndEndsWithTheSizeOfAll) {
    const Plan plan = smallPlan();
    QList<qint64> steps;
    const auto result = writeBundle(plan, wishes, *infoListOf(wishes, QDateTime::currentDateTime()),
                                    nativeBundleFiles(), [&](qint64 done, qint64 total) {
                                        EXPECT_EQ(total, plan.items[0].size + plan.items[1].size);
                                        steps << done;
                                    });
    ASSERT_TRUE(result);
    ASSERT_EQ(plan.items.size(), 2);
    EXPECT_EQ(steps, (QList<qint64>{plan.items[0].size, plan.items[0].size + plan.items[1].size}));
    EXPECT_GT(steps.first(), 0);
}

TEST_F(BundleWriter, FailingProgramsAreReportedWithWhatTheySay) {
    tx::test::RecordingTasks tasks;
    tasks.runsForReal = true;
    const Plan plan = *makePlan(wishes);
    for (const QString &program : {u"patchelf"_s, u"strip"_s, u"objcopy"_s}) {
        tasks.failing = [&program](const tx::TaskRequest &request) {
            return request.program.endsWith(program) ? EACCES : 0;
        };
        const auto result = write(plan, nativeBundleFiles());
        ASSERT_FALSE(result) << program.toStdString();
        EXPECT_THAT(lineOf(result.error()).toStdString(),
                    testing::HasSubstr(program.toStdString() + " cannot be started"));
        EXPECT_TRUE(tx::test::namesIn(path(u"dist"_s)).isEmpty()) << program.toStdString();
    }
}

TEST_F(BundleWriter, FoldersAndFilesCanBeReadByEverybodyWhateverTheUmask) {
    const mode_t before = umask(0077);
    const auto result = write(*makePlan(wishes), nativeBundleFiles());
    umask(before);
    ASSERT_TRUE(result) << lineOf(result.error()).toStdString();
    const auto modeOf = [this](const QString &place) {
        struct stat info {};
        EXPECT_EQ(stat(QFile::encodeName(path(u"dist/sample/"_s + place)).constData(), &info), 0)
            << place.toStdString();
        return info.st_mode & 07777;
    };
    EXPECT_EQ(modeOf(u"Contents"_s), 0755U);
    EXPECT_EQ(modeOf(u"Contents/bin/sample"_s), 0755U);
    EXPECT_EQ(modeOf(u"Contents/bin/qt.conf"_s), 0644U);
    EXPECT_EQ(modeOf(u"Contents/Info.plist"_s), 0644U);
    EXPECT_EQ(modeOf(u"Contents/lib/libQt6Core.so.6"_s) & 0444U, 0444U);
}

} // namespace
