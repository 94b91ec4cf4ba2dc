// SPDX-License-Identifier: MIT
#include "tests/support/builders.h"

#include "base/propertylist.h"

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include <QDirIterator>
#include <QFileInfo>
#include <QVariantMap>

#include <filesystem>
#include <sys/stat.h>
#include <zlib.h>

using namespace Qt::StringLiterals;

namespace tx::test {

void writeFile(const QString &path, const QByteArray &content, QFile::Permissions permissions) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    ASSERT_EQ(file.write(content), content.size());
    file.close();
    if (permissions)
        file.setPermissions(permissions);
}

QByteArray readFile(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList treeOf(const QString &path) {
    QStringList result;
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString entry = it.next();
        struct stat info {};
        lstat(QFile::encodeName(entry).constData(), &info);
        QString line = entry.mid(path.size()) + u' ' + QString::number(info.st_mode, 8);
        if (S_ISLNK(info.st_mode))
            line += u" -> "_s +
                    QString::fromStdString(std::filesystem::read_symlink(entry.toStdString()).string());
        else if (S_ISREG(info.st_mode))
            line += u' ' + QString::fromLatin1(readFile(entry).toHex().right(200));
        result.append(line);
    }
    result.sort();
    return result;
}

QStringList namesIn(const QString &path) {
    return QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                QDir::Name);
}

void makeBundle(const QString &path, const BundleDescription &description) {
    QDir(path).removeRecursively();
    QVariantMap info{{u"CFBundleIdentifier"_s, description.identifier},
                     {u"CFBundleExecutable"_s, description.executable}};
    if (!description.build.isNull())
        info.insert(u"CFBundleVersion"_s, description.build);
    if (!description.displayVersion.isNull())
        info.insert(u"CFBundleShortVersionString"_s, description.displayVersion);
    if (!description.name.isNull())
        info.insert(u"CFBundleName"_s, description.name);
    writeFile(path + u"/Contents/Info.plist"_s, writePropertyList(info));
    constexpr auto executable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup |
                                QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
    writeFile(path + u"/Contents/Linux/"_s + description.executable, description.program, executable);
}

const char *suffixOf(ArchiveKind kind) {
    switch (kind) {
    case ArchiveKind::Zip:
        return ".zip";
    case ArchiveKind::Tgz:
        return ".tgz";
    case ArchiveKind::Tbz:
        return ".tbz";
    case ArchiveKind::Tzst:
        return ".tzst";
    default:
        return ".tar";
    }
}

void PrintTo(ArchiveKind kind, std::ostream *out) { *out << suffixOf(kind); }

void makeArchive(const QString &path, ArchiveKind kind, const QList<ArchiveEntry> &entries) {
    QDir().mkpath(QFileInfo(path).path());
    archive *writer = archive_write_new();
    if (kind == ArchiveKind::Zip) {
        archive_write_set_format_zip(writer);
    } else {
        archive_write_set_format_pax_restricted(writer);
        if (kind == ArchiveKind::Tgz)
            archive_write_add_filter_gzip(writer);
        else if (kind == ArchiveKind::Tbz)
            archive_write_add_filter_bzip2(writer);
        else if (kind == ArchiveKind::Tzst)
            archive_write_add_filter_zstd(writer);
    }
    ASSERT_EQ(archive_write_open_filename(writer, path.toUtf8().constData()), ARCHIVE_OK);
    for (const ArchiveEntry &entry : entries) {
        archive_entry *header = archive_entry_new();
        const QByteArray name = entry.rawName.isEmpty() ? entry.name.toUtf8() : entry.rawName;
        archive_entry_set_pathname(header, name.constData());
        archive_entry_set_perm(header, static_cast<mode_t>(entry.mode));
        archive_entry_set_mtime(header, 1700000000, 0);
        switch (entry.type) {
        case ArchiveEntry::File:
            archive_entry_set_filetype(header, AE_IFREG);
            archive_entry_set_size(header, entry.content.size());
            break;
        case ArchiveEntry::Directory:
            archive_entry_set_filetype(header, AE_IFDIR);
            break;
        case ArchiveEntry::SymbolicLink:
            archive_entry_set_filetype(header, AE_IFLNK);
            archive_entry_set_symlink(header, entry.content.constData());
            break;
        case ArchiveEntry::HardLink:
            archive_entry_set_filetype(header, AE_IFREG);
            archive_entry_set_hardlink(header, entry.content.constData());
            break;
        case ArchiveEntry::Fifo:
            archive_entry_set_filetype(header, AE_IFIFO);
            break;
        case ArchiveEntry::CharacterDevice:
            archive_entry_set_filetype(header, AE_IFCHR);
            archive_entry_set_rdevmajor(header, 1);
            archive_entry_set_rdevminor(header, 3);
            break;
        }
        ASSERT_GE(archive_write_header(writer, header), ARCHIVE_WARN) << archive_error_string(writer);
        if (entry.type == ArchiveEntry::File && !entry.content.isEmpty()) {
            ASSERT_EQ(archive_write_data(writer, entry.content.constData(), size_t(entry.content.size())),
                      entry.content.size());
        }
        archive_entry_free(header);
    }
    ASSERT_EQ(archive_write_close(writer), ARCHIVE_OK);
    archive_write_free(writer);
}

