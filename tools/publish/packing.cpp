// SPDX-License-Identifier: MIT
#include "publish/packing.h"

#include "os/filesystem.h"
#include "os/services.h"
#include "posix/posixfiles.h"
#include "publish/faults.h"

#include <QFile>
#include <QLocale>

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <zstd.h>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

/// Sets a locale with UTF-8 and the time zone UTC as long as it exists.
class FixedSurroundings {
public:
    FixedSurroundings()
        : m_zone(qgetenv("TZ"))
        , m_hadZone(qEnvironmentVariableIsSet("TZ"))
        , m_locale(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr))
        , m_before(m_locale ? uselocale(m_locale) : nullptr) {
        qputenv("TZ", "UTC0");
        tzset();
    }
    ~FixedSurroundings() {
        if (m_hadZone)
            qputenv("TZ", m_zone);
        else
            qunsetenv("TZ");
        tzset();
        if (m_locale) {
            uselocale(m_before);
            freelocale(m_locale);
        }
    }
    Q_DISABLE_COPY_MOVE(FixedSurroundings)

private:
    const QByteArray m_zone;
    const bool m_hadZone;
    const locale_t m_locale;
    const locale_t m_before;
};

/// Writes the archive's bytes to the file.
struct Sink {
    std::unique_ptr<OutputFile> file;
    trust::DigestStream stream;
    TXError error;
    /// Compresses the bytes; null if the archive library has done that already. The archive library's own
    /// zstd compressor writes no checksum, so a changed byte might go unnoticed.
    std::unique_ptr<ZSTD_CCtx, size_t (*)(ZSTD_CCtx *)> zstd{nullptr, &ZSTD_freeCCtx};

    bool store(const void *bytes, size_t size) {
        error = file->write(QByteArrayView(static_cast<const char *>(bytes), qsizetype(size)));
        stream.add(bytes, size);
        return !error;
    }

    bool compress(const void *bytes, size_t size, ZSTD_EndDirective how) {
        ZSTD_inBuffer from{bytes, size, 0};
        QByteArray buffer(qsizetype(ZSTD_CStreamOutSize()), Qt::Uninitialized);
        for (;;) {
            ZSTD_outBuffer to{buffer.data(), size_t(buffer.size()), 0};
            const size_t left = ZSTD_compressStream2(zstd.get(), &to, &from, how);
            if (ZSTD_isError(left) != 0)
                error = TXError(TXPOSIXErrorDomain, ENOMEM, QString::fromUtf8(ZSTD_getErrorName(left)));
            if (error || (to.pos > 0 && !store(buffer.constData(), to.pos)))
                return false;
            if (how == ZSTD_e_end ? left == 0 : from.pos == from.size)
                return true;
        }
    }
};

la_ssize_t takeBytes(archive *writer, void *data, const void *bytes, size_t size) {
    Sink &sink = *static_cast<Sink *>(data);
    if (!(sink.zstd ? sink.compress(bytes, size, ZSTD_e_continue) : sink.store(bytes, size))) {
        archive_set_error(writer, EIO, "%s", "it cannot be written");
        return -1;
    }
    return la_ssize_t(size);
}

bool setUpCompressor(Sink &sink) {
    constexpr int level = 19;
    sink.zstd.reset(ZSTD_createCCtx());
    return sink.zstd &&
           ZSTD_isError(ZSTD_CCtx_setParameter(sink.zstd.get(), ZSTD_c_compressionLevel, level)) == 0 &&
           ZSTD_isError(ZSTD_CCtx_setParameter(sink.zstd.get(), ZSTD_c_checksumFlag, 1)) == 0;
}

using Writer = std::unique_ptr<archive, int (*)(archive *)>;
using Header = std::unique_ptr<archive_entry, void (*)(archive_entry *)>;

Fault writerFault(archive *writer) {
    const char *why = archive_error_string(writer);
    return {FaultKind::File, std::string("the application cannot be packed: ") + (why ? why : "no reason")};
}

