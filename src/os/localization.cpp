// SPDX-License-Identifier: MIT
#include "os/localization.h"

#include "base/format.h"
#include "base/plurals.h"
#include "base/shared.h"
#include "base/stringstable.h"
#include "os/directories.h"
#include "os/services.h"

#include <TarvixUpdate/TXLog.h>

#include <QCoreApplication>
#include <QFile>
#include <QMutex>

#include <optional>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Reads a table once for the life of the process; a missing one is remembered as empty.
const QHash<QString, QString> &tableAt(const QString &path) {
    // Never destroyed: a thread may outlast static objects.
    static auto &mutex = *new QMutex;
    static auto &cache = *new QHash<QString, QSharedPointer<const QHash<QString, QString>>>;
    const QMutexLocker locker(&mutex);
    auto &slot = cache[path];
    if (!slot) {
        auto table = QSharedPointer<QHash<QString, QString>>::create();
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) {
            Result<QHash<QString, QString>> read = readStringsTable(file.readAll());
            if (read)
                *table = *read;
            else
                TXLog(TXLogLevelFailure, u"TXUpdate: %@: %@"_s, {path, read.error().toString()});
        }
        slot = table;
    }
    return *slot;
}

/// "pt-BR" is looked up as pt-BR, pt_BR and pt; "zh-Hans-CN" unchanged, as zh-Hans and as zh.
QStringList folderNames(const QString &language) {
    QStringList names;
    for (QString name = language;;) {
        names << name << QString(name).replace(u'-', u'_');
        const qsizetype dash = name.lastIndexOf(u'-');
        if (dash < 0)
            break;
        name.truncate(dash);
    }
    names.removeDuplicates();
    return names;
}

using Table = QHash<QString, QString>;

struct Found {
    QString text;
    const Table *table = nullptr;
};

/// The string in the first language that has it, and its table; null if there is none, or if English is
/// preferred. With a count, the language's form for that number takes precedence over the string for all
/// numbers.
Found lookUp(const QString &key, const QString &folder, const QString &table, const QStringList &languages,
             std::optional<qint64> count = {}) {
    for (const QString &language : languages) {
        QStringList keys{key};
        if (count)
            keys.prepend(pluralKey(key, pluralCategory(language, *count)));
        for (const QString &name : folderNames(language)) {
            const QString path = u"%1/%2.lproj/%3.strings"_s.arg(folder, name, table);
            const auto &texts = tableAt(path);
            for (const QString &form : keys) {
                if (const auto found = texts.find(form); found != texts.end() && !found->isEmpty())
                    return {*found, &texts};
            }
        }
        if (language == u"en" || language.startsWith(u"en-"))
            break; // the keys are English, which the user prefers to later languages
    }
    return {};
}

/// The framework's tables also serve related languages: simplified Chinese if no script or that one is named,
/// Brazilian Portuguese for all of Portuguese.
QStringList closestLanguages(const QStringList &languages) {
    QStringList result;
    for (const QString &language : languages) {
        if (language == u"pt" || language.startsWith(u"pt-"))
            result << u"pt-BR"_s;
        else if (language == u"zh" || language == u"zh-CN" || language == u"zh-SG")
            result << u"zh-Hans"_s;
        else
            result << language;
    }
    return result;
}

QString translated(const QString &key, std::optional<qint64> count = {}) {
    return QCoreApplication::translate("TarvixUpdate", key.toUtf8().constData(), nullptr,
                                       count ? static_cast<int>(*count) : -1);
}

Found lookUpOwn(const QString &key, const QStringList &languages, std::optional<qint64> count = {}) {
    return lookUp(key, services().resourcesPath(), u"TarvixUpdate"_s, closestLanguages(languages), count);
}

QString localized(const QString &key, const QString &table, const TXBundle &bundle,
                  const QStringList &languages, std::optional<qint64> count) {
    if (const Found found = lookUp(key, bundle.resourcesPath(), table, languages, count); found.table)
        return found.text;
    if (const QString text = translated(key, count); text != key)
        return text;
    const Found own = lookUpOwn(key, languages, count);
    return own.table ? own.text : key;
}

} // namespace

QString localizedString(const QString &key, const QString &table, const TXBundle &bundle,
                        const QStringList &languages) {
    return localized(key, table, bundle, languages, std::nullopt);
}

TX_SHARED QString localizedString(const QString &key, const QString &table) {
    return localizedString(key, table, TXBundle::mainBundle(), services().preferredLanguages());
}

TX_SHARED QString localizedFormat(const QString &key, const QStringList &arguments) {
    return formatText(localizedString(key), arguments);
}

TX_SHARED QString localizedPlural(const QString &key, qint64 count, const QStringList &arguments) {
    return formatText(
        localized(key, u"Localizable"_s, TXBundle::mainBundle(), services().preferredLanguages(), count),
        arguments);
}

LocalizedSentence::LocalizedSentence(const QString &key, const QString &table)
    : m_text(key) {
    const QStringList languages = services().preferredLanguages();
    Found found = lookUp(key, TXBundle::mainBundle().resourcesPath(), table, languages);
    if (!found.table) {
        m_text = translated(key);
        m_isTranslators = m_text != key;
        if (!m_isTranslators)
            found = lookUpOwn(key, languages);
    }
    if (found.table) {
        m_text = found.text;
        m_table = found.table;
    }
}

QString LocalizedSentence::filledWith(const QStringList &arguments) const {
    return formatText(m_text, arguments);
}

QString LocalizedSentence::word(const QString &key) const {
    if (m_isTranslators)
        return translated(key);
    const QString text = m_table ? m_table->value(key) : QString();
    return text.isEmpty() ? key : text;
}

} // namespace tx
