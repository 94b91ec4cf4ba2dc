// SPDX-License-Identifier: MIT
// swap_bench HOST NEW: the installer's work from the staging rename to the finished exchange, and renameat2
// alone, for an application that is on disk already; ten times each, forth and back, while another thread
// watches the path.
#include "installer/installer.h"

#include "posix/openbundle.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Notes when staging began and when the exchange was done.
class TimedFiles final : public tx::installer::Files {
public:
    tx::posix::FileError rename(const std::string &from, const std::string &to) override {
        begin = Clock::now();
        return Files::rename(from, to);
    }
    tx::posix::FileError syncFileSystem(const std::string &path) override {
        const auto before = Clock::now();
        const auto result = Files::syncFileSystem(path);
        synced = Clock::now() - before;
        return result;
    }
    tx::posix::FileError exchange(const std::string &a, const std::string &b) override {
        const auto before = Clock::now();
        const auto result = Files::exchange(a, b);
        exchanged = Clock::now() - before;
        end = Clock::now();
        return result;
    }
    tx::posix::FileError removeTree(const std::string &path) override {
        // Keeps the old application for the next round.
        if (path.find(".txupdate-new") != std::string::npos)
            return Files::rename(path, keep);
        return {};
    }
    std::string keep;
    Clock::time_point begin, end;
    Clock::duration synced{}, exchanged{};
};

} // namespace

int main(int argc, char **argv) {
    if (argc != 3)
        return 64;
    const std::string host = argv[1];
    const std::string fresh = argv[2];
    TimedFiles files;
    files.keep = fresh;
    tx::installer::Context context{.files = &files};
    context.open = [](const std::string &, const tx::installer::Session &) { return std::string(); };
    context.log = [](const std::string &line) { std::fprintf(stderr, "%s\n", line.c_str()); };
    std::atomic<bool> stop{false};
    std::atomic<long> missing{0};
    std::atomic<long> looks{0};
    std::thread watcher([&] {
        struct stat info {};
        const std::string plist = host + "/Contents/Info.plist";
        while (!stop) {
            missing += stat(plist.c_str(), &info) != 0;
            ++looks;
        }
    });
    std::vector<double> swaps, syncs, exchanges, alone;
    sync();
    for (int i = 0; i < 10; ++i) {
        if (tx::installer::install({0x7FFFFFFE, fresh, host, "/nonexistent/archive"}, context) != 0)
            return 1;
        swaps.push_back(milliseconds(files.end - files.begin));
        syncs.push_back(milliseconds(files.synced));
        exchanges.push_back(milliseconds(files.exchanged));
        const auto before = Clock::now();
        if (tx::posix::exchange(host, fresh))
            return 1;
        alone.push_back(milliseconds(Clock::now() - before));
    }
    stop = true;
    watcher.join();
    std::printf("swap_bench: stage to swapped %.3f ms (of which sync %.3f ms, exchange %.3f ms), renameat2 "
                "alone %.3f ms; "
                "path missing in %ld of %ld looks\n",
                median(swaps), median(syncs), median(exchanges), median(alone), missing.load(), looks.load());
    return missing == 0 ? 0 : 1;
}
