// SPDX-License-Identifier: MIT
// The module TXUpdateWebView. It starts the web engine in a running application, which the engine expects to
// have been prepared before there was one.
#include "widgets/webengine/webengineview.h"

#include <QCoreApplication>
#include <QOpenGLContext>
#include <QQuickWindow>

using namespace Qt::StringLiterals;

// Qt's own function to set the shared context, which the engine requires.
Q_GUI_EXPORT void qt_gl_set_global_share_context(QOpenGLContext *context);

namespace {

/// Pages are drawn without the graphics driver. News and notes do not need it, and an application that does
/// not use OpenGL is not forced to.
void prepareEngine(bool dark) {
    static bool prepared = false;
    if (std::exchange(prepared, true))
        return;
    if (!QOpenGLContext::globalShareContext()) {
        QQuickWindow::setSceneGraphBackend(u"software"_s);
        // The engine requires one but never uses it. It is destroyed with the application.
        qt_gl_set_global_share_context(new QOpenGLContext);
        qAddPostRoutine([] {
            delete QOpenGLContext::globalShareContext();
            qt_gl_set_global_share_context(nullptr);
        });
    }
    // The engine reads its flags once, when the first profile is created.
    QByteArray flags = qgetenv("QTWEBENGINE_CHROMIUM_FLAGS");
    flags += " --blink-settings=preferredColorScheme=" + QByteArray(dark ? "0" : "1");
    qputenv("QTWEBENGINE_CHROMIUM_FLAGS", flags.trimmed());
}

} // namespace

extern "C" Q_DECL_EXPORT tx::WebView *txMakeWebView(QWidget *parent, const tx::WebViewClient &client,
                                                    bool dark) {
    const QByteArray flags = qgetenv("QTWEBENGINE_CHROMIUM_FLAGS");
    prepareEngine(dark);
    auto *view = new tx::WebEngineView(parent, client, dark);
    // What the application starts later does not inherit them.
    if (flags.isNull())
        qunsetenv("QTWEBENGINE_CHROMIUM_FLAGS");
    else
        qputenv("QTWEBENGINE_CHROMIUM_FLAGS", flags);
    return view;
}
