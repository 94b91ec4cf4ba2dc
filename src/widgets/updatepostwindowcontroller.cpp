// SPDX-License-Identifier: MIT
#include "base/format.h"
#include "os/localization.h"
#include "os/openaddress.h"
#include "widgets/appearance.h"
#include "widgets/interfacefile.h"
#include "widgets/lifetime.h"
#include "widgets/modalsession.h"
#include "widgets/screens.h"
#include "widgets/segmentedcontrol.h"
#include "widgets/webview.h"

#include <TarvixUpdate/TXNotificationCenter.h>
#include <TarvixUpdate/TXUpdatePostWindowController.h>
#include <TarvixUpdate/TXUpdater.h>

#include <QCloseEvent>
#include <QLabel>
#include <QPushButton>

using namespace Qt::StringLiterals;

const QString TXUpdatePostWindowDidCloseNotificationName = u"TXUpdatePostWindowDidCloseNotification"_s;

namespace {

/// Only the host in the feed gets the identifier, not hosts to which its page leads.
bool mayKnowTheIdentifier(const QUrl &page, const QUrl &post) {
    const bool staysEncrypted = post.scheme() != u"https" || page.scheme() == u"https";
    return !post.host().isEmpty() && page.host() == post.host() && staysEncrypted;
}

} // namespace

std::shared_ptr<TXUpdatePostWindowController> TXUpdatePostWindowController::sharedInstance() {
    static std::shared_ptr<TXUpdatePostWindowController> instance;
    if (!instance) {
        instance = controller();
        tx::whenApplicationQuits(instance.get(), [] { instance.reset(); });
    }
    return instance;
}

std::shared_ptr<TXUpdatePostWindowController> TXUpdatePostWindowController::controller() {
    return std::shared_ptr<TXUpdatePostWindowController>(new TXUpdatePostWindowController);
}

TXUpdatePostWindowController::TXUpdatePostWindowController() = default;
TXUpdatePostWindowController::~TXUpdatePostWindowController() = default;

QString TXUpdatePostWindowController::windowNibName() const { return u"TXUpdatePostWindowController"_s; }

void TXUpdatePostWindowController::windowDidLoad() {
    TXWindowController::windowDidLoad();
    QWidget *container = nullptr;
    tx::connectOutlet(_bottomBarCloseView, contentView(), u"_bottomBarCloseView"_s);
    tx::connectOutlet(_bottomBarCloseButton, contentView(), u"_bottomBarCloseButton"_s);
    tx::connectOutlet(_titleTextField, contentView(), u"_titleTextField"_s);
    tx::connectOutlet(_navigationControl, contentView(), u"_navigationControl"_s);
    tx::connectOutlet(container, contentView(), u"_webView"_s);

    window()->setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                             Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint);
    tx::makeSecondary(window());
    window()->installEventFilter(this);
    tx::applyDirection(window());
    tx::makeLinesThin(window());
    didChangeEffectiveAppearance();
    _webView = tx::makeWebView(
        container,
        {.linkActivated = [](const QUrl &url) { (void)tx::openAddress(url, tx::OpenedBy::User); },
         .loadFinished =
             [this](bool) {
                 if (_currentPostIndex < _posts.size() &&
                     mayKnowTheIdentifier(_webView->url(), _posts.at(_currentPostIndex)->postURL()))
                     _webView->evaluateJavaScript(tx::formatText(u"var TarvixUpdateAnonymousUUID = '%@';"_s,
                                                                 {TXUpdater::anonymousUUID()}));
             },
         .messageReceived =
             [this](const QString &name, const QVariant &body) {
                 userContentControllerDidReceiveScriptMessage(name, body);
             },
         .messageNames = {u"closeWindow"_s},
         .suppressesIncrementalRendering = true});
    _webView->widget()->setAccessibleName(tx::localizedString(u"News"_s));
    _navigationControl->setLabels(tx::localizedString(u"Previous"_s), tx::localizedString(u"Next"_s));
    connect(_navigationControl, &TXSegmentedControl::action, this,
            &TXUpdatePostWindowController::goForwardOrBackward);
    connect(_bottomBarCloseButton, &QPushButton::clicked, this, &TXUpdatePostWindowController::closeWindow);
    tx::whenApplicationQuits(window(), [this] { endWithApplication(); });
}

void TXUpdatePostWindowController::didChangeEffectiveAppearance() {
    tx::applyAppearance(window());
    if (_webView)
        _webView->setDark(tx::appearanceIsDark());
}

