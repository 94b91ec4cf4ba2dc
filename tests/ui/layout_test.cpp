// SPDX-License-Identifier: MIT
// Nothing is clipped and nothing overlaps, in every language that comes along; also run at twice the size.
#include "tests/ui/uitest.h"
#include "ui/versionstable.h"

#include <TarvixUpdate/TXUpdateCheckingPanel.h>
#include <TarvixUpdate/TXUpdatePanel.h>
#include <TarvixUpdate/TXUpdatePostWindowController.h>

#include <QProgressBar>
#include <QPushButton>

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

TEST_F(Layout, PostWindow) {
    for (const QString &each : languages) {
        language = each;
        const auto controller = TXUpdatePostWindowController::controller();
        auto post = std::make_shared<TXUpdatePost>();
        post->setPostURL(QUrl(u"http://127.0.0.1:1/"_s));
        controller->setPosts({post});
        controller->window()->show();
        tx::test::drainEvents();
        expectGoodLayout(controller->window(), language.toStdString());
        controller->window()->hide();
    }
}

} // namespace
