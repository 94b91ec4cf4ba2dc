// SPDX-License-Identifier: MIT
#include "install/updatebuilder.h"

#include "install/update_p.h"
#include "platform/queues.h"

#include <QCoreApplication>
#include <QThread>

namespace tx {

TXUpdatePtr UpdateBuilder::make(UpdateFields fields) {
    auto *update = new TXUpdate;
    static_cast<UpdateFields &>(*update->d) = std::move(fields);
    if (const QCoreApplication *application = QCoreApplication::instance())
        update->moveToThread(application->thread());
    return {update, [](TXUpdate *object) {
                if (object->thread() == QThread::currentThread() || !object->thread())
                    delete object;
                else
                    postToMain([owned = std::shared_ptr<TXUpdate>(object)] {});
            }};
}

} // namespace tx
