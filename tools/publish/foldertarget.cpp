// SPDX-License-Identifier: MIT
#include "publish/target.h"

#include "os/filesystem.h"
#include "os/services.h"
#include "publish/faults.h"

#include <QFileInfo>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

Fault faultOf(const TXError &error) { return {FaultKind::File, error.localizedDescription().toStdString()}; }

class FolderTarget final : public Target {
public:
    explicit FolderTarget(QString folder)
        : m_folder(std::move(folder)) {}

    QString description() const override { return m_folder; }

    Verdict occupy() override {
        if (!QFileInfo(m_folder).isDir())
            return Fault{FaultKind::File,
                         m_folder.toStdString() +
                             " is not a folder. Make it, or name a remote of rclone, such as "
                             "remote:downloads"};
        Result<std::unique_ptr<FileLock>> lock = files().tryLock(m_folder + u"/.txupdate-publish.lock"_s);
        if (!lock && lock.error().code() == EWOULDBLOCK)
            return Fault{FaultKind::File, "another txupdate is publishing to " + m_folder.toStdString() +
                                              ". Wait until it has ended"};
        if (!lock)
            return faultOf(lock.error());
        m_lock = std::move(*lock);
        return std::nullopt;
    }

    Outcome<std::optional<quint64>> sizeOf(const QString &name) override {
        if (!files().exists(pathOf(name)))
            return std::optional<quint64>();
        const Result<quint64> size = files().fileSize(pathOf(name));
        if (!size)
            return faultOf(size.error());
        return std::optional(*size);
    }

    Outcome<FetchedFile> digestOf(const QString &name, Progress &progress) override {
        return digestOfFile(pathOf(name), progress);
    }

    Verdict get(const QString &name, const QString &localPath, Progress & /*progress*/) override {
        if (const TXError error = files().copy(pathOf(name), localPath))
            return faultOf(error);
        return std::nullopt;
    }

    Outcome<StoredFeed> readFeed(const QString &name) override {
        if (!files().exists(pathOf(name)))
            return StoredFeed();
        const Result<QByteArray> content = files().readFile(pathOf(name));
        if (!content)
            return faultOf(content.error());
        return StoredFeed{*content};
    }

    Verdict put(const QString &localPath, const QString &name, Progress & /*progress*/) override {
        const QString copy = pathOf(temporaryName(name));
        TXError error;
        if (files().exists(copy))
            error = files().remove(copy);
        if (!error)
            error = files().copy(localPath, copy);
        if (!error)
            error = files().sync(copy);
        if (!error)
            error = files().rename(copy, pathOf(name));
        if (!error)
            error = files().syncFolder(m_folder);
        if (error)
            return faultOf(error);
        return std::nullopt;
    }

    Verdict replaceFeed(const QString &name, const QByteArray &content) override {
        constexpr int mode = 0644;
        if (const TXError error = files().replaceFile(pathOf(name), content, mode))
            return faultOf(error);
        return std::nullopt;
    }

    Verdict remove(const QString &name) override {
        if (!files().exists(pathOf(name)))
            return std::nullopt;
        if (const TXError error = files().remove(pathOf(name)))
            return faultOf(error);
        return std::nullopt;
    }

private:
    static FileSystem &files() { return *services().fileSystem; }
    [[nodiscard]] QString pathOf(const QString &name) const { return m_folder + u'/' + name; }

    const QString m_folder;
    std::unique_ptr<FileLock> m_lock;
};

} // namespace

std::unique_ptr<Target> makeFolderTarget(const QString &folder) {
    return std::make_unique<FolderTarget>(QFileInfo(folder).absoluteFilePath());
}

QString temporaryName(const QString &name) { return u'.' + name + u".txupdate-new"_s; }

bool isRemote(const QString &place) {
    // As in rclone: a colon before the first slash makes it a remote.
    const qsizetype colon = place.startsWith(u':') ? 0 : place.indexOf(u':');
    const qsizetype slash = place.indexOf(u'/');
    return colon >= 0 && (slash < 0 || colon < slash);
}

std::unique_ptr<Target> makeTarget(const QString &place) {
    return isRemote(place) ? makeRcloneTarget(place) : makeFolderTarget(place);
}

} // namespace tx::publishing
