// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdatePost.h>
#include <TarvixUpdate/TXWindowController.h>

#include <QObject>
#include <QVariant>

#include <functional>
#include <memory>

/// Registers the enumerators with Qt's meta-object system, so that logs and scripts can print their names.
/// The members are also visible in the global namespace.
inline namespace TXUpdatePostWindowEnumerations {
Q_NAMESPACE_EXPORT(TX_EXPORT)

/// What showWindowModally() returns.
enum TXUpdatePostWindowReturnCode : int {
    TXUpdatePostWindowClosed = 0,  ///< the posts count as handled
    TXUpdatePostWindowAskLater = 1 ///< the page asked to be shown again
};
Q_ENUM_NS(TXUpdatePostWindowReturnCode)

} // namespace TXUpdatePostWindowEnumerations

/// TXNotificationCenter::defaultCenter() posts this each time the window of any controller closes, or its
/// posts were opened in the browser instead: after didClose() and before the controller's own handler.
TX_EXPORT extern const QString TXUpdatePostWindowDidCloseNotificationName;

/// Shows posts one at a time in a modal window. A page closes the window with
/// `window.webkit.messageHandlers.closeWindow.postMessage(body)`; the body "askLater" asks to be shown again.
/// Without Qt WebEngine posts open in the browser.
/// Thread: main. Ownership: shared; it keeps itself alive while its window is shown.
class TX_EXPORT TXUpdatePostWindowController final
    : public TXWindowController,
      public std::enable_shared_from_this<TXUpdatePostWindowController> {
    Q_OBJECT
public:
    /// The controller that the standard controller uses, except when the application quits. Never destroyed.
    static std::shared_ptr<TXUpdatePostWindowController> sharedInstance();
    /// A new controller.
    static std::shared_ptr<TXUpdatePostWindowController> controller();
    ~TXUpdatePostWindowController() override;

    /// See TXWindowController.
    [[nodiscard]] QString windowNibName() const override;
    /// The posts that are shown, in order.
    [[nodiscard]] QList<TXUpdatePostPtr> posts() const;
    /// Must contain at least one post before the window is shown.
    void setPosts(const QList<TXUpdatePostPtr> &posts);
    /// See setOnCloseHandler().
    [[nodiscard]] const std::function<void()> &onCloseHandler() const;
    /// Called after the window has closed; may be null.
    void setOnCloseHandler(const std::function<void()> &handler);
    /// The index of the visible post in posts().
    [[nodiscard]] qsizetype currentPostIndex() const;

    /// showWindowModally(false).
    int showWindow();
    /// Shows the window, and returns a TXUpdatePostWindowReturnCode when it is closed. If `quitting`, the
    /// button is "Quit" instead of "Close". Returns 0 at once if the window is already shown.
    int showWindowModally(bool quitting);
    /// closeWindowAndNotify().
    void closeWindow();
    /// Closes the window, emits didClose(), posts the notification and calls the handler.
    void closeWindowAndNotify();
    /// Shows the previous post, if there is one.
    void goPrevious();
    /// Shows the next post, if there is one.
    void goNext();
    /// The arrows: goNext() or goPrevious().
    void goForwardOrBackward();
    /// Loads the page of the current post and updates title and arrows.
    void updateForCurrentPost();

    /// A page posted the message `name`. "closeWindow" closes the window, see above; others do nothing.
    void userContentControllerDidReceiveScriptMessage(const QString &name, const QVariant &body);

Q_SIGNALS:
    /// This window has closed. For the windows of all controllers, see
    /// TXUpdatePostWindowDidCloseNotificationName.
    void didClose();

protected:
    /// See TXWindowController.
    void windowDidLoad() override;
    /// Notices that the window is closed or its appearance changes.
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    TXUpdatePostWindowController();
    void didChangeEffectiveAppearance();
    void openInBrowser();
    void notifyOfClosing();
    void endWithApplication();

    struct Private;
    const std::unique_ptr<Private> d;
};
