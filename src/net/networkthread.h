// SPDX-License-Identifier: MIT
#pragma once

#include "base/mailbox.h"
#include "net/urlloading.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QThread>

#include <atomic>
#include <functional>
#include <mutex>

namespace tx {

/// The thread with the framework's network access manager. It starts on first use, sleeps between transfers
/// and ends with the application.
class NetworkThread {
public:
    static NetworkThread &instance();

    /// Runs `work` on the thread, in order. Dropped when the application is ending. Thread: any.
    void post(std::function<void(QNetworkAccessManager &)> work);
    /// As post(), but runs `work` immediately if called on this thread.
    void run(std::function<void(QNetworkAccessManager &)> work);
    /// Runs `work` on the thread and waits; does nothing when the thread has ended. Thread: any but itself.
    void runAndWait(const std::function<void()> &work);
    /// Ends the thread. Running transfers end without a notification. A thread that does not end within a few
    /// seconds is abandoned. Thread: any; does nothing on the network thread itself.
    void stop();

private:
    NetworkThread() = default;
    void start();
    /// Held by every caller but the thread itself, which may be what a caller waits for.
    [[nodiscard]] std::unique_lock<std::mutex> lock();

    std::mutex m_mutex;
    std::atomic<QThread *> m_thread{nullptr};
    QNetworkAccessManager *m_manager = nullptr; ///< lives on the thread
    std::unique_ptr<Mailbox> m_mailbox;         ///< so does this
};

/// The request as the access manager wants it: redirects followed, but never to less security.
[[nodiscard]] QNetworkRequest networkRequestFor(const UrlRequest &request);

/// Closes the connections that were kept for further requests half a second after the last transfer: a
/// server that closes them later would wake an idle process. Asking the server to close instead does not do:
/// when its answer and the end of the connection come at once, the access manager may ask a second time.
void closeIdleConnections(QNetworkAccessManager &manager);

/// The URL error for a reply that failed in transport. `untrusted`: the certificate was refused.
TXError transportError(const QNetworkReply &reply, bool untrusted);

/// True when the TLS errors say that the certificate itself cannot be trusted.
[[nodiscard]] bool meansUntrusted(const QList<QSslError> &errors);

/// True for a reply that failed before, or instead of, an HTTP status.
[[nodiscard]] bool failedInTransport(const QNetworkReply &reply);

} // namespace tx
