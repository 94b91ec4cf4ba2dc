// SPDX-License-Identifier: MIT
#pragma once

#include <QMargins>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <functional>
#include <memory>
#include <optional>

class QWidget;

namespace tx {

/// What a page may ask of the window around it. All on the main thread.
struct WebViewClient {
    /// The user followed a link; the page stays. Pages may follow links by themselves: in views of
    /// makeWebView that counts for nothing, unless a key or mouse button was pressed in the view within the
    /// last second, and for each press once.
    std::function<void(const QUrl &url)> linkActivated;
    std::function<void(bool ok)> loadFinished;
    /// What load() was asked for did not come, or came with an error's status. Not for a page that another
    /// one has taken the place of, nor for setHtml().
    std::function<void()> loadFailed;
    /// `window.webkit.messageHandlers.<name>.postMessage(body)`, for the names in `messageNames`.
    std::function<void(const QString &name, const QVariant &body)> messageReceived;
    QStringList messageNames;
    /// Pages appear only when they are complete, or after some seconds.
    bool suppressesIncrementalRendering = false;
    /// margins for pages that request none; if absent, the view's default
    std::optional<QMargins> margins = {};
};

/// Shows a page. Thread: main. The parent widget owns the widget, which is deleted with this object.
class WebView {
public:
    virtual ~WebView() = default;
    [[nodiscard]] virtual QWidget *widget() const = 0;
    /// Whether pages are real: scripts run.
    [[nodiscard]] virtual bool isFull() const = 0;
    virtual void load(const QUrl &url) = 0;
    /// The URL of the current page after redirects; empty if there is none.
    [[nodiscard]] virtual QUrl url() const = 0;
    /// Empty text ends the page and its process.
    virtual void setHtml(const QString &html) = 0;
    virtual void evaluateJavaScript(const QString &script) = 0;
    virtual void setDark(bool dark) = 0;
};

/// The plug-in TXUpdateWebView exports this as "txMakeWebView".
using WebViewMaker = WebView *(*)(QWidget *parent, const WebViewClient &client, bool dark);

/// The module's view, or a plain one where the module is not there or cannot run.
[[nodiscard]] std::unique_ptr<WebView> makeWebView(QWidget *parent, const WebViewClient &client);
/// A view for plain pages: no scripts, nothing but the page's own text.
[[nodiscard]] std::unique_ptr<WebView> makePlainWebView(QWidget *parent, const WebViewClient &client);

} // namespace tx
