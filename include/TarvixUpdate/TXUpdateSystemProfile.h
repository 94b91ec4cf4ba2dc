// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QStringList>
#include <QVariantMap>

#include <memory>

class TXUpdateSystemProfile;
using TXUpdateSystemProfilePtr = std::shared_ptr<TXUpdateSystemProfile>;

/// A small anonymous description of the machine, which goes along with a feed request at most once a week
/// when the host has switched that on. What could not be measured is null or 0. Thread: a value without
/// locks; measuring one blocks, so it belongs on a background thread.
class TX_EXPORT TXUpdateSystemProfile {
public:
    enum class Contents { Measured, Empty };

    /// A new profile, measured now: asks the system's profile tool, which is ended after 10 s.
    static TXUpdateSystemProfilePtr systemProfile();
    explicit TXUpdateSystemProfile(Contents contents = Contents::Measured);

    /// Version and build of the system, such as "12.0.0".
    [[nodiscard]] QString OSVersion() const { return mOSVersion; }
    [[nodiscard]] QString OSBuild() const { return mOSBuild; }
    [[nodiscard]] QString machineName() const { return mMachineName; }
    [[nodiscard]] QString machineModel() const { return mMachineModel; }
    /// Whether the processor can run 64-bit code.
    [[nodiscard]] bool is64bit() const { return mIs64bit; }
    [[nodiscard]] QString CPUType() const { return mCPUType; }
    [[nodiscard]] quint64 CPUCount() const { return mCPUCount; }
    /// Whole numbers of what the tool names, times 1024 for gigahertz.
    [[nodiscard]] quint64 CPUSpeed() const { return mCPUSpeed; }
    /// Megabytes.
    [[nodiscard]] quint64 RAM() const { return mRAM; }
    /// Model of the last graphics processor.
    [[nodiscard]] QString GPUType() const { return mGPUType; }
    /// Megabytes of all graphics processors together.
    [[nodiscard]] quint64 VRAM() const { return mVRAM; }
    [[nodiscard]] quint64 numberOfDisplays() const { return mNumberOfDisplays; }
    /// "{1440, 900} (2.0), {1920, 1080} (1.0)": sizes in points, and scales.
    [[nodiscard]] QString resolutions() const { return mResolutions; }
    /// The user's first preferred language.
    [[nodiscard]] QString language() const { return mLanguage; }

    void setOSVersion(const QString &version) { mOSVersion = version; }
    void setOSBuild(const QString &build) { mOSBuild = build; }
    void setMachineName(const QString &name) { mMachineName = name; }
    void setMachineModel(const QString &model) { mMachineModel = model; }
    void setIs64bit(bool is64bit) { mIs64bit = is64bit; }
    void setCPUType(const QString &type) { mCPUType = type; }
    void setCPUCount(quint64 count) { mCPUCount = count; }
    void setCPUSpeed(quint64 speed) { mCPUSpeed = speed; }
    void setRAM(quint64 megabytes) { mRAM = megabytes; }
    void setGPUType(const QString &type) { mGPUType = type; }
    void setVRAM(quint64 megabytes) { mVRAM = megabytes; }
    void setNumberOfDisplays(quint64 count) { mNumberOfDisplays = count; }
    void setResolutions(const QString &resolutions) { mResolutions = resolutions; }
    void setLanguage(const QString &language) { mLanguage = language; }

    /// The fourteen keys of what is sent, in their order.
    [[nodiscard]] static QStringList JSONKeys();
    /// The text of the value under one of JSONKeys(): numbers in decimal, `is64bit` as "1" or "0". Null for a
    /// value that is absent and for any other key.
    [[nodiscard]] QString valueForKey(const QString &key) const;
    /// What is sent: each key's value as a text; keys without a value are left out.
    [[nodiscard]] QVariantMap JSONDictionary() const;
    /// A line "key = value" for each key, in order; "(null)" for no value.
    [[nodiscard]] QString stringValue() const;

    /// Whether the framework was built for an arm64 processor; not a test of the one that runs.
    [[nodiscard]] static bool isAppleSilicon();
    /// The processor family of `CPUType`, such as "i7"; "Unknown" for others.
    [[nodiscard]] QString CPUFamily() const;
    /// The running processor's own name; null when the system does not tell.
    [[nodiscard]] static QString CPUBrandString();
    /// The family of that.
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
