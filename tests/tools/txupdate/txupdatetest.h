// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace tx::test {

using namespace Qt::StringLiterals;

/// Runs the command-line program.
class TxUpdate : public FrameworkTest {
protected:
    static ProcessResult run(const QStringList &words, const QByteArray &input = {},
                             const QStringList &environment = {}) {
        return runProcess(tx::test::programsFolder() + u"/txupdate"_s, words, input,
                          QStringList{u"TXUPDATE_LOG_LEVEL=1"_s} + environment);
    }
    /// Runs while this process serves.
    static ProcessResult runWhileServing(const QStringList &words,
                                         const QString &program = tx::test::programsFolder() +
                                                                  u"/txupdate"_s) {
        QProcess process;
        process.start(program, words);
        EXPECT_TRUE(process.waitForFinished(60000));
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }
    QString file(const QByteArray &content, const QString &name = u"feed.json"_s) {
        writeFile(path(name), content);
        return path(name);
    }
    QStringList show(const QString &source) const {
        return {u"feed"_s, u"show"_s,     source,      u"--build"_s,
                u"1042"_s, u"--system"_s, u"12.0.0"_s, u"--json"_s};
    }
    static QJsonObject json(const ProcessResult &result) {
        return QJsonDocument::fromJson(result.output).object();
    }
};

} // namespace tx::test
