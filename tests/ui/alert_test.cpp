// SPDX-License-Identifier: MIT
#include "platform/alert.h"
#include "platform/services.h"
#include "tests/support/environment.h"
#include "ui/alert.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

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
        QTimer timer;
        QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box || !box->isVisible())
                return;
            timer.stop();
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
        timer.start(5);
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

} // namespace
