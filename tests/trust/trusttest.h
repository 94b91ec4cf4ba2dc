// SPDX-License-Identifier: MIT
#pragma once

#include "trust/archives.h"
#include "trust/encoding.h"
#include "trust/feeds.h"
#include "trust/keyfiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tx::trust {

// For GoogleTest's messages.
inline void PrintTo(FeedFormat format, std::ostream *out) {
    *out << (format == FeedFormat::Json ? "JSON" : "XML");
}
inline void PrintTo(FaultKind kind, std::ostream *out) { *out << "fault " << int(kind); }

} // namespace tx::trust

namespace tx::test {

using trust::FaultKind;
using trust::PublicKeys;
using trust::SecretKey;

/// Keys that all tests of a process share: 0 and 1 are an application's, 2 is somebody else's.
inline const SecretKey &key(size_t number) {
    static const SecretKey keys[] = {SecretKey::generate(), SecretKey::generate(), SecretKey::generate()};
    return keys[number];
}

inline std::string keyText(const SecretKey &secret, const std::string &prefix = "minisign:") {
    return prefix + trust::keyLine(secret.publicKey());
}

inline std::string plainKeyText(const SecretKey &secret) {
    const trust::KeyBytes &bytes = secret.publicKey().bytes;
    return "plain:" + trust::base64(bytes.data(), bytes.size());
}

inline PublicKeys keysOf(const std::vector<std::string> &texts) {
    const auto keys = PublicKeys::parse(texts);
    EXPECT_TRUE(keys) << keys.fault().what;
    return keys ? *keys : PublicKeys();
}

/// The text that signs `bytes`.
inline std::string signText(const SecretKey &secret, const std::string &bytes, const std::string &comment) {
    return trust::makeSignatureText(secret, trust::digestOf(bytes), comment);
}

/// `text` with the first occurrence of `from` replaced.
inline std::string replaced(std::string text, const std::string &from, const std::string &to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from << " in " << text;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

template <typename T>
void expectFault(const trust::Outcome<T> &outcome, FaultKind kind, const std::string &part,
                 const std::string &what = {}) {
    ASSERT_FALSE(outcome) << what;
    EXPECT_EQ(outcome.fault().kind, kind) << what << ": " << outcome.fault().what;
    EXPECT_THAT(outcome.fault().what, testing::HasSubstr(part)) << what;
}

inline void expectFault(const trust::Verdict &verdict, FaultKind kind, const std::string &part,
                        const std::string &what = {}) {
    ASSERT_TRUE(verdict) << what;
    EXPECT_EQ(verdict->kind, kind) << what << ": " << verdict->what;
    EXPECT_THAT(verdict->what, testing::HasSubstr(part)) << what;
}

} // namespace tx::test
