// SPDX-License-Identifier: MIT
#pragma once

#include <sodium/crypto_generichash_blake2b.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tx::trust {

/// BLAKE2b-512, the digest that signatures sign.
using Digest = std::array<unsigned char, 64>;

/// The digest and the size of bytes that come in pieces, such as a download. Copies go on by themselves.
/// Thread: any, one at a time.
class DigestStream {
public:
    DigestStream();
    void add(const void *bytes, size_t size);
    /// Of all that has come so far; more may come.
    [[nodiscard]] Digest digest() const;
    /// Bytes that have come.
    [[nodiscard]] uint64_t size() const { return m_size; }

private:
    crypto_generichash_blake2b_state m_state;
    uint64_t m_size = 0;
};

[[nodiscard]] Digest digestOf(std::string_view bytes);

} // namespace tx::trust
