// SPDX-License-Identifier: MIT
#include "install/archivelimits.h"
#include "model/host_p.h"
#include "os/mainbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

using namespace Qt::StringLiterals;

namespace {

class ArchiveLimits : public tx::test::FrameworkTest {};

TEST_F(ArchiveLimits, OnlyPositiveNumbersOfTheHostReplaceTheUsualOnes) {
    for (const QByteArray value : {"<integer>0</integer>", "<integer>-1</integer>", "<string>much</string>",
                                   "<string>0</string>", "<array/>"}) {
        tx::test::writeFile(path(u"Limited.app/Contents/Info.plist"_s),
                            "<plist version=\"1.0\"><dict><key>TXUpdateMaximumArchiveSize</key>" + value +
                                "<key>TXUpdateMaximumUnpackedSize</key>" + value + "</dict></plist>");
        tx::setMainBundle(TXBundle(path(u"Limited.app"_s)));
        tx::resetHost();
        EXPECT_EQ(tx::archiveLimits().archive, qint64(4) << 30) << value.constData();
        EXPECT_EQ(tx::archiveLimits().unpacked, qint64(8) << 30) << value.constData();
    }
}

} // namespace
