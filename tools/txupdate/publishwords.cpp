// SPDX-License-Identifier: MIT
#include "txupdate/publishwords.h"

#include "txupdate/publishcommands.h"

#include <string>
#include <vector>

namespace tx::cli {

namespace {

QString textOrNull(const std::string &value) {
    return value.empty() ? QString() : QString::fromStdString(value);
}

QStringList texts(const std::vector<std::string> &values) {
    QStringList result;
    for (const std::string &value : values)
        result << QString::fromStdString(value);
    return result;
}

} // namespace

struct PublishWords::Data {
    std::string configuration;
    std::string to;
    std::string url;
    std::string feed;
    std::string feedName;
    std::string expires;
    std::vector<std::string> keys;
    int descriptor = -1;
    bool isDryRun = false;
    bool isUnserved = false;
    bool json = false;

    std::string bundle;
    std::vector<std::string> archives;
    std::string tzstFrom;
    std::string track;
    std::string title;
    std::string version;
    std::string date;
    std::string description;
    std::string notes;
    std::string notesSize;
    std::string autodownload;
    std::string minBuild;
    std::string maxBuild;
    std::string minSystem;
    std::string maxSystem;
    std::string identifier;
    long long largestArchive = 0;
    long long largestUnpacked = 0;
    std::string build;
    std::string key;
    std::string ci;
    bool removesArchives = false;
    bool withoutPassphrase = false;

    CLI::App *init = nullptr;
    CLI::App *publish = nullptr;
    CLI::App *withdraw = nullptr;
    CLI::App *resign = nullptr;

