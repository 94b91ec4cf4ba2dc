// SPDX-License-Identifier: MIT
#pragma once

#include "tests/tools/txupdate/txupdatetest.h"
#include "tests/trust/trusttest.h"
#include "trust/feedsigning.h"

namespace tx::test {

using namespace Qt::StringLiterals;
using namespace tx::trust;

inline const QByteArray feed =
    R"({"release":[{"type":"build","build":"1043","downloadURL":"https://e.org/a.tgz"}]})";

/// txupdate with keys on disk, "one", "two" and "foreign", and an application that has the first two.
class TrustCommands : public TxUpdate {
protected:
    TrustCommands() {
        writeKey(u"one"_s, 0);
        writeKey(u"two"_s, 1);
        writeKey(u"foreign"_s, 2);
        makeApp(u"My.app"_s, u"1042"_s, {keyText(key(0)), keyText(key(1))});
    }

    void writeKey(const QString &name, size_t number) {
        const auto content = SecretKeyFile::write(key(number), nullptr);
        ASSERT_TRUE(content) << content.fault().what;
        writeFile(path(name + u".key"_s), QByteArray::fromStdString(std::string(content->view())));
    }
    /// A bundle whose Info.plist holds these keys, or this text in their place.
    void makeApp(const QString &name, const QString &build, const std::vector<std::string> &keys,
                 const QByteArray &more = {}) {
        BundleDescription description;
        description.build = build;
        makeBundle(path(name), description);
        QByteArray list;
        for (const std::string &one : keys)
            list += "<string>" + QByteArray::fromStdString(one) + "</string>";
        if (!list.isEmpty())
            list = "<key>TXUpdatePublicKeys</key><array>" + list + "</array>";
        const QString info = path(name + u"/Contents/Info.plist"_s);
        writeFile(
            info,
            "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>org.example.Host</string>"
            "<key>CFBundleExecutable</key><string>Program</string><key>CFBundleVersion</key><string>" +
                build.toUtf8() + "</string>" + list + more + "</dict></plist>");
    }
    QString pack(const QString &bundle, const QString &archive = u"My.tgz"_s) {
        makeArchive(path(archive), ArchiveKind::Tgz, entriesOf(path(bundle)));
        return path(archive);
    }
    /// The next build, packed.
    QString nextBuild(const std::vector<std::string> &keys, const QByteArray &more = {}) {
        makeApp(u"next/My.app"_s, u"1043"_s, keys, more);
        return pack(u"next/My.app"_s);
    }
    ProcessResult sign(const QString &archive, const QStringList &keys = {u"one"_s},
                       const QStringList &application = {}) {
        QStringList words{u"sign"_s, archive};
        words += application.isEmpty() ? QStringList{u"--app"_s, path(u"next/My.app"_s)} : application;
        for (const QString &name : keys)
            words << u"--key"_s << path(name);
        return run(words);
    }
    ProcessResult verify(const QString &archive, const QString &app = u"My.app"_s) {
        return run({u"verify"_s, archive, u"--app"_s, path(app)}, {},
                   {u"XDG_CACHE_HOME="_s + path(u"cache"_s)});
    }
    ProcessResult signFeed(const QString &file, const QStringList &more = {},
                           const QStringList &keys = {u"one"_s}) {
        QStringList words{u"feed"_s, u"sign"_s, file, u"--app"_s, path(u"My.app"_s)};
        for (const QString &name : keys)
            words << u"--key"_s << path(name);
        return run(words + more);
    }
    ProcessResult verifyFeed(const QString &file, const QString &app = u"My.app"_s) {
        return run({u"feed"_s, u"verify"_s, file, u"--app"_s, path(app)});
    }
    /// A feed signed at another time.
    QString feedSignedAt(int64_t time, int64_t days) {
        const auto result = tx::trust::signFeed(feed.toStdString(), FeedFormat::Json, {&key(0)},
                                                {"org.example.Host", "release", time, days});
        EXPECT_TRUE(result) << result.fault().what;
        return file(QByteArray::fromStdString(result->document));
    }
    static void expectRefused(const ProcessResult &result, const char *part) {
        EXPECT_EQ(result.status, 1) << part << result.output.constData();
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr(part));
        EXPECT_EQ(result.output, QByteArray()) << part;
    }
};

} // namespace tx::test
