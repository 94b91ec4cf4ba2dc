// SPDX-License-Identifier: MIT
#include "bundle/qtinstallation.h"

#include "bundle/problem.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

/// Returns the first of the folders `ways` below `folder` that contains `entry`.
QString folderWith(const QString &folder, const QStringList &ways, const QString &entry) {
    for (const QString &way : ways) {
        const QString candidate = QDir::cleanPath(folder + u'/' + way);
        if (QFileInfo::exists(candidate + u'/' + entry))
            return candidate;
    }
    return {};
}

} // namespace

Result<QtInstallation> qtInstallationOf(const QString &folder) {
    // Debian uses lib/TRIPLET/qt6 and Fedora lib64/qt6. Qt's own installer puts all folders side by side.
    const auto ways = [](const QString &name) {
        return QStringList{u"qt6/"_s + name,        u"../"_s + name,           u"../qt6/"_s + name,
                           u"../lib/qt6/"_s + name, u"../share/qt6/"_s + name, u"../../share/qt6/"_s + name};
    };
    QtInstallation qt;
    qt.plugins = folderWith(folder, ways(u"plugins"_s), u"platforms"_s);
    qt.qml = folderWith(folder, ways(u"qml"_s), {});
    qt.translations = folderWith(folder, ways(u"translations"_s), {});
    qt.programs = folderWith(folder, ways(u"libexec"_s), {});
    qt.resources = folderWith(folder, ways(u"resources"_s), {});
    if (qt.plugins.isNull())
        return problem(
            u"the plug-ins of the Qt in %1 were not found"_s.arg(folder),
            u"none of %1 holds a folder \"platforms\""_s.arg(ways(u"plugins"_s).join(u", "_s)),
            u"Install Qt's platform plug-ins, on Debian: apt install libqt6gui6 qt6-qpa-plugins"_s);
    return qt;
}

