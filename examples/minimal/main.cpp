// SPDX-License-Identifier: MIT
#include <QApplication>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QUrl>

#include <TarvixUpdate/TarvixUpdate.h>

int main(int argc, char **argv) {
    QApplication application(argc, argv);
    QMainWindow window;
    TXUpdater::sharedUpdater()->setFeedURL(QUrl(QStringLiteral("https://example.org/downloads/feed.json")));
    TXStandardUpdateController updates;
    updates.setup();
    window.menuBar()->addMenu(QStringLiteral("&Help"))->addAction(QStringLiteral("Check for &Updates…"), [&] {
        updates.checkForUpdateAndShowChecking(true, true);
    });
    window.show();
    return application.exec();
}
