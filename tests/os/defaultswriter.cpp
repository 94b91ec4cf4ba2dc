// SPDX-License-Identifier: MIT
// defaults_writer FILE PREFIX COUNT: stores COUNT keys, one write each.
#include "os/userdefaults.h"

#include <cstdlib>

int main(int argc, char **argv) {
    if (argc != 4)
        return 64;
    tx::UserDefaults defaults(QString::fromLocal8Bit(argv[1]));
    const QString prefix = QString::fromLocal8Bit(argv[2]);
    for (int i = 0; i < std::atoi(argv[3]); ++i) {
        if (defaults.setValue(prefix + QString::number(i), i))
            return 1;
    }
    return 0;
}
