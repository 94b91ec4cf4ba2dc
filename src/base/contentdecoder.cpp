// SPDX-License-Identifier: MIT
#include "base/contentdecoder.h"

#include <zlib.h>

namespace tx {

struct ContentDecoder::State {
    z_stream stream{};
    bool complete = false;
};

ContentDecoder::ContentDecoder()
    : m_state(std::make_unique<State>()) {
    constexpr int detectHeader = 32;
    inflateInit2(&m_state->stream, MAX_WBITS + detectHeader);
}

ContentDecoder::~ContentDecoder() { inflateEnd(&m_state->stream); }

std::unique_ptr<ContentDecoder> ContentDecoder::forCoding(const QByteArray &contentEncoding) {
    const QByteArray coding = contentEncoding.trimmed().toLower();
    if (coding != "gzip" && coding != "x-gzip" && coding != "deflate")
        return nullptr;
    return std::unique_ptr<ContentDecoder>(new ContentDecoder);
}

bool ContentDecoder::isComplete() const { return m_state->complete; }

bool ContentDecoder::decode(QByteArrayView data, const Sink &sink) {
    z_stream &stream = m_state->stream;
    QByteArray buffer(1 << 16, Qt::Uninitialized);
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    while (!m_state->complete) {
        stream.next_out = reinterpret_cast<Bytef *>(buffer.data());
        stream.avail_out = static_cast<uInt>(buffer.size());
        const int result = inflate(&stream, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
            return false;
        m_state->complete = result == Z_STREAM_END;
        const qsizetype produced = buffer.size() - static_cast<qsizetype>(stream.avail_out);
        if (produced > 0 && !sink(QByteArrayView(buffer.constData(), produced)))
            return false;
        if (result == Z_BUF_ERROR || (stream.avail_in == 0 && stream.avail_out > 0))
            break;
    }
    return true;
}

} // namespace tx
