// SPDX-License-Identifier: MIT
#pragma once

#include "widgets/webview.h"

#include <QWebEnginePage>

namespace tx {

/// A page that is held to what release notes and news need: it shows itself, runs its scripts and sends the
/// named messages. Thread: main.
class WebEnginePage final : public QWebEnginePage {
    Q_OBJECT
public:
    WebEnginePage(QWebEngineProfile *profile, const WebViewClient &client, QObject *parent);
    /// Installs the script through which pages send messages and follow the appearance.
    void installScripts(bool dark);
    /// Returns whether a page may be loaded from this URL at all.
    [[nodiscard]] static bool isPageAddress(const QUrl &url);

protected:
    bool acceptNavigationRequest(const QUrl &url, NavigationType type, bool isMainFrame) override;
    QWebEnginePage *createWindow(WebWindowType type) override;
    QStringList chooseFiles(FileSelectionMode mode, const QStringList &oldFiles,
                            const QStringList &acceptedMimeTypes) override;
    void javaScriptAlert(const QUrl &origin, const QString &message) override;
    bool javaScriptConfirm(const QUrl &origin, const QString &message) override;
    bool javaScriptPrompt(const QUrl &origin, const QString &message, const QString &defaultValue,
                          QString *result) override;
    void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level, const QString &message, int line,
                                  const QString &source) override;

private:
    WebViewClient m_client;
    QString m_token;
};

} // namespace tx
