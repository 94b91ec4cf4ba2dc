// SPDX-License-Identifier: MIT
#pragma once

#include "install/unarchiver.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"

#include <QCoreApplication>
#include <QDir>
#include <QThread>

#include <unistd.h>

namespace tx::test {

using namespace Qt::StringLiterals;

/// Unpacks archives of the host's new build in a folder whose name needs quotes in a shell.
class Unarchiver : public FrameworkTest {
protected:
    const QString folder = path(u"a \"b's\" $folder"_s).remove(u'"');
    QString application;
    TXError error;
    int completions = 0;
    int progress = 0;
    int progressElsewhere = 0; ///< off the main thread
    bool onMain = false;
    tx::WantedApplication wanted = TXUpdateUnarchiver::forHost({});
    RecordingWorkspace workspace;

    Unarchiver() { QDir().mkpath(folder); }

    QString archive(ArchiveKind kind, const QList<ArchiveEntry> &entries, const QString &name = u"App"_s) {
        const QString file = folder + u'/' + name + QString::fromLatin1(suffixOf(kind));
        makeArchive(file, kind, entries);
        return file;
    }
    /// An archive of a new build of the host.
    QList<ArchiveEntry> newBuild(const QString &identifier = u"org.example.Host"_s) {
        const QString bundle = path(u"staging/New.app"_s);
        makeBundle(bundle, {.identifier = identifier, .build = u"2000"_s});
        writeFile(bundle + u"/Contents/Resources/data"_s, QByteArray(100000, 'd'));
        EXPECT_EQ(symlink("data", (bundle + u"/Contents/Resources/link"_s).toUtf8().constData()), 0);
        const auto entries = entriesOf(bundle);
        return entries;
    }
    void unarchive(const QString &file) {
        TXUpdateUnarchiver::unarchive(
            file,
            [this] {
                ++progress;
                progressElsewhere += QThread::currentThread() != QCoreApplication::instance()->thread();
            },
            [this](const QString &a, const TXError &e) {
                application = a;
                error = e;
                ++completions;
                onMain = QThread::currentThread() == QCoreApplication::instance()->thread();
            },
            wanted);
        ASSERT_TRUE(waitUntil([this] { return completions > 0; }, 200000));
        drainEvents();
        EXPECT_EQ(completions, 1);
    }
    /// Nothing was found that could be installed, and the reason says these things about it.
    void expectMissing(const QStringList &parts) {
        const QString reason = error.localizedFailureReason();
        EXPECT_TRUE(reason.startsWith(u"Could not find the unarchived application. "_s))
            << reason.toStdString();
        for (const QString &part : parts)
            EXPECT_TRUE(reason.contains(part)) << reason.toStdString() << "\nlacks: " << part.toStdString();
        expectFailure(reason);
    }
    void expectFailure(const QString &reason) {
        EXPECT_TRUE(application.isNull());
        EXPECT_EQ(
            error,
            TXError(u"TXUpdater"_s, 0, u"The update could not be unarchived."_s, reason,
                    u"You can always download the latest version from the website, but try quitting and "
                    "relaunching the application first."_s));
        EXPECT_THAT(logLines(), testing::Contains(u"TXUpdate: Unarchiving failed... "_s + reason));
    }
};

class UnarchiverKind : public Unarchiver, public testing::WithParamInterface<ArchiveKind> {};

} // namespace tx::test
