// SPDX-License-Identifier: MIT
#include "profile/measure.h"

#include "os/directories.h"
#include "os/services.h"
#include "os/taskoutput.h"
#include "os/userdefaults.h"

#include <charconv>

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
    TaskRequest request;
    request.program = services().systemProfilerPath();
    request.arguments = {u"-detailLevel"_s, u"mini"_s, u"-xml"_s, u"SPHardwareDataType"_s,
                         u"SPDisplaysDataType"_s};
    if (const std::optional<QByteArray> output = outputOf(request, {.time = services().systemProfilerTime}))
        readHardwareAndDisplays(profile, processor, *output);
}

} // namespace tx
