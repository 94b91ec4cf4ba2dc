// SPDX-License-Identifier: MIT
#include "bundle/elffile.h"

#include "bundle/problem.h"

#include <QFile>
#include <QVersionNumber>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gelf.h>
#include <memory>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::bundling {

namespace {

struct CloseElf {
    void operator()(Elf *elf) const { elf_end(elf); }
};

/// An open file and its libelf handle. The handle is closed first.
class OpenElf {
public:
    explicit OpenElf(const QString &path)
        : m_file(open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC)) {
        elf_version(EV_CURRENT);
        if (m_file >= 0)
            m_elf.reset(elf_begin(m_file, ELF_C_READ, nullptr));
    }
    ~OpenElf() {
        m_elf.reset();
        if (m_file >= 0)
            close(m_file);
    }
    Q_DISABLE_COPY_MOVE(OpenElf)

    [[nodiscard]] bool isOpen() const { return m_file >= 0; }
    [[nodiscard]] Elf *elf() const { return m_elf.get(); }
    [[nodiscard]] bool isElf() const { return m_elf && elf_kind(m_elf.get()) == ELF_K_ELF; }

private:
    int m_file;
    std::unique_ptr<Elf, CloseElf> m_elf;
};

TXError damaged(const QString &path) {
    const char *why = elf_errmsg(-1);
    return problem(u"%1 is damaged"_s.arg(path),
                   why ? QString::fromUtf8(why) : u"a part of it cannot be read"_s);
}

QString textAt(Elf *elf, size_t section, size_t offset) {
    const char *text = elf_strptr(elf, section, offset);
    return text ? QString::fromUtf8(text) : QString();
}

QStringList foldersIn(const QString &list) { return list.split(u':', Qt::SkipEmptyParts); }

/// Reads the entries of the dynamic section; false if one cannot be read.
bool readDynamic(Elf *elf, Elf_Scn *section, const GElf_Shdr &header, ElfFile &file) {
    Elf_Data *data = elf_getdata(section, nullptr);
    if (!data || header.sh_entsize == 0)
        return false;
    QString inherited;
    const int count = static_cast<int>(header.sh_size / header.sh_entsize);
    for (int i = 0; i < count; ++i) {
        GElf_Dyn entry{};
        if (!gelf_getdyn(data, i, &entry))
            return false;
        if (entry.d_tag == DT_NULL)
            break;
        const auto text = [&] { return textAt(elf, header.sh_link, entry.d_un.d_val); };
        if (entry.d_tag == DT_NEEDED) {
            file.needed << text();
            if (file.needed.constLast().isEmpty())
                return false;
        } else if (entry.d_tag == DT_SONAME) {
            file.soname = text();
        } else if (entry.d_tag == DT_RUNPATH) {
            file.runPath = foldersIn(text());
        } else if (entry.d_tag == DT_RPATH) {
            inherited = text();
        }
    }
    if (file.runPath.isEmpty())
        file.inheritedRunPath = foldersIn(inherited);
    return true;
}

/// Notes a version such as "GLIBC_2.34". Ignores names without a number, such as "GLIBC_PRIVATE".
void noteVersion(const QString &version, ElfFile &file) {
    const qsizetype line = version.indexOf(u'_');
    const QString name = version.left(line);
    if (line < 0 || (name != u"GLIBC" && name != u"GLIBCXX"))
        return;
    QString number = version.mid(line + 1);
    if (number == u"ABI_DT_RELR") // a marker for loaders that support this kind of relocation
        number = u"2.36"_s;
    const QVersionNumber parsed = QVersionNumber::fromString(number);
    if (!parsed.isNull() && parsed > QVersionNumber::fromString(file.newestVersions.value(name)))
        file.newestVersions[name] = number;
}

bool readNeededVersions(Elf *elf, Elf_Scn *section, const GElf_Shdr &header, ElfFile &file) {
    Elf_Data *data = elf_getdata(section, nullptr);
    if (!data)
        return false;
    size_t at = 0;
    for (GElf_Word library = 0; library < header.sh_info; ++library) {
        GElf_Verneed need{};
        if (at > INT_MAX || !gelf_getverneed(data, static_cast<int>(at), &need))
            return false;
        size_t inner = at + need.vn_aux;
        for (GElf_Half i = 0; i < need.vn_cnt; ++i) {
            GElf_Vernaux version{};
            if (inner > INT_MAX || !gelf_getvernaux(data, static_cast<int>(inner), &version))
                return false;
            noteVersion(textAt(elf, header.sh_link, version.vna_name), file);
            if (version.vna_next == 0)
                break;
            inner += version.vna_next;
        }
        if (need.vn_next == 0)
            break;
        at += need.vn_next;
    }
    return true;
}

