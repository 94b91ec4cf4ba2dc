// SPDX-License-Identifier: MIT
#include "notes.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

Notes::Notes() {
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    QDir().mkpath(folder);
    m_path = folder + QStringLiteral("/tarvix-notes.txt");
}

bool Notes::add(const QString &text, QString *reason) const {
    QFile file(m_path);
    const bool added = file.open(QIODevice::Append) && file.write(text.toUtf8() + '\n') > 0;
    if (!added)
        *reason = file.errorString();
    return added;
}

QString Notes::text() const {
    QFile file(m_path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

bool Notes::replace(const QString &text) const {
    QSaveFile file(m_path);
    return file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0 && file.commit();
}
