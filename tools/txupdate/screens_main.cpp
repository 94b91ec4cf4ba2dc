// SPDX-License-Identifier: MIT
// txupdate-screens: prints a line "WIDTH HEIGHT SCALE" for each screen of the desktop. A separate program, so
// that txupdate does not load a user interface, and does not fail without a desktop.

#include <QGuiApplication>
#include <QScreen>

#include <cstdio>

int main(int argc, char **argv) {
    const QGuiApplication application(argc, argv);
    for (const QScreen *screen : QGuiApplication::screens())
        std::printf("%d %d %g\n", screen->geometry().width(), screen->geometry().height(),
                    screen->devicePixelRatio());
    return 0;
}
