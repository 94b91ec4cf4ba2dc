// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/feedserver.h"
#include "tests/tools/txupdate/trustcommandstest.h"

#include <QFileInfo>
#include <QJsonArray>

#include <mutex>

namespace tx::test {

/// A folder that is served, and an application of build 1043, "next/My.app", whose builds before it are
/// published with the keys "one" and "two".
class PublishTest : public TrustCommands {
protected:
    PublishTest() {
        QDir().mkpath(site());
        makeNext();
        server.always([this](const HttpRequest &request) { return answer(request); });
    }

    [[nodiscard]] QString site(const QString &name = {}) const {
        return name.isEmpty() ? path(u"site"_s) : path(u"site/"_s + name);
    }
    [[nodiscard]] QString feedUrl() const { return server.url(u"/feed.json"_s); }
    /// A file of the folder, unless `overriding` has another answer.
    HttpReply answer(const HttpRequest &request) {
        if (overriding) {
            if (const std::optional<HttpReply> other = overriding(request))
                return *other;
        }
        const QString name = QString::fromUtf8(request.path()).mid(1);
        if (!QFileInfo(site(name)).isFile())
            return {.status = 404};
        const QByteArray content = readFile(site(name));
        if (name.endsWith(u".json"_s))
            return HttpReply::json(content);
        return HttpReply::file(content);
    }

    void makeNext(const QString &build = u"1043"_s, const QByteArray &more = {}) {
        makeApp(u"next/My.app"_s, build, {keyText(key(0)), keyText(key(1))},
                "<key>CFBundleName</key><string>My App</string><key>CFBundleShortVersionString</key>"
                "<string>2.2</string>" +
                    more);
    }
    /// Without keys.
    void makeUnsigned(const QString &build, const QByteArray &identifier = "org.example.Host") {
        makeApp(u"next/My.app"_s, build, {});
        const QString info = path(u"next/My.app/Contents/Info.plist"_s);
        writeFile(info, readFile(info).replace("org.example.Host", identifier));
    }

    ProcessResult command(QStringList words, const QStringList &environment = {}) {
        // A bundle made anew in another second has other file times. The same build would be another archive.
        return run(words, {},
                   QStringList{u"XDG_CACHE_HOME="_s + path(u"cache"_s), u"SOURCE_DATE_EPOCH=1700000000"_s} +
                       environment);
    }
    [[nodiscard]] QStringList place(const QStringList &keys = {u"one"_s}) const {
        QStringList words{u"--to"_s, site(), u"--url"_s, server.url(u"/"_s)};
        for (const QString &name : keys)
            words << u"--key"_s << path(name);
        return words;
    }
    ProcessResult publish(const QStringList &more = {}, const QStringList &keys = {u"one"_s},
                          const QStringList &environment = {}) {
        return command(QStringList{u"publish"_s, path(u"next/My.app"_s)} + place(keys) + more, environment);
    }
    /// Builds up to 1042.
    void publishEarlier(const QStringList &more = {}) {
        makeNext(u"1042"_s);
        const ProcessResult result = publish(more);
        ASSERT_EQ(result.status, 0) << result.errors.constData();
        makeNext();
    }
    /// The entries of the feed in the folder.
    QJsonArray entries(const QString &track = u"release"_s) {
        QByteArray feedBytes = readFile(site(u"feed.json"_s));
        return QJsonDocument::fromJson(feedBytes).object().value(track).toArray();
    }
    QStringList builds() {
        QStringList result;
        for (const QJsonValue &entry : entries())
            result << entry[u"build"_s].toString();
        return result;
    }
    static void expectSaid(const ProcessResult &result, int status, const char *part) {
        EXPECT_EQ(result.status, status) << part << '\n' << result.errors.constData();
        EXPECT_THAT((result.output + result.errors).toStdString(), testing::HasSubstr(part));
    }

    std::function<std::optional<HttpReply>(const HttpRequest &)> overriding;
    FeedServer server;
};

} // namespace tx::test
