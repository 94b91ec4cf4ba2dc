// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "bundle/elffile.h"
#include "bundle/layout.h"
#include "bundle/systemlibraries.h"

#include <QByteArrayList>
#include <QVariantMap>

namespace tx::bundling {

/// What a publisher asks for.
struct Wishes {
    QString executable;
    QString identifier;
    QString name;
    QString build;
    QString version;        ///< for people; empty: the build
    QString icon;           ///< a picture; empty: none
    QString desktop;        ///< a desktop entry; empty: none
    QString info;           ///< a property list with more keys for Info.plist; empty: none
    QStringList keys;       ///< public keys for the Info.plist, as txupdate keygen names them: without ".pub"
    QStringList additions;  ///< files and folders for the resources; SOURCE or SOURCE:PLACE
    QStringList plugins;    ///< of Qt, that no rule names: FOLDER or FOLDER/FILE
    QStringList qmlFolders; ///< with the QML of the application, when it is not compiled in
    QString published;      ///< the bundle of the last published build; empty: the one at the output's place
    QStringList buildFolders; ///< that users must not find in the bundle; those of CMake are found
    QString output;           ///< folder in which the bundle is made
    Layout layout = Layout::App;
    bool withWebEngine = false;
};

enum class Kind { Program, Library, Plugin, QmlModule, Framework, Translation, Resource };

/// A file that is going to be copied.
struct Item {
    QString source;
    QString place; ///< in the bundle
    Kind kind = Kind::Resource;
    QStringList askers; ///< what needs it, as people would say it
    qint64 size = 0;
    std::optional<ElfFile> elf;
};

/// A library that is left to the system.
struct LeftOut {
    QString name;
    const SystemLibrary *line = nullptr;
    QStringList askers;
};

struct Plan {
    Places places;
    QList<Item> items;
    QList<LeftOut> leftOut;
    QList<const SystemLibrary *> companions; ///< packages that copied libraries expect
    QStringList warnings;
    QString program; ///< place of the executable
    ElfFile executable;
    QByteArrayList buildPaths; ///< beginnings of paths that may not be found in it
};

/// Finds out all that belongs in the bundle; changes nothing. Errors: what is missing, and who asked for it.
[[nodiscard]] Result<Plan> makePlan(const Wishes &wishes);

} // namespace tx::bundling
