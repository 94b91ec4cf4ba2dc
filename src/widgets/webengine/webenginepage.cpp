// SPDX-License-Identifier: MIT
#include "widgets/webengine/webenginepage.h"

#include <QColor>
#include <QJsonArray>
#include <QJsonDocument>
#include <QUuid>
#include <QWebEngineCertificateError>
#include <QWebEngineFullScreenRequest>
#include <QWebEngineLoadingInfo>
#include <QWebEngineRegisterProtocolHandlerRequest>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
#include <QWebEnginePermission>
#endif

using namespace Qt::StringLiterals;

namespace tx {

namespace {

const QString scriptName = u"TarvixUpdate"_s;

/// A page that the user's click opened in a new window: the browser opens its URL.
class LinkCatcher final : public QWebEnginePage {
public:
    LinkCatcher(QWebEngineProfile *profile, const WebViewClient &client, QObject *parent)
        : QWebEnginePage(profile, parent)
        , m_client(client) {}

protected:
    bool acceptNavigationRequest(const QUrl &url, NavigationType, bool) override {
        if (m_client.linkActivated && !url.isEmpty())
            m_client.linkActivated(url);
        deleteLater();
        return false;
    }

private:
    WebViewClient m_client;
};

} // namespace

WebEnginePage::WebEnginePage(QWebEngineProfile *profile, const WebViewClient &client, QObject *parent)
    : QWebEnginePage(profile, parent)
    , m_client(client)
    , m_token(QUuid::createUuid().toString(QUuid::WithoutBraces)) {
    setBackgroundColor(QColor(Qt::transparent));
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
    connect(this, &QWebEnginePage::permissionRequested, this,
            [](const QWebEnginePermission &permission) { permission.deny(); });
#else
    connect(this, &QWebEnginePage::featurePermissionRequested, this,
            [this](const QUrl &origin, Feature feature) {
                setFeaturePermission(origin, feature, PermissionDeniedByUser);
            });
#endif
    connect(this, &QWebEnginePage::certificateError, this,
            [](QWebEngineCertificateError error) { error.rejectCertificate(); });
    connect(this, &QWebEnginePage::fullScreenRequested, this,
            [](QWebEngineFullScreenRequest request) { request.reject(); });
    connect(this, &QWebEnginePage::registerProtocolHandlerRequested, this,
            [](QWebEngineRegisterProtocolHandlerRequest request) { request.reject(); });
    connect(this, &QWebEnginePage::loadFinished, this, [this](bool ok) {
        if (m_client.loadFinished)
            m_client.loadFinished(ok);
    });
    connect(this, &QWebEnginePage::loadingChanged, this, [this](const QWebEngineLoadingInfo &info) {
        // A page that was stopped was replaced by another one.
        if (info.status() != QWebEngineLoadingInfo::LoadFailedStatus)
            return;
        // Show what the server sent, not the engine's own error page or the previous page.
        if (info.isErrorPage() || info.url() != url())
            setHtml({});
        if (m_client.loadFailed)
            m_client.loadFailed();
    });
}

void WebEnginePage::installScripts(bool dark) {
    QWebEngineScript script;
    script.setName(scriptName);
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setWorldId(QWebEngineScript::MainWorld);
    script.setRunsOnSubFrames(false);
    // Runs before the page's own scripts, so these are the engine's functions. No other frame knows the
    // token.
    QString source = uR"(
(function () {
  'use strict';
  const log = console.log.bind(console), text = JSON.stringify, handlers = {};
  for (const name of NAMES) {
    const handler = {};
    Object.defineProperty(handler, 'postMessage', {
      value: function (body) { log('TOKEN' + text([name, body === undefined ? null : body])); } });
    Object.defineProperty(handlers, name, { value: Object.freeze(handler), enumerable: true });
  }
  const webkit = {};
  Object.defineProperty(webkit, 'messageHandlers', { value: Object.freeze(handlers), enumerable: true });
  Object.defineProperty(window, 'webkit', { value: Object.freeze(webkit), enumerable: true });
  const scheme = document.createElement('style');
  scheme.append(':root { color-scheme: SCHEME; } MARGINS');
  if (COMPLETE) {
    const hidden = document.createTextNode(':root { visibility: hidden !important; }');
    scheme.append(hidden);
    const show = function () { hidden.remove(); };
    window.addEventListener('load', show);
    setTimeout(show, 5000);
  }
  const add = function () {
    if (document.documentElement) document.documentElement.prepend(scheme);
  };
  if (document.documentElement) add();
  else new MutationObserver(function (changes, observer) {
    if (document.documentElement) { observer.disconnect(); add(); }
  }).observe(document, { childList: true });
})();)"_s;
    source.replace(
        u"NAMES"_s,
        QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(m_client.messageNames)).toJson()));
    source.replace(u"TOKEN"_s, m_token);
    source.replace(u"COMPLETE"_s, m_client.suppressesIncrementalRendering ? u"true"_s : u"false"_s);
    // With zero specificity, like the engine's defaults: any rule of the page takes precedence.
    const QMargins margins = m_client.margins.value_or(QMargins());
    source.replace(u"MARGINS"_s, m_client.margins
                                     ? u":where(body) { margin: %1px %2px %3px %4px; }"_s.arg(margins.top())
                                           .arg(margins.right())
                                           .arg(margins.bottom())
                                           .arg(margins.left())
                                     : QString());
    source.replace(u"SCHEME"_s, dark ? u"dark"_s : u"light"_s);
    script.setSourceCode(source);
    for (const QWebEngineScript &old : scripts().find(scriptName))
        scripts().remove(old);
    scripts().insert(script);
}

bool WebEnginePage::isPageAddress(const QUrl &url) {
    return url.scheme() == u"http" || url.scheme() == u"https" || url.scheme() == u"about" ||
           url.scheme() == u"data" || url.scheme() == u"blob";
}

bool WebEnginePage::acceptNavigationRequest(const QUrl &url, NavigationType type, bool isMainFrame) {
    if (type == NavigationTypeLinkClicked && !url.isEmpty()) {
        // Links cannot replace the page; they open in the browser.
        const bool withinPage =
            isMainFrame && url.hasFragment() &&
            url.adjusted(QUrl::RemoveFragment) == this->url().adjusted(QUrl::RemoveFragment);
        if (withinPage)
            return true;
        if (m_client.linkActivated)
            m_client.linkActivated(url);
        return false;
    }
    return isPageAddress(url);
}

QWebEnginePage *WebEnginePage::createWindow(WebWindowType) {
    return new LinkCatcher(profile(), m_client, this);
}

QStringList WebEnginePage::chooseFiles(FileSelectionMode, const QStringList &, const QStringList &) {
    return {};
}
void WebEnginePage::javaScriptAlert(const QUrl &, const QString &) {}
bool WebEnginePage::javaScriptConfirm(const QUrl &, const QString &) { return false; }
bool WebEnginePage::javaScriptPrompt(const QUrl &, const QString &, const QString &, QString *) {
    return false;
}

void WebEnginePage::javaScriptConsoleMessage(JavaScriptConsoleMessageLevel, const QString &message, int,
                                             const QString &) {
    // Other console output of the page is ignored; messages carry this page's token.
    if (!message.startsWith(m_token) || !m_client.messageReceived)
        return;
    const QJsonArray parts = QJsonDocument::fromJson(message.mid(m_token.size()).toUtf8()).array();
    const QString name = parts.at(0).toString();
    if (m_client.messageNames.contains(name))
        m_client.messageReceived(name, parts.at(1).toVariant());
}

} // namespace tx
