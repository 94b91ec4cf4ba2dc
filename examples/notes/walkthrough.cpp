// SPDX-License-Identifier: MIT
#include "walkthrough.h"

#include "launchlog.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPixmap>
#include <QProcess>
#include <QProgressBar>
#include <QScreen>
#include <QTableView>
#include <QWindow>

#include <cstdio>

namespace {

constexpr int interval = 50;
constexpr int longestWait = 30000;
constexpr int longestPicture = 15000;
/// Pixels of the desktop around the windows.
constexpr int margin = 24;

/// The dialog that holds a part of this name and shows it.
QDialog *dialogWith(const char *part) {
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        auto *dialog = qobject_cast<QDialog *>(widget);
        if (dialog && dialog->isVisible() && dialog->findChild<QWidget *>(QString::fromLatin1(part)))
            return dialog;
    }
    return nullptr;
}

QAbstractButton *buttonIn(const char *part) {
    QDialog *dialog = dialogWith(part);
    return dialog ? dialog->findChild<QAbstractButton *>(QString::fromLatin1(part)) : nullptr;
}

QString titleOf(const char *part) {
    const QAbstractButton *button = buttonIn(part);
    return button ? button->text() : QString();
}

/// Shows the notes of a version, if there are so many.
void selectVersion(int row) {
    QDialog *dialog = dialogWith("versionsTableView");
    if (auto *list = dialog ? dialog->findChild<QTableView *>(QStringLiteral("versionsTableView")) : nullptr)
        list->selectRow(row);
}

/// Later: what a modal window's button does must not run inside this object's timer.
void press(const char *part) {
    QTimer::singleShot(0, qApp, [part] {
        QAbstractButton *button = buttonIn(part);
        if (!button)
            return;
        const QPointF inside = button->rect().center();
        const QPointF onScreen = button->mapToGlobal(inside);
        QMouseEvent down(QEvent::MouseButtonPress, inside, onScreen, Qt::LeftButton, Qt::LeftButton, {});
        QMouseEvent up(QEvent::MouseButtonRelease, inside, onScreen, Qt::LeftButton, Qt::NoButton, {});
        QApplication::sendEvent(button, &down);
        QApplication::sendEvent(button, &up);
    });
}

/// The Return key in the dialog that holds this part.
void pressReturn(const char *part) {
    QTimer::singleShot(0, qApp, [part] {
        QDialog *dialog = dialogWith(part);
        if (!dialog)
            return;
        QWidget *target = dialog->focusWidget() ? dialog->focusWidget() : dialog;
        QKeyEvent down(QEvent::KeyPress, Qt::Key_Return, {}, QStringLiteral("\r"));
        QKeyEvent up(QEvent::KeyRelease, Qt::Key_Return, {}, QStringLiteral("\r"));
        QApplication::sendEvent(target, &down);
        QApplication::sendEvent(target, &up);
    });
}

/// The framework's alert or question.
QMessageBox *alert() {
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *box = qobject_cast<QMessageBox *>(widget); box && box->isVisible())
            return box;
    }
    return nullptr;
}

/// As if the user had pressed the Escape key.
void closeAlert() {
    QTimer::singleShot(0, qApp, [] {
        if (QMessageBox *box = alert())
            box->reject();
    });
}

/// The window's question about unsaved notes.
QMessageBox *question() {
    auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
    return box && box->button(QMessageBox::Discard) ? box : nullptr;
}

void answer(QMessageBox::StandardButton button) {
    QTimer::singleShot(0, qApp, [button] {
        if (QMessageBox *box = question())
            box->button(button)->click();
    });
}

