// SPDX-License-Identifier: MIT
// Publishing that is killed or fails at each step. The published feed is always valid, and repeating the
// command leads to the same result as an uninterrupted run.
#include "tests/tools/publish/publishtest.h"
#include "trust/archives.h"
#include "trust/feeds.h"

using namespace Qt::StringLiterals;
using namespace tx::test;
using namespace tx::trust;

namespace {

class PublishMatrix : public PublishTest, public testing::WithParamInterface<const char *> {
protected:
    static constexpr qint64 now = 1800000000;

    ProcessResult drive(int point, const QString &how) {
        return runProcess(helpersFolder() + u"/publish_driver"_s,
                          {path(u"next/My.app"_s), site(), server.url(u"/"_s), path(u"one.key"_s),
                           QString::number(now), QString::number(point), how},
                          {}, {u"XDG_CACHE_HOME="_s + path(u"cache"_s), u"TXUPDATE_LOG_LEVEL=1"_s});
    }
    void restore(const QList<ArchiveEntry> &state) {
        QDir(site()).removeRecursively();
        QDir().mkpath(site());
        for (const ArchiveEntry &entry : state) {
            if (entry.type == ArchiveEntry::File && !entry.name.endsWith(u".lock"_s))
                writeFile(path(entry.name), entry.content);
        }
    }
    /// Checks the feed as applications see it: it verifies, and each archive that it names exists and matches
    /// its signature.
    void expectGoodFeed(const QStringList &buildsThatMayBe) {
        if (!QFileInfo::exists(site(u"feed.json"_s))) {
            EXPECT_TRUE(buildsThatMayBe.contains(QString()));
            return;
        }
        QByteArray document = readFile(site(u"feed.json"_s));
        const PublicKeys keys = keysOf({keyText(key(0)), keyText(key(1))});
        const auto verified = VerifiedFeed::verify(keys, {document.data(), size_t(document.size())},
                                                   {"org.example.Host", "release"});
        ASSERT_TRUE(verified) << verified.fault().what;
        QStringList names;
        for (const QJsonValue &entry : entries()) {
            names << entry[u"build"_s].toString();
            const QByteArray archive = readFile(site(QUrl(entry[u"downloadURL"_s].toString()).fileName()));
            const auto proof =
                ArchiveProof::find(keys, {{entry[u"signature"_s].toString().toStdString()}, {}},
                                   {"org.example.Host", names.last().toStdString(), {}});
            ASSERT_TRUE(proof) << proof.fault().what;
            DigestStream stream;
            stream.add(archive.constData(), size_t(archive.size()));
            EXPECT_FALSE(proof->check(stream)) << names.last().toStdString();
        }
        EXPECT_TRUE(buildsThatMayBe.contains(names.join(u' '))) << names.join(u' ').toStdString();
    }
};

TEST_P(PublishMatrix, FeedIsNeverWrongAndTheNextRunEndsTheSame) {
    const QString how = QString::fromLatin1(GetParam());
    for (const bool isFirst : {true, false}) {
        QDir(site()).removeRecursively();
        QDir().mkpath(site());
        if (!isFirst)
            publishEarlier();
        const QList<ArchiveEntry> before = entriesOf(site());
        const QStringList may{isFirst ? QString() : u"1042"_s, u"1043"_s};
        const ProcessResult whole = drive(0, u"never"_s);
        ASSERT_EQ(whole.status, 0) << whole.errors.constData();
        const std::string after = treeOf(site()).join(u'\n').toStdString();
        int point = 1;
        for (;; ++point) {
            restore(before);
            const ProcessResult result = drive(point, how);
            if (result.status == 0)
                break;
            EXPECT_EQ(result.status, how == u"fail" ? 1 : 128 + SIGKILL) << result.errors.constData();
            SCOPED_TRACE(point);
            expectGoodFeed(may);
            const ProcessResult again = drive(0, u"never"_s);
            EXPECT_EQ(again.status, 0) << again.errors.constData();
            expectGoodFeed({u"1043"_s});
            EXPECT_EQ(treeOf(site()).join(u'\n').toStdString(), after);
            ASSERT_FALSE(HasFailure());
        }
        // The steps: lock, make the archive, copy, sync, rename, sync the folder, replace the feed.
        EXPECT_GE(point, 8);
    }
}
INSTANTIATE_TEST_SUITE_P(When, PublishMatrix, testing::Values("kill", "within", "fail"),
                         [](const auto &one) { return std::string(one.param); });

} // namespace
