// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QSharedPointer>
#include <QString>
#include <QVariantMap>

/// An application or framework in a directory: `Name.app/Contents/Info.plist` with the executable under
/// `Contents/MacOS`, `Contents/Linux` or `Contents/bin`, or a flat directory with `Info.plist` at its top.
///
/// Thread: a value that reads its Info.plist (XML or binary) once, when it is made. Copies are cheap and may
/// be used on any thread. Errors: a directory without a readable Info.plist is a bundle without info.
class TX_EXPORT TXBundle {
public:
    /// A null bundle, without a path and without info.
    TXBundle();
    /// The bundle at `path`, read now. It need not exist.
    explicit TXBundle(const QString &path);

    /// The bundle that holds the running executable. It keeps its path when another process replaces the
    /// bundle while this one runs.
    static TXBundle mainBundle();

    /// True for a default-made value.
    [[nodiscard]] bool isNull() const { return !d; }
    /// The path, without redundant parts such as "..". Null for a null bundle.
    [[nodiscard]] QString bundlePath() const;
    /// The folder that holds Info.plist: `Contents`, or the bundle itself when it is flat.
    [[nodiscard]] QString contentsPath() const;
    /// The folder `Resources` in `contentsPath()`, or `share/NAME` there when the executable NAME is in
    /// `bin`. It need not exist.
    [[nodiscard]] QString resourcesPath() const;
    /// Null if CFBundleExecutable does not name a file in the bundle.
    [[nodiscard]] QString executablePath() const;
    /// The content of Info.plist; empty if it cannot be read.
    [[nodiscard]] QVariantMap infoDictionary() const;
    /// The string under `key`; null if absent.
    [[nodiscard]] QString infoString(const QString &key) const;
    /// CFBundleIdentifier; null if absent.
    [[nodiscard]] QString bundleIdentifier() const;

private:
    struct Data;
    QSharedPointer<const Data> d;
};
