// SPDX-License-Identifier: MIT
#include "tests/support/fakes.h"

#include "base/posixerror.h"

using namespace Qt::StringLiterals;

namespace tx::test {

namespace {

/// Writes until the disk of the test is full.
class LimitedFile final : public OutputFile {
public:
    using Check = std::function<TXError(const QString &operation, const QString &path)>;
    LimitedFile(std::unique_ptr<OutputFile> file, qint64 &space, QString path, Check check)
        : m_file(std::move(file))
        , m_space(space)
        , m_path(std::move(path))
        , m_check(std::move(check)) {}
    TXError write(QByteArrayView data) override {
        if (TXError error = m_check(u"write"_s, m_path))
            return error;
        if (m_space >= 0 && data.size() > m_space)
            return posixError(ENOSPC, u"Cannot write to"_s, m_path);
        if (m_space >= 0)
            m_space -= data.size();
        return m_file->write(data);
    }
    TXError sync() override {
        if (TXError error = m_check(u"syncFile"_s, m_path))
            return error;
        return m_file->sync();
    }

private:
    std::unique_ptr<OutputFile> m_file;
    qint64 &m_space;
    QString m_path;
    Check m_check;
};

class FinishedTask final : public Task {
public:
    explicit FinishedTask(QByteArray output, int status = 0)
        : m_output(std::move(output))
        , m_status(status) {}
    qint64 processIdentifier() const override { return 4711; }
    void closeInput() override {}
    QByteArray read() override { return std::exchange(m_output, {}); }
    std::optional<QByteArray> readWithin(std::chrono::milliseconds) override { return read(); }
    int wait() override { return m_status; }
    std::optional<int> waitWithin(std::chrono::milliseconds) override { return m_status; }
    void kill() override {}

private:
    QByteArray m_output;
    int m_status;
};

class CountedReference final : public AuthorizationReference {
public:
    explicit CountedReference(std::shared_ptr<int> count)
        : m_count(std::move(count)) {
        ++*m_count;
    }
    ~CountedReference() override { --*m_count; }
    Q_DISABLE_COPY_MOVE(CountedReference)

private:
    std::shared_ptr<int> m_count;
};

} // namespace

FaultFileSystem::FaultFileSystem()
    : m_before(services().fileSystem) {
    services().fileSystem = this;
}
FaultFileSystem::~FaultFileSystem() { services().fileSystem = m_before; }

void FaultFileSystem::failOn(const QString &operation, int number, const QString &part) {
    m_faults.insert(operation, {number, part});
}

TXError FaultFileSystem::failure(const QString &operation, const QString &path) const {
    if (observer)
        observer(operation, path);
    if (const int number = decide ? decide(operation, path) : 0)
        return posixError(number, u"Cannot "_s + operation, path);
    const auto fault = m_faults.find(operation);
    if (fault == m_faults.end() || !path.contains(fault->part))
        return {};
    return posixError(fault->number, u"Cannot "_s + operation, path);
}

bool FaultFileSystem::exists(const QString &path) const {
    return !failure(u"exists"_s, path) && m_before->exists(path);
}
bool FaultFileSystem::isWritable(const QString &path) const {
    return !failure(u"isWritable"_s, path) && m_before->isWritable(path);
}
bool FaultFileSystem::contentsCanBeExchanged(const QString &bundle, const QString &newBundle) const {
    return !failure(u"contentsCanBeExchanged"_s, bundle) &&
           m_before->contentsCanBeExchanged(bundle, newBundle);
}
Result<quint64> FaultFileSystem::fileSize(const QString &path) const { return m_before->fileSize(path); }
Result<QStringList> FaultFileSystem::list(const QString &path) const { return m_before->list(path); }
Result<QByteArray> FaultFileSystem::readFile(const QString &path) const {
    if (TXError error = failure(u"readFile"_s, path))
        return error;
    return m_before->readFile(path);
}
TXError FaultFileSystem::createDirectory(const QString &path, bool withIntermediates) {
    if (TXError error = failure(u"createDirectory"_s, path))
        return error;
    return m_before->createDirectory(path, withIntermediates);
}
TXError FaultFileSystem::checkPrivateDirectory(const QString &path) const {
    if (TXError error = failure(u"checkPrivateDirectory"_s, path))
        return error;
    return m_before->checkPrivateDirectory(path);
}
TXError FaultFileSystem::checkOwnFile(const QString &path) const {
    if (TXError error = failure(u"checkOwnFile"_s, path))
        return error;
    return m_before->checkOwnFile(path);
}
TXError FaultFileSystem::remove(const QString &path) {
    if (TXError error = failure(u"remove"_s, path))
        return error;
    return m_before->remove(path);
}
TXError FaultFileSystem::removeEmptyDirectory(const QString &path) {
    if (TXError error = failure(u"removeEmptyDirectory"_s, path))
        return error;
    return m_before->removeEmptyDirectory(path);
}
TXError FaultFileSystem::copy(const QString &from, const QString &to) {
    if (TXError error = failure(u"copy"_s, to))
        return error;
    return m_before->copy(from, to);
}
TXError FaultFileSystem::linkOrCopy(const QString &from, const QString &to) {
    if (TXError error = failure(u"copy"_s, to))
        return error;
    return m_before->linkOrCopy(from, to);
}
TXError FaultFileSystem::dropSpecialBits(const QString &path) {
    if (TXError error = failure(u"dropSpecialBits"_s, path))
        return error;
    return m_before->dropSpecialBits(path);
}
TXError FaultFileSystem::syncFolder(const QString &path) {
    if (TXError error = failure(u"syncFolder"_s, path))
        return error;
    return m_before->syncFolder(path);
}
TXError FaultFileSystem::rename(const QString &from, const QString &to) {
    if (TXError error = failure(u"rename"_s, to))
        return error;
    return m_before->rename(from, to);
}
TXError FaultFileSystem::exchange(const QString &a, const QString &b) {
    if (TXError error = failure(u"exchange"_s, b))
        return error;
    return m_before->exchange(a, b);
}
TXError FaultFileSystem::move(const QString &from, const QString &to) {
    if (TXError error = failure(u"move"_s, to))
        return error;
    return m_before->move(from, to);
}
TXError FaultFileSystem::sync(const QString &path) {
    if (TXError error = failure(u"sync"_s, path))
        return error;
    return m_before->sync(path);
}
Result<std::unique_ptr<OutputFile>> FaultFileSystem::create(const QString &path) {
    if (TXError error = failure(u"create"_s, path))
        return error;
    Result<std::unique_ptr<OutputFile>> file = m_before->create(path);
    if (!file)
        return file;
    return std::unique_ptr<OutputFile>(new LimitedFile(
        std::move(*file), spaceLeft, path,
        [this](const QString &operation, const QString &changed) { return failure(operation, changed); }));
}
TXError FaultFileSystem::writeNewFile(const QString &path, QByteArrayView content) {
    if (TXError error = failure(u"create"_s, path))
        return error;
    return m_before->writeNewFile(path, content);
}
TXError FaultFileSystem::replaceFile(const QString &path, QByteArrayView content, int mode) {
    if (TXError error = failure(u"replaceFile"_s, path))
        return error;
    return m_before->replaceFile(path, content, mode);
}
TXError FaultFileSystem::removeExtendedAttribute(const QString &path, const QByteArray &name) {
    if (TXError error = failure(u"removeExtendedAttribute"_s, path))
        return error;
    return m_before->removeExtendedAttribute(path, name);
}
Result<std::unique_ptr<FileLock>> FaultFileSystem::tryLock(const QString &path) {
    if (TXError error = failure(u"tryLock"_s, path))
        return error;
    return m_before->tryLock(path);
}
Result<std::unique_ptr<FileLock>> FaultFileSystem::lockApplication(const QString &bundlePath) {
    if (TXError error = failure(u"lockApplication"_s, bundlePath))
        return error;
    return m_before->lockApplication(bundlePath);
}
TXError FaultFileSystem::undoInterruption(const QString &bundlePath) {
    if (TXError error = failure(u"undoInterruption"_s, bundlePath))
        return error;
    return m_before->undoInterruption(bundlePath);
}
Result<std::unique_ptr<FileLock>> FaultFileSystem::lock(const QString &path) {
    if (TXError error = failure(u"lock"_s, path))
        return error;
    return m_before->lock(path);
}

RecordingTasks::RecordingTasks()
    : m_before(services().tasks) {
    services().tasks = this;
}
RecordingTasks::~RecordingTasks() { services().tasks = m_before; }

Result<std::unique_ptr<Task>> RecordingTasks::start(const TaskRequest &request) {
    started.append(request);
    if (const int number = failing(request))
        return posixError(number, u"Cannot start"_s, request.program);
    if (runsForReal)
        return m_before->start(request);
    const bool isInstaller = request.program.endsWith(u"/TXUpdateInstaller"_s);
    return std::unique_ptr<Task>(new FinishedTask(isInstaller ? QByteArray("ready\n") : QByteArray()));
}

RecordingWorkspace::RecordingWorkspace()
    : m_before(services().workspace) {
    services().workspace = this;
}
RecordingWorkspace::~RecordingWorkspace() { services().workspace = m_before; }

TXError RecordingWorkspace::openUrl(const QUrl &url) {
    opened.append(url.toString());
    return {};
}
TXError RecordingWorkspace::openFile(const QString &path) {
    opened.append(path);
    return {};
}
TXError RecordingWorkspace::reveal(const QString &path) {
    revealed.append(path);
    return {};
}
Result<QString> RecordingWorkspace::moveToTrash(const QString &path, const QString &original) {
    if (trashFails)
        return posixError(EIO, u"Cannot move to the Trash"_s, path);
    trashed.append(original);
    return m_before->moveToTrash(path, original);
}
QStringList RecordingWorkspace::runningExecutables() const {
    return m_before->runningExecutables() + running;
}
QList<qint64> RecordingWorkspace::runningApplications(const QString &executablePath) const {
    return m_before->runningApplications(executablePath);
}
void RecordingWorkspace::terminate() { ++terminations; }
bool RecordingWorkspace::isBackgroundApplication() const { return background; }

ScriptedAuthorization::ScriptedAuthorization()
    : m_before(services().authorization) {
    services().authorization = this;
}
ScriptedAuthorization::~ScriptedAuthorization() { services().authorization = m_before; }

int ScriptedAuthorization::create(const QList<AuthorizationItem> &environment, unsigned flags,
                                  std::unique_ptr<AuthorizationReference> &reference) {
    calls.append(u"create %1"_s.arg(flags));
    lastEnvironment = environment;
    reference = std::make_unique<CountedReference>(livingReferences);
    return createStatuses.size() > 1 ? createStatuses.takeFirst() : createStatuses.first();
}
int ScriptedAuthorization::copyRights(AuthorizationReference &, const QList<AuthorizationItem> &rights,
                                      const QList<AuthorizationItem> &environment, unsigned flags,
                                      QList<AuthorizationItem> *authorized) {
    calls.append(u"copyRights"_s);
    rightsEnvironment = environment;
    lastRights = rights;
    rightsFlags = flags;
    if (authorized)
        *authorized = grants;
    return rightsStatus;
}
int ScriptedAuthorization::executeWithPrivileges(AuthorizationReference &, const AuthorizedJob &begun,
                                                 unsigned flags, std::unique_ptr<Task> &task) {
    calls.append(u"execute %1"_s.arg(flags));
    job = begun.words;
    jobArchive = QByteArray();
    if (begun.archive >= 0) {
        jobArchive = QByteArray(1 << 20, Qt::Uninitialized);
        const ssize_t count = pread(begun.archive, jobArchive.data(), size_t(jobArchive.size()), 0);
        jobArchive.truncate(std::max<ssize_t>(0, count));
    }
    if (executeStatus == 0)
        task = std::make_unique<FinishedTask>(jobSays, jobStatus);
    return executeStatus;
}
void ScriptedAuthorization::free(std::unique_ptr<AuthorizationReference>, unsigned flags) {
    calls.append(u"free %1"_s.arg(flags));
}

} // namespace tx::test
