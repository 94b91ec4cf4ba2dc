// SPDX-License-Identifier: MIT
// Which windows are above which: as Qt is told, and as a window manager on a display of its own has it.
#include "tests/ui/uitest.h"

#include <TarvixUpdate/TXUpdatePanel.h>

#include <QDialog>
#include <QGuiApplication>
#include <QProcess>
#include <QWindow>

using namespace Qt::StringLiterals;
using tx::test::waitUntil;

namespace {

/// Windows of the host, of which one is active.
class FloatingPanel : public tx::test::UiTest {
protected:
    std::shared_ptr<TXUpdatePanel> panel;
    QList<int> codes;

    FloatingPanel() { becomeHost(u"1042"_s, u"2.0"_s); }
    /// Makes the panel and shows it as a window of its own.
    void showPanel() {
        panel = TXUpdatePanel::panel();
        const QList<TXUpdatePtr> updates = makeUpdates(1);
        panel->setUpdatesAndDesignatedUpdate(updates, updates[0]);
        panel->showWindow([this](int code) { codes.append(code); });
        tx::test::drainEvents();
    }
    static void activate(QWidget &window) {
        window.show();
        window.activateWindow();
        ASSERT_TRUE(waitUntil([&] { return QGuiApplication::focusWindow() == window.windowHandle(); }));
        tx::test::drainEvents();
    }
    [[nodiscard]] QWindow *below() const { return panel->windowHandle()->transientParent(); }
};

TEST_F(FloatingPanel, IsATransientOfTheWindowThatIsActive) {
    QWidget first;
    QWidget second;
    first.show();
    activate(second);
    showPanel();
    EXPECT_EQ(below(), second.windowHandle());
    EXPECT_FALSE(panel->windowFlags() & Qt::WindowStaysOnTopHint);
    EXPECT_EQ(panel->windowModality(), Qt::NonModal);
    activate(first);
    EXPECT_EQ(below(), first.windowHandle());
    EXPECT_TRUE(panel->isVisible());
    activate(*panel);
    EXPECT_EQ(below(), first.windowHandle()) << "its own activation changes nothing";
    QDialog dialog(&second);
    activate(dialog);
    EXPECT_EQ(below(), dialog.windowHandle()) << "a dialog is a window of the application, too";
    dialog.hide();
    activate(second);
    EXPECT_EQ(below(), second.windowHandle());
    panel->closeWithCode(0);
    activate(first);
    EXPECT_EQ(below(), second.windowHandle()) << "a closed panel follows no more";
}

TEST_F(FloatingPanel, StaysBelowWindowsThatAreModalItsOwnOrOfAnotherKind) {
    QWidget host;
    activate(host);
    showPanel();
    ASSERT_EQ(below(), host.windowHandle());
    QDialog modal;
    modal.setWindowModality(Qt::ApplicationModal);
    activate(modal);
    EXPECT_EQ(below(), host.windowHandle());
    modal.hide();
    QDialog own(panel.get());
    activate(own);
    EXPECT_EQ(below(), host.windowHandle()) << "a window cannot be above and below another";
    own.hide();
    QWidget tool(nullptr, Qt::Tool);
    activate(tool);
    EXPECT_EQ(below(), host.windowHandle());
    panel->closeWithCode(0);
}

TEST_F(FloatingPanel, WithoutAnActiveWindowFloatsAboveOneThatIsVisible) {
    QWidget hidden;
    hidden.winId();
    QWidget host;
    host.setAttribute(Qt::WA_ShowWithoutActivating);
    host.show();
    ASSERT_EQ(QGuiApplication::focusWindow(), nullptr);
    showPanel();
    EXPECT_EQ(below(), host.windowHandle());
    panel->closeWithCode(0);
}

TEST_F(FloatingPanel, OutlivesTheWindowsBelowIt) {
    auto first = std::make_unique<QWidget>();
    activate(*first);
    showPanel();
    first->hide();
    tx::test::drainEvents();
    EXPECT_TRUE(panel->isVisible());
    first.reset();
    tx::test::drainEvents();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_TRUE(codes.isEmpty());
    QWidget second;
    activate(second);
    EXPECT_EQ(below(), second.windowHandle());
    panel->closeWithCode(0);
    EXPECT_EQ(codes, QList<int>{0});
}

class Stacking : public tx::test::UiTest {
protected:
    QProcess display, manager, host, other;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();

    Stacking() {
        const QString number = path(u"display"_s);
        display.start(
            u"/bin/sh"_s,
            {u"-c"_s, u"exec Xvfb -displayfd 3 -screen 0 1280x900x24 -nolisten tcp 3> \"$0\""_s, number});
        EXPECT_TRUE(waitUntil([&] { return tx::test::readFile(number).endsWith('\n'); }));
        environment.insert(u"DISPLAY"_s, u':' + QString::fromLatin1(tx::test::readFile(number)).trimmed());
        environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
        environment.remove(u"WAYLAND_DISPLAY"_s);
        manager.setProcessEnvironment(environment);
        manager.start(u"openbox"_s, {});
        EXPECT_TRUE(manager.waitForStarted()) << "openbox is missing";
        replaceResource(u"TXUpdateWebView.so"_s, {}); // no page is needed
    }
    ~Stacking() override {
        for (QProcess *process : {&host, &other, &manager, &display}) {
            process->kill();
            process->waitForFinished();
        }
    }
    void start(QProcess &process, const QStringList &arguments) {
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(TEST_HELPERS) + u"/floating_host"_s,
                      QStringList{path(u"resources"_s)} + arguments);
        ASSERT_TRUE(process.waitForStarted());
    }
    static void activate(QProcess &process, const char *window) {
        process.write(QByteArray("activate ") + window + '\n');
    }
    QByteArray order() {
        host.write("order\n");
        return host.waitForReadyRead(10000) ? host.readLine().trimmed() : QByteArray("no answer");
    }
    /// The order settles as the window manager comes to it.
    void expectOrder(const char *expected) {
        QByteArray last;
        EXPECT_TRUE(waitUntil([&] { return (last = order()) == expected; }, 10000))
            << last.constData() << " instead of " << expected;
    }
};

TEST_F(Stacking, PanelStaysAboveTheApplicationsWindowsAndNotAboveOtherPrograms) {
    start(host, {});
    EXPECT_TRUE(waitUntil([this] { return order().size() == 3; }));
    for (const auto &[window, expected] :
         {std::pair{"A", "BAP"}, {"B", "ABP"}, {"P", "ABP"}, {"A", "BAP"}, {"A", "BAP"}}) {
        activate(host, window);
        expectOrder(expected);
    }
    start(other, {u"other"_s});
    EXPECT_TRUE(waitUntil([this] { return order().size() == 4; }));
    activate(other, "O");
    expectOrder("BAP?");
}

} // namespace
