// SPDX-License-Identifier: MIT
// An application that does not say which one it is.
#include "model/host_p.h"
#include "os/mainbundle.h"
#include "tests/support/feedserver.h"
#include "tests/widgets/uitest.h"

#include <TarvixUpdate/TXStandardUpdateController.h>
#include <TarvixUpdate/TXUpdatePanel.h>
#include <TarvixUpdate/TXUpdater.h>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::waitUntil;

namespace {

class UnidentifiedHost : public tx::test::UiTest {
protected:
    FeedServer server;
    std::unique_ptr<TXStandardUpdateController> controller;

    void become(bool identified) {
        const QString bundle = path(u"Bare.app"_s);
        if (identified)
            tx::test::makeBundle(bundle, {.build = u"1"_s});
        else
            tx::test::writeFile(bundle + u"/Contents/Linux/Program"_s, "x");
        tx::setMainBundle(TXBundle(bundle));
        tx::resetHost();
        tx::services().volumeInfo = [](const QString &) { return std::optional<tx::VolumeInfo>(); };
        tx::services().mountFlagsAreReadOnly = [](const QString &) { return false; };
        controller = std::make_unique<TXStandardUpdateController>();
        TXUpdater::sharedUpdater()->setFeedURL(QUrl(server.url(u"/f"_s)));
    }
    void check(bool visibly, bool showsUpdate = true) {
        server.expect(
            "GET", "/f",
            HttpReply::json(
                R"({"release":[{"type":"build","build":"2","downloadURL":"https://e.org/a.zip"}]})"));
        controller->checkForUpdateAndShowChecking(visibly, showsUpdate);
        EXPECT_TRUE(waitUntil([&] { return (controller->status() & 2U) == 0; }));
        tx::test::drainEvents();
    }
    static bool showsPanel() {
        for (const QWidget *widget : QApplication::topLevelWidgets()) {
            if (widget->inherits("TXUpdatePanel") && widget->isVisible())
                return true;
        }
        return false;
    }
    static qsizetype linesAboutIt(const QStringList &log) {
        return log.filter(u"does not say which application it is"_s).size();
    }
};

TEST_F(UnidentifiedHost, IsOfferedNothingAndToldOnce) {
    become(false);
    TXUpdater::sharedUpdater()->setAutomaticallyDownloadsUpdates(true);
    check(false);
    EXPECT_FALSE(controller->bestUpdate());
    EXPECT_FALSE(showsPanel());
    EXPECT_TRUE(errors.isEmpty()) << "nobody asked";
    EXPECT_EQ(linesAboutIt(logLines()), 1);
    check(true);
    EXPECT_FALSE(controller->bestUpdate());
    EXPECT_FALSE(showsPanel());
    ASSERT_EQ(errors.size(), 1) << "and not that it is up to date";
    EXPECT_EQ(errors[0], tx::hostIdentityError());
    EXPECT_EQ(errors[0].localizedRecoverySuggestion(),
              u"Add the file with the keys CFBundleIdentifier and CFBundleVersion to the application."_s);
    EXPECT_EQ(linesAboutIt(logLines()), 1);
}

TEST_F(UnidentifiedHost, OneWithAnIdentifierIsOfferedTheUpdate) {
    become(true);
    check(false, false);
    ASSERT_TRUE(controller->bestUpdate());
    EXPECT_EQ(controller->bestUpdate()->version(), u"2"_s);
    EXPECT_EQ(linesAboutIt(logLines()), 0);
    controller.reset();
}

} // namespace
