// SPDX-License-Identifier: MIT
#pragma once

class QDate;
class QString;
class QWidget;
class QWindow;

namespace tx {

/// Makes a widget of a class of the framework's own; null for other classes.
using WidgetFactory = QWidget *(*)(const QString &className, QWidget *parent);

/// The plug-in TXUpdateInterface exports this as "txLoadInterface". Returns the widgets of an interface file,
/// or null and a reason.
using InterfaceLoader = QWidget *(*)(const QString &path, WidgetFactory factory, QString *reason);

/// Exported as "txMediumDate". Formats a date in the medium length of a locale, which is named by its BCP 47
/// tag; null if the locale has no such format.
using DateFormatter = QString (*)(const QString &localeTag, const QDate &date);

/// Exported as "txTellTransientParent". Notifies the desktop of a transient parent that was set after the
/// window was shown. If that is not possible, the desktop keeps the earlier one.
using TransientParentTeller = void (*)(QWindow *window);

} // namespace tx
