// SPDX-License-Identifier: MIT
#pragma once

class QString;
class QWidget;

namespace tx {

/// Makes a widget of a class of the framework's own; null for other classes.
using WidgetFactory = QWidget *(*)(const QString &className, QWidget *parent);

/// What the module TXUpdateInterface exports under the name "txLoadInterface": the widgets of an interface
/// file, or null and a reason.
using InterfaceLoader = QWidget *(*)(const QString &path, WidgetFactory factory, QString *reason);

} // namespace tx
