// SPDX-License-Identifier: MIT
// Any bytes as a property list, which is also what the program system_profiler writes. What was read is
// written and read again.
#include "base/propertylist.h"
#include "profile/measure.h"
#include "tests/fuzz/target.h"
#include "tests/support/agreement.h"

void fuzz(const QByteArray &input) {
    const auto value = tx::readPropertyList(input);
    for (const tx::Processor processor : {tx::Processor::X86, tx::Processor::Arm64}) {
        TXUpdateSystemProfile profile(TXUpdateSystemProfile::Contents::Empty);
        tx::readHardwareAndDisplays(profile, processor, value ? *value : QVariant());
        check(!profile.JSONDictionary().isEmpty());
    }
    // The tools' own reader refuses more, but never sees anything else.
    const auto plain =
        tx::plain::readPropertyList(std::string_view(input.constData(), static_cast<size_t>(input.size())));
    check(!plain || !value || tx::test::isSame(*plain, *value));
    if (!value)
        return;
    for (const tx::PropertyListFormat format : {tx::PropertyListFormat::Xml, tx::PropertyListFormat::Binary})
        check(bool(tx::readPropertyList(tx::writePropertyList(*value, format))));
}
