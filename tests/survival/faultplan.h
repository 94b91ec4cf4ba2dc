// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::test {

/// What goes wrong in a process of the survival tests, and where. The file holds two lines, how and the name
/// of a point: "fail" returns an error there, "kill" ends the process, "hang" stops it; with "-once" the
/// first process that comes there, with "-always" each. The points that are passed are written beside it.
class FaultPlan {
public:
    explicit FaultPlan(std::string path)
        : m_path(std::move(path)) {
        std::ifstream file(m_path);
        std::getline(file, m_how);
        std::getline(file, m_point);
    }

    /// The errno with which the operation at this point fails, or 0. Thread: one at a time.
    int at(const std::string &name) {
        const std::string point = name + " #" + std::to_string(++m_passed[name]);
        const std::string line = point + '\n';
        const int trace = open((m_path + ".trace").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        (void)!write(trace, line.data(), line.size());
        close(trace);
        if (point != m_point)
            return 0;
        const size_t dash = m_how.find('-');
        if (m_how.substr(dash) == "-once" && mkdir((m_path + ".taken").c_str(), 0700) != 0)
            return 0;
        const std::string what = m_how.substr(0, dash);
        if (what == "kill")
            raise(SIGKILL);
        while (what == "hang")
            pause();
        return EIO;
    }

private:
    std::string m_path;
    std::string m_how;
    std::string m_point;
    std::map<std::string, int> m_passed;
};

} // namespace tx::test
