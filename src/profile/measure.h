// SPDX-License-Identifier: MIT
#pragma once

#include "posix/systemreport.h"

#include <TarvixUpdate/TXUpdateSystemProfile.h>

namespace tx {

/// The kinds of processor that the framework is built for: the system report describes them differently.
enum class Processor { X86, Arm64 };

#if defined(__aarch64__)
inline constexpr Processor builtFor = Processor::Arm64;
#else
inline constexpr Processor builtFor = Processor::X86;
#endif

/// Fills a profile with what can be measured of this machine. Blocks; see TXUpdateSystemProfile.
void measure(TXUpdateSystemProfile &profile, Processor processor);

/// The parts of it, in their order.
void readSystemVersion(TXUpdateSystemProfile &profile, const QString &versionText);
void readLanguage(TXUpdateSystemProfile &profile, const QVariant &preferredLanguages);
void readWordSize(TXUpdateSystemProfile &profile);
void readScreens(TXUpdateSystemProfile &profile);
/// `sections` is the content of the property list that the program system_profiler writes.
void readHardwareAndDisplays(TXUpdateSystemProfile &profile, Processor processor, const QVariant &sections);
/// The same content without the program.
[[nodiscard]] QVariant sectionsFrom(const std::vector<machine::Section> &sections);

} // namespace tx
