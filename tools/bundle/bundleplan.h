// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "bundle/elffile.h"
#include "bundle/layout.h"
#include "bundle/systemlibraries.h"

#include <QByteArrayList>
#include <QVariantMap>

namespace tx::bundling {

/// The publisher's options.
struct Wishes {
    QString executable;
    QString identifier;
    QString name;
    QString build;
    QString version;          ///< for people; if empty, the build is used
    QString icon;             ///< a picture; empty for none
    QString desktop;          ///< a desktop entry; empty for none
    QString info;             ///< a property list with additional keys for Info.plist; empty for none
    QStringList keys;         ///< public keys for Info.plist, named as in txupdate keygen: without ".pub"
    QStringList additions;    ///< more files and folders for the resources: SOURCE or SOURCE:PLACE
    QStringList plugins;      ///< Qt plug-ins that no rule names: FOLDER or FOLDER/FILE
    QStringList qmlFolders;   ///< folders with QML of the application that is not compiled in
    QString published;        ///< bundle of the last published build; if empty, the one at the destination
    QStringList buildFolders; ///< additional build folders whose paths the bundle must not contain
    QString output;           ///< folder in which the bundle is made
    Layout layout = Layout::App;
    bool withWebEngine = false;
    bool allowsBuildPaths = false; ///< paths of the build machine do not fail the checks
};

enum class Kind { Program, Library, Plugin, QmlModule, Framework, Translation, Resource };

/// A file to copy.
struct Item {
    QString source;
    QString place; ///< its path in the bundle
    Kind kind = Kind::Resource;
    QStringList askers; ///< the files and options that need it, for messages
    qint64 size = 0;
    std::optional<ElfFile> elf;
};

/// A library that is not copied because it belongs to the system.
struct LeftOut {
    QString name;
    const SystemLibrary *line = nullptr;
    QStringList askers;
};

struct Plan {
    Places places;
    QList<Item> items;
    QList<LeftOut> leftOut;
    QList<const SystemLibrary *> companions; ///< packages that the copied libraries expect on the system
    QStringList warnings;
    QString program; ///< path of the executable in the bundle
    ElfFile executable;
    QByteArrayList buildPaths; ///< path prefixes that no file of the bundle may contain
};

/// Determines everything that belongs into the bundle. Changes nothing on disk. Errors: what is missing and
/// which file needs it.
[[nodiscard]] Result<Plan> makePlan(const Wishes &wishes);

} // namespace tx::bundling
