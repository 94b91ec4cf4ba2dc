// SPDX-License-Identifier: MIT
#include "tests/support/places.h"

namespace tx::test {

QString resourcesFolder() { return QStringLiteral(TEST_RESOURCES); }
QString programsFolder() { return QStringLiteral(TEST_PROGRAMS); }
QString helpersFolder() { return QStringLiteral(TEST_HELPERS); }
QString sourcesFolder() { return QStringLiteral(TEST_SOURCES); }
QString librariesFolder() { return QStringLiteral(TEST_LIBRARIES); }

} // namespace tx::test
