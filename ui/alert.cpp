// SPDX-License-Identifier: MIT
#include "ui/alert.h"

#include "platform/services.h"

#include <QApplication>
#include <QCheckBox>
#include <QFontDatabase>
#include <QMessageBox>
#include <QPushButton>

namespace tx {

int presentAlertInWindow(const Alert &alert) {
    if (!qobject_cast<QApplication *>(QCoreApplication::instance()))
        return presentAlertInLog(alert);
    QMessageBox box(QMessageBox::Information, QGuiApplication::applicationDisplayName(), alert.message);
    box.setInformativeText(alert.informative);
    QList<QPushButton *> buttons;
    for (const QString &text : alert.buttons)
        buttons.append(
            box.addButton(text, buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
    if (!buttons.isEmpty())
        box.setDefaultButton(buttons.first());
    QCheckBox *suppression = nullptr;
    if (!alert.suppressionText.isNull()) {
        suppression = new QCheckBox(alert.suppressionText, &box);
        suppression->setFont(QFontDatabase::systemFont(QFontDatabase::SmallestReadableFont));
        box.setCheckBox(suppression);
    }
    if (alert.bringsToFront) {
        box.show();
        box.raise();
        box.activateWindow();
    }
    box.exec();
    if (suppression && alert.suppressed)
        *alert.suppressed = suppression->isChecked();
    return std::max(0, static_cast<int>(buttons.indexOf(qobject_cast<QPushButton *>(box.clickedButton()))));
}

namespace {

/// Loading the framework puts the window in place of the log; a program that holds the framework without its
/// user interface keeps the log.
const bool registered = [] {
    services().presentAlert = presentAlertInWindow;
    return true;
}();

} // namespace

} // namespace tx
