// SPDX-License-Identifier: MIT
#include "txupdate/bundlewords.h"
#include "txupdate/commands.h"
#include "txupdate/manual.h"
#include "txupdate/publishwords.h"
#include "txupdate/reportwords.h"
#include "txupdate/supervisor.h"
#include "txupdate/trustwords.h"

#include <CLI/CLI.hpp>

#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

QString text(const std::string &value) { return QString::fromStdString(value); }

QStringList texts(const std::vector<std::string> &values) {
    QStringList result;
    for (const std::string &value : values)
        result << text(value);
    return result;
}

QString textOrNull(const CLI::Option *option, const std::string &value) {
    return option->count() > 0 ? text(value) : QString();
}

struct Words {
    std::string a;
    std::string b;
    std::string source;
    std::string build;
    std::string system;
    std::string contentType;
    std::string url;
    std::string app;
    std::string feed;
    std::string directory;
    std::vector<std::string> hosts;
    int port = 8000;
    qint64 rate = 0;
    bool json = false;
    bool archives = false;
};

} // namespace

int main(int argc, char **argv) {
    using namespace tx::cli;
    CLI::App application(
        "For people who publish, host and debug update feeds.\n"
        "Exit status: 0 done; 1 the feed fails, an entry would be dropped, something is not "
        "signed as it must be or "
        "the update did not work; 64 wrong command line; 65 unreadable input line; 75 publishing failed "
        "after something was uploaded, run the same command again.",
        "txupdate");
    application.require_subcommand(1);
    application.set_version_flag("--version", TARVIXUPDATE_VERSION);
    Words words;

    auto *compareCommand = application.add_subcommand(
        "compare", "Print -1, 0 or 1: whether version A is older than B, the same, or newer.\n"
                   "Without arguments, read one JSON array [A, B] a line from standard input.");
    auto *a = compareCommand->add_option("A", words.a, "a build version");
    auto *b = compareCommand->add_option("B", words.b, "another one");
    a->needs(b);

    auto *versionCommand = application.add_subcommand(
        "version", "Print a version for people, taken apart, as a JSON object.\n"
                   "Without an argument, read one JSON string a line from standard input.");
    auto *versionText = versionCommand->add_option("TEXT", words.a, "such as \"2.1.3 rc1\"");

    auto *feed = application.add_subcommand("feed", "Look at a feed, or sign it.");
    feed->require_subcommand(1);
    auto *show =
        feed->add_subcommand("show", "Show what an application would see of a feed, and why it would "
                                     "not see the rest.");
    show->add_option("SOURCE", words.source, "a file or an address")->required();
    show->add_option("--build", words.build, "the application's build")->required();
    show->add_option("--system", words.system, "the system's version, major.minor.patch")->required();
    auto *type = show->add_option("--content-type", words.contentType, "read it as if served with this type");
    constexpr const char *urlHelp = "take this as the URL from which applications get it";
    auto *showUrl = show->add_option("--url", words.url, urlHelp);
    auto *showApp = show->add_option(
        "--app", words.app,
        "an installed application: what its keys do not admit is refused, or left out with the reason");
    show->add_flag("--json", words.json, "print JSON");
    auto *validate =
        feed->add_subcommand("validate", "List the entries that every reader drops, and doubtful "
                                         "ones. Exit status 1 when any would be dropped or could not be "
                                         "downloaded.");
    validate->add_option("SOURCE", words.source, "a file or an address")->required();
    auto *validateType =
        validate->add_option("--content-type", words.contentType, "read it as if served with this type");
    auto *validateUrl = validate->add_option("--url", words.url, urlHelp);
    validate->add_flag("--archives", words.archives,
                       "fetch every archive, unpack it and apply the checks of an "
                       "installation: size, type, links, special files, "
                       "identifier, build, whether it can be started on this machine");
    auto *validateApp = validate->add_option(
        "--app", words.app,
        "an installed application whose updates they are: signatures are verified with its keys; with "
        "--archives, all archives must hold it. Without it, they must hold the same application");

    const TrustWords trustWords(application, *feed);
    const PublishWords publishWords(application, *feed);
    const BundleWords bundleWords(application);
    const ReportWords reportWords(application);

    auto *checkCommand = application.add_subcommand("check", "Ask the feed of an application for updates.");
    auto *updateCommand = application.add_subcommand(
        "update", "Update an application: check, download, unpack, install and open the new one.");
    CLI::Option *feedOption[2];
    int index = 0;
    for (CLI::App *command : {checkCommand, updateCommand}) {
        command->add_option("--app", words.app, "the application's bundle")->required();
        feedOption[index++] =
            command->add_option("--feed", words.feed, "instead of the application's own feed");
    }
    checkCommand->add_flag("--json", words.json, "print JSON");

    auto *removeCommand = application.add_subcommand(
        "remove",
        "Move an application to the Trash and remove its menu entry, icon and MIME types. Refuses an "
        "application that is running, that belongs to another user or to a package.");
    removeCommand->add_option("BUNDLE", words.source, "the application's bundle")->required();
    removeCommand->add_flag("--json", words.json, "print JSON");

    auto *profileCommand = application.add_subcommand(
        "profile", "Print the system profile that an application on this machine would send along.");
    profileCommand->add_flag("--json", words.json, "print it as it stands in the request");

    auto *serveCommand = application.add_subcommand(
        "serve", "Serve a folder on 127.0.0.1 for development: feeds by GET and POST, archives, pages.\n"
                 "Prints each request's parameters and profile.");
    serveCommand->add_option("DIR", words.directory, "the folder")->required()->check(CLI::ExistingDirectory);
    serveCommand->add_option("--port", words.port, "0 takes a free one")->capture_default_str();
    serveCommand
        ->add_option("--rate", words.rate, "bytes a second, to see an update on a slow line; 0: no limit")
        ->capture_default_str();
    serveCommand
        ->add_option("--host", words.hosts,
                     "answer under this name too, beside localhost and 127.0.0.1; may be repeated")
        ->allow_extra_args(false);

    auto *manualCommand = application.add_subcommand("manual", "Print the manual page, for man.");
    auto *completionCommand = application.add_subcommand(
        "completion", "Print a script that completes commands and options in a shell.");
    completionCommand->add_option("SHELL", words.a, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));

    try {
        application.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return application.exit(error) == 0 ? int(ExitDone) : int(ExitUsage);
    }

    if (manualCommand->parsed() || completionCommand->parsed()) {
        const std::string page =
            manualCommand->parsed() ? manualPage(application) : completionFor(application, words.a);
        return std::fputs(page.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? ExitDone : ExitFailed;
    }
    if (compareCommand->parsed())
        return a->count() > 0 ? compare(text(words.a), text(words.b)) : compareLines();
    if (versionCommand->parsed())
        return versionText->count() > 0 ? version(text(words.a)) : versionLines();
    if (serveCommand->parsed())
        return serve(text(words.directory), words.port, words.rate, texts(words.hosts));
    if (updateCommand->parsed()) {
        // The process that installs an application ends; another process waits and reports the result.
        if (const std::optional<int> status = superviseInstallation())
            return *status;
    }
    const QCoreApplication qt(argc, argv);
    if (const std::optional<int> status = trustWords.run())
        return *status;
    if (const std::optional<int> status = publishWords.run())
        return *status;
    if (const std::optional<int> status = bundleWords.run())
        return *status;
    if (const std::optional<int> status = reportWords.run())
        return *status;
    if (removeCommand->parsed())
        return remove({text(words.source), {}, words.json});
    if (profileCommand->parsed())
        return profile(words.json);
    if (show->parsed())
        return feedShow({text(words.source), text(words.build), text(words.system),
                         textOrNull(type, words.contentType), textOrNull(showUrl, words.url), words.json,
                         false, textOrNull(showApp, words.app)});
    if (validate->parsed())
        return feedValidate({text(words.source),
                             {},
                             {},
                             textOrNull(validateType, words.contentType),
                             textOrNull(validateUrl, words.url),
                             false,
                             words.archives,
                             textOrNull(validateApp, words.app)});
    const AppOptions options{text(words.app),
                             textOrNull(feedOption[checkCommand->parsed() ? 0 : 1], words.feed), words.json};
    return checkCommand->parsed() ? check(options) : update(options);
}
