// SPDX-License-Identifier: MIT
// quit_host WHAT NOTES: an application with a main window and one window of the framework, which shows the
// page NOTES. It quits on SIGTERM and closes its main window on SIGUSR1. WHAT:
//   window, sheet, modal   the update panel, shown in this way
//   kept                   the same as a window, and the host keeps it longer than the application object
//   closing                as window; it is closed in the event loop's last turn
//   controller             the standard controller's panel, and the controller is never destroyed
//   post                   a post window
//   late, latepost         as window; another panel, or a post window, is opened while the application quits
//   first                  a panel is opened for the first time while the application quits
//   exit                   as window; SIGTERM closes it and calls exit()
//   after                  as window; another panel is opened once the event loop has ended

#include "os/services.h"
#include "tests/support/places.h"

#include <TarvixUpdate/TXUpdatePanel.h>
#include <TarvixUpdate/TXUpdatePostWindowController.h>
#include <TarvixUpdate/TarvixUpdate.h>

#include <QApplication>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

int signalPipe[2];

void passOn(int number) {
    const auto byte = static_cast<char>(number);
    (void)!write(signalPipe[1], &byte, 1);
}

TXUpdatePtr updateWithNotes(const QUrl &notes) {
    auto update = std::make_shared<TXUpdate>();
    update->setVersion(u"1043"_s);
    update->setDisplayVersion(u"2.1"_s);
    update->setFileURL(QUrl(u"http://127.0.0.1:1/a.zip"_s));
    update->setReleaseNotesURL(notes);
    return update;
}

std::shared_ptr<TXUpdatePanel> panelWithNotes(const QUrl &notes) {
    auto panel = TXUpdatePanel::panel();
    const TXUpdatePtr update = updateWithNotes(notes);
    panel->setUpdatesAndDesignatedUpdate({update}, update);
    return panel;
}

void say(const char *word) {
    std::printf("%s\n", word);
    std::fflush(stdout);
}

void showPost(const QUrl &page) {
    auto post = std::make_shared<TXUpdatePost>();
    post->setPostURL(page);
    const auto window = TXUpdatePostWindowController::sharedInstance();
    window->setPosts({post});
    (void)window->showWindowModally(false);
}

std::shared_ptr<TXUpdatePanel> keptPanel;

void showPanel(const QUrl &notes) {
    panelWithNotes(notes)->showWindow([](int) { say("panel closed"); });
}

/// As a host may, without the event loop in between.
[[noreturn]] void closeAndExit() {
    keptPanel->closeWithCode(0);
    keptPanel.reset();
    say("exiting");
    std::exit(0);
}

void show(const QString &what, const QUrl &notes, QWidget &window) {
    if (what == u"sheet") {
        panelWithNotes(notes)->beginSheetModalForWindow(&window, [](int) { say("panel closed"); });
    } else if (what == u"modal") {
        (void)panelWithNotes(notes)->runModal();
        say("panel closed");
    } else if (what == u"controller") {
        auto *controller = new TXStandardUpdateController; // like a host's that is never destroyed
        controller->setBestUpdate(updateWithNotes(notes));
        controller->showBestUpdateInPanel();
    } else if (what == u"post") {
        showPost(notes);
        say("post closed");
    } else if (what == u"late" || what == u"latepost") {
        showPanel(notes);
        // The framework has its slot already: this one runs after it.
        QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, &window,
                         [notes, isPost = what == u"latepost"] {
                             if (isPost)
                                 showPost(notes.resolved(QUrl(u"/closing.html"_s)));
                             else
                                 showPanel(notes);
                             say("opened late");
                         });
    } else if (what != u"first") {
        const auto panel = panelWithNotes(notes);
        panel->showWindow([](int) { say("panel closed"); });
        if (what == u"kept" || what == u"exit")
            keptPanel = panel;
        if (what == u"closing")
            QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, panel.get(),
                             [panel = panel.get()] { panel->closeWithCode(0); });
    }
}

} // namespace

// As for the tests' own processes: the web engine deletes objects of its own by a base class, and keeps some
// to the end.
extern "C" [[gnu::visibility("default")]] const char *
__asan_default_options();                         // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "new_delete_type_mismatch=0:detect_leaks=0";
}

int main(int argc, char **argv) {
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    if (argc != 3 || socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0)
        return 64;
    const QString what = QString::fromLocal8Bit(argv[1]);
    const QUrl notes(QString::fromLocal8Bit(argv[2]));
    int status = 0;
    {
        QApplication application(argc, argv);
        tx::services().resourcesPath = [] { return tx::test::resourcesFolder(); };
        QWidget window;
        window.resize(300, 200);
        window.show();
        std::signal(SIGTERM, passOn);
        std::signal(SIGUSR1, passOn);
        QSocketNotifier notifier(signalPipe[0], QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, &application, [&] {
            char number = 0;
            if (read(signalPipe[0], &number, 1) == 1 && number == SIGUSR1)
                window.close();
            else if (what == u"exit")
                closeAndExit();
            else
                QCoreApplication::quit();
        });
        QTimer::singleShot(0, &window, [&] {
            say("running");
            show(what, notes, window);
        });
        if (what == u"first")
            QObject::connect(&application, &QCoreApplication::aboutToQuit, &window, [notes] {
                showPanel(notes);
                say("opened late");
            });
        status = QApplication::exec();
        if (what == u"after")
            showPanel(notes);
        int left = 0;
        for (const QWidget *widget : QApplication::allWidgets()) {
            const bool isPanel = qobject_cast<const TXUpdatePanel *>(widget) && widget != keptPanel.get();
            left += isPanel || widget->inherits("QWebEngineView") ? 1 : 0;
        }
        std::printf("windows left: %d\n", left);
        say("ended");
    }
    return status;
}