    void addPlace(CLI::App *command) {
        command->add_option("--config", configuration,
                            "read the rest from this file; by default txupdate.toml, when it is there");
        command->add_option("--to", to,
                            "where the files are: a folder, or a remote of rclone, such as "
                            "remote:downloads");
        command->add_option("--url", url, "the URL under which that folder is served");
        command->add_option("--feed", feed, "the name of the feed's file there; by default feed.json");
        command->add_option("--feed-name", feedName,
                            "the name in the feed's signature; by default the application's, else "
                            "\"release\"");
        command->add_option("--key", keys, "the secret key: a file, with or without .key; may be repeated")
            ->expected(1)
            ->allow_extra_args(false)
            ->take_all();
        command
            ->add_option("--passphrase-fd", descriptor,
                         "read passphrases from this file descriptor, one line a key; otherwise from "
                         "the environment variable TXUPDATE_PASSPHRASE, else from the terminal")
            ->check(CLI::NonNegativeNumber);
        command
            ->add_option("--expires", expires,
                         "days until applications refuse the feed, 1 to 400, or \"never\"; by default 60")
            ->check([](const std::string &value) {
                return value == "never" ? std::string() : CLI::Range(1, 400)(value);
            });
        command->add_flag("--dry-run", isDryRun, "show the difference, and change nothing");
        command->add_flag("--not-served", isUnserved,
                          "the folder is not served yet: read files back from it, instead of by GET from "
                          "the URL");
        command->add_flag("--json", json, "print the result as JSON");
    }
    void addApplication(CLI::App *command) {
        auto *app = command->add_option("--app", bundle, "an application that reads the feed");
        auto *id =
            command->add_option("--identifier", identifier, "the application's identifier, without --app");
        app->excludes(id);
    }
    [[nodiscard]] PlaceOptions place() const {
        return {textOrNull(configuration),
                textOrNull(to),
                textOrNull(url),
                textOrNull(feed),
                textOrNull(feedName),
                texts(keys),
                textOrNull(expires),
                {descriptor},
                isDryRun,
                !isUnserved,
                json};
    }
    void addInit(CLI::App &program);
    void addPublish(CLI::App &program);
};

void PublishWords::Data::addInit(CLI::App &program) {
    init = program.add_subcommand(
        "init",
        "Prepare the current folder for publishing: make the keys, a first feed, txupdate.toml, so that "
        "publish needs no options, and a file for the CI system. Asks for what is not given.");
    init->add_option("--identifier", identifier, "the application's identifier, such as org.example.MyApp");
    init->add_option("--to", to, "where the files are: a folder, which is made, or a remote of rclone");
    init->add_option("--url", url, "the URL under which that folder is served");
    init->add_option("--bundle", bundle, "the built application; by default dist/NAME.app");
    init->add_option("--key", key, "the name of the keys' files; by default release. Existing ones are used");
    init->add_option("--ci", ci, "for which system a file is made: github, gitlab or none (the default)")
        ->check(CLI::IsMember({"github", "gitlab", "none"}));
    init->add_flag("--no-passphrase", withoutPassphrase, "leave new secret keys unencrypted");
    init->add_option("--passphrase-fd", descriptor,
                     "read the passphrase from this file descriptor; otherwise from the environment variable "
                     "TXUPDATE_PASSPHRASE, else from the terminal")
        ->check(CLI::NonNegativeNumber);
}

void PublishWords::Data::addPublish(CLI::App &program) {
    publish = program.add_subcommand(
        "publish",
        "Publish a build: pack it, sign it, upload it, and put its entry into the feed. Shows the "
        "difference first. Interrupted at any point and repeated, it ends in the same state. Exit status 1: "
        "refused, nothing was changed; 75: some files were uploaded, run the same command again.");
    publish->add_option("BUNDLE", bundle, "the application, such as dist/MyApp.app");
    addPlace(publish);
    publish
        ->add_option("--archive", archives,
                     "the type of the archive: tgz (the default), zip or tzst; may be repeated")
        ->expected(1)
        ->allow_extra_args(false)
        ->take_all();
    publish->add_option("--tzst-from", tzstFrom,
                        "the first installed build that can unpack .tzst; older ones get the other archive");
    publish->add_option("--track", track, "the track of the feed; by default \"release\"");
    publish->add_option("--title", title, "by default the application's name and version");
    publish->add_option("--display-version", version,
                        "the version for people; by default that of the Info.plist");
    publish->add_option("--date", date, "yyyy-MM-dd HH:mm:ss in US Pacific time; by default now");
    publish->add_option("--description", description, "what is new, in a sentence");
    publish->add_option("--notes", notes, "release notes: a file, which is uploaded, or a URL");
    publish->add_option("--notes-size", notesSize, "their size, such as \"{640, 480}\"");
    publish->add_option("--autodownload", autodownload, "no: never downloaded before the user agrees")
        ->check(CLI::IsMember({"yes", "no"}));
    publish->add_option("--min-build", minBuild, "the oldest installed build that may see it");
    publish->add_option("--max-build", maxBuild, "and the newest");
    publish->add_option("--min-system", minSystem, "the oldest system, such as 12");
    publish->add_option("--max-system", maxSystem, "and the newest");
    publish->add_option("--identifier", identifier, "refuse a bundle with any other identifier");
    publish
        ->add_option("--largest-archive", largestArchive,
                     "bytes that installed applications download; by default 4 GiB")
        ->check(CLI::PositiveNumber);
    publish
        ->add_option("--largest-unpacked", largestUnpacked,
                     "bytes that installed applications unpack; by default 8 GiB")
        ->check(CLI::PositiveNumber);
}

PublishWords::PublishWords(CLI::App &program, CLI::App &feed)
    : d(std::make_unique<Data>()) {
    d->addInit(program);
    d->addPublish(program);

    d->withdraw = program.add_subcommand(
        "withdraw", "Take a build out of the feed. Those who have it keep it: publish a newer one for them.");
    d->withdraw->add_option("--build", d->build, "the build")->required();
    d->withdraw->add_option("--track", d->track, "the track of the feed; by default \"release\"");
    d->withdraw->add_flag("--remove-archives", d->removesArchives,
                          "remove its archives from the target, too");
    d->addApplication(d->withdraw);
    d->addPlace(d->withdraw);

    d->resign = feed.add_subcommand(
        "resign", "Sign the published feed again, before its signature expires: for a timer.");
    d->addApplication(d->resign);
    d->addPlace(d->resign);
}

PublishWords::~PublishWords() = default;

std::optional<int> PublishWords::run() const {
    const auto positive = [](long long number) {
        return number > 0 ? std::optional(qint64(number)) : std::nullopt;
    };
    if (d->init->parsed())
        return cli::init({textOrNull(d->identifier),
                          textOrNull(d->to),
                          textOrNull(d->url),
                          textOrNull(d->bundle),
                          textOrNull(d->key),
                          textOrNull(d->ci),
                          d->withoutPassphrase,
                          {d->descriptor}});
    if (d->publish->parsed())
        return publish({d->place(), textOrNull(d->bundle), texts(d->archives), textOrNull(d->tzstFrom),
                        textOrNull(d->track), textOrNull(d->title), textOrNull(d->version),
                        textOrNull(d->date), textOrNull(d->description), textOrNull(d->notes),
                        textOrNull(d->notesSize), textOrNull(d->autodownload), textOrNull(d->minBuild),
                        textOrNull(d->maxBuild), textOrNull(d->minSystem), textOrNull(d->maxSystem),
                        textOrNull(d->identifier), positive(d->largestArchive),
                        positive(d->largestUnpacked)});
    const FeedEditOptions edit{d->place(),
                               {textOrNull(d->bundle), textOrNull(d->identifier), {}},
                               textOrNull(d->track),
                               textOrNull(d->build),
                               d->removesArchives};
    if (d->withdraw->parsed())
        return cli::withdraw(edit);
    if (d->resign->parsed())
        return feedResign(edit);
    return std::nullopt;
}

} // namespace tx::cli
