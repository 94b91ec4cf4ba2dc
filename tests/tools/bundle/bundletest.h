// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

namespace tx::test {

/// Returns the options that a bundle of our own programs needs. A sanitizer stores the paths of source files
/// in them.
inline QStringList sanitizerWords() {
    return QLatin1String(TEST_SANITIZERS).isEmpty() ? QStringList()
                                                    : QStringList{QStringLiteral("--allow-build-paths")};
}

/// Makes bundles of the sample, both in this process and with the command.
class BundleTest : public FrameworkTest {
protected:
    /// The folder in which the sample was built. An absolute RUNPATH finds its library there.
    static QString sampleFolder() { return helpersFolder() + QStringLiteral("/bundle"); }
    static QString sample() { return sampleFolder() + QStringLiteral("/sample"); }
    static QString samplePart() { return sampleFolder() + QStringLiteral("/libsamplepart.so"); }

    /// Runs `txupdate bundle` with dist/ of the test's folder as output.
    [[nodiscard]] ProcessResult bundle(const QString &program, const QStringList &more = {},
                                       const QStringList &environment = {}) const {
        const QStringList words{QStringLiteral("bundle"),       program,
                                QStringLiteral("--identifier"), QStringLiteral("org.example.Sample"),
                                QStringLiteral("--name"),       QStringLiteral("My Sample"),
                                QStringLiteral("--build"),      QStringLiteral("7"),
                                QStringLiteral("-o"),           path(QStringLiteral("dist"))};
        return runProcess(programsFolder() + QStringLiteral("/txupdate"), words + more, {}, environment);
    }
    [[nodiscard]] QString made(const QString &place) const {
        return path(QStringLiteral("dist/MySample.app/Contents/")) + place;
    }
    [[nodiscard]] static QJsonObject json(const ProcessResult &result) {
        return QJsonDocument::fromJson(result.output).object();
    }
};

} // namespace tx::test
