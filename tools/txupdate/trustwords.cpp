// SPDX-License-Identifier: MIT
#include "txupdate/trustwords.h"

#include "txupdate/trustcommands.h"

#include <string>
#include <vector>

namespace tx::cli {

namespace {

QString textOrNull(const std::string &value) {
    return value.empty() ? QString() : QString::fromStdString(value);
}

} // namespace

struct TrustWords::Data {
    std::string file;
    std::string bundle;
    std::string identifier;
    std::string build;
    std::string feedName;
    std::string signature;
    std::string expires = "60";
    std::vector<std::string> keys;
    int descriptor = -1;
    bool withoutPassphrase = false;
    CLI::App *keygen = nullptr;
    CLI::App *sign = nullptr;
    CLI::App *verify = nullptr;
    CLI::App *feedSign = nullptr;
    CLI::App *feedVerify = nullptr;

    void addPassphrase(CLI::App *command) {
        command
            ->add_option("--passphrase-fd", descriptor,
                         "read passphrases from this file descriptor, one line a key; otherwise from "
                         "the environment variable TXUPDATE_PASSPHRASE, else from the terminal")
            ->check(CLI::NonNegativeNumber);
    }
    void addKeys(CLI::App *command) {
        command->add_option("--key", keys, "the secret key: a file, with or without .key; may be repeated")
            ->required()
            ->expected(1)
            ->allow_extra_args(false)
            ->take_all();
        addPassphrase(command);
    }
    /// --app, or --identifier in its place.
    std::pair<CLI::Option *, CLI::Option *> addApplication(CLI::App *command, const char *help) {
        auto *app = command->add_option("--app", bundle, help);
        auto *id =
            command->add_option("--identifier", identifier, "the application's identifier, without --app");
        app->excludes(id);
        return {app, id};
    }
    [[nodiscard]] SignedFor application() const {
        return {textOrNull(bundle), textOrNull(identifier), textOrNull(build)};
    }
    [[nodiscard]] QStringList keyNames() const {
        QStringList result;
        for (const std::string &key : keys)
            result << QString::fromStdString(key);
        return result;
    }
};

TrustWords::TrustWords(CLI::App &program, CLI::App &feed)
    : d(std::make_unique<Data>()) {
    d->keygen = program.add_subcommand(
        "keygen", "Make two pairs of keys: NAME.key and NAME.pub for every day, NAME-spare.key and "
                  "NAME-spare.pub to put away. Print what the application's Info.plist needs.");
    d->keygen->add_option("NAME", d->file, "a path without extension")->required();
    d->keygen->add_flag("--no-passphrase", d->withoutPassphrase, "leave the secret keys unencrypted");
    d->addPassphrase(d->keygen);

    d->sign = program.add_subcommand(
        "sign", "Sign an archive: write ARCHIVE.minisig, and print what goes into the feed.");
    d->sign->add_option("ARCHIVE", d->file, "the archive that the feed will name")->required();
    auto [app, identifier] = d->addApplication(d->sign, "the application that is in the archive");
    auto *build = d->sign->add_option("--build", d->build, "its build, without --app");
    identifier->needs(build);
    build->needs(identifier);
    d->sign->add_option("--feed-name", d->feedName, "the only feed that may offer it");
    d->sign->callback([app = app, identifier = identifier] {
        if (app->count() + identifier->count() == 0)
            throw CLI::RequiredError("--app, or --identifier and --build");
    });
    d->addKeys(d->sign);

    d->verify = program.add_subcommand(
        "verify",
        "Verify an archive as an installed application would: its signature, what it says, and that the "
        "application in the archive could be updated, too. Exit status 1 when it would be refused.");
    d->verify->add_option("ARCHIVE", d->file, "an archive")->required();
    d->verify->add_option("--app", d->bundle, "the installed application")->required();
    d->verify->add_option("--signature", d->signature, "its signature, by default ARCHIVE.minisig");

    d->feedSign = feed.add_subcommand(
        "sign",
        "Sign a feed in place. Whoever changes the feed signs it again; an earlier signature is replaced.");
    d->feedSign->add_option("FEED", d->file, "a file, JSON or appcast")->required();
    auto [feedApp, feedIdentifier] = d->addApplication(d->feedSign, "an application that reads the feed");
    d->feedSign->callback([app = feedApp, identifier = feedIdentifier] {
        if (app->count() + identifier->count() == 0)
            throw CLI::RequiredError("--app or --identifier");
    });
    d->feedSign->add_option("--feed-name", d->feedName,
                            "the feed's name; by default the application's, else \"release\"");
    d->feedSign
        ->add_option("--expires", d->expires, "days until applications refuse it, 1 to 400, or \"never\"")
        ->capture_default_str()
        ->check([](const std::string &value) {
            return value == "never" ? std::string() : CLI::Range(1, 400)(value);
        });
    d->addKeys(d->feedSign);

    d->feedVerify =
        feed.add_subcommand("verify", "Verify a feed as an installed application would. Exit status 1 "
                                      "when it would be refused.");
    d->feedVerify->add_option("FEED", d->file, "a file or an address")->required();
    d->feedVerify->add_option("--app", d->bundle, "the installed application")->required();
}

TrustWords::~TrustWords() = default;

std::optional<int> TrustWords::run() const {
    const PassphraseOptions passphrase{d->descriptor};
    if (d->keygen->parsed())
        return keygen({textOrNull(d->file), d->withoutPassphrase, passphrase});
    if (d->sign->parsed())
        return cli::sign(
            {textOrNull(d->file), d->application(), textOrNull(d->feedName), d->keyNames(), passphrase});
    if (d->feedSign->parsed())
        return cli::feedSign({textOrNull(d->file), d->application(), textOrNull(d->feedName), d->keyNames(),
                              d->expires == "never" ? std::nullopt : std::optional(std::stoi(d->expires)),
                              passphrase});
    const VerifyOptions options{textOrNull(d->file), textOrNull(d->bundle), textOrNull(d->signature)};
    if (d->verify->parsed())
        return cli::verify(options);
    if (d->feedVerify->parsed())
        return cli::feedVerify(options);
    return std::nullopt;
}

} // namespace tx::cli
