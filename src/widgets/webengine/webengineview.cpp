// SPDX-License-Identifier: MIT
#include "widgets/webengine/webengineview.h"

#include "widgets/webengine/webenginepage.h"

#include <QCoreApplication>
#include <QWebEngineDownloadRequest>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestInterceptor>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Allows only http and https: no local files, no schemes of the engine.
class WebOnly final : public QWebEngineUrlRequestInterceptor {
public:
    using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;
    void interceptRequest(QWebEngineUrlRequestInfo &info) override {
        const QString scheme = info.requestUrl().scheme();
        if (!WebEnginePage::isPageAddress(info.requestUrl()) && scheme != u"ws" && scheme != u"wss")
            info.block(true);
    }
};

void restrict(QWebEngineSettings &settings) {
    using Settings = QWebEngineSettings;
    for (const Settings::WebAttribute off :
         {Settings::JavascriptCanOpenWindows, Settings::JavascriptCanAccessClipboard,
          Settings::JavascriptCanPaste, Settings::LocalContentCanAccessRemoteUrls,
          Settings::LocalContentCanAccessFileUrls, Settings::LocalStorageEnabled, Settings::PluginsEnabled,
          Settings::PdfViewerEnabled, Settings::ScreenCaptureEnabled, Settings::WebGLEnabled,
          Settings::AllowRunningInsecureContent, Settings::AllowGeolocationOnInsecureOrigins,
          Settings::AllowWindowActivationFromJavaScript, Settings::NavigateOnDropEnabled,
          Settings::FullScreenSupportEnabled, Settings::HyperlinkAuditingEnabled,
          Settings::DnsPrefetchEnabled, Settings::ErrorPageEnabled})
        settings.setAttribute(off, false);
    settings.setAttribute(Settings::FocusOnNavigationEnabled, false);
    settings.setAttribute(Settings::PlaybackRequiresUserGesture, true);
    // Nothing is opened here: the page is asked about such URLs, and refuses.
    settings.setUnknownUrlSchemePolicy(Settings::AllowUnknownUrlSchemesFromUserInteraction);
}

/// One profile for all pages of the process, because the engine frees only a part of what each one takes. It
/// is destroyed with the last view when the application ends, because pages must be destroyed first.
std::shared_ptr<QWebEngineProfile> sharedProfile() {
    static std::shared_ptr<QWebEngineProfile> kept;
    if (kept)
        return kept;
    kept = std::make_shared<QWebEngineProfile>(); // without a name it keeps nothing on disk
    kept->setHttpCacheType(QWebEngineProfile::MemoryHttpCache);
    kept->setPersistentCookiesPolicy(QWebEngineProfile::NoPersistentCookies);
    kept->setUrlRequestInterceptor(new WebOnly(kept.get()));
    restrict(*kept->settings());
    QObject::connect(kept.get(), &QWebEngineProfile::downloadRequested, kept.get(),
                     [](QWebEngineDownloadRequest *request) { request->cancel(); });
    qAddPostRoutine([] { kept.reset(); });
    return kept;
}

} // namespace

WebEngineView::WebEngineView(QWidget *parent, const WebViewClient &client, bool dark)
    : m_client(client)
    , m_dark(dark)
    , m_view(new QWebEngineView(parent))
    , m_profile(sharedProfile()) {
    m_view->setContextMenuPolicy(Qt::NoContextMenu);
    m_view->setAcceptDrops(false);
}

WebEngineView::~WebEngineView() {
    // The page must be destroyed before its profile.
    m_client = {};
    endPage();
    delete m_view;
}

WebEnginePage *WebEngineView::page() {
    m_ending = false;
    if (!m_page && m_view) {
        m_page = new WebEnginePage(m_profile.get(), m_client, m_view);
        m_page->installScripts(m_dark);
        m_view->setPage(m_page);
        // An empty document is transparent from the start.
        m_view->setAttribute(Qt::WA_TranslucentBackground);
    }
    return m_page;
}

void WebEngineView::endPage() {
    if (m_page && m_view)
        delete m_page;
    m_page = nullptr;
}

void WebEngineView::load(const QUrl &url) {
    if (!WebEnginePage::isPageAddress(url) || !page()) {
        endPage();
        return;
    }
    m_page->load(url);
}

QUrl WebEngineView::url() const { return m_page ? m_page->url() : QUrl(); }

void WebEngineView::setHtml(const QString &html) {
    if (html.isEmpty()) {
        // The caller may be a page's handler. Another page may be requested until then.
        m_ending = true;
        QMetaObject::invokeMethod(
            m_view.data(),
            [this] {
                if (m_ending)
                    endPage();
            },
            Qt::QueuedConnection);
        return;
    }
    if (page())
        m_page->setHtml(html);
}

void WebEngineView::evaluateJavaScript(const QString &script) {
    if (m_page)
        m_page->runJavaScript(script);
}

void WebEngineView::setDark(bool dark) {
    if (m_dark == dark)
        return;
    m_dark = dark;
    if (!m_page)
        return;
    m_page->installScripts(dark);
    m_page->runJavaScript(
        u"document.documentElement.style.colorScheme = '%1';"_s.arg(dark ? u"dark"_s : u"light"_s));
}

} // namespace tx
