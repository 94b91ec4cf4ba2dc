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

} // namespace tx
