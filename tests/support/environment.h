// SPDX-License-Identifier: MIT
#pragma once

#include "os/services.h"

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXUpdateFeed.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <functional>
#include <memory>

inline void PrintTo(const QString &text, std::ostream *out) {
    *out << (text.isNull() ? "(null)" : '"' + text.toStdString() + '"');
}

namespace tx::test {

/// A folder, a home and a host application of its own for each test, and the real services put back after it.
class FrameworkTest : public testing::Test {
protected:
    FrameworkTest();
    ~FrameworkTest() override;

    /// A path below the test's own folder.
    [[nodiscard]] QString path(const QString &relative) const;
    /// Makes the running host a bundle with this build; call it again for another one.
    void becomeHost(const QString &build, const QString &displayVersion = {});
    /// Lines that were written to the log since the test began.
    [[nodiscard]] QStringList logLines() const;
    /// Sets the clock of the services.
    void setNow(const QDateTime &now);

    const QString hostIdentifier = QStringLiteral("org.example.Host");

private:
    QTemporaryDir m_folder;
    Services m_services;
};

/// Runs the event loop until `done` holds; false after `milliseconds`.
[[nodiscard]] bool waitUntil(const std::function<bool()> &done, int milliseconds = 20000);

struct FetchedFeed {
    TXUpdateFeedPtr feed; ///< null when none came in time
    TXError error;
};
/// Fetches a feed and waits for it.
[[nodiscard]] FetchedFeed fetchFeed(const QUrl &url);

/// Lets everything that has been posted so far run.
void drainEvents();

/// An ordinary user's identity for the rest of the test when it runs as root; what root may do, root does not
/// test. Folders below `writable` are given to that user first.
class DroppedPrivileges {
public:
    explicit DroppedPrivileges(const QString &writable);
    ~DroppedPrivileges();
    Q_DISABLE_COPY_MOVE(DroppedPrivileges)

private:
    bool m_dropped = false;
};

} // namespace tx::test
