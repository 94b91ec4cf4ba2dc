// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// Appends a line with the time in front, in milliseconds since 1970, to the file that
/// TARVIX_NOTES_LAUNCH_LOG names; for whoever started the application without a terminal. Nothing happens
/// when the variable is not set.
void recordLine(const QString &line);
