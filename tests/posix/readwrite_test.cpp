// SPDX-License-Identifier: MIT
#include "posix/readwrite.h"

#include "posix/posixfiles.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <pthread.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using tx::posix::Descriptor;
using tx::posix::namesIn;
using tx::posix::writeAll;

struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        reading = Descriptor(ends[0]);
        writing = Descriptor(ends[1]);
    }
    Descriptor reading;
    Descriptor writing;
};

/// The data is larger than a pipe's buffer, so that the write blocks in the middle, where signals interrupt
/// it.
TEST(WriteAll, WritesEverythingThoughSignalsInterruptIt) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0); // without SA_RESTART
    const Pipe pipe;
    const std::string content(4 << 20, 'x');
    size_t written = 0;
    std::thread writer([&] { written = writeAll(pipe.writing.get(), content.data(), content.size()); });
    std::string received;
    std::string buffer(1 << 14, '\0');
    while (received.size() < content.size()) {
        pthread_kill(writer.native_handle(), SIGUSR1);
        const ssize_t n = read(pipe.reading.get(), buffer.data(), buffer.size());
        ASSERT_GT(n, 0);
        received.append(buffer, 0, static_cast<size_t>(n));
    }
    writer.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ(written, content.size());
    EXPECT_EQ(received, content);
}

TEST(WriteAll, SaysHowMuchWentAndWhyNotMore) {
    const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(full.isOpen());
    EXPECT_EQ(writeAll(full.get(), "abc", 3), 0U);
    EXPECT_EQ(errno, ENOSPC);
    const Pipe pipe;
    ASSERT_EQ(fcntl(pipe.writing.get(), F_SETFL, O_NONBLOCK), 0);
    const std::string content(4 << 20, 'x');
    const size_t written = writeAll(pipe.writing.get(), content.data(), content.size());
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GT(written, 0U);
    EXPECT_LT(written, content.size());
    EXPECT_EQ(writeAll(-1, "", 0), 0U);
}

TEST(NamesIn, AreAllButTheFolderAndItsParent) {
    const QTemporaryDir folder;
    const std::string path = folder.path().toStdString();
    for (const char *name : {"a", ".b", "..c"})
        std::ofstream(path + '/' + name) << "content";
    const std::set<std::string> expected{"a", ".b", "..c"};
    std::vector<std::string> names;
    EXPECT_EQ(namesIn(path, names), 0);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), expected);
    const Descriptor opened(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int time = 0; time < 2; ++time) { // the caller's position stays at the start
        names.clear();
        EXPECT_EQ(namesIn(opened.get(), names), 0);
        EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), expected);
    }
}

TEST(NamesIn, AnswersWhyAFolderCannotBeRead) {
    std::vector<std::string> names;
    EXPECT_EQ(namesIn("/nowhere/at/all", names), ENOENT);
    EXPECT_EQ(namesIn("/dev/null", names), ENOTDIR);
    EXPECT_EQ(namesIn(-1, names), EBADF);
    EXPECT_TRUE(names.empty());
}

} // namespace
