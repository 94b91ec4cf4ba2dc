// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <utility>

/// Who signed what: keys, signatures, archives and feeds. No Qt, so that the host and the installer that runs
/// as root verify with the same code. Thread: any, unless a header says otherwise. No global state but
/// libsodium's own, which is set up at the first use: a host without keys runs none of it.
namespace tx::trust {

enum class FaultKind {
    Keys,       ///< the keys of the application, or a key file, are malformed
    Signature,  ///< a signature is malformed, or of a form that is not accepted
    Unsigned,   ///< none of the keys has signed
    Forged,     ///< a signature by one of the keys does not verify
    Mismatch,   ///< the signed thing is not the wanted one
    FeedLine,   ///< the first line of a feed is not what a signature must look like, or the feed is not UTF-8
    Input,      ///< what was to be signed, or an option, is not possible
    Passphrase, ///< a secret key's passphrase is missing or wrong
    File        ///< the system could not read, copy or write a file, or has no memory
};

/// Why something is refused.
struct Fault {
    FaultKind kind;
    std::string what; ///< for people, in English: what was expected, what was found, where, and what to do
};

/// A value, or the reason why there is none.
template <typename T>
class [[nodiscard]] Outcome {
public:
    Outcome(T value)
        : m_value(std::move(value)) {}
    Outcome(Fault fault)
        : m_fault(std::move(fault)) {}

    explicit operator bool() const { return m_value.has_value(); }
    const T &operator*() const & { return *m_value; }
    T &operator*() & { return *m_value; }
    T &&operator*() && { return std::move(*m_value); }
    const T *operator->() const { return &*m_value; }
    T *operator->() { return &*m_value; }
    /// Call this only if there is no value.
    [[nodiscard]] const Fault &fault() const { return m_fault; }

private:
    std::optional<T> m_value;
    Fault m_fault{FaultKind::Input, {}};
};

/// Absent when all is well.
using Verdict = std::optional<Fault>;

} // namespace tx::trust
