// SPDX-License-Identifier: MIT
#include "os/osversion.h"
#include "tests/support/places.h"
#include "tests/widgets/uitest.h"
#include "widgets/appearance.h"
#include "widgets/modalsession.h"

#include <TarvixUpdate/TXUpdateAppMoverPanel.h>
#include <TarvixUpdate/TXUpdateCheckingPanel.h>

#include <QColor>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

class CheckingPanel : public tx::test::UiTest {
protected:
    std::unique_ptr<TXUpdateCheckingPanel> panel = TXUpdateCheckingPanel::updateCheckingPanel();
    QLabel *titleField = outlet(panel.get(), "titleField");
    QLabel *messageField = outlet(panel.get(), "messageField");
    QPushButton *button = outlet<QPushButton>(panel.get(), "button");
    QProgressBar *progress = outlet<QProgressBar>(panel.get(), "progressIndicator");

    CheckingPanel() { QGuiApplication::setApplicationDisplayName(u"Running Name"_s); }
    ~CheckingPanel() override { QGuiApplication::setApplicationDisplayName({}); }
};

TEST_F(CheckingPanel, IsAPlainTitledPanel) {
    ASSERT_TRUE(panel);
    EXPECT_TRUE(panel->windowTitle().isEmpty());
    EXPECT_FALSE(panel->windowFlags() &
                 (Qt::WindowCloseButtonHint | Qt::WindowMinimizeButtonHint | Qt::WindowMaximizeButtonHint));
    EXPECT_EQ(panel->minimumSize(), panel->size());
    auto *content = outlet<TXUpdateCheckingPanelContentView>(panel.get(), "theContentView");
    ASSERT_TRUE(content);
    EXPECT_EQ(content->size(), QSize(400, 150));
}

