// SPDX-License-Identifier: MIT
#pragma once

#include "widgets/downloadrate.h"
#include "widgets/floating.h"
#include "widgets/webview.h"

#include <TarvixUpdate/TXUpdatePanel.h>

class QLabel;
class QProgressBar;
class QPushButton;
class QSplitter;
class TXUpdateVersionsTableView;

/// The data of an update panel. The panel owns the widgets.
struct TXUpdatePanelPrivate {
    QSplitter *mainSplitView = nullptr;
    QWidget *mainView = nullptr;
    QLabel *titleField = nullptr;
    QLabel *secondaryField = nullptr;
    QLabel *infoField = nullptr;
    QWidget *sidebarContainer = nullptr;
    QWidget *webViewContainer = nullptr;
    TXUpdateVersionsTableView *versionsTableView = nullptr;
    std::unique_ptr<tx::WebView> webView;
    QLabel *installVersionLabel = nullptr;
    QPushButton *installButton = nullptr;
    QPushButton *cancelButton = nullptr;
    QPushButton *skipButton = nullptr;
    QLabel *statusField = nullptr;
    QProgressBar *progressIndicator = nullptr;
    QWidget *titleBoxView = nullptr;
    std::shared_ptr<TXUpdatePanel> retained;
    bool displayedAsSheet = false;
    bool displayedAsModal = false;
    bool isOpen = false; ///< from being shown to being closed
    TXUpdatePanel::CodeHandler completionHandler;

    QList<TXUpdatePtr> updates;
    TXUpdatePtr designatedUpdate;
    bool needsToShowBuilds = false;
    bool didChooseToInstall = false;
    bool allowsDownloadingInBackground = false;
    QMetaObject::Connection observations[2];
    TXUpdatePanel::CodeHandler sheetHandler;
    tx::DownloadRate rate;
    std::unique_ptr<tx::Floating> floating; ///< set while it is a separate window
    TXUpdatePtr shownUpdate;                ///< whose notes are shown
    QSize interfaceSize;

    /// Shows a hidden panel again, unless it was closed in the meantime.
    static void comeBack(TXUpdatePanel &panel);
};
