// SPDX-License-Identifier: MIT
#include "platform/binarypropertylist.h"

#include <optional>

namespace tx {

namespace {

/// The document as its trailer describes it: a table of offsets, one for each object.
class Objects {
public:
    explicit Objects(QByteArrayView data)
        : m_data(data) {
        constexpr qsizetype trailer = 32;
        if (data.size() < trailer || !data.startsWith("bplist"))
            return;
        const qsizetype start = data.size() - trailer;
        m_offsetSize = static_cast<unsigned char>(data[start + 6]);
        m_count = number(start + 8, 8).value_or(0);
        m_table = number(start + 24, 8).value_or(0);
    }

    [[nodiscard]] quint64 count() const {
        // No more than the table has room for.
        return m_offsetSize == 0 || m_table >= size() ? 0
                                                      : std::min(m_count, (size() - m_table) / m_offsetSize);
    }

    /// The bytes of a text and of how many each character is made; none for another kind of object.
    struct Text {
        QByteArrayView bytes;
        qsizetype unit;
    };
    [[nodiscard]] std::optional<Text> textAt(quint64 index) const {
        const auto offset = number(static_cast<qsizetype>(m_table + index * m_offsetSize), m_offsetSize);
        if (!offset || *offset >= size())
            return std::nullopt;
        const auto marker = static_cast<unsigned char>(m_data[static_cast<qsizetype>(*offset)]);
        constexpr unsigned char ascii = 0x5;
        constexpr unsigned char utf16 = 0x6;
        const unsigned char kind = marker >> 4;
        if (kind != ascii && kind != utf16)
            return std::nullopt;
        quint64 begin = *offset + 1;
        quint64 length = marker & 0xF;
        constexpr quint64 lengthFollows = 0xF;
        if (length == lengthFollows) {
            // An integer object: its marker says of how many bytes, 2 to the power of its low digit.
            const auto width = number(static_cast<qsizetype>(begin), 1);
            const qsizetype bytes = width ? qsizetype(1) << (*width & 0x3) : 0;
            length = number(static_cast<qsizetype>(begin + 1), bytes).value_or(0);
            begin += 1 + static_cast<quint64>(bytes);
        }
        const qsizetype unit = kind == utf16 ? 2 : 1;
        if (begin > size())
            return std::nullopt;
        const quint64 available = (size() - begin) / static_cast<quint64>(unit);
        return Text{m_data.sliced(static_cast<qsizetype>(begin),
                                  static_cast<qsizetype>(std::min(length, available)) * unit),
                    unit};
    }

private:
    [[nodiscard]] quint64 size() const { return static_cast<quint64>(m_data.size()); }

    /// Big-endian; absent beyond the end of the document or 64 bits.
    [[nodiscard]] std::optional<quint64> number(qsizetype offset, qsizetype bytes) const {
        if (offset < 0 || bytes < 1 || bytes > 8 || offset > m_data.size() - bytes)
            return std::nullopt;
        quint64 value = 0;
        for (qsizetype i = 0; i < bytes; ++i)
            value = value << 8 | static_cast<unsigned char>(m_data[offset + i]);
        return value;
    }

    QByteArrayView m_data;
    unsigned char m_offsetSize = 0;
    quint64 m_count = 0;
    quint64 m_table = 0;
};

} // namespace

bool holdsNulCharacter(QByteArrayView binaryPropertyList) {
    const Objects objects(binaryPropertyList);
    for (quint64 i = 0; i < objects.count(); ++i) {
        const auto text = objects.textAt(i);
        if (!text)
            continue;
        for (qsizetype at = 0; at + text->unit <= text->bytes.size(); at += text->unit) {
            if (text->bytes[at] == '\0' && text->bytes[at + text->unit - 1] == '\0')
                return true;
        }
    }
    return false;
}

} // namespace tx
