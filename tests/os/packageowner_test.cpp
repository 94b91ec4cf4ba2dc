// SPDX-License-Identifier: MIT
#include "os/packageowner.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

/// Made-up package managers, and a bundle that they may own.
class PackageOwner : public tx::test::FrameworkTest {
protected:
    const QString bundle = path(u"opt/My.app"_s);
    const QString dpkg = path(u"dpkg"_s);
    const tx::PackageDatabases before = tx::packageDatabases();

    PackageOwner() {
        tx::packageDatabases() = {dpkg, {path(u"rpm-old"_s), path(u"rpm"_s)}, path(u"bin/rpm"_s)};
        tx::test::makeBundle(bundle, {});
    }
    ~PackageOwner() override { tx::packageDatabases() = before; }

    void list(const QString &package, const QString &paths) {
        tx::test::writeFile(dpkg + u"/info/"_s + package + u".list"_s, (u"/.\n"_s + paths + u'\n').toUtf8());
    }
    /// An rpm that answers by this script, with the paths as its arguments.
    void rpm(const QByteArray &script) {
        tx::test::writeFile(path(u"rpm/rpmdb.sqlite"_s), "x");
        tx::test::writeFile(path(u"bin/rpm"_s), "#!/bin/sh\n[ \"$1\" = -qf ] || exit 9\nshift 3\n" + script,
                            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    /// "manager package", "" for nobody, or "error: reason".
    QString owner(const QString &of = {}) const {
        const auto result = tx::packageOwnerOf(of.isNull() ? bundle : of);
        if (!result)
            return u"error: "_s + result.error().localizedDescription() + u' ' +
                   result.error().localizedFailureReason();
        return *result ? (*result)->manager + u' ' + (*result)->package : QString();
    }
    void expectError(const char *what) const {
        EXPECT_THAT(owner().toStdString(),
                    testing::AllOf(testing::StartsWith("error: The database of"), testing::HasSubstr(what)));
    }
};

TEST_F(PackageOwner, NobodyWithoutAPackageManager) { EXPECT_EQ(owner(), QString()); }

TEST_F(PackageOwner, DpkgOwnsWhatItsListsNameByAnyPath) {
    ASSERT_TRUE(QFile::link(u"opt"_s, path(u"lib"_s)));
    ASSERT_TRUE(QFile::link(bundle, path(u"shortcut"_s)));
    list(u"other"_s, bundle + u".old\n"_s + path(u"elsewhere/My.app"_s) + u'\n' + path(u"opt/NotMy.app"_s) +
                         u"\n/My.app\n"_s + path(u"opt"_s));
    tx::test::makeBundle(path(u"elsewhere/My.app"_s), {});
    tx::test::writeFile(dpkg + u"/info/mine.md5sums"_s, bundle.toUtf8() + "\n");
    EXPECT_EQ(owner(), QString()) << "similar names, and lists of something else";
    for (const QString &line : {bundle, bundle + u"/Contents/Info.plist"_s, bundle + u"/Contents/PlugIns/x"_s,
                                path(u"lib/My.app/Contents/Linux/Program"_s), path(u"opt/../lib/My.app"_s)}) {
        for (const QString &package : {u"mine"_s, u"mine:amd64"_s}) {
            list(package, line);
            EXPECT_EQ(owner(), u"dpkg mine"_s) << line.toStdString();
            EXPECT_EQ(owner(path(u"lib/My.app"_s)), u"dpkg mine"_s) << line.toStdString();
            EXPECT_EQ(owner(path(u"shortcut"_s)), u"dpkg mine"_s) << line.toStdString();
            ASSERT_TRUE(QFile::remove(dpkg + u"/info/"_s + package + u".list"_s));
        }
    }
    EXPECT_EQ(owner(), QString());
}

TEST_F(PackageOwner, LinkBelongsToThePackageOfItsOwnName) {
    const QString link = path(u"usr/Link.app"_s);
    QDir().mkpath(path(u"usr"_s));
    ASSERT_TRUE(QFile::link(u"usr"_s, path(u"also"_s)));
    const auto entryOwner = [](const QString &entry) {
        const auto result = tx::packageOwnerOfEntry(entry);
        if (!result)
            return u"error: "_s + result.error().localizedFailureReason();
        return *result ? (*result)->manager + u' ' + (*result)->package : QString();
    };
    for (const QString &target : {bundle, u"/nonexistent"_s}) {
        ASSERT_TRUE(QFile::link(target, link));
        list(u"mine"_s, bundle + u'\n' + bundle + u"/Contents\n"_s + link + u"x\n"_s + link + u"/inside\n"_s +
                            path(u"opt/Link.app"_s));
        EXPECT_EQ(entryOwner(link), QString()) << "what it leads to, and similar names";
        for (const QString &line : {link, path(u"also/Link.app"_s)}) {
            list(u"mine"_s, line);
            EXPECT_EQ(entryOwner(link), u"dpkg mine"_s) << line.toStdString();
            EXPECT_EQ(entryOwner(path(u"also/Link.app"_s)), u"dpkg mine"_s) << line.toStdString();
        }
        QFile::remove(link);
    }
    list(u"mine"_s, path(u"usr/lib/x"_s));
    tx::test::writeFile(dpkg + u"/diversions"_s, (path(u"usr/lib/x"_s) + u'\n' + link + u"\n:\n"_s).toUtf8());
    ASSERT_TRUE(QFile::link(bundle, link));
    EXPECT_EQ(entryOwner(link), u"dpkg mine"_s) << "diverted to this name";
    // A folder is looked through as ever.
    list(u"mine"_s, bundle + u"/Contents/Info.plist"_s);
    EXPECT_EQ(entryOwner(bundle), u"dpkg mine"_s);
    EXPECT_EQ(entryOwner(path(u"nowhere/Link.app"_s)),
              u"error: %1: No such file or directory"_s.arg(path(u"nowhere/Link.app"_s)));
}

TEST_F(PackageOwner, DpkgOwnsWhatItDivertedIntoTheBundle) {
    list(u"lister"_s, path(u"usr/lib/x"_s));
    tx::test::writeFile(dpkg + u"/diversions"_s, (u"/a\n/b\nfirst\n"_s + path(u"usr/lib/x"_s) + u'\n' +
                                                  bundle + u"/Contents/x.diverted\n:\n"_s)
                                                     .toUtf8());
    EXPECT_EQ(owner(), u"dpkg lister"_s);
    list(u"lister"_s, path(u"usr/lib/xy"_s));
    EXPECT_EQ(owner(), QString()) << "no package has that file";
}

TEST_F(PackageOwner, DpkgDatabaseThatCannotBeReadIsAnError) {
    tx::test::writeFile(dpkg + u"/status"_s, "Package: x\n");
    expectError("dpkg");
    QDir().mkpath(dpkg + u"/info/folder.list"_s);
    expectError("folder.list");
    QDir(dpkg + u"/info"_s).removeRecursively();
    tx::test::writeFile(dpkg + u"/info"_s, "not a folder");
    expectError("dpkg/info");
    QFile::remove(dpkg + u"/info"_s);
    list(u"other"_s, u"/x"_s);
    EXPECT_EQ(owner(), QString());
    // Root may read everything.
    const QByteArray file = QFile::encodeName(dpkg + u"/info/other.list"_s);
    ASSERT_EQ(chmod(file.constData(), 0), 0);
    const tx::test::DroppedPrivileges user(path({}));
    expectError("other.list");
}

TEST_F(PackageOwner, RpmIsAskedWhereItHasADatabase) {
    rpm("echo 'owner never'");
    QFile::remove(path(u"rpm/rpmdb.sqlite"_s));
    EXPECT_EQ(owner(), QString());
    rpm("for f; do case $f in */Info.plist) echo 'owner my-rpm';; *) "
        "echo \"file $f is not owned by any package\";; esac; done; exit 3");
    EXPECT_EQ(owner(), u"rpm my-rpm"_s);
    rpm("for f; do echo \"file $f is not owned by any package\"; done; exit 4");
    EXPECT_EQ(owner(), QString());
    list(u"mine"_s, bundle);
    EXPECT_EQ(owner(), u"dpkg mine"_s);
}

TEST_F(PackageOwner, RpmIsAskedForAHundredEntriesAtTheTop) {
    const QString asked = path(u"asked"_s);
    rpm("for f; do echo \"$f\"; done > '" + asked.toUtf8() +
        "'; for f; do echo \"file $f is not owned by any package\"; done; exit $#");
    tx::test::writeFile(bundle + u"/Contents/Resources/deep/er"_s, "x");
    tx::test::writeFile(bundle + u"/Contents/two\nlines"_s, "x");
    ASSERT_TRUE(QFile::link(u"/etc"_s, bundle + u"/Contents/link"_s));
    EXPECT_EQ(owner(), QString());
    const auto paths = [&] {
        QString all = QString::fromUtf8(tx::test::readFile(asked));
        return all.remove(bundle).split(u'\n', Qt::SkipEmptyParts);
    };
    EXPECT_EQ(paths(), (QStringList{u"/Contents"_s, u"/Contents/Info.plist"_s, u"/Contents/Linux"_s,
                                    u"/Contents/Resources"_s, u"/Contents/link"_s,
                                    u"/Contents/Linux/Program"_s, u"/Contents/Resources/deep"_s}))
        << "and the bundle itself; links are not followed";
    for (int i = 0; i < 200; ++i)
        tx::test::writeFile(bundle + u"/Contents/Resources/%1"_s.arg(i), "x");
    EXPECT_EQ(owner(), QString()) << "more would look like a program that cannot be run";
    EXPECT_EQ(paths().size(), 99);
}

TEST_F(PackageOwner, RpmThatDoesNotAnswerIsAnError) {
    for (const char *script :
         {"echo 'error: cannot open Packages database' >&2; for f; do echo \"file $f is not owned by any "
          "package\"; done; exit 4",
          "exit 0", "exit 1", "echo 'file x is not owned by any package'", "kill -9 $$"}) {
        rpm(script);
        expectError("rpm");
    }
    QFile::remove(path(u"bin/rpm"_s));
    expectError("rpm");
}

} // namespace
