// SPDX-License-Identifier: MIT
// What the program that runs as root accepts from a host, which may send anything.
#include "installer/jobmessage.h"

#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::installer::JobMessage;
using tx::installer::longestJob;
using tx::installer::receiveJob;
using tx::posix::Descriptor;
using tx::test::writeFile;

namespace {

constexpr std::chrono::seconds ample(30);

class JobMessages : public tx::test::FrameworkTest {
protected:
    Descriptor host;
    Descriptor root;
    const QString archive = path(u"New.zip"_s);

    JobMessages() {
        writeFile(archive, "archive");
        connect(SOCK_SEQPACKET);
    }
    void connect(int kind) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, kind | SOCK_CLOEXEC, 0, ends), 0);
        host = Descriptor(ends[0]);
        root = Descriptor(ends[1]);
    }
    /// Calls sendmsg(). Returns errno on failure.
    int send(const std::string &words, const std::vector<int> &descriptors) {
        iovec content{const_cast<char *>(words.data()), words.size()};
        std::vector<char> control(CMSG_SPACE(descriptors.size() * sizeof(int)));
        msghdr message{};
        message.msg_iov = &content;
        message.msg_iovlen = 1;
        if (!descriptors.empty()) {
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            cmsghdr *part = CMSG_FIRSTHDR(&message);
            part->cmsg_level = SOL_SOCKET;
            part->cmsg_type = SCM_RIGHTS;
            part->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
            std::memcpy(CMSG_DATA(part), descriptors.data(), descriptors.size() * sizeof(int));
        }
        return sendmsg(host.get(), &message, MSG_NOSIGNAL) < 0 ? errno : 0;
    }
    static size_t openDescriptors() {
        size_t count = 0;
        for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            (void)entry;
            ++count;
        }
        return count;
    }
    Descriptor open(const QString &file, int flags = O_RDONLY) const {
        return Descriptor(::open(QFile::encodeName(file).constData(), flags | O_CLOEXEC));
    }
    void expectRefused(const std::string &part) {
        JobMessage message;
        const size_t before = openDescriptors();
        EXPECT_THAT(receiveJob(root.get(), ample, message), testing::HasSubstr(part));
        EXPECT_FALSE(message.archive.isOpen());
        EXPECT_EQ(message.words, "");
        EXPECT_EQ(openDescriptors(), before) << "what was sent is closed";
    }
};

TEST_F(JobMessages, WordsAndTheArchiveArriveTogether) {
    const Descriptor file = open(archive);
    ASSERT_EQ(send(std::string("one\0two\0", 8), {file.get()}), 0);
    JobMessage message;
    EXPECT_EQ(receiveJob(root.get(), ample, message), "");
    EXPECT_EQ(message.words, std::string("one\0two\0", 8));
    char content[10] = {};
    EXPECT_EQ(pread(message.archive.get(), content, sizeof content, 0), 7);
    EXPECT_STREQ(content, "archive");
    EXPECT_NE(fcntl(message.archive.get(), F_GETFD) & FD_CLOEXEC, 0) << "no program that is started gets it";
    // The longest job, without an archive.
    ASSERT_EQ(send(std::string(longestJob, 'x'), {}), 0);
    EXPECT_EQ(receiveJob(root.get(), ample, message), "");
    EXPECT_EQ(message.words, std::string(longestJob, 'x'));
    EXPECT_FALSE(message.archive.isOpen());
    // The host has closed its end, so there is no job.
    host.reset();
    EXPECT_EQ(receiveJob(root.get(), ample, message), "");
    EXPECT_EQ(message.words, "");
}

