// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>

#include <cstdint>
#include <cstring>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace tx::test {

/// One entry of a POSIX access list beyond the owner's, the group's and the others'.
struct AccessEntry {
    enum Tag : uint16_t { User = 0x02, OwningGroup = 0x04, Group = 0x08, Mask = 0x10, Others = 0x20 };
    Tag tag;
    uint16_t bits; ///< 4 to read, 2 to write, 1 to execute
    uint32_t id = 0xFFFFFFFF;
};

/// Gives an entry the access list that lets its owner do everything and has the other entries as given, which
/// must be complete and in the order of the tags. `which`: "access", or "default" for what a folder hands
/// down. False where the file system has none.
inline bool setAccessList(const QString &path, const std::vector<AccessEntry> &entries,
                          const char *which = "access") {
    std::vector<char> list;
    const auto append = [&list](const auto &value) {
        const char *bytes = reinterpret_cast<const char *>(&value);
        list.insert(list.end(), bytes, bytes + sizeof value);
    };
    append(uint32_t{2});
    append(uint16_t{1});
    append(uint16_t{7});
    append(uint32_t{0xFFFFFFFF});
    for (const AccessEntry &entry : entries) {
        append(static_cast<uint16_t>(entry.tag));
        append(entry.bits);
        append(entry.id);
    }
    const QByteArray name = QByteArray("system.posix_acl_") + which;
    return setxattr(QFile::encodeName(path).constData(), name.constData(), list.data(), list.size(), 0) == 0;
}

/// The list by which user `id` has `bits`, of which the mask leaves `mask`.
inline std::vector<AccessEntry> accessFor(uint32_t id, uint16_t bits, uint16_t mask = 7) {
    return {{AccessEntry::User, bits, id},
            {AccessEntry::OwningGroup, 5},
            {AccessEntry::Mask, mask},
            {AccessEntry::Others, 5}};
}

} // namespace tx::test
