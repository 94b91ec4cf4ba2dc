// SPDX-License-Identifier: MIT
#include "ui/screens.h"

#include "platform/queues.h"
#include "platform/services.h"

#include <QGuiApplication>
#include <QScreen>

namespace tx {

QList<ScreenInfo> screensOfDesktop() {
    QList<ScreenInfo> result;
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return result;
    const bool asked = runOnMainAndWait([&result] {
        for (const QScreen *screen : QGuiApplication::screens())
            result.append({screen->geometry().size(), screen->devicePixelRatio()});
    });
    return asked ? result : QList<ScreenInfo>();
}

namespace {

/// Loading the framework makes its screens known; a program that holds the framework without its user
/// interface has none.
const bool registered = [] {
    services().screens = screensOfDesktop;
    return true;
}();

} // namespace

} // namespace tx
