// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QStringList>
#include <QVariantMap>

#include <memory>

class TXUpdateSystemProfile;
/// A request keeps the profile that it sends.
using TXUpdateSystemProfilePtr = std::shared_ptr<TXUpdateSystemProfile>;

/// A small anonymous description of the machine. A feed request carries it at most once a week, if the host
/// has switched it on. Values that could not be measured are null or 0. Thread: a value without locks;
/// measuring one blocks, so do it on a background thread.
class TX_EXPORT TXUpdateSystemProfile {
public:
    /// What a new profile contains.
    enum class Contents {
        Measured, ///< measured when the profile is created
        Empty     ///< null and 0 everywhere
    };

    /// A new profile, measured now with the framework's profile tool, which is terminated after 10 s.
    static TXUpdateSystemProfilePtr systemProfile();
    /// Measuring blocks for up to 10 s; see above.
    explicit TXUpdateSystemProfile(Contents contents = Contents::Measured);

    /// The version of the system, such as "12.0.0".
    [[nodiscard]] QString OSVersion() const { return mOSVersion; }
    /// The kernel's release, such as "6.1.0-18-amd64".
    [[nodiscard]] QString OSBuild() const { return mOSBuild; }
    /// The product family, such as "ThinkPad X1 Carbon Gen 9".
    [[nodiscard]] QString machineName() const { return mMachineName; }
    /// The product name, such as "20XW0026GE".
    [[nodiscard]] QString machineModel() const { return mMachineModel; }
    /// Whether the processor can run 64-bit code.
    [[nodiscard]] bool is64bit() const { return mIs64bit; }
    /// The processor's name.
    [[nodiscard]] QString CPUType() const { return mCPUType; }
    /// Processor cores.
    [[nodiscard]] quint64 CPUCount() const { return mCPUCount; }
    /// In megahertz, with 1024 for each gigahertz: whole numbers only.
    [[nodiscard]] quint64 CPUSpeed() const { return mCPUSpeed; }
    /// Memory in megabytes.
    [[nodiscard]] quint64 RAM() const { return mRAM; }
    /// Model of the last graphics processor.
    [[nodiscard]] QString GPUType() const { return mGPUType; }
    /// Memory of all graphics processors together, in megabytes.
    [[nodiscard]] quint64 VRAM() const { return mVRAM; }
    /// Screens.
    [[nodiscard]] quint64 numberOfDisplays() const { return mNumberOfDisplays; }
    /// Sizes in device-independent pixels, and scales: "{1440, 900} (2.0), {1920, 1080} (1.0)".
    [[nodiscard]] QString resolutions() const { return mResolutions; }
    /// The user's first preferred language.
    [[nodiscard]] QString language() const { return mLanguage; }

    /// Setters are for hosts and tests that fill a profile themselves; see the getter for the unit.
    void setOSVersion(const QString &version) { mOSVersion = version; }
    /// See setOSVersion().
    void setOSBuild(const QString &build) { mOSBuild = build; }
    /// See setOSVersion().
    void setMachineName(const QString &name) { mMachineName = name; }
    /// See setOSVersion().
    void setMachineModel(const QString &model) { mMachineModel = model; }
    /// See setOSVersion().
    void setIs64bit(bool is64bit) { mIs64bit = is64bit; }
    /// See setOSVersion().
    void setCPUType(const QString &type) { mCPUType = type; }
    /// See setOSVersion().
    void setCPUCount(quint64 count) { mCPUCount = count; }
    /// See setOSVersion().
    void setCPUSpeed(quint64 speed) { mCPUSpeed = speed; }
    /// See setOSVersion().
    void setRAM(quint64 megabytes) { mRAM = megabytes; }
    /// See setOSVersion().
    void setGPUType(const QString &type) { mGPUType = type; }
    /// See setOSVersion().
    void setVRAM(quint64 megabytes) { mVRAM = megabytes; }
    /// See setOSVersion().
    void setNumberOfDisplays(quint64 count) { mNumberOfDisplays = count; }
    /// See setOSVersion().
    void setResolutions(const QString &resolutions) { mResolutions = resolutions; }
    /// See setOSVersion().
    void setLanguage(const QString &language) { mLanguage = language; }

    /// The fourteen keys that are sent, in their order.
    [[nodiscard]] static QStringList JSONKeys();
    /// The value under one of JSONKeys() as a string: numbers in decimal, `is64bit` as "1" or "0". Null for
    /// an absent value and for any other key.
    [[nodiscard]] QString valueForKey(const QString &key) const;
    /// What is sent: each key's value as a string; keys without a value are left out.
    [[nodiscard]] QVariantMap JSONDictionary() const;
    /// A line "key = value" for each key, in order; "(null)" for no value.
    [[nodiscard]] QString stringValue() const;

    /// Whether the framework was built for arm64, which need not be the running processor's type.
    [[nodiscard]] static bool isAppleSilicon();
    /// The processor family of `CPUType`, such as "i7"; "Unknown" for a name without a known family.
    [[nodiscard]] QString CPUFamily() const;
    /// The running processor's name; null if the system does not report it.
    [[nodiscard]] static QString CPUBrandString();
    /// The family of CPUBrandString(), as CPUFamily().
    [[nodiscard]] static QString CPUFamilyOfBrandString();

private:
    QString mOSVersion;
    QString mOSBuild;
    QString mMachineName;
    QString mMachineModel;
    bool mIs64bit = false;
    QString mCPUType;
    quint64 mCPUCount = 0;
    quint64 mCPUSpeed = 0;
    quint64 mRAM = 0;
    QString mGPUType;
    quint64 mVRAM = 0;
    quint64 mNumberOfDisplays = 0;
    QString mResolutions;
    QString mLanguage;
};
