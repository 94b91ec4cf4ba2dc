// SPDX-License-Identifier: MIT
#pragma once

#include "net/urlloading.h"
#include "os/localization.h"
#include "os/userdefaults.h"
#include "os/volumes.h"
#include "tests/support/feedserver.h"
#include "tests/widgets/uitest.h"
#include "widgets/appearance.h"
#include "widgets/updateinplace.h"
#include "widgets/versionstable.h"

#include <TarvixUpdate/TXNotificationCenter.h>
#include <TarvixUpdate/TXStandardUpdateController.h>
#include <TarvixUpdate/TXUpdateCheckingPanel.h>
#include <TarvixUpdate/TXUpdateHost.h>
#include <TarvixUpdate/TXUpdatePanel.h>
#include <TarvixUpdate/TXUpdatePostWindowController.h>

#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <semaphore>

namespace tx::test {

using namespace Qt::StringLiterals;

class Delegate : public TXStandardUpdateControllerDelegate {
public:
    int refreshes = 0;
    QList<unsigned> statuses;
    std::optional<TXUpdateCurrentConditions> conditions;
    QWidget *parent = nullptr;
    bool implements = false;
    QVariantMap parameters;
    int backgroundChecks = 0;

    void updateInterfaceForUpdateControllerStatus(TXStandardUpdateController *controller) override {
        ++refreshes;
        statuses << controller->status();
    }
    std::optional<TXUpdateCurrentConditions>
    currentConditionsForUpdating(TXStandardUpdateController *) override {
        return conditions;
    }
    QWidget *sheetParentWindowForUpdater(TXStandardUpdateController *) override { return parent; }
    bool implementsFeedParametersForUpdater() const override { return implements; }
    QVariantMap feedParametersForUpdating(TXStandardUpdateController *) override { return parameters; }
    void updaterDidCheckForUpdates(TXStandardUpdateController *) override { ++backgroundChecks; }
};

inline const QByteArray newer =
    R"({"type":"build","title":"New","build":"1043","version":"2.1","date":"2026-11-01 10:00:00",
    "downloadURL":"http://127.0.0.1:1/a.zip"})";
inline const QByteArray older = R"({"type":"build","title":"Old","build":"9","version":"0.9"})";

inline QByteArray post(const QByteArray &title, const QByteArray &more = {}) {
    return R"({"type":"post","title":")" + title + R"(","postURL":"http://127.0.0.1:1/)" + title +
           R"(","date":"2026-11-01 10:00:00")" + more + '}';
}

class StandardController : public tx::test::UiTest {
protected:
    FeedServer server;
    Delegate delegate;
    std::unique_ptr<TXStandardUpdateController> controller;

    StandardController() {
        becomeHost(u"1042"_s, u"2.0"_s);
        QCoreApplication::setApplicationName(u"Process"_s);
        setNow(QDateTime(QDate(2026, 11, 5), QTime(12, 0), Qt::UTC));
        tx::services().volumeInfo = [](const QString &) { return std::optional<tx::VolumeInfo>(); };
        tx::services().mountFlagsAreReadOnly = [](const QString &) { return false; };
        // Posts open in the browser here; their window has tests of its own.
        replaceResource(u"TXUpdateWebView.so"_s, {});
        makeController();
    }
    void makeController() {
        controller = std::make_unique<TXStandardUpdateController>();
        controller->setDelegate(&delegate);
        TXUpdater::sharedUpdater()->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    }
    /// setup() without the check that follows it.
    void setUp() {
        tx::services().firstCheckDelay = std::chrono::hours(1);
        controller->setup();
        TXUpdater::sharedUpdater()->setSendsSystemProfile(false);
    }
    void expectFeed(const QList<QByteArray> &entries, const QByteArray &track = "release") {
        server.expect("GET", "/feed.json",
                      HttpReply::json("{\"" + track + "\":[" + entries.join(',') + "]}"));
    }
    TXUpdateFeedPtr fetch(const QList<QByteArray> &entries, const QByteArray &track = "release") {
        expectFeed(entries, track);
        TXUpdateFeedPtr result;
        TXUpdater::sharedUpdater()->checkForUpdate(
            [&](const TXUpdateFeedPtr &feed, const TXError &) { result = feed; });
        EXPECT_TRUE(waitUntil([&] { return result != nullptr; }));
        return result;
    }
    template <typename T>
    static T *shown() {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (auto *window = qobject_cast<T *>(widget); window && window->isVisible())
                return window;
        }
        return nullptr;
    }
    /// Checks and waits until the check is over.
    void check(bool showChecking, bool showUpdate) {
        controller->checkForUpdateAndShowChecking(showChecking, showUpdate);
        EXPECT_TRUE(waitUntil([&] { return (controller->status() & 2U) == 0; }));
        tx::test::drainEvents();
    }
    void beOnReadOnlyVolume() {
        tx::services().volumeInfo = [](const QString &) {
            return tx::VolumeInfo{.rootPath = u"/media/My Disk"_s, .isReadOnly = true};
        };
    }
};

} // namespace tx::test
