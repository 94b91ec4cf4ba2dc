// SPDX-License-Identifier: MIT
#include "widgets/webview.h"

#include "os/sandbox.h"
#include "os/services.h"
#include "widgets/appearance.h"
#include "widgets/recentinput.h"

#include <TarvixUpdate/TXLog.h>

#include <QCoreApplication>
#include <QLibrary>
#include <QVBoxLayout>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// The engine warns that it is loaded into a running application, and describes the graphics that it does not
/// use. Neither helps the host's user.
class QuietStart {
public:
    QuietStart() { handlerBefore = qInstallMessageHandler(passOn); }
    ~QuietStart() { qInstallMessageHandler(handlerBefore); }
    Q_DISABLE_COPY_MOVE(QuietStart)

private:
    static void passOn(QtMsgType type, const QMessageLogContext &context, const QString &message) {
        const bool aboutStarting =
            message.startsWith(u"Qt WebEngine seems to be initialized from a plugin") ||
            message.startsWith(u"Sandboxing disabled by user") ||
            message.startsWith(u"No suitable graphics backend found") ||
            QByteArrayView(context.category) == "qt.webenginecontext";
        if (!aboutStarting && handlerBefore)
            handlerBefore(type, context, message);
    }
    static inline QtMessageHandler handlerBefore = nullptr;
};

/// Null, with a reason, if the module is missing or cannot run.
WebViewMaker moduleMaker(QString *reason) {
    *reason = reasonAgainstSandbox();
    if (!reason->isNull())
        return nullptr;
    QLibrary module(services().resourcesPath() + u"/TXUpdateWebView.so"_s);
    module.setLoadHints(QLibrary::PreventUnloadHint);
    const auto function = reinterpret_cast<WebViewMaker>(module.resolve("txMakeWebView"));
    if (!function)
        *reason = module.errorString();
    return function;
}

} // namespace

std::unique_ptr<WebView> makeWebView(QWidget *parent, const WebViewClient &client) {
    if (!parent->layout()) {
        auto *layout = new QVBoxLayout(parent);
        layout->setContentsMargins(0, 0, 0, 0);
    }
    QString reason;
    std::unique_ptr<WebView> view;
    const QuietStart quiet;
    if (const WebViewMaker make = moduleMaker(&reason)) {
        const auto input = std::make_shared<RecentInput>();
        WebViewClient guarded = client;
        guarded.linkActivated = [input, follow = client.linkActivated](const QUrl &url) {
            if (!input->take())
                TXLog(TXLogLevelStep, u"TXUpdate: a page wanted to open %@ without the user"_s,
                      {url.toDisplayString()});
            else if (follow)
                follow(url);
        };
        view.reset(make(parent, guarded, appearanceIsDark()));
        if (view)
            input->watch(view->widget());
    }
    if (!view) {
        TXLog(TXLogLevelStep, u"TXUpdate: pages are shown as plain text: %@"_s, {reason});
        view = makePlainWebView(parent, client);
    }
    parent->layout()->addWidget(view->widget());
    return view;
}

} // namespace tx
