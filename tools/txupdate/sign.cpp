// SPDX-License-Identifier: MIT
#include "install/archiveverification.h"
#include "install/unarchiver.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "trust/encoding.h"
#include "trust/verifiedarchive.h"
#include "txupdate/commands.h"
#include "txupdate/faults.h"
#include "txupdate/signingkeys.h"
#include "txupdate/trustcommands.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

using trust::ArchiveClaim;
using trust::SecretKey;
using trust::VerifiedArchive;

Fault fileFault(const QFile &file) {
    return {FaultKind::File, u"%1: %2"_s.arg(file.fileName(), file.errorString()).toStdString()};
}

std::optional<Fault> addFile(trust::DigestStream &stream, const QString &path) {
    QFile file(path);
    if (!QFileInfo(path).isFile())
        return Fault{FaultKind::File, path.toStdString() + " is not a file"};
    if (!file.open(QIODevice::ReadOnly))
        return fileFault(file);
    QByteArray buffer(1 << 18, Qt::Uninitialized);
    for (;;) {
        const qint64 count = file.read(buffer.data(), buffer.size());
        if (count < 0)
            return fileFault(file);
        if (count == 0)
            return std::nullopt;
        stream.add(buffer.constData(), static_cast<size_t>(count));
    }
}

/// A JSON string or list, as a member of an entry.
QByteArray jsonOf(const std::vector<std::string> &texts) {
    QJsonArray list;
    for (const std::string &text : texts)
        list << toText(text);
    const QByteArray all = QJsonDocument(list).toJson(QJsonDocument::Compact);
    return texts.size() == 1 ? all.mid(1, all.size() - 2) : all;
}

/// Unpacks the archive, which also checks the application in it.
std::optional<Fault> unpack(const VerifiedArchivePtr &archive, const QString &path,
                            const QString &identifier) {
    TXError error;
    QEventLoop loop;
    TXUpdateUnarchiver::unarchive(archive, path, nullptr,
                                  [&](const QString &, const TXError &failed) {
                                      error = failed;
                                      loop.quit();
                                  },
                                  {identifier, toText(archive->claim()->build)});
    loop.exec();
    if (!error)
        return std::nullopt;
    const QString detail = error.underlyingError().localizedDescription();
    return Fault{FaultKind::Mismatch, (!detail.isEmpty() ? detail
                                                         : u"%1 %2"_s.arg(error.localizedDescription(),
                                                                          error.localizedFailureReason()))
                                          .trimmed()
                                          .toStdString()};
}

/// What an installed application would do with the archive.
Outcome<VerifiedArchivePtr> verifyAndUnpack(const VerifyOptions &options, const trust::AppInfo &installed,
                                            const std::vector<std::string> &texts) {
    const QString cache = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    QDir().mkpath(cache);
    const QTemporaryDir scratch(cache + u"/txupdate-verify-XXXXXX"_s);
    const int folder =
        open(QFile::encodeName(scratch.path()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    QFile source(options.source);
    if (!scratch.isValid() || folder < 0)
        return Fault{FaultKind::File, "no folder for the archive can be made in " + cache.toStdString() +
                                          ". Set XDG_CACHE_HOME to a folder that you can write to"};
    Outcome<VerifiedArchive> archive =
        source.open(QIODevice::ReadOnly)
            ? VerifiedArchive::make(*installed.keys, {texts, {}}, {installed.bundle, {}, installed.feedName},
                                    source.handle(), folder, *services().privateFiles)
            : fileFault(source);
    close(folder);
    if (!archive)
        return archive.fault();
    const VerifiedArchivePtr verified = std::make_shared<VerifiedArchive>(*std::move(archive));
    if (const std::optional<Fault> refused = unpack(
            verified, scratch.filePath(QFileInfo(options.source).fileName()), toText(installed.bundle)))
        return *refused;
    return verified;
}

} // namespace

int sign(const SignOptions &options) {
    const Outcome<trust::AppInfo> application = applicationOf(options.application);
    if (!application)
        return refuse(application.fault());
    if (application->build.empty())
        return refuse({FaultKind::Keys, "the application has no CFBundleVersion"});
    const Outcome<std::vector<SecretKey>> keys = openKeys(options.keys, options.passphrase);
    if (!keys)
        return refuse(keys.fault());
    trust::DigestStream stream;
    if (const std::optional<Fault> failed = addFile(stream, options.archive))
        return refuse(*failed);
    ArchiveClaim claim{application->bundle, application->build, stream.size(), {}};
    if (!options.feedName.isNull())
        claim.feed = options.feedName.toStdString();
    std::vector<std::string> texts;
    for (const SecretKey &key : *keys)
        texts.push_back(trust::makeSignatureText(key, stream.digest(), trust::archiveComment(claim)));
    if (application->keys) {
        // The application would refuse to become one that its own keys do not verify.
        const auto proof =
            trust::ArchiveProof::find(*application->keys, {texts, {}}, {claim.bundle, claim.build, {}});
        if (!proof)
            return refuse({proof.fault().kind, "applications would refuse this archive, as the keys of the "
                                               "application in it do not verify it: " +
                                                   proof.fault().what});
    }
    std::string all;
    for (const std::string &text : texts)
        all += text;
    const QString path = options.archive + u".minisig"_s;
    if (const TXError error = services().fileSystem->replaceFile(path, QByteArray::fromStdString(all), 0644))
        return refuse({FaultKind::File, error.localizedDescription().toStdString()});
    std::printf("JSON:    \"signature\": %s\n", jsonOf(texts).constData());
    std::printf("Appcast: txupdate:signature=\"%s\"\n", trust::escapeLineFeeds(all).c_str());
    return ExitDone;
}

int verify(const VerifyOptions &options) {
    const Outcome<trust::AppInfo> installed = verifierOf(options.bundle);
    if (!installed)
        return refuse(installed.fault());
    QFile file(options.signature.isNull() ? options.source + u".minisig"_s : options.signature);
    if (!file.open(QIODevice::ReadOnly))
        return refuse(fileFault(file));
    const Outcome<std::vector<std::string>> texts =
        trust::splitTexts(file.read(qint64(trust::mostTextBytes) + 1).toStdString());
    if (!texts)
        return refuse({texts.fault().kind, file.fileName().toStdString() + ": " + texts.fault().what});
    if (TXUpdateUnarchiver::commandForFileName(QFileInfo(options.source).fileName()).isNull())
        return refuse(
            {FaultKind::Input,
             TXUpdateUnarchiver::reasonAgainstType(QFileInfo(options.source).fileName()).toStdString()});
    const Outcome<VerifiedArchivePtr> archive = verifyAndUnpack(options, *installed, *texts);
    if (!archive)
        return refuse(archive.fault());
    const ArchiveClaim &claim = *(*archive)->claim();
    std::printf("%s is build %s of %s, %llu bytes, and signed\n", options.source.toUtf8().constData(),
                trust::shown(claim.build).c_str(), trust::shown(claim.bundle).c_str(),
                static_cast<unsigned long long>(claim.size));
    return ExitDone;
}

} // namespace tx::cli
