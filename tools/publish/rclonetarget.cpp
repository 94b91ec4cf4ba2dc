// SPDX-License-Identifier: MIT
#include "publish/target.h"

#include "os/services.h"
#include "os/tasks.h"
#include "publish/faults.h"
#include "publish/feeddocument.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

/// Exit statuses of rclone.
constexpr int doneStatus = 0;
constexpr int noFolderStatus = 3;
constexpr int noFileStatus = 4;

const QString uploading = u"upload to"_s;

struct Ended {
    int status = 0;
    QByteArray output;
    QString errors;
};

class RcloneTarget final : public Target {
public:
    explicit RcloneTarget(const QString &remote)
        : m_remote(remote.endsWith(u':') || remote.endsWith(u'/') ? remote : remote + u'/') {}

    QString description() const override { return m_remote; }

    Verdict occupy() override {
        // The first call shows whether the program and the remote exist, and returns the remote's features.
        const Outcome<Ended> ended = run({u"backend"_s, u"features"_s, m_remote});
        if (!ended)
            return ended.fault();
        if (ended->status != doneStatus)
            return faultOf(u"reach"_s, *ended);
        const QJsonObject all = QJsonDocument::fromJson(ended->output).object();
        const QJsonObject features = all.value(u"Features"_s).toObject();
        // Object stores and HTTP servers replace a file atomically at the end of the upload. Newer versions
        // of rclone do so for all remotes that can rename files.
        m_replacesAtOnce = features.value(u"BucketBased"_s).toBool() ||
                           features.value(u"PartialUploads"_s).toBool() ||
                           all.value(u"String"_s).toString().startsWith(u"webdav"_s);
        return std::nullopt;
    }

    Outcome<std::optional<quint64>> sizeOf(const QString &name) override {
        const Outcome<Ended> ended = run({u"lsjson"_s, u"--stat"_s, m_remote + name});
        if (!ended)
            return ended.fault();
        if (ended->status == noFolderStatus || ended->status == noFileStatus)
            return std::optional<quint64>();
        const QJsonObject file = QJsonDocument::fromJson(ended->output).object();
        if (ended->status != doneStatus)
            return faultOf(u"look at"_s, *ended);
        // Old versions print null for a missing file. An object store has no folders.
        if (file.isEmpty() || file.value(u"IsDir"_s).toBool())
            return std::optional<quint64>();
        return std::optional(quint64(file.value(u"Size"_s).toInteger()));
    }

    Outcome<FetchedFile> digestOf(const QString &name, Progress &progress) override {
        Outcome<std::unique_ptr<Task>> task = start({u"cat"_s, m_remote + name});
        if (!task)
            return task.fault();
        trust::DigestStream stream;
        for (QByteArray bytes = (*task)->read(); !bytes.isEmpty(); bytes = (*task)->read()) {
            stream.add(bytes.constData(), size_t(bytes.size()));
            progress.add(bytes.size());
        }
        Ended ended{(*task)->wait(), {}, {}};
        ended.errors = (*task)->errorText();
        if (ended.status != doneStatus)
            return faultOf(u"read"_s, ended);
        return FetchedFile{stream.size(), stream.digest()};
    }

    Verdict get(const QString &name, const QString &localPath, Progress &progress) override {
        return copy(u"download from"_s, m_remote + name, localPath, &progress);
    }

    Outcome<StoredFeed> readFeed(const QString &name) override {
        Outcome<std::optional<QByteArray>> feed = read(name);
        if (!feed)
            return feed.fault();
        if (*feed || m_replacesAtOnce)
            return StoredFeed{*feed};
        // An earlier run may have been killed after it removed the old feed and before it renamed the new
        // one.
        Outcome<std::optional<QByteArray>> other = read(temporaryName(name));
        if (!other)
            return other.fault();
        const bool isFeed = *other && FeedDocument::parse(**other);
        if (!isFeed)
            return StoredFeed();
        return StoredFeed{*other, true};
    }

    Verdict put(const QString &localPath, const QString &name, Progress &progress) override {
        return copy(uploading, localPath, m_remote + name, &progress);
    }

