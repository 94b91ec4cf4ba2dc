// SPDX-License-Identifier: MIT
#include "model/host_p.h"
#include "model/updatefolder.h"
#include "os/mainbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

class UpdateFolderPaths : public tx::test::FrameworkTest {};

TEST_F(UpdateFolderPaths, FolderIsNamedAfterTheHostAndNotMade) {
    struct Case {
        QString identifier, name;
    };
    const Case cases[] = {{u"org.example.Host"_s, u"org.example.Host.TXUpdater"_s},
                          {u"../../outside"_s, u"..-..-outside.TXUpdater"_s},
                          {u"one\\two"_s, u"one-two.TXUpdater"_s},
                          {{}, u"(null).TXUpdater"_s}};
    for (const Case &c : cases) {
        const QString bundle = path(u"Applications/Other.app"_s);
        tx::test::makeBundle(bundle, {.identifier = c.identifier});
        ASSERT_TRUE(!c.identifier.isNull() || QFile::remove(bundle + u"/Contents/Info.plist"_s));
        tx::setMainBundle(TXBundle(bundle));
        tx::resetHost();
        EXPECT_EQ(tx::UpdateFolder::ofHost().path(), path(u"home/.cache/TarvixUpdate/"_s) + c.name);
        EXPECT_FALSE(QFileInfo::exists(tx::UpdateFolder::ofHost().path())) << c.name.toStdString();
    }
}

TEST_F(UpdateFolderPaths, EverythingOfAnUpdateIsInItsFolderExceptTheLock) {
    const tx::UpdateFolder folder = tx::UpdateFolder::ofArchive(u"/home/ann/Loads/App - 2.zip"_s);
    EXPECT_EQ(folder.path(), u"/home/ann/Loads"_s);
    EXPECT_EQ(folder.lockPath(), u"/home/ann/Loads.lock"_s) << "emptying the folder must not remove its lock";
    EXPECT_EQ(folder.pathOf(u"App - 2.zip"_s), u"/home/ann/Loads/App - 2.zip"_s);
    EXPECT_EQ(folder.installerTool(), u"/home/ann/Loads/TXUpdateInstaller.app"_s);
    EXPECT_EQ(folder.installerExecutable(),
              u"/home/ann/Loads/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s);
    EXPECT_EQ(folder.environmentRecord(), u"/home/ann/Loads/TXUpdateInstaller.environment"_s);
}

TEST_F(UpdateFolderPaths, OnlyTheWholeNameIsTheInstallerTool) {
    EXPECT_TRUE(tx::UpdateFolder::isInstallerTool(u"TXUpdateInstaller.app"_s));
    for (const QString &name :
         {u"TXUpdateInstaller"_s, u"TXUpdateInstaller.app2"_s, u"MyApp.app"_s, QString()})
        EXPECT_FALSE(tx::UpdateFolder::isInstallerTool(name)) << name.toStdString();
}

} // namespace
