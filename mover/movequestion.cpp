// SPDX-License-Identifier: MIT
#include "mover/movequestion.h"

#include "platform/format.h"
#include "platform/localization.h"

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Where the application is, in the words of the question and of the user's language.
QString placeDescription(const ApplicationPlaces &places) {
    if (places.isInDownloadsFolder())
        return moverText(u"downloads folder"_s);
    if (places.isInDesktopFolder())
        return moverText(u"Desktop folder"_s);
    return formatText(moverText(u"folder named \"%@\""_s), {places.parentDirectory().section(u'/', -1)});
}

QString explanation(const ApplicationPlaces &places, const QString &name, bool isTranslocated) {
    bool isUserFolder = false;
    (void)places.preferredInstallLocation(&isUserFolder);
    const QString location = isUserFolder ? u"~/Applications"_s : u"Applications"_s; // a path, or a name
    const QString shownLocation = isUserFolder ? location : moverText(u"Applications"_s);
    const QString volume = places.diskImageVolumePath();
    if (const QString image = ApplicationPlaces::diskImageFileForVolumePath(volume); !image.isNull())
        return formatText(
            u"%@ is running from inside of the disk image. You should move %@ into your %@ folder and "
            "then delete the disk image file (%@)."_s,
            {name, name, location, image.section(u'/', -1)});
    // A disc or a locked card: there is no file to delete.
    if (isTranslocated || !volume.isNull())
        return formatText(moverText(u"Would you like to move %@ into your %@ folder right now?"_s),
                          {name, shownLocation});
    return formatText(
        moverText(u"Rather than having %@ clutter up your %@, would you like to move it into your %@ "
                  "folder right now?"_s),
        {name, placeDescription(places), shownLocation});
}

} // namespace

QString moverText(const QString &key) { return localizedString(key, u"MoveApplication"_s); }

Alert moveQuestion(const ApplicationPlaces &places, const QString &name, bool isTranslocated) {
    Alert alert;
    alert.message = formatText(moverText(u"%@ is not in the Applications folder."_s), {name});
    alert.informative = explanation(places, name, isTranslocated);
    if (places.needsAuthorization() && places.canGetAuthorization())
        alert.informative += u' ' + moverText(u"Note that this will require an administrator password."_s);
    alert.buttons = {moverText(u"Move to Applications Folder"_s), moverText(u"Do Not Move"_s)};
    alert.suppressionText = localizedString(u"Do not show this message again"_s);
    alert.bringsToFront = true;
    alert.answerWithoutWindow = 1; // nobody said yes
    return alert;
}

} // namespace tx
