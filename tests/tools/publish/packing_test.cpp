// SPDX-License-Identifier: MIT
// Archives: the same bundle gives the same bytes, and unpacking gives the same bundle.
#include "publish/packing.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <fcntl.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace tx::publishing;
using namespace tx::test;

namespace {

constexpr PublishedLimits noLimits{qint64(1) << 40, qint64(1) << 40};

class Packing : public FrameworkTest {
protected:
    /// Makes a bundle with entries that are hard to pack. `isBackwards` reverses the order in which they are
    /// made.
    QString makeApplication(const QString &place, bool isBackwards = false) {
        const QString bundle = path(place + u"/My App.app"_s);
        makeBundle(bundle, {});
        QStringList names{u"Contents/b"_s, u"Contents/a-b"_s, u"Contents/a/x"_s, u"Contents/größe 日本"_s,
                          u"Contents/"_s + QString(150, u'n') + u'/' + QString(150, u'm')};
        if (isBackwards)
            std::reverse(names.begin(), names.end());
        for (const QString &name : names)
            writeFile(bundle + u'/' + name, name.toUtf8() + QByteArray(70000, 'x'));
        EXPECT_TRUE(QFile::link(u"a/x"_s, bundle + u"/Contents/link"_s));
        QDir().mkpath(bundle + u"/Contents/empty"_s);
        return bundle;
    }
    static void setTimes(const QString &bundle, time_t time) {
        const auto entries = listBundle(bundle);
        ASSERT_TRUE(entries) << entries.fault().what;
        for (const BundleEntry &entry : *entries) {
            const std::string place = bundle.toStdString() + '/' + entry.name;
            const timespec times[] = {{time, 123}, {time, 456}};
            ASSERT_EQ(utimensat(AT_FDCWD, place.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
        }
    }
    tx::trust::Outcome<PackedArchive> pack(const QString &bundle, ArchiveType type, const QString &to,
                                           std::optional<qint64> newest = {},
                                           const PublishedLimits &limits = noLimits) {
        QDir().mkpath(path(to));
        const auto application = readApplication(bundle);
        const auto entries = listBundle(bundle);
        EXPECT_TRUE(application && entries);
        Progress silent(-1);
        return packBundle(*application, *entries, type, path(to), newest, limits, silent);
    }
    QByteArray bytesOf(const QString &bundle, ArchiveType type, const QString &to,
                       std::optional<qint64> newest = {}) {
        const auto packed = pack(bundle, type, to, newest);
        EXPECT_TRUE(packed) << packed.fault().what;
        return packed ? readFile(packed->path) : QByteArray();
    }
    static constexpr ArchiveType types[] = {ArchiveType::Zip, ArchiveType::Tgz, ArchiveType::Tzst};
    static constexpr time_t someTime = 1700000001;
};

TEST_F(Packing, SameBundleGivesTheSameBytesWhereverItIs) {
    const QString first = makeApplication(u"one"_s);
    const QString second = makeApplication(u"two"_s, true);
    setTimes(first, someTime);
    setTimes(second, someTime);
    chmod((second + u"/Contents/b"_s).toUtf8().constData(), 0600);
    chmod((second + u"/Contents"_s).toUtf8().constData(), 0700);
    for (const ArchiveType type : types) {
        const QByteArray bytes = bytesOf(first, type, u"out"_s);
        EXPECT_FALSE(bytes.isEmpty());
        const QByteArray zone = qgetenv("TZ");
        qputenv("TZ", "Asia/Tokyo");
        tzset();
        EXPECT_EQ(bytesOf(second, type, u"other"_s), bytes) << suffixOf(type).toStdString();
        EXPECT_EQ(qgetenv("TZ"), QByteArray("Asia/Tokyo"));
        if (zone.isNull())
            qunsetenv("TZ");
        else
            qputenv("TZ", zone);
        tzset();
    }
    writeFile(second + u"/Contents/b"_s, "other");
    setTimes(second, someTime);
    for (const ArchiveType type : types)
        EXPECT_NE(bytesOf(second, type, u"other"_s), bytesOf(first, type, u"out"_s));
}

TEST_F(Packing, TimesAreNotAfterTheNewestOne) {
    const QString bundle = makeApplication(u"one"_s);
    setTimes(bundle, someTime);
    for (const ArchiveType type : types) {
        const QByteArray early = bytesOf(bundle, type, u"early"_s, 1600000000);
        EXPECT_NE(early, bytesOf(bundle, type, u"out"_s));
        setTimes(bundle, 1600000000);
        EXPECT_EQ(early, bytesOf(bundle, type, u"out"_s));
        setTimes(bundle, someTime);
        EXPECT_EQ(bytesOf(bundle, type, u"late"_s, 1800000000), bytesOf(bundle, type, u"out"_s));
    }
}

TEST_F(Packing, ToolsOfInstallationsUnpackTheSameBundle) {
    const QString bundle = makeApplication(u"one"_s);
    setTimes(bundle, someTime);
    const std::pair<ArchiveType, QStringList> commands[] = {
        {ArchiveType::Zip, {u"/ditto"_s, u"-x"_s, u"-k"_s, u"-"_s}},
        {ArchiveType::Tgz, {u"/Archives/tar"_s, u"-zxC"_s}},
        {ArchiveType::Tzst, {u"/Archives/tar"_s, u"--zstd"_s, u"-xC"_s}}};
    for (const auto &[type, words] : commands) {
        const QString to = path(u"unpacked-"_s + suffixOf(type));
        QDir().mkpath(to);
        const ProcessResult result =
            runProcess(resourcesFolder() + words.first(), words.mid(1) + QStringList{to},
                       bytesOf(bundle, type, u"out"_s));
        ASSERT_EQ(result.status, 0) << result.errors.constData();
        EXPECT_EQ(treeOf(to + u"/My App.app"_s), treeOf(bundle));
        struct stat info {};
        ASSERT_EQ(stat((to + u"/My App.app/Contents/b"_s).toUtf8().constData(), &info), 0);
        EXPECT_EQ(info.st_mtim.tv_sec, someTime);
        EXPECT_EQ(info.st_mode & 0777U, 0644U);
        ASSERT_EQ(stat((to + u"/My App.app/Contents/Linux/Program"_s).toUtf8().constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0755U);
    }
}

TEST_F(Packing, ChangedByteOfAnyTypeIsNoticed) {
    const QString bundle = makeApplication(u"one"_s);
    // Random bytes, so that the middle of the archive is content and not a header.
    QByteArray noise(200000, 0);
    for (qsizetype i = 0; i < noise.size(); ++i)
        noise[i] = char((i * i * 7919) >> 3);
    writeFile(bundle + u"/Contents/noise"_s, noise);
    for (const ArchiveType type : types) {
        QByteArray bytes = bytesOf(bundle, type, u"out"_s);
        bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x10);
        const QString to = path(u"damaged-"_s + suffixOf(type));
        QDir().mkpath(to);
        const QStringList words =
            type == ArchiveType::Zip   ? QStringList{u"/ditto"_s, u"-x"_s, u"-k"_s, u"-"_s}
            : type == ArchiveType::Tgz ? QStringList{u"/Archives/tar"_s, u"-zxC"_s}
                                       : QStringList{u"/Archives/tar"_s, u"--zstd"_s, u"-xC"_s};
        EXPECT_EQ(runProcess(resourcesFolder() + words.first(), words.mid(1) + QStringList{to}, bytes).status,
                  1);
        EXPECT_EQ(namesIn(to), QStringList()) << suffixOf(type).toStdString();
    }
}

TEST_F(Packing, NameSaysTheBuildAndStaysInAFolder) {
    const QString bundle = path(u"Mý & App.app"_s);
    makeBundle(bundle, {.build = u"10/4 b"_s});
    const auto packed = pack(bundle, ArchiveType::Zip, u"out"_s);
    ASSERT_TRUE(packed);
    EXPECT_EQ(packed->name, u"M----App-10-4-b.zip"_s);
    EXPECT_EQ(packed->size, quint64(QFileInfo(packed->path).size()));
    EXPECT_EQ(packed->digest, tx::trust::digestOf(readFile(packed->path).toStdString()));
}

TEST_F(Packing, LimitsCountWhatIsPackedAndTheArchive) {
    const QString bundle = makeApplication(u"one"_s);
    qint64 sum = 0;
    const auto listed = listBundle(bundle);
    for (const BundleEntry &entry : *listed)
        sum += entry.size;
    EXPECT_TRUE(pack(bundle, ArchiveType::Tgz, u"out"_s, {}, {1 << 30, sum}));
    const auto unpacked = pack(bundle, ArchiveType::Tgz, u"out"_s, {}, {1 << 30, sum - 1});
    ASSERT_FALSE(unpacked);
    EXPECT_THAT(unpacked.fault().what, testing::HasSubstr("--largest-unpacked"));
    const auto size = qint64(pack(bundle, ArchiveType::Tgz, u"out"_s)->size);
    EXPECT_TRUE(pack(bundle, ArchiveType::Tgz, u"out"_s, {}, {size, sum}));
    const auto archive = pack(bundle, ArchiveType::Tgz, u"out"_s, {}, {size - 1, sum});
    ASSERT_FALSE(archive);
    EXPECT_THAT(archive.fault().what, testing::HasSubstr("--largest-archive"));
}

TEST_F(Packing, FullDiskAndChangedFilesAreSaid) {
    const QString bundle = makeApplication(u"one"_s);
    {
        FaultFileSystem files;
        files.spaceLeft = 1000;
        const auto packed = pack(bundle, ArchiveType::Tgz, u"out"_s);
        ASSERT_FALSE(packed);
        EXPECT_THAT(packed.fault().what, testing::HasSubstr("Cannot write to"));
    }
    const auto application = readApplication(bundle);
    const auto entries = listBundle(bundle);
    Progress silent(-1);
    for (const QByteArray &other : {QByteArray("shorter"), QByteArray(90000, 'y')}) {
        writeFile(bundle + u"/Contents/b"_s, other);
        const auto packed =
            packBundle(*application, *entries, ArchiveType::Zip, path(u"out"_s), {}, noLimits, silent);
        ASSERT_FALSE(packed);
        EXPECT_THAT(packed.fault().what, testing::HasSubstr("was changed while it was packed"));
    }
}

} // namespace
