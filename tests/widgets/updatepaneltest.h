// SPDX-License-Identifier: MIT
#pragma once

#include "feed/jsonreader.h"
#include "tests/support/feedserver.h"
#include "tests/widgets/uitest.h"
#include "widgets/appearance.h"
#include "widgets/mediumdate.h"
#include "widgets/versionrows.h"
#include "widgets/versionstable.h"

#include <TarvixUpdate/TXUpdatePanel.h>
#include <TarvixUpdate/TXUpdater.h>

#include <QCloseEvent>
#include <QColor>
#include <QEventLoop>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QTest>
#include <QTextBrowser>

namespace tx::test {

using namespace Qt::StringLiterals;

class UpdatePanel : public tx::test::UiTest {
protected:
    std::shared_ptr<TXUpdatePanel> panel = TXUpdatePanel::panel();
    QList<int> codes;
    QList<TXUpdatePtr> updates;

    UpdatePanel() { becomeHost(u"1042"_s, u"2.0"_s); }

    [[nodiscard]] QLabel *label(const char *name) const { return outlet(panel.get(), name); }
    [[nodiscard]] QPushButton *button(const char *name) const {
        return outlet<QPushButton>(panel.get(), name);
    }
    [[nodiscard]] QProgressBar *bar() const { return outlet<QProgressBar>(panel.get(), "progressIndicator"); }
    [[nodiscard]] TXUpdateVersionsTableView *table() const {
        return outlet<TXUpdateVersionsTableView>(panel.get(), "versionsTableView");
    }
    [[nodiscard]] QString installTitle() const { return tx::buttonTitle(button("installButton")); }
    [[nodiscard]] QString cancelTitle() const { return tx::buttonTitle(button("cancelButton")); }
    [[nodiscard]] QWidget *part(int row, int tag) const { return table()->viewForRow(row)->viewWithTag(tag); }
    [[nodiscard]] QString partText(int row, int tag) const {
        return qobject_cast<QLabel *>(part(row, tag))->text();
    }

    void offer(const QList<TXUpdatePtr> &list, int designated = 0) {
        updates = list;
        panel->setUpdatesAndDesignatedUpdate(updates, updates[designated]);
    }
    void show() {
        // A panel that is still shown closes with the application object, when this test has gone.
        panel->showWindow([this, here = std::weak_ptr<bool>(m_here)](int code) {
            if (!here.expired())
                codes.append(code);
        });
        tx::test::drainEvents();
    }
    const std::shared_ptr<bool> m_here = std::make_shared<bool>(true);
    /// Lets every step of a download be reported: what comes shortly after a report is not told otherwise,
    /// and a download that stalls has no later one.
    static void reportEveryStep() {
        tx::services().secondsSinceReferenceDate = [seconds = 0.0]() mutable { return seconds += 1; };
    }
    /// Offers one update whose archive comes half and then no further.
    void offerStalling(FeedServer &server, bool background) {
        reportEveryStep();
        tx::test::HttpReply half = tx::test::HttpReply::file(QByteArray(500000, 'x'));
        half.announcedLength = 1000000;
        half.stalls = true;
        server.expect("GET", "/a.zip", half);
        offer({makeUpdate(u"1043"_s, u"2.1"_s, server.url(u"/a.zip"_s))});
        panel->setAllowsDownloadingInBackground(background);
        show();
        button("installButton")->click();
        EXPECT_TRUE(waitUntil([this] { return updates[0]->downloadProgress() >= 0.5; }));
    }
};

} // namespace tx::test
