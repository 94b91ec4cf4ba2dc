// SPDX-License-Identifier: MIT
#include "txupdate/signingkeys.h"

#include "model/bundletrust.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "txupdate/commands.h"
#include "txupdate/faults.h"
#include "txupdate/passphrase.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

using trust::Secret;
using trust::SecretKey;
using trust::SecretKeyFile;

Outcome<SecretKey> openKey(const QString &name, const PassphraseOptions &options) {
    const QString path = QFileInfo(name).isFile() ? name : name + u".key"_s;
    const QByteArray place = QFile::encodeName(path);
    const Outcome<Secret> content = trust::readSecretFile(place.constData(), SecretKeyFile::mostBytes);
    if (!content)
        return content.fault();
    const auto faultWithPath = [&place](const Fault &fault) {
        return Fault{fault.kind, place.toStdString() + ": " + fault.what};
    };
    const Outcome<SecretKeyFile> file = SecretKeyFile::parse(content->view());
    if (!file)
        return faultWithPath(file.fault());
    std::optional<Secret> passphrase;
    if (file->isEncrypted()) {
        Outcome<Secret> read = readPassphrase(options, path, false);
        if (!read)
            return faultWithPath(read.fault());
        passphrase = *std::move(read);
    }
    Outcome<SecretKey> key = file->open(passphrase ? &*passphrase : nullptr);
    if (!key)
        return faultWithPath(key.fault());
    return key;
}

Outcome<trust::AppInfo> infoOf(const QString &path) {
    const TXBundle bundle(QFileInfo(path).absoluteFilePath());
    const Fault none{FaultKind::Keys,
                     path.toStdString() +
                         " is not an application: it has no Info.plist with a CFBundleIdentifier"};
    if (bundle.bundleIdentifier().isEmpty())
        return none;
    Outcome<trust::AppInfo> info = trust::infoOfBundle(bundle);
    if (info && !info->keys)
        return Fault{FaultKind::Keys,
                     path.toStdString() + " has no keys: its Info.plist lacks TXUpdatePublicKeys"};
    return info;
}

/// A file of keygen.
struct NewFile {
    QString path;
    Secret content;
};

/// All of them, or none.
Outcome<bool> writeNewFiles(const std::vector<NewFile> &files) {
    FileSystem &system = *services().fileSystem;
    for (const NewFile &file : files) {
        if (system.exists(file.path))
            return Fault{FaultKind::File,
                         file.path.toStdString() +
                             " is there already. Keys are never replaced: choose another name"};
    }
    for (auto file = files.begin(); file != files.end(); ++file) {
        const std::string_view content = file->content.view();
        TXError error = system.writeNewFile(file->path, {content.data(), qsizetype(content.size())});
        if (!error)
            error = system.sync(file->path);
        if (!error)
            continue;
        for (auto written = files.begin(); written <= file; ++written) {
            // One that another process made in this moment stays.
            if (written != file || error.code() != EEXIST)
                (void)system.remove(written->path);
        }
        return Fault{FaultKind::File, error.localizedDescription().toStdString()};
    }
    return true;
}

} // namespace

QString toText(const std::string &text) { return QString::fromStdString(text); }

int refuse(const Fault &fault) {
    complain(toText(fault.what));
    return ExitFailed;
}

Outcome<std::vector<SecretKey>> openKeys(const QStringList &names, const PassphraseOptions &passphrase) {
    std::vector<SecretKey> keys;
    for (const QString &name : names) {
        Outcome<SecretKey> key = openKey(name, passphrase);
        if (!key)
            return key.fault();
        keys.push_back(*std::move(key));
    }
    return keys;
}

Outcome<trust::AppInfo> applicationOf(const SignedFor &signedFor) {
    if (!signedFor.bundle.isNull())
        return infoOf(signedFor.bundle);
    trust::AppInfo info;
    info.bundle = signedFor.identifier.toStdString();
    info.build = signedFor.build.toStdString();
    return info;
}

Outcome<trust::AppInfo> verifierOf(const QString &bundle) { return infoOf(bundle); }

Outcome<SecretKey> makeKeys(const KeygenOptions &options) {
    if (!trust::sodiumIsReady())
        return Fault{FaultKind::File, "the cryptographic library cannot be set up on this machine"};
    std::optional<Secret> passphrase;
    if (!options.withoutPassphrase) {
        Outcome<Secret> read = readPassphrase(options.passphrase, u"the new keys"_s, true);
        if (!read)
            return read.fault();
        passphrase = *std::move(read);
    }
    std::vector<NewFile> files;
    QStringList lines;
    std::vector<SecretKey> keys;
    for (const QString &name : {options.name, options.name + u"-spare"_s}) {
        SecretKey key = SecretKey::generate();
        Outcome<Secret> content = SecretKeyFile::write(key, passphrase ? &*passphrase : nullptr);
        if (!content)
            return content.fault();
        files.push_back({name + u".key"_s, *std::move(content)});
        files.push_back({name + u".pub"_s, Secret::of(trust::publicKeyFile(key.publicKey()))});
        lines << u"    <string>minisign:%1</string>"_s.arg(toText(trust::keyLine(key.publicKey())));
        keys.push_back(std::move(key));
    }
    if (const Outcome<bool> written = writeNewFiles(files); !written)
        return written.fault();
    const QString report =
        u"%1.key signs archives and feeds. Keep it secret.\n"
        "%1-spare.key signs what replaces %1.key should it be lost: put it away now, offline, and "
        "remove it from this machine.\n"
        "Info.plist of the application:\n"
        "  <key>TXUpdatePublicKeys</key>\n  <array>\n%2\n  </array>\n"_s.arg(options.name, lines.join(u'\n'));
    std::fputs(report.toUtf8().constData(), stdout);
    return std::move(keys.front());
}

int keygen(const KeygenOptions &options) {
    const Outcome<SecretKey> made = makeKeys(options);
    return made ? int(ExitDone) : refuse(made.fault());
}

} // namespace tx::cli
