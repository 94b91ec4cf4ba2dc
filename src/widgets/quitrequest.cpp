// SPDX-License-Identifier: MIT
#include "widgets/quitrequest.h"

#include "os/services.h"
#include "widgets/lifetime.h"
#include "widgets/updatepanel_p.h"

#include <TarvixUpdate/TXLog.h>

#include <QApplication>
#include <QCloseEvent>
#include <QPointer>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// A window that the toolkit asks to close and that never does, so that QEvent::Quit asks every window and
/// then does not end the application. It exists for the toolkit but is never on a screen.
class RefusingWidget final : public QWidget {
public:
    explicit RefusingWidget(std::function<void()> asked)
        : m_asked(std::move(asked)) {
        setAttribute(Qt::WA_DontShowOnScreen);
        show();
        winId(); // without a native window it would not be asked
        setAttribute(Qt::WA_DontShowOnScreen, false);
    }

protected:
    void closeEvent(QCloseEvent *event) override {
        event->ignore();
        m_asked();
    }

private:
    std::function<void()> m_asked;
};

/// The same without widgets.
class RefusingWindow final : public QWindow {
public:
    explicit RefusingWindow(std::function<void()> asked)
        : m_asked(std::move(asked)) {
        create();
    }

protected:
    bool event(QEvent *event) override {
        if (event->type() != QEvent::Close)
            return QWindow::event(event);
        event->ignore();
        m_asked();
        return true;
    }

private:
    std::function<void()> m_asked;
};

bool isApplicationWindow(const QWindow *window) {
    return window->isVisible() && window->type() != Qt::Popup && window->type() != Qt::ToolTip &&
           window->type() != Qt::Desktop;
}

bool anyApplicationWindow() {
    const QWindowList windows = QGuiApplication::topLevelWindows();
    return std::any_of(windows.begin(), windows.end(), isApplicationWindow);
}

} // namespace

class QuitRequest final : public QObject {
public:
    QuitRequest() {
        if (qobject_cast<QApplication *>(QCoreApplication::instance())) {
            for (QWidget *widget : QApplication::topLevelWidgets()) {
                if (auto *panel = qobject_cast<TXUpdatePanel *>(widget); panel && panel->isVisible())
                    m_panels.append(panel);
            }
            for (const auto &panel : m_panels)
                panel->hide();
        }
        QCoreApplication::instance()->installEventFilter(this);
        whenApplicationQuits(this, [this] { release(); });
    }
    ~QuitRequest() override {
        if (QCoreApplication *application = QCoreApplication::instance())
            application->removeEventFilter(this);
        release();
        for (const auto &panel : m_panels) {
            if (panel)
                TXUpdatePanelPrivate::comeBack(*panel);
        }
    }

    bool ask() {
        // An application that had no window open must not end because the last one is closed.
        const bool hadWindows = anyApplicationWindow();
        const auto asked = [this] { wasAsked(); };
        if (qobject_cast<QApplication *>(QCoreApplication::instance())) {
            m_widget = std::make_unique<RefusingWidget>(asked);
            m_widget->setAttribute(Qt::WA_QuitOnClose, hadWindows);
        } else {
            m_window = std::make_unique<RefusingWindow>(asked);
        }
        QEvent quit(QEvent::Quit);
        m_own = &quit;
        QCoreApplication::sendEvent(QCoreApplication::instance(), &quit);
        m_own = nullptr;
        if (!m_reached)
            TXLog(TXLogLevelStep, u"TXUpdate: A window or the application itself refused to quit"_s);
        return m_reached && !m_refused;
    }

    bool eventFilter(QObject *, QEvent *event) override {
        // Windows that close ask the application to end, some by themselves.
        return event->type() == QEvent::Quit && event != m_own;
    }

private:
    void wasAsked() {
        if (m_reached)
            return;
        m_reached = true;
        m_refused = !closeOtherWindows();
    }
    /// The toolkit asks windows in any order, and leaves out those that are no widgets.
    bool closeOtherWindows() {
        QList<QPointer<QWindow>> closed;
        for (;;) {
            const QWindowList windows = QGuiApplication::topLevelWindows();
            const auto next = std::find_if(windows.begin(), windows.end(), [&](QWindow *window) {
                return isApplicationWindow(window) && !closed.contains(window);
            });
            if (next == windows.end())
                return true;
            closed.append(*next);
            if (!(*next)->close())
                return false;
        }
    }
    void release() {
        m_widget.reset();
        m_window.reset();
    }

    QList<QPointer<TXUpdatePanel>> m_panels;
    std::unique_ptr<RefusingWidget> m_widget;
    std::unique_ptr<RefusingWindow> m_window;
    const QEvent *m_own = nullptr;
    bool m_reached = false;
    bool m_refused = false;
};

std::shared_ptr<void> requestQuit() {
    // Without a window system there are no windows to ask, and nobody to answer.
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return std::make_shared<bool>(true);
    auto request = std::make_shared<QuitRequest>();
    return request->ask() ? request : nullptr;
}

namespace {

const bool registered = [] {
    services().requestQuit = requestQuit;
    return true;
}();

} // namespace

} // namespace tx
