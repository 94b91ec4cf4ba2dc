// SPDX-License-Identifier: MIT
#include "publish/insidearchive.h"

#include "posix/plainpropertylist.h"
#include "publish/faults.h"

#include <QFile>

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <memory>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

using Reader = std::unique_ptr<archive, int (*)(archive *)>;

/// Matches "My.app/Contents/Info.plist" and "My.app/Info.plist".
bool isInfoOfApplication(std::string name) {
    if (name.starts_with("./"))
        name.erase(0, 2);
    const auto depth = std::count(name.begin(), name.end(), '/');
    return (depth == 2 && name.ends_with("/Contents/Info.plist")) ||
           (depth == 1 && name.ends_with("/Info.plist"));
}

} // namespace

Outcome<QString> identifierInArchive(const QString &path) {
    const Reader reader(archive_read_new(), &archive_read_free);
    archive_read_support_filter_all(reader.get());
    archive_read_support_format_tar(reader.get());
    archive_read_support_format_gnutar(reader.get());
    archive_read_support_format_zip(reader.get());
    constexpr size_t blockSize = 1 << 18;
    if (archive_read_open_filename(reader.get(), QFile::encodeName(path).constData(), blockSize) !=
        ARCHIVE_OK)
        return Fault{FaultKind::Input, "the published archive cannot be unpacked"};
    archive_entry *entry = nullptr;
    while (archive_read_next_header(reader.get(), &entry) >= ARCHIVE_WARN && entry) {
        const char *name = archive_entry_pathname(entry);
        if (!name || !isInfoOfApplication(name))
            continue;
        std::string content(plain::maximumDocument + 1, '\0');
        const la_ssize_t size = archive_read_data(reader.get(), content.data(), content.size());
        if (size < 0)
            break;
        content.resize(size_t(size));
        const std::optional<plain::Value> info = plain::readPropertyList(content);
        const plain::Value *identifier = info ? info->member("CFBundleIdentifier") : nullptr;
        if (identifier && identifier->text())
            return QString::fromStdString(*identifier->text());
        entry = nullptr;
    }
    return Fault{FaultKind::Input, "the published archive has no application at its top"};
}

} // namespace tx::publishing
