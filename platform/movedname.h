// SPDX-License-Identifier: MIT
#pragma once

namespace tx {

/// What follows "." and the name of an application in the name of its copy while the application is moved:
/// the host and the program that runs with an administrator's rights use the same, so that each removes what
/// a killed move of the other left.
inline constexpr char movedSuffix[] = ".txupdate-move";

} // namespace tx
