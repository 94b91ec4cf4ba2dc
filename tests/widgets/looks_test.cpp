// SPDX-License-Identifier: MIT
// How the windows look: what is measured here was seen on pictures before.
#include "os/localization.h"
#include "tests/support/places.h"
#include "tests/widgets/uitest.h"
#include "widgets/appearance.h"
#include "widgets/elidedlabel.h"
#include "widgets/progressindicator.h"
#include "widgets/segmentedcontrol.h"
#include "widgets/versionstable.h"

#include <TarvixUpdate/TXUpdateCheckingPanel.h>
#include <TarvixUpdate/TXUpdatePanel.h>
#include <TarvixUpdate/TXUpdatePostWindowController.h>

#include <QAbstractEventDispatcher>
#include <QAccessible>
#include <QHelpEvent>
#include <QIcon>
#include <QMessageBox>
#include <QProgressBar>
#include <QProxyStyle>
#include <QPushButton>
#include <QTest>
#include <QTextBrowser>
#include <QTextCursor>
#include <QToolButton>
#include <QToolTip>

using namespace Qt::StringLiterals;

namespace {

class Looks : public tx::test::UiTest {
protected:
    std::shared_ptr<TXUpdatePanel> panel;

    Looks() {
        becomeHost(u"1042"_s, u"2.0"_s);
        replaceResource(u"TXUpdateWebView.so"_s, {});
    }
    void show(const QList<TXUpdatePtr> &updates) {
        panel = TXUpdatePanel::panel();
        panel->setUpdatesAndDesignatedUpdate(updates, updates[0]);
        panel->showWindow({});
        tx::test::drainEvents();
    }
    ~Looks() override {
        if (panel)
            panel->closeWithCode(0);
    }
    template <typename T = QLabel>
    [[nodiscard]] T *part(const char *name) const {
        return outlet<T>(panel.get(), name);
    }
    /// The place of a widget's content in its window.
    static QRect placeOf(const QWidget *widget) {
        return {widget->mapTo(widget->window(), QPoint()), widget->size()};
    }
    /// What the pointer is told when it rests on the widget.
    static QString tipOf(QWidget *widget) {
        QHelpEvent rests(QEvent::ToolTip, QPoint(2, 2), widget->mapToGlobal(QPoint(2, 2)));
        QApplication::sendEvent(widget, &rests);
        return rests.isAccepted() ? QToolTip::text() : QString();
    }
    /// How much of the bar's width is filled, by the colour of its fill in the middle of its height.
    static double filledShareOf(QProgressBar *bar) {
        const QImage picture = bar->grab().toImage();
        const int hue = bar->palette().color(QPalette::Highlight).hslHue();
        int filled = 0;
        for (int x = 0; x < picture.width(); ++x) {
            const QColor colour = picture.pixelColor(x, picture.height() / 2);
            if (colour.hslSaturation() > 60 && std::abs(colour.hslHue() - hue) < 30)
                ++filled;
        }
        return double(filled) / picture.width();
    }
};

const QString longVersion = u"2.0.1-nightly+build.20261122.<b>0123456789abcdef0123456789abcdef</b>.x86_64"_s;

TEST_F(Looks, LongVersionInTheListEndsInAnEllipsisWithAToolTip) {
    show({makeUpdate(u"1044"_s, u"2.1"_s), makeUpdate(u"1043"_s, longVersion)});
    auto *list = part<TXUpdateVersionsTableView>("versionsTableView");
    TXElidedLabel *text = list->viewForRow(1)->textField();
    EXPECT_EQ(text->text(), longVersion) << "a screen reader says all of it";
    EXPECT_TRUE(text->isElided());
    EXPECT_TRUE(text->shownText().endsWith(QChar(0x2026))) << text->shownText().toStdString();
    EXPECT_GT(text->shownText().size(), 6);
    EXPECT_EQ(tipOf(text), u"<p>"_s + longVersion.toHtmlEscaped() + u"</p>"_s) << "as text, not as markup";
    const QWidget *choose = list->viewForRow(1)->viewWithTag(TXUpdateVersionRow::ChooseButton);
    EXPECT_LE(placeOf(choose).right(), placeOf(list->viewport()).right());
    EXPECT_FALSE(placeOf(text).intersects(placeOf(choose)));

    TXElidedLabel *brief = list->viewForRow(0)->textField();
    EXPECT_FALSE(brief->isElided());
    EXPECT_EQ(brief->shownText(), u"2.1"_s);
    EXPECT_EQ(tipOf(brief), QString());
}

TEST_F(Looks, LongBuildEndsInAnEllipsisWithAToolTip) {
    const QString build = u"1044."_s + QString(80, u'7');
    show({makeUpdate(build, u"2.0"_s), makeUpdate(u"1043"_s, u"2.0"_s)});
    auto *list = part<TXUpdateVersionsTableView>("versionsTableView");
    auto *label =
        qobject_cast<TXElidedLabel *>(list->viewForRow(0)->viewWithTag(TXUpdateVersionRow::BuildField));
    ASSERT_TRUE(label);
    EXPECT_TRUE(label->isElided());
    EXPECT_EQ(tipOf(label), u"<p>Build "_s + build + u"</p>"_s);
}

TEST_F(Looks, LongVersionDoesNotWidenTheWindow) {
    const QString version = longVersion + QString(300, u'W');
    show({makeUpdate(u"1044"_s, version), makeUpdate(u"1043"_s, u"2.1"_s)});
    EXPECT_EQ(panel->width(), 860);
    const QString sentence = part("infoField")->text();
    EXPECT_TRUE(sentence.contains(version.left(40))) << sentence.toStdString();
    EXPECT_TRUE(sentence.contains(QChar(0x2026))) << sentence.toStdString();
    EXPECT_FALSE(sentence.contains(version));
    EXPECT_EQ(
        part("infoField")->toolTip(),
        u"<p>You are running Host 2.0. Version %1 is now available.</p>"_s.arg(version.toHtmlEscaped()));
    auto *installed = part<TXElidedLabel>("installVersionLabel");
    ASSERT_TRUE(installed);
    EXPECT_TRUE(installed->isElided());
    EXPECT_TRUE(tipOf(installed).contains(version.toHtmlEscaped()));
    EXPECT_TRUE(panel->rect().contains(placeOf(installed)));
    panel->closeWithCode(0);

    show(makeUpdates(2));
    EXPECT_EQ(part("infoField")->text(), u"You are running Host 2.0. Version 2.0.2 is now available."_s);
    EXPECT_EQ(part("infoField")->toolTip(), QString());
}

TEST_F(Looks, ShortenedTextNeverEndsInHalfACharacter) {
    EXPECT_EQ(tx::shortened(QString(48, u'a')), QString(48, u'a'));
    EXPECT_EQ(tx::shortened(QString(49, u'a')), QString(47, u'a') + QChar(0x2026));
    const QString pair = QString::fromUcs4(U"\U0001F600");
    EXPECT_EQ(tx::shortened(QString(46, u'a') + pair + u"bcd"_s), QString(46, u'a') + QChar(0x2026));
}

TEST_F(Looks, TextWithLineBreaksStaysOnOneLine) {
    TXElidedLabel label;
    label.setText(u"2.0\n\n\nbeta"_s);
    EXPECT_EQ(label.sizeHint().height(), label.fontMetrics().height());
    label.resize(label.sizeHint());
    EXPECT_EQ(label.shownText(), u"2.0 beta"_s);
    label.resize(label.minimumSizeHint());
    EXPECT_TRUE(label.isElided());
}

TEST_F(Looks, LineDividesTheListFromTheNotes) {
    show(makeUpdates(3));
    const auto *line = part<QFrame>("divider");
    ASSERT_TRUE(line);
    const QRect list = placeOf(part<QWidget>("versionsTableView"));
    const QRect notes = placeOf(part<QWidget>("webViewContainer"));
    const QRect place = placeOf(line);
    EXPECT_GE(place.left(), list.right());
    EXPECT_LE(place.right(), notes.left());
    EXPECT_EQ(place.height(), list.height()) << "from top to bottom";
    const QImage picture = panel->grab().toImage().scaled(panel->size());
    const int middle = place.center().y();
    const QColor background = picture.pixelColor(list.right() - 3, middle);
    int darkest = 255;
    for (int x = place.left(); x <= place.right(); ++x)
        darkest = std::min(darkest, picture.pixelColor(x, middle).lightness());
    EXPECT_LT(darkest, background.lightness() - 20) << "seen on the background";
    panel->closeWithCode(0);

    show(makeUpdates(1));
    EXPECT_FALSE(part<QFrame>("divider")->isVisible()) << "nothing to divide";
}

TEST_F(Looks, LinesAreOnePixelThickAndMeetWithoutAGap) {
    for (const bool dark : {false, true}) {
        beDark(dark);
        show(makeUpdates(3));
        const QRect upper = placeOf(part<QFrame>("upperLine"));
        const QRect lower = placeOf(part<QFrame>("lowerLine"));
        const QRect divider = placeOf(part<QFrame>("divider"));
        EXPECT_EQ(upper.height(), 1);
        EXPECT_EQ(lower.height(), 1);
        EXPECT_EQ(divider.width(), 1);
        EXPECT_EQ(divider.top(), upper.bottom() + 1);
        EXPECT_EQ(divider.bottom(), lower.top() - 1);
        EXPECT_EQ(placeOf(part<QWidget>("versionsTableView")).top(), upper.bottom() + 1)
            << "the first row begins below the line";
        const QImage picture = panel->grab().toImage().scaled(panel->size());
        const QColor background = tx::backgroundColor(panel.get());
        for (int y = upper.top(); y <= lower.bottom(); ++y)
            ASSERT_GT(tx::contrast(picture.pixelColor(divider.left(), y), background), 1.3)
                << y << (dark ? ", dark" : ", light");
        for (const int y : {upper.top(), lower.top()}) {
            for (int x = 0; x < panel->width(); ++x)
                ASSERT_GT(tx::contrast(picture.pixelColor(x, y), background), 1.3) << x << ", " << y;
        }
        panel->closeWithCode(0);
    }
}

TEST_F(Looks, NotesWithoutAStyleBeginBelowTheHeading) {
    const TXUpdatePtr update = makeUpdate(u"1043"_s, u"2.1"_s);
    update->setItemDescription(u"<p>Plain notes</p>"_s);
    show({update});
    auto *notes = panel->findChild<QTextBrowser *>();
    ASSERT_TRUE(notes);
    QTextCursor start(notes->document());
    const int x = notes->viewport()->mapTo(panel.get(), notes->cursorRect(start).topLeft()).x();
    EXPECT_EQ(x, placeOf(part("titleField")).left());
    EXPECT_GT(x, 20);
    notes->setHtml({});
}

TEST_F(Looks, ButtonsAtTheBottomOfAllWindowsHaveOneHeight) {
    QMap<QString, int> heights;
    show(makeUpdates(2));
    for (const char *name : {"installButton", "cancelButton", "skipButton"})
        heights[QString::fromLatin1(name)] = part<QPushButton>(name)->height();
    const auto checking = TXUpdateCheckingPanel::updateCheckingPanel();
    inModalSession([&] {
        heights[u"checking"_s] = outlet<QPushButton>(checking.get(), "button")->height();
        checking->showUpToDate();
        tx::test::drainEvents();
        heights[u"up to date"_s] = outlet<QPushButton>(checking.get(), "button")->height();
        checking->close();
    });
    (void)checking->runModal();
    const auto posts = TXUpdatePostWindowController::controller();
    auto post = std::make_shared<TXUpdatePost>();
    post->setPostURL(QUrl(u"http://127.0.0.1:1/"_s));
    posts->setPosts({post, post});
    posts->window()->show();
    tx::test::drainEvents();
    heights[u"post"_s] = outlet<QPushButton>(posts->window(), "_bottomBarCloseButton")->height();
    for (int i = 0; i < 2; ++i)
        heights[u"arrow %1"_s.arg(i)] =
            outlet<TXSegmentedControl>(posts->window(), "_navigationControl")->segment(i)->height();
    posts->window()->hide();
    const tx::test::AlertWatch watch([&](QMessageBox *box) {
        for (QAbstractButton *button : box->buttons())
            heights[u"alert, "_s + button->text()] = button->height();
        box->buttons().first()->click();
    });
    (void)tx::presentAlertInWindow({u"Message"_s, u"Explanation"_s, {u"First"_s, u"Second"_s}});
    EXPECT_EQ(heights.size(), 10);
    for (auto it = heights.begin(); it != heights.end(); ++it)
        EXPECT_EQ(it.value(), tx::buttonHeight) << it.key().toStdString();
}

TEST_F(Looks, BarWithoutAnEndDoesNotLookFull) {
    TXProgressIndicator bar;
    bar.setTextVisible(false);
    bar.resize(400, 22);
    bar.setRange(0, 1000);
    bar.setValue(1000);
    EXPECT_GT(filledShareOf(&bar), 0.9) << "what full looks like";
    bar.setValue(500);
    EXPECT_NEAR(filledShareOf(&bar), 0.5, 0.05);
    bar.setRange(0, 0);
    ASSERT_TRUE(bar.isIndeterminate());
    EXPECT_NEAR(filledShareOf(&bar), 0.25, 0.05);
    QSet<int> places;
    for (qint64 time = 0; time < 4000; time += 130) {
        const QRect piece = bar.pieceAfter(time);
        EXPECT_TRUE(bar.rect().contains(piece)) << time;
        EXPECT_LT(piece.width(), bar.width() / 3);
        places << piece.left();
    }
    EXPECT_GT(places.size(), 10) << "it moves";
    EXPECT_EQ(bar.pieceAfter(0).left(), bar.pieceAfter(2600).left()) << "and comes back";
    const QAccessibleInterface *read = QAccessible::queryAccessibleInterface(&bar);
    ASSERT_TRUE(read);
    EXPECT_LE(bar.value(), 0) << "and is not read as full";
    EXPECT_FALSE(read->text(QAccessible::Value).contains(u"100"_s));
}

TEST_F(Looks, BothWindowsHaveABarThatDoesNotLookFull) {
    show(makeUpdates(1));
    EXPECT_TRUE(part<TXProgressIndicator>("progressIndicator"));
    const auto checking = TXUpdateCheckingPanel::updateCheckingPanel();
    inModalSession([&] {
        auto *bar = outlet<TXProgressIndicator>(checking.get(), "progressIndicator");
        EXPECT_TRUE(bar && bar->isVisible() && bar->isIndeterminate());
        if (bar) {
            EXPECT_LT(filledShareOf(bar), 0.35);
        }
        checking->close();
    });
    (void)checking->runModal();
}

TEST_F(Looks, BarMovesOnlyWhileItHasNoEndAndIsSeen) {
    const auto moves = [](QWidget *bar) {
        return !QAbstractEventDispatcher::instance()->registeredTimers(bar).isEmpty();
    };
    TXProgressIndicator bar;
    bar.setRange(0, 0);
    bar.show();
    ASSERT_TRUE(tx::test::waitUntil([&] { return moves(&bar); }));
    bar.hide();
    EXPECT_FALSE(moves(&bar));
    bar.show();
    ASSERT_TRUE(tx::test::waitUntil([&] { return moves(&bar); }));
    bar.setRange(0, 10);
    EXPECT_TRUE(tx::test::waitUntil([&] { return !moves(&bar); }));
}

TEST_F(Looks, BarStaysInTheMiddleWhereNothingIsToMove) {
    class Still final : public QProxyStyle {
    public:
        using QProxyStyle::QProxyStyle;
        int styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                      QStyleHintReturn *more) const override {
            return hint == SH_Widget_Animation_Duration ? 0
                                                        : QProxyStyle::styleHint(hint, option, widget, more);
        }
    };
    Still still(u"fusion"_s);
    TXProgressIndicator bar;
    bar.setStyle(&still);
    bar.setRange(0, 0);
    bar.resize(400, 22);
    bar.show();
    tx::test::drainEvents();
    const QImage picture = bar.grab().toImage();
    EXPECT_TRUE(QAbstractEventDispatcher::instance()->registeredTimers(&bar).isEmpty());
    EXPECT_EQ(picture, bar.grab().toImage());
    EXPECT_EQ(picture.pixelColor(20, 11), picture.pixelColor(picture.width() - 20, 11));
    EXPECT_NE(picture.pixelColor(20, 11), picture.pixelColor(picture.width() / 2, 11));
}

