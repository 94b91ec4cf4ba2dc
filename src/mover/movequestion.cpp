// SPDX-License-Identifier: MIT
#include "mover/movequestion.h"

#include "base/format.h"
#include "os/localization.h"

using namespace Qt::StringLiterals;

namespace tx {

namespace {

const QString moverTable = u"MoveApplication"_s;

/// Where the application is, as words for the question.
QString placeDescription(const ApplicationPlaces &places, const LocalizedSentence &question) {
    if (places.isInDownloadsFolder())
        return question.word(u"downloads folder"_s);
    if (places.isInDesktopFolder())
        return question.word(u"Desktop folder"_s);
    return formatText(question.word(u"folder named \"%@\""_s), {places.parentDirectory().section(u'/', -1)});
}

QString explanation(const ApplicationPlaces &places, const QString &name, bool isTranslocated) {
    bool isUserFolder = false;
    (void)places.preferredInstallLocation(&isUserFolder);
    const QString location = isUserFolder ? u"~/Applications"_s : u"Applications"_s; // a path, or a name
    const auto shownLocation = [&](const LocalizedSentence &question) {
        return isUserFolder ? location : question.word(u"Applications"_s);
    };
    const QString volume = places.diskImageVolumePath();
    if (const QString image = ApplicationPlaces::diskImageFileForVolumePath(volume); !image.isNull())
        return formatText(
            u"%@ is running from inside of the disk image. You should move %@ into your %@ folder and "
            "then delete the disk image file (%@)."_s,
            {name, name, location, image.section(u'/', -1)});
    // A disc or a write-protected card: there is no image file to delete.
    if (isTranslocated || !volume.isNull()) {
        const LocalizedSentence question(u"Would you like to move %@ into your %@ folder right now?"_s,
                                         moverTable);
        return question.filledWith({name, shownLocation(question)});
    }
    const LocalizedSentence question(
        u"Rather than having %@ clutter up your %@, would you like to move it into your %@ folder right now?"_s,
        moverTable);
    return question.filledWith({name, placeDescription(places, question), shownLocation(question)});
}

} // namespace

QString moverText(const QString &key) { return localizedString(key, moverTable); }

Alert moveQuestion(const ApplicationPlaces &places, const QString &name, bool isTranslocated) {
    Alert alert;
    alert.message = formatText(moverText(u"%@ is not in the Applications folder."_s), {name});
    alert.informative = explanation(places, name, isTranslocated);
    if (places.needsAuthorization() && places.canGetAuthorization())
        alert.informative += u' ' + moverText(u"Note that this will require an administrator password."_s);
    alert.buttons = {moverText(u"Move to Applications Folder"_s), moverText(u"Do Not Move"_s)};
    alert.suppressionText = localizedString(u"Do not show this message again"_s);
    alert.bringsToFront = true;
    alert.answerWithoutWindow = 1; // counts as declined
    return alert;
}

} // namespace tx
