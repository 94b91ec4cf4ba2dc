// SPDX-License-Identifier: MIT
#include "model/updatestate.h"

#include "base/log.h"
#include "model/update_p.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdate.h>

#include <QPointer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

using enum UpdateState;

constexpr auto Framework = StateChanger::Framework;
constexpr auto Host = StateChanger::Host;

constexpr StateTransition transitions[] = {
    // A download; it ends complete, or with a failure or cancellation.
    {Available, Downloading, Framework},
    {InstalledWithoutArchive, Downloading, Framework},
    {Downloading, Downloaded, Framework},
    {Downloading, Available, Framework},
    // An installation. After a failure the user can try again with the same archive.
    {Downloaded, Preparing, Framework},
    {Installed, Preparing, Framework},
    {Preparing, Verifying, Framework},
    {Preparing, Unpacking, Framework},
    {Preparing, Downloaded, Framework},
    {Verifying, Unpacking, Framework},
    {Verifying, Downloaded, Framework},
    {Verifying, Available, Framework}, // an archive that the keys do not admit is removed
    {Unpacking, AskingToQuit, Framework},
    {Unpacking, HandingOver, Framework}, // an archive of unknown type contains nothing to quit for
    {Unpacking, Downloaded, Framework},
    {Unpacking, Available, Framework}, // an application that is not the announced one is removed
    {AskingToQuit, HandingOver, Framework},
    {AskingToQuit, Downloaded, Framework},
    {HandingOver, Downloaded, Framework},
    // A host that downloads or installs updates itself.
    {Available, Downloaded, Host},
    {Downloaded, Available, Host},
    {Downloaded, Installed, Host},
    {Installed, Downloaded, Host},
    {Available, InstalledWithoutArchive, Host},
    {InstalledWithoutArchive, Available, Host},
    {Installed, InstalledWithoutArchive, Host},
    {InstalledWithoutArchive, Installed, Host},
};

} // namespace

std::span<const StateTransition> stateTransitions() { return transitions; }

bool isAllowed(UpdateState from, UpdateState to, StateChanger by) {
    return std::ranges::any_of(
        transitions, [=](const StateTransition &t) { return t.from == from && t.to == to && t.by == by; });
}

QLatin1StringView nameOf(UpdateState state) {
    switch (state) {
    case Available:
        return "Available"_L1;
    case Downloading:
        return "Downloading"_L1;
    case Downloaded:
        return "Downloaded"_L1;
    case Preparing:
        return "Preparing"_L1;
    case Verifying:
        return "Verifying"_L1;
    case Unpacking:
        return "Unpacking"_L1;
    case AskingToQuit:
        return "AskingToQuit"_L1;
    case HandingOver:
        return "HandingOver"_L1;
    case Installed:
        return "Installed"_L1;
    case InstalledWithoutArchive:
        return "InstalledWithoutArchive"_L1;
    }
    return "?"_L1;
}

bool isDownloaded(UpdateState state) {
    return state == Downloaded || isInstalling(state) || state == Installed;
}
bool isDownloading(UpdateState state) { return state == Downloading; }
bool isInstalling(UpdateState state) { return state >= Preparing && state <= HandingOver; }
bool isInstalled(UpdateState state) { return state == Installed || state == InstalledWithoutArchive; }

UpdateState stateOf(const TXUpdate &update) {
    const UpdateDetails *details = TXUpdatePrivate::of(update).fields();
    return details ? details->state : Available;
}

bool enterState(TXUpdate &update, UpdateState to, StateChanger by) {
    const UpdateState from = stateOf(update);
    if (!isAllowed(from, to, by)) {
        TXLog(TXLogLevelFailure, u"TXUpdate: The state of build %@ stays %@: %@ cannot change it to %@."_s,
              {update.version(), nameOf(from), by == Host ? u"the application"_s : u"the framework"_s,
               nameOf(to)});
        return false;
    }
    detailsOf(update).state = to;
    if (isLogged(TXLogLevelDetail))
        TXLog(TXLogLevelDetail, u"TXUpdate: The state of build %@ changes from %@ to %@."_s,
              {update.version(), nameOf(from), nameOf(to)});
    return true;
}

void announceState(TXUpdate &update, UpdateState before, UpdateState after) {
    const QPointer<TXUpdate> guard(&update);
    if (isInstalling(before) != isInstalling(after))
        Q_EMIT update.isInstallingChanged();
    if (guard && isInstalled(before) != isInstalled(after))
        Q_EMIT update.isInstalledChanged();
    if (guard && isDownloaded(before) != isDownloaded(after))
        Q_EMIT update.isDownloadedChanged();
    if (guard && isDownloading(before) != isDownloading(after))
        Q_EMIT update.isDownloadingChanged();
}

bool changeState(TXUpdate &update, UpdateState to, StateChanger by) {
    const UpdateState before = stateOf(update);
    if (!enterState(update, to, by))
        return false;
    announceState(update, before, to);
    return true;
}

} // namespace tx