void makeArchiveOfZeros(const QString &path, const QByteArray &name, qint64 size) {
    const auto deflated = [](const QByteArray &data, int flush) {
        z_stream stream{};
        EXPECT_EQ(deflateInit2(&stream, 9, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY), Z_OK);
        QByteArray result(static_cast<qsizetype>(deflateBound(&stream, static_cast<uLong>(data.size()))) + 64,
                          0);
        stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.constData()));
        stream.avail_in = static_cast<uInt>(data.size());
        stream.next_out = reinterpret_cast<Bytef *>(result.data());
        stream.avail_out = static_cast<uInt>(result.size());
        (void)deflate(&stream, flush);
        result.resize(result.size() - static_cast<qsizetype>(stream.avail_out));
        deflateEnd(&stream);
        return result;
    };
    // A header in the GNU form, where large sizes are binary.
    QByteArray header(512, '\0');
    header.replace(0, name.size(), name);
    header.replace(100, 7, "0000644");
    header[124] = '\x80';
    for (int i = 0; i < 8; ++i)
        header[135 - i] = static_cast<char>(size >> (8 * i));
    header[156] = '0';
    header.replace(257, 8, QByteArray("ustar  \0", 8));
    header.replace(148, 8, "        ");
    int sum = 0;
    for (const char c : header)
        sum += static_cast<unsigned char>(c);
    header.replace(148, 8, QByteArray::number(sum, 8).rightJustified(6, '0') + QByteArray("\0 ", 2));
    constexpr qint64 step = 1 << 24;
    const QByteArray zeros(step, '\0');
    const QByteArray piece = deflated(zeros, Z_FULL_FLUSH);
    const qint64 pieces = size / step + 1; // the last one ends the archive, too
    uLong crc = crc32(0, reinterpret_cast<const Bytef *>(header.constData()), 512);
    const uLong pieceCrc = crc32(0, reinterpret_cast<const Bytef *>(zeros.constData()), step);
    QFile file(path);
    QDir().mkpath(QFileInfo(path).path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10) + deflated(header, Z_FULL_FLUSH));
    for (qint64 i = 0; i < pieces; ++i) {
        file.write(piece);
        crc = crc32_combine(crc, pieceCrc, step);
    }
    const quint64 total = static_cast<quint64>(pieces * step) + 512;
    file.write(deflated({}, Z_FINISH));
    for (int i = 0; i < 4; ++i)
        file.putChar(static_cast<char>(crc >> (8 * i)));
    for (int i = 0; i < 4; ++i)
        file.putChar(static_cast<char>(total >> (8 * i)));
}

QList<ArchiveEntry> entriesOf(const QString &folder) {
    const QString top = QFileInfo(folder).fileName();
    QList<ArchiveEntry> result{{top + u'/', ArchiveEntry::Directory, {}, 0755}};
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString name = top + path.mid(folder.size());
        struct stat info {};
        lstat(QFile::encodeName(path).constData(), &info);
        const int mode = static_cast<int>(info.st_mode & 07777);
        if (S_ISLNK(info.st_mode))
            result.append(
                {name, ArchiveEntry::SymbolicLink,
                 QByteArray::fromStdString(std::filesystem::read_symlink(path.toStdString()).string()),
                 0777});
        else if (S_ISDIR(info.st_mode))
            result.append({name + u'/', ArchiveEntry::Directory, {}, mode});
        else
            result.append({name, ArchiveEntry::File, readFile(path), mode});
    }
    return result;
}

} // namespace tx::test
