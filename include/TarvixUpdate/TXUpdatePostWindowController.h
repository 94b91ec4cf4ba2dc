// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdatePost.h>
#include <TarvixUpdate/TXWindowController.h>

#include <QVariant>

#include <functional>

class QLabel;
class QPushButton;
class TXSegmentedControl;
namespace tx {
class WebView;
} // namespace tx

/// What a page said when it closed the window.
enum TXUpdatePostWindowReturnCode : int {
    TXUpdatePostWindowClosed = 0,  ///< the posts count as handled
    TXUpdatePostWindowAskLater = 1 ///< the page asked to be shown again
};

/// Posted by TXNotificationCenter::defaultCenter() each time the window of a controller closes, whoever made
/// that controller; also when its posts were opened in the browser instead. It comes after didClose and
/// before the controller's own handler.
TX_EXPORT extern const QString TXUpdatePostWindowDidCloseNotificationName;

/// Shows posts one at a time in a modal window. A page closes the window with
/// `window.webkit.messageHandlers.closeWindow.postMessage(body)`; the body "askLater" asks to be shown again.
/// Without the web view's plug-in posts open in the browser.
/// Thread: main. Ownership: shared; it holds itself while its window is shown.
class TX_EXPORT TXUpdatePostWindowController final
    : public TXWindowController,
      public std::enable_shared_from_this<TXUpdatePostWindowController> {
    Q_OBJECT
public:
    /// The one for posts of a running application; kept for the life of the process.
    static std::shared_ptr<TXUpdatePostWindowController> sharedInstance();
    /// Another one.
    static std::shared_ptr<TXUpdatePostWindowController> controller();
    ~TXUpdatePostWindowController() override;

    [[nodiscard]] QString windowNibName() const override;
    [[nodiscard]] QList<TXUpdatePostPtr> posts() const { return _posts; }
    /// At least one post before the window is shown.
    void setPosts(const QList<TXUpdatePostPtr> &posts);
    [[nodiscard]] const std::function<void()> &onCloseHandler() const { return _onCloseHandler; }
    /// Called after the window closed; may be null.
    void setOnCloseHandler(const std::function<void()> &handler) { _onCloseHandler = handler; }
    [[nodiscard]] qsizetype currentPostIndex() const { return _currentPostIndex; }

    int showWindow() { return showWindowModally(false); }
    /// `quitting` names the button "Quit" instead of "Close". A TXUpdatePostWindowReturnCode; 0 at once when
    /// the window is shown already.
    int showWindowModally(bool quitting);
    void closeWindow() { closeWindowAndNotify(); }
    void closeWindowAndNotify();
    void goPrevious();
    void goNext();
    void goForwardOrBackward();
    void updateForCurrentPost();

    void userContentControllerDidReceiveScriptMessage(const QString &name, const QVariant &body);

Q_SIGNALS:
    /// This window closed. See TXUpdatePostWindowDidCloseNotificationName for those that others show.
    void didClose();

protected:
    void windowDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    TXUpdatePostWindowController();
    void didChangeEffectiveAppearance();
    void openInBrowser();
    void notifyOfClosing();
    void endWithApplication();

    std::shared_ptr<TXUpdatePostWindowController> _selfRetained;
    int _returnCode = 0;
    QList<TXUpdatePostPtr> _posts;
    std::function<void()> _onCloseHandler;
    QWidget *_bottomBarCloseView = nullptr;
    QPushButton *_bottomBarCloseButton = nullptr;
    std::unique_ptr<tx::WebView> _webView;
    QLabel *_titleTextField = nullptr;
    TXSegmentedControl *_navigationControl = nullptr;
    qsizetype _currentPostIndex = 0;
    bool _hidesItself = false;
};