void TXUpdatePostWindowController::setPosts(const QList<TXUpdatePostPtr> &posts) {
    if (posts.isSharedWith(_posts) && posts == _posts)
        return;
    _posts = posts;
    if (_currentPostIndex >= _posts.size())
        _currentPostIndex = 0;
    updateForCurrentPost();
}

int TXUpdatePostWindowController::showWindowModally(bool quitting) {
    if (!window() || _posts.isEmpty())
        return 0;
    if (window()->isVisible())
        return 0;
    _currentPostIndex = 0;
    if (!_webView->isFull()) {
        openInBrowser();
        return 0;
    }
    updateForCurrentPost();
    if (!_selfRetained)
        _selfRetained = shared_from_this();
    _bottomBarCloseView->show();
    tx::setButtonTitle(_bottomBarCloseButton, tx::localizedString(quitting ? u"Quit"_s : u"Close"_s));
    _bottomBarCloseButton->setDefault(true);
    tx::focusVisibly(_bottomBarCloseButton);
    tx::centerWindow(window());
    _returnCode = 0;
    const auto alive = shared_from_this();
    (void)tx::runModalForWindow(window());
    return _returnCode;
}

void TXUpdatePostWindowController::openInBrowser() {
    for (const TXUpdatePostPtr &post : _posts)
        (void)tx::openAddress(post->postURL(), tx::OpenedBy::Feed);
    notifyOfClosing();
}

void TXUpdatePostWindowController::notifyOfClosing() {
    const auto alive = shared_from_this(); // a receiver may release this object
    Q_EMIT didClose();
    Q_EMIT TXNotificationCenter::defaultCenter()->posted(TXUpdatePostWindowDidCloseNotificationName);
    if (_onCloseHandler)
        _onCloseHandler();
}

void TXUpdatePostWindowController::updateForCurrentPost() {
    if (!window() || _currentPostIndex >= _posts.size())
        return;
    const TXUpdatePost &post = *_posts.at(_currentPostIndex);
    if (!window()->isVisible() && !post.preferredDisplaySize().isNull()) {
        const QSize size = tx::contentSizeOnScreen(post.preferredDisplaySize().toSize(), window());
        window()->setMinimumSize(size);
        window()->resize(size);
    }
    if (_webView->isFull())
        _webView->load(post.postURL());
    window()->setWindowTitle(post.title().isNull() ? tx::localizedString(u"News"_s) : post.title());
    _titleTextField->setText({});
    _navigationControl->setPosition(_currentPostIndex, _posts.size());
}

void TXUpdatePostWindowController::goPrevious() {
    if (_currentPostIndex == 0)
        return;
    --_currentPostIndex;
    updateForCurrentPost();
}

void TXUpdatePostWindowController::goNext() {
    if (_currentPostIndex + 1 >= _posts.size())
        return;
    ++_currentPostIndex;
    updateForCurrentPost();
}

void TXUpdatePostWindowController::goForwardOrBackward() {
    if (_navigationControl->selectedSegment() != 0)
        goNext();
    else
        goPrevious();
}

void TXUpdatePostWindowController::userContentControllerDidReceiveScriptMessage(const QString &name,
                                                                                const QVariant &body) {
    // Messages of a closed page are ignored.
    if (name != u"closeWindow" || !_selfRetained)
        return;
    _returnCode = body.metaType() == QMetaType::fromType<QString>() && body.toString() == u"askLater"
                      ? TXUpdatePostWindowAskLater
                      : TXUpdatePostWindowClosed;
    closeWindow();
}

void TXUpdatePostWindowController::closeWindowAndNotify() {
    if (!window())
        return;
    const auto retained = std::move(_selfRetained);
    _selfRetained.reset();
    tx::stopModalOfWindow(window(), 1);
    _hidesItself = true;
    window()->hide();
    _hidesItself = false;
    _webView->setHtml({});
    notifyOfClosing();
    // The caller may be part of the window.
    tx::releaseLater(retained);
}

void TXUpdatePostWindowController::endWithApplication() {
    if (!isWindowLoaded())
        return;
    const auto alive = shared_from_this();
    if (_selfRetained)
        closeWindowAndNotify();
    // No page may outlive the application object.
    _webView.reset();
    unloadWindow();
}

bool TXUpdatePostWindowController::eventFilter(QObject *object, QEvent *event) {
    if (tx::isAppearanceChange(event))
        didChangeEffectiveAppearance();
    // The window's own close button, Escape, and the end of the application's modal loops.
    const bool closes =
        event->type() == QEvent::Close || (event->type() == QEvent::Hide && !event->spontaneous());
    if (closes && !_hidesItself && _selfRetained)
        closeWindowAndNotify();
    return TXWindowController::eventFilter(object, event);
}
