// SPDX-License-Identifier: MIT
#include "widgets/screens.h"

#include "base/queues.h"
#include "os/services.h"

#include <QGuiApplication>
#include <QScreen>
#include <QStyle>
#include <QWidget>

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

QSize contentSizeOnScreen(const QSize &size, const QWidget *window) {
    const QScreen *screen = window->screen();
    if (!screen)
        return size;
    // The style estimates the frame of a window that is not shown.
    QSize around = window->frameGeometry().size() - window->size();
    if (around.isNull()) {
        const int border = window->style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth, nullptr, window);
        const int title = window->style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, window);
        around = {2 * border, title + 2 * border};
    }
    return size.boundedTo(screen->availableGeometry().size() - around);
}

namespace {

/// Loading the framework registers its screens. A program that links the framework without its user interface
/// has none.
const bool registered = [] {
    services().screens = screensOfDesktop;
    return true;
}();

} // namespace

} // namespace tx
