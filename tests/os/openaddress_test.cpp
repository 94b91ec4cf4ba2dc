// SPDX-License-Identifier: MIT
#include "os/openaddress.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/places.h"

#include <QDirIterator>

#include <cerrno>

using namespace Qt::StringLiterals;
using tx::OpenedBy;

namespace {

class OpenAddress : public tx::test::FrameworkTest {
protected:
    tx::test::RecordingWorkspace workspace;
};

TEST_F(OpenAddress, OnlyTheWebAndForTheUserMailAreOpened) {
    struct Case {
        QString address;
        QString byUser; ///< what is opened; null: nothing
        QString byFeed;
    };
    const auto web = [](const QString &address) { return Case{address, address, address}; };
    const auto never = [](const QString &address) { return Case{address, {}, {}}; };
    for (const Case &c : {
             web(u"https://example.org/a?b=c#d"_s),
             web(u"http://example.org:8080/"_s),
             Case{u"HTTPS://Example.org/a b"_s, u"https://example.org/a b"_s, u"https://example.org/a b"_s},
             Case{u"mailto:help@example.org"_s, u"mailto:help@example.org"_s, {}},
             Case{u"mailto:a@b.c?subject=x%20y&attach=/etc/passwd&Body=z&attachment=q#f"_s,
                  u"mailto:a@b.c?subject=x y&Body=z"_s,
                  {}},
             never(u"file:///tmp/evil.desktop"_s),
             never(u"smb://host/share"_s),
             never(u"anything:at-all"_s),
             never(u"ftp://example.org/"_s),
             never(u"javascript:alert(1)"_s),
             never(u"data:text/html,x"_s),
             never(u"about:blank"_s),
             never(u"http:"_s),
             never(u"https:///no-host"_s),
             never(u"https://[bad"_s),
             never(u"//example.org/x"_s),
             never(u"/etc/passwd"_s),
             never(u"-option"_s),
             never({}),
         }) {
        for (const OpenedBy by : {OpenedBy::User, OpenedBy::Feed}) {
            workspace.opened.clear();
            const QString expected = by == OpenedBy::User ? c.byUser : c.byFeed;
            EXPECT_EQ(tx::openAddress(QUrl(c.address), by), !expected.isNull()) << c.address.toStdString();
            EXPECT_EQ(workspace.opened, expected.isNull() ? QStringList() : QStringList{expected})
                << c.address.toStdString();
        }
    }
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("the address file:///tmp/evil.desktop is not opened"));
}

TEST_F(OpenAddress, DesktopThatOpensNothingIsLogged) {
    tx::services().workspace = &tx::nativeWorkspace();
    tx::test::RecordingTasks tasks;
    tasks.failing = [](const tx::TaskRequest &) { return ENOENT; };
    EXPECT_FALSE(tx::openAddress(QUrl(u"https://example.org/"_s), OpenedBy::User));
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("the address https://example.org/ cannot be opened"));
}

TEST_F(OpenAddress, NothingElseOpensAddresses) {
    QStringList found;
    for (const QString &folder : {u"src"_s, u"tools/txupdate"_s}) {
        QDirIterator files(tx::test::sourcesFolder() + u"/../"_s + folder, {u"*.cpp"_s}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString file = files.next();
            const QByteArray text = tx::test::readFile(file);
            if (text.contains("openUrl(") || text.contains("QDesktopServices"))
                found << QFileInfo(file).fileName();
        }
    }
    found.sort();
    EXPECT_EQ(found, (QStringList{u"openaddress.cpp"_s, u"workspace_linux.cpp"_s}));
}

} // namespace
