// SPDX-License-Identifier: MIT
#include "bundle/bundlefiles.h"
#include "bundle/bundleinfolist.h"
#include "bundle/bundleplan.h"
#include "bundle/bundlereport.h"
#include "bundle/bundlewriter.h"
#include "bundle/problem.h"
#include "os/services.h"
#include "publish/progress.h"
#include "txupdate/bundlewords.h"
#include "txupdate/commands.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

QString text(const std::string &value) { return QString::fromStdString(value); }

QStringList texts(const std::vector<std::string> &values) {
    QStringList result;
    for (const std::string &value : values)
        result << text(value);
    return result;
}

void print(const QString &output) { std::fputs(output.toUtf8().constData(), stdout); }

int fail(const TXError &error, bool asJson) {
    if (asJson)
        print(QString::fromUtf8(QJsonDocument(QJsonObject{{u"error"_s, bundling::lineOf(error)}})
                                    .toJson(QJsonDocument::Indented)));
    complain(bundling::lineOf(error));
    return ExitFailed;
}

int bundle(const bundling::Wishes &wishes, bool isDryRun, bool asJson) {
    const Result<QVariantMap> info = bundling::infoListOf(wishes, services().now());
    if (!info)
        return fail(info.error(), asJson);
    const Result<bundling::Plan> plan = bundling::makePlan(wishes);
    if (!plan)
        return fail(plan.error(), asJson);
    QJsonObject json = bundling::jsonOf(*plan);
    QStringList warnings = plan->warnings;
    QStringList problems;
    QString result;
    if (!isDryRun) {
        publishing::Progress progress(asJson ? -1 : STDERR_FILENO);
        progress.begin(u"Copying"_s, 0);
        const Result<bundling::WrittenBundle> written =
            bundling::writeBundle(*plan, wishes, *info, bundling::nativeBundleFiles(),
                                  [&](qint64 done, qint64 total) { progress.show(done, total); });
        progress.end();
        if (!written)
            return fail(written.error(), asJson);
        warnings += written->warnings;
        problems = written->problems;
        json[u"problems"_s] = QJsonArray::fromStringList(problems);
        json[u"warnings"_s] = QJsonArray::fromStringList(warnings);
        if (problems.isEmpty()) {
            json[u"path"_s] = written->path;
            result = written->path + u'\n';
            if (!written->debugSymbols.isNull()) {
                json[u"debugSymbols"_s] = written->debugSymbols;
                result += u"Debug symbols: "_s + written->debugSymbols + u'\n';
            }
        }
    }
    if (asJson)
        print(QString::fromUtf8(QJsonDocument(json).toJson(QJsonDocument::Indented)));
    else
        print(result + (isDryRun ? bundling::listOf(*plan) : QString()) +
              bundling::textOf(bundling::summaryOf(*plan)));
    for (const QString &warning : warnings)
        complain(u"warning: "_s + warning);
    for (const QString &found : problems)
        complain(found);
    if (!problems.isEmpty())
        complain(u"the bundle was not made: repair what is listed above"_s);
    return problems.isEmpty() ? ExitDone : ExitFailed;
}

} // namespace

struct BundleWords::Data {
    std::string executable;
    std::string identifier;
    std::string name;
    std::string build;
    std::string version;
    std::string icon;
    std::string desktop;
    std::string info;
    std::string published;
    std::string output = ".";
    std::string layout = "app";
    std::vector<std::string> keys;
    std::vector<std::string> additions;
    std::vector<std::string> plugins;
    std::vector<std::string> qmlFolders;
    std::vector<std::string> buildFolders;
    bool withWebEngine = false;
    bool allowsBuildPaths = false;
    bool isDryRun = false;
    bool asJson = false;
    CLI::App *command = nullptr;

    void addList(const char *word, std::vector<std::string> &values, const char *help) {
        command->add_option(word, values, help)->expected(1)->allow_extra_args(false)->take_all();
    }
};

BundleWords::BundleWords(CLI::App &program)
    : d(std::make_unique<Data>()) {
    d->command = program.add_subcommand(
        "bundle",
        "Make a bundle of a built program: with the libraries, plug-ins, QML modules and translations that "
        "it needs on a machine without Qt, an Info.plist, and the licences. Exit status 1 when something in "
        "it would not work for users.");
    d->command->add_option("PROGRAM", d->executable, "the built executable")->required();
    d->command->add_option("--identifier", d->identifier, "such as org.example.MyApp; the same for ever")
        ->required();
    d->command->add_option("--name", d->name, "the application's name, for people")->required();
    d->command->add_option("--build", d->build, "such as 1042; greater with each build")->required();
    d->command->add_option("--version", d->version, "for people, such as 2.1; the build if absent");
    d->command->add_option("--icon", d->icon, "SVG or PNG");
    d->command->add_option("--desktop", d->desktop, "a desktop entry");
    d->command->add_option("--info", d->info, "a property list with more keys for Info.plist");
    d->addList("--key", d->keys,
               "public keys for Info.plist: NAME of NAME.pub and NAME-spare.pub; may be repeated");
    d->addList("--add", d->additions, "FILE or FOLDER for the resources, or FILE:PLACE; may be repeated");
    d->addList("--plugin", d->plugins, "one more plug-in of Qt: FOLDER or FOLDER/FILE; may be repeated");
    d->addList("--qml", d->qmlFolders,
               "a folder with the application's QML files, when they are not compiled in");
    d->addList("--build-path", d->buildFolders,
               "a folder of this machine that nothing in the bundle may name; those of CMake are known");
    d->command->add_option("--published", d->published,
                           "the bundle of the last published build; by default the one that is replaced");
    d->command->add_option("-o,--output", d->output, "the folder in which the bundle is made")
        ->capture_default_str();
    d->command
        ->add_option("--layout", d->layout,
                     "app: MyApp.app/Contents/...; prefix: myapp/bin, myapp/lib, myapp/share")
        ->check(CLI::IsMember({"app", "prefix"}))
        ->capture_default_str();
    d->command->add_flag("--with-web-engine", d->withWebEngine,
                         "with the framework's module for pages and the web engine");
    d->command->add_flag("--allow-build-paths", d->allowsBuildPaths,
                         "do not fail when a file names a folder of this machine, such as in a build with a "
                         "sanitizer");
    d->command->add_flag("--dry-run", d->isDryRun,
                         "list all files with their sizes and who asked for them; make nothing");
    d->command->add_flag("--json", d->asJson, "print JSON");
}

BundleWords::~BundleWords() = default;

std::optional<int> BundleWords::run() const {
    if (!d->command->parsed())
        return std::nullopt;
    bundling::Wishes wishes;
    wishes.executable = text(d->executable);
    wishes.identifier = text(d->identifier);
    wishes.name = text(d->name);
    wishes.build = text(d->build);
    wishes.version = text(d->version);
    wishes.icon = text(d->icon);
    wishes.desktop = text(d->desktop);
    wishes.info = text(d->info);
    wishes.keys = texts(d->keys);
    wishes.additions = texts(d->additions);
    wishes.plugins = texts(d->plugins);
    wishes.qmlFolders = texts(d->qmlFolders);
    wishes.buildFolders = texts(d->buildFolders);
    wishes.published = text(d->published);
    wishes.output = QDir(text(d->output)).absolutePath();
    wishes.layout = bundling::layoutNamed(text(d->layout)).value_or(bundling::Layout::App);
    wishes.withWebEngine = d->withWebEngine;
    wishes.allowsBuildPaths = d->allowsBuildPaths;
    return bundle(wishes, d->isDryRun, d->asJson);
}

} // namespace tx::cli
