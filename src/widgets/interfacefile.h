// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QWidget>

#include <memory>
#include <stdexcept>

namespace tx {

/// An interface file that can be read but is not the one that this framework came with.
class InterfaceMismatch : public std::runtime_error {
public:
    explicit InterfaceMismatch(const QString &what)
        : std::runtime_error(what.toStdString()) {}
};

/// A function of the module TXUpdateInterface, as src/widgets/interfaceloader.h has them; null, with a line
/// in the log, where the module is not there. Thread: main.
[[nodiscard]] QFunctionPointer interfaceFunction(const char *name);

/// Makes the widgets of the interface file `name` of the framework's resources. Null when it is missing or
/// broken. Thread: main.
[[nodiscard]] std::unique_ptr<QWidget> loadInterface(const QString &name);

/// Sets an outlet to the object of that name. Throws InterfaceMismatch when there is none of that kind.
template <typename T>
void connectOutlet(T *&outlet, const QWidget *root, const QString &name) {
    outlet = root->objectName() == name ? qobject_cast<T *>(const_cast<QWidget *>(root))
                                        : root->findChild<T *>(name);
    if (!outlet)
        throw InterfaceMismatch(QStringLiteral("The interface file has no %1").arg(name));
}

/// The same, but an interface file without an object of that name leaves the outlet empty.
template <typename T>
void connectOutletIfThere(T *&outlet, const QWidget *root, const QString &name) {
    const bool isThere = root->objectName() == name || root->findChild<QObject *>(name);
    if (isThere)
        connectOutlet(outlet, root, name);
    else
        outlet = nullptr;
}

} // namespace tx
