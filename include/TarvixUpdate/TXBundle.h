// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QSharedPointer>
#include <QString>
#include <QVariantMap>

/// An application or framework in a directory: `Name.app/Contents/Info.plist` with the executable under
/// `Contents/MacOS`, `Contents/Linux` or `Contents/bin`, or a flat directory with `Info.plist` at its top.
///
/// Thread: the constructor reads Info.plist (XML or binary) once. Copies are cheap and may be used on any
/// thread. Errors: if the directory has no readable Info.plist, all values from it are empty.
class TX_EXPORT TXBundle {
public:
    /// A null bundle, without a path and without info.
    TXBundle();
    /// The bundle at `path`, read now. It need not exist.
    explicit TXBundle(const QString &path);

    /// The bundle that contains the running executable. Its path does not change if another process replaces
    /// the bundle while this one runs.
    static TXBundle mainBundle();

    /// True for a default-made value.
    [[nodiscard]] bool isNull() const { return !d; }
    /// The path, without redundant parts such as "..". Null for a null bundle.
    [[nodiscard]] QString bundlePath() const;
    /// The folder that contains Info.plist: `Contents`, or the bundle itself if it is flat.
    [[nodiscard]] QString contentsPath() const;
    /// The folder `Resources` in `contentsPath()`. For an executable NAME in `bin` it is `share/NAME`
    /// instead. The folder may be missing.
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
