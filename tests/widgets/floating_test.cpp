// SPDX-License-Identifier: MIT
// Which windows are above which: as Qt is told, and as a window manager on a display of its own has it.
#include "tests/support/places.h"
#include "tests/widgets/uitest.h"

#include <TarvixUpdate/TXUpdatePanel.h>

#include <QDialog>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
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
        process.start(tx::test::helpersFolder() + u"/floating_host"_s,
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
    /// The window manager may take long to start.
    void expectWindows(qsizetype count) {
        QByteArray last;
        EXPECT_TRUE(waitUntil([&] { return (last = order()).size() == count; }, 60000))
            << last.constData() << " instead of " << count << " windows. The window manager "
            << (manager.state() == QProcess::Running ? "runs: " : "has ended: ")
            << manager.readAllStandardError().constData();
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
    expectWindows(3);
    for (const auto &[window, expected] :
         {std::pair{"A", "BAP"}, {"B", "ABP"}, {"P", "ABP"}, {"A", "BAP"}, {"A", "BAP"}}) {
        activate(host, window);
        expectOrder(expected);
    }
    start(other, {u"other"_s});
    expectWindows(4);
    activate(other, "O");
    expectOrder("BAP?");
}

/// A Wayland compositor of the test's own.
class StackingOnWayland : public tx::test::UiTest {
protected:
    QProcess desktop, host;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString protocol = path(u"protocol"_s); ///< what the host says to the compositor

    StackingOnWayland() {
        replaceResource(u"TXUpdateWebView.so"_s, {}); // no page is needed
        const QString variables = path(u"variables"_s);
        desktop.setStandardErrorFile(path(u"desktop-errors"_s));
        desktop.start(tx::test::sourcesFolder() + u"/../scripts/demo/desktop"_s,
                      {u"wayland"_s, u"sh"_s, u"-c"_s,
                       u"env -0 > \"$0.new\" && mv \"$0.new\" \"$0\" && exec cat"_s, variables});
        EXPECT_TRUE(waitUntil([&] { return QFileInfo::exists(variables); }, 30000))
            << tx::test::readFile(path(u"desktop-errors"_s)).constData();
        for (const QByteArray &variable : tx::test::readFile(variables).split('\0')) {
            const qsizetype end = variable.indexOf('=');
            if (end > 0)
                environment.insert(QString::fromUtf8(variable.first(end)),
                                   QString::fromUtf8(variable.sliced(end + 1)));
        }
        environment.remove(u"DISPLAY"_s);
        environment.insert(u"QT_QPA_PLATFORM"_s, u"wayland"_s);
        environment.insert(u"WAYLAND_DEBUG"_s, u"client"_s);
        const QFileInfo socket(environment.value(u"WAYLAND_DISPLAY"_s));
        const QStringList sockets =
            socket.dir().entryList({u"sway-ipc.*.sock"_s}, QDir::AllEntries | QDir::System);
        EXPECT_EQ(sockets.size(), 1);
        environment.insert(u"SWAYSOCK"_s, socket.dir().filePath(sockets.value(0)));
        host.setProcessEnvironment(environment);
        host.setStandardErrorFile(protocol);
        host.start(tx::test::helpersFolder() + u"/floating_host"_s, {path(u"resources"_s)});
        EXPECT_TRUE(host.waitForStarted());
    }
    ~StackingOnWayland() override {
        host.kill();
        host.waitForFinished();
        desktop.closeWriteChannel();
        desktop.waitForFinished();
    }
    QByteArray sway(const QStringList &words) {
        QProcess message;
        message.setProcessEnvironment(environment);
        message.start(u"swaymsg"_s, words);
        message.waitForFinished();
        return message.readAllStandardOutput();
    }
    struct Shown {
        QString name;
        int id = 0;
        bool focused = false;
    };
    /// The windows, in the compositor's order.
    QList<Shown> shownWindows() {
        QList<Shown> result;
        const std::function<void(const QJsonObject &)> visit = [&](const QJsonObject &node) {
            if (node[u"pid"_s].toInt() == host.processId())
                result.append(
                    {node[u"name"_s].toString(), node[u"id"_s].toInt(), node[u"focused"_s].toBool()});
            for (const QString &list : {u"nodes"_s, u"floating_nodes"_s}) {
                for (const QJsonValue &child : node[list].toArray())
                    visit(child.toObject());
            }
        };
        visit(QJsonDocument::fromJson(sway({u"-t"_s, u"get_tree"_s, u"-r"_s})).object());
        return result;
    }
    Shown shownWindow(const QString &name) {
        for (const Shown &window : shownWindows()) {
            if (window.name == name)
                return window;
        }
        return {};
    }
    /// What the host itself knows: the window with the focus, and the one that the panel is above.
    QByteArray focus() {
        host.write("focus\n");
        return host.waitForReadyRead(10000) ? host.readLine().trimmed() : QByteArray("no answer");
    }
    /// Which window the compositor was told last to keep the panel above.
    QString toldParent() {
        const QString said = QString::fromUtf8(tx::test::readFile(protocol));
        QHash<QString, QString> names;
        // The library writes an object's number behind "@", since its release 1.23 behind "#".
        static const QRegularExpression title(u"(xdg_toplevel[@#]\\d+)\\.set_title\\(\"(\\w+)\"\\)"_s);
        for (auto it = title.globalMatch(said); it.hasNext();) {
            const auto match = it.next();
            names[match.captured(1)] = match.captured(2);
        }
        QString parent;
        static const QRegularExpression told(
            u"(xdg_toplevel[@#]\\d+)\\.set_parent\\((xdg_toplevel[@#]\\d+)\\)"_s);
        for (auto it = told.globalMatch(said); it.hasNext();) {
            const auto match = it.next();
            if (names.value(match.captured(1)) == u"P")
                parent = names.value(match.captured(2));
        }
        return parent;
    }
};

TEST_F(StackingOnWayland, PanelIsATransientOfTheActiveWindowWhichKeepsTheFocus) {
    ASSERT_TRUE(waitUntil([this] { return shownWindows().size() == 3; }, 20000));
    const int panel = shownWindow(u"P"_s).id;
    ASSERT_NE(panel, 0);
    for (const char *name : {"A", "B", "A", "P", "B"}) {
        const QString window = QString::fromLatin1(name);
        (void)sway({u"[title=\"^%1$\"] focus"_s.arg(window)});
        const QByteArray below = window == u"P" ? "A" : name;
        QByteArray last;
        EXPECT_TRUE(
            waitUntil([&] { return (last = focus()) == QByteArray(name) + " above " + below; }, 10000))
            << last.constData() << " instead of " << name;
        EXPECT_TRUE(waitUntil([&] { return toldParent() == QString::fromLatin1(below); }, 10000))
            << toldParent().toStdString() << " instead of " << below.constData();
        // What the host asked for has been done.
        EXPECT_EQ(focus(), QByteArray(name) + " above " + below);
        EXPECT_TRUE(shownWindow(window).focused) << "keys go to " << name;
        EXPECT_EQ(shownWindow(u"P"_s).id, panel) << "shown again, the panel would get the focus";
        EXPECT_EQ(shownWindows().size(), 3);
    }
}

} // namespace
