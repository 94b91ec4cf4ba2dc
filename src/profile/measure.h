// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateSystemProfile.h>

namespace tx {

/// The kinds of processor that the framework is built for: the profile tool describes them differently.
enum class Processor { X86, Arm64 };

#if defined(__aarch64__)
inline constexpr Processor builtFor = Processor::Arm64;
#else
inline constexpr Processor builtFor = Processor::X86;
#endif

/// Fills a profile with what can be measured of this machine. Blocks while the profile tool runs.
void measure(TXUpdateSystemProfile &profile, Processor processor);

/// The parts of it, in their order.
void readSystemVersion(TXUpdateSystemProfile &profile, const QString &versionText);
void readLanguage(TXUpdateSystemProfile &profile, const QVariant &preferredLanguages);
void readWordSize(TXUpdateSystemProfile &profile);
void readScreens(TXUpdateSystemProfile &profile);
/// `propertyList` is the output of the profile tool.
void readHardwareAndDisplays(TXUpdateSystemProfile &profile, Processor processor,
                             const QByteArray &propertyList);

} // namespace tx
