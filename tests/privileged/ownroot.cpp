// SPDX-License-Identifier: MIT
#include "tests/privileged/ownroot.h"

#include "model/host_p.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "tests/support/builders.h"
#include "tests/support/places.h"

#include <QProcess>

#include <cstring>
#include <linux/close_range.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace tx::test {

OwnRootTest::OwnRootTest() {
    m_real = geteuid() == 0 && enterOwnRoot();
    EXPECT_EQ(authorization.create({}, 0, reference), 0);
}

OwnRootTest::~OwnRootTest() { qputenv("PATH", m_pathBefore); }

bool OwnRootTest::enterOwnRoot() {
    // What the tests need of the system. Everything else, /opt first of all, is empty or missing.
    QStringList needed{u"bin"_s,   u"dev"_s,  u"etc"_s,  u"lib"_s, u"lib32"_s,
                       u"lib64"_s, u"proc"_s, u"sbin"_s, u"usr"_s};
    for (const QString &used : {path(u""_s), tx::test::resourcesFolder()}) {
        if (!needed.contains(used.section(u'/', 1, 1)))
            needed << used.section(u'/', 1, 1);
    }
    // Never below the test's own folder: that is removed at the end with all that is in it.
    const QString root = u"/mnt"_s;
    if (needed.contains(u"mnt"_s) || !QFileInfo(root).isDir())
        return false;
    // Nobody else sees these mounts, also when the launcher has made no place for them.
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", QFile::encodeName(root).constData(), "tmpfs", 0, "mode=755") != 0)
        return false;
    for (const QString &name : needed) {
        const QByteArray from = QFile::encodeName(u'/' + name);
        const QByteArray to = QFile::encodeName(root + u'/' + name);
        const QFileInfo entry(u'/' + name);
        if (entry.isSymLink()) {
            char target[4096] = {};
            (void)!readlink(from.constData(), target, sizeof target - 1);
            (void)!symlink(target, to.constData());
        } else if (entry.isDir() &&
                   (mkdir(to.constData(), 0755) != 0 ||
                    mount(from.constData(), to.constData(), nullptr, MS_BIND | MS_REC, nullptr) != 0)) {
            return false;
        }
    }
    umask(022);
    return QDir().mkpath(root + u"/opt"_s) && QDir().mkpath(root + root) &&
           chroot(QFile::encodeName(root).constData()) == 0 && chdir("/") == 0 &&
           QFileInfo::exists(path(u""_s));
}

QString OwnRootTest::makeApplication(const QString &bundle, const QString &build) {
    makeBundle(bundle, {.identifier = hostIdentifier, .build = build});
    const QString resources = bundle + u"/Contents/Frameworks/TarvixUpdate/Resources"_s;
    QDir().mkpath(resources);
    QStringList copy{u"-R"_s};
    for (const char *tool : {"/TXUpdateAuthorize", "/TXUpdateInstaller.app", "/TXUpdateUnpacker"})
        copy << tx::test::resourcesFolder() + QString::fromLatin1(tool);
    EXPECT_EQ(runProcess(u"cp"_s, copy << resources).status, 0);
    EXPECT_EQ(runProcess(u"chmod"_s, {u"-R"_s, u"u=rwX,go=rX"_s, bundle}).status, 0);
    setMainBundle(TXBundle(bundle));
    resetHost();
    services().resourcesPath = [resources] { return resources; };
    return resources;
}

void OwnRootTest::playPkexec(const QByteArray &before, const QByteArray &user) {
    writeFile(path(u"bin/pkexec"_s),
              "#!/bin/sh\ntouch '" + QFile::encodeName(path(u"asked"_s)) + "'\n" + before +
                  "\nexec env -i PATH=/usr/bin:/bin LANGUAGE=nn PKEXEC_UID=" + user +
                  " \"$@\" 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-\n",
              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("PATH", path(u"bin:"_s).toUtf8() + m_pathBefore);
}

bool OwnRootTest::wasAsked() const { return QFile::remove(path(u"asked"_s)); }

ProcessResult OwnRootTest::runHelper(const QString &resources, const QByteArray &input,
                                     const QByteArray &user, const QList<int> &files) const {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    iovec content{const_cast<char *>(input.constData()), static_cast<size_t>(input.size())};
    std::vector<char> control(CMSG_SPACE(static_cast<size_t>(files.size()) * sizeof(int)));
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    if (!files.isEmpty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr *part = CMSG_FIRSTHDR(&message);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(static_cast<size_t>(files.size()) * sizeof(int));
        std::memcpy(CMSG_DATA(part), files.constData(), static_cast<size_t>(files.size()) * sizeof(int));
    }
    EXPECT_EQ(sendmsg(ends[0], &message, 0), input.size());
    close(ends[0]);
    QProcess process;
    process.setChildProcessModifier([end = ends[1]] {
        dup2(end, STDIN_FILENO);
        close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    });
    process.start(u"env"_s, {u"-i"_s, u"PATH=/usr/bin:/bin"_s, u"PKEXEC_UID="_s + QString::fromLatin1(user),
                             resources + u"/TXUpdateAuthorize"_s});
    close(ends[1]);
    constexpr int limit = 100000;
    EXPECT_TRUE(process.waitForFinished(limit));
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : 128 + process.exitCode(),
            process.readAllStandardOutput(), process.readAllStandardError()};
}

int OwnRootTest::copyRights(unsigned flags, bool saysUnverified) {
    QList<AuthorizationItem> environment;
    if (saysUnverified)
        environment << AuthorizationItem{.name = authorizationDetail, .value = "the-update-is-not-verified"};
    return authorization.copyRights(*reference, {{.name = "system.privilege.admin"}}, environment, flags,
                                    nullptr);
}

void OwnRootTest::expectNoWay() {
    playPkexec();
    makeApplication(path(u"Host.app"_s));
    if (geteuid() == 0) // root without a place of its own: the application is somebody else's
        services().resourcesPath = [] { return tx::test::resourcesFolder(); };
    EXPECT_FALSE(authorization.canExecute());
    EXPECT_EQ(copyRights(), AuthorizationDenied);
    EXPECT_FALSE(wasAsked());
}

} // namespace tx::test
