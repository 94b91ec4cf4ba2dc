// SPDX-License-Identifier: MIT
#include "widgets/modalsession.h"

#include <QEventLoop>
#include <QList>
#include <QPointer>
#include <QWidget>

namespace tx {

namespace {

struct Session {
    explicit Session(const QWidget *shown)
        : window(shown) {}
    const QWidget *window;
    QEventLoop loop;
    int code = 0;
};

QList<Session *> &sessions() {
    static QList<Session *> running;
    return running;
}

Session *sessionOf(const QWidget *window) {
    for (Session *session : sessions()) {
        if (session->window == window)
            return session;
    }
    return nullptr;
}

} // namespace

int runModalForWindow(QWidget *window) {
    Session session(window);
    const QPointer<QWidget> alive(window);
    sessions().append(&session);
    QObject::connect(window, &QObject::destroyed, &session.loop, &QEventLoop::quit);
    window->setWindowModality(Qt::ApplicationModal);
    window->show();
    window->raise();
    window->activateWindow();
    session.loop.exec(QEventLoop::DialogExec);
    sessions().removeOne(&session);
    if (alive)
        window->hide(); // when the application quits, nobody else does
    return session.code;
}

void stopModalOfWindow(const QWidget *window, int code) {
    if (Session *session = sessionOf(window)) {
        session->code = code;
        session->loop.quit();
    }
}

bool isModalWindow(const QWidget *window) { return sessionOf(window) != nullptr; }

} // namespace tx
