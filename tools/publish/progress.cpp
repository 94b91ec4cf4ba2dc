// SPDX-License-Identifier: MIT
#include "publish/progress.h"

#include "os/services.h"

#include <QByteArray>
#include <QLocale>

#include <algorithm>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace tx::publishing {

namespace {

constexpr auto quietTime = 1s;
constexpr auto drawingTime = 100ms;

QString amount(qint64 bytes) { return QLocale::c().formattedDataSize(bytes, 1, QLocale::DataSizeIecFormat); }

void write(int terminal, const QString &text) {
    const QByteArray bytes = text.toUtf8();
    // If the terminal cannot be written to, nothing is shown.
    [[maybe_unused]] const ssize_t count = ::write(terminal, bytes.constData(), size_t(bytes.size()));
}

} // namespace

Progress::Progress(int terminal)
    : m_terminal(terminal >= 0 && isatty(terminal) ? terminal : -1) {}

Progress::~Progress() { end(); }

void Progress::begin(const QString &what, qint64 total) {
    end();
    m_what = what;
    m_total = total;
    m_done = 0;
    m_since = m_drawn = services().transferClock();
}

void Progress::show(qint64 done) {
    m_done = done;
    if (m_terminal < 0)
        return;
    const std::chrono::milliseconds now = services().transferClock();
    if (now - m_since < quietTime || now - m_drawn < drawingTime)
        return;
    m_drawn = now;
    m_isShown = true;
    QString line = u"\r\033[K"_s + m_what + u' ';
    if (m_total > 0) {
        constexpr qint64 width = 24;
        const qint64 part = std::clamp<qint64>(m_done * width / m_total, 0, width);
        line += u'[' + QString(part, u'#') + QString(width - part, u' ') + u"] "_s + amount(m_done) +
                u" of "_s + amount(m_total);
    } else {
        line += amount(m_done);
    }
    write(m_terminal, line);
}

void Progress::show(qint64 done, qint64 total) {
    m_total = total;
    show(done);
}

void Progress::end() {
    if (m_isShown)
        write(m_terminal, u"\r\033[K"_s);
    m_isShown = false;
}

} // namespace tx::publishing
