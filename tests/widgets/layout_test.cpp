// SPDX-License-Identifier: MIT
// Nothing is clipped and nothing overlaps, in every language that comes along; also run at twice the size.
#include "mover/movequestion.h"
#include "os/localization.h"
#include "tests/support/feedserver.h"
#include "tests/widgets/uitest.h"
#include "widgets/segmentedcontrol.h"
#include "widgets/versionstable.h"

#include <TarvixUpdate/TXUpdateCheckingPanel.h>
#include <TarvixUpdate/TXUpdatePanel.h>
#include <TarvixUpdate/TXUpdatePostWindowController.h>

#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace {

std::string nameOf(const QWidget *widget) {
    const auto *label = qobject_cast<const QLabel *>(widget);
    const auto *button = qobject_cast<const QAbstractButton *>(widget);
    return widget->objectName().toStdString() + " \"" +
           (label    ? label->text()
            : button ? button->text()
                     : QString())
               .toStdString() +
           '"';
}

/// The visible texts and controls of a window, in its coordinates.
QList<QWidget *> partsOf(const QWidget *window) {
    QList<QWidget *> parts;
    for (QWidget *widget : window->findChildren<QWidget *>()) {
        if (widget->isVisible() &&
            (qobject_cast<QLabel *>(widget) || qobject_cast<QAbstractButton *>(widget) ||
             qobject_cast<QProgressBar *>(widget)))
            parts << widget;
    }
    return parts;
}

/// `what`: the state, for the message.
void expectGoodLayout(const QWidget *window, const std::string &what) {
    const QList<QWidget *> parts = partsOf(window);
    EXPECT_FALSE(parts.isEmpty()) << what;
    for (const QWidget *part : parts) {
        const auto *label = qobject_cast<const QLabel *>(part);
        if (const auto *button = qobject_cast<const QPushButton *>(part)) {
            EXPECT_GE(part->width(), button->fontMetrics().horizontalAdvance(button->text()) + 8)
                << what << ": " << nameOf(part);
            EXPECT_GE(part->height(), button->fontMetrics().height()) << what << ": " << nameOf(part);
        } else if (label && !label->text().isEmpty()) {
            const QRect needed = label->fontMetrics().boundingRect(
                QRect(0, 0, label->width(), 10000), label->wordWrap() ? int(Qt::TextWordWrap) : 0,
                label->text());
            EXPECT_LE(needed.width(), label->width()) << what << ": " << nameOf(part);
            EXPECT_LE(needed.height(), label->height()) << what << ": " << nameOf(part);
        }
        const QRect place(part->mapTo(window, QPoint()), part->size());
        EXPECT_TRUE(window->rect().contains(place)) << what << ": outside: " << nameOf(part);
        for (const QWidget *other : parts) {
            if (other == part || other->isAncestorOf(part) || part->isAncestorOf(other))
                continue;
            const QRect otherPlace(other->mapTo(window, QPoint()), other->size());
            EXPECT_FALSE(place.intersects(otherPlace))
                << what << ": " << nameOf(part) << " overlaps " << nameOf(other);
        }
    }
}

class Layout : public tx::test::UiTest {
protected:
    QString language;
    Layout() {
        becomeHost(u"1042"_s, u"2.0"_s);
        replaceResource(u"TXUpdateWebView.so"_s, {});
        tx::services().preferredLanguages = [this] { return QStringList{language}; };
    }
};

const QStringList languages{u"en"_s, u"ar"_s,    u"de"_s, u"es"_s,   u"fr"_s,
                            u"ja"_s, u"pt-BR"_s, u"ru"_s, u"zh-CN"_s};

TEST_F(Layout, CheckingPanel) {
    for (const QString &each : languages) {
        language = each;
        QGuiApplication::setApplicationDisplayName(u"A Rather Long Application Name"_s);
        const auto panel = TXUpdateCheckingPanel::updateCheckingPanel();
        inModalSession([&] {
            tx::test::drainEvents();
            expectGoodLayout(panel.get(), language.toStdString() + ", checking");
            EXPECT_EQ(panel->layoutDirection(), language == u"ar"_s ? Qt::RightToLeft : Qt::LeftToRight);
            panel->showUpToDate();
            tx::test::drainEvents();
            expectGoodLayout(panel.get(), language.toStdString() + ", up to date");
            panel->close();
        });
        (void)panel->runModal();
    }
    QGuiApplication::setApplicationDisplayName({});
}

TEST_F(Layout, UpdatePanel) {
    for (const QString &each : languages) {
        language = each;
        for (const int count : {1, 3}) {
            struct State {
                const char *name;
                std::function<void(TXUpdate &)> arrange;
            };
            for (const State &state : {State{"offered", [](TXUpdate &) {}},
                                       State{"without a file", [](TXUpdate &u) { u.setFileURL({}); }},
                                       State{"downloaded", [](TXUpdate &u) { u.setDownloaded(true); }},
                                       State{"installed", [](TXUpdate &u) { u.setInstalled(true); }}}) {
                const auto panel = TXUpdatePanel::panel();
                const QList<TXUpdatePtr> updates = makeUpdates(count);
                state.arrange(*updates[0]);
                panel->setUpdatesAndDesignatedUpdate(updates, updates[0]);
                panel->showWindow({});
                tx::test::drainEvents();
                expectGoodLayout(panel.get(),
                                 language.toStdString() + ", " + state.name + ", " + std::to_string(count));
                if (language == u"ar"_s) {
                    EXPECT_LT(outlet<QPushButton>(panel.get(), "installButton")->x(),
                              outlet<QPushButton>(panel.get(), "skipButton")->x());
                }
                panel->closeWithCode(0);
            }
        }
    }
}

