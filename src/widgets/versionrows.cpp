// SPDX-License-Identifier: MIT
#include "widgets/versionrows.h"

#include "os/frameworkresources.h"
#include "os/localization.h"
#include "widgets/appearance.h"
#include "widgets/mediumdate.h"
#include "widgets/versionstable.h"

#include <QApplication>
#include <QFontDatabase>
#include <QHash>
#include <QIcon>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// An image of the framework's resources, read once.
QPixmap imageNamed(const QString &name, const QLabel *label) {
    static QHash<QString, QIcon> images;
    QIcon &icon = images[name];
    if (icon.isNull())
        icon = QIcon(frameworkResourcesPath() + u'/' + name + u".svg"_s);
    return icon.pixmap(label->size(), label->devicePixelRatioF());
}

QString indicatorOf(const TXUpdate &update) {
    if (update.isMajorVersion())
        return u"MajorVersionIndicator"_s;
    return update.isMinorVersion() ? u"MinorVersionIndicator"_s : u"PatchVersionIndicator"_s;
}

QString kindOf(const TXUpdate &update) {
    if (update.isMajorVersion())
        return localizedString(u"Major version"_s);
    return update.isMinorVersion() ? localizedString(u"Minor version"_s)
                                   : localizedString(u"Patch version"_s);
}

QString buildText(const TXUpdate &update) {
    return update.version().isEmpty() ? QString() : localizedFormat(u"Build %@"_s, {update.version()});
}

} // namespace

void fillVersionRow(TXUpdateVersionRow *row, const TXUpdate &update, const VersionRowState &state) {
    row->imageView()->setPixmap(imageNamed(indicatorOf(update), row->imageView()));
    row->imageView()->setToolTip(kindOf(update));
    auto *chosen = qobject_cast<QLabel *>(row->viewWithTag(TXUpdateVersionRow::ChosenImage));
    chosen->setPixmap(state.isDesignated ? imageNamed(u"ChosenVersionIndicator"_s, chosen) : QPixmap());
    chosen->setVisible(state.isDesignated); // otherwise the version gets its room
    chosen->setToolTip(state.isDesignated ? localizedString(u"Chosen"_s) : QString());

    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setPixelSize(16);
    font.setWeight(update.isMajorVersion() ? QFont::Bold : QFont::DemiBold);
    row->textField()->setFont(font);
    row->textField()->setText(update.displayVersion());

    auto *build = qobject_cast<QLabel *>(row->viewWithTag(TXUpdateVersionRow::BuildField));
    build->setText(buildText(update));
    build->setVisible(state.showsBuild);
    auto *date = qobject_cast<QLabel *>(row->viewWithTag(TXUpdateVersionRow::DateField));
    date->setText(mediumDate(update.date()));

    auto *button = qobject_cast<QPushButton *>(row->viewWithTag(TXUpdateVersionRow::ChooseButton));
    const QString title = localizedString(u"Choose"_s);
    button->setText(QString(title).replace(u'&', u"&&"_s));
    button->setAutoDefault(false);
    button->setAccessibleName(title + u' ' + update.displayVersion());
    button->setVisible(state.canBeChosen);
    row->setAccessibleName(versionRowText(update, state));
}

QString versionRowText(const TXUpdate &update, const VersionRowState &state) {
    QStringList parts{update.displayVersion(), kindOf(update)};
    if (state.showsBuild)
        parts << buildText(update);
    parts << mediumDate(update.date());
    if (state.isDesignated)
        parts << localizedString(u"Chosen"_s);
    parts.removeAll(QString());
    return parts.join(u", "_s);
}

} // namespace tx
