// SPDX-License-Identifier: MIT
#include "trust/digest.h"

#include "trust/secret.h"

namespace tx::trust {

DigestStream::DigestStream() {
    // Without it the digest is the same, but slower: the choice of the processor's instructions is made
    // there.
    (void)sodiumIsReady();
    crypto_generichash_blake2b_init(&m_state, nullptr, 0, Digest().size());
}

void DigestStream::add(const void *bytes, size_t size) {
    crypto_generichash_blake2b_update(&m_state, static_cast<const unsigned char *>(bytes), size);
    m_size += size;
}

Digest DigestStream::digest() const {
    crypto_generichash_blake2b_state state = m_state; // finishing one ends it
    Digest result{};
    crypto_generichash_blake2b_final(&state, result.data(), result.size());
    return result;
}

Digest digestOf(std::string_view bytes) {
    DigestStream stream;
    stream.add(bytes.data(), bytes.size());
    return stream.digest();
}

} // namespace tx::trust