/// Lets another program put a picture of the screen into the file; the reason when it does not.
QString askCamera(const QString &camera, const QString &file) {
    QProcess process;
    process.start(camera, {file});
    if (!process.waitForFinished(longestPicture)) {
        const QString reason = process.errorString();
        process.kill();
        process.waitForFinished();
        return QStringLiteral("%1: %2").arg(camera, reason);
    }
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return {};
    const QString said = QString::fromUtf8(process.readAllStandardError()).simplified();
    return said.isEmpty() ? QStringLiteral("%1 took none").arg(camera) : said;
}

} // namespace

Walkthrough::Walkthrough(NoteWindow &window, const QString &folder)
    : m_window(window)
    , m_folder(folder) {
    QDir().mkpath(folder);
    if (TXUpdateHost::host()->version() == QStringLiteral("1"))
        oldBuild();
    else if (TXUpdateHost::host()->bundle().bundlePath().contains(QStringLiteral("/Downloads/")))
        downloadedBuild();
    else
        newBuild();
    QRect place = m_window.frameGeometry();
    place.moveCenter(m_window.screen()->availableGeometry().center());
    m_window.move(place.topLeft());
    m_waiting.start();
    connect(&m_timer, &QTimer::timeout, this, &Walkthrough::advance);
    m_timer.start(interval);
}

void Walkthrough::oldBuild() {
    m_steps = {
        {QStringLiteral("1-window"), [this] { return m_window.isVisible(); },
         [this] { QTimer::singleShot(0, m_window.checkAction, &QAction::trigger); }},
        {QStringLiteral("2-checking"), [] { return dialogWith("theContentView") != nullptr; }, [] {}},
        {QStringLiteral("3-update"),
         [] { return titleOf("installButton") == QStringLiteral("Download Update"); },
         [] { selectVersion(2); }, 1500},
        {QStringLiteral("3-plain-notes"), [] { return buttonIn("installButton") != nullptr; },
         [] {
             selectVersion(0);
             press("installButton");
         },
         1500},
        {QStringLiteral("4-downloading"),
         [] {
             const QDialog *panel = dialogWith("progressIndicator");
             const auto *bar =
                 panel ? panel->findChild<QProgressBar *>(QStringLiteral("progressIndicator")) : nullptr;
             return titleOf("installButton") == QStringLiteral("Install Later") && bar &&
                    bar->value() > bar->maximum() / 4;
         },
         [] {}, 0, [] { return titleOf("installButton") == QStringLiteral("Install && Relaunch"); }},
        {QStringLiteral("5-downloaded"),
         [] { return titleOf("installButton") == QStringLiteral("Install && Relaunch"); },
         [this] {
             m_window.write(QStringLiteral("Written before the update.\n"));
             pressReturn("installButton");
         }},
        {QStringLiteral("5-unsaved"), [] { return question() != nullptr; },
         [] { answer(QMessageBox::Cancel); }},
        // The application stays, and so does the offer.
        {QString(),
         [] {
             const QAbstractButton *button = buttonIn("installButton");
             return !question() && button && button->isEnabled();
         },
         [] { pressReturn("installButton"); }},
        {QString(), [] { return question() != nullptr; }, [] { answer(QMessageBox::Save); }},
    };
}

