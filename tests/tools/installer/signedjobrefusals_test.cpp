// SPDX-License-Identifier: MIT
// The conditions under which the job "install-signed" is accepted.
#include "tests/tools/installer/signedjobtest.h"

using namespace Qt::StringLiterals;
using namespace tx::installer;
using namespace tx::test;
using testing::AllOf;
using testing::HasSubstr;

namespace {

TEST_F(SignedJob, KeysOfTheInstalledApplicationDecideWhichJobItTakes) {
    release.make();
    const QStringList unsignedJob{u"install"_s, u"4711"_s, unpacked, release.archive};
    const QString none = u""_s;
    context.saidUnverified = true;
    EXPECT_EQ(run(unsignedJob, none), JobRefused);
    EXPECT_THAT(log, HasSubstr("has keys, so it is updated only by archives that they have signed"));
    EXPECT_TRUE(became.empty());
    // Malformed keys never count as "no keys".
    for (const QVariant &keys : {QVariant(QVariantList{}), QVariant(QVariantList{u"minisign:x"_s}),
                                 QVariant(u"minisign:x"_s), QVariant(true)}) {
        setInfo(bundle, u"TXUpdatePublicKeys"_s, keys);
        EXPECT_EQ(run(unsignedJob, none), JobUnverified);
        EXPECT_THAT(log, HasSubstr("TXUpdatePublicKeys"));
        EXPECT_TRUE(became.empty());
        expectUnverified("TXUpdatePublicKeys");
    }
    setInfo(bundle, u"TXUpdatePublicKeys"_s, {});
    expectRefused(JobRefused, "has no keys (TXUpdatePublicKeys) to verify an update with", job());
    // Without keys, the password dialog must have said so.
    context.saidUnverified = false;
    EXPECT_EQ(run(unsignedJob, none), JobRefused);
    EXPECT_THAT(log, HasSubstr("did not say that the update is not verified"));
    EXPECT_TRUE(became.empty());
    EXPECT_EQ(remarks, "");
    context.saidUnverified = true;
    EXPECT_EQ(run(unsignedJob, none), JobFailed);
    EXPECT_THAT(became, testing::ElementsAre(installer.toStdString(), "4711", unpacked.toStdString(),
                                             bundle.toStdString(), release.archive.toStdString()));
    EXPECT_TRUE(variables.empty());
    EXPECT_THAT(remarks, HasSubstr(bundle.toStdString() + " has no keys"));
    // It is unknown whether an unreadable Info.plist has keys.
    writeFile(bundle + u"/Contents/Info.plist"_s, "<plist>");
    became.clear();
    EXPECT_EQ(run(unsignedJob, none), JobFailed);
    EXPECT_THAT(log, HasSubstr("Info.plist is not a property list"));
    EXPECT_TRUE(became.empty());
    expectRefused(JobFailed, "Info.plist is not a property list", job());
}

TEST_F(SignedJob, WordsThatDoNotFitAreRefused) {
    release.make();
    makeBundle(path(u"Place/Other.app"_s), {.build = u"1"_s});
    makeBundle(path(u"elsewhere/Host.app"_s), {.build = u"1"_s});
    ASSERT_TRUE(QFile::link(bundle, path(u"link.app"_s)));
    const QStringList right = job();
    const auto with = [&](int word, const QString &value) {
        QStringList words = right;
        words[word] = value;
        return words;
    };
    const struct {
        QStringList words;
        const char *reason;
    } cases[] = {
        {right.first(6), "expected \"install"},
        {with(0, u"install-signe"_s), "expected \"install"},
        {with(1, u"1"_s), "is not the process identifier"},
        {with(1, u"-7"_s), "is not the process identifier"},
        {with(2, path(u"Place/Other.app"_s)), "is not the application that this program is a part of"},
        {with(2, path(u"elsewhere/Host.app"_s)), "is not the application that this program is a part of"},
        {with(2, path(u"link.app"_s)), "is a link"},
        {with(2, u"Host.app"_s), "is not an absolute path"},
        {with(2, path(u"none"_s)), "No such file"},
        {with(3, release.archive), "is not a folder"},
        {with(3, u"New.app"_s), "is not an absolute path"},
        {with(4, unpacked), "is not a file"},
        {with(4, path(u"none"_s)), "No such file"},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(run(each.words), JobRefused) << each.reason;
        EXPECT_THAT(log, AllOf(HasSubstr("refused: "), HasSubstr(each.reason)));
        EXPECT_TRUE(became.empty());
        EXPECT_TRUE(ran.empty());
    }
    EXPECT_EQ(run(right, u""_s), JobRefused);
    EXPECT_THAT(log, HasSubstr("the archive did not come with the job"));
    // The other jobs accept none.
    setInfo(bundle, u"TXUpdatePublicKeys"_s, {});
    context.saidUnverified = true;
    EXPECT_EQ(run({u"install"_s, u"4711"_s, unpacked, release.archive}), JobRefused);
    EXPECT_THAT(log, HasSubstr("the job \"install\" takes no archive"));
    EXPECT_EQ(run({u"move"_s, path(u"Place"_s)}), JobRefused);
    EXPECT_THAT(log, HasSubstr("the job \"move\" takes no archive"));
    EXPECT_TRUE(became.empty());
}

TEST_F(SignedJob, ApplicationOfAPackageIsNotExchanged) {
    release.make();
    writeFile(path(u"dpkg/info/mine.list"_s), bundle.toUtf8() + "\n");
    EXPECT_EQ(run(job()), JobFailed);
    EXPECT_THAT(log, HasSubstr("belongs to the package mine of dpkg"));
    EXPECT_TRUE(became.empty());
    EXPECT_TRUE(ran.empty());
}

TEST_F(SignedJob, AsRootUsesOnlyWhatNobodyElseCanChange) {
    release.make();
    // The folder belongs to the user, or is below a folder that everybody can write to.
    ASSERT_EQ(chmod(QFile::encodeName(path(u"Place"_s)).constData(), 0777), 0);
    context.asRoot = true;
    EXPECT_EQ(run(job()), JobForbidden);
    EXPECT_THAT(log, testing::AnyOf(HasSubstr("can be written to by other users"),
                                    HasSubstr("does not belong to root")));
    EXPECT_TRUE(became.empty());
    EXPECT_TRUE(ran.empty());
}

} // namespace
