// SPDX-License-Identifier: MIT
#pragma once

#include <QLatin1StringView>

#include <span>

class TXUpdate;

namespace tx {

/// The state of an update. An update in a feed is Available; docs/architecture.md shows the table.
enum class UpdateState : unsigned char {
    Available,              ///< nothing was done with it, or its download failed or was cancelled
    Downloading,            ///< a transfer is running
    Downloaded,             ///< the archive is complete; also after an installation that failed
    Preparing,              ///< an installation locks the folder and searches the package databases
    Verifying,              ///< the archive is verified; only for a host with keys
    Unpacking,              ///< the archive is unpacked, and the new application is checked
    AskingToQuit,           ///< the application is asked whether it may quit
    HandingOver,            ///< the installer tool is started; if it is ready, the process ends in this state
    Installed,              ///< the host said that it has installed the update; the archive is complete
    InstalledWithoutArchive ///< the host said so; nothing was downloaded
};
inline constexpr UpdateState lastUpdateState = UpdateState::InstalledWithoutArchive;

/// Who wants a change of the state: the framework, or the host with a setter of TXUpdate.
enum class StateChanger : unsigned char { Framework, Host };

struct StateTransition {
    UpdateState from;
    UpdateState to;
    StateChanger by;
};

/// All transitions that are allowed.
[[nodiscard]] std::span<const StateTransition> stateTransitions();
/// Returns whether the table has this transition.
[[nodiscard]] bool isAllowed(UpdateState from, UpdateState to, StateChanger by);

/// The name, as in the enumeration.
[[nodiscard]] QLatin1StringView nameOf(UpdateState state);

// What the properties of TXUpdate with the same names answer in a state.
[[nodiscard]] bool isDownloaded(UpdateState state);
[[nodiscard]] bool isDownloading(UpdateState state);
[[nodiscard]] bool isInstalling(UpdateState state);
[[nodiscard]] bool isInstalled(UpdateState state);

/// The state of an update. Thread: the update's, like all functions below.
[[nodiscard]] UpdateState stateOf(const TXUpdate &update);

/// Changes the state without emitting signals; see announceState(). Returns false, and logs the failure, if
/// the table does not have the transition; the state is unchanged then. A caller must not continue with the
/// work of a state that was refused.
[[nodiscard]] bool enterState(TXUpdate &update, UpdateState to, StateChanger by = StateChanger::Framework);
/// Emits the signals of the properties that differ between `before` and `after`. A slot may destroy the
/// update.
void announceState(TXUpdate &update, UpdateState before, UpdateState after);
/// Does both. A slot may have destroyed the update when this returns true.
[[nodiscard]] bool changeState(TXUpdate &update, UpdateState to, StateChanger by = StateChanger::Framework);

} // namespace tx
