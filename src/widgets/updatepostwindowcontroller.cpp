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

struct TXUpdatePostWindowController::Private {
    std::shared_ptr<TXUpdatePostWindowController> selfRetained; ///< set while the window is shown
    int returnCode = 0;
    QList<TXUpdatePostPtr> posts;
    std::function<void()> onCloseHandler;
    // The window owns the widgets.
    QWidget *bottomBarCloseView = nullptr;
    QPushButton *bottomBarCloseButton = nullptr;
    std::unique_ptr<tx::WebView> webView;
    QLabel *titleTextField = nullptr;
    TXSegmentedControl *navigationControl = nullptr;
    qsizetype currentPostIndex = 0;
    bool hidesItself = false;
};

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

TXUpdatePostWindowController::TXUpdatePostWindowController()
    : d(std::make_unique<Private>()) {}
TXUpdatePostWindowController::~TXUpdatePostWindowController() = default;

QString TXUpdatePostWindowController::windowNibName() const { return u"TXUpdatePostWindowController"_s; }

void TXUpdatePostWindowController::windowDidLoad() {
    TXWindowController::windowDidLoad();
    QWidget *container = nullptr;
    tx::connectOutlet(d->bottomBarCloseView, contentView(), u"_bottomBarCloseView"_s);
    tx::connectOutlet(d->bottomBarCloseButton, contentView(), u"_bottomBarCloseButton"_s);
    tx::connectOutlet(d->titleTextField, contentView(), u"_titleTextField"_s);
    tx::connectOutlet(d->navigationControl, contentView(), u"_navigationControl"_s);
    tx::connectOutlet(container, contentView(), u"_webView"_s);

    window()->setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                             Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint);
    tx::makeSecondary(window());
    window()->installEventFilter(this);
    tx::applyDirection(window());
    tx::makeLinesThin(window());
    didChangeEffectiveAppearance();
    d->webView = tx::makeWebView(
        container,
        {.linkActivated = [](const QUrl &url) { (void)tx::openAddress(url, tx::OpenedBy::User); },
         .loadFinished =
             [this](bool) {
                 if (d->currentPostIndex < d->posts.size() &&
                     mayKnowTheIdentifier(d->webView->url(), d->posts.at(d->currentPostIndex)->postURL()))
                     d->webView->evaluateJavaScript(tx::formatText(u"var TarvixUpdateAnonymousUUID = '%@';"_s,
                                                                   {TXUpdater::anonymousUUID()}));
             },
         .messageReceived =
             [this](const QString &name, const QVariant &body) {
                 userContentControllerDidReceiveScriptMessage(name, body);
             },
         .messageNames = {u"closeWindow"_s},
         .suppressesIncrementalRendering = true});
    d->webView->widget()->setAccessibleName(tx::localizedString(u"News"_s));
    d->navigationControl->setLabels(tx::localizedString(u"Previous"_s), tx::localizedString(u"Next"_s));
    connect(d->navigationControl, &TXSegmentedControl::action, this,
            &TXUpdatePostWindowController::goForwardOrBackward);
    connect(d->bottomBarCloseButton, &QPushButton::clicked, this, &TXUpdatePostWindowController::closeWindow);
    tx::whenApplicationQuits(window(), [this] { endWithApplication(); });
}

QList<TXUpdatePostPtr> TXUpdatePostWindowController::posts() const { return d->posts; }

const std::function<void()> &TXUpdatePostWindowController::onCloseHandler() const {
    return d->onCloseHandler;
}

void TXUpdatePostWindowController::setOnCloseHandler(const std::function<void()> &handler) {
    d->onCloseHandler = handler;
}

qsizetype TXUpdatePostWindowController::currentPostIndex() const { return d->currentPostIndex; }
int TXUpdatePostWindowController::showWindow() { return showWindowModally(false); }
void TXUpdatePostWindowController::closeWindow() { closeWindowAndNotify(); }

void TXUpdatePostWindowController::didChangeEffectiveAppearance() {
    tx::applyAppearance(window());
    if (d->webView)
        d->webView->setDark(tx::appearanceIsDark());
}

void TXUpdatePostWindowController::setPosts(const QList<TXUpdatePostPtr> &posts) {
    if (posts.isSharedWith(d->posts) && posts == d->posts)
        return;
    d->posts = posts;
    if (d->currentPostIndex >= d->posts.size())
        d->currentPostIndex = 0;
    updateForCurrentPost();
}

