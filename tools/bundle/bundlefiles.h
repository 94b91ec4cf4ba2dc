// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArray>
#include <QString>

namespace tx::bundling {

/// All changes that the bundle command makes to the file system. Tests replace this class to make any of them
/// fail. Everybody can read the files that it creates. Errors name the path and the reason.
class BundleFiles {
public:
    virtual ~BundleFiles() = default;
    /// Makes a folder and its parent folders with mode 0755. An existing folder is not an error.
    virtual TXError makeFolder(const QString &path) = 0;
    /// Copies a file's content to a new file. Its mode is 0755 if the owner may execute the original, else
    /// 0644.
    virtual TXError copyFile(const QString &from, const QString &to) = 0;
    /// Writes a new file with mode 0644.
    virtual TXError writeFile(const QString &path, const QByteArray &content) = 0;
    virtual TXError makeLink(const QString &path, const QString &target) = 0;
    /// Renames an entry. It is an error if the new name exists.
    virtual TXError rename(const QString &from, const QString &to) = 0;
    /// Removes a file, link or tree. A missing one is not an error.
    virtual TXError remove(const QString &path) = 0;
};

/// The file system of this machine.
[[nodiscard]] BundleFiles &nativeBundleFiles();

} // namespace tx::bundling
