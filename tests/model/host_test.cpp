// SPDX-License-Identifier: MIT
#include "model/host_p.h"
#include "os/mainbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"

using namespace Qt::StringLiterals;

namespace {

class Host : public tx::test::FrameworkTest {
protected:
    void become(const tx::test::BundleDescription &description) {
        const QString bundle = path(u"MyApp.app"_s);
        tx::test::makeBundle(bundle, description);
        tx::setMainBundle(TXBundle(bundle));
        tx::resetHost();
    }
};

TEST_F(Host, NameFallsBackFromDisplayNameToNameToFileName) {
    become({});
    EXPECT_EQ(TXUpdateHost::host()->name(), u"MyApp"_s);
    become({.name = u"Short"_s});
    EXPECT_EQ(TXUpdateHost::host()->name(), u"Short"_s);
    const QString plist = path(u"MyApp.app/Contents/Info.plist"_s);
    QByteArray text = tx::test::readFile(plist);
    text.replace("<dict>", "<dict><key>CFBundleDisplayName</key><string>Long Name</string>");
    tx::test::writeFile(plist, text);
    tx::setMainBundle(TXBundle(path(u"MyApp.app"_s)));
    tx::resetHost();
    EXPECT_EQ(TXUpdateHost::host()->name(), u"Long Name"_s);
}

TEST_F(Host, DisplayVersionFallsBackToTheBuild) {
    become({.build = u"77"_s});
    EXPECT_EQ(TXUpdateHost::host()->version(), u"77"_s);
    EXPECT_EQ(TXUpdateHost::host()->displayVersion(), u"77"_s);
    become({.build = u"77"_s, .displayVersion = u"1.5"_s});
    EXPECT_EQ(TXUpdateHost::host()->displayVersion(), u"1.5"_s);
}

TEST_F(Host, MissingVersionStaysNull) {
    become({.build = {}});
    EXPECT_TRUE(TXUpdateHost::host()->version().isNull());
    EXPECT_TRUE(TXUpdateHost::host()->displayVersion().isNull());
}

TEST_F(Host, IsOneObjectThatCanPretendToBeAnotherBuild) {
    EXPECT_EQ(TXUpdateHost::host(), TXUpdateHost::currentHost());
    TXUpdateHost::host()->setVersion(u"5"_s);
    EXPECT_EQ(TXUpdateHost::currentHost()->version(), u"5"_s);
}

TEST_F(Host, SystemVersionHasThreeNumbers) {
    const QStringList parts = TXUpdateHost::host()->systemVersionString().split(u'.');
    ASSERT_EQ(parts.size(), 3);
    for (const QString &part : parts) {
        bool ok = false;
        part.toInt(&ok);
        EXPECT_TRUE(ok) << part.toStdString();
    }
}

class NamedHost : public TXUpdateHost {
public:
    NamedHost() {
        m_name = u"Given"_s;
        m_version = u"8"_s;
        init();
    }
};

TEST_F(Host, SubclassKeepsWhatItFilledBefore) {
    become({.build = u"77"_s, .displayVersion = u"1.5"_s, .name = u"Short"_s});
    const NamedHost host;
    EXPECT_EQ(host.name(), u"Given"_s);
    EXPECT_EQ(host.version(), u"8"_s);
    EXPECT_EQ(host.displayVersion(), u"1.5"_s);
}

TEST_F(Host, RunsNeitherTranslocatedNorOnAReadOnlyVolumeHere) {
    EXPECT_FALSE(TXUpdateHost::host()->isRunningTranslocated());
    EXPECT_FALSE(TXUpdateHost::host()->isRunningOnReadOnlyVolume());
}

TEST_F(Host, ReadOnlyVolumeIsAskedEachTimeAndFallsBackToTheMountFlags) {
    std::optional<tx::VolumeInfo> volume = tx::VolumeInfo{.isReadOnly = true};
    bool mountFlag = false;
    tx::services().volumeInfo = [&](const QString &) { return volume; };
    tx::services().mountFlagsAreReadOnly = [&](const QString &) { return mountFlag; };
    EXPECT_TRUE(TXUpdateHost::host()->isRunningOnReadOnlyVolume());
    volume->isReadOnly = false;
    mountFlag = true;
    EXPECT_FALSE(TXUpdateHost::host()->isRunningOnReadOnlyVolume()) << "the volume's own answer wins";
    volume.reset();
    EXPECT_TRUE(TXUpdateHost::host()->isRunningOnReadOnlyVolume())
        << "a disk image whose volume cannot be asked";
    mountFlag = false;
    EXPECT_FALSE(TXUpdateHost::host()->isRunningOnReadOnlyVolume());
}

TEST_F(Host, ThatDoesNotSayWhichApplicationItIsIsToldOnceWhatToAdd) {
    become({});
    EXPECT_TRUE(tx::checkHostIdentity().isNull());
    const QString bundle = path(u"MyApp.app"_s);
    const QString plist = bundle + u"/Contents/Info.plist"_s;
    struct Case {
        QByteArray content; ///< of the Info.plist; null: there is none
        QString reason, suggestion;
    };
    const Case cases[] = {
        {{},
         u"The file %1 does not exist or cannot be read."_s.arg(plist),
         u"Add the file with the keys CFBundleIdentifier and CFBundleVersion to the application."_s},
        {"nonsense", u"The file %1 does not exist or cannot be read."_s.arg(plist),
         u"Add the file with the keys CFBundleIdentifier and CFBundleVersion to the application."_s},
        {"<plist><dict><key>CFBundleVersion</key><string>7</string></dict></plist>",
         u"The file %1 has no CFBundleIdentifier."_s.arg(plist),
         u"Add the keys CFBundleIdentifier and CFBundleVersion to the file."_s},
        {"<plist><dict><key>CFBundleIdentifier</key><string></string></dict></plist>",
         u"The file %1 has no CFBundleIdentifier."_s.arg(plist),
         u"Add the keys CFBundleIdentifier and CFBundleVersion to the file."_s},
    };
    for (const Case &c : cases) {
        QFile::remove(plist);
        if (!c.content.isNull())
            tx::test::writeFile(plist, c.content);
        tx::setMainBundle(TXBundle(bundle));
        tx::resetHost();
        EXPECT_EQ(tx::checkHostIdentity(),
                  TXError(u"TXUpdater"_s, 0,
                          u"MyApp cannot be updated because it does not say which application it is."_s,
                          c.reason, c.suggestion));
    }
    const QStringList log = logLines();
    EXPECT_EQ(log.size(), 1) << "once: " << log.join(u'\n').toStdString();
    EXPECT_EQ(log.value(0),
              u"TXUpdate: MyApp cannot be updated because it does not say which application it is. "
              u"%1 %2"_s.arg(cases[0].reason, cases[0].suggestion));
}

TEST_F(Host, BackgroundApplicationIsAskedEachTime) {
    tx::test::RecordingWorkspace workspace;
    workspace.background = true;
    EXPECT_TRUE(TXUpdateHost::host()->isBackgroundApplication());
    workspace.background = false;
    EXPECT_FALSE(TXUpdateHost::host()->isBackgroundApplication());
}

TEST(OSVersionNumber, PacksThreeComponentsOfEightBits) {
    EXPECT_EQ(tx::packVersion(10, 15, 7), 0x0A0F07U);
    EXPECT_EQ(tx::packVersion(14, 2, 1), 0x0E0201U);
    EXPECT_EQ(tx::packVersion(10, 9, 5), 657669U);
    EXPECT_EQ(tx::packVersion(256, 257, 511), 0x0001FFU);
}

TEST_F(Host, PackedSystemVersionIsThatOfTheText) {
    const QStringList parts = TXUpdateHost::host()->systemVersionString().split(u'.');
    ASSERT_EQ(parts.size(), 3);
    quint32 packed = 0;
    for (const QString &part : parts)
        packed = packed << 8 | (part.toUInt() & 0xFF);
    EXPECT_NE(packed, 0U);
    EXPECT_EQ(TXUpdateOSVersion(), packed);
}

} // namespace
