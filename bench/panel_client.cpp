// SPDX-License-Identifier: MIT
// panel_client open COUNT: the update panel for COUNT versions, from the call to its first paint, and the
// memory that it took. The first panel of a process, and the median of ten further ones. panel_client cycle
// COUNT URL: the panel with real pages, opened and closed COUNT times; how far memory grew after the first,
// and how long the page processes stayed after the last.
#include "bench/benchhost.h"
#include "bench/peakmemory.h"

#include <TarvixUpdate/TXUpdatePanel.h>

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

QList<TXUpdatePtr> makeUpdates(int count, const QUrl &notes) {
    QList<TXUpdatePtr> updates;
    for (int i = count; i >= 1; --i) {
        auto update = std::make_shared<TXUpdate>();
        update->setVersion(QString::number(500 + i));
        update->setDisplayVersion(u"2.%1"_s.arg(i));
        update->setDateString(u"2026-11-01 10:00:00"_s);
        update->setFileURL(QUrl(u"http://127.0.0.1:1/a.zip"_s));
        update->setItemDescription(u"<h1>Version 2.%1</h1><ul><li>New</li><li>Better</li></ul>"_s.arg(i));
        update->setReleaseNotesURL(notes);
        updates << update;
    }
    return updates;
}

/// Notes the first paint of a window's part.
class FirstPaint final : public QObject {
public:
    bool seen = false;
    bool eventFilter(QObject *, QEvent *event) override {
        seen = seen || event->type() == QEvent::Paint;
        return false;
    }
};

double openPanel(const QList<TXUpdatePtr> &updates, std::shared_ptr<TXUpdatePanel> &panel) {
    QElapsedTimer timer;
    FirstPaint paint;
    timer.start();
    panel = TXUpdatePanel::panel();
    panel->setUpdatesAndDesignatedUpdate(updates, updates[0]);
    panel->showWindow({});
    panel->installEventFilter(&paint);
    while (!paint.seen)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return double(timer.nsecsElapsed()) / 1e6;
}

long residentKiB() {
    QFile status(u"/proc/self/status"_s);
    (void)status.open(QIODevice::ReadOnly);
    const QByteArray text = status.readAll();
    return text.mid(text.indexOf("VmRSS:") + 6).simplified().split(' ').value(0).toLong();
}

/// Page processes: children of the engine's helper, which is a child of this process.
int pageProcesses() {
    const auto read = [](const QByteArray &pid, const char *what) {
        QFile file(u"/proc/"_s + QString::fromLatin1(pid) + u'/' + QString::fromLatin1(what));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    const auto parentOf = [&](const QByteArray &pid) {
        const QByteArray stat = read(pid, "stat");
        return stat.mid(stat.lastIndexOf(')') + 2).split(' ').value(1);
    };
    int count = 0;
    for (const QString &entry : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
        const QByteArray pid = entry.toLatin1();
        if (pid.toInt() <= 0 || !read(pid, "cmdline").contains("QtWebEngineProcess"))
            continue;
        const QByteArray helper = parentOf(pid);
        count += read(helper, "cmdline").contains("QtWebEngineProcess") &&
                 parentOf(helper).toLongLong() == QCoreApplication::applicationPid();
    }
    return count;
}

int open(int count) {
    const QList<TXUpdatePtr> updates = makeUpdates(count, {});
    std::shared_ptr<TXUpdatePanel> panel;
    const long before = residentKiB();
    const double first = openPanel(updates, panel);
    const long taken = residentKiB() - before;
    QList<double> further;
    for (int i = 0; i < 10; ++i) {
        panel->closeWithCode(0);
        panel.reset();
        QCoreApplication::processEvents();
        further << openPanel(updates, panel);
    }
    std::sort(further.begin(), further.end());
    std::printf("%d versions: first panel %.1f ms and %.1f MB, further ones %.1f ms\n", count, first,
                double(taken) / 1024, further[5]);
    return 0;
}

int cycle(int count, const QUrl &url) {
    const QList<TXUpdatePtr> updates = makeUpdates(3, url);
    long afterFirst = 0;
    for (int i = 0; i < count; ++i) {
        std::shared_ptr<TXUpdatePanel> panel;
        (void)openPanel(updates, panel);
        QTest::qWait(200);
        panel->closeWithCode(0);
        panel.reset();
        QTest::qWait(100);
        if (i == 0)
            afterFirst = residentKiB();
    }
    QElapsedTimer timer;
    timer.start();
    const bool ended = QTest::qWaitFor([] { return pageProcesses() == 0; }, 10000);
    std::printf(
        "%d panels: memory grew by %.1f MB after the first; page processes %s %lld ms after the last\n",
        count, double(residentKiB() - afterFirst) / 1024, ended ? "gone" : "still there", timer.elapsed());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    QApplication application(argc, argv);
    becomeBenchHost();
    return qstrcmp(argv[1], "open") == 0 ? open(atoi(argv[2]))
                                         : cycle(atoi(argv[2]), QUrl(QString::fromLocal8Bit(argv[3])));
}
