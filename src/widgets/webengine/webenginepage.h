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
    /// The script that gives pages their way to send messages, and follows the appearance.
    void installScripts(bool dark);
    /// Whether a page may be shown from this address at all.
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
