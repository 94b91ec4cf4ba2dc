// SPDX-License-Identifier: MIT
#include "platform/queues.h"
#include "platform/services.h"
#include "tests/support/environment.h"
#include "ui/screens.h"

#include <QGuiApplication>
#include <QScreen>
#include <QThread>

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

} // namespace
