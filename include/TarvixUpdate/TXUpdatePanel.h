// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdate.h>

#include <QDialog>

#include <memory>

class QLabel;
class QProgressBar;
class QPushButton;
class QSplitter;
class TXUpdateVersionsTableView;
namespace tx {
class DownloadRate;
class Floating;
class QuitRequest;
class WebView;
} // namespace tx

/// Offers updates: which version runs and which is available, all newer versions with their release notes,
/// and the buttons that download, install, postpone and skip. Acts on one designated update, which the user
/// may change.
///
///     if (const TXUpdatePtr best = feed->recommendedUpdate()) {
///         auto panel = TXUpdatePanel::panel();
///         panel->setUpdatesAndDesignatedUpdate(*feed->updates(), best);
///         panel->showWindow([](int code) { ... });
///     }
///
/// Thread: main. Ownership: shared; it holds itself while it is shown as a window or sheet. It closes when
/// the application quits, and an open panel does not keep the application from quitting when its last own
/// window is closed. Handlers: called once, on closing, with 1 when the user went ahead and 0 otherwise.
class TX_EXPORT TXUpdatePanel final : public QDialog, public std::enable_shared_from_this<TXUpdatePanel> {
    Q_OBJECT
    Q_PROPERTY(bool needsToShowBuilds READ needsToShowBuilds FINAL)
    Q_PROPERTY(bool didChooseToInstall READ didChooseToInstall FINAL)
    Q_PROPERTY(bool allowsDownloadingInBackground READ allowsDownloadingInBackground WRITE
                   setAllowsDownloadingInBackground FINAL)
public:
    using CodeHandler = std::function<void(int code)>;

    /// Null, with a line in the log, when the interface file cannot be loaded.
    static std::shared_ptr<TXUpdatePanel> panel();
    ~TXUpdatePanel() override;

    [[nodiscard]] QList<TXUpdatePtr> updates() const { return m_updates; }
    /// Null while none is designated.
    [[nodiscard]] TXUpdatePtr designatedUpdate() const { return m_designatedUpdate; }
    /// Builds are shown where the versions for people are the same.
    [[nodiscard]] bool needsToShowBuilds() const { return m_needsToShowBuilds; }
    [[nodiscard]] bool didChooseToInstall() const { return m_didChooseToInstall; }
    /// Whether the panel may be closed while a download goes on.
    [[nodiscard]] bool allowsDownloadingInBackground() const { return m_allowsDownloadingInBackground; }
    void setAllowsDownloadingInBackground(bool allows);

    /// `updates`: newest first, as the feed gives them; null entries are left out. With a null designated
    /// update nothing can be installed until the user chooses one of the versions in the list. An update of
    /// the list that is equal to the designated one is replaced by it, or the other way round when the one
    /// in the list has been downloaded already: what is equal has one state.
    void setUpdatesAndDesignatedUpdate(const QList<TXUpdatePtr> &updates,
                                       const TXUpdatePtr &designatedUpdate);
    void chooseUpdate(const TXUpdatePtr &update);

    /// Shows the panel modally; the code it was closed with, 0 when the application quits.
    int runModal();
    /// Shows it as a window of its own, which stays above the application's other windows.
    void showWindow(const CodeHandler &handler);
    /// Shows it as a sheet: it blocks `parent` only.
    void beginSheetModalForWindow(QWidget *parent, const CodeHandler &handler);
    void closeWithCode(int code);

    /// What the buttons do.
    void install();
    void cancel();
    void skip();
    void chooseUpdateAction(QObject *sender);

    void reject() override;

protected:
    void changeEvent(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    friend class tx::QuitRequest;
    TXUpdatePanel();
    void load();
    void endWithApplication();
    /// Out of sight, and back unless it was closed meanwhile.
    void stepAside();
    void comeBack();
    void willDisplay();
    void updateStatusField();
    void showNothingDesignated();
    void unobserveUpdate();
    void observeProgress();
    void displaySelectedUpdate(const TXUpdatePtr &update);
    void notesDidNotLoad();
    void didChangeEffectiveAppearance();
    void adoptPreferredSize();
    void showDesignatedRow();
    void setInstallTitle(const QString &key, bool enabled);
    void showProgress(bool shows);

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
    std::shared_ptr<TXUpdatePanel> mRetained;
    bool mDisplayedAsSheet = false;
    bool mDisplayedAsModal = false;
    bool m_isOpen = false; ///< from being shown to being closed
    CodeHandler mCompletionHandler;

    QList<TXUpdatePtr> m_updates;
    TXUpdatePtr m_designatedUpdate;
    bool m_needsToShowBuilds = false;
    bool m_didChooseToInstall = false;
    bool m_allowsDownloadingInBackground = false;
    QMetaObject::Connection m_observations[2];
    CodeHandler m_sheetHandler;
    std::unique_ptr<tx::DownloadRate> m_rate;
    std::unique_ptr<tx::Floating> m_floating; ///< while it is a window of its own
    TXUpdatePtr m_shownUpdate;                ///< whose notes are shown
    QSize m_interfaceSize;
};
