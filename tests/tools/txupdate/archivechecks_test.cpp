// SPDX-License-Identifier: MIT
// txupdate feed validate --archives: every check of an installation, for the archives that a server hands
// out.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QProcess>

using namespace Qt::StringLiterals;
using tx::test::ArchiveEntry;
using tx::test::ArchiveKind;
using tx::test::BundleDescription;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::ProcessResult;

namespace {

class ArchiveChecks : public tx::test::FrameworkTest {
protected:
    FeedServer server;
    QMap<QByteArray, QByteArray> files; ///< what is served, by path

    ArchiveChecks() {
        server.always([this](const tx::test::HttpRequest &request) {
            const auto found = files.constFind(request.path());
            return found == files.cend() ? HttpReply{.status = 404} : HttpReply::file(*found);
        });
    }
    QList<ArchiveEntry> entries(const BundleDescription &description) {
        const QString bundle = path(u"made/My App.app"_s);
        tx::test::makeBundle(bundle, description);
        return tx::test::entriesOf(bundle);
    }
    QByteArray archive(const QList<ArchiveEntry> &content, ArchiveKind kind = ArchiveKind::Tgz) {
        tx::test::makeArchive(path(u"made/archive"_s), kind, content);
        return tx::test::readFile(path(u"made/archive"_s));
    }
    /// An entry of the feed for an archive that the server has under this name.
    QByteArray entry(const QByteArray &build, const QByteArray &name) const {
        return R"({"type":"build","date":"2026-05-01 10:00:00","build":")" + build + R"(","downloadURL":")" +
               server.url(QString::fromLatin1(name)).toUtf8() + "\"}";
    }
    ProcessResult validate(const QList<QByteArray> &list, const QStringList &words = {}) {
        tx::test::writeFile(path(u"feed.json"_s), "{\"release\":[" + list.join(',') + "]}");
        QProcess process;
        process.start(tx::test::programsFolder() + u"/txupdate"_s,
                      QStringList{u"feed"_s, u"validate"_s, path(u"feed.json"_s), u"--archives"_s} + words);
        EXPECT_TRUE(process.waitForFinished(120000));
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }
    static testing::AssertionResult says(const ProcessResult &result, const QString &part) {
        const QString all = QString::fromUtf8(result.output + result.errors);
        if (all.contains(part))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "lacks \"" << part.toStdString() << "\":\n"
                                           << all.toStdString();
    }
};

