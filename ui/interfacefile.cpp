// SPDX-License-Identifier: MIT
#include "ui/interfacefile.h"

#include "platform/frameworkresources.h"
#include "platform/services.h"
#include "ui/interfaceloader.h"
#include "ui/segmentedcontrol.h"
#include "ui/versionstable.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateCheckingPanel.h>

#include <QLibrary>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QWidget *makeOwnWidget(const QString &className, QWidget *parent) {
    if (className == u"TXUpdateCheckingPanelContentView")
        return new TXUpdateCheckingPanelContentView(parent);
    if (className == u"TXUpdateVersionsTableView")
        return new TXUpdateVersionsTableView(parent);
    if (className == u"TXSegmentedControl")
        return new TXSegmentedControl(parent);
    return nullptr;
}

/// The reader of interface files is a module of its own, as it loads libraries that a host without an open
/// panel has no use for.
InterfaceLoader loader() {
    static const auto resolved = [] {
        QLibrary module(frameworkResourcesPath() + u"/TXUpdateInterface.so"_s);
        module.setLoadHints(QLibrary::PreventUnloadHint);
        const auto function = reinterpret_cast<InterfaceLoader>(module.resolve("txLoadInterface"));
        if (!function)
            TXLog(TXLogLevelFailure, u"TXUpdate: %@"_s, {module.errorString()});
        return function;
    }();
    return resolved;
}

} // namespace

std::unique_ptr<QWidget> loadInterface(const QString &name) {
    if (!loader())
        return nullptr;
    const QString path = services().resourcesPath() + u'/' + name + u".ui"_s;
    QString reason;
    std::unique_ptr<QWidget> root(loader()(path, makeOwnWidget, &reason));
    if (!root)
        TXLog(TXLogLevelStep, u"TXUpdate: %@: %@"_s, {path, reason});
    return root;
}

} // namespace tx
