// SPDX-License-Identifier: MIT
#pragma once

#include "installer/installer.h"
#include "posix/openbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"
#include "tests/tools/installer/stepfiles.h"

#include <QDir>
#include <QProcess>

#include <functional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::test {

using namespace Qt::StringLiterals;

/// The identifier of a process that has ended.
inline QString endedProcess() {
    QProcess process;
    process.start(u"true"_s, {});
    process.waitForStarted();
    const qint64 pid = process.processId();
    process.waitForFinished();
    return QString::number(pid);
}

/// A process that an installer takes for its host, until end() or the end of the test.
class RunningHost {
public:
    RunningHost() {
        m_process.start(u"sleep"_s, {u"1000"_s});
        EXPECT_TRUE(m_process.waitForStarted());
    }
    ~RunningHost() { end(); }
    Q_DISABLE_COPY_MOVE(RunningHost)

    [[nodiscard]] QString identifier() const { return QString::number(m_process.processId()); }
    [[nodiscard]] bool isRunning() const { return m_process.state() == QProcess::Running; }
    void end() {
        m_process.kill();
        m_process.waitForFinished();
    }

private:
    QProcess m_process;
};

class InstallerTool : public FrameworkTest {
protected:
    const QString folder = path(u"Applications"_s);
    const QString app = folder + u"/My \"App\" it's.app"_s;
    const QString fresh = path(u"cache/New.app"_s);
    const QString archive = path(u"cache/New - 2.zip"_s);
    QStringList oldTree;
    QStringList newTree;

    /// The folder around the application is somebody else's.
    bool inPlace = false;

    InstallerTool() {
        QDir(folder).removeRecursively();
        prepare();
    }
    ~InstallerTool() override { chmod(QFile::encodeName(folder).constData(), 0755); }
    void prepare() {
        chmod(QFile::encodeName(folder).constData(), 0755);
        QDir(path(u"cache"_s)).removeRecursively();
        QDir(folder).removeRecursively();
        makeBundle(app, {.build = u"1"_s, .program = program("old")});
        writeFile(app + u"/Contents/Resources/only-old"_s, "x");
        makeBundle(fresh, {.build = u"2"_s, .program = program("new")});
        writeFile(fresh + u"/Contents/Resources/data"_s, QByteArray(50000, 'n'));
        EXPECT_EQ(symlink("data", (fresh + u"/Contents/Resources/link"_s).toUtf8().constData()), 0);
        writeFile(archive, "archive");
        oldTree = treeOf(inPlace ? app + u"/Contents"_s : app);
        newTree = treeOf(inPlace ? fresh + u"/Contents"_s : fresh);
        if (inPlace)
            closeFolder();
    }
    /// Only the application and what is to be installed belong to the user as whom the installer runs then.
    void closeFolder() {
        if (geteuid() == 0) {
            (void)tx::posix::changeOwner(path(u""_s).toStdString(), 65534, 65534);
            (void)chown(QFile::encodeName(folder).constData(), 0, 0);
        }
        EXPECT_EQ(chmod(QFile::encodeName(folder).constData(), geteuid() == 0 ? 0755 : 0555), 0);
    }
    /// Runs a program as the user to whom the application belongs.
    static ProcessResult runAsUser(const QString &program, const QStringList &words) {
        if (geteuid() != 0)
            return runProcess(program, words);
        return runProcess(u"setpriv"_s,
                          QStringList{u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, program} +
                              words);
    }
    QByteArray program(const QByteArray &mark) const {
        return "#!/bin/sh\necho " + mark + " $MARK > '" + path(u"ran"_s).toUtf8() + "'\n";
    }
    QStringList arguments(const QString &process) const { return {process, fresh, app, archive}; }
    static QString tool() {
        return tx::test::resourcesFolder() + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s;
    }
    ProcessResult runTool(const QStringList &words) const { return runProcess(tool(), words); }
    ProcessResult drive(const QString &mode, int call) const {
        const QString driver = tx::test::helpersFolder() + u"/installer_fault_driver"_s;
        const QStringList words = QStringList{mode, QString::number(call)} + arguments(endedProcess());
        return inPlace ? runAsUser(driver, words) : runProcess(driver, words);
    }
    QStringList tree() const { return treeOf(inPlace ? app + u"/Contents"_s : app); }
    bool isOld() const { return tree() == oldTree; }
    bool isNew() const { return tree() == newTree; }
    QStringList strays() const {
        QStringList names = namesIn(folder);
        names.removeOne(QFileInfo(app).fileName());
        if (inPlace)
            names += namesIn(app);
        names.removeOne(u"Contents"_s);
        return names;
    }
    QByteArray ran() const { return readFile(path(u"ran"_s)).trimmed(); }
};

/// A file system that fails where a test says.
class HookedFiles final : public StepFiles {
public:
    /// The errno value for a change, by its name and place; 0 does it.
    std::function<int(const std::string &, const std::string &)> decide;

private:
    FileError step(const Step &step, const std::function<FileError()> &work) override {
        const int number = decide ? decide(step.name, step.place) : 0;
        return number != 0 ? FileError{number, step.place} : work();
    }
};

/// Installations in this process.
class InstallerSteps : public InstallerTool {
protected:
    std::string log;
    int opened = 0;
    HookedFiles files;
    tx::installer::Session session;
    QString
        verified; ///< the update that root has verified and unpacked, installed in place of the user's copy

    InstallerSteps() {
        session.user = getuid();
        session.group = getgid();
    }
    int install(tx::installer::Rights &rights = tx::installer::processRights(), const QString &from = {}) {
        tx::installer::Context context{.files = &files, .rights = &rights};
        context.session = session;
        context.log = [this](const std::string &line) { log += line + '\n'; };
        context.open = [this](const std::string &, const tx::installer::Session &) {
            ++opened;
            return std::string();
        };
        if (!verified.isNull())
            context.unpackedByUser = fresh.toStdString();
        log.clear();
        opened = 0;
        const QString &installed = verified.isNull() ? fresh : verified;
        return tx::installer::install({static_cast<pid_t>(endedProcess().toInt()), installed.toStdString(),
                                       app.toStdString(), (from.isNull() ? archive : from).toStdString()},
                                      context);
    }
    bool freshIsThere() const { return treeOf(fresh) == newTree && QFileInfo::exists(archive); }
};

} // namespace tx::test
