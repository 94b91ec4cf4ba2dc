// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXBundle.h>

#include <memory>

/// Facts about the application that links the framework. They are read once, when the instance is created.
/// Thread: any, except setVersion(), which must be called before checks start.
class TX_EXPORT TXUpdateHost {
    struct Private;
    const std::unique_ptr<Private> d;

public:
    /// The one instance for this application; never deleted.
    static TXUpdateHost *host();
    /// Returns the same instance as host().
    static TXUpdateHost *currentHost();

    virtual ~TXUpdateHost(); ///< Only for derived classes.
    TXUpdateHost(const TXUpdateHost &) = delete;
    TXUpdateHost &operator=(const TXUpdateHost &) = delete;

    /// The application's bundle.
    [[nodiscard]] TXBundle bundle() const;
    /// The running system as "major.minor.patch".
    [[nodiscard]] QString systemVersionString() const;
    /// CFBundleDisplayName, otherwise CFBundleName, otherwise the bundle's file name without extension.
    [[nodiscard]] QString name() const;
    /// The build, CFBundleVersion; null if absent.
    [[nodiscard]] QString version() const;
    /// The version shown to people: CFBundleShortVersionString, otherwise the build.
    [[nodiscard]] QString displayVersion() const;

    /// Makes the framework treat the application as this build.
    void setVersion(const QString &version);

    /// Returns whether the application is at a path where it cannot be replaced. Queries the system on each
    /// call.
    [[nodiscard]] bool isRunningOnReadOnlyVolume() const;
    /// Whether the system runs the application from a hidden copy; always false on Linux.
    [[nodiscard]] bool isRunningTranslocated() const;
    /// Whether the application cannot show windows, because it has no QGuiApplication.
    [[nodiscard]] bool isBackgroundApplication() const;

protected:
    /// For derived classes, which set members and then call init().
    TXUpdateHost();
    /// Fills every member that is still null.
    void init();

    // A derived class fills these members before it calls init(). They refer to values in the private data.
    TXBundle &m_bundle;             ///< see bundle()
    QString &m_systemVersionString; ///< see systemVersionString()
    QString &m_name;                ///< see name()
    QString &m_version;             ///< see version()
    QString &m_displayVersion;      ///< see displayVersion()
};

/// The running system's version in one number: major, minor and patch in bits 16-23, 8-15 and 0-7, each cut
/// to 8 bits. Thread: any.
[[nodiscard]] TX_EXPORT quint32 TXUpdateOSVersion();
