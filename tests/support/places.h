// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// The folders of this build. Functions, so that tests are the same objects wherever a tree stands: caches of
/// objects then serve every clone. Thread: any.
namespace tx::test {

[[nodiscard]] QString resourcesFolder(); ///< the framework's tools, interface files and texts
[[nodiscard]] QString programsFolder();  ///< txupdate and the example
[[nodiscard]] QString helpersFolder();   ///< the test programs and what they start
[[nodiscard]] QString sourcesFolder();   ///< tests/ of the tree
[[nodiscard]] QString librariesFolder();

} // namespace tx::test
