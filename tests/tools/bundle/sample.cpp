// SPDX-License-Identifier: MIT
// A sample application for bundles. Prints where it found the files that it uses.
#include "tests/tools/bundle/samplepart.h"

#include <QApplication>
#include <QFile>
#include <QImageReader>
#include <QLabel>
#include <QLibraryInfo>
#include <QSet>

#include <cstdio>

int main(int argc, char **argv) {
    const QApplication application(argc, argv);
    QLabel label(samplePart());
    label.show();
    std::printf("platform %s\n", qPrintable(QGuiApplication::platformName()));
    std::printf("svg %d\n", int(QImageReader::supportedImageFormats().contains("svg")));
    std::printf("translations %s\n", qPrintable(QLibraryInfo::path(QLibraryInfo::TranslationsPath)));
    QFile maps(QStringLiteral("/proc/self/maps"));
    QSet<QByteArray> seen;
    if (!maps.open(QIODevice::ReadOnly))
        return 1;
    for (const QByteArray &line : maps.readAll().split('\n')) {
        const qsizetype slash = line.indexOf('/');
        const QByteArray path = slash < 0 ? QByteArray() : line.mid(slash);
        if (path.contains(".so") && !seen.contains(path))
            std::printf("library %s\n", path.constData());
        seen.insert(path);
    }
#ifdef SAMPLE_BUILD_FOLDER
    std::printf("built in %s\n", SAMPLE_BUILD_FOLDER "/sample.cpp");
#endif
    return 0;
}
