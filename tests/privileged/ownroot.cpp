// SPDX-License-Identifier: MIT
#include "tests/privileged/ownroot.h"

#include "model/host_p.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "tests/support/builders.h"
#include "tests/support/places.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

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
    EXPECT_EQ(runProcess(u"cp"_s, {u"-R"_s, tx::test::resourcesFolder() + u"/TXUpdateAuthorize"_s,
                                   tx::test::resourcesFolder() + u"/TXUpdateInstaller.app"_s, resources})
                  .status,
              0);
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
                                     const QByteArray &user) const {
    return runProcess(u"env"_s,
                      {u"-i"_s, u"PATH=/usr/bin:/bin"_s, u"PKEXEC_UID="_s + QString::fromLatin1(user),
                       resources + u"/TXUpdateAuthorize"_s},
                      input);
}

int OwnRootTest::copyRights(unsigned flags) {
    return authorization.copyRights(*reference, {{.name = "system.privilege.admin"}}, {}, flags, nullptr);
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
