// SPDX-License-Identifier: MIT
#include "cli/commands.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::cli {

int serve(const QString &directory, int port, qint64 rate) {
    // It stands beside this program.
    const QString program = QFileInfo(u"/proc/self/exe"_s).canonicalPath() + u"/txupdate-serve"_s;
    const QByteArray path = QFile::encodeName(program);
    execl(path.constData(), "txupdate-serve", QFile::encodeName(directory).constData(),
          QByteArray::number(port).constData(), QByteArray::number(rate).constData(),
          static_cast<char *>(nullptr));
    complain(u"%1 cannot be run: %2"_s.arg(program, QString::fromLocal8Bit(std::strerror(errno))));
    return ExitFailed;
}

} // namespace tx::cli
