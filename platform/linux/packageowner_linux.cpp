// SPDX-License-Identifier: MIT
#include "platform/packageowner.h"

#include "platform/linux/dpkgdatabase.h"
#include "platform/taskoutput.h"

#include <TarvixUpdate/TXBundle.h>

#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

using Answer = Result<std::optional<PackageOwner>>;

TXError unreadable(const QString &manager, const QString &reason) {
    return TXError(u"TXUpdater"_s, 0, u"The database of %1 cannot be read."_s.arg(manager), reason);
}

/// Whether rpm has a database in one of these folders, or an error when that cannot be told.
Result<bool> rpmHasDatabase(const QStringList &folders) {
    for (const QString &folder : folders) {
        for (const QString &name : {u"/rpmdb.sqlite"_s, u"/Packages.db"_s, u"/Packages"_s}) {
            struct stat info {};
            if (stat(QFile::encodeName(folder + name).constData(), &info) == 0)
                return true;
            if (errno != ENOENT && errno != ENOTDIR)
                return unreadable(u"rpm"_s,
                                  folder + name + u": "_s + QString::fromLocal8Bit(std::strerror(errno)));
        }
    }
    return false;
}

Answer rpmOwnerOf(const QString &program, const QString &bundlePath) {
    QStringList paths{bundlePath};
    const TXBundle bundle(bundlePath);
    for (const QString &path :
         {bundle.contentsPath(), bundle.contentsPath() + u"/Info.plist"_s, bundle.executablePath()}) {
        if (!path.isEmpty() && path != bundlePath && QFileInfo::exists(path))
            paths << path;
    }
    // Its status is the number of files that belong to no package: only the shell's own words for a program
    // that cannot be run are a failure. What it says beside the answers, to either output, makes them
    // doubtful.
    TaskRequest request{.program = u"/bin/sh"_s,
                        .arguments = QStringList{u"-c"_s, u"\"$0\" \"$@\" 2>&1; test $? -lt 126"_s, program,
                                                 u"-qf"_s, u"--queryformat"_s, u"owner %{NAME}\n"_s} +
                                     paths};
    QStringList environment = QProcessEnvironment::systemEnvironment().toStringList();
    environment.removeIf([](const QString &v) { return v.startsWith(u"LC_ALL="_s); });
    request.environment = environment << u"LC_ALL=C"_s;
    const std::optional<QByteArray> output = outputOf(request);
    if (!output)
        return unreadable(u"rpm"_s, u"%1 cannot be run, or takes too long."_s.arg(program));
    const QList<QByteArray> lines = output->trimmed().split('\n');
    std::optional<PackageOwner> owner;
    for (const QByteArray &line : lines) {
        if (line.startsWith("owner ")) {
            if (!owner)
                owner = PackageOwner{u"rpm"_s, QString::fromUtf8(line.mid(6))};
        } else if (!line.startsWith("file ") || !line.endsWith(" is not owned by any package")) {
            return unreadable(u"rpm"_s, QString::fromLocal8Bit(line));
        }
    }
    if (lines.size() < paths.size())
        return unreadable(u"rpm"_s, u"%1 does not answer."_s.arg(program));
    return owner;
}

} // namespace

PackageDatabases &packageDatabases() {
    static PackageDatabases databases;
    return databases;
}

Answer packageOwnerOf(const QString &bundlePath) {
    const PackageDatabases &databases = packageDatabases();
    const DpkgAnswer dpkg = dpkgOwnerOf(QFile::encodeName(databases.dpkg).toStdString(),
                                        QFile::encodeName(bundlePath).toStdString());
    if (!dpkg.failure.empty())
        return unreadable(u"dpkg"_s, QFile::decodeName(dpkg.failure.c_str()));
    if (!dpkg.package.empty())
        return std::optional(PackageOwner{u"dpkg"_s, QString::fromStdString(dpkg.package)});
    const Result<bool> hasRpm = rpmHasDatabase(databases.rpm);
    if (!hasRpm)
        return hasRpm.error();
    return *hasRpm ? rpmOwnerOf(databases.rpmProgram, bundlePath) : Answer(std::optional<PackageOwner>());
}

} // namespace tx
