// SPDX-License-Identifier: MIT
// The module TXUpdateInterface: reads interface files.
#include "widgets/interfaceloader.h"

#include <QCoreApplication>
#include <QFile>
#include <QUiLoader>
#include <QWidget>

#include <memory>

namespace {

class Loader final : public QUiLoader {
public:
    explicit Loader(tx::WidgetFactory factory)
        : m_factory(factory) {
        setLanguageChangeEnabled(false);
    }
    QWidget *createWidget(const QString &className, QWidget *parent, const QString &name) override {
        QWidget *widget = m_factory(className, parent);
        if (!widget)
            return QUiLoader::createWidget(className, parent, name);
        widget->setObjectName(name);
        return widget;
    }

private:
    tx::WidgetFactory m_factory;
};

} // namespace

extern "C" Q_DECL_EXPORT QWidget *txLoadInterface(const QString &path, tx::WidgetFactory factory,
                                                  QString *reason) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *reason = file.errorString();
        return nullptr;
    }
    // Qt's loader searches the plug-in folders for custom widgets, and loads every plug-in that it finds.
    const QStringList pluginFolders = QCoreApplication::libraryPaths();
    QCoreApplication::setLibraryPaths({});
    const auto loader = std::make_unique<Loader>(factory);
    QCoreApplication::setLibraryPaths(pluginFolders);
    QWidget *root = loader->load(&file);
    if (!root)
        *reason = loader->errorString();
    return root;
}
