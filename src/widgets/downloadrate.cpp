// SPDX-License-Identifier: MIT
#include "widgets/downloadrate.h"

#include "os/localization.h"

#include <QLocale>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace tx {

void DownloadRate::add(double progress, double seconds) {
    constexpr double window = 5;
    if (!m_samples.isEmpty() && (progress < m_samples.last().progress || seconds < m_samples.last().seconds))
        m_samples.clear(); // another download, or another time
    m_samples.append({progress, seconds});
    while (m_samples.size() > 2 && seconds - m_samples.first().seconds > window)
        m_samples.removeFirst();
}

QString DownloadRate::text(quint64 size) const {
    if (m_samples.isEmpty() || size == 0 || size == std::numeric_limits<quint64>::max())
        return {};
    const QLocale locale;
    const auto bytes = [&](double amount) {
        return locale.formattedDataSize(qint64(amount), 1, QLocale::DataSizeSIFormat);
    };
    const double total = double(size);
    const Sample &last = m_samples.last();
    const double passed = last.seconds - m_samples.first().seconds;
    const double rate = passed > 0 ? (last.progress - m_samples.first().progress) * total / passed : 0;
    if (rate <= 0)
        return localizedFormat(u"%@ of %@"_s, {bytes(last.progress * total), bytes(total)});
    const int left = int(std::ceil((1 - last.progress) * total / rate));
    const QString time = left < 3600 ? u"%1:%2"_s.arg(left / 60).arg(left % 60, 2, 10, QChar(u'0'))
                                     : u"%1:%2:%3"_s.arg(left / 3600)
                                           .arg(left / 60 % 60, 2, 10, QChar(u'0'))
                                           .arg(left % 60, 2, 10, QChar(u'0'));
    return localizedFormat(u"%@ of %@, %@ per second, %@ left"_s,
                           {bytes(last.progress * total), bytes(total), bytes(rate), time});
}

} // namespace tx
