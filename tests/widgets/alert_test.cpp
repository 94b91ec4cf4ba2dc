// SPDX-License-Identifier: MIT
#include "os/alert.h"
#include "os/services.h"
#include "tests/widgets/uitest.h"
#include "widgets/alert.h"
#include "widgets/appearance.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QWindow>

#include <functional>

using namespace Qt::StringLiterals;

std::unique_ptr<QCoreApplication> makeApplication(int &argc, char **argv) {
    return std::make_unique<QApplication>(argc, argv);
}

namespace {

class AlertWindow : public tx::test::FrameworkTest {
protected:
    QString text;
    QString informative;
    QStringList buttons;
    bool modal = false;

    /// Presses a button as soon as the window is there.
    int present(const tx::Alert &alert, int press) {
        const tx::test::AlertWatch watch([&](QMessageBox *box) {
            text = box->text();
            informative = box->informativeText();
            modal = box->isModal();
            for (const QAbstractButton *button : box->buttons())
                buttons << button->text();
            for (QAbstractButton *button : box->buttons()) {
                if (button->text() == alert.buttons[press])
                    button->click();
            }
        });
        return tx::presentAlertInWindow(alert);
    }
};

TEST_F(AlertWindow, ShowsItsTextsAndAnswersTheButton) {
    const tx::Alert alert{u"Message"_s, u"Explanation"_s, {u"First"_s, u"Second"_s}};
    EXPECT_EQ(present(alert, 0), 0);
    EXPECT_EQ(text, u"Message"_s);
    EXPECT_EQ(informative, u"Explanation"_s);
    EXPECT_TRUE(modal);
    EXPECT_EQ(QSet<QString>(buttons.begin(), buttons.end()), (QSet<QString>{u"First"_s, u"Second"_s}));
    EXPECT_EQ(present(alert, 1), 1);
}

TEST_F(AlertWindow, ProgramWithoutWindowsLogsTheTexts) {
    EXPECT_EQ(tx::presentAlertInLog({u"Message"_s, u"Explanation"_s, {u"OK"_s}}), 0);
    EXPECT_EQ(logLines(), QStringList{u"Message Explanation"_s});
}

TEST_F(AlertWindow, TextsAreNoMarkup) {
    const tx::Alert alert{
        u"A <b>name</b> & \"another\""_s, u"Volume \"My Disk\" & <i>more</i>\nnext"_s, {u"OK"_s}};
    bool plain = false;
    QString shown;
    const tx::test::AlertWatch watch([&](QMessageBox *box) {
        const auto *label = box->findChild<QLabel *>(u"qt_msgbox_informativelabel"_s);
        plain = box->textFormat() == Qt::PlainText && label && label->textFormat() == Qt::PlainText;
        shown = label ? label->text() : QString();
        box->buttons().first()->click();
    });
    (void)tx::presentAlertInWindow(alert);
    EXPECT_TRUE(plain);
    EXPECT_EQ(shown, alert.informative);
}

QMessageBox *shownBox() {
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *box = qobject_cast<QMessageBox *>(widget); box && box->isVisible())
            return box;
    }
    return nullptr;
}

TEST_F(AlertWindow, SheetBelongsToItsWindowAndAnswersItsButton) {
    QWidget window;
    window.show();
    QList<int> answers;
    for (const int press : {0, 1}) {
        tx::presentAlertAsSheet({u"Message"_s, {}, {u"First"_s, u"Second"_s}}, &window,
                                [&](int button) { answers << button; });
        QMessageBox *box = shownBox();
        ASSERT_TRUE(box) << "the call returns at once";
        EXPECT_EQ(box->windowModality(), Qt::WindowModal);
        EXPECT_EQ(box->windowHandle()->transientParent(), window.windowHandle());
        for (QAbstractButton *button : box->buttons()) {
            if (button->text() == (press == 0 ? u"First"_s : u"Second"_s))
                button->click();
        }
        tx::test::drainEvents();
        EXPECT_FALSE(shownBox());
    }
    EXPECT_EQ(answers, (QList<int>{0, 1}));
}

TEST_F(AlertWindow, WithoutButtonsHasOneInTheUsersLanguageWithTheLooksOfAllOthers) {
    tx::services().preferredLanguages = [] { return QStringList{u"es"_s}; };
    const auto expectGoodButton = [](QMessageBox *box) {
        ASSERT_TRUE(box);
        ASSERT_EQ(box->buttons().size(), 1);
        auto *button = qobject_cast<QPushButton *>(box->buttons().first());
        EXPECT_EQ(tx::buttonTitle(button), u"Aceptar"_s);
        EXPECT_EQ(button->height(), tx::buttonHeight);
        EXPECT_EQ(box->defaultButton(), button);
        EXPECT_EQ(box->escapeButton(), button);
        EXPECT_EQ(box->focusWidget(), button);
        box->activateWindow();
        EXPECT_TRUE(tx::test::waitUntil([&] { return button->hasFocus(); }));
        EXPECT_TRUE(box->testAttribute(Qt::WA_KeyboardFocusChange)) << "and is seen there";
        button->click();
    };
    const tx::Alert alert{u"Mensaje"_s, u"Explicación"_s, {}};
    const tx::test::AlertWatch watch(expectGoodButton);
    EXPECT_EQ(tx::presentAlertInWindow(alert), 0);
    EXPECT_TRUE(watch.seen());

    QWidget window;
    window.show();
    QList<int> answers;
    tx::presentAlertAsSheet(alert, &window, [&](int button) { answers << button; });
    expectGoodButton(shownBox());
    tx::test::drainEvents();
    EXPECT_FALSE(shownBox());
    EXPECT_EQ(answers, QList<int>{0});
}

TEST_F(AlertWindow, ClosedWithoutAButtonConfirmsNothing) {
    const tx::Alert alert{u"Question"_s, u"Explanation"_s, {u"Move"_s, u"Do Not Move"_s}};
    const std::function<void(QMessageBox *)> ways[] = {[](QMessageBox *box) { box->reject(); },
                                                       [](QMessageBox *box) { box->close(); },
                                                       [](QMessageBox *box) { box->hide(); }};
    for (const auto &way : ways) {
        const tx::test::AlertWatch watch(way);
        EXPECT_EQ(tx::presentAlertInWindow(alert), 1);
    }
    QWidget window;
    window.show();
    QList<int> answers;
    tx::presentAlertAsSheet(alert, &window, [&](int button) { answers << button; });
    shownBox()->reject();
    tx::test::drainEvents();
    EXPECT_EQ(answers, QList<int>{1});
}

TEST_F(AlertWindow, SheetGoesWithItsWindowWithoutAnAnswer) {
    auto window = std::make_unique<QWidget>();
    window->show();
    int answers = 0;
    tx::presentAlertAsSheet({u"Message"_s, {}, {u"OK"_s}}, window.get(), [&](int) { ++answers; });
    window.reset();
    tx::test::drainEvents();
    EXPECT_FALSE(shownBox());
    EXPECT_EQ(answers, 0);
}

} // namespace
