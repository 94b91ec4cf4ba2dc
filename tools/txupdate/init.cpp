// SPDX-License-Identifier: MIT
#include "txupdate/publishcommands.h"

#include "os/filesystem.h"
#include "os/services.h"
#include "publish/configuration.h"
#include "publish/publication.h"
#include "txupdate/commands.h"
#include "txupdate/faults.h"
#include "txupdate/feedsigner.h"
#include "txupdate/signingkeys.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

using trust::SecretKey;

const QString configurationName = u"txupdate.toml"_s;

Fault input(const QString &what) { return {FaultKind::Input, what.toStdString()}; }

/// Asks a question on the terminal and returns the answer, or `usual` for an empty line. Fault: there is no
/// terminal; the message names `option`, which answers the question.
Outcome<QString> ask(const QString &given, const QString &question, const char *option,
                     const QString &usual = {}) {
    if (!given.isNull())
        return given;
    if (!isatty(STDIN_FILENO)) {
        if (!usual.isNull())
            return usual;
        return input(
            u"%1? There is no terminal to answer on: pass %2"_s.arg(question, QString::fromLatin1(option)));
    }
    std::printf("%s%s: ", question.toUtf8().constData(),
                usual.isNull() ? "" : u" [%1]"_s.arg(usual).toUtf8().constData());
    std::fflush(stdout);
    QByteArray line;
    for (int c = std::getchar(); c != EOF && c != '\n'; c = std::getchar())
        line += char(c);
    const QString answer = QString::fromUtf8(line).trimmed();
    if (!answer.isEmpty())
        return answer;
    if (usual.isNull())
        return input(u"%1? Nothing was answered"_s.arg(question));
    return usual;
}

bool isIdentifier(const QString &text) {
    if (text.isEmpty() || text.startsWith(u'.') || text.endsWith(u'.') || !text.contains(u'.'))
        return false;
    return std::all_of(text.begin(), text.end(), [](QChar c) {
        return c.unicode() < 128 && (c.isLetterOrNumber() || c == u'.' || c == u'-' || c == u'_');
    });
}

/// The file that a CI system runs, and its location in the project.
struct CiFile {
    QString path;
    QByteArray content;
};

std::optional<CiFile> ciFile(const QString &system, const QString &key) {
    const QByteArray name = key.toUtf8();
    if (system == u"github")
        return CiFile{
            u".github/workflows/publish.yml"_s,
            "# Publishes what a pushed tag holds. Two secrets of the repository are needed: TXUPDATE_KEY, "
            "the\n"
            "# content of " +
                name +
                ".key, and TXUPDATE_PASSPHRASE, if the key has one.\n"
                "name: publish\n"
                "on:\n  push:\n    tags: [\"v*\"]\n"
                "concurrency: publish\n"
                "jobs:\n  publish:\n    runs-on: ubuntu-latest\n    steps:\n"
                "      - uses: actions/checkout@v4\n"
                "      # Install txupdate (and rclone, if it is needed) and build the bundle here.\n"
                "      - name: Publish\n"
                "        env:\n          TXUPDATE_KEY: ${{ secrets.TXUPDATE_KEY }}\n"
                "          TXUPDATE_PASSPHRASE: ${{ secrets.TXUPDATE_PASSPHRASE }}\n"
                "        run: |\n"
                "          [ -n \"$TXUPDATE_PASSPHRASE\" ] || unset TXUPDATE_PASSPHRASE\n"
                "          (umask 077 && printf '%s\\n' \"$TXUPDATE_KEY\" > " +
                name +
                ".key)\n"
                "          export SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)\n"
                "          txupdate publish\n"};
    if (system == u"gitlab")
        return CiFile{u".gitlab-ci.yml"_s,
                      "# Publishes what a pushed tag holds. Two masked variables are needed: TXUPDATE_KEY, a "
                      "file with the\n"
                      "# content of " +
                          name +
                          ".key, and TXUPDATE_PASSPHRASE, if the key has one.\n"
                          "publish:\n"
                          "  rules:\n    - if: $CI_COMMIT_TAG\n"
                          "  resource_group: publish\n"
                          "  script:\n"
                          "    # Install txupdate (and rclone, if it is needed) and build the bundle here.\n"
                          "    - (umask 077 && cat \"$TXUPDATE_KEY\" > " +
                          name +
                          ".key)\n"
                          "    - export SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)\n"
                          "    - txupdate publish\n"};
    return std::nullopt;
}

Verdict writeText(const QString &path, const QByteArray &content) {
    constexpr int mode = 0644;
    if (const TXError error = services().fileSystem->replaceFile(path, content, mode))
        return Fault{FaultKind::File, error.localizedDescription().toStdString()};
    return std::nullopt;
}