bool setUp(archive *writer, ArchiveType type) {
    bool isGood = true;
    if (type == ArchiveType::Zip) {
        isGood =
            archive_write_set_format_zip(writer) == ARCHIVE_OK &&
            archive_write_set_options(writer, "zip:compression=deflate,zip:hdrcharset=UTF-8") == ARCHIVE_OK;
    } else {
        // The format stores names as bytes, independent of the locale.
        isGood = archive_write_set_format_gnutar(writer) == ARCHIVE_OK;
        if (type == ArchiveType::Tgz)
            isGood =
                isGood && archive_write_add_filter_gzip(writer) == ARCHIVE_OK &&
                archive_write_set_options(writer, "gzip:compression-level=9,gzip:!timestamp") == ARCHIVE_OK;
    }
    // No padding after the last block.
    return isGood && archive_write_set_bytes_in_last_block(writer, 1) == ARCHIVE_OK;
}

class Packing {
public:
    Packing(const Application &application, archive *writer, std::optional<qint64> newest, Progress &progress)
        : m_bundle(QFile::encodeName(application.path).toStdString())
        , m_top(QFile::encodeName(application.fileName).toStdString())
        , m_writer(writer)
        , m_newest(newest)
        , m_progress(progress) {}

    Verdict add(const BundleEntry &entry) {
        const Header header(archive_entry_new(), &archive_entry_free);
        archive_entry *to = header.get();
        archive_entry_set_pathname(to, (entry.name.empty() ? m_top : m_top + '/' + entry.name).c_str());
        archive_entry_set_uid(to, 0);
        archive_entry_set_gid(to, 0);
        const qint64 modified = std::max<qint64>(entry.modified, 0);
        archive_entry_set_mtime(to, time_t(m_newest ? std::min(modified, *m_newest) : modified), 0);
        constexpr mode_t everything = 0755;
        constexpr mode_t reading = 0644;
        archive_entry_set_perm(to, everything);
        switch (entry.kind) {
        case BundleEntry::Kind::Folder:
            archive_entry_set_filetype(to, AE_IFDIR);
            break;
        case BundleEntry::Kind::Link:
            archive_entry_set_filetype(to, AE_IFLNK);
            archive_entry_set_symlink(to, entry.target.c_str());
            break;
        case BundleEntry::Kind::File:
            archive_entry_set_filetype(to, AE_IFREG);
            archive_entry_set_size(to, entry.size);
            archive_entry_set_perm(to, entry.isExecutable ? everything : reading);
            break;
        }
        if (archive_write_header(m_writer, to) != ARCHIVE_OK)
            return writerFault(m_writer);
        return entry.kind == BundleEntry::Kind::File ? addContent(entry) : std::nullopt;
    }

private:
    Verdict addContent(const BundleEntry &entry) {
        const std::string path = m_bundle + '/' + entry.name;
        const posix::Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (!file.isOpen())
            return Fault{FaultKind::File, path + " cannot be read: " + std::strerror(errno)};
        qint64 sum = 0;
        for (;;) {
            const ssize_t count = read(file.get(), m_buffer.data(), size_t(m_buffer.size()));
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                return Fault{FaultKind::File, path + " cannot be read: " + std::strerror(errno)};
            sum += count;
            if (count == 0 || sum > entry.size)
                break;
            if (archive_write_data(m_writer, m_buffer.constData(), size_t(count)) != count)
                return writerFault(m_writer);
            m_progress.add(count);
        }
        if (sum != entry.size)
            return Fault{FaultKind::File, path + " was changed while it was packed: build, then publish"};
        return std::nullopt;
    }

    const std::string m_bundle;
    const std::string m_top;
    archive *m_writer;
    const std::optional<qint64> m_newest;
    Progress &m_progress;
    QByteArray m_buffer = QByteArray(1 << 18, Qt::Uninitialized);
};

std::string bytesText(qint64 size) {
    return QLocale::c().formattedDataSize(size, 1, QLocale::DataSizeIecFormat).toStdString();
}

