// SPDX-License-Identifier: MIT
#include "bundle/bundleinfolist.h"

#include "base/propertylist.h"
#include "bundle/problem.h"
#include "posix/plainpropertylist.h"
#include "trust/appinfo.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

Result<QByteArray> contentOf(const QString &path) {
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return problem(u"%1 cannot be read"_s.arg(path),
                       QFileInfo(path).isFile() ? file.errorString() : u"it is not a file"_s);
    return file.readAll();
}

/// Reads the keys in NAME.pub and, if it exists, NAME-spare.pub. A key that two names lead to comes once.
Result<QVariantList> publicKeysOf(const QStringList &names) {
    QVariantList keys;
    for (const QString &name : names) {
        const QString spare = name + u"-spare.pub"_s;
        for (const QString &file : {name + u".pub"_s, spare}) {
            if (file == spare && !QFileInfo::exists(file))
                continue;
            const Result<QByteArray> content = contentOf(file);
            if (!content)
                return content.error();
            const QByteArrayList lines = content->split('\n');
            if (lines.size() < 2 || !lines.constFirst().startsWith("untrusted comment:"))
                return problem(u"%1 is not a public key"_s.arg(file),
                               u"a comment and a line with the key were expected"_s,
                               u"Make keys with txupdate keygen."_s);
            const QString key = u"minisign:"_s + QString::fromLatin1(lines[1].trimmed());
            if (!keys.contains(key))
                keys << key;
        }
    }
    return keys;
}

/// Checks the list as applications do. Returns a null error if they can use it.
TXError checkedByApplications(const QVariantMap &info) {
    const std::optional<plain::Value> plain = plain::readPropertyList(writePropertyList(info).toStdString());
    if (!plain)
        return problem(u"Info.plist cannot be read by the framework's tools"_s);
    const trust::Outcome<trust::AppInfo> app = trust::AppInfo::read(*plain);
    return app ? TXError() : problem(QString::fromStdString(app.fault().what));
}

} // namespace

Result<QVariantMap> infoListOf(const Wishes &wishes, const QDateTime &now) {
    static const QRegularExpression identifier(u"^[A-Za-z0-9-]+(\\.[A-Za-z0-9-]+)+$"_s);
    static const QRegularExpression build(u"^\\S+$"_s);
    if (!identifier.match(wishes.identifier).hasMatch())
        return problem(u"\"%1\" is not an identifier"_s.arg(wishes.identifier),
                       u"letters, digits and hyphens were expected, in parts divided by dots"_s,
                       u"Name one like org.example.MyApp, and keep it for ever."_s);
    if (!build.match(wishes.build).hasMatch())
        return problem(u"\"%1\" is not a build"_s.arg(wishes.build), {}, u"Name one like 1042."_s);
    QVariantMap info;
    if (!wishes.info.isEmpty()) {
        const Result<QByteArray> content = contentOf(wishes.info);
        if (!content)
            return content.error();
        const Result<QVariant> more = readPropertyList(*content);
        if (!more || more->typeId() != QMetaType::QVariantMap)
            return problem(u"%1 is not a property list with a dictionary"_s.arg(wishes.info),
                           more ? QString() : more.error().localizedDescription());
        info = more->toMap();
    }
    QVariantMap own{
        {u"CFBundleIdentifier"_s, wishes.identifier},
        {u"CFBundleName"_s, wishes.name},
        {u"CFBundleExecutable"_s, QFileInfo(QFileInfo(wishes.executable).canonicalFilePath()).fileName()},
        {u"CFBundleVersion"_s, wishes.build},
        {u"CFBundleShortVersionString"_s, wishes.version.isEmpty() ? wishes.build : wishes.version},
        {u"TXUpdateBuildDate"_s, now.toUTC().toString(u"yyyy-MM-dd'T'HH:mm:ss'Z'"_s)}};
    if (!wishes.icon.isEmpty())
        own[u"CFBundleIconFile"_s] = QFileInfo(wishes.icon).fileName();
    if (!wishes.keys.isEmpty()) {
        const Result<QVariantList> keys = publicKeysOf(wishes.keys);
        if (!keys)
            return keys.error();
        own[u"TXUpdatePublicKeys"_s] = *keys;
    }
    for (auto key = own.cbegin(); key != own.cend(); ++key) {
        if (info.contains(key.key()) && info.value(key.key()) != key.value())
            return problem(u"%1 sets %2 to another value than the command line"_s.arg(wishes.info, key.key()),
                           {}, u"Take it out of the file."_s);
        info[key.key()] = key.value();
    }
    if (TXError error = checkedByApplications(info))
        return error;
    return info;
}

} // namespace tx::bundling