bool readInterpreter(Elf *elf, ElfFile &file) {
    size_t count = 0;
    if (elf_getphdrnum(elf, &count) != 0)
        return false;
    for (size_t i = 0; i < count; ++i) {
        GElf_Phdr header{};
        if (!gelf_getphdr(elf, static_cast<int>(i), &header))
            return false;
        if (header.p_type == PT_DYNAMIC)
            file.isDynamic = true;
        if (header.p_type != PT_INTERP)
            continue;
        Elf_Data *data =
            elf_getdata_rawchunk(elf, static_cast<off_t>(header.p_offset), header.p_filesz, ELF_T_BYTE);
        if (!data || !data->d_buf)
            return false;
        const auto *text = static_cast<const char *>(data->d_buf);
        file.interpreter = QString::fromUtf8(text, static_cast<qsizetype>(strnlen(text, data->d_size)));
    }
    return true;
}

/// Calls `use` for each section. Returns false if `use` returns false or a section header cannot be read.
template <typename Use>
bool forEachSection(Elf *elf, Use use) {
    for (Elf_Scn *section = nullptr; (section = elf_nextscn(elf, section));) {
        GElf_Shdr header{};
        if (!gelf_getshdr(section, &header) || !use(section, header))
            return false;
    }
    return true;
}

TXError cannotRead(const QString &path) {
    return problem(u"%1 cannot be read"_s.arg(path), QString::fromUtf8(std::strerror(errno)));
}

} // namespace

bool ElfFile::isForSameMachineAs(const ElfFile &other) const {
    return machine == other.machine && fileClass == other.fileClass && byteOrder == other.byteOrder;
}

QString ElfFile::machineName() const {
    switch (machine) {
    case EM_X86_64:
        return fileClass == ELFCLASS64 ? u"x86-64"_s : u"x32"_s;
    case EM_386:
        return u"i386"_s;
    case EM_AARCH64:
        return u"aarch64"_s;
    case EM_ARM:
        return u"arm"_s;
    case EM_RISCV:
        return u"riscv"_s;
    case EM_PPC64:
        return u"ppc64"_s;
    default:
        return u"ELF machine %1"_s.arg(machine);
    }
}

Result<std::optional<ElfFile>> readElf(const QString &path) {
    const OpenElf open(path);
    if (!open.isOpen())
        return cannotRead(path);
    if (!open.isElf())
        return std::optional<ElfFile>();
    GElf_Ehdr header{};
    if (!gelf_getehdr(open.elf(), &header))
        return damaged(path);
    if (header.e_type != ET_EXEC && header.e_type != ET_DYN)
        return std::optional<ElfFile>(); // object files are treated as data
    ElfFile file;
    file.path = path;
    file.machine = header.e_machine;
    file.fileClass = header.e_ident[EI_CLASS];
    file.byteOrder = header.e_ident[EI_DATA];
    size_t names = 0;
    bool hasDynamicSection = false;
    const bool isWhole = readInterpreter(open.elf(), file) && elf_getshdrstrndx(open.elf(), &names) == 0 &&
                         forEachSection(open.elf(), [&](Elf_Scn *section, const GElf_Shdr &sectionHeader) {
                             const QString name = textAt(open.elf(), names, sectionHeader.sh_name);
                             if (sectionHeader.sh_type == SHT_SYMTAB || name.startsWith(u".debug_") ||
                                 name.startsWith(u".zdebug_"))
                                 file.hasDebugSections = true;
                             if (sectionHeader.sh_type == SHT_DYNAMIC) {
                                 hasDynamicSection = true;
                                 return readDynamic(open.elf(), section, sectionHeader, file);
                             }
                             if (sectionHeader.sh_type == SHT_GNU_verneed)
                                 return readNeededVersions(open.elf(), section, sectionHeader, file);
                             return true;
                         });
    // A file without section headers does not tell what it needs.
    if (!isWhole || file.isDynamic != hasDynamicSection)
        return damaged(path);
    return std::optional(file);
}

Result<QStringList> loadedStringsWith(const QString &path, const QByteArrayList &parts) {
    const OpenElf open(path);
    if (!open.isOpen())
        return cannotRead(path);
    QStringList found;
    if (!open.isElf())
        return found;
    const bool isWhole = forEachSection(open.elf(), [&](Elf_Scn *section, const GElf_Shdr &header) {
        if (!(header.sh_flags & SHF_ALLOC) || header.sh_type == SHT_NOBITS || header.sh_type == SHT_DYNAMIC)
            return true;
        const Elf_Data *data = elf_rawdata(section, nullptr);
        if (!data)
            return false;
        const QByteArrayView bytes(static_cast<const char *>(data->d_buf),
                                   static_cast<qsizetype>(data->d_size));
        for (const QByteArray &part : parts) {
            for (qsizetype at = 0; !part.isEmpty() && (at = bytes.indexOf(part, at)) >= 0;
                 at += part.size()) {
                qsizetype start = at;
                while (start > 0 && at - start < 200 && uchar(bytes[start - 1]) >= ' ')
                    --start;
                qsizetype end = at;
                while (end < bytes.size() && end - at < 200 && uchar(bytes[end]) >= ' ')
                    ++end;
                const QString text = QString::fromUtf8(bytes.sliced(start, end - start));
                if (!found.contains(text) && found.size() < 20)
                    found << text;
            }
        }
        return true;
    });
    if (!isWhole)
        return damaged(path);
    return found;
}

} // namespace tx::bundling
