// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <functional>
#include <memory>

namespace tx {

/// Undoes a gzip or deflate content coding while the body streams by.
class ContentDecoder {
public:
    /// Returns null for any other coding.
    static std::unique_ptr<ContentDecoder> forCoding(const QByteArray &contentEncoding);
    ~ContentDecoder();

    using Sink = std::function<bool(QByteArrayView)>;
    /// Decodes `data` into `sink`, which answers false to stop. False when the data is damaged or the sink
    /// stopped.
    [[nodiscard]] bool decode(QByteArrayView data, const Sink &sink);
    /// True when the end of the coded data has been seen.
    [[nodiscard]] bool isComplete() const;

private:
    ContentDecoder();
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace tx
