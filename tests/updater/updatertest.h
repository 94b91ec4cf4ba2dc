// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/environment.h"

#include <TarvixUpdate/TXUpdater.h>

#include <QCoreApplication>
#include <QThread>

namespace tx::test {

inline const QByteArray oneUpdate =
    R"({"release":[{"type":"build","build":"1043","downloadURL":"https://e.org/a.zip"}]})";

/// What the handler of a check was given.
struct CheckOutcome {
    TXUpdateFeedPtr feed;
    TXError error;
    int calls = 0;
    bool onMain = false;
    void operator()(const TXUpdateFeedPtr &f, const TXError &e) {
        feed = f;
        error = e;
        ++calls;
        onMain = QThread::currentThread() == QCoreApplication::instance()->thread();
    }
};

/// The shared updater, with a handler that records.
class UpdaterTest : public FrameworkTest {
protected:
    TXUpdater *updater = TXUpdater::sharedUpdater();
    CheckOutcome outcome;

    ~UpdaterTest() override { updater->setDelegate(nullptr); }
    void check() {
        outcome = {};
        updater->checkForUpdate([this](const TXUpdateFeedPtr &f, const TXError &e) { outcome(f, e); });
        ASSERT_TRUE(waitUntil([this] { return outcome.calls > 0; }));
        drainEvents();
    }
};

} // namespace tx::test
