// SPDX-License-Identifier: MIT
#include "base/queues.h"
#include "net/urlloading.h"
#include "os/services.h"
#include "widgets/webview.h"

#include <QPointer>
#include <QTextBrowser>
#include <QTextFrame>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Loads nothing by itself: images and other resources of a page are not loaded.
class PlainBrowser final : public QTextBrowser {
public:
    using QTextBrowser::QTextBrowser;
    QVariant loadResource(int, const QUrl &) override { return QByteArray(); }
};

class PlainWebView final : public WebView {
public:
    PlainWebView(QWidget *parent, const WebViewClient &client)
        : m_client(client)
        , m_browser(new PlainBrowser(parent)) {
        m_browser->setOpenLinks(false);
        m_browser->setFrameShape(QFrame::NoFrame);
        m_browser->setAutoFillBackground(false);
        m_browser->viewport()->setAutoFillBackground(false);
        m_browser->setTabChangesFocus(true);
        QObject::connect(m_browser, &QTextBrowser::anchorClicked, m_browser, [this](const QUrl &url) {
            const QUrl absolute = m_url.resolved(url);
            if (m_client.linkActivated)
                m_client.linkActivated(absolute);
        });
    }
    ~PlainWebView() override { delete m_browser; }

    QWidget *widget() const override { return m_browser; }
    bool isFull() const override { return false; }

    void load(const QUrl &url) override {
        m_url = url;
        m_browser->clear();
        constexpr qint64 largestPage = qint64(4) << 20;
        const auto page = ++*m_loads;
        // The response arrives on the network thread, maybe after this view was destroyed.
        services().urlLoader->load({.url = url, .sizeLimit = largestPage},
                                   [this, page, loads = std::weak_ptr<int>(m_loads)](
                                       const UrlResponse &response, const TXError &error) {
                                       postToMain([this, page, loads, body = response.body,
                                                   ok = !error && response.statusCode / 100 == 2] {
                                           const auto current = loads.lock();
                                           if (!current || *current != page)
                                               return; // another page was requested meanwhile
                                           if (ok)
                                               show(QString::fromUtf8(body));
                                           if (m_client.loadFinished)
                                               m_client.loadFinished(ok);
                                           if (!ok && m_client.loadFailed)
                                               m_client.loadFailed();
                                       });
                                   });
    }
    QUrl url() const override { return m_url; }
    void setHtml(const QString &html) override {
        ++*m_loads;
        m_url.clear();
        show(html);
        if (m_client.loadFinished)
            m_client.loadFinished(true);
    }
    void evaluateJavaScript(const QString &) override {}
    void setDark(bool) override {}

private:
    void show(const QString &html) {
        m_browser->setHtml(html);
        if (!m_client.margins)
            return;
        QTextFrame *frame = m_browser->document()->rootFrame();
        QTextFrameFormat format = frame->frameFormat();
        format.setLeftMargin(m_client.margins->left());
        format.setTopMargin(m_client.margins->top());
        format.setRightMargin(m_client.margins->right());
        format.setBottomMargin(m_client.margins->bottom());
        frame->setFrameFormat(format);
    }

    WebViewClient m_client;
    QPointer<PlainBrowser> m_browser;
    QUrl m_url;
    std::shared_ptr<int> m_loads = std::make_shared<int>(0);
};

} // namespace

std::unique_ptr<WebView> makePlainWebView(QWidget *parent, const WebViewClient &client) {
    return std::make_unique<PlainWebView>(parent, client);
}

} // namespace tx
