// SPDX-License-Identifier: MIT
#include "os/userdefaults.h"

#include "base/propertylist.h"
#include "base/shared.h"
#include "os/directories.h"
#include "os/filesystem.h"
#include "os/mainbundle.h"
#include "os/services.h"

#include <TarvixUpdate/TXLog.h>

#include <QFile>
#include <QFileInfo>

#include <map>
#include <memory>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace tx {

UserDefaults::UserDefaults(const QString &path)
    : m_path(path) {}

TX_SHARED UserDefaults &UserDefaults::standard() {
    // Never destroyed: a host's static objects may use settings in their destructors.
    static auto &mutex = *new QMutex;
    static auto &opened = *new std::map<QString, std::unique_ptr<UserDefaults>>;
    QString name = TXBundle::mainBundle().bundleIdentifier();
    if (name.isEmpty())
        name = QFileInfo(executablePathAtStart()).fileName();
    // An identifier is a file name here, not a path.
    name.replace(u'/', u'-');
    const QString path = configurationDirectory() + u'/' + name + u".plist"_s;
    const QMutexLocker locker(&mutex);
    std::unique_ptr<UserDefaults> &slot = opened[path];
    if (!slot)
        slot = std::make_unique<UserDefaults>(path);
    return *slot;
}

UserDefaults::Stamp UserDefaults::stampOf(const QString &path) {
    struct stat info {};
    if (stat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return {info.st_size, info.st_mtim.tv_sec * 1000000000LL + info.st_mtim.tv_nsec, info.st_ino};
}

void UserDefaults::refresh() const {
    const Stamp stamp = stampOf(m_path);
    if (stamp == m_stamp)
        return;
    m_stamp = stamp;
    m_values.clear();
    m_readable = true;
    if (stamp.size < 0)
        return;
    const TXError foreign = services().fileSystem->checkOwnFile(m_path);
    const Result<QByteArray> content =
        foreign ? Result<QByteArray>(foreign) : services().fileSystem->readFile(m_path);
    const Result<QVariant> parsed = content ? readPropertyList(*content) : Result<QVariant>(content.error());
    if (parsed && parsed->typeId() == QMetaType::QVariantMap) {
        m_values = parsed->toMap();
        return;
    }
    m_readable = false;
    TXLog(TXLogLevelFailure, u"TXUpdate: the settings in %@ cannot be read and count as empty. %@"_s,
          {m_path, parsed ? u"It holds no dictionary."_s : parsed.error().toString()});
}

TX_SHARED QVariant UserDefaults::value(const QString &key) const {
    const QMutexLocker locker(&m_mutex);
    refresh();
    return m_values.value(key);
}

bool UserDefaults::boolValue(const QString &key) const {
    const QVariant stored = value(key);
    if (stored.typeId() == QMetaType::QString) {
        const QString text = stored.toString().toLower();
        return text == u"yes" || text == u"true" || text == u"1";
    }
    return stored.toBool();
}

double UserDefaults::doubleValue(const QString &key) const { return value(key).toDouble(); }

QString UserDefaults::stringValue(const QString &key) const {
    const QVariant stored = value(key);
    return stored.typeId() == QMetaType::QString ? stored.toString() : QString();
}

QDateTime UserDefaults::dateValue(const QString &key) const {
    const QVariant stored = value(key);
    return stored.typeId() == QMetaType::QDateTime ? stored.toDateTime() : QDateTime();
}

QVariantMap UserDefaults::mapValue(const QString &key) const {
    const QVariant stored = value(key);
    return stored.typeId() == QMetaType::QVariantMap ? stored.toMap() : QVariantMap();
}

TXError UserDefaults::store(const QString &key, const Change &change) {
    FileSystem &files = *services().fileSystem;
    const QFileInfo location(m_path);
    if (TXError error = files.createDirectory(location.path(), true))
        return error;
    // If others can replace this file, it would be ignored afterwards.
    if (TXError error = files.checkOwnFile(location.path()))
        return error;
    const Result<std::unique_ptr<FileLock>> lock =
        files.lock(location.path() + u"/."_s + location.fileName() + u".lock"_s);
    if (!lock)
        return lock.error();
    refresh();
    if (!m_readable) {
        QString aside;
        for (int n = 1; aside.isEmpty() || files.exists(aside); ++n)
            aside = u"%1.broken-%2"_s.arg(m_path).arg(n);
        if (TXError error = files.move(m_path, aside))
            return error;
        TXLog(TXLogLevelFailure, u"TXUpdate: the unreadable settings file was set aside as %@"_s, {aside});
        m_readable = true;
    }
    const std::optional<QVariant> value = change(m_values.value(key));
    if (!value)
        return {};
    QVariantMap changed = m_values;
    if (value->isValid())
        changed.insert(key, *value);
    else if (changed.remove(key) == 0)
        return {};
    // A link in place of the file is kept: people keep their settings in version control that way.
    const QString target = location.isSymLink() ? location.canonicalFilePath() : m_path;
    if (TXError error =
            files.replaceFile(target.isEmpty() ? m_path : target, writePropertyList(changed), 0600))
        return error;
    m_stamp = {};
    refresh();
    return {};
}

TXError UserDefaults::storeOrLog(const QString &key, const Change &change) {
    TXError error = store(key, change);
    if (error)
        TXLog(TXLogLevelFailure, u"TXUpdate: the setting %@ could not be stored. %@"_s,
              {key, error.toString()});
    return error;
}

TXError UserDefaults::setValue(const QString &key, const QVariant &value) {
    return changeValue(key, [&value](const QVariant &) { return value; });
}

TXError UserDefaults::changeValue(const QString &key, const Change &change) {
    const QMutexLocker locker(&m_mutex);
    return storeOrLog(key, change);
}

QString UserDefaults::textOrSet(const QString &key, const QString &value) {
    const QMutexLocker locker(&m_mutex);
    refresh();
    const auto isText = [](const QVariant &stored) { return stored.typeId() == QMetaType::QString; };
    if (!isText(m_values.value(key))) {
        const TXError error = storeOrLog(key, [&](const QVariant &stored) {
            return isText(stored) ? std::nullopt : std::optional<QVariant>(value);
        });
        if (error)
            m_values.insert(key, value);
    }
    return m_values.value(key).toString();
}

} // namespace tx
