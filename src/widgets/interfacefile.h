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

/// Looks up a function of the plug-in TXUpdateInterface (see src/widgets/interfaceloader.h). If the plug-in
/// is missing, logs that and returns null. Thread: main.
[[nodiscard]] QFunctionPointer interfaceFunction(const char *name);

/// Makes the widgets of the interface file `name` of the framework's resources. Null when it is missing or
/// broken. Thread: main.
[[nodiscard]] std::unique_ptr<QWidget> loadInterface(const QString &name);

/// Sets an outlet to the object of that name. Throws InterfaceMismatch if there is none of that type.
template <typename T>
void connectOutlet(T *&outlet, const QWidget *root, const QString &name) {
    outlet = root->objectName() == name ? qobject_cast<T *>(const_cast<QWidget *>(root))
                                        : root->findChild<T *>(name);
    if (!outlet)
        throw InterfaceMismatch(QStringLiteral("The interface file has no %1").arg(name));
}

/// As above, but leaves the outlet empty if the interface file has no object of that name.
template <typename T>
void connectOutletIfThere(T *&outlet, const QWidget *root, const QString &name) {
    const bool isThere = root->objectName() == name || root->findChild<QObject *>(name);
    if (isThere)
        connectOutlet(outlet, root, name);
    else
        outlet = nullptr;
}

} // namespace tx
