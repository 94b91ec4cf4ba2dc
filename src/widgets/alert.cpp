// SPDX-License-Identifier: MIT
#include "widgets/alert.h"

#include "os/localization.h"
#include "os/services.h"
#include "widgets/appearance.h"
#include "widgets/lifetime.h"

#include <QApplication>
#include <QCheckBox>
#include <QFontDatabase>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// The box of an alert, and the meaning of its buttons.
struct Box {
    explicit Box(const Alert &alert)
        : box(new QMessageBox(alert.critical ? QMessageBox::Critical : QMessageBox::Information,
                              QGuiApplication::applicationDisplayName(), alert.message)) {
        applyDirection(box);
        makeSecondary(box);
        // The strings are plain text, not markup.
        box->setTextFormat(Qt::PlainText);
        box->setInformativeText(alert.informative);
        if (auto *label = box->findChild<QLabel *>(u"qt_msgbox_informativelabel"_s))
            label->setTextFormat(Qt::PlainText);
        if (auto *label = box->findChild<QLabel *>(u"qt_msgbox_label"_s)) {
            // The message stands out from its explanation.
            QFont font = label->font();
            font.setBold(true);
            label->setFont(font);
        }
        for (const QString &text : alert.buttons) {
            const auto role = buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole;
            auto *button = box->addButton(QString(), role);
            setButtonTitle(button, text);
            buttons.append(button);
        }
        if (buttons.isEmpty()) {
            // The standard button, with the language and appearance of all others.
            box->setStandardButtons(QMessageBox::Ok);
            buttons.append(qobject_cast<QPushButton *>(box->button(QMessageBox::Ok)));
            setButtonTitle(buttons.first(), localizedString(u"OK"_s));
        }
        box->setDefaultButton(buttons.first());
        focusVisibly(buttons.first());
        box->setEscapeButton(buttons.last());
        if (!alert.suppressionText.isNull()) {
            suppression = new QCheckBox(alert.suppressionText, box);
            suppression->setFont(QFontDatabase::systemFont(QFontDatabase::SmallestReadableFont));
            frameBox(suppression);
            box->setCheckBox(suppression);
        }
    }
    /// Closing without a button counts as Escape: nothing was confirmed.
    [[nodiscard]] int answer() const {
        const auto index =
            static_cast<int>(buttons.indexOf(qobject_cast<QPushButton *>(box->clickedButton())));
        return index < 0 ? static_cast<int>(buttons.size()) - 1 : index;
    }

    QMessageBox *box;
    QList<QPushButton *> buttons;
    QCheckBox *suppression = nullptr;
};

} // namespace

int presentAlertInWindow(const Alert &alert) {
    if (!qobject_cast<QApplication *>(QCoreApplication::instance()))
        return presentAlertInLog(alert);
    const Box made(alert);
    const QPointer<QMessageBox> alive(made.box);
    if (alert.bringsToFront) {
        made.box->show();
        made.box->raise();
        made.box->activateWindow();
    }
    made.box->exec();
    if (!alive)
        return alert.answerWithoutWindow;
    const int answer = made.answer();
    if (made.suppression && alert.suppressed)
        *alert.suppressed = made.suppression->isChecked();
    delete made.box;
    return answer;
}

void presentAlertAsSheet(const Alert &alert, QWidget *parent, const std::function<void(int)> &handler) {
    const Box made(alert);
    made.box->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(made.box, &QDialog::finished, made.box, [made, handler](int) {
        if (handler)
            handler(made.answer());
    });
    // A sheet does not outlive its window.
    QObject::connect(parent, &QObject::destroyed, made.box, &QObject::deleteLater);
    whenApplicationQuits(made.box, [box = made.box] { delete box; });
    made.box->adjustSize();
    attachSheet(made.box, parent);
    made.box->show();
}

void presentError(const TXError &error) { errorPresenter()(error); }

namespace {

void presentErrorInAlert(const TXError &error) {
    QString message = error.localizedDescription();
    if (message.isEmpty())
        message = localizedFormat(u"The operation could not be completed. (%@ error %@.)"_s,
                                  {error.domain(), QString::number(error.code())});
    QStringList informative;
    for (const QString &text : {error.localizedFailureReason(), error.localizedRecoverySuggestion()}) {
        if (!text.isEmpty() && text != message)
            informative << text;
    }
    (void)services().presentAlert({.message = message,
                                   .informative = informative.join(u"\n\n"_s),
                                   .buttons = {localizedString(u"OK"_s)},
                                   .critical = true});
}

} // namespace

ErrorPresenter &errorPresenter() {
    static ErrorPresenter presenter = presentErrorInAlert;
    return presenter;
}

namespace {

/// Loading the framework replaces the log with the window. A program that links the framework without its
/// user interface keeps the log.
const bool registered = [] {
    services().presentAlert = presentAlertInWindow;
    services().presentSheet = presentAlertAsSheet;
    return true;
}();

} // namespace

} // namespace tx