const QList<PluginRule> &pluginRules() {
    static const QList<PluginRule> rules{
        {u"Gui"_s, u"platforms"_s, u"libqxcb.so"_s, true, u"no window on X11"_s, u"libqt6gui6"_s},
        {u"Gui"_s, u"platforms"_s, u"libqwayland*.so"_s, false, u"on Wayland it runs through XWayland"_s,
         u"qt6-wayland"_s},
        {u"Gui"_s, u"platforms"_s, u"libqoffscreen.so"_s, false, {}, u"libqt6gui6"_s},
        {u"Gui"_s, u"xcbglintegrations"_s, {}, false, u"no OpenGL on X11"_s, u"libqt6gui6"_s},
        {u"Gui"_s, u"imageformats"_s, {}, false, u"PNG is the only format of pictures"_s, u"libqt6gui6"_s},
        {u"Gui"_s, u"iconengines"_s, {}, false, u"no icons in SVG"_s, u"libqt6svg6"_s},
        {u"Gui"_s,
         u"platforminputcontexts"_s,
         {},
         false,
         u"no dead keys and no input methods"_s,
         u"libqt6gui6"_s},
        {u"Gui"_s, u"platformthemes"_s, u"libqxdgdesktopportal.so"_s, false, {}, u"libqt6gui6"_s},
        {u"Widgets"_s, u"styles"_s, {}, false, {}, u"libqt6widgets6"_s},
        {u"WaylandClient"_s,
         u"wayland-shell-integration"_s,
         {},
         false,
         u"no windows on Wayland"_s,
         u"qt6-wayland"_s},
        {u"WaylandClient"_s,
         u"wayland-graphics-integration-client"_s,
         {},
         false,
         u"no OpenGL on Wayland"_s,
         u"qt6-wayland"_s},
        {u"WaylandClient"_s,
         u"wayland-decoration-client"_s,
         {},
         false,
         u"no title bars on Wayland desktops that draw none"_s,
         u"qt6-wayland"_s},
        {u"Network"_s, u"tls"_s, u"libqopensslbackend.so"_s, true, u"no https"_s, u"libqt6network6"_s},
        {u"Network"_s, u"tls"_s, u"libqcertonlybackend.so"_s, false, {}, u"libqt6network6"_s},
        {u"Network"_s, u"networkinformation"_s, {}, false, {}, u"libqt6network6"_s},
        {u"PrintSupport"_s,
         u"printsupport"_s,
         {},
         false,
         u"prints to files only"_s,
         u"libqt6printsupport6"_s},
        // Applications that use a database server name its driver themselves: --plugin
        // sqldrivers/libqsqlpsql.so
        {u"Sql"_s, u"sqldrivers"_s, u"libqsqlite.so"_s, false, u"no SQLite"_s, u"libqt6sql6-sqlite"_s},
        {u"Multimedia"_s, u"multimedia"_s, {}, false, u"no sound and no video"_s, u"libqt6multimedia6"_s},
        {u"TextToSpeech"_s, u"texttospeech"_s, {}, false, u"no speech"_s, u"qt6-speech"_s},
        {u"Positioning"_s, u"position"_s, {}, false, u"no positions"_s, u"libqt6positioning6-plugins"_s},
        {u"Location"_s, u"geoservices"_s, {}, false, u"no maps"_s, u"libqt6location6"_s},
        {u"Sensors"_s, u"sensors"_s, {}, false, u"no sensors"_s, u"libqt6sensors6"_s},
        {u"SerialBus"_s, u"canbus"_s, {}, false, u"no bus"_s, u"libqt6serialbus6-plugins"_s},
        {u"3DRender"_s, u"renderers"_s, {}, false, u"no pictures in 3D"_s, u"libqt63drender6"_s},
        {u"3DRender"_s, u"sceneparsers"_s, {}, false, {}, u"libqt63drender6"_s},
        {u"3DRender"_s, u"geometryloaders"_s, {}, false, {}, u"libqt63drender6"_s},
        {u"Quick3D"_s, u"assetimporters"_s, {}, false, {}, u"libqt6quick3d6"_s},
        {u"VirtualKeyboard"_s, u"virtualkeyboard"_s, {}, false, {}, u"qt6-virtualkeyboard-plugin"_s},
        {u"WebView"_s, u"webview"_s, {}, false, u"no pages"_s, u"libqt6webview6"_s},
        {u"Scxml"_s, u"scxmldatamodel"_s, {}, false, {}, u"libqt6scxml6"_s},
    };
    return rules;
}

QList<QStringList> loadedBy(const QString &fileName) {
    static const QMap<QString, QList<QStringList>> table{
        {u"libqopensslbackend.so"_s,
         {{u"libssl.so.3"_s, u"libssl.so.1.1"_s}, {u"libcrypto.so.3"_s, u"libcrypto.so.1.1"_s}}},
        // The web engine loads these for certificates and keys.
        {u"libnss3.so"_s,
         {{u"libsoftokn3.so"_s}, {u"libfreebl3.so"_s}, {u"libfreeblpriv3.so"_s}, {u"libnssckbi.so"_s}}},
    };
    return table.value(fileName);
}

QString qtModuleOf(const QString &libraryName) {
    static const QRegularExpression form(u"^libQt6(\\w+)\\.so(\\.|$)"_s);
    return form.match(libraryName).captured(1);
}

QStringList translationsOf(const QSet<QString> &modules) {
    QStringList result;
    const QList<std::pair<QString, QString>> table{{u"Core"_s, u"qtbase_"_s},
                                                   {u"Qml"_s, u"qtdeclarative_"_s},
                                                   {u"Multimedia"_s, u"qtmultimedia_"_s},
                                                   {u"Location"_s, u"qtlocation_"_s},
                                                   {u"SerialPort"_s, u"qtserialport_"_s},
                                                   {u"WebSockets"_s, u"qtwebsockets_"_s},
                                                   {u"WebEngineCore"_s, u"qtwebengine_"_s},
                                                   {u"Help"_s, u"qt_help_"_s}};
    for (const auto &[module, beginning] : table) {
        if (modules.contains(module))
            result << beginning;
    }
    return result;
}

} // namespace tx::bundling
