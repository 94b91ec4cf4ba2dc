// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateFeed.h>

#include <QByteArray>

/// What a fuzz target does with one input. It ends the process when a promise is broken.
void fuzz(const QByteArray &input);

void check(bool promise);

/// Asks every update and post for what an application would.
void lookAt(const TXUpdateFeed::TrackMap &tracks);
