// SPDX-License-Identifier: MIT
#include "bundle/layout.h"

#include <QDir>

using namespace Qt::StringLiterals;

namespace tx::bundling {

std::optional<Layout> layoutNamed(const QString &name) {
    if (name == u"app")
        return Layout::App;
    if (name == u"prefix")
        return Layout::Prefix;
    return std::nullopt;
}

Places placesOf(Layout layout, const QString &executable, const QString &name) {
    Places places;
    const QString contents = u"Contents"_s;
    places.info = contents + u"/Info.plist"_s;
    if (layout == Layout::App) {
        places.bundle = QString(name).remove(u' ') + u".app"_s;
        places.programs = contents + u"/Linux"_s;
        places.libraries = contents + u"/Frameworks"_s;
        places.plugins = contents + u"/PlugIns"_s;
        places.resources = contents + u"/Resources"_s;
        places.qml = places.resources + u"/qml"_s;
        places.translations = places.resources + u"/translations"_s;
        places.licences = places.resources + u"/licences"_s;
        places.icons = places.resources;
        places.desktopFile = places.resources;
        return places;
    }
    places.bundle = executable;
    places.programs = contents + u"/bin"_s;
    places.libraries = contents + u"/lib"_s;
    places.plugins = places.libraries + u"/plugins"_s;
    places.qml = places.libraries + u"/qml"_s;
    const QString share = contents + u"/share"_s;
    places.resources = share + u'/' + executable;
    places.translations = places.resources + u"/translations"_s;
    places.licences = share + u"/licenses/"_s + executable;
    places.icons = share + u"/icons/hicolor/scalable/apps"_s;
    places.desktopFile = share + u"/applications"_s;
    for (const QString &entry : {u"bin"_s, u"lib"_s, u"share"_s, u"Info.plist"_s})
        places.links.append({entry, contents + u'/' + entry});
    return places;
}

QString wayBetween(const QString &from, const QString &to) {
    return QDir::cleanPath(QDir(u'/' + from).relativeFilePath(u'/' + to));
}

} // namespace tx::bundling
