// SPDX-License-Identifier: MIT
#include "install/archiveverification.h"

#include "model/bundletrust.h"
#include "os/services.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// An open file or folder.
class Opened {
public:
    Opened(const QString &path, int flags)
        : m_fd(open(QFile::encodeName(path).constData(), flags | O_RDONLY | O_NOFOLLOW | O_CLOEXEC)) {}
    ~Opened() {
        if (m_fd >= 0)
            close(m_fd);
    }
    Q_DISABLE_COPY_MOVE(Opened)
    [[nodiscard]] int get() const { return m_fd; }

private:
    const int m_fd;
};

trust::Fault cannotOpen(const QString &path) {
    return {trust::FaultKind::File, path.toStdString() + " cannot be opened: " + std::strerror(errno)};
}

} // namespace

Result<VerifiedArchivePtr> verifyArchive(const ArchiveTrust &trusted, const QString &path) {
    // O_NONBLOCK, because open() would block if the path is a named pipe.
    const Opened source(path, O_NONBLOCK);
    if (source.get() < 0)
        return archiveTrustError(cannotOpen(path));
    const QString folder = QFileInfo(path).path();
    const Opened beside(folder, O_DIRECTORY);
    if (beside.get() < 0)
        return archiveTrustError(cannotOpen(folder));
    trust::Outcome<trust::VerifiedArchive> archive =
        trust::VerifiedArchive::make(trusted.keys, trusted.signatures, trusted.wanted, source.get(),
                                     beside.get(), *services().privateFiles);
    if (!archive)
        return archiveTrustError(archive.fault());
    return VerifiedArchivePtr(std::make_shared<trust::VerifiedArchive>(*std::move(archive)));
}

TXError checkUnpackedTrust(const trust::VerifiedArchive &archive, const QString &application) {
    const TXBundle bundle(application);
    const trust::Outcome<trust::AppInfo> info = trust::infoOfBundle(bundle);
    const trust::PublicKeys *own = info && info->keys ? &*info->keys : nullptr;
    trust::Verdict refused = archive.checkUnpacked(
        bundle.bundleIdentifier().toStdString(), bundle.infoString(u"CFBundleVersion"_s).toStdString(), own);
    if (!refused)
        return {};
    if (!info)
        refused->what += ": " + info.fault().what;
    return releaseTrustError(*refused);
}

bool unpacksOnlyVerified() {
    const Result<trust::AppInfo> info = hostTrust();
    return !info || info->keys;
}

} // namespace tx
