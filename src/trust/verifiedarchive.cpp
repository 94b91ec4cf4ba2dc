// SPDX-License-Identifier: MIT
#include "trust/verifiedarchive.h"

#include "trust/encoding.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tx::trust {

namespace {

Fault fileFault(const std::string &what) {
    return {FaultKind::File, "the archive cannot be " + what + ": " + std::strerror(errno)};
}

class OpenFile {
public:
    explicit OpenFile(int fd)
        : m_fd(fd) {}
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;
    ~OpenFile() {
        if (m_fd >= 0)
            close(m_fd);
    }
    [[nodiscard]] int get() const { return m_fd; }

private:
    int m_fd;
};

bool writeAll(PrivateFiles &files, int file, const char *bytes, size_t size) {
    while (size > 0) {
        const ssize_t written = files.write(file, bytes, size);
        if (written <= 0) {
            errno = written == 0 ? EIO : errno;
            return false;
        }
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

/// Copies at most one byte more than `expected`, which is enough to tell that there is more.
Verdict copy(PrivateFiles &files, int source, int target, uint64_t expected, DigestStream &stream) {
    std::vector<char> buffer(256 << 10);
    while (stream.size() <= expected) {
        const uint64_t left = expected - stream.size();
        const size_t most = left < buffer.size() ? static_cast<size_t>(left) + 1 : buffer.size();
        const ssize_t count = files.read(source, buffer.data(), most);
        if (count < 0)
            return fileFault("read");
        if (count == 0)
            break;
        // What is hashed is what is written: nobody else can reach the buffer or the copy.
        stream.add(buffer.data(), static_cast<size_t>(count));
        if (!writeAll(files, target, buffer.data(), static_cast<size_t>(count)))
            return fileFault("copied before it is verified");
    }
    return std::nullopt;
}

} // namespace

VerifiedArchive::VerifiedArchive(ArchiveProof proof, ArchiveSignatures signatures, WantedArchive wanted,
                                 int descriptor)
    : m_proof(std::move(proof))
    , m_signatures(std::move(signatures))
    , m_wanted(std::move(wanted))
    , m_descriptor(descriptor) {}

VerifiedArchive::VerifiedArchive(VerifiedArchive &&other) noexcept
    : m_proof(std::move(other.m_proof))
    , m_signatures(std::move(other.m_signatures))
    , m_wanted(std::move(other.m_wanted))
    , m_stream(other.m_stream)
    , m_descriptor(std::exchange(other.m_descriptor, -1)) {}

VerifiedArchive &VerifiedArchive::operator=(VerifiedArchive &&other) noexcept {
    m_proof = std::move(other.m_proof);
    m_signatures = std::move(other.m_signatures);
    m_wanted = std::move(other.m_wanted);
    m_stream = other.m_stream;
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
}

VerifiedArchive::~VerifiedArchive() {
    if (m_descriptor >= 0)
        close(m_descriptor);
}

Outcome<VerifiedArchive> VerifiedArchive::make(const PublicKeys &keys, const ArchiveSignatures &signatures,
                                               const WantedArchive &wanted, int source, int folder,
                                               PrivateFiles &files) {
    Outcome<ArchiveProof> proof = ArchiveProof::find(keys, signatures, wanted);
    if (!proof)
        return proof.fault();
    (void)lseek(source, 0, SEEK_SET); // a pipe begins where it is
    const OpenFile target(files.create(folder));
    if (target.get() < 0)
        return fileFault("copied before it is verified");
    DigestStream stream;
    if (const Verdict failed = copy(files, source, target.get(), proof->size(), stream))
        return *failed;
    const int reader = files.reopenForReading(target.get());
    if (reader < 0)
        return fileFault("read after it was copied");
    VerifiedArchive archive(*std::move(proof), signatures, wanted, reader);
    archive.m_stream = stream;
    if (const Verdict refused = archive.m_proof.check(stream))
        return *refused;
    if (const Verdict refused = archive.checkMapped(archive.m_proof))
        return *refused;
    return archive;
}

Verdict VerifiedArchive::checkMapped(const ArchiveProof &proof) const {
    if (!proof.needsBytes())
        return std::nullopt;
    if (proof.size() > std::numeric_limits<size_t>::max())
        return Fault{FaultKind::File, "the archive is too large for this machine's memory"};
    const auto size = static_cast<size_t>(proof.size());
    void *bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, m_descriptor, 0);
    if (bytes == MAP_FAILED)
        return fileFault("mapped");
    const Verdict result = proof.checkBytes(static_cast<const unsigned char *>(bytes), size);
    munmap(bytes, size);
    return result;
}

Verdict VerifiedArchive::checkUnpacked(const std::string &bundle, const std::string &build,
                                       const PublicKeys *own) const {
    const std::optional<std::string> expected = claim() ? std::optional(claim()->build) : m_wanted.build;
    if (bundle != m_wanted.bundle)
        return Fault{FaultKind::Mismatch, "the archive holds the application \"" + shown(bundle) +
                                              "\", expected was \"" + shown(m_wanted.bundle) + "\""};
    if (expected && build != *expected)
        return Fault{FaultKind::Mismatch, "the archive holds build \"" + shown(build) +
                                              "\", expected was \"" + shown(*expected) + "\""};
    if (!own)
        return Fault{
            FaultKind::Keys,
            "the application in the archive has no usable keys of its own, so it could never be updated"};
    // Of the claim of its own keys' signatures, too: they may be other texts than those that were verified.
    const Outcome<ArchiveProof> proof = ArchiveProof::find(*own, m_signatures, m_wanted);
    if (!proof)
        return Fault{
            proof.fault().kind,
            "the keys of the application in the archive do not verify it, so it could never be updated: " +
                proof.fault().what};
    if (proof->claim() && claim() && *proof->claim() != *claim())
        return Fault{FaultKind::Mismatch, "the signatures of the archive do not say the same of it"};
    if (proof->claim() && proof->claim()->build != build)
        return Fault{FaultKind::Mismatch, "the signatures of the archive are for build \"" +
                                              shown(proof->claim()->build) + "\", not for \"" + shown(build) +
                                              "\""};
    if (const Verdict refused = proof->check(m_stream))
        return *refused;
    return checkMapped(*proof);
}

} // namespace tx::trust
