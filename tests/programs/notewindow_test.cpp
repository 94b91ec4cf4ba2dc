// SPDX-License-Identifier: MIT
// The example's window: what its menu offers beside the framework's own windows.
#include "examples/notes/notewindow.h"
#include "os/userdefaults.h"
#include "tests/support/environment.h"

#include <QApplication>
#include <QMenu>
#include <QMenuBar>

using namespace Qt::StringLiterals;

std::unique_ptr<QCoreApplication> makeApplication(int &argc, char **argv) {
    return std::make_unique<QApplication>(argc, argv);
}

namespace {

class Example : public tx::test::FrameworkTest {
protected:
    Example() { tx::services().firstCheckDelay = std::chrono::hours(1); }
    const Notes notes;
};

TEST_F(Example, MenuHasOneCharacterForEachEllipsis) {
    const NoteWindow window(notes);
    for (const QAction *menu : window.menuBar()->actions()) {
        for (const QAction *action : menu->menu()->actions())
            EXPECT_FALSE(action->text().contains(u"..."_s)) << action->text().toStdString();
    }
    EXPECT_EQ(QString(window.checkAction->text()).remove(u'&'), u"Check for Updates\u2026"_s);
}

TEST_F(Example, MenuSwitchesTheSystemProfileAndRemembersIt) {
    TXUpdater *updater = TXUpdater::sharedUpdater();
    {
        const NoteWindow window(notes);
        QAction *action = window.profileAction;
        const QMenu *help = window.menuBar()->actions().last()->menu();
        ASSERT_TRUE(help->actions().contains(action));
        EXPECT_TRUE(action->isCheckable());
        EXPECT_TRUE(action->isEnabled());
        EXPECT_THAT(action->statusTip().toStdString(), testing::HasSubstr("processor, memory, graphics"))
            << "says what is sent";
        EXPECT_TRUE(action->isChecked()) << "setup() switches it on";
        EXPECT_TRUE(updater->sendsSystemProfile());
        action->trigger();
        EXPECT_FALSE(updater->sendsSystemProfile());
        action->trigger();
        EXPECT_TRUE(updater->sendsSystemProfile());
        action->trigger();
    }
    const NoteWindow next(notes);
    EXPECT_FALSE(updater->sendsSystemProfile()) << "the choice outlives the next start";
    EXPECT_FALSE(next.profileAction->isChecked());
    updater->setSendsSystemProfile(true);
    EXPECT_TRUE(next.profileAction->isChecked()) << "it follows what is set elsewhere";
}

} // namespace
