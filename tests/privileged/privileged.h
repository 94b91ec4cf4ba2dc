// SPDX-License-Identifier: MIT
#pragma once

#include "tests/privileged/ownroot.h"
#include "tests/support/builders.h"

#include <TarvixUpdate/TXBundle.h>

#include <QDirIterator>

#include <sys/stat.h>
#include <unistd.h>

namespace tx::test {

using namespace Qt::StringLiterals;

inline QByteArray wordsOf(const QStringList &words) {
    QByteArray result;
    for (const QString &word : words)
        result += QFile::encodeName(word) + '\0';
    return result;
}

/// An application that only root can change, and an update of it.
class Privileged : public OwnRootTest {
protected:
    const QString fresh = path(u"home/.cache/New.app"_s);
    const QString archive = path(u"home/.cache/New - 2.zip"_s);

    /// `program`: what the new application runs.
    void makeUpdate(const QByteArray &program = "#!/bin/sh\nexit 0\n") {
        makeBundle(fresh, {.identifier = hostIdentifier, .build = u"2"_s, .program = program});
        writeFile(archive, "archive");
    }
    /// Gives all of a tree to a user. False where root is nobody else: in a user namespace.
    static bool give(const QString &tree, uid_t owner) {
        if (lchown(QFile::encodeName(tree).constData(), owner, owner) != 0)
            return false;
        QDirIterator it(tree, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        bool isGiven = true;
        while (it.hasNext())
            isGiven = lchown(QFile::encodeName(it.next()).constData(), owner, owner) == 0 && isGiven;
        return isGiven;
    }
    QStringList installJob(qint64 process) const {
        return {u"install"_s, QString::number(process), fresh, archive};
    }
    static QString buildOf(const QString &bundle) {
        return TXBundle(bundle).infoString(u"CFBundleVersion"_s);
    }
    static void setMode(const QString &file, mode_t mode) {
        ASSERT_EQ(chmod(QFile::encodeName(file).constData(), mode), 0) << file.toStdString();
    }
};

} // namespace tx::test
