// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdate.h>

#include <QDialog>

#include <functional>
#include <memory>

struct TXUpdatePanelPrivate;

/// Offers updates. It shows the running and the available version, all newer versions with their release
/// notes, and buttons to download, install, postpone and skip. It acts on one designated update, which the
/// user may change.
///
///     if (const TXUpdatePtr best = feed->recommendedUpdate()) {
///         auto panel = TXUpdatePanel::panel();
///         panel->setUpdatesAndDesignatedUpdate(*feed->updates(), best);
///         panel->showWindow([](int code) { ... });
///     }
///
/// Thread: main. Ownership: shared; the panel keeps itself alive while it is shown as a window or sheet. It
/// closes when the application quits, and an open panel does not keep the application running after its last
/// own window is closed. Handlers: called once, when the panel closes.
class TX_EXPORT TXUpdatePanel final : public QDialog, public std::enable_shared_from_this<TXUpdatePanel> {
    Q_OBJECT
    Q_PROPERTY(bool needsToShowBuilds READ needsToShowBuilds FINAL)
    Q_PROPERTY(bool didChooseToInstall READ didChooseToInstall FINAL)
    Q_PROPERTY(bool allowsDownloadingInBackground READ allowsDownloadingInBackground WRITE
                   setAllowsDownloadingInBackground FINAL)
public:
    /// Gets 1 if the user went ahead, otherwise 0.
    using CodeHandler = std::function<void(int code)>;

    /// A new panel; null, with a line in the log, if the interface file cannot be loaded.
    static std::shared_ptr<TXUpdatePanel> panel();
    ~TXUpdatePanel() override;

    /// The updates in the list, newest first.
    [[nodiscard]] QList<TXUpdatePtr> updates() const;
    /// The update that the buttons act on; null if none is designated.
    [[nodiscard]] TXUpdatePtr designatedUpdate() const;
    /// True if the panel shows builds, because the running and the designated version look the same.
    [[nodiscard]] bool needsToShowBuilds() const;
    /// The user has pressed the button that downloads and installs.
    [[nodiscard]] bool didChooseToInstall() const;
    /// Whether the panel may be closed during a download.
    [[nodiscard]] bool allowsDownloadingInBackground() const;
    /// Off by default.
    void setAllowsDownloadingInBackground(bool allows);

    /// `updates`: newest first, as in the feed; null entries are left out. With a null designated update,
    /// nothing can be installed until the user chooses a version in the list. Equal updates have one state:
    /// an update in the list that equals the designated one is replaced by it, or replaces it if the one in
    /// the list has already been downloaded.
    void setUpdatesAndDesignatedUpdate(const QList<TXUpdatePtr> &updates,
                                       const TXUpdatePtr &designatedUpdate);
    /// Makes `update` the designated one, as if the user had chosen it in the list; null for none.
    void chooseUpdate(const TXUpdatePtr &update);

    /// Shows the panel modally. Returns the code it was closed with, or 0 if the application quits.
    int runModal();
    /// Shows the panel as a separate window above the application's other windows.
    void showWindow(const CodeHandler &handler);
    /// Shows the panel as a sheet, which blocks only `parent`.
    void beginSheetModalForWindow(QWidget *parent, const CodeHandler &handler);
    /// Closes the panel and calls the handlers with `code`.
    void closeWithCode(int code);

    /// The Install button: downloads the designated update if necessary, then installs it.
    void install();
    /// The Cancel button: cancels a running download, and closes the panel with 0.
    void cancel();
    /// The Skip button: ignores the designated update for 30 days, and closes the panel with 0.
    void skip();
    /// The Choose button of a row in the list.
    void chooseUpdateAction(QObject *sender);

    /// Escape counts as cancel(), if the Cancel button is enabled.
    void reject() override;

protected:
    /// Adapts to a light or dark appearance.
    void changeEvent(QEvent *event) override;
    /// The desktop's close button counts as reject(). A panel that its application closes is closed with 0.
    void closeEvent(QCloseEvent *event) override;
    /// The panel can be moved by its background.
    void mousePressEvent(QMouseEvent *event) override;

private:
    friend struct TXUpdatePanelPrivate;
    TXUpdatePanel();
    void load();
    void endWithApplication();
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

    const std::unique_ptr<TXUpdatePanelPrivate> d;
};
