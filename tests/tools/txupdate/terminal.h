// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/places.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tx::test {

/// txupdate at a terminal of its own. A test inherits from it in addition to its fixture.
class Terminal {
protected:
    Terminal() = default;
    ~Terminal() {
        if (m_terminal >= 0)
            close(m_terminal);
        if (m_process > 0)
            waitpid(m_process, nullptr, 0);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    /// Starts txupdate. `input` is a descriptor that becomes its standard input; -1: the terminal.
    void start(const QStringList &words, int input = -1) {
        QList<QByteArray> all{(programsFolder() + QStringLiteral("/txupdate")).toUtf8()};
        for (const QString &word : words)
            all << word.toUtf8();
        std::vector<char *> arguments;
        for (QByteArray &word : all)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        m_process = forkpty(&m_terminal, nullptr, nullptr, nullptr);
        ASSERT_GE(m_process, 0);
        if (m_process == 0) {
            unsetenv("TXUPDATE_PASSPHRASE");
            if (input >= 0)
                dup2(input, STDIN_FILENO);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
    }
    /// Reads what is shown until it contains `text`. Returns false at the end, or if nothing is shown for
    /// `milliseconds`.
    bool waitFor(const QByteArray &text, int milliseconds = 30000) {
        while (!shown.contains(text)) {
            pollfd descriptor{m_terminal, POLLIN, 0};
            char buffer[256];
            if (poll(&descriptor, 1, milliseconds) <= 0)
                return false;
            const ssize_t count = read(m_terminal, buffer, sizeof buffer);
            if (count <= 0)
                return false;
            shown.append(buffer, count);
        }
        return true;
    }
    void type(const QByteArray &text) {
        ASSERT_EQ(write(m_terminal, text.constData(), size_t(text.size())), text.size());
    }
    int status() {
        (void)waitFor("\xFF never shown");
        int result = 0;
        EXPECT_EQ(waitpid(m_process, &result, 0), m_process);
        m_process = -1;
        return WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
    }
    QByteArray shown;

private:
    int m_terminal = -1;
    pid_t m_process = -1;
};

} // namespace tx::test
