// SPDX-License-Identifier: MIT
#include "os/mainbundle.h"

#include "base/propertylist.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>

using namespace Qt::StringLiterals;

struct TXBundle::Data {
    QString path;
    QString contents;
    QVariantMap info;
};

TXBundle::TXBundle() = default;

TXBundle::TXBundle(const QString &path) {
    auto data = QSharedPointer<Data>::create();
    data->path = QDir::cleanPath(path);
    data->contents = data->path + u"/Contents"_s;
    if (!QFileInfo::exists(data->contents + u"/Info.plist"_s))
        data->contents = data->path;
    QFile file(data->contents + u"/Info.plist"_s);
    if (file.open(QIODevice::ReadOnly)) {
        if (const tx::Result<QVariant> info = tx::readPropertyList(file.readAll()))
            data->info = info->toMap();
    }
    d = data;
}

QString TXBundle::bundlePath() const { return d ? d->path : QString(); }
QString TXBundle::contentsPath() const { return d ? d->contents : QString(); }
QString TXBundle::resourcesPath() const {
    const QString name = infoString(u"CFBundleExecutable"_s);
    // A bundle with the layout of /usr has its data in share/NAME, as programs in /usr have.
    if (d && d->contents != d->path && !name.isEmpty() && executablePath() == d->contents + u"/bin/"_s + name)
        return d->contents + u"/share/"_s + name;
    return d ? d->contents + u"/Resources"_s : QString();
}
QVariantMap TXBundle::infoDictionary() const { return d ? d->info : QVariantMap(); }

QString TXBundle::executablePath() const {
    const QString name = infoString(u"CFBundleExecutable"_s);
    if (name.isEmpty() || name.contains(u'/'))
        return {};
    for (const QString &folder : {u"/Linux/"_s, u"/MacOS/"_s, u"/bin/"_s, u"/"_s}) {
        const QString path = d->contents + folder + name;
        if (QFileInfo(path).isFile())
            return path;
    }
    return {};
}

QString TXBundle::infoString(const QString &key) const {
    const QVariant value = d ? d->info.value(key) : QVariant();
    return value.isValid() ? value.toString() : QString();
}

QString TXBundle::bundleIdentifier() const { return infoString(u"CFBundleIdentifier"_s); }

namespace {

QMutex mainBundleMutex;

TXBundle &mainBundleSlot() {
    static auto &bundle = *new TXBundle; // a thread may outlast static objects
    return bundle;
}

} // namespace

TXBundle TXBundle::mainBundle() {
    const QMutexLocker locker(&mainBundleMutex);
    TXBundle &slot = mainBundleSlot();
    if (slot.isNull())
        slot = TXBundle(tx::bundlePathForExecutable(tx::executablePathAtStart()));
    return slot;
}

namespace tx {

void setMainBundle(const TXBundle &bundle) {
    const QMutexLocker locker(&mainBundleMutex);
    mainBundleSlot() = bundle;
}

QString bundlePathForExecutable(const QString &executable) {
    const QDir folder = QFileInfo(executable).dir();
    const QString name = folder.dirName();
    if (name == u"MacOS" || name == u"Linux" || name == u"bin") {
        QDir contents = folder;
        if (contents.cdUp() && contents.dirName() == u"Contents" && contents.cdUp())
            return contents.absolutePath();
    }
    for (QDir flat = folder;;) {
        if (flat.exists(u"Info.plist"_s))
            return flat.absolutePath();
        if (flat.absolutePath() != folder.absolutePath() || !flat.cdUp())
            return folder.absolutePath();
    }
}

} // namespace tx
