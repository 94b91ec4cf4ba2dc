// SPDX-License-Identifier: MIT
#include "base/queues.h"
#include "os/services.h"
#include "tests/support/environment.h"
#include "widgets/screens.h"

#include <QGuiApplication>
#include <QScreen>
#include <QThread>
#include <QWidget>

namespace {

class Screens : public tx::test::FrameworkTest {};

TEST_F(Screens, AreAskedOfTheDesktopFromAnyThread) {
    QList<tx::ScreenInfo> screens;
    std::atomic<bool> done{false};
    tx::runInBackground([&] {
        screens = tx::screensOfDesktop();
        done = true;
    });
    ASSERT_TRUE(tx::test::waitUntil([&] { return done.load(); }));
    ASSERT_EQ(screens.size(), QGuiApplication::screens().size());
    ASSERT_GT(screens.size(), 0);
    EXPECT_EQ(screens[0].size, QSizeF(QGuiApplication::primaryScreen()->geometry().size()));
    EXPECT_EQ(screens[0].scale, QGuiApplication::primaryScreen()->devicePixelRatio());
    EXPECT_EQ(tx::services().screens().size(), screens.size())
        << "loading the user interface makes them known";
}

TEST_F(Screens, WindowIsNoLargerThanItsScreenWithItsTitleBar) {
    const QWidget window;
    const QSize available = window.screen()->availableGeometry().size();
    EXPECT_EQ(tx::contentSizeOnScreen({300, 200}, &window), QSize(300, 200));
    const QSize largest = tx::contentSizeOnScreen({100000, 100000}, &window);
    EXPECT_LT(largest.width(), available.width()) << "the borders have theirs";
    EXPECT_GT(largest.width(), available.width() - 50);
    EXPECT_LT(largest.height(), available.height()) << "the title bar has its place as well";
    EXPECT_GT(largest.height(), available.height() - 100);
    EXPECT_EQ(tx::contentSizeOnScreen({100000, 200}, &window), QSize(largest.width(), 200));
}

} // namespace
