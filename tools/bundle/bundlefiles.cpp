// SPDX-License-Identifier: MIT
#include "bundle/bundlefiles.h"

#include "bundle/problem.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

namespace fs = std::filesystem;

fs::path pathOf(const QString &path) { return fs::path(QFile::encodeName(path).toStdString()); }

TXError failed(const QString &what, const QString &path, int number) {
    return number == 0 ? TXError() : problem(what.arg(path), QString::fromUtf8(std::strerror(number)));
}

class NativeBundleFiles final : public BundleFiles {
public:
    TXError makeFolder(const QString &path) override {
        fs::path made;
        for (const fs::path &part : pathOf(path)) {
            made /= part;
            std::error_code error;
            if (fs::is_directory(made, error))
                continue;
            // The umask of the publisher must not restrict the mode.
            if (mkdir(made.c_str(), 0755) != 0 || chmod(made.c_str(), 0755) != 0)
                return failed(u"%1 cannot be made"_s, path, errno);
        }
        return {};
    }
    TXError copyFile(const QString &from, const QString &to) override {
        std::error_code error;
        fs::copy_file(pathOf(from), pathOf(to), error);
        struct stat info {};
        if (!error && stat(pathOf(from).c_str(), &info) != 0)
            error = std::error_code(errno, std::generic_category());
        if (!error && chmod(pathOf(to).c_str(), (info.st_mode & S_IXUSR) != 0 ? 0755 : 0644) != 0)
            error = std::error_code(errno, std::generic_category());
        return failed(u"%1 cannot be copied to %2"_s.arg(from), to, error.value());
    }
    TXError writeFile(const QString &path, const QByteArray &content) override {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) || file.write(content) != content.size() ||
            !file.flush())
            return problem(u"%1 cannot be written"_s.arg(path), file.errorString());
        return failed(u"%1 cannot be made readable"_s, path, fchmod(file.handle(), 0644) == 0 ? 0 : errno);
    }
    TXError makeLink(const QString &path, const QString &target) override {
        std::error_code error;
        fs::create_symlink(pathOf(target), pathOf(path), error);
        return failed(u"the link %1 cannot be made"_s, path, error.value());
    }
    TXError rename(const QString &from, const QString &to) override {
        const int status =
            renameat2(AT_FDCWD, pathOf(from).c_str(), AT_FDCWD, pathOf(to).c_str(), RENAME_NOREPLACE);
        return failed(u"%1 cannot be renamed to %2"_s.arg(from), to, status == 0 ? 0 : errno);
    }
    TXError remove(const QString &path) override {
        std::error_code error;
        fs::remove_all(pathOf(path), error);
        return failed(u"%1 cannot be removed"_s, path, error.value());
    }
};

} // namespace

BundleFiles &nativeBundleFiles() {
    static NativeBundleFiles files;
    return files;
}

} // namespace tx::bundling