TEST_F(CheckingPanel, RunsInItsCheckingState) {
    bool seen = false;
    inModalSession([&] {
        seen = true;
        EXPECT_TRUE(panel->isVisible());
        EXPECT_TRUE(panel->isModal());
        EXPECT_EQ(titleField->text(), u"Checking for update\u2026"_s);
        EXPECT_EQ(tx::buttonTitle(button), u"Cancel"_s);
        EXPECT_FALSE(messageField->isVisible());
        EXPECT_TRUE(progress->isVisible());
        EXPECT_EQ(progress->maximum(), 0) << "it spins";
        panel->close();
    });
    EXPECT_EQ(panel->runModal(), 1);
    EXPECT_TRUE(seen);
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(CheckingPanel, EveryWayOutEndsTheSession) {
    struct Case {
        const char *what;
        std::function<void()> act;
        int code;
    };
    const Case cases[] = {
        {"close", [this] { panel->close(); }, 1},
        {"cancel", [this] { panel->cancel(); }, 0},
        {"the button", [this] { QTest::mouseClick(button, Qt::LeftButton); }, 0},
        {"Escape", [this] { QTest::keyClick(panel.get(), Qt::Key_Escape); }, 0},
        {"the window's own way", [this] { panel->QDialog::close(); }, 0},
        {"the application quits", [] { QCoreApplication::quit(); }, 0},
    };
    for (const Case &c : cases) {
        inApplication([&] {
            inModalSession(c.act);
            EXPECT_EQ(panel->runModal(), c.code) << c.what;
            EXPECT_FALSE(panel->isVisible()) << c.what;
        });
    }
}

TEST_F(CheckingPanel, ThatIsNotRunningLeavesOtherSessionsAlone) {
    panel->close();
    panel->cancel();
    QDialog other;
    bool stopped = false;
    inModalSession([&] {
        panel->close();
        panel->cancel();
        QTimer::singleShot(0, &other, [&] {
            stopped = true;
            tx::stopModalOfWindow(&other, 7);
        });
    });
    EXPECT_EQ(tx::runModalForWindow(&other), 7);
    EXPECT_TRUE(stopped);
}

TEST_F(CheckingPanel, UpToDateWaitsForOk) {
    inModalSession([&] {
        panel->showUpToDate();
        EXPECT_EQ(titleField->text(), u"Running Name is up to date."_s);
        EXPECT_EQ(messageField->text(), u"You are running the latest version of Running Name."_s);
        EXPECT_TRUE(messageField->isVisible());
        EXPECT_EQ(tx::buttonTitle(button), u"OK"_s);
        EXPECT_TRUE(button->isDefault());
        EXPECT_FALSE(progress->isVisible());
        EXPECT_NE(progress->maximum(), 0) << "it stands still";
        QTimer::singleShot(0, panel.get(), [&] {
            EXPECT_TRUE(tx::isModalWindow(panel.get())) << "the session goes on";
            QTest::keyClick(panel.get(), Qt::Key_Return);
        });
    });
    EXPECT_EQ(panel->runModal(), 0);
    inModalSession([&] {
        EXPECT_EQ(tx::buttonTitle(button), u"Cancel"_s) << "the next check begins anew";
        EXPECT_FALSE(button->isDefault());
        panel->close();
    });
    EXPECT_EQ(panel->runModal(), 1);
}

TEST_F(CheckingPanel, FollowsTheAppearance) {
    EXPECT_EQ(tx::backgroundColor(panel.get()), QColor(Qt::white));
    beDark(true);
    EXPECT_EQ(tx::backgroundColor(panel.get()), QApplication::palette().color(QPalette::Window));
    beDark(false);
    EXPECT_EQ(tx::backgroundColor(panel.get()), QColor(Qt::white));
}

class MoverPanel : public tx::test::UiTest {};

TEST_F(MoverPanel, LoadsItsInterfaceFile) {
    TXUpdateAppMoverPanel panel;
    EXPECT_FALSE(panel.isWindowLoaded());
    ASSERT_TRUE(panel.window());
    EXPECT_EQ(panel.window()->size(), QSize(420, 120));
    replaceResource(u"TXUpdateAppMoverPanel.ui"_s, {});
    TXUpdateAppMoverPanel missing;
    EXPECT_FALSE(missing.window());
    EXPECT_EQ(logLines().last(), u"Could not load the interface file TXUpdateAppMoverPanel"_s);
}

TEST_F(CheckingPanel, MissingOrBrokenInterfaceFileMakesNoPanel) {
    for (const QByteArray &content : {QByteArray(), QByteArray("<ui version=\"4.0\"><widget")}) {
        replaceResource(u"TXUpdateCheckingPanel.ui"_s, content);
        EXPECT_FALSE(TXUpdateCheckingPanel::updateCheckingPanel());
        EXPECT_EQ(logLines().last(), u"Could not load TXUpdateCheckingPanel nib"_s);
    }
    EXPECT_TRUE(alerts.isEmpty());
    EXPECT_TRUE(exits.isEmpty());
}

/// An interface file with these parts alone.
QByteArray interfaceWith(const QStringList &parts) {
    const auto part = [&](const QString &name, const QString &kind) {
        return parts.contains(name)
                   ? u"<item><widget class=\"%1\" name=\"%2\"/></item>"_s.arg(kind, name).toUtf8()
                   : QByteArray();
    };
    const bool hasContent = parts.contains(u"theContentView"_s);
    return R"(<ui version="4.0"><class>x</class><widget class="QWidget" name=")" +
           QByteArray(hasContent ? "theContentView" : "other") +
           R"("><property name="geometry"><rect><x>0</x><y>0</y><width>300</width><height>90</height></rect>)"
           R"(</property><layout class="QVBoxLayout" name="l">)" +
           part(u"titleField"_s, u"QLabel"_s) + part(u"messageField"_s, u"QLabel"_s) +
           part(u"button"_s, u"QPushButton"_s) + part(u"progressIndicator"_s, u"QProgressBar"_s) +
           "</layout></widget></ui>";
}

