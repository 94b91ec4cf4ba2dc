// SPDX-License-Identifier: MIT
#include "mover/documenttypes.h"

#include "mover/desktopentry.h"

#include <QRegularExpression>
#include <QXmlStreamWriter>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// More kinds are a mistake.
constexpr qsizetype mostTypes = 256;

bool isExtension(const QString &text) {
    // No characters of patterns, and no line end at the end.
    static const QRegularExpression form(u"\\A[A-Za-z0-9_+-][A-Za-z0-9._+-]{0,31}\\z"_s);
    return form.match(text).hasMatch();
}

/// The characters that an XML document may contain.
QString forXml(const QString &text) {
    QString result;
    for (const char32_t c : text.toUcs4()) {
        if (c >= 0x20 && c != 0x7f && c != 0xfffe && c != 0xffff && (c < 0xd800 || c > 0xdfff))
            result += QString::fromUcs4(&c, 1);
    }
    return result;
}

} // namespace

QList<DocumentType> documentTypesOf(const QVariantMap &info) {
    QList<DocumentType> result;
    const QVariantList list = info[u"CFBundleDocumentTypes"_s].toList();
    for (const QVariant &item : list.mid(0, mostTypes)) {
        const QVariantMap values = item.toMap();
        DocumentType type;
        type.name = values[u"CFBundleTypeName"_s].toString();
        for (const QString &name : values[u"CFBundleTypeMIMETypes"_s].toStringList().mid(0, mostTypes)) {
            if (isMimeType(name))
                type.mimeTypes << name;
        }
        for (const QString &extension :
             values[u"CFBundleTypeExtensions"_s].toStringList().mid(0, mostTypes)) {
            if (isExtension(extension))
                type.extensions << extension;
        }
        if (!type.mimeTypes.isEmpty())
            result << type;
    }
    return result;
}

QStringList mimeTypesOf(const QList<DocumentType> &types) {
    QStringList result;
    for (const DocumentType &type : types)
        result += type.mimeTypes;
    result.removeDuplicates();
    return result;
}

QByteArray mimePackageOf(const QList<DocumentType> &types) {
    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(u"mime-info"_s);
    xml.writeDefaultNamespace(u"http://www.freedesktop.org/standards/shared-mime-info"_s);
    bool hasAny = false;
    for (const DocumentType &type : types) {
        if (type.extensions.isEmpty())
            continue;
        hasAny = true;
        // The extensions belong to the first name. The others are further names of what the application
        // opens.
        xml.writeStartElement(u"mime-type"_s);
        xml.writeAttribute(u"type"_s, type.mimeTypes.constFirst());
        if (const QString name = forXml(type.name); !name.trimmed().isEmpty())
            xml.writeTextElement(u"comment"_s, name);
        for (const QString &extension : type.extensions) {
            xml.writeEmptyElement(u"glob"_s);
            xml.writeAttribute(u"pattern"_s, u"*."_s + extension);
        }
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return hasAny ? bytes : QByteArray();
}

} // namespace tx
