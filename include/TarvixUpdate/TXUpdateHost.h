// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXBundle.h>

/// Facts about the application that links the framework. Values are read once, when the instance is made.
/// Thread: any, except setVersion, which is meant to be called before checks start.
class TX_EXPORT TXUpdateHost {
public:
    /// The one instance for this application; never deleted.
    static TXUpdateHost *host();
    /// The same instance.
    static TXUpdateHost *currentHost();

    virtual ~TXUpdateHost();
    TXUpdateHost(const TXUpdateHost &) = delete;
    TXUpdateHost &operator=(const TXUpdateHost &) = delete;

    [[nodiscard]] TXBundle bundle() const { return m_bundle; }
    /// The running system as "major.minor.patch".
    [[nodiscard]] QString systemVersionString() const { return m_systemVersionString; }
    /// CFBundleDisplayName, else CFBundleName, else the bundle's file name without extension.
    [[nodiscard]] QString name() const { return m_name; }
    /// The build, CFBundleVersion; null when absent.
    [[nodiscard]] QString version() const { return m_version; }
    /// CFBundleShortVersionString, else the build.
    [[nodiscard]] QString displayVersion() const { return m_displayVersion; }

    /// Pretends to be another build.
    void setVersion(const QString &version) { m_version = version; }

    /// Asked of the system on each call.
    [[nodiscard]] bool isRunningOnReadOnlyVolume() const;
    [[nodiscard]] bool isRunningTranslocated() const;
    [[nodiscard]] bool isBackgroundApplication() const;

protected:
    TXUpdateHost();
    /// Fills every member that is still null.
    void init();

    TXBundle m_bundle;
    QString m_systemVersionString;
    QString m_name;
    QString m_version;
    QString m_displayVersion;
};

/// The running system's version in one number: major, minor and patch in bits 16-23, 8-15 and 0-7, each cut
/// to 8 bits. Thread: any.
[[nodiscard]] TX_EXPORT quint32 TXUpdateOSVersion();
