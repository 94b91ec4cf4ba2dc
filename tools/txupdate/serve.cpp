// SPDX-License-Identifier: MIT
#include "txupdate/commands.h"
#include "txupdate/helpers.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace tx::cli {

int serve(const QString &directory, int port, qint64 rate, const QStringList &hosts) {
    const QString program = helperProgram(u"txupdate-serve"_s);
    const QByteArray path = QFile::encodeName(program);
    QList<QByteArray> arguments{"txupdate-serve", QFile::encodeName(directory), QByteArray::number(port),
                                QByteArray::number(rate)};
    for (const QString &host : hosts)
        arguments << host.toLocal8Bit();
    std::vector<char *> words;
    for (QByteArray &argument : arguments)
        words.push_back(argument.data());
    words.push_back(nullptr);
    execv(path.constData(), words.data());
    complain(u"%1 cannot be run: %2"_s.arg(program, QString::fromLocal8Bit(std::strerror(errno))));
    return ExitFailed;
}

} // namespace tx::cli