QString archiveName(const Application &application, ArchiveType type) {
    QString name;
    const QString stem =
        application.fileName.endsWith(u".app"_s) ? application.fileName.chopped(4) : application.fileName;
    for (const QChar c : stem + u'-' + QString::fromStdString(application.info.build)) {
        const char16_t unit = c.unicode();
        const bool isPlain = unit < 128 && (c.isLetterOrNumber() || c == u'.' || c == u'_' || c == u'-');
        name += isPlain ? c : QChar(u'-');
    }
    return name + u'.' + suffixOf(type);
}

} // namespace

QString suffixOf(ArchiveType type) {
    switch (type) {
    case ArchiveType::Zip:
        return u"zip"_s;
    case ArchiveType::Tgz:
        return u"tgz"_s;
    case ArchiveType::Tzst:
        break;
    }
    return u"tzst"_s;
}

std::optional<ArchiveType> typeOfSuffix(const QString &suffix) {
    for (const ArchiveType type : {ArchiveType::Zip, ArchiveType::Tgz, ArchiveType::Tzst}) {
        if (suffixOf(type) == suffix)
            return type;
    }
    return std::nullopt;
}

Outcome<PackedArchive> packBundle(const Application &application, const std::vector<BundleEntry> &entries,
                                  ArchiveType type, const QString &folder, std::optional<qint64> newest,
                                  const PublishedLimits &limits, Progress &progress) {
    qint64 unpacked = 0;
    for (const BundleEntry &entry : entries)
        unpacked += entry.size;
    if (unpacked > limits.unpacked)
        return Fault{FaultKind::Input, "the application has " + bytesText(unpacked) +
                                           " of files, and installed versions unpack at most " +
                                           bytesText(limits.unpacked) +
                                           ". Make it smaller; if all of them were shipped with a higher "
                                           "limit, say so with --largest-unpacked"};
    PackedArchive result;
    result.type = type;
    result.name = archiveName(application, type);
    result.path = folder + u'/' + result.name;
    Sink sink;
    Result<std::unique_ptr<OutputFile>> file = services().fileSystem->create(result.path);
    if (!file)
        return Fault{FaultKind::File, file.error().localizedDescription().toStdString()};
    sink.file = std::move(*file);

    progress.begin(u"Packing "_s + result.name, unpacked);
    const FixedSurroundings surroundings;
    const Writer writer(archive_write_new(), &archive_write_free);
    if (!writer || !setUp(writer.get(), type))
        return writerFault(writer.get());
    const auto failed = [&sink](const Fault &fault) {
        return sink.error ? Fault{FaultKind::File, sink.error.localizedDescription().toStdString()} : fault;
    };
    if (type == ArchiveType::Tzst && !setUpCompressor(sink))
        return Fault{FaultKind::File, "the compressor cannot be set up: there is not enough memory"};
    if (archive_write_open(writer.get(), &sink, nullptr, takeBytes, nullptr) != ARCHIVE_OK)
        return failed(writerFault(writer.get()));
    Packing packing(application, writer.get(), newest, progress);
    for (const BundleEntry &entry : entries) {
        if (const Verdict fault = packing.add(entry))
            return failed(*fault);
    }
    if (archive_write_close(writer.get()) != ARCHIVE_OK)
        return failed(writerFault(writer.get()));
    if (sink.zstd && !sink.compress(nullptr, 0, ZSTD_e_end))
        return failed(writerFault(writer.get()));
    progress.end();
    // The upload keeps the file's mode, and the web server's user must be able to read it.
    QFile::setPermissions(result.path,
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    result.size = sink.stream.size();
    result.digest = sink.stream.digest();
    if (qint64(result.size) > limits.archive)
        return Fault{FaultKind::Input, result.name.toStdString() + " has " + bytesText(qint64(result.size)) +
                                           ", and installed versions download at most " +
                                           bytesText(limits.archive) +
                                           ". Make it smaller; if all of them were shipped with a higher "
                                           "limit, say so with --largest-archive"};
    return result;
}

} // namespace tx::publishing