TEST_F(ArchiveChecks, ThoseThatCanBeInstalledPass) {
    files["/a.zip"] = archive(entries({.build = u"1043"_s}), ArchiveKind::Zip);
    files["/a.tgz"] = archive(entries({.build = u"1044"_s}), ArchiveKind::Tgz);
    files["/a.tbz"] = archive(entries({.build = u"1045"_s}), ArchiveKind::Tbz);
    files["/a.tar"] = archive(entries({.build = u"1046"_s}), ArchiveKind::Tar);
    const ProcessResult result = validate(
        {entry("1043", "/a.zip"), entry("1044", "/a.tgz"), entry("1045", "/a.tbz"), entry("1046", "/a.tar"),
         R"({"type":"build","date":"2026-05-01 10:00:00","build":"9","webpageURL":"https://e.org/"})"});
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    for (const QString &name : {u"a.zip"_s, u"a.tgz"_s, u"a.tbz"_s, u"a.tar"_s})
        EXPECT_TRUE(says(result, server.url(u'/' + name)));
    EXPECT_EQ(result.output.count("\nok "), 4) << result.output.constData();
    EXPECT_TRUE(says(result, u"a - 1043.zip, "_s)) << "under the name that an application gives it";
    EXPECT_TRUE(says(result, u", org.example.Host\n"_s));
    EXPECT_TRUE(says(result, u"no archive, only a page: https://e.org/"_s));
    EXPECT_TRUE(says(result, u"4 archives fetched, 0 cannot be installed\n"_s));
    // Nothing is left in the user's folders, nor fetched without being asked for.
    EXPECT_TRUE(
        QDir(path(u"home/.cache"_s)).entryList({u"txupdate-validate*"_s}, QDir::AllEntries).isEmpty());
    const qsizetype before = server.requests().size();
    EXPECT_EQ(tx::test::runProcess(tx::test::programsFolder() + u"/txupdate"_s,
                                   {u"feed"_s, u"validate"_s, path(u"feed.json"_s)})
                  .status,
              0);
    EXPECT_EQ(server.requests().size(), before);
}

TEST_F(ArchiveChecks, WhateverAnInstallationRefusesFailsWithTheReason) {
    struct Case {
        const char *what;
        QByteArray name, content; ///< no content: the server does not have it
        QString expected;
    };
    const auto with = [&](const ArchiveEntry &added) {
        auto list = entries({.build = u"1000"_s});
        list.append(added);
        return archive(list);
    };
    QByteArray otherMachine(64, '\0');
    otherMachine.replace(0, 7,
                         "\x7f"
                         "ELF\x02\x01\x01");
    otherMachine[16] = 2;
    otherMachine[18] = 0x16; // a mainframe
    otherMachine[19] = 0;
    auto notExecutable = entries({.build = u"1000"_s});
    for (ArchiveEntry &e : notExecutable) {
        if (e.name.endsWith(u"/Program"_s))
            e.mode = 0644;
    }
    auto nested = entries({.build = u"1000"_s});
    for (ArchiveEntry &e : nested)
        e.name.prepend(u"Release/"_s);
    QByteArray damaged = archive(entries({.build = u"1000"_s}));
    damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 0x55);
    const QList<Case> cases{
        {"missing", "/none.tgz", {}, u"does not exist"_s},
        {"unknown type", "/a.dmg", "x", u"The archive a - 1000.dmg is of a type that cannot be unpacked."_s},
        {"lost second extension", "/a.tar.bz2", "x", u"The archive a.tar - 1000.bz2 is of a type"_s},
        {"damaged", "/a.tgz", damaged, u"The tool that unpacks it says: tar: "_s},
        {"not what its name says", "/a.zip", archive(entries({.build = u"1000"_s})),
         u"The tool that unpacks it says: ditto: "_s},
        {"empty", "/a.tgz", archive({}), u"Found: nothing."_s},
        {"another application", "/a.tgz",
         archive(entries({.identifier = u"org.example.Other"_s, .build = u"1000"_s})),
         u"Looked for: an application with the identifier org.example.Host, build 1000,"_s},
        {"in a folder", "/a.tgz", archive(nested),
         u"Found: Release/My App.app with the identifier "
         "org.example.Host, build 1000, depth 1."_s},
        {"another build", "/a.tgz", archive(entries({.build = u"999"_s})),
         u"announced as build 1000, but the downloaded application is build 999."_s},
        {"link out of it", "/a.tgz",
         with({u"My App.app/Contents/up"_s, ArchiveEntry::SymbolicLink, "../../..", 0777}),
         u"tar: My App.app/Contents/up: "_s},
        {"absolute link", "/a.tgz",
         with({u"My App.app/Contents/up"_s, ArchiveEntry::SymbolicLink, "/etc", 0777}),
         u"tar: My App.app/Contents/up: "_s},
        {"name that leaves the folder", "/a.tgz", with({u"../out"_s, ArchiveEntry::File, "x", 0644}),
         u"tar: ../out: would leave the folder"_s},
        {"pipe", "/a.tgz", with({u"My App.app/pipe"_s, ArchiveEntry::Fifo, {}, 0644}),
         u"tar: My App.app/pipe: is no file that an application may hold"_s},
        {"not executable", "/a.tgz", archive(notExecutable),
         u"may not be executed: it lacks its execute bit"_s},
        {"another machine", "/a.tgz", archive(entries({.build = u"1000"_s, .program = otherMachine})),
         u"is a program for another kind of machine"_s},
        {"missing interpreter", "/a.tgz",
         archive(entries({.build = u"1000"_s, .program = "#!/no/such/interpreter\n"})),
         u"is a script whose interpreter /no/such/interpreter cannot be used"_s},
    };
    const QByteArray good = archive(entries({.build = u"2000"_s}));
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        files.clear();
        files["/good.tgz"] = good;
        if (!c.content.isNull())
            files[c.name] = c.content;
        const ProcessResult result = validate({entry("2000", "/good.tgz"), entry("1000", c.name)});
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(says(result, c.expected));
        EXPECT_FALSE(says(result, u"is installed"_s)) << "without --app nothing is";
        EXPECT_TRUE(says(result, u"FAILED  release    build 1000 "_s));
        EXPECT_TRUE(says(result, u"ok      release    build 2000 "_s));
        EXPECT_TRUE(says(result, u"2 archives fetched, 1 cannot be installed\n"_s));
    }
}

