// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QUrl>

#include <atomic>
#include <cerrno>
#include <functional>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace tx::test {

/// Answers each connection by what a test writes into it, byte for byte.
class RawServer {
public:
    /// Sends; false when the other side has gone or the test ends.
    using Send = std::function<bool(const QByteArray &data)>;

    explicit RawServer(std::function<void(const Send &send)> answer)
        : m_answer(std::move(answer))
        , m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(m_socket, 8), 0);
        socklen_t length = sizeof address;
        getsockname(m_socket, reinterpret_cast<sockaddr *>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { run(); });
    }
    ~RawServer() {
        m_stopping = true;
        shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        close(m_socket);
    }
    RawServer(const RawServer &) = delete;
    RawServer &operator=(const RawServer &) = delete;

    [[nodiscard]] QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/App.zip").arg(m_port)); }
    [[nodiscard]] qint64 sent() const { return m_sent; }

private:
    void run() {
        while (!m_stopping) {
            const int connection = accept(m_socket, nullptr, nullptr);
            if (connection < 0)
                return;
            char request[4096];
            (void)!read(connection, request, sizeof request);
            const timeval patience{0, 200000};
            setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
            m_answer([&](const QByteArray &data) {
                for (qsizetype written = 0; written < data.size();) {
                    const ssize_t n = send(connection, data.constData() + written,
                                           static_cast<size_t>(data.size() - written), MSG_NOSIGNAL);
                    if (m_stopping || (n < 0 && errno != EAGAIN))
                        return false;
                    if (n > 0) {
                        written += n;
                        m_sent += n;
                    }
                }
                return !m_stopping;
            });
            close(connection);
        }
    }

    std::function<void(const Send &)> m_answer;
    int m_socket;
    int m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::atomic<qint64> m_sent{0};
    std::thread m_thread;
};

} // namespace tx::test
