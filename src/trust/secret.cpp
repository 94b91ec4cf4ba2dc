// SPDX-License-Identifier: MIT
#include "trust/secret.h"

#include <sodium/core.h>
#include <sodium/utils.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <string>
#include <unistd.h>
#include <utility>

namespace tx::trust {

bool sodiumIsReady() {
    static const bool ready = sodium_init() >= 0;
    return ready;
}

Secret::Secret(size_t size)
    : m_bytes(sodiumIsReady() ? static_cast<unsigned char *>(sodium_malloc(std::max<size_t>(size, 1)))
                              : nullptr)
    , m_size(size) {
    if (!m_bytes)
        throw std::bad_alloc();
    std::memset(m_bytes, 0, size);
}

Secret::Secret(Secret &&other) noexcept
    : m_bytes(other.m_bytes)
    , m_size(other.m_size) {
    other.m_bytes = nullptr;
    other.m_size = 0;
}

Secret &Secret::operator=(Secret &&other) noexcept {
    std::swap(m_bytes, other.m_bytes);
    std::swap(m_size, other.m_size);
    return *this;
}

Secret::~Secret() { sodium_free(m_bytes); } // overwrites them

Secret Secret::of(std::string_view bytes) {
    Secret result(bytes.size());
    std::copy(bytes.begin(), bytes.end(), result.data());
    return result;
}

std::string_view Secret::view() const { return {reinterpret_cast<const char *>(m_bytes), m_size}; }

void Secret::shrink(size_t size) {
    sodium_memzero(m_bytes + size, m_size - size);
    m_size = size;
}

Outcome<Secret> readSecretFile(const char *path, size_t most) {
    const auto fault = [path](const std::string &why) {
        return Fault{FaultKind::File, std::string(path) + ": " + why};
    };
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return fault(std::strerror(errno));
    Secret content(most + 1);
    size_t size = 0;
    ssize_t count = 1;
    while (count > 0 && size <= most) {
        do {
            count = read(file, content.data() + size, content.size() - size);
        } while (count < 0 && errno == EINTR);
        if (count > 0)
            size += size_t(count);
    }
    const int error = errno;
    close(file);
    if (count < 0)
        return fault(std::strerror(error));
    if (size > most)
        return fault("a key file of at most " + std::to_string(most) +
                     " bytes was expected, this one is longer");
    content.shrink(size);
    return content;
}

} // namespace tx::trust