/// An image of a mark of the list, large enough to compare.
QImage markNamed(const QString &name) {
    const QString path = tx::test::resourcesFolder() + u'/' + name + u".svg"_s;
    return QIcon(path).pixmap(QSize(80, 80), 1.0).toImage().convertToFormat(QImage::Format_ARGB32);
}

/// How much of what is drawn in either image is drawn in only one of them, by coverage alone.
double difference(const QImage &one, const QImage &other) {
    int drawn = 0;
    int different = 0;
    for (int y = 0; y < one.height(); ++y) {
        for (int x = 0; x < one.width(); ++x) {
            const bool a = qAlpha(one.pixel(x, y)) > 127;
            const bool b = qAlpha(other.pixel(x, y)) > 127;
            drawn += a || b;
            different += a != b;
        }
    }
    return drawn > 0 ? double(different) / drawn : 0;
}

TEST_F(Looks, MarkOfTheChosenVersionIsNoRadioButton) {
    const QImage mark = markNamed(u"ChosenVersionIndicator"_s);
    ASSERT_FALSE(mark.isNull());
    // What is round looks the same after a quarter of a turn.
    EXPECT_GT(difference(mark, mark.transformed(QTransform().rotate(90))), 0.5);
    show(makeUpdates(2));
    auto *list = part<TXUpdateVersionsTableView>("versionsTableView");
    EXPECT_EQ(list->viewForRow(0)->viewWithTag(TXUpdateVersionRow::ChosenImage)->toolTip(), u"Chosen"_s);
    EXPECT_EQ(list->viewForRow(1)->viewWithTag(TXUpdateVersionRow::ChosenImage)->toolTip(), QString());
}