TEST_F(CheckingPanel, PartThatTheInterfaceFileLacksIsLeftOut) {
    const QStringList all{u"theContentView"_s, u"titleField"_s, u"messageField"_s, u"button"_s,
                          u"progressIndicator"_s};
    QList<QStringList> cases{{}};
    for (const QString &missing : all) {
        cases << all;
        cases.last().removeAll(missing);
    }
    for (const QStringList &parts : cases) {
        const std::string what = parts.join(u' ').toStdString();
        replaceResource(u"TXUpdateCheckingPanel.ui"_s, interfaceWith(parts));
        panel = TXUpdateCheckingPanel::updateCheckingPanel();
        ASSERT_TRUE(panel) << what;
        const auto isShown = [&](const char *name) {
            const auto *widget = outlet<QWidget>(panel.get(), name);
            return widget && widget->isVisible();
        };
        const bool hasContent = parts.contains(u"theContentView"_s);
        EXPECT_EQ(panel->minimumSize(), hasContent ? QSize(300, 90) : QSize(0, 0)) << what;
        inModalSession([&] {
            EXPECT_TRUE(panel->isVisible()) << what;
            EXPECT_EQ(isShown("titleField"), hasContent && parts.contains(u"titleField"_s)) << what;
            EXPECT_EQ(isShown("progressIndicator"), hasContent && parts.contains(u"progressIndicator"_s))
                << what;
            EXPECT_EQ(panel->accessibleName(), u"Checking for update\u2026"_s);
            panel->showUpToDate();
            EXPECT_EQ(isShown("messageField"), hasContent && parts.contains(u"messageField"_s)) << what;
            EXPECT_FALSE(isShown("progressIndicator")) << what;
            EXPECT_EQ(panel->accessibleName(), u"Running Name is up to date."_s);
            EXPECT_TRUE(tx::isModalWindow(panel.get())) << what;
            QTest::keyClick(panel.get(), Qt::Key_Escape);
        });
        EXPECT_EQ(panel->runModal(), 0) << what;
    }
    EXPECT_TRUE(exits.isEmpty());
    EXPECT_TRUE(errors.isEmpty());
}

TEST_F(CheckingPanel, LoadingThatThrowsEndsTheApplication) {
    struct Case {
        std::function<void()> arrange;
        QString reason;
    };
    const Case cases[] = {
        {[this] {
             replaceResource(u"TXUpdateCheckingPanel.ui"_s,
                             interfaceWith({u"titleField"_s}).replace("QLabel", "QPushButton"));
         },
         u"The interface file has no titleField"_s},
        {[] {
             // Until the words for the user are looked up.
             tx::services().resourcesPath = [calls = 0]() mutable {
                 if (calls++ == 0)
                     throw std::runtime_error("no resources");
                 return tx::test::resourcesFolder();
             };
         },
         u"no resources"_s},
    };
    for (const Case &c : cases) {
        errors.clear();
        alerts.clear();
        exits.clear();
        const auto before = tx::services().resourcesPath;
        c.arrange();
        EXPECT_FALSE(TXUpdateCheckingPanel::updateCheckingPanel());
        tx::services().resourcesPath = before;
        EXPECT_TRUE(logLines().contains(
            u"Could not load TXUpdateCheckingPanel nib because it threw the exception: "_s + c.reason));
        ASSERT_EQ(alerts.size(), 1);
        EXPECT_EQ(alerts[0].message,
                  u"A problem in %1 was encountered which requires you to move this application."_s.arg(
                      tx::operatingSystemName()))
            << "the system that runs";
        EXPECT_EQ(alerts[0].informative,
                  u"Quit the application and move it into your Applications folder before relaunching."_s);
        EXPECT_EQ(exits, QList<int>{0});
        ASSERT_EQ(errors.size(), 1);
        EXPECT_EQ(errors[0].domain(), u"TXUpdate"_s);
        EXPECT_EQ(errors[0].code(), -999);
        EXPECT_EQ(errors[0].userInfo()[u"email"_s], QVariant(u"YES"_s));
        EXPECT_EQ(errors[0].userInfo()[u"exception"_s], QVariant(c.reason));
    }
}

} // namespace