TEST_F(JobMessages, OnlyARegularFileThatCanBeReadIsAnArchive) {
    int pipe[2] = {-1, -1};
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    const Descriptor reading(pipe[0]);
    const Descriptor writing(pipe[1]);
    const struct {
        const char *what;
        Descriptor file;
        const char *reason;
    } cases[] = {
        {"a pipe", Descriptor(dup(reading.get())), "not a regular file"},
        {"the other end of a pipe", Descriptor(dup(writing.get())), "not a regular file"},
        {"a folder", open(path(u""_s)), "not a regular file"},
        {"a device", open(u"/dev/zero"_s), "not a regular file"},
        {"a socket", Descriptor(dup(host.get())), "not a regular file"},
        {"memory of this process", open(u"/proc/self/mem"_s), "not a file on a disk"},
        {"another file of the kernel's", open(u"/proc/self/status"_s), "not a file on a disk"},
        {"a file that was only named", open(archive, O_PATH), "not opened for reading"},
        {"a link", open(u"/proc/self/exe"_s, O_PATH | O_NOFOLLOW), "not a regular file"},
        {"a file that can only be written", open(archive, O_WRONLY), "not opened for reading"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        ASSERT_TRUE(each.file.isOpen());
        EXPECT_THAT(tx::installer::problemOfArchive(each.file.get()), testing::HasSubstr(each.reason));
        ASSERT_EQ(send("x", {each.file.get()}), 0);
        expectRefused(each.reason);
    }
    EXPECT_EQ(tx::installer::problemOfArchive(open(archive).get()), "");
    EXPECT_EQ(tx::installer::problemOfArchive(open(archive, O_RDWR).get()), "");
    const Descriptor inMemory(memfd_create("archive", MFD_CLOEXEC));
    EXPECT_EQ(tx::installer::problemOfArchive(inMemory.get()), "");
    EXPECT_THAT(tx::installer::problemOfArchive(-1), testing::HasSubstr("cannot be looked at"));
}

TEST_F(JobMessages, MoreThanOneDescriptorIsRefusedAndAllAreClosed) {
    const Descriptor file = open(archive);
    ASSERT_EQ(send("x", {file.get(), file.get()}), 0);
    expectRefused("one archive was expected, 2 descriptors came");
    ASSERT_EQ(send("x", {file.get(), root.get(), file.get()}), 0);
    expectRefused("one archive was expected, 3 descriptors came");
    ASSERT_EQ(send("x", std::vector<int>(253, file.get())), 0);
    expectRefused("one archive was expected, 253 descriptors came");
    EXPECT_EQ(send("x", std::vector<int>(254, file.get())), EINVAL) << "the kernel does not pass more";
}

TEST_F(JobMessages, MessageThatIsTooLongIsRefused) {
    const Descriptor file = open(archive);
    for (const size_t size : {longestJob + 1, longestJob * 2}) {
        ASSERT_EQ(send(std::string(size, 'x'), {}), 0);
        expectRefused("the job is longer than 65536 bytes");
        ASSERT_EQ(send(std::string(size, 'x'), {file.get()}), 0);
        expectRefused("the job is longer than 65536 bytes");
    }
}

TEST_F(JobMessages, MessageThatDoesNotComeOrHasNoEndIsNotWaitedFor) {
    JobMessage message;
    EXPECT_EQ(receiveJob(root.get(), std::chrono::milliseconds(20), message), "no job came in time");
    // A stream could be endless, and so could a pipe, a file or a device.
    connect(SOCK_STREAM);
    ASSERT_EQ(send("install", {}), 0);
    expectRefused("is not a local socket of packets");
    connect(SOCK_DGRAM);
    ASSERT_EQ(send("install", {}), 0);
    expectRefused("is not a local socket of packets");
    int pipe[2] = {-1, -1};
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    host = Descriptor(pipe[1]);
    root = Descriptor(pipe[0]);
    ASSERT_EQ(write(host.get(), "install", 7), 7);
    expectRefused("is not a local socket of packets");
    root = open(u"/dev/zero"_s);
    expectRefused("is not a local socket of packets");
    root = open(archive);
    expectRefused("is not a local socket of packets");
    root.reset();
    root = Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    expectRefused("is not a local socket of packets");
}

} // namespace
