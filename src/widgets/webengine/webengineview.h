// SPDX-License-Identifier: MIT
#pragma once

#include "widgets/webview.h"

#include <QPointer>
#include <QWebEngineProfile>
#include <QWebEngineView>

namespace tx {

class WebEnginePage;

/// Shows pages with the web engine. The page and its process are there only while something is shown.
class WebEngineView final : public WebView {
public:
    WebEngineView(QWidget *parent, const WebViewClient &client, bool dark);
    ~WebEngineView() override;

    [[nodiscard]] QWidget *widget() const override { return m_view; }
    [[nodiscard]] bool isFull() const override { return true; }
    void load(const QUrl &url) override;
    [[nodiscard]] QUrl url() const override;
    void setHtml(const QString &html) override;
    void evaluateJavaScript(const QString &script) override;
    void setDark(bool dark) override;

private:
    WebEnginePage *page();
    void endPage();

    WebViewClient m_client;
    bool m_dark;
    QPointer<QWebEngineView> m_view;
    std::shared_ptr<QWebEngineProfile> m_profile;
    WebEnginePage *m_page = nullptr;
    bool m_ending = false;
};

} // namespace tx