TEST_F(Looks, MarkOfAPatchIsNoTickAndNoRoundBadge) {
    const QImage mark = markNamed(u"PatchVersionIndicator"_s);
    ASSERT_FALSE(mark.isNull());
    EXPECT_GT(difference(mark, mark.transformed(QTransform().rotate(90))), 0.3) << "not a round badge";
    EXPECT_GT(difference(mark, markNamed(u"MinorVersionIndicator"_s)), 0.2);
    // A tick has two unequal arms; this mark looks the same upside down, in colours too.
    const QImage turned = mark.transformed(QTransform().rotate(180));
    int other = 0;
    for (int y = 0; y < mark.height(); ++y) {
        for (int x = 0; x < mark.width(); ++x) {
            const QColor a = mark.pixelColor(x, y);
            const QColor b = turned.pixelColor(x, y);
            other += std::abs(a.lightness() - b.lightness()) > 80 || std::abs(a.alpha() - b.alpha()) > 80;
        }
    }
    EXPECT_LT(other, mark.width() * mark.height() / 50);
}

TEST_F(Looks, PlaceAmongThePostsIsBetweenTheArrows) {
    TXSegmentedControl control;
    control.setPosition(0, 3);
    control.show();
    tx::test::drainEvents();
    EXPECT_EQ(control.place()->text(), u"1 of 3"_s);
    EXPECT_TRUE(control.place()->isVisible());
    EXPECT_LT(control.segment(0)->geometry().right(), control.place()->geometry().left());
    EXPECT_LT(control.place()->geometry().right(), control.segment(1)->geometry().left());
    EXPECT_FALSE(control.isEnabledForSegment(0));
    EXPECT_TRUE(control.isEnabledForSegment(1));
    const int arrow = control.segment(1)->x();
    control.setPosition(1, 3);
    EXPECT_EQ(control.place()->text(), u"2 of 3"_s);
    EXPECT_TRUE(control.isEnabledForSegment(0));
    EXPECT_TRUE(control.isEnabledForSegment(1));
    control.setPosition(2, 3);
    tx::test::drainEvents();
    EXPECT_EQ(control.place()->text(), u"3 of 3"_s);
    EXPECT_FALSE(control.isEnabledForSegment(1));
    EXPECT_EQ(control.segment(1)->x(), arrow);
    control.setPosition(8, 12);
    tx::test::drainEvents();
    const int arrowOfNine = control.segment(1)->x();
    control.setPosition(9, 12);
    tx::test::drainEvents();
    EXPECT_EQ(control.segment(1)->x(), arrowOfNine) << "another digit does not move it";
}

