// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QSharedPointer>
#include <QString>
#include <QVariantMap>

/// An application or framework in a directory: `Name.app/Contents/Info.plist` with the executable under
/// `Contents/MacOS` or `Contents/Linux`, or a flat directory with `Info.plist` at its top.
///
/// Thread: a value that reads its Info.plist (XML or binary) once, when it is made; copies are cheap and may
/// be used on any thread. A directory without a readable Info.plist is a bundle without info.
class TX_EXPORT TXBundle {
public:
    TXBundle();
    explicit TXBundle(const QString &path);

    /// The bundle that holds the running executable. It keeps its path when another process replaces the
    /// bundle while this one runs.
    static TXBundle mainBundle();

    [[nodiscard]] bool isNull() const { return !d; }
    [[nodiscard]] QString bundlePath() const;
    /// The folder that holds Info.plist: `Contents`, or the bundle itself when it is flat.
    [[nodiscard]] QString contentsPath() const;
    [[nodiscard]] QString resourcesPath() const;
    /// Null when CFBundleExecutable names no file in the bundle.
    [[nodiscard]] QString executablePath() const;
    [[nodiscard]] QVariantMap infoDictionary() const;
    /// The text under `key`; null when absent.
    [[nodiscard]] QString infoString(const QString &key) const;
    /// CFBundleIdentifier; null when absent.
    [[nodiscard]] QString bundleIdentifier() const;

private:
    struct Data;
    QSharedPointer<const Data> d;
};
