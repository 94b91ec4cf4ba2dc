// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArray>
#include <QString>

namespace tx::bundling {

/// Every change that the bundle command makes to the file system, so that a test can make any of them fail.
/// What it makes can be read by everybody. Errors say which path and why.
class BundleFiles {
public:
    virtual ~BundleFiles() = default;
    /// Makes a folder and those above it, mode 0755; an existing one is no error.
    virtual TXError makeFolder(const QString &path) = 0;
    /// Copies the content of a file to a new one, mode 0755 when its owner may execute it, else 0644.
    virtual TXError copyFile(const QString &from, const QString &to) = 0;
    /// Writes a new file, mode 0644.
    virtual TXError writeFile(const QString &path, const QByteArray &content) = 0;
    virtual TXError makeLink(const QString &path, const QString &target) = 0;
    /// Gives an entry another name; nothing may have that name.
    virtual TXError rename(const QString &from, const QString &to) = 0;
    /// Removes a file, link or tree; one that is not there is no error.
    virtual TXError remove(const QString &path) = 0;
};

/// The file system of this machine.
[[nodiscard]] BundleFiles &nativeBundleFiles();

} // namespace tx::bundling
