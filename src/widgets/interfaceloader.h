// SPDX-License-Identifier: MIT
#pragma once

class QDate;
class QString;
class QWidget;
class QWindow;

namespace tx {

/// Makes a widget of a class of the framework's own; null for other classes.
using WidgetFactory = QWidget *(*)(const QString &className, QWidget *parent);

/// What the module TXUpdateInterface exports under the name "txLoadInterface": the widgets of an interface
/// file, or null and a reason.
using InterfaceLoader = QWidget *(*)(const QString &path, WidgetFactory factory, QString *reason);

/// "txMediumDate": the date in the middle length of a locale, which is given by its BCP 47 tag; null when
/// there is no such form.
using DateFormatter = QString (*)(const QString &localeTag, const QDate &date);

/// "txTellTransientParent": tells the desktop of a transient parent that was set after the window was shown.
/// Where that is not possible, the desktop keeps the one that it knows.
using TransientParentTeller = void (*)(QWindow *window);

} // namespace tx
