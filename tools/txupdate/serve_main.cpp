// SPDX-License-Identifier: MIT
// txupdate-serve DIR PORT RATE [HOST...]: what `txupdate serve` becomes. A separate program, because loading
// the server's libraries takes longer than a check.

#include "base/loopbackname.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStringList>

#include <httplib.h>

#include <chrono>
#include <cstdio>
#include <mutex>
#include <optional>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

const char *contentTypeFor(const QString &suffix) {
    struct Row {
        QLatin1StringView suffix;
        const char *type;
    };
    // Exactly this type makes an application read a feed as JSON.
    static constexpr Row rows[] = {
        {"json"_L1, "application/json"}, {"xml"_L1, "application/rss+xml"},
        {"html"_L1, "text/html"},        {"txt"_L1, "text/plain"},
        {"css"_L1, "text/css"},          {"js"_L1, "text/javascript"},
        {"png"_L1, "image/png"},         {"svg"_L1, "image/svg+xml"},
        {"zip"_L1, "application/zip"},   {"tgz"_L1, "application/gzip"},
        {"gz"_L1, "application/gzip"},   {"tbz"_L1, "application/x-bzip2"},
        {"tzst"_L1, "application/zstd"}, {"tar"_L1, "application/x-tar"},
    };
    for (const Row &row : rows) {
        if (suffix.compare(row.suffix, Qt::CaseInsensitive) == 0)
            return row.type;
    }
    return "application/octet-stream";
}

/// The content of a file that does not change meanwhile: a feed that is rewritten in place must not be sent
/// as a mixture of old and new. Absent if it keeps changing.
std::optional<QByteArray> settledContent(QFile &file) {
    constexpr int tries = 50;
    QByteArray before = file.readAll();
    for (int i = 0; i < tries; ++i) {
        file.seek(0);
        QByteArray again = file.readAll();
        if (again == before)
            return again;
        before = std::move(again);
    }
    return std::nullopt;
}

/// Escapes what a client sent for one line of the log: characters that could end the line, or have an effect
/// on a terminal, are written as numbers.
QByteArray shown(const QString &text) {
    QString result;
    for (const char32_t c : text.toUcs4()) {
        switch (QChar::category(c)) {
        case QChar::Other_Control:
        case QChar::Other_Format: // includes changes of the writing direction
        case QChar::Other_Surrogate:
        case QChar::Separator_Line:
        case QChar::Separator_Paragraph:
            result += u"\\u{%1}"_s.arg(static_cast<uint>(c), 0, 16);
            break;
        default:
            result += c == U'\\' ? u"\\\\"_s : QString::fromUcs4(&c, 1);
        }
    }
    return result.toUtf8();
}
QByteArray shown(const std::string &text) { return shown(QString::fromStdString(text)); }

class Server {
public:
    /// `rate`: bytes a second for each answer; 0: as fast as it goes. `hosts`: the names under which it
    /// answers beside those of this machine.
    Server(const QString &directory, qint64 rate, const QStringList &hosts)
        : m_rate(rate)
        , m_hosts(hosts)
        , m_root(QFileInfo(directory).canonicalFilePath()) {
        const auto handler = [this](const httplib::Request &request, httplib::Response &response) {
            if (isForThisServer(request))
                answer(request, response);
            else
                refuse(response);
            print(request, response);
        };
        m_server.Get(".*", handler);
        m_server.Post(".*", handler);
        // A connection takes a thread, also while it is kept for a further request.
        constexpr size_t threads = 256;
        m_server.new_task_queue = [] { return new httplib::ThreadPool(threads); };
        m_server.set_keep_alive_timeout(2);
        m_server.set_socket_options([this](socket_t socket) {
            m_socket = socket;
            httplib::default_socket_options(socket);
        });
        m_server.set_tcp_nodelay(true);
        constexpr size_t largestBody = 16 << 20;
        m_server.set_payload_max_length(largestBody);
    }

    int run(int port) {
        const std::string address = "127.0.0.1";
        const int bound = port == 0 ? m_server.bind_to_any_port(address) : port;
        if (bound < 0 || (port != 0 && !m_server.bind_to_port(address, port))) {
            std::fprintf(stderr, "txupdate: cannot listen on port %d: it is taken\n", port);
            return 1;
        }
        // The library queues five connections; after a release there are more at once.
        if (listen(m_socket, SOMAXCONN) != 0) {
            std::fprintf(stderr, "txupdate: cannot listen on port %d\n", bound);
            return 1;
        }
        std::printf("Serving %s on http://127.0.0.1:%d/\n", m_root.toUtf8().constData(), bound);
        std::fflush(stdout);
        return m_server.listen_after_bind() ? 0 : 1;
    }

private:
    /// A page from elsewhere whose name resolves to this machine must not see the folder.
    [[nodiscard]] bool isForThisServer(const httplib::Request &request) const {
        if (request.get_header_value_count("Host") != 1)
            return false;
        const QString named = QString::fromStdString(request.get_header_value("Host"));
        static const QRegularExpression form(u"^(?:\\[([0-9a-fA-F:]+)\\]|([^:\\[\\]]+))(?::[0-9]{1,5})?$"_s);
        const QRegularExpressionMatch match = form.match(named);
        if (!match.hasMatch())
            return false;
        const QString host = match.captured(1) + match.captured(2);
        return tx::isLoopbackName(host) || m_hosts.contains(host, Qt::CaseInsensitive);
    }