TEST_F(ArchiveChecks, ApplicationGivesItsIdentifierItsBuildAndItsLimits) {
    const QString app = path(u"installed/My App.app"_s);
    const auto install = [&](const BundleDescription &description, const QByteArray &members = {}) {
        tx::test::makeBundle(app, description);
        const QByteArray info = tx::test::readFile(app + u"/Contents/Info.plist"_s);
        tx::test::writeFile(app + u"/Contents/Info.plist"_s,
                            QByteArray(info).replace("</dict>", members + "</dict>"));
    };
    const auto run = [&] {
        return validate({entry("2000", "/a.tgz"), entry("1000", "/old.tgz")}, {u"--app"_s, app});
    };
    files["/a.tgz"] = archive(entries({.build = u"2000"_s}));
    files["/old.tgz"] = archive(entries({.build = u"1000"_s}));
    install({.build = u"1000"_s});
    ProcessResult result = run();
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    EXPECT_TRUE(says(result, u"not offered to build 1000; old - 1000.tgz"_s));
    EXPECT_FALSE(says(result, u"not offered to build 1000; a - 2000.tgz"_s));

    install({.identifier = u"org.example.Other"_s, .build = u"1000"_s});
    result = run();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(
        says(result, u"Looked for: an application with the identifier org.example.Other, build 2000,"_s));

    install({.build = u"1000"_s}, "<key>TXUpdateMaximumArchiveSize</key><integer>100</integer>");
    result = run();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(says(result, u"FAILED  release    build 2000 "_s));
    EXPECT_FALSE(says(result, u"Could not find"_s)) << "refused before it is unpacked";

    install({.build = u"1000"_s}, "<key>TXUpdateMaximumUnpackedSize</key><integer>4200</integer>");
    result = run();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(says(result, u"the archive takes more room than is accepted"_s));

    result = validate({entry("2000", "/a.tgz")}, {u"--app"_s, path(u"none.app"_s)});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(says(result, u"none.app is no application"_s));
}

TEST_F(ArchiveChecks, TwoApplicationsInAnArchiveAreAmbiguousAndOneArchiveIsFetchedOnce) {
    tx::test::makeBundle(path(u"two/A.app"_s), {.build = u"7"_s});
    tx::test::makeBundle(path(u"two/B.app"_s), {.identifier = u"org.example.B"_s, .build = u"7"_s});
    files["/two.tgz"] =
        archive(tx::test::entriesOf(path(u"two/A.app"_s)) + tx::test::entriesOf(path(u"two/B.app"_s)));
    ProcessResult result = validate({entry("7", "/two.tgz")});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(says(result, u"The archive holds more than one application."_s));
    tx::test::makeBundle(path(u"installed/B.app"_s), {.identifier = u"org.example.B"_s, .build = u"6"_s});
    const qsizetype before = server.requests().size();
    result =
        validate({entry("7", "/two.tgz"), entry("7", "/two.tgz")}, {u"--app"_s, path(u"installed/B.app"_s)});
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    EXPECT_EQ(server.requests().size(), before + 1);
    EXPECT_EQ(result.output.count("\nok "), 2);
}

} // namespace
