// SPDX-License-Identifier: MIT
#pragma once

#include "trust/fault.h"

#include <cstddef>
#include <string_view>

namespace tx::trust {

/// True when libsodium can be used; sets it up at the first call.
[[nodiscard]] bool sodiumIsReady();

/// Secret bytes. They are kept out of swap and core files if the system permits it, and are overwritten on
/// destruction. They cannot be copied or printed.
class Secret {
public:
    /// Allocates `size` zero bytes. Ends the process if there is no memory, as `new` does.
    explicit Secret(size_t size);
    Secret(Secret &&other) noexcept;
    Secret &operator=(Secret &&other) noexcept;
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;
    ~Secret();

    /// Copies `bytes`; the caller's remain where they are.
    [[nodiscard]] static Secret of(std::string_view bytes);

    [[nodiscard]] unsigned char *data() { return m_bytes; }
    [[nodiscard]] const unsigned char *data() const { return m_bytes; }
    [[nodiscard]] size_t size() const { return m_size; }
    [[nodiscard]] std::string_view view() const;
    /// Forgets the bytes from `size` on.
    void shrink(size_t size);

private:
    unsigned char *m_bytes;
    size_t m_size;
};

/// The whole content of a small file. `most`: a longer file is refused. Fault: File.
Outcome<Secret> readSecretFile(const char *path, size_t most);

} // namespace tx::trust
