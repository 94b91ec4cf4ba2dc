// SPDX-License-Identifier: MIT
// Dates of medium length. Qt has only a short and a long form of each locale, and the medium one cannot be
// derived from them: German and Estonian share both, but write "13.03.2023" and "13. märts 2023". ICU has it.
#include "widgets/interfaceloader.h"

#include <QDateTime>
#include <QString>

#include <unicode/udat.h>
#include <unicode/uloc.h>

#include <array>
#include <memory>

namespace {

struct Closing {
    void operator()(UDateFormat *format) const { udat_close(format); }
};

/// The format of the locale. The last one is cached, because a list of versions has one locale.
UDateFormat *formatOf(const QString &localeTag) {
    static QString tag;
    static std::unique_ptr<UDateFormat, Closing> format;
    if (format && tag == localeTag)
        return format.get();
    UErrorCode error = U_ZERO_ERROR;
    std::array<char, ULOC_FULLNAME_CAPACITY> locale{};
    uloc_forLanguageTag(localeTag.toLatin1().constData(), locale.data(), int32_t(locale.size()), nullptr,
                        &error);
    UDateFormat *made = udat_open(UDAT_NONE, UDAT_MEDIUM, locale.data(), u"UTC", -1, nullptr, 0, &error);
    format.reset(U_SUCCESS(error) ? made : nullptr);
    if (U_FAILURE(error) && made)
        udat_close(made);
    tag = localeTag;
    return format.get();
}

} // namespace

extern "C" Q_DECL_EXPORT QString txMediumDate(const QString &localeTag, const QDate &date) {
    const UDateFormat *format = formatOf(localeTag);
    if (!format)
        return {};
    // The same day in every zone.
    const auto moment = UDate(QDateTime(date, QTime(12, 0), Qt::UTC).toMSecsSinceEpoch());
    std::array<char16_t, 256> text{};
    UErrorCode error = U_ZERO_ERROR;
    const int32_t length = udat_format(format, moment, text.data(), int32_t(text.size()), nullptr, &error);
    return U_SUCCESS(error) ? QString::fromUtf16(text.data(), length) : QString();
}
