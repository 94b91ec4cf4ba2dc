// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QObject>
#include <QSharedDataPointer>
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
    Q_GADGET
public:
    /// What a new profile contains.
    enum class Contents {
        Measured, ///< measured when the profile is created
        Empty     ///< null and 0 everywhere
    };
    Q_ENUM(Contents)

    /// A new profile, measured now. Values that the system does not give within 10 s stay null or 0.
    static TXUpdateSystemProfilePtr systemProfile();
    /// Measuring blocks for up to 10 s; see above.
    explicit TXUpdateSystemProfile(Contents contents = Contents::Measured);
    /// Copies are cheap: they share their content until one is changed.
    TXUpdateSystemProfile(const TXUpdateSystemProfile &);
    /// See the copy constructor.
    TXUpdateSystemProfile &operator=(const TXUpdateSystemProfile &);
    ~TXUpdateSystemProfile(); ///< Copies keep the content.

    /// The version of the system, such as "12.0.0".
    [[nodiscard]] QString OSVersion() const;
    /// The kernel's release, such as "6.1.0-18-amd64".
    [[nodiscard]] QString OSBuild() const;
    /// The product family, such as "ThinkPad X1 Carbon Gen 9".
    [[nodiscard]] QString machineName() const;
    /// The product name, such as "20XW0026GE".
    [[nodiscard]] QString machineModel() const;
    /// Whether the processor can run 64-bit code.
    [[nodiscard]] bool is64bit() const;
    /// The processor's name.
    [[nodiscard]] QString CPUType() const;
    /// Processor cores.
    [[nodiscard]] quint64 CPUCount() const;
    /// In megahertz, with 1024 for each gigahertz: whole numbers only.
    [[nodiscard]] quint64 CPUSpeed() const;
    /// Memory in megabytes.
    [[nodiscard]] quint64 RAM() const;
    /// Model of the last graphics processor.
    [[nodiscard]] QString GPUType() const;
    /// Memory of all graphics processors together, in megabytes.
    [[nodiscard]] quint64 VRAM() const;
    /// Screens.
    [[nodiscard]] quint64 numberOfDisplays() const;
    /// Sizes in device-independent pixels, and scales: "{1440, 900} (2.0), {1920, 1080} (1.0)".
    [[nodiscard]] QString resolutions() const;
    /// The user's first preferred language.
    [[nodiscard]] QString language() const;

    /// Setters are for hosts and tests that fill a profile themselves; see the getter for the unit.
    void setOSVersion(const QString &version);
    /// See setOSVersion().
    void setOSBuild(const QString &build);
    /// See setOSVersion().
    void setMachineName(const QString &name);
    /// See setOSVersion().
    void setMachineModel(const QString &model);
    /// See setOSVersion().
    void setIs64bit(bool is64bit);
    /// See setOSVersion().
    void setCPUType(const QString &type);
    /// See setOSVersion().
    void setCPUCount(quint64 count);
    /// See setOSVersion().
    void setCPUSpeed(quint64 speed);
    /// See setOSVersion().
    void setRAM(quint64 megabytes);
    /// See setOSVersion().
    void setGPUType(const QString &type);
    /// See setOSVersion().
    void setVRAM(quint64 megabytes);
    /// See setOSVersion().
    void setNumberOfDisplays(quint64 count);
    /// See setOSVersion().
    void setResolutions(const QString &resolutions);
    /// See setOSVersion().
    void setLanguage(const QString &language);

    /// The fourteen keys that are sent, in their order.
    [[nodiscard]] static QStringList JSONKeys();
    /// The value under one of JSONKeys() as a string: numbers in decimal, `is64bit` as "1" or "0". Null for
    /// an absent value and for any other key.
    [[nodiscard]] QString valueForKey(const QString &key) const;
    /// The data that is sent: each key with its value as a string. Keys without a value are omitted.
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
    struct Private;
    QSharedDataPointer<Private> d;
};