/// The bar, the longest percentage and the version in one row.
TEST_F(Layout, UpdatePanelThatDownloads) {
    tx::services().secondsSinceReferenceDate = [seconds = 0.0]() mutable { return seconds += 1; };
    for (const QString &each : languages) {
        language = each;
        for (const int count : {1, 3}) {
            for (const bool background : {true, false}) {
                tx::test::FeedServer server;
                tx::test::HttpReply almost = tx::test::HttpReply::file(QByteArray(399999, 'x'));
                almost.announcedLength = 400000;
                almost.stalls = true;
                server.expect("GET", "/a.zip", almost);
                QList<TXUpdatePtr> updates = makeUpdates(count);
                updates[0]->setFileURL(QUrl(server.url(u"/a.zip"_s)));
                const auto panel = TXUpdatePanel::panel();
                panel->setUpdatesAndDesignatedUpdate(updates, updates[0]);
                panel->setAllowsDownloadingInBackground(background);
                panel->showWindow({});
                panel->install();
                const auto *status = outlet(panel.get(), "statusField");
                ASSERT_TRUE(tx::test::waitUntil([&] { return status->text().startsWith(u"100.0% "_s); }))
                    << status->text().toStdString();
                tx::test::drainEvents();
                EXPECT_TRUE(outlet<QProgressBar>(panel.get(), "progressIndicator")->isVisible());
                EXPECT_EQ(outlet(panel.get(), "installVersionLabel")->isVisible(), count > 1);
                expectGoodLayout(panel.get(), language.toStdString() + ", downloading, " +
                                                  std::to_string(count) +
                                                  (background ? ", in the background" : ""));
                updates[0]->cancelDownload();
                panel->closeWithCode(0);
                tx::test::drainEvents();
            }
        }
    }
}

TEST_F(Layout, UpdatePanelThatInstalls) {
    const QString archive = path(u"broken.zip"_s);
    for (const QString &each : languages) {
        language = each;
        for (const int count : {1, 3}) {
            tx::test::writeFile(archive, "no archive");
            const QList<TXUpdatePtr> updates = makeUpdates(count);
            updates[0]->setDownloaded(true);
            updates[0]->setDownloadPath(archive);
            const auto panel = TXUpdatePanel::panel();
            panel->setUpdatesAndDesignatedUpdate(updates, updates[0]);
            bool closed = false;
            panel->showWindow([&](int) { closed = true; });
            tx::test::drainEvents();
            panel->install();
            ASSERT_TRUE(updates[0]->isInstalling());
            // Before anything else happens.
            QApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
            (void)panel->grab();
            EXPECT_EQ(outlet(panel.get(), "statusField")->text(), tx::localizedString(u"Installing"_s));
            EXPECT_TRUE(outlet<QProgressBar>(panel.get(), "progressIndicator")->isVisible());
            expectGoodLayout(panel.get(), language.toStdString() + ", installing, " + std::to_string(count));
            ASSERT_TRUE(tx::test::waitUntil([&] { return closed; })) << "the archive is broken";
        }
    }
}

TEST_F(Layout, PostWindow) {
    for (const QString &each : languages) {
        language = each;
        for (const int count : {1, 3, 12}) {
            const auto controller = TXUpdatePostWindowController::controller();
            auto post = std::make_shared<TXUpdatePost>();
            post->setPostURL(QUrl(u"http://127.0.0.1:1/"_s));
            controller->setPosts(QList<TXUpdatePostPtr>(count, post));
            controller->window()->show();
            for (int place = 1;; ++place) {
                tx::test::drainEvents();
                expectGoodLayout(controller->window(), language.toStdString() + ", " + std::to_string(place) +
                                                           " of " + std::to_string(count));
                if (place == count)
                    break;
                auto *arrows = outlet<TXSegmentedControl>(controller->window(), "_navigationControl");
                ASSERT_TRUE(arrows->place()->isVisible());
                arrows->segment(1)->click();
            }
            controller->window()->hide();
        }
    }
}

TEST_F(Layout, Alerts) {
    const QString name = u"A Rather Long Application Name"_s;
    for (const QString &each : languages) {
        language = each;
        using tx::localizedFormat;
        using tx::localizedString;
        const QList<tx::Alert> shown{
            {localizedFormat(u"%@ is up to date!"_s, {name}),
             localizedFormat(u"You are running the latest version of %@."_s, {name}),
             {}},
            {localizedString(u"Consider updating soon."_s),
             tx::localizedPlural(
                 u"The version of %@ you have is %d versions behind. The latest version is recommended because it often contains new useful features and important fixes for problems you could be experiencing or may experience."_s,
                 12, {name, u"12"_s}),
             {localizedString(u"OK"_s)}},
            tx::moveQuestion(tx::ApplicationPlaces(path(u"Somewhere/Host.app"_s)), name, false),
            {localizedString(u"Could not move to Applications folder."_s),
             localizedString(
                 u"No administrator's password was given. The application is still where it was."_s),
             {}},
            {.message = localizedString(u"The application could not be installed automatically."_s),
             .informative = localizedString(u"The new version is ready for you to install."_s),
             .buttons = {localizedString(u"Show New Version"_s), localizedString(u"Quit"_s)},
             .critical = true}};
        for (const tx::Alert &alert : shown) {
            const tx::test::AlertWatch watch([&](QMessageBox *box) {
                expectGoodLayout(box, language.toStdString() + ", alert");
                EXPECT_EQ(box->layoutDirection(), language == u"ar"_s ? Qt::RightToLeft : Qt::LeftToRight);
                box->reject();
            });
            (void)tx::presentAlertInWindow(alert);
            EXPECT_TRUE(watch.seen());
        }
    }
}

} // namespace
