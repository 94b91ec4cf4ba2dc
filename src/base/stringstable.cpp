// SPDX-License-Identifier: MIT
#include "base/stringstable.h"

#include "base/propertylist.h"

#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

class Reader {
public:
    explicit Reader(const QString &text)
        : m_text(text) {}

    Result<QHash<QString, QString>> read() {
        QHash<QString, QString> table;
        for (;;) {
            if (!skipBlanks())
                return failure(u"a comment does not end"_s);
            if (m_position >= m_text.size())
                return table;
            QString key;
            QString value;
            if (!word(key))
                return failure(u"a key was expected"_s);
            if (skipBlanks() && take(u'=')) {
                if (!skipBlanks() || !word(value))
                    return failure(u"a value was expected"_s);
            } else {
                value = key; // `"key";` is its own value
            }
            if (!skipBlanks() || !take(u';'))
                return failure(u"a semicolon was expected"_s);
            table.insert(key, value);
        }
    }

private:
    TXError failure(const QString &what) const {
        const auto line = m_text.left(m_position).count(u'\n') + 1;
        const QString reason = u"line %1: %2"_s.arg(line).arg(what);
        return TXError(u"TXUpdater"_s, 0, u"The strings table cannot be read: "_s + reason, reason);
    }

    bool at(QStringView token) const { return QStringView(m_text).mid(m_position).startsWith(token); }

    bool take(QChar c) {
        if (m_position >= m_text.size() || m_text[m_position] != c)
            return false;
        ++m_position;
        return true;
    }

    /// False when a comment does not end.
    bool skipBlanks() {
        for (;;) {
            while (m_position < m_text.size() && m_text[m_position].isSpace())
                ++m_position;
            QString end;
            if (at(u"/*"))
                end = u"*/"_s;
            else if (at(u"//"))
                end = u"\n"_s;
            else
                return true;
            const qsizetype close = m_text.indexOf(end, m_position + 2);
            if (close < 0) {
                m_position = m_text.size();
                return end == u"\n";
            }
            m_position = close + end.size();
        }
    }

    bool word(QString &result) {
        if (take(u'"'))
            return quoted(result);
        const qsizetype start = m_position;
        while (m_position < m_text.size() &&
               (m_text[m_position].isLetterOrNumber() || QStringView(u"_.$-").contains(m_text[m_position])))
            ++m_position;
        result = m_text.mid(start, m_position - start);
        return m_position > start;
    }

    bool quoted(QString &result) {
        while (m_position < m_text.size()) {
            const QChar c = m_text[m_position++];
            if (c == u'"')
                return true;
            if (c != u'\\') {
                result += c;
                continue;
            }
            if (m_position >= m_text.size())
                return false;
            const QChar escaped = m_text[m_position++];
            switch (escaped.unicode()) {
            case u'n':
                result += u'\n';
                break;
            case u't':
                result += u'\t';
                break;
            case u'r':
                result += u'\r';
                break;
            case u'U':
            case u'u': {
                bool ok = false;
                const ushort unit = m_text.mid(m_position, 4).toUShort(&ok, 16);
                if (!ok)
                    return false;
                result += QChar(unit);
                m_position += 4;
                break;
            }
            default:
                result += escaped;
            }
        }
        return false;
    }

    const QString m_text;
    qsizetype m_position = 0;
};

} // namespace

Result<QHash<QString, QString>> readStringsTable(const QByteArray &data) {
    if (data.startsWith("bplist") || data.trimmed().startsWith("<?xml")) {
        const Result<QVariant> list = readPropertyList(data);
        if (!list)
            return list.error();
        QHash<QString, QString> table;
        const QVariantMap members = list->toMap();
        for (auto it = members.begin(); it != members.end(); ++it)
            table.insert(it.key(), it.value().toString());
        return table;
    }
    const auto encoding = QStringConverter::encodingForData(data);
    QStringDecoder decoder(encoding.value_or(QStringConverter::Utf8));
    return Reader(decoder.decode(data)).read();
}

} // namespace tx
