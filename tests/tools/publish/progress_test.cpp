// SPDX-License-Identifier: MIT
// The progress bar, on a terminal whose other end the test reads.
#include "publish/progress.h"

#include "os/services.h"
#include "tests/support/environment.h"

#include <QByteArray>

#include <gtest/gtest.h>

#include <chrono>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using tx::publishing::Progress;

namespace {

class ProgressBar : public tx::test::FrameworkTest {
protected:
    ProgressBar() {
        EXPECT_EQ(openpty(&m_reader, &m_terminal, nullptr, nullptr, nullptr), 0);
        tx::services().transferClock = [this] { return time; };
    }
    ~ProgressBar() override {
        close(m_reader);
        close(m_terminal);
    }
    int terminal() const { return m_terminal; }
    /// What was shown since the last call.
    std::string shown() const {
        std::string text;
        for (;;) {
            pollfd descriptor{m_reader, POLLIN, 0};
            char buffer[256];
            if (poll(&descriptor, 1, 0) <= 0)
                return text;
            const ssize_t count = read(m_reader, buffer, sizeof buffer);
            if (count <= 0)
                return text;
            text.append(buffer, static_cast<size_t>(count));
        }
    }
    std::chrono::milliseconds time{7000};

private:
    int m_reader = -1;
    int m_terminal = -1;
};

constexpr qint64 mebibyte = 1024 * 1024;

TEST_F(ProgressBar, AppearsAfterASecondAndIsClearedAtTheEnd) {
    Progress progress(terminal());
    progress.begin(u"Packing"_s, 4 * mebibyte);
    time += 999ms;
    progress.show(mebibyte);
    EXPECT_EQ(shown(), "");
    time += 1ms;
    progress.show(mebibyte);
    EXPECT_EQ(shown(), "\r\033[KPacking [######                  ] 1.0 MiB of 4.0 MiB");
    progress.end();
    EXPECT_EQ(shown(), "\r\033[K");
    progress.end();
    EXPECT_EQ(shown(), "");
}

TEST_F(ProgressBar, ShortStepShowsNothingNotEvenAnEmptyLine) {
    {
        Progress progress(terminal());
        progress.begin(u"Packing"_s, mebibyte);
        time += 500ms;
        progress.show(mebibyte);
    }
    EXPECT_EQ(shown(), "");
}

TEST_F(ProgressBar, IsDrawnAtMostTenTimesASecond) {
    Progress progress(terminal());
    progress.begin(u"Packing"_s, 100);
    time += 2s;
    progress.show(10);
    EXPECT_NE(shown(), "");
    time += 99ms;
    progress.add(10);
    EXPECT_EQ(shown(), "");
    time += 1ms;
    progress.add(30);
    EXPECT_EQ(shown(), "\r\033[KPacking [############            ] 50 bytes of 100 bytes");
}

TEST_F(ProgressBar, EachStepHasItsOwnSecond) {
    Progress progress(terminal());
    progress.begin(u"Packing"_s, 100);
    time += 2s;
    progress.show(100);
    EXPECT_NE(shown(), "");
    progress.begin(u"Uploading"_s, 100);
    EXPECT_EQ(shown(), "\r\033[K") << "the line of the step before is cleared";
    time += 999ms;
    progress.show(50);
    EXPECT_EQ(shown(), "");
    time += 1ms;
    progress.show(25);
    EXPECT_EQ(shown(), "\r\033[KUploading [######                  ] 25 bytes of 100 bytes");
}

TEST_F(ProgressBar, UnknownTotalShowsTheAmountAndALaterOneTheBar) {
    Progress progress(terminal());
    progress.begin(u"Reading a.log"_s, 0);
    time += 1s;
    progress.show(3 * mebibyte / 2);
    EXPECT_EQ(shown(), "\r\033[KReading a.log 1.5 MiB");
    time += 1s;
    progress.show(2 * mebibyte, 3 * mebibyte);
    EXPECT_EQ(shown(), "\r\033[KReading a.log [################        ] 2.0 MiB of 3.0 MiB");
    // A file may grow while it is read.
    time += 1s;
    progress.show(4 * mebibyte);
    EXPECT_EQ(shown(), "\r\033[KReading a.log [########################] 4.0 MiB of 3.0 MiB");
}

TEST_F(ProgressBar, ShowsNothingInAPipeOrFile) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    {
        Progress progress(ends[1]);
        progress.begin(u"Packing"_s, 100);
        time += 2s;
        progress.show(50);
        progress.end();
    }
    close(ends[1]);
    char buffer[16];
    EXPECT_EQ(read(ends[0], buffer, sizeof buffer), 0);
    close(ends[0]);
}

} // namespace
