// SPDX-License-Identifier: MIT
#include "tests/support/feedserver.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tx::test {

HttpReply HttpReply::json(const QByteArray &body) {
    return {200, {{"Content-Type", "application/json"}}, body};
}

HttpReply HttpReply::file(const QByteArray &body, const QByteArray &type) {
    return {200, {{"Content-Type", type}}, body};
}

HttpReply HttpReply::redirect(const QByteArray &location) { return {302, {{"Location", location}}, {}}; }

FeedServer::FeedServer() {
    m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(listen(m_socket, 64), 0);
    socklen_t length = sizeof address;
    getsockname(m_socket, reinterpret_cast<sockaddr *>(&address), &length);
    m_port = ntohs(address.sin_port);
    EXPECT_EQ(pipe2(m_wake, O_CLOEXEC), 0);
    m_thread = std::thread([this] { run(); });
}

FeedServer::~FeedServer() {
    m_stopping = true;
    close(m_wake[1]); // everything that polls wakes
    m_thread.join();
    for (std::thread &connection : m_connections)
        connection.join();
    close(m_wake[0]);
    close(m_socket);
    for (const Expectation &missing : m_expected)
        ADD_FAILURE() << "missing request: " << missing.method.constData() << ' ' << missing.path.constData();
    for (const QByteArray &request : m_unexpected)
        ADD_FAILURE() << "unexpected request: " << request.constData();
}

void FeedServer::expect(const QByteArray &method, const QByteArray &path, const HttpReply &reply) {
    const std::lock_guard lock(m_mutex);
    m_expected.push_back({method, path, reply});
}

void FeedServer::always(std::function<HttpReply(const HttpRequest &)> reply) {
    const std::lock_guard lock(m_mutex);
    m_always = std::move(reply);
}

QList<HttpRequest> FeedServer::requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

QString FeedServer::url(const QString &path) const {
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path);
}

void FeedServer::run() {
    for (;;) {
        pollfd watched[] = {{m_socket, POLLIN, 0}, {m_wake[0], POLLIN, 0}};
        poll(watched, 2, -1);
        if (m_stopping)
            return;
        const int connection = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0)
            m_connections.emplace_back([this, connection] { serve(connection); });
    }
}

HttpReply FeedServer::answer(const HttpRequest &request) {
    const std::lock_guard lock(m_mutex);
    m_requests.append(request);
    if (!m_expected.empty() && m_expected.front().method == request.method &&
        m_expected.front().path == request.path()) {
        const HttpReply reply = m_expected.front().reply;
        m_expected.pop_front();
        return reply;
    }
    if (m_expected.empty() && m_always)
        return m_always(request);
    m_unexpected.append(request.method + ' ' + request.target);
    return {500, {}, "unexpected"};
}

void FeedServer::serve(int connection) {
    QByteArray data;
    qsizetype headerEnd = -1;
    qint64 bodyLength = 0;
    HttpRequest request;
    while (headerEnd < 0 || data.size() < headerEnd + bodyLength) {
        pollfd watched[] = {{connection, POLLIN, 0}, {m_wake[0], POLLIN, 0}};
        poll(watched, 2, -1);
        char buffer[65536];
        const ssize_t n = m_stopping ? 0 : recv(connection, buffer, sizeof buffer, 0);
        if (n <= 0) {
            close(connection);
            return;
        }
        data.append(buffer, n);
        const qsizetype end = data.indexOf("\r\n\r\n");
        if (headerEnd >= 0 || end < 0)
            continue;
        headerEnd = end + 4;
        const QList<QByteArray> lines = data.left(end).split('\n');
        const QList<QByteArray> words = lines.first().trimmed().split(' ');
        request.method = words.value(0);
        request.target = words.value(1);
        for (const QByteArray &line : lines.mid(1)) {
            const qsizetype colon = line.indexOf(':');
            request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
        }
        bodyLength = request.headers.value("content-length").toLongLong();
    }
    request.body = data.mid(headerEnd, bodyLength);
    const HttpReply reply = answer(request);
    QByteArray response = "HTTP/1.1 " + QByteArray::number(reply.status) + " Status\r\n";
    for (const auto &[name, value] : reply.headers)
        response += name + ": " + value + "\r\n";
    if (reply.announcedLength != -1)
        response +=
            "Content-Length: " +
            QByteArray::number(reply.announcedLength == -2 ? reply.body.size() : reply.announcedLength) +
            "\r\n";
    response += "Connection: close\r\n\r\n" + reply.body;
    for (qsizetype sent = 0; sent < response.size() && !m_stopping;) {
        const ssize_t n =
            send(connection, response.constData() + sent, size_t(response.size() - sent), MSG_NOSIGNAL);
        if (n <= 0)
            break;
        sent += n;
    }
    const bool complete = reply.announcedLength == -2 || reply.announcedLength == reply.body.size();
    if (reply.stalls || complete) {
        // Until the client goes away or the test ends.
        char byte = 0;
        pollfd watched[] = {{connection, POLLIN, 0}, {m_wake[0], POLLIN, 0}};
        do
            poll(watched, 2, -1);
        while (!m_stopping && recv(connection, &byte, 1, 0) > 0);
    }
    shutdown(connection, SHUT_WR);
    close(connection);
}

} // namespace tx::test