TEST_F(Looks, PlaceAmongThePostsIsInEveryLanguage) {
    QSet<QString> texts;
    for (const QString &language :
         {u"ar"_s, u"de"_s, u"en"_s, u"es"_s, u"fr"_s, u"ja"_s, u"pt-BR"_s, u"ru"_s, u"zh-CN"_s}) {
        tx::services().preferredLanguages = [language] { return QStringList{language}; };
        TXSegmentedControl control;
        control.setPosition(1, 7);
        const QString text = control.place()->text();
        EXPECT_TRUE(text.contains(u'2') && text.contains(u'7'))
            << language.toStdString() << text.toStdString();
        EXPECT_LT(text.indexOf(u'2'), text.indexOf(u'7')) << language.toStdString();
        texts << text;
    }
    EXPECT_TRUE(texts.contains(u"2 von 7"_s));
    EXPECT_GE(texts.size(), 6);
}

TEST_F(Looks, SinglePostHasNoArrows) {
    const auto posts = TXUpdatePostWindowController::controller();
    auto post = std::make_shared<TXUpdatePost>();
    post->setPostURL(QUrl(u"http://127.0.0.1:1/"_s));
    posts->setPosts({post});
    posts->window()->show();
    const auto *control = outlet<TXSegmentedControl>(posts->window(), "_navigationControl");
    EXPECT_FALSE(control->isVisible());
    EXPECT_FALSE(control->isEnabledForSegment(0));
    EXPECT_FALSE(control->isEnabledForSegment(1));
    posts->setPosts({post, post});
    EXPECT_TRUE(control->isVisible());
    EXPECT_TRUE(control->segment(0)->isVisible() && control->segment(1)->isVisible());
    posts->window()->hide();
}

