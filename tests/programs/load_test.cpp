// SPDX-License-Identifier: MIT
// Many clients at once against one `txupdate serve`.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"

#include <QElapsedTimer>
#include <QProcess>

#include <atomic>
#include <barrier>
#include <httplib.h>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

class Load : public tx::test::FrameworkTest {
protected:
    /// How many clients; the long runs ask for more.
    static int clients() {
        const int asked = qEnvironmentVariableIntValue("TARVIX_LOAD_CLIENTS");
        return asked > 0 ? asked : 200;
    }
};

TEST_F(Load, EveryClientGetsFeedAndArchive) {
    const QByteArray feed = "{\"release\":[{\"type\":\"build\",\"build\":\"2\",\"title\":\"" +
                            QByteArray(8000, 't') + "\",\"downloadURL\":\"http://127.0.0.1/App.zip\"}]}";
    QByteArray archive(1 << 20, 0);
    for (qsizetype i = 0; i < archive.size(); ++i)
        archive[i] = static_cast<char>((i * 7919) >> 5);
    tx::test::writeFile(path(u"site/feed.json"_s), feed);
    tx::test::writeFile(path(u"site/App.zip"_s), archive);
    QProcess serving;
    serving.setStandardErrorFile(QProcess::nullDevice());
    serving.start(tx::test::programsFolder() + u"/txupdate"_s,
                  {u"serve"_s, path(u"site"_s), u"--port"_s, u"0"_s});
    ASSERT_TRUE(serving.waitForReadyRead(20000));
    const QByteArray line = serving.readLine();
    const int port = line.trimmed().chopped(1).split(':').last().toInt();
    ASSERT_GT(port, 0) << line.constData();

    std::atomic<int> failures{0};
    std::mutex mutex;
    std::string firstFailure;
    const auto fail = [&](const std::string &what) {
        ++failures;
        const std::lock_guard lock(mutex);
        if (firstFailure.empty())
            firstFailure = what;
    };
    QElapsedTimer timer;
    timer.start();
    std::barrier together(clients());
    std::vector<std::thread> threads;
    for (int i = 0; i < clients(); ++i) {
        threads.emplace_back([&, i] {
            httplib::Client client("127.0.0.1", port);
            client.set_keep_alive(true); // the archive follows its feed on the same connection
            client.set_connection_timeout(60);
            client.set_read_timeout(60);
            together.arrive_and_wait();
            const httplib::Headers headers{{"Cache-Control", "no-cache"}};
            const auto checked = i % 2 == 0 ? client.Get("/feed.json", headers)
                                            : client.Post("/feed.json", headers, "{}", "application/json");
            if (!checked || checked->status != 200 || checked->body != feed.toStdString())
                fail("feed: " + httplib::to_string(checked.error()));
            const auto downloaded = client.Get("/App.zip");
            if (!downloaded || downloaded->status != 200 || downloaded->body != archive.toStdString())
                fail("archive: " + httplib::to_string(downloaded.error()));
        });
    }
    // What it prints is read, or it would wait.
    std::atomic<bool> done{false};
    std::thread joiner([&] {
        for (std::thread &thread : threads)
            thread.join();
        done = true;
    });
    while (!done) {
        serving.waitForReadyRead(20);
        serving.readAll();
    }
    joiner.join();
    EXPECT_EQ(failures, 0) << firstFailure;
    std::printf("%d clients, %d requests, %.1f MB in %.2f s\n", clients(), 2 * clients(), clients() * 1.008,
                static_cast<double>(timer.elapsed()) / 1000);
    EXPECT_EQ(serving.state(), QProcess::Running);
    serving.kill();
    serving.waitForFinished();
}

} // namespace
