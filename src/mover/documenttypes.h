// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QStringList>
#include <QVariantMap>

/// The kinds of documents that an application opens, from CFBundleDocumentTypes in its Info.plist. Thread:
/// any.
namespace tx {

struct DocumentType {
    QStringList mimeTypes;
    QStringList extensions; ///< without the period
    QString name;           ///< for people; may be empty
};

/// Reads CFBundleTypeMIMETypes, CFBundleTypeExtensions and CFBundleTypeName. Names of MIME types and
/// extensions that are not well-formed are left out, and so are kinds without a MIME type.
[[nodiscard]] QList<DocumentType> documentTypesOf(const QVariantMap &info);

/// All MIME types, each once.
[[nodiscard]] QStringList mimeTypesOf(const QList<DocumentType> &types);

/// Returns a package of the shared MIME database with the kinds that have extensions. Null if there are none.
[[nodiscard]] QByteArray mimePackageOf(const QList<DocumentType> &types);

} // namespace tx