TEST_F(Looks, ArrowThatEndsLeavesTheFocusToTheOther) {
    QWidget window;
    TXSegmentedControl control(&window);
    QPushButton close(&window);
    control.setPosition(1, 3);
    window.show();
    window.activateWindow();
    ASSERT_TRUE(tx::test::waitUntil([&] { return window.isActiveWindow(); }));
    control.segment(1)->setFocus();
    control.setPosition(2, 3);
    EXPECT_EQ(window.focusWidget(), control.segment(0));
}

TEST_F(Looks, FocusIsOnTheDefaultButtonAndIsSeen) {
    show(makeUpdates(3));
    auto *install = part<QPushButton>("installButton");
    ASSERT_TRUE(tx::test::waitUntil([&] { return panel->isActiveWindow(); }));
    EXPECT_TRUE(install->isDefault());
    EXPECT_TRUE(install->hasFocus());
    EXPECT_TRUE(panel->testAttribute(Qt::WA_KeyboardFocusChange));
    const QImage focused = install->grab().toImage();
    part<QPushButton>("cancelButton")->setFocus();
    EXPECT_NE(install->grab().toImage(), focused) << "it can be seen";
    panel->closeWithCode(0);

    const auto checking = TXUpdateCheckingPanel::updateCheckingPanel();
    inModalSession([&] {
        checking->showUpToDate();
        tx::test::drainEvents();
        auto *button = outlet<QPushButton>(checking.get(), "button");
        EXPECT_EQ(checking->focusWidget(), button);
        EXPECT_TRUE(tx::test::waitUntil([&] { return button->hasFocus(); }));
        EXPECT_TRUE(button->isDefault());
        EXPECT_TRUE(checking->testAttribute(Qt::WA_KeyboardFocusChange));
        checking->close();
    });
    (void)checking->runModal();

    const tx::test::AlertWatch watch([&](QMessageBox *box) {
        EXPECT_EQ(box->focusWidget(), box->defaultButton());
        EXPECT_TRUE(tx::test::waitUntil([&] { return box->defaultButton()->hasFocus(); }));
        EXPECT_TRUE(box->testAttribute(Qt::WA_KeyboardFocusChange));
        box->buttons().first()->click();
    });
    (void)tx::presentAlertInWindow({u"Message"_s, u"Explanation"_s, {u"First"_s, u"Second"_s}});
}

