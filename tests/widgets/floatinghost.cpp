// SPDX-License-Identifier: MIT
// floating_host RESOURCES [other]: two windows, A and B, and the update panel P; or, as another program, the
// window O. Reads commands, one a line:
//   activate NAME   what the window manager does when the user clicks into that window (X11)
//   order           writes the windows from the lowest to the highest; those of other programs are "?" (X11)
//   focus           writes which window has the keyboard's focus, and which one the panel is a transient of
#include "os/services.h"

#include <TarvixUpdate/TXUpdatePanel.h>

#include <QApplication>
#include <QSocketNotifier>
#include <QWindow>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <unistd.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {

std::map<std::string, QWidget *> windows;

/// The window manager's list, from the lowest to the highest.
std::string order() {
    xcb_connection_t *connection =
        qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
    const auto get = [&](auto cookie, auto reply) {
        return std::unique_ptr<std::remove_pointer_t<decltype(reply(connection, cookie, nullptr))>,
                               decltype(&std::free)>(reply(connection, cookie, nullptr), &std::free);
    };
    const std::string name = "_NET_CLIENT_LIST_STACKING";
    const auto atom =
        get(xcb_intern_atom(connection, 0, uint16_t(name.size()), name.data()), xcb_intern_atom_reply);
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    const auto list = get(xcb_get_property(connection, 0, root, atom->atom, XCB_ATOM_WINDOW, 0, 1000),
                          xcb_get_property_reply);
    const auto *ids = static_cast<const xcb_window_t *>(xcb_get_property_value(list.get()));
    std::string result;
    for (int i = 0; i < xcb_get_property_value_length(list.get()) / 4; ++i) {
        std::string found = "?";
        for (const auto &[own, window] : windows) {
            if (window->winId() == ids[i])
                found = own;
        }
        result += found;
    }
    return result;
}

std::string nameOf(const QWindow *window) {
    for (const auto &[name, own] : windows) {
        if (window && own && own->windowHandle() == window)
            return name;
    }
    return "-";
}

void obey(const std::string &command) {
    if (command == "order") {
        std::printf("%s\n", order().c_str());
        std::fflush(stdout);
    } else if (command == "focus") {
        std::printf("%s above %s\n", nameOf(QGuiApplication::focusWindow()).c_str(),
                    nameOf(windows["P"]->windowHandle()->transientParent()).c_str());
        std::fflush(stdout);
    } else if (QWidget *window = windows[command.substr(command.find(' ') + 1)]) {
        window->raise();
        window->activateWindow();
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2)
        return 64;
    const QApplication application(argc, argv);
    const QString resources = QString::fromLocal8Bit(argv[1]);
    tx::services().resourcesPath = [resources] { return resources; };
    QWidget first;
    QWidget second;
    std::shared_ptr<TXUpdatePanel> panel;
    first.setGeometry(50, 50, 400, 300);
    first.show();
    if (argc == 3) {
        windows["O"] = &first;
    } else {
        windows["A"] = &first;
        windows["B"] = &second;
        first.setWindowTitle(u"A"_s);
        second.setWindowTitle(u"B"_s);
        second.setGeometry(120, 120, 400, 300);
        second.show();
        panel = TXUpdatePanel::panel();
        panel->showWindow({});
        panel->setWindowTitle(u"P"_s);
        windows["P"] = panel.get();
    }
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    std::string pending;
    QObject::connect(&input, &QSocketNotifier::activated, &application, [&] {
        char text[256];
        const ssize_t count = read(STDIN_FILENO, text, sizeof text);
        if (count <= 0)
            QCoreApplication::quit();
        pending.append(text, size_t(std::max<ssize_t>(count, 0)));
        for (size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
            obey(pending.substr(0, end));
            pending.erase(0, end + 1);
        }
    });
    const int status = QApplication::exec();
    if (panel)
        panel->closeWithCode(0);
    return status;
}
