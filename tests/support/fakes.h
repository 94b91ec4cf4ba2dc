// SPDX-License-Identifier: MIT
#pragma once

#include "os/authorization.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "os/tasks.h"
#include "os/workspace.h"

#include <QMap>

#include <functional>

namespace tx::test {

/// Passes everything on to the real file system, except what a test makes fail.
class FaultFileSystem : public FileSystem {
public:
    FaultFileSystem();
    ~FaultFileSystem() override;
    Q_DISABLE_COPY_MOVE(FaultFileSystem)

    /// Makes the named operation fail with this errno, on paths that contain `part`.
    void failOn(const QString &operation, int number, const QString &part = {});
    /// Bytes that may still be written before the disk is full; negative: no limit.
    qint64 spaceLeft = -1;
    /// Asked before each operation: the errno with which it fails, or 0.
    std::function<int(const QString &operation, const QString &path)> decide;
    /// Called before the named operation.
    std::function<void(const QString &operation, const QString &path)> observer;

    bool exists(const QString &path) const override;
    bool isWritable(const QString &path) const override;
    bool contentsCanBeExchanged(const QString &bundle, const QString &newBundle) const override;
    Result<quint64> fileSize(const QString &path) const override;
    Result<QStringList> list(const QString &path) const override;
    Result<QByteArray> readFile(const QString &path) const override;
    TXError createDirectory(const QString &path, bool withIntermediates) override;
    TXError checkPrivateDirectory(const QString &path) const override;
    TXError checkOwnFile(const QString &path) const override;
    TXError remove(const QString &path) override;
    TXError removeEmptyDirectory(const QString &path) override;
    TXError copy(const QString &from, const QString &to) override;
    TXError linkOrCopy(const QString &from, const QString &to) override;
    TXError dropSpecialBits(const QString &path) override;
    TXError move(const QString &from, const QString &to) override;
    TXError rename(const QString &from, const QString &to) override;
    TXError exchange(const QString &a, const QString &b) override;
    TXError sync(const QString &path) override;
    TXError syncFolder(const QString &path) override;
    Result<std::unique_ptr<OutputFile>> create(const QString &path) override;
    TXError writeNewFile(const QString &path, QByteArrayView content) override;
    TXError replaceFile(const QString &path, QByteArrayView content, int mode) override;
    TXError removeExtendedAttribute(const QString &path, const QByteArray &name) override;
    Result<std::unique_ptr<FileLock>> lock(const QString &path) override;
    Result<std::unique_ptr<FileLock>> tryLock(const QString &path) override;
    Result<std::unique_ptr<FileLock>> lockApplication(const QString &bundlePath) override;
    TXError undoInterruption(const QString &bundlePath) override;

private:
    TXError failure(const QString &operation, const QString &path) const;
    struct Fault {
        int number;
        QString part;
    };
    QMap<QString, Fault> m_faults;
    FileSystem *m_before;
};

/// Records what is started. Runs it for real only when told to; an installer tool that is not run is ready.
class RecordingTasks : public Tasks {
public:
    RecordingTasks();
    ~RecordingTasks() override;
    Q_DISABLE_COPY_MOVE(RecordingTasks)

    Result<std::unique_ptr<Task>> start(const TaskRequest &request) override;

    QList<TaskRequest> started;
    /// The errno of a start that fails, by program; 0 lets it succeed.
    std::function<int(const TaskRequest &)> failing = [](const TaskRequest &) { return 0; };
    bool runsForReal = false;

private:
    Tasks *m_before;
};

/// Records what the desktop is asked to do.
class RecordingWorkspace : public Workspace {
public:
    RecordingWorkspace();
    ~RecordingWorkspace() override;
    Q_DISABLE_COPY_MOVE(RecordingWorkspace)

    TXError openUrl(const QUrl &url) override;
    TXError openFile(const QString &path) override;
    TXError reveal(const QString &path) override;
    Result<QString> moveToTrash(const QString &path, const QString &original) override;
    QList<qint64> runningApplications(const QString &executablePath) const override;
    QStringList runningExecutables() const override;
    void terminate() override;
    bool isBackgroundApplication() const override;

    QStringList opened;
    QStringList revealed;
    QStringList running; ///< executables, beside the real ones
    QStringList trashed; ///< by the names that they had
    bool trashFails = false;
    int terminations = 0;
    bool background = false;

private:
    Workspace *m_before;
};

/// Answers every step with a status that the test chose.
class ScriptedAuthorization : public Authorization {
public:
    ScriptedAuthorization();
    ~ScriptedAuthorization() override;
    Q_DISABLE_COPY_MOVE(ScriptedAuthorization)

    int create(const QList<AuthorizationItem> &environment, unsigned flags,
               std::unique_ptr<AuthorizationReference> &reference) override;
    int copyRights(AuthorizationReference &reference, const QList<AuthorizationItem> &rights,
                   const QList<AuthorizationItem> &environment, unsigned flags,
                   QList<AuthorizationItem> *authorized) override;
    int executeWithPrivileges(AuthorizationReference &reference, const AuthorizedJob &job, unsigned flags,
                              std::unique_ptr<Task> &task) override;
    bool canExecute() const override { return executes; }
    void free(std::unique_ptr<AuthorizationReference> reference, unsigned flags) override;

    QList<int> createStatuses{0}; ///< answered in order, the last one for good
    int rightsStatus = 0;
    int executeStatus = 0;
    bool executes = true;           ///< whether privileged execution is there at all
    QByteArray jobSays = "ready\n"; ///< what the job writes before it ends
    int jobStatus = 0;              ///< with which it ends
    QStringList job;                ///< the words of the last job
    QByteArray jobArchive;          ///< content of the archive's descriptor; null if there is none
    QStringList calls;
    QList<AuthorizationItem> lastEnvironment;
    QList<AuthorizationItem> rightsEnvironment; ///< the environment of the request for rights
    QList<AuthorizationItem> lastRights;
    QList<AuthorizationItem> grants;
    unsigned rightsFlags = 0;
    /// How many were made and neither freed nor dropped; one may outlive this object.
    std::shared_ptr<int> livingReferences = std::make_shared<int>(0);

private:
    Authorization *m_before;
};

} // namespace tx::test
