// SPDX-License-Identifier: MIT
#include "os/packageowner.h"

#include "os/taskoutput.h"
#include "posix/packagedatabases.h"

#include <QFile>
#include <QProcessEnvironment>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Runs rpm. Only the shell's exit status for a program that cannot be run is a failure.
std::string runRpm(const QString &program, const std::vector<std::string> &words, std::string &output) {
    TaskRequest request{
        .program = u"/bin/sh"_s,
        .arguments = {u"-c"_s, u"\"$0\" \"$@\" 2>&1; test $? -lt 126"_s, program},
    };
    for (const std::string &word : words)
        request.arguments << QFile::decodeName(word.c_str());
    QStringList environment = QProcessEnvironment::systemEnvironment().toStringList();
    environment.removeIf([](const QString &v) { return v.startsWith(u"LC_ALL="_s); });
    request.environment = environment << u"LC_ALL=C"_s;
    const std::optional<QByteArray> answer = outputOf(request);
    if (!answer)
        return QFile::encodeName(program).toStdString() + " cannot be run, or takes too long.";
    output = answer->toStdString();
    return {};
}

using OwnerFunction = BundleOwner (*)(const PackageFolders &, const std::string &, const RpmRunner &);

Result<std::optional<PackageOwner>> ask(OwnerFunction ownerOf, const QString &path) {
    const PackageDatabases &databases = packageDatabases();
    PackageFolders folders{QFile::encodeName(databases.dpkg).toStdString(), {}};
    for (const QString &folder : databases.rpm)
        folders.rpm.push_back(QFile::encodeName(folder).toStdString());
    const BundleOwner owner = ownerOf(folders, QFile::encodeName(path).toStdString(),
                                      [&](const std::vector<std::string> &words, std::string &output) {
                                          return runRpm(databases.rpmProgram, words, output);
                                      });
    const QString manager = QString::fromStdString(owner.manager);
    if (!owner.failure.empty())
        return TXError(u"TXUpdater"_s, 0, u"The database of %1 cannot be read."_s.arg(manager),
                       QFile::decodeName(owner.failure.c_str()));
    if (owner.package.empty())
        return std::optional<PackageOwner>();
    return std::optional(PackageOwner{manager, QString::fromStdString(owner.package)});
}

} // namespace

PackageDatabases &packageDatabases() {
    static PackageDatabases databases;
    return databases;
}

Result<std::optional<PackageOwner>> packageOwnerOf(const QString &bundlePath) {
    return ask(ownerOfBundle, bundlePath);
}

Result<std::optional<PackageOwner>> packageOwnerOfEntry(const QString &path) {
    return ask(ownerOfEntry, path);
}

} // namespace tx
