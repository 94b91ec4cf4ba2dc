// SPDX-License-Identifier: MIT
// Runs a fuzz target over the files of a folder: the corpus as a test.
#include "tests/fuzz/target.h"

#include <QDir>
#include <QFile>

#include <cstdio>

int main(int argc, char **argv) {
    int count = 0;
    const QDir folder(QFile::decodeName(argc > 1 ? argv[1] : "."));
    for (const QString &name : folder.entryList(QDir::Files)) {
        QFile file(folder.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            return 1;
        fuzz(file.readAll());
        ++count;
    }
    std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1; // an empty corpus shows nothing
}
