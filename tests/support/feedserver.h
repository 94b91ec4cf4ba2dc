// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace tx::test {

struct HttpRequest {
    QByteArray method;
    QByteArray target;                    ///< path and query as sent
    QMap<QByteArray, QByteArray> headers; ///< names in lower case
    QByteArray body;
    [[nodiscard]] QByteArray path() const { return target.split('?').first(); }
};

/// What a scripted request is answered with.
struct HttpReply {
    int status = 200;
    QList<std::pair<QByteArray, QByteArray>> headers;
    QByteArray body;
    qint64 announcedLength = -2; ///< Content-Length; -1 sends none, -2 the body's
    bool stalls = false;         ///< keeps the connection open and silent after this

    static HttpReply json(const QByteArray &body);
    static HttpReply file(const QByteArray &body, const QByteArray &type = "application/octet-stream");
    static HttpReply redirect(const QByteArray &location);
};

/// A server on 127.0.0.1 that answers expected requests in order. A request that was not expected, and an
/// expected one that did not come, fail the test.
class FeedServer {
public:
    FeedServer();
    ~FeedServer();
    FeedServer(const FeedServer &) = delete;
    FeedServer &operator=(const FeedServer &) = delete;

    void expect(const QByteArray &method, const QByteArray &path, const HttpReply &reply);
    /// Answers what comes by this, any number of times, when nothing is expected.
    void always(std::function<HttpReply(const HttpRequest &)> reply);
    /// Requests so far.
    [[nodiscard]] QList<HttpRequest> requests() const;
    [[nodiscard]] int port() const { return m_port; }
    [[nodiscard]] QString url(const QString &path) const;

private:
    struct Expectation {
        QByteArray method;
        QByteArray path;
        HttpReply reply;
    };
    void run();
    void serve(int connection);
    HttpReply answer(const HttpRequest &request);

    int m_socket = -1;
    int m_port = 0;
    int m_wake[2] = {-1, -1};
    mutable std::mutex m_mutex;
    std::deque<Expectation> m_expected;
    std::function<HttpReply(const HttpRequest &)> m_always;
    QList<HttpRequest> m_requests;
    QList<QByteArray> m_unexpected;
    std::thread m_thread;
    std::vector<std::thread> m_connections;
    std::atomic<bool> m_stopping{false};
};

} // namespace tx::test