int TXUpdatePostWindowController::showWindowModally(bool quitting) {
    if (!window() || d->posts.isEmpty())
        return 0;
    if (window()->isVisible())
        return 0;
    d->currentPostIndex = 0;
    if (!d->webView->isFull()) {
        openInBrowser();
        return 0;
    }
    updateForCurrentPost();
    if (!d->selfRetained)
        d->selfRetained = shared_from_this();
    d->bottomBarCloseView->show();
    tx::setButtonTitle(d->bottomBarCloseButton, tx::localizedString(quitting ? u"Quit"_s : u"Close"_s));
    d->bottomBarCloseButton->setDefault(true);
    tx::focusVisibly(d->bottomBarCloseButton);
    tx::centerWindow(window());
    d->returnCode = 0;
    const auto alive = shared_from_this();
    (void)tx::runModalForWindow(window());
    return d->returnCode;
}

void TXUpdatePostWindowController::openInBrowser() {
    for (const TXUpdatePostPtr &post : d->posts)
        (void)tx::openAddress(post->postURL(), tx::OpenedBy::Feed);
    notifyOfClosing();
}

void TXUpdatePostWindowController::notifyOfClosing() {
    const auto alive = shared_from_this(); // a receiver may release this object
    Q_EMIT didClose();
    Q_EMIT TXNotificationCenter::defaultCenter()->posted(TXUpdatePostWindowDidCloseNotificationName);
    if (d->onCloseHandler)
        d->onCloseHandler();
}

void TXUpdatePostWindowController::updateForCurrentPost() {
    if (!window() || d->currentPostIndex >= d->posts.size())
        return;
    const TXUpdatePost &post = *d->posts.at(d->currentPostIndex);
    if (!window()->isVisible() && !post.preferredDisplaySize().isNull()) {
        const QSize size = tx::contentSizeOnScreen(post.preferredDisplaySize().toSize(), window());
        window()->setMinimumSize(size);
        window()->resize(size);
    }
    if (d->webView->isFull())
        d->webView->load(post.postURL());
    window()->setWindowTitle(post.title().isNull() ? tx::localizedString(u"News"_s) : post.title());
    d->titleTextField->setText({});
    d->navigationControl->setPosition(d->currentPostIndex, d->posts.size());
}

void TXUpdatePostWindowController::goPrevious() {
    if (d->currentPostIndex == 0)
        return;
    --d->currentPostIndex;
    updateForCurrentPost();
}

void TXUpdatePostWindowController::goNext() {
    if (d->currentPostIndex + 1 >= d->posts.size())
        return;
    ++d->currentPostIndex;
    updateForCurrentPost();
}

void TXUpdatePostWindowController::goForwardOrBackward() {
    if (d->navigationControl->selectedSegment() != 0)
        goNext();
    else
        goPrevious();
}

void TXUpdatePostWindowController::userContentControllerDidReceiveScriptMessage(const QString &name,
                                                                                const QVariant &body) {
    // Messages of a closed page are ignored.
    if (name != u"closeWindow" || !d->selfRetained)
        return;
    d->returnCode = body.metaType() == QMetaType::fromType<QString>() && body.toString() == u"askLater"
                        ? TXUpdatePostWindowAskLater
                        : TXUpdatePostWindowClosed;
    closeWindow();
}

void TXUpdatePostWindowController::closeWindowAndNotify() {
    if (!window())
        return;
    const auto retained = std::move(d->selfRetained);
    d->selfRetained.reset();
    tx::stopModalOfWindow(window(), 1);
    d->hidesItself = true;
    window()->hide();
    d->hidesItself = false;
    d->webView->setHtml({});
    notifyOfClosing();
    // The caller may be part of the window.
    tx::releaseLater(retained);
}

void TXUpdatePostWindowController::endWithApplication() {
    if (!isWindowLoaded())
        return;
    const auto alive = shared_from_this();
    if (d->selfRetained)
        closeWindowAndNotify();
    // No page may outlive the application object.
    d->webView.reset();
    unloadWindow();
}

bool TXUpdatePostWindowController::eventFilter(QObject *object, QEvent *event) {
    if (tx::isAppearanceChange(event))
        didChangeEffectiveAppearance();
    // The window's own close button, Escape, and the end of the application's modal loops.
    const bool closes =
        event->type() == QEvent::Close || (event->type() == QEvent::Hide && !event->spontaneous());
    if (closes && !d->hidesItself && d->selfRetained)
        closeWindowAndNotify();
    return TXWindowController::eventFilter(object, event);
}
