// SPDX-License-Identifier: MIT
#pragma once

#include "install/updatedownload.h"
#include "model/updatefolder.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"

#include <QSignalSpy>

namespace tx::test {

using namespace Qt::StringLiterals;

/// Downloads an archive of build 5.
class Download : public FrameworkTest {
protected:
    TXUpdatePtr update = std::make_shared<TXUpdate>();
    const QString cache = UpdateFolder::ofHost().path();
    QList<double> progress;
    int completions = 0;
    TXError error;

    Download() { update->setVersion(u"5"_s); }
    ~Download() override {
        update.reset(); // tells a handler that is still kept
        drainEvents();
    }
    void start(const QString &url) {
        update->setFileURL(QUrl(url));
        update->downloadWithProgress([this](double p) { progress << p; },
                                     [this](const TXError &e) {
                                         error = e;
                                         ++completions;
                                     });
    }
    void run(const QString &url) {
        start(url);
        ASSERT_TRUE(waitUntil([this] { return completions > 0; }));
        drainEvents();
        EXPECT_EQ(completions, 1);
    }
    void expectIdle() {
        EXPECT_FALSE(update->isDownloading());
        EXPECT_FALSE(update->isDownloaded());
        EXPECT_TRUE(update->downloadPath().isNull());
        EXPECT_EQ(update->downloadProgress(), 0.0);
    }
};

} // namespace tx::test