TEST_F(Looks, FocusDoesNotGoToTheNextButtonWhenItsOwnIsDisabled) {
    const QList<TXUpdatePtr> updates = makeUpdates(1);
    show(updates);
    auto *install = part<QPushButton>("installButton");
    ASSERT_EQ(panel->focusWidget(), install);
    tx::setButtonEnabled(install, false);
    tx::setButtonEnabled(part<QPushButton>("cancelButton"), false);
    EXPECT_EQ(panel->focusWidget(), panel.get()) << "a second press would skip the version";
    tx::setButtonEnabled(install, true);
    EXPECT_EQ(panel->focusWidget(), install);
    part<QPushButton>("skipButton")->setFocus();
    tx::setButtonEnabled(install, false);
    tx::setButtonEnabled(install, true);
    EXPECT_EQ(panel->focusWidget(), part<QPushButton>("skipButton")) << "where the user put it";
}

TEST_F(Looks, TitleIsSaidOnce) {
    QGuiApplication::setApplicationDisplayName(u"Notes of the host"_s);
    show(makeUpdates(1));
    EXPECT_EQ(part("titleField")->text(), u"Host Update"_s);
    EXPECT_EQ(panel->windowTitle(), u"Notes of the host"_s) << "the title bar names the application";
    EXPECT_EQ(panel->accessibleName(), u"Host Update"_s) << "what a screen reader says of the window";
    const auto checking = TXUpdateCheckingPanel::updateCheckingPanel();
    inModalSession([&] {
        EXPECT_EQ(checking->windowTitle(), QString()) << "the desktop shows the application's name";
        EXPECT_EQ(checking->accessibleName(), outlet(checking.get(), "titleField")->text());
        EXPECT_EQ(outlet<QProgressBar>(checking.get(), "progressIndicator")->accessibleName(), u"Progress"_s);
        checking->close();
    });
    (void)checking->runModal();
    QGuiApplication::setApplicationDisplayName({});
}

TEST_F(Looks, ExplanationOfAnAlertIsLighterThanItsMessage) {
    int message = 0;
    int explanation = 0;
    const tx::test::AlertWatch watch([&](QMessageBox *box) {
        message = outlet(box, "qt_msgbox_label")->font().weight();
        explanation = outlet(box, "qt_msgbox_informativelabel")->font().weight();
        box->buttons().first()->click();
    });
    (void)tx::presentAlertInWindow({u"Message"_s, u"Explanation"_s, {u"OK"_s}});
    EXPECT_GE(message, int(QFont::Bold));
    EXPECT_EQ(explanation, int(QFont::Normal));
}

} // namespace