    static void refuse(httplib::Response &response) {
        constexpr int misdirectedRequest = 421;
        response.status = misdirectedRequest;
        response.set_content(
            "This server answers only to names of this machine, such as localhost and 127.0.0.1. "
            "Start it with --host NAME for another one.\n",
            "text/plain");
    }

    void answer(const httplib::Request &request, httplib::Response &response) const {
        const QFileInfo file(m_root + u'/' + QString::fromStdString(request.path));
        const QString path = file.canonicalFilePath();
        // Links and ".." may not lead out of the folder.
        if (path.isEmpty() || !path.startsWith(m_root + u'/') || !QFileInfo(path).isFile()) {
            response.status = 404;
            response.set_content("There is no such file.\n", "text/plain");
            return;
        }
        auto content = std::make_shared<QFile>(path);
        if (!content->open(QIODevice::ReadOnly)) {
            response.status = 403;
            return;
        }
        const auto size = static_cast<size_t>(content->size());
        const char *type = contentTypeFor(QFileInfo(path).suffix());
        constexpr size_t document = 1 << 20;
        if (size <= document && m_rate == 0) {
            const std::optional<QByteArray> whole = settledContent(*content);
            if (!whole) {
                response.status = 503;
                response.set_content("The file is being written.\n", "text/plain");
                return;
            }
            if (whole->isEmpty()) {
                response.set_content("", type);
                return;
            }
            // Not as plain content, which the library would compress, and slowly.
            response.set_content_provider(
                static_cast<size_t>(whole->size()), type,
                [data = *whole](size_t offset, size_t length, httplib::DataSink &sink) {
                    return sink.write(data.constData() + offset, length);
                });
            return;
        }
        if (size == 0) {
            response.set_content("", type);
            return;
        }
        response.set_content_provider(
            size, type, [content, rate = m_rate](size_t offset, size_t length, httplib::DataSink &sink) {
                // Ten steps a second are smooth enough for a progress bar.
                const size_t step =
                    rate > 0 ? static_cast<size_t>(std::max<qint64>(1, rate / 10)) : 256 << 10;
                content->seek(static_cast<qint64>(offset));
                const QByteArray data = content->read(static_cast<qint64>(std::min(length, step)));
                if (rate > 0)
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
                return !data.isEmpty() && sink.write(data.constData(), static_cast<size_t>(data.size()));
            });
    }

    void print(const httplib::Request &request, const httplib::Response &response) {
        const std::lock_guard lock(m_mutex);
        std::printf("%s %s -> %d\n", shown(request.method).constData(), shown(request.path).constData(),
                    response.status < 0 ? 200 : response.status);
        for (const auto &[name, value] : request.params)
            std::printf("    %s = %s\n", shown(name).constData(), shown(value).constData());
        const QJsonObject body = QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object();
        for (auto it = body.begin(); it != body.end(); ++it) {
            if (!it.value().isObject())
                std::printf("    body: %s = %s\n", shown(it.key()).constData(),
                            shown(it.value().toVariant().toString()).constData());
        }
        const QJsonObject profile = body[u"systemProfile"_s].toObject();
        for (auto it = profile.begin(); it != profile.end(); ++it)
            std::printf("    profile: %s = %s\n", shown(it.key()).constData(),
                        shown(it.value().toString()).constData());
        std::fflush(stdout);
    }

    qint64 m_rate;
    QStringList m_hosts;
    QString m_root;
    httplib::Server m_server;
    socket_t m_socket = INVALID_SOCKET;
    std::mutex m_mutex;
};

} // namespace

int main(int argc, char **argv) {
    constexpr int fixedArguments = 4;
    if (argc < fixedArguments) {
        std::fputs("usage: txupdate serve DIR [--port N] [--rate BYTES] [--host NAME]...\n", stderr);
        return 64;
    }
    QStringList hosts;
    for (int i = fixedArguments; i < argc; ++i)
        hosts << QString::fromLocal8Bit(argv[i]);
    return Server(QString::fromLocal8Bit(argv[1]), QByteArray(argv[3]).toLongLong(), hosts)
        .run(QByteArray(argv[2]).toInt());
}
