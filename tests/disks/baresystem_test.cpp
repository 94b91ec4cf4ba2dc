// SPDX-License-Identifier: MIT
// Systems that lack what others have: a zone database, a mount table that names "/". Really so where the
// system permits mounts (in-own-mounts); elsewhere the same must hold with what there is.
#include "feed/jsonreader.h"
#include "model/itemdate.h"
#include "os/volumes.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <TarvixUpdate/TXUpdateTrack.h>

#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::writeFile;

namespace {

class BareSystem : public tx::test::FrameworkTest {};

TEST_F(BareSystem, DatesOfFeedsHoldWithoutAZoneDatabase) {
    QStringList hidden;
    for (const QString &folder : {u"/usr/share/zoneinfo"_s, u"/usr/lib/zoneinfo"_s}) {
        if (mount("tmpfs", QFile::encodeName(folder).constData(), "tmpfs", 0, nullptr) == 0)
            hidden << folder;
    }
    const auto utc = [](const QString &text) {
        return tx::itemDateFromString(text).toUTC().toString(Qt::ISODate);
    };
    EXPECT_EQ(utc(u"2024-01-15 12:00:00"_s), u"2024-01-15T20:00:00Z"_s);
    EXPECT_EQ(utc(u"2024-07-01 12:00:00"_s), u"2024-07-01T19:00:00Z"_s);
    const auto shown = [](int hour, int month) {
        return tx::itemDateToString(QDateTime(QDate(2024, month, 1), QTime(hour, 0), Qt::UTC));
    };
    EXPECT_EQ(shown(20, 1), u"2024-01-01 12:00:00"_s);
    EXPECT_EQ(shown(19, 7), u"2024-07-01 12:00:00"_s);
    tx::ReaderContext context;
    context.now = QDateTime(QDate(2024, 7, 2), QTime(0, 0), Qt::UTC);
    const auto tracks = tx::readJsonFeed(R"({"release":[
        {"type":"post","url":"https://e.org/1","date":"2024-06-01 12:00:00","endDate":"2024-07-01 12:00:00"},
        {"type":"post","url":"https://e.org/2","date":"2024-06-01 12:00:00","endDate":"2024-08-01 12:00:00"}]})",
                                         context);
    for (const QString &folder : hidden)
        umount2(QFile::encodeName(folder).constData(), MNT_DETACH);
    ASSERT_TRUE(tracks);
    const auto posts = tracks->value(u"release"_s)->posts();
    ASSERT_EQ(posts.size(), 1) << "the post that has ended stays away";
    EXPECT_EQ(posts.first()->postURL(), QUrl(u"https://e.org/2"_s));
}

TEST_F(BareSystem, FileSystemHoldsAPathThatTheMountTableDoesNotName) {
    const QString root = path(u"root"_s);
    writeFile(root + u"/file"_s, "x");
    QDir().mkpath(root + u"/proc"_s);
    const bool isBare = mount("/proc", QFile::encodeName(root + u"/proc"_s).constData(), nullptr,
                              MS_BIND | MS_REC, nullptr) == 0;
    if (!isBare) {
        const auto info = tx::volumeByFileSystem(root + u"/file"_s);
        ASSERT_TRUE(info);
        EXPECT_TRUE(root.startsWith(info->rootPath));
        return;
    }
    const pid_t child = fork();
    if (child == 0) {
        if (chroot(QFile::encodeName(root).constData()) != 0 || chdir("/") != 0)
            _exit(2);
        QFile table(u"/proc/self/mountinfo"_s);
        if (!table.open(QIODevice::ReadOnly) || table.readAll().contains(" / / "))
            _exit(3);
        const auto info = tx::volumeInfo(u"/file"_s);
        _exit(info && info->rootPath == u"/" && !info->isReadOnly ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    umount2(QFile::encodeName(root + u"/proc"_s).constData(), MNT_DETACH);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: not found, 2: no other root, 3: the table names the root";
}

} // namespace
