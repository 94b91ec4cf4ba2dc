// SPDX-License-Identifier: MIT
#include "profile/measure.h"

#include "base/limitedwork.h"
#include "os/directories.h"
#include "os/services.h"
#include "os/userdefaults.h"

#include <charconv>
#include <memory>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// The application's own list, otherwise the user's.
QVariant preferredLanguagesSetting() {
    const QVariant own = UserDefaults::standard().value(u"AppleLanguages"_s);
    return own.isValid() ? own : QVariant(preferredLanguages());
}

/// As the C library prints "%.1f" in its own locale: 1.25 is 1.2.
QString withOneDecimal(double value) {
    char text[400];
    const auto end = std::to_chars(std::begin(text), std::end(text), value, std::chars_format::fixed, 1).ptr;
    return QString::fromLatin1(text, end - text);
}

/// The system's files may be on a file system that hangs.
std::optional<std::vector<machine::Section>> sectionsInTime() {
    static auto &reader = *new LimitedWork; // a thread may outlast static objects
    const auto result = std::make_shared<std::vector<machine::Section>>();
    if (!reader.run(services().systemReportTime,
                    [result, report = services().systemReport] { *result = report(); }))
        return std::nullopt;
    return std::move(*result);
}

} // namespace

void readSystemVersion(TXUpdateSystemProfile &profile, const QString &versionText) {
    QString text = versionText;
    for (const QString &part : {u"Version "_s, u"(Build "_s, u")"_s})
        text.remove(part);
    const QStringList words = text.split(u' ');
    profile.setOSVersion(words[0]);
    profile.setOSBuild(words.value(1));
}

void readLanguage(TXUpdateSystemProfile &profile, const QVariant &preferredLanguages) {
    // A string would be treated as a list of its characters.
    const bool isList = preferredLanguages.typeId() == QMetaType::QVariantList ||
                        preferredLanguages.typeId() == QMetaType::QStringList;
    const QVariantList languages = isList ? preferredLanguages.toList() : QVariantList();
    if (!languages.isEmpty())
        profile.setLanguage(languages.first().toString());
}

void readWordSize(TXUpdateSystemProfile &profile) {
    std::optional<int> answer = services().systemControlNumber(u"hw.cpu64bit_capable"_s);
    if (!answer)
        answer = services().systemControlNumber(u"hw.optional.x86_64"_s);
    profile.setIs64bit(answer == 1);
}

void readScreens(TXUpdateSystemProfile &profile) {
    const QList<ScreenInfo> screens = services().screens();
    QStringList texts;
    for (const ScreenInfo &screen : screens)
        texts << u"{%1, %2} (%3)"_s.arg(static_cast<int>(screen.size.width()))
                     .arg(static_cast<int>(screen.size.height()))
                     .arg(withOneDecimal(screen.scale));
    profile.setResolutions(texts.isEmpty() ? u""_s : texts.join(u", "_s));
    profile.setNumberOfDisplays(static_cast<quint64>(screens.size()));
}

void measure(TXUpdateSystemProfile &profile, Processor processor) {
    readSystemVersion(profile, services().operatingSystemVersionString());
    readLanguage(profile, preferredLanguagesSetting());
    readWordSize(profile);
    readScreens(profile);
    // Without an answer in time, the profile has no values of this kind.
    if (const std::optional<std::vector<machine::Section>> sections = sectionsInTime())
        readHardwareAndDisplays(profile, processor, sectionsFrom(*sections));
}

} // namespace tx
