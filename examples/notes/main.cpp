// SPDX-License-Identifier: MIT
// TarvixNotes: a notes keeper that updates itself. With a display it is a window, where the framework's own
// windows do everything (NoteWindow); with a command it works on the terminal, and drives the update itself
// (Updating below).

#include "launchlog.h"
#include "notes.h"
#include "notewindow.h"
#include "walkthrough.h"

#include <TarvixUpdate/TarvixUpdate.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QPalette>
#include <QSocketNotifier>
#include <QTextStream>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void say(const QString &line) {
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

/// The whole update, told step by step on the terminal.
class Updating {
public:
    void start() {
        say(u"Asking %1"_s.arg(TXUpdater::sharedUpdater()->feedURL().toString()));
        m_timer.start();
        TXUpdater::sharedUpdater()->checkForUpdate([this](const TXUpdateFeedPtr &feed, const TXError &error) {
            if (error) {
                fail(error);
                return;
            }
            m_update = feed->recommendedUpdate();
            if (!m_update) {
                say(u"This is the latest version."_s);
                QCoreApplication::exit(0);
                return;
            }
            step(u"check"_s);
            say(u"Version %1 (build %2) is available: %3"_s.arg(m_update->displayVersion(),
                                                                m_update->version(), m_update->title()));
            download();
        });
    }

private:
    void download() {
        m_update->downloadWithProgress([](double progress) { say(u"  %1 %"_s.arg(qRound(progress * 100))); },
                                       [this](const TXError &error) {
                                           if (error) {
                                               fail(error);
                                               return;
                                           }
                                           step(u"download"_s);
                                           install();
                                       });
    }

    void install() {
        say(u"Unpacking %1 and handing over to the installer"_s.arg(
            m_update->downloadPath().section(u'/', -1)));
        m_update->installWithErrorHandler([](const TXError &error) {
            if (error)
                fail(error);
            else
                QCoreApplication::exit(2); // the new version is in the Downloads folder
        });
        // On success this process ends and the new version is started in its place.
    }

    void step(const QString &name) { say(u"step %1 took %2 ms"_s.arg(name).arg(m_timer.restart())); }

    static void fail(const TXError &error) {
        say(u"%1 %2"_s.arg(error.localizedDescription(), error.localizedFailureReason()));
        QCoreApplication::exit(1);
    }

    TXUpdatePtr m_update;
    QElapsedTimer m_timer;
};

void recordLaunch() {
    const TXUpdateHost *host = TXUpdateHost::host();
    recordLine(u"build=%1 version=%2 pid=%3 path=%4"_s.arg(host->version(), host->displayVersion())
                   .arg(QCoreApplication::applicationPid())
                   .arg(host->bundle().bundlePath()));
}

int runCommand(const QStringList &words, const Notes &notes, Updating &updating) {
    const QString command = words.value(0);
    if (command == u"add") {
        QString reason;
        if (!notes.add(words.mid(1).join(u' '), &reason))
            say(u"The note could not be saved: %1"_s.arg(reason));
    } else if (command == u"list") {
        say(notes.text().trimmed());
    } else if (command == u"version") {
        say(u"%1 %2 (build %3)"_s.arg(TXUpdateHost::host()->name(), TXUpdateHost::host()->displayVersion(),
                                      TXUpdateHost::host()->version()));
    } else if (command == u"update") {
        if (words.size() > 1)
            TXUpdater::sharedUpdater()->setFeedURL(QUrl(words[1]));
        updating.start();
        return -1;
    } else if (command == u"move") {
        // A moved application is opened from its new place, and this process ends.
        return TXUpdateAppMover::moveToApplicationsFolderWithoutAsking() == TXUpdateAppMover::Failed ? 1 : 0;
    } else if (command == u"profile" && (words.value(1) == u"on" || words.value(1) == u"off")) {
        // Whether a description of this machine goes along with a check, once a week, is the user's to say.
        TXUpdater::sharedUpdater()->setSendsSystemProfile(words[1] == u"on");
    } else if (command == u"quit") {
        QCoreApplication::exit(0);
    } else {
        say(u"Commands: add TEXT, list, version, update [FEED], profile on|off, move, quit"_s);
        return 64;
    }
    return 0;
}

} // namespace

namespace {

bool hasDisplay() {
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}

QPalette darkPalette() {
    QPalette palette(QColor(53, 53, 56), QColor(43, 43, 46));
    palette.setColor(QPalette::Base, QColor(30, 30, 32));
    palette.setColor(QPalette::Text, Qt::white);
    palette.setColor(QPalette::Highlight, QColor(47, 127, 214));
    return palette;
}

/// The application with its window.
int runWindow(int &argc, char **argv) {
    QApplication application(argc, argv);
    if (qEnvironmentVariable("TARVIX_NOTES_APPEARANCE") == u"dark"_s)
        QApplication::setPalette(darkPalette());
    QApplication::setApplicationDisplayName(TXUpdateHost::host()->name());
    recordLaunch();
    const Notes notes;
    if (qEnvironmentVariableIsSet("TARVIX_NOTES_FEED"))
        TXUpdater::sharedUpdater()->setFeedURL(QUrl(qEnvironmentVariable("TARVIX_NOTES_FEED")));
    NoteWindow window(notes);
    window.show();
    std::unique_ptr<Walkthrough> walkthrough;
    if (qEnvironmentVariableIsSet("TARVIX_NOTES_PICTURES"))
        walkthrough = std::make_unique<Walkthrough>(window, qEnvironmentVariable("TARVIX_NOTES_PICTURES"));
    return QApplication::exec();
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 1 && hasDisplay())
        return runWindow(argc, argv);
    QCoreApplication application(argc, argv);
    recordLaunch();
    const Notes notes;
    Updating updating;
    const QStringList words = QCoreApplication::arguments().mid(1);
    if (!words.isEmpty()) {
        const int status = runCommand(words, notes, updating);
        return status >= 0 ? status : QCoreApplication::exec();
    }
    // Without a command: an application that stays, and takes commands from its terminal when it has one.
    QTextStream input(stdin);
    QSocketNotifier notifier(fileno(stdin), QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &application, [&] {
        const QString line = input.readLine();
        if (line.isNull())
            notifier.setEnabled(false);
        else if (!line.trimmed().isEmpty())
            runCommand(line.trimmed().split(u' '), notes, updating);
    });
    return QCoreApplication::exec();
}
