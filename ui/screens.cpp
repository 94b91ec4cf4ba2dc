// SPDX-License-Identifier: MIT
#include "ui/screens.h"

#include "platform/queues.h"
#include "platform/services.h"

#include <QGuiApplication>
#include <QScreen>

#include <memory>

namespace tx {

QList<ScreenInfo> screensOfDesktop() {
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return {};
    const auto result = std::make_shared<QList<ScreenInfo>>();
    const bool asked = runOnMainAndWait([result] {
        for (const QScreen *screen : QGuiApplication::screens())
            result->append({screen->geometry().size(), screen->devicePixelRatio()});
    });
    return asked ? *result : QList<ScreenInfo>();
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
