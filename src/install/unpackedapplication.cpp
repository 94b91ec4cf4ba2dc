// SPDX-License-Identifier: MIT
#include "install/unpackedapplication.h"

#include "model/host_p.h"
#include "model/updatefolder.h"
#include "os/filesystem.h"
#include "os/localization.h"
#include "os/services.h"
#include "os/specialfiles.h"

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXLog.h>

#include <QFileInfo>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

bool isFolder(const QString &path) {
    const QFileInfo info(path);
    return info.isDir() && !info.isSymLink();
}

bool isApplication(const QString &path) {
    return QFileInfo::exists(path + u"/Contents/Info.plist"_s) ||
           (QFileInfo::exists(path + u"/Info.plist"_s) && !TXBundle(path).bundleIdentifier().isNull());
}

QString shown(const QString &text) { return text.isEmpty() ? u"?"_s : text; }

/// Looks into nested folders, but lists no more than a person would want to read.
class Survey {
public:
    explicit Survey(QString archiveName)
        : m_archiveName(std::move(archiveName)) {}

    void look(const QString &folder, const QString &shownFolder, int depth) {
        const Result<QStringList> names = services().fileSystem->list(folder);
        if (!names)
            return;
        for (const QString &name : *names) {
            const bool isOwn = depth == 0 && (name == m_archiveName || UpdateFolder::isInstallerTool(name) ||
                                              name.startsWith(u'.'));
            const QString path = folder + u'/' + name;
            if (isOwn || ++m_seen > mostEntries)
                continue;
            if (depth == 0)
                entries << name;
            if (!isFolder(path))
                continue;
            if (isApplication(path)) {
                const TXBundle bundle(path);
                if (applications.size() < mostShown)
                    applications << localizedFormat(u"%@ with the identifier %@, build %@, depth %d"_s,
                                                    {shownFolder + name, shown(bundle.bundleIdentifier()),
                                                     shown(bundle.infoString(u"CFBundleVersion"_s)),
                                                     QString::number(depth)});
            } else if (depth < deepest) {
                look(path, shownFolder + name + u'/', depth + 1);
            }
        }
    }

    static QString joined(const QStringList &texts) {
        return texts.size() <= mostShown ? texts.join(u"; "_s)
                                         : texts.first(mostShown).join(u"; "_s) + u"; …"_s;
    }

    QStringList applications;
    QStringList entries; ///< names directly in the folder

private:
    static constexpr int mostEntries = 1000;
    static constexpr int mostShown = 5;
    static constexpr int deepest = 3;
    QString m_archiveName;
    int m_seen = 0;
};

} // namespace

FoundApplication findApplication(const QString &directory, const WantedApplication &wanted) {
    FoundApplication result;
    const Result<QStringList> entries = services().fileSystem->list(directory);
    if (!entries || (wanted.identifier && wanted.identifier->isNull()))
        return result;
    for (const QString &entry : *entries) {
        const QString path = directory + u'/' + entry;
        if (!isFolder(path) || (!wanted.identifier && UpdateFolder::isInstallerTool(entry)))
            continue;
        const QString identifier = TXBundle(path).bundleIdentifier();
        if (wanted.identifier ? identifier != *wanted.identifier : identifier.isNull())
            continue;
        const TXError unfit = checkForSpecialFiles(path);
        if (!unfit && wanted.identifier)
            return {path, {}};
        if (!unfit && !result.path.isNull())
            return {{}, u"The archive holds more than one application."_s};
        if (!unfit) {
            result.path = path;
            continue;
        }
        result.refusal = unfit.localizedDescription();
        TXLog(TXLogLevelFailure, u"TXUpdate: %@ is not installed. %@"_s, {path, unfit.toString()});
    }
    return result;
}

QString explainMissingApplication(const QString &directory, const QString &archive,
                                  const WantedApplication &wanted, const QString &refusal,
                                  const std::optional<QString> &toolSays) {
    if (wanted.identifier && wanted.identifier->isNull()) {
        const TXError error = hostIdentityError();
        return localizedString(
                   u"This application has no identifier by which a new version could be recognized."_s) +
               u' ' + error.localizedFailureReason() + u' ' + error.localizedRecoverySuggestion();
    }
    QStringList sentences;
    if (wanted.identifier)
        sentences << localizedFormat(u"Looked for: an application with the identifier %@, build %@, which is "
                                     "not inside another folder (depth 0)."_s,
                                     {*wanted.identifier, shown(wanted.build)});
    if (!refusal.isEmpty())
        sentences << (refusal.endsWith(u'.') ? refusal : refusal + u'.');
    Survey survey(QFileInfo(archive).fileName());
    if (!toolSays)
        survey.look(directory, {}, 0);
    if (!survey.applications.isEmpty())
        sentences << localizedFormat(u"Found: %@."_s, {Survey::joined(survey.applications)});
    else if (!survey.entries.isEmpty())
        sentences << localizedFormat(u"Found: no application, but %@."_s, {Survey::joined(survey.entries)});
    else
        sentences << localizedString(
            u"Found: nothing. The archive is empty or damaged, or it is not of the type "
            "that its name says."_s);
    if (toolSays && !toolSays->isEmpty())
        sentences << localizedFormat(u"The tool that unpacks it says: %@"_s, {*toolSays});
    return sentences.join(u' ');
}

} // namespace tx