void Walkthrough::newBuild() {
    m_steps = {
        {QStringLiteral("6-new-version"),
         [this] { return m_window.isVisible() && m_window.checkAction->isEnabled(); },
         [this] {
             m_feed = TXUpdater::sharedUpdater()->feedURL();
             TXUpdater::sharedUpdater()->setFeedURL(QUrl(QStringLiteral("http://127.0.0.1:1/feed.json")));
             QTimer::singleShot(0, m_window.checkAction, &QAction::trigger);
         }},
        {QStringLiteral("6-unreachable"), [] { return alert() != nullptr; }, [] { closeAlert(); }},
        {QString(),
         [this] {
             return !QApplication::activeModalWidget() && !alert() && m_window.checkAction->isEnabled();
         },
         [this] {
             TXUpdater::sharedUpdater()->setFeedURL(m_feed);
             QTimer::singleShot(0, m_window.checkAction, &QAction::trigger);
         },
         0},
        {QStringLiteral("7-up-to-date"),
         [] {
             const QDialog *panel = dialogWith("theContentView");
             return panel && panel->findChild<QLabel *>(QStringLiteral("messageField"))->isVisible();
         },
         [] { pressReturn("button"); }},
        {QString(), [this] { return m_window.newsAction->isEnabled() && !QApplication::activeModalWidget(); },
         [this] { QTimer::singleShot(0, m_window.newsAction, &QAction::trigger); }, 0},
        {QStringLiteral("8-news"), [] { return dialogWith("_bottomBarCloseButton") != nullptr; },
         [] { press("_bottomBarCloseButton"); }, 1500},
        {QString(), [] { return dialogWith("_bottomBarCloseButton") == nullptr; },
         [this] { QTimer::singleShot(0, &m_window, &QWidget::close); }, 0},
        {QStringLiteral("9-at-quit"), [] { return dialogWith("_bottomBarCloseButton") != nullptr; },
         [] { press("_bottomBarCloseButton"); }, 1500},
    };
}

void Walkthrough::downloadedBuild() {
    m_steps = {
        {QString(), [this] { return m_window.isVisible(); },
         [] {
             QTimer::singleShot(0, qApp,
                                [] { (void)TXUpdateAppMover::moveToApplicationsFolderIfNecessary(); });
         }},
        {QStringLiteral("10-move"), [] { return alert() != nullptr; }, [] { closeAlert(); }},
        {QString(), [] { return alert() == nullptr; },
         [] { QTimer::singleShot(0, qApp, [] { QCoreApplication::exit(0); }); }, 0},
    };
}

void Walkthrough::advance() {
    if (m_steps.isEmpty())
        return;
    if (m_waiting.elapsed() > longestWait) {
        std::fprintf(stderr, "walkthrough: waited in vain for %s\n",
                     m_steps.first().name.toUtf8().constData());
        std::exit(3);
    }
    if (m_steps.first().isPast && m_steps.first().isPast()) {
        m_steps.removeFirst();
        m_waiting.restart();
        return;
    }
    if (!m_steps.first().isReady()) {
        m_settled.invalidate();
        return;
    }
    if (!m_settled.isValid())
        m_settled.start();
    if (m_settled.elapsed() < m_steps.first().settle)
        return;
    const Step step = m_steps.takeFirst();
    m_settled.invalidate();
    m_waiting.restart();
    if (!step.name.isEmpty()) {
        const QString reason = takePicture(m_folder + QLatin1Char('/') + step.name + QStringLiteral(".png"));
        recordLine(QStringLiteral("state=%1 %2")
                       .arg(step.name, reason.isEmpty() ? QStringLiteral("picture")
                                                        : QStringLiteral("no picture: ") + reason));
    }
    step.act();
}

QString Walkthrough::takePicture(const QString &file) const {
    const QString camera = qEnvironmentVariable("TARVIX_NOTES_CAMERA");
    if (!camera.isEmpty())
        return askCamera(camera, file);
    // The texts belong to the bar beside them.
    for (QWidget *widget : QApplication::topLevelWidgets())
        widget->repaint();
    // The screen and not the widgets: this is what people see.
    QScreen *screen = m_window.screen();
    // The windows' own frames: widgets hear of theirs late.
    QRect area;
    for (const QWindow *window : QGuiApplication::topLevelWindows()) {
        if (window->isVisible() && window->type() != Qt::ToolTip)
            area = area.united(window->frameGeometry());
    }
    area = area.adjusted(-margin, -margin, margin, margin).intersected(screen->geometry());
    const QPixmap picture = screen->grabWindow(0, area.x(), area.y(), area.width(), area.height());
    if (picture.isNull())
        return QStringLiteral("this display shows its screen to no application");
    return picture.save(file) ? QString() : QStringLiteral("%1 could not be written").arg(file);
}
