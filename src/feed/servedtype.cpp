// SPDX-License-Identifier: MIT
#include "feed/servedtype.h"

#include <QByteArrayView>

#include <string_view>

using namespace Qt::StringLiterals;

namespace tx {

QString mistakeInType(const QByteArray &contentType, const QByteArray &document) {
    // The document may be large and is not copied. Byte order marks and the zero bytes of UTF-16 are not
    // text.
    constexpr std::string_view ignored("\xEF\xBB\xBF\xFE\xFF\0 \t\r\n", 10);
    qsizetype start = 0;
    while (start < document.size() && ignored.find(document[start]) != std::string_view::npos)
        ++start;
    if (contentType == "application/json" || start == document.size() ||
        (document[start] != '{' && document[start] != '['))
        return {};
    return u"The feed looks like JSON, but it was served as %1, so read as an appcast. Serve it as "
           "application/json, without anything after that."_s.arg(
               contentType.isEmpty() ? u"no type"_s : QString::fromLatin1(contentType));
}

} // namespace tx
