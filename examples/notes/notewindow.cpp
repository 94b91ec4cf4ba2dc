// SPDX-License-Identifier: MIT
#include "notewindow.h"

#include <QCloseEvent>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QStatusBar>

NoteWindow::NoteWindow(const Notes &notes)
    : m_notes(notes)
    , m_text(new QPlainTextEdit(this)) {
    const TXUpdateHost *host = TXUpdateHost::host();
    setWindowTitle(host->name());
    resize(720, 460);
    m_text->setPlainText(notes.text());
    m_text->setPlaceholderText(tr("Write your notes here, one on each line"));
    m_text->setAccessibleName(tr("Notes"));
    setCentralWidget(m_text);
    statusBar()->showMessage(
        tr("%1 %2 (build %3)").arg(host->name(), host->displayVersion(), host->version()));

    QMenu *file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);
    QMenu *help = menuBar()->addMenu(tr("&Help"));
    checkAction = help->addAction(tr("Check for &Updates…"), &updates,
                                  [this] { updates.checkForUpdateAndShowChecking(true, true); });
    newsAction = help->addAction(tr("&News…"), &updates, [this] { updates.showPostsPassively(); });

    updates.setDelegate(this);
    updates.setup();

    // setup() switches the description of this computer on where its user has not said no.
    TXUpdater *updater = TXUpdater::sharedUpdater();
    profileAction = help->addAction(tr("Send &System Details with Update Checks"));
    profileAction->setCheckable(true);
    profileAction->setChecked(updater->sendsSystemProfile());
    profileAction->setStatusTip(
        tr("Once a week: processor, memory, graphics, screens, system version and language. No names, no "
           "serial numbers, no files."));
    connect(profileAction, &QAction::toggled, updater, &TXUpdater::setSendsSystemProfile);
    connect(updater, &TXUpdater::settingsChanged, profileAction,
            [this, updater] { profileAction->setChecked(updater->sendsSystemProfile()); });
    updateInterfaceForUpdateControllerStatus(&updates);
}

void NoteWindow::updateInterfaceForUpdateControllerStatus(TXStandardUpdateController *controller) {
    if (!checkAction)
        return;
    checkAction->setEnabled((controller->status() & TXStandardUpdateControllerStatusChecking) == 0);
    newsAction->setEnabled(controller->hasPostsToShowPassively());
}

std::optional<TXUpdateCurrentConditions>
NoteWindow::currentConditionsForUpdating(TXStandardUpdateController *) {
    return TXUpdateCurrentConditions{TXUpdateConditionLaunchNotFirst};
}

void NoteWindow::write(const QString &text) { m_text->insertPlainText(text); }

bool NoteWindow::keepsNotes() {
    if (!m_text->document()->isModified())
        return true;
    const auto answer = QMessageBox::warning(
        this, tr("Unsaved Changes"),
        tr("Do you want to save the changes to your notes?\n\nChanges that you do not save are lost."),
        QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, QMessageBox::Save);
    if (answer == QMessageBox::Cancel)
        return false;
    if (answer == QMessageBox::Save && !m_notes.replace(m_text->toPlainText())) {
        statusBar()->showMessage(
            tr("Your notes could not be saved. Check the free space and the rights of your home folder."));
        return false;
    }
    m_text->document()->setModified(false);
    return true;
}

// Also asked when an update is about to be installed: an ignored event keeps the application open, and the
// update is installed later.
void NoteWindow::closeEvent(QCloseEvent *event) {
    if (!keepsNotes()) {
        event->ignore();
        return;
    }
    updates.showPostsAtQuit();
    event->accept();
}