/// Opens the key in NAME.key. Creates it if it does not exist.
Outcome<SecretKey> keyFor(const InitOptions &options, const QString &name) {
    if (!QFileInfo::exists(name + u".key"_s))
        return makeKeys({name, options.withoutPassphrase, options.passphrase});
    Outcome<std::vector<SecretKey>> keys = openKeys({name}, options.passphrase);
    if (!keys)
        return keys.fault();
    std::printf("%s.key is there already, and is used\n", name.toUtf8().constData());
    return std::move(keys->front());
}

Verdict beginFeed(const QString &identifier, const QString &to, const QUrl &url, SecretKey key) {
    std::vector<SecretKey> keys;
    keys.push_back(std::move(key));
    trust::AppInfo application;
    application.bundle = identifier.toStdString();
    publishing::FeedPlace place;
    place.base = url;
    place.isServed = false;
    place.sign = [&](const QByteArray &document) -> Outcome<QByteArray> {
        constexpr int validDays = 60;
        const auto result = signDocument(document, application, {}, keys, validDays);
        if (!result)
            return result.fault();
        return QByteArray::fromStdString(result->document);
    };
    const auto target = publishing::makeTarget(to);
    publishing::Trace trace;
    const auto report = publishing::resign(place, true, *target, trace);
    if (!report)
        return report.fault();
    return std::nullopt;
}

Verdict prepare(const InitOptions &options) {
    if (QFileInfo::exists(configurationName))
        return Fault{FaultKind::File,
                     "txupdate.toml is there already. Edit it, or remove it and begin again"};
    const Outcome<QString> identifier = ask(
        options.identifier, u"Identifier of the application, such as org.example.MyApp"_s, "--identifier");
    if (!identifier)
        return identifier.fault();
    if (!isIdentifier(*identifier))
        return input(u"\"%1\" is not an identifier: words of letters, digits and \"-\" were expected, with "
                     "dots between them, such as org.example.MyApp"_s.arg(*identifier));
    const Outcome<QString> to =
        ask(options.to, u"Where to publish: a folder, or a remote of rclone"_s, "--to", u"site"_s);
    if (!to)
        return to.fault();
    const Outcome<QString> url = ask(options.url, u"URL under which that is served"_s, "--url");
    if (!url)
        return url.fault();
    if (Verdict refused = publishing::checkPublicUrl(QUrl(*url), u"the URL of the published files"_s))
        return refused;
    const QString name = identifier->section(u'.', -1);
    const Outcome<QString> bundle =
        ask(options.bundle, u"The built application"_s, "--bundle", u"dist/"_s + name + u".app"_s);
    if (!bundle)
        return bundle.fault();
    const QString keyName = options.key.isNull() ? u"release"_s : options.key;

    Outcome<SecretKey> key = keyFor(options, keyName);
    if (!key)
        return key.fault();
    if (!publishing::isRemote(*to) && !QDir().mkpath(*to))
        return Fault{FaultKind::File, "the folder " + to->toStdString() + " cannot be made"};
    if (Verdict failed = beginFeed(*identifier, *to, QUrl(*url), *std::move(key)))
        return failed;
    QStringList made{configurationName};
    if (const std::optional<CiFile> file = ciFile(options.ci, keyName)) {
        if (QFileInfo::exists(file->path)) {
            complain(u"warning: %1 is there already, and was not changed"_s.arg(file->path));
        } else {
            QDir().mkpath(QFileInfo(file->path).path());
            if (Verdict failed = writeText(file->path, file->content))
                return failed;
            made << file->path;
        }
    }
    // Written last, so that after an interruption "init" can simply be run again.
    using publishing::tomlString;
    if (Verdict failed =
            writeText(configurationName, "# What txupdate publish, withdraw and feed resign take from here. "
                                         "Paths are relative to this file.\n"
                                         "identifier = " +
                                             tomlString(*identifier) + "\nbundle = " + tomlString(*bundle) +
                                             "\nto = " + tomlString(*to) + "\nurl = " + tomlString(*url) +
                                             "\nkey = " + tomlString(keyName) + "\n"))
        return failed;
    std::printf("made %s and the feed, %sfeed.json\n"
                "Keep %s.key out of the repository. Build %s, and run: txupdate publish\n",
                made.join(u", "_s).toUtf8().constData(),
                (url->endsWith(u'/') ? *url : *url + u'/').toUtf8().constData(), keyName.toUtf8().constData(),
                bundle->toUtf8().constData());
    return std::nullopt;
}

} // namespace

int init(const InitOptions &options) {
    if (const Verdict failed = prepare(options))
        return refuse(*failed);
    return ExitDone;
}

} // namespace tx::cli
