// SPDX-License-Identifier: MIT
#include "widgets/interfacefile.h"

#include "os/frameworkresources.h"
#include "os/services.h"
#include "widgets/elidedlabel.h"
#include "widgets/interfaceloader.h"
#include "widgets/progressindicator.h"
#include "widgets/segmentedcontrol.h"
#include "widgets/versionstable.h"

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
    if (className == u"TXElidedLabel")
        return new TXElidedLabel(parent);
    if (className == u"TXProgressIndicator")
        return new TXProgressIndicator(parent);
    return nullptr;
}

} // namespace

QFunctionPointer interfaceFunction(const char *name) {
    // In a separate module, because it loads libraries that a host without an open panel does not need.
    static auto &module = *new QLibrary(frameworkResourcesPath() + u"/TXUpdateInterface.so"_s);
    module.setLoadHints(QLibrary::PreventUnloadHint);
    const QFunctionPointer function = module.resolve(name);
    if (!function)
        TXLog(TXLogLevelFailure, u"TXUpdate: %@"_s, {module.errorString()});
    return function;
}

std::unique_ptr<QWidget> loadInterface(const QString &name) {
    static const auto load = reinterpret_cast<InterfaceLoader>(interfaceFunction("txLoadInterface"));
    if (!load)
        return nullptr;
    const QString path = services().resourcesPath() + u'/' + name + u".ui"_s;
    QString reason;
    std::unique_ptr<QWidget> root(load(path, makeOwnWidget, &reason));
    if (!root)
        TXLog(TXLogLevelStep, u"TXUpdate: %@: %@"_s, {path, reason});
    return root;
}

} // namespace tx