    Verdict replaceFeed(const QString &name, const QByteArray &content) override {
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"feed"_s));
        if (!folder.isValid() || !file.open(QIODevice::WriteOnly) || file.write(content) != content.size() ||
            !file.flush())
            return Fault{FaultKind::File,
                         "a temporary file cannot be written: " + file.errorString().toStdString() +
                             ". Set TMPDIR to a folder that you can write to"};
        if (m_replacesAtOnce)
            return copy(uploading, file.fileName(), m_remote + name, nullptr);
        if (const Verdict failed = copy(uploading, file.fileName(), m_remote + temporaryName(name), nullptr))
            return failed;
        const Outcome<Ended> ended = run({u"moveto"_s, m_remote + temporaryName(name), m_remote + name});
        if (!ended)
            return ended.fault();
        if (ended->status != doneStatus)
            return faultOf(u"replace the feed at"_s, *ended);
        return std::nullopt;
    }

    Verdict remove(const QString &name) override {
        const Outcome<Ended> ended = run({u"deletefile"_s, m_remote + name});
        if (!ended)
            return ended.fault();
        if (ended->status != doneStatus && ended->status != noFolderStatus && ended->status != noFileStatus)
            return faultOf(u"remove a file from"_s, *ended);
        return std::nullopt;
    }

private:
    [[nodiscard]] Fault faultOf(const QString &action, const Ended &ended) const {
        return {FaultKind::File,
                u"rclone cannot %1 %2: %3 (status %4)"_s
                    .arg(action, m_remote, ended.errors.isEmpty() ? u"it does not say why"_s : ended.errors)
                    .arg(ended.status)
                    .toStdString()};
    }

    static Outcome<std::unique_ptr<Task>> start(const QStringList &words) {
        TaskRequest request{
            .program = u"rclone"_s, .arguments = words, .readsOutput = true, .keepsErrors = true};
        Result<std::unique_ptr<Task>> task = services().tasks->start(request);
        if (!task && task.error().code() == ENOENT)
            return Fault{FaultKind::File, "this target needs the program rclone, which is not in PATH. "
                                          "Install it (package rclone), or publish to a folder"};
        if (!task)
            return Fault{FaultKind::File, task.error().localizedDescription().toStdString()};
        return std::move(*task);
    }

    static Outcome<Ended> run(const QStringList &words) {
        Outcome<std::unique_ptr<Task>> task = start(words);
        if (!task)
            return task.fault();
        Ended result;
        for (QByteArray bytes = (*task)->read(); !bytes.isEmpty(); bytes = (*task)->read())
            result.output += bytes;
        result.status = (*task)->wait();
        result.errors = (*task)->errorText();
        return result;
    }

    Outcome<std::optional<QByteArray>> read(const QString &name) {
        const Outcome<Ended> ended = run({u"cat"_s, m_remote + name});
        if (!ended)
            return ended.fault();
        if (ended->status == noFolderStatus || ended->status == noFileStatus)
            return std::optional<QByteArray>();
        if (ended->status != doneStatus)
            return faultOf(u"read"_s, *ended);
        if (ended->output.isEmpty()) {
            // Some remotes return an empty file for a missing one.
            const Outcome<std::optional<quint64>> size = sizeOf(name);
            if (!size)
                return size.fault();
            if (!*size)
                return std::optional<QByteArray>();
        }
        return std::optional(ended->output);
    }

    /// `action` describes the operation in an error message.
    Verdict copy(const QString &action, const QString &from, const QString &to, Progress *progress) {
        // The existing file may have the same size and time and yet different content.
        QStringList words{u"copyto"_s, u"--ignore-times"_s, from, to};
        if (progress)
            words << u"--use-json-log"_s << u"--log-level"_s << u"INFO"_s << u"--stats"_s << u"500ms"_s
                  << u"--log-file"_s << u"/dev/stdout"_s;
        Outcome<std::unique_ptr<Task>> task = start(words);
        if (!task)
            return task.fault();
        QByteArray rest;
        QString lastError;
        for (QByteArray bytes = (*task)->read(); !bytes.isEmpty(); bytes = (*task)->read()) {
            rest += bytes;
            for (qsizetype end = rest.indexOf('\n'); end >= 0; end = rest.indexOf('\n')) {
                const QJsonObject line = QJsonDocument::fromJson(rest.left(end)).object();
                rest.remove(0, end + 1);
                if (progress && line.contains(u"stats"_s))
                    progress->show(line.value(u"stats"_s).toObject().value(u"bytes"_s).toInteger());
                if (line.value(u"level"_s).toString() == u"error")
                    lastError = line.value(u"msg"_s).toString();
            }
        }
        Ended ended{(*task)->wait(), {}, {}};
        ended.errors = (*task)->errorText();
        if (ended.status == doneStatus)
            return std::nullopt;
        if (ended.errors.isEmpty())
            ended.errors = lastError.isEmpty() ? QString::fromUtf8(rest.trimmed().right(500)) : lastError;
        return faultOf(action, ended);
    }

    const QString m_remote;
    bool m_replacesAtOnce = false;
};

} // namespace

std::unique_ptr<Target> makeRcloneTarget(const QString &remote) {
    return std::make_unique<RcloneTarget>(remote);
}

} // namespace tx::publishing
