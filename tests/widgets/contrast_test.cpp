// SPDX-License-Identifier: MIT
// What carries a meaning can be told from what is around it, whatever colours the desktop has.
#include "tests/support/places.h"
#include "tests/widgets/uitest.h"
#include "widgets/appearance.h"
#include "widgets/progressindicator.h"
#include "widgets/versionstable.h"

#include <TarvixUpdate/TXUpdatePanel.h>

#include <QCheckBox>
#include <QHash>
#include <QIcon>
#include <QImage>
#include <QMessageBox>
#include <QPalette>
#include <QStyleOptionButton>

using namespace Qt::StringLiterals;

namespace {

struct Desktop {
    const char *name;
    QPalette palette;
};

QPalette withHighlight(QPalette palette, const QColor &highlight) {
    palette.setColor(QPalette::Highlight, highlight);
    return palette;
}

/// Light and dark desktops, with selections in quiet and in strong colours.
QList<Desktop> desktops() {
    const QPalette light = QApplication::palette();
    QPalette dark(QColor(53, 53, 56), QColor(43, 43, 46));
    dark.setColor(QPalette::Base, QColor(30, 30, 32));
    return {{"light", light},
            {"light, dark blue", withHighlight(light, QColor(0, 0, 128))},
            {"light, red", withHighlight(light, QColor(190, 20, 30))},
            {"light, black", withHighlight(light, Qt::black)},
            {"dark", withHighlight(dark, QColor(47, 127, 214))},
            {"dark, light blue", withHighlight(dark, QColor(140, 200, 255))},
            {"dark, white", withHighlight(dark, Qt::white)}};
}

/// The colour of most of a mark. White belongs to what is drawn on it.
QColor colourOf(const QString &name) {
    const QString path = tx::test::resourcesFolder() + u'/' + name + u".svg"_s;
    const QImage mark =
        QIcon(path).pixmap(QSize(80, 80), 1.0).toImage().convertToFormat(QImage::Format_ARGB32);
    QHash<QRgb, int> counts;
    for (int y = 0; y < mark.height(); ++y) {
        for (int x = 0; x < mark.width(); ++x) {
            const QRgb pixel = mark.pixel(x, y);
            if (qAlpha(pixel) == 255 && pixel != qRgb(255, 255, 255))
                ++counts[pixel];
        }
    }
    QRgb most = 0;
    for (auto it = counts.begin(); it != counts.end(); ++it) {
        if (it.value() > counts.value(most))
            most = it.key();
    }
    return QColor::fromRgb(most);
}

class Contrast : public tx::test::UiTest {
protected:
    Contrast() {
        becomeHost(u"1042"_s, u"2.0"_s);
        replaceResource(u"TXUpdateWebView.so"_s, {});
    }
};

TEST_F(Contrast, IsMeasuredFromEqualToBlackAndWhite) {
    EXPECT_NEAR(tx::contrast(Qt::black, Qt::white), 21, 0.01);
    EXPECT_NEAR(tx::contrast(Qt::white, Qt::black), 21, 0.01);
    EXPECT_NEAR(tx::contrast(Qt::red, Qt::red), 1, 0.001);
    EXPECT_NEAR(tx::contrast(QColor(0x76, 0x76, 0x76), Qt::white), 4.54, 0.01);
    EXPECT_EQ(tx::mixed(Qt::white, Qt::black, 0.2), QColor(204, 204, 204));
}

TEST_F(Contrast, MarksOfTheListAreSeenOnRowsAndOnTheSelection) {
    for (const Desktop &desktop : desktops()) {
        QApplication::setPalette(desktop.palette);
        tx::test::drainEvents();
        const auto panel = TXUpdatePanel::panel();
        const QList<TXUpdatePtr> updates = makeUpdates(3);
        panel->setUpdatesAndDesignatedUpdate(updates, updates[0]);
        panel->showWindow({});
        tx::test::drainEvents();
        auto *list = outlet<TXUpdateVersionsTableView>(panel.get(), "versionsTableView");
        const QImage picture = list->grab().toImage();
        const auto rowsColour = [&](int row) {
            const QWidget *view = list->viewForRow(row);
            return picture.pixelColor(view->mapTo(list, QPoint(4, view->height() / 2)));
        };
        const QColor selection = rowsColour(0);
        EXPECT_GT(tx::contrast(selection, rowsColour(1)), 1.04) << desktop.name << ": the selection is seen";
        for (const char *mark : {"ChosenVersionIndicator", "MajorVersionIndicator", "MinorVersionIndicator",
                                 "PatchVersionIndicator"}) {
            const QColor colour = colourOf(QString::fromLatin1(mark));
            EXPECT_GE(tx::contrast(colour, selection), 3)
                << desktop.name << ", " << mark << " on " << selection.name().toStdString();
            EXPECT_GE(tx::contrast(colour, rowsColour(1)), 3)
                << desktop.name << ", " << mark << " on a row that is not selected";
        }
        panel->closeWithCode(0);
    }
}

TEST_F(Contrast, BarHasAFrameWhereItsEmptyPartIsAsDarkAsTheWindow) {
    QPalette dark(QColor(53, 53, 56), QColor(43, 43, 46));
    dark.setColor(QPalette::Base, QColor(30, 30, 32));
    for (const Desktop &desktop :
         {Desktop{"dark", dark}, Desktop{"black", QPalette(QColor(20, 20, 20), Qt::black)}}) {
        QApplication::setPalette(desktop.palette);
        tx::test::drainEvents();
        const QColor window = desktop.palette.color(QPalette::Window);
        TXProgressIndicator bar;
        bar.setTextVisible(false);
        bar.resize(400, 22);
        for (const int maximum : {1000, 0}) { // with an end, and without one
            bar.setRange(0, maximum);
            bar.setValue(0);
            const QImage picture = bar.grab().toImage().scaled(bar.size());
            const int middle = picture.height() / 2;
            for (int x = 20; x < picture.width() - 20; ++x) {
                ASSERT_GE(tx::contrast(picture.pixelColor(x, 0), window), 3) << desktop.name << ", x " << x;
                ASSERT_GE(tx::contrast(picture.pixelColor(x, picture.height() - 1), window), 3)
                    << desktop.name << ", x " << x;
            }
            for (const int x : {0, picture.width() - 1}) {
                EXPECT_GE(tx::contrast(picture.pixelColor(x, middle), window), 3)
                    << desktop.name << ", x " << x << ", maximum " << maximum;
            }
            EXPECT_LT(tx::contrast(picture.pixelColor(picture.width() - 4, middle), window), 2)
                << "empty inside";
        }
    }
}

TEST_F(Contrast, BoxOfAQuestionHasAFrameWhereItIsAsDarkAsTheWindow) {
    QPalette dark(QColor(53, 53, 56), QColor(43, 43, 46));
    dark.setColor(QPalette::Base, QColor(30, 30, 32));
    for (const QPalette &colours : {dark, QPalette(QColor(20, 20, 20), Qt::black)}) {
        QApplication::setPalette(colours);
        tx::test::drainEvents();
        const tx::test::AlertWatch watch([&](QMessageBox *box) {
            QCheckBox *check = box->checkBox();
            QStyleOptionButton option;
            option.initFrom(check);
            const QRect place = check->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, check);
            const QImage picture = check->grab().toImage().scaled(check->size());
            const QColor window = colours.color(QPalette::Window);
            for (const QPoint &point :
                 {QPoint(place.left(), place.center().y()), QPoint(place.right(), place.center().y()),
                  QPoint(place.center().x(), place.top()), QPoint(place.center().x(), place.bottom())}) {
                EXPECT_GE(tx::contrast(picture.pixelColor(point), window), 3)
                    << point.x() << ", " << point.y();
            }
            EXPECT_LT(tx::contrast(picture.pixelColor(place.center()), window), 2) << "empty inside";
            box->reject();
        });
        (void)tx::presentAlertInWindow({.message = u"Message"_s, .suppressionText = u"Never again"_s});
        EXPECT_TRUE(watch.seen());
    }
}

TEST_F(Contrast, BarKeepsTheStylesOwnLooksInALightAppearance) {
    beDark(false);
    TXProgressIndicator bar;
    QProgressBar styles;
    for (QProgressBar *each : {static_cast<QProgressBar *>(&bar), &styles}) {
        each->setTextVisible(false);
        each->resize(400, 22);
        each->setRange(0, 1000);
        each->setValue(300);
    }
    EXPECT_EQ(bar.grab().toImage(), styles.grab().toImage());
}

} // namespace
