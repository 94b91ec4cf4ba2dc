// SPDX-License-Identifier: MIT
#include "txupdate/passphrase.h"

#include "txupdate/faults.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <termios.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

using trust::Secret;

constexpr const char *variable = "TXUPDATE_PASSPHRASE";
constexpr size_t longest = 1024;
constexpr char interrupt = '\3'; // Ctrl-C

Fault fault(const std::string &what) { return {FaultKind::Passphrase, what}; }

/// One line, byte by byte: the next one is for another key.
Outcome<Secret> readLine(int file) {
    Secret line(longest);
    size_t size = 0;
    for (;;) {
        char c = 0;
        const ssize_t count = read(file, &c, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return Fault{FaultKind::File,
                         std::string("the passphrase cannot be read: ") + std::strerror(errno)};
        if (count == 0 || c == '\n')
            break;
        if (c == interrupt)
            return fault("interrupted");
        if (size == longest)
            return fault("the passphrase is longer than 1024 bytes");
        line.data()[size++] = static_cast<unsigned char>(c);
    }
    if (size == 0)
        return fault("the passphrase is empty");
    line.shrink(size);
    return line;
}

/// The terminal without echo. Ctrl-C comes as a character, as a process that ends here would leave it mute.
class MuteTerminal {
public:
    explicit MuteTerminal(int file)
        : m_file(file) {
        if (tcgetattr(file, &m_before) != 0)
            return;
        termios mute = m_before;
        mute.c_lflag &= ~tcflag_t(ECHO | ECHONL | ISIG);
        m_isMute = tcsetattr(file, TCSAFLUSH, &mute) == 0;
    }
    ~MuteTerminal() {
        if (m_isMute)
            tcsetattr(m_file, TCSAFLUSH, &m_before);
    }
    Q_DISABLE_COPY_MOVE(MuteTerminal)
    [[nodiscard]] bool isMute() const { return m_isMute; }

private:
    int m_file;
    termios m_before{};
    bool m_isMute = false;
};

Outcome<Secret> ask(int terminal, const QString &question) {
    const QByteArray prompt = question.toUtf8();
    const MuteTerminal mute(terminal);
    if (!mute.isMute())
        return fault("the terminal's echo cannot be turned off");
    if (write(terminal, prompt.constData(), static_cast<size_t>(prompt.size())) < 0)
        return fault("the terminal cannot be written to");
    Outcome<Secret> answer = readLine(terminal);
    (void)!write(terminal, "\n", 1);
    return answer;
}

Outcome<Secret> askAtTerminal(const QString &what, bool isNew) {
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (terminal < 0)
        return fault("the key needs a passphrase, but there is no terminal to type it in. Pass it with "
                     "--passphrase-fd or in TXUPDATE_PASSPHRASE");
    Outcome<Secret> first = ask(terminal, u"Passphrase for %1: "_s.arg(what));
    if (first && isNew) {
        const Outcome<Secret> again = ask(terminal, u"The same again: "_s);
        if (!again)
            first = again.fault();
        else if (again->view() != first->view())
            first = fault("the two passphrases differ");
    }
    close(terminal);
    return first;
}

/// The environment's, which is then overwritten: programs that this one starts need not have it.
std::optional<Secret> takeFromEnvironment() {
    static std::optional<Secret> taken; // for the next key
    if (char *value = std::getenv(variable)) {
        const size_t size = std::strlen(value);
        taken = Secret::of({value, size});
        std::fill_n(static_cast<volatile char *>(value), size, 'x');
        unsetenv(variable);
    }
    if (!taken)
        return std::nullopt;
    return Secret::of(taken->view());
}

} // namespace

Outcome<Secret> readPassphrase(const PassphraseOptions &options, const QString &what, bool isNew) {
    if (options.descriptor >= 0)
        return readLine(options.descriptor);
    if (std::optional<Secret> passphrase = takeFromEnvironment()) {
        if (passphrase->size() == 0)
            return fault("TXUPDATE_PASSPHRASE is empty");
        return *std::move(passphrase);
    }
    return askAtTerminal(what, isNew);
}

} // namespace tx::cli
