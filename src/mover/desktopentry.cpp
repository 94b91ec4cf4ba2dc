// SPDX-License-Identifier: MIT
#include "mover/desktopentry.h"

#include <QRegularExpression>
#include <QSet>
#include <QStringDecoder>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

bool isControl(QChar c) { return c.unicode() < 0x20 || c.unicode() == 0x7f; }

bool hasControl(const QString &text) { return std::any_of(text.begin(), text.end(), isControl); }

/// A value of the type "string". Line breaks and tabs become escapes; other control characters are left out.
QString escaped(const QString &text) {
    QString result;
    for (const QChar c : text) {
        if (c == u'\\')
            result += u"\\\\"_s;
        else if (c == u'\n')
            result += u"\\n"_s;
        else if (c == u'\r')
            result += u"\\r"_s;
        else if (c == u'\t')
            result += u"\\t"_s;
        else if (c == u' ' && result.isEmpty())
            result += u"\\s"_s; // readers skip spaces around a value
        else if (!isControl(c))
            result += c;
    }
    if (result.endsWith(u' '))
        result.replace(result.size() - 1, 1, u"\\s"_s);
    return result;
}

QString unescaped(const QString &value) {
    QString result;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] != u'\\' || i + 1 == value.size()) {
            result += value[i];
            continue;
        }
        const QChar next = value[++i];
        if (next == u's')
            result += u' ';
        else if (next == u'n')
            result += u'\n';
        else if (next == u't')
            result += u'\t';
        else if (next == u'r')
            result += u'\r';
        else if (next == u'\\')
            result += next;
        else
            result += value.mid(i - 1, 2);
    }
    return result;
}

/// The parts of a list, each ended by ";".
QStringList partsOf(const QString &value) {
    QStringList result;
    QString part;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == u'\\' && i + 1 < value.size()) {
            part += value[i + 1] == u';' ? QString(u';') : unescaped(value.mid(i, 2));
            ++i;
        } else if (value[i] == u';') {
            result << std::exchange(part, {});
        } else {
            part += value[i];
        }
    }
    return part.isEmpty() ? result : result << part;
}

QString listOf(const QStringList &parts) {
    QString result;
    for (const QString &part : parts)
        result += escaped(part).replace(u';', u"\\;"_s) + u';';
    return result;
}

/// A word of a command line: in double quotes, and "%" is doubled, because it begins a field code.
QString quoted(const QString &word) {
    QString result;
    for (const QChar c : word) {
        if (u"\"`$\\"_s.contains(c))
            result += u'\\';
        result += c;
    }
    return u'"' + result.replace(u'%', u"%%"_s) + u'"';
}

/// Takes the first word off a command line and returns it without quotes. Null if the word is not quoted as
/// it must be.
QString takeWord(QString &line) {
    line = line.trimmed();
    if (!line.startsWith(u'"')) {
        const QString word = line.section(u' ', 0, 0);
        // The standard reserves these characters for words in quotes.
        if (std::any_of(word.begin(), word.end(),
                        [](QChar c) { return u"\"'\\<>~|&;$*?#()`"_s.contains(c); }))
            return {};
        line = line.mid(word.size()).trimmed();
        return word;
    }
    QString word = u""_s;
    for (qsizetype i = 1; i < line.size(); ++i) {
        if (line[i] == u'"') {
            line = line.mid(i + 1).trimmed();
            return word;
        }
        if (line[i] == u'\\' && i + 1 < line.size())
            ++i;
        word += line[i];
    }
    return {};
}

/// Whether each word in the rest of a command line is quoted as it must be.
bool isWellQuoted(QString line) {
    while (!line.isEmpty()) {
        if (takeWord(line).isNull())
            return false;
    }
    return true;
}

/// The command line of an entry. Of the bundle's own command line only the arguments are used, because its
/// program was named for another machine.
QString commandLine(const QString &executable, const QString &ownLine) {
    QString rest = unescaped(ownLine);
    const QString program = takeWord(rest);
    // "env NAME=value program" and the like: only the kind of the arguments is known.
    if (program.section(u'/', -1) != executable.section(u'/', -1)) {
        static const QRegularExpression fieldCode(u"(?:^|\\s)(%[fFuU])(?:\\s|$)"_s);
        rest = fieldCode.match(rest).captured(1);
    }
    if (hasControl(rest) || !isWellQuoted(rest))
        rest.clear();
    // GLib looks for the first word before it replaces "%%" by "%", and hides the entry if it finds nothing.
    const QString prefix = executable.contains(u'%') ? u"/usr/bin/env "_s : QString();
    return escaped(prefix + quoted(executable) + (rest.isEmpty() ? QString() : u' ' + rest));
}

struct Line {
    QString key;
    QString value; ///< with escapes
};
struct Group {
    QString name;
    QList<Line> lines;
};

/// Reads an entry. Lines that are neither a group nor a key with a value are left out.
QList<Group> groupsOf(const QByteArray &entry) {
    static const QRegularExpression keyAndValue(
        u"^([A-Za-z0-9-]+(?:\\[[A-Za-z0-9_.@-]+\\])?)[ \\t]*=[ \\t]*(.*)$"_s);
    QList<Group> groups;
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(entry);
    if (decoder.hasError() || entry.size() > largestEntry || text.contains(QChar(0)))
        return {};
    QSet<QString> keys;
    for (QString line : text.split(u'\n')) {
        line = line.trimmed();
        if (line.startsWith(u'[') && line.endsWith(u']')) {
            groups.append(Group{line.mid(1, line.size() - 2), {}});
            keys.clear();
            continue;
        }
        const auto match = keyAndValue.match(line);
        if (groups.isEmpty() || !match.hasMatch() || hasControl(line) || keys.contains(match.captured(1)))
            continue;
        keys.insert(match.captured(1));
        groups.last().lines.append(Line{match.captured(1), match.captured(2)});
    }
    return groups;
}

const QString mainGroup = u"Desktop Entry"_s;

/// The value of a key with its escapes; null if it is not there.
QString rawValue(const QList<Line> &lines, const QString &key) {
    for (const Line &line : lines) {
        if (line.key == key)
            return line.value.isNull() ? u""_s : line.value;
    }
    return {};
}

/// Keys that are not taken from the bundle's own entry: those that are written anew, and those that are only
/// right where the publisher's package is installed.
bool isReplaced(const QString &key) {
    static const QStringList replaced{u"Exec"_s, u"TryExec"_s, u"Icon"_s, u"Path"_s, u"DBusActivatable"_s,
                                      u"URL"_s,  u"Hidden"_s,  u"Type"_s};
    return replaced.contains(key.section(u'[', 0, 0)) || key.startsWith(u"X-TarvixUpdate-");
}

QString textOf(const QString &group, const QList<Line> &lines) {
    QString text = u'[' + group + u"]\n"_s;
    for (const Line &line : lines)
        text += line.key + u'=' + line.value + u'\n';
    return text;
}

} // namespace

bool isMimeType(const QString &text) {
    static const QRegularExpression form(
        u"^[A-Za-z0-9][A-Za-z0-9!#$&^_.+-]{0,126}/[A-Za-z0-9][A-Za-z0-9!#$&^_.+-]{0,126}$"_s);
    return form.match(text).hasMatch() && !text.endsWith(u'\n');
}

QString reasonAgainstExecutable(const QString &path) {
    if (!path.startsWith(u'/'))
        return u"the application has no executable"_s;
    if (hasControl(path))
        return u"the path of the executable contains control characters"_s;
    if (path.contains(u'='))
        return u"the path of the executable contains \"=\", which menu entries cannot express"_s;
    return {};
}

QByteArray desktopEntryOf(const EntryFacts &facts, const QByteArray &own) {
    const QList<Group> groups = groupsOf(own);
    const QList<Line> kept = groups.isEmpty() ? QList<Line>() : groups.constFirst().lines;
    if (!own.isEmpty() &&
        (groups.isEmpty() || groups.constFirst().name != mainGroup ||
         rawValue(kept, u"Type"_s) != u"Application" || rawValue(kept, u"Name"_s).isEmpty()))
        return {};
    QList<Line> lines{{u"Type"_s, u"Application"_s}};
    for (const Line &line : kept) {
        if (!isReplaced(line.key))
            lines.append(line);
    }
    if (own.isEmpty())
        lines += QList<Line>(
            {{u"Version"_s, u"1.0"_s}, {u"Name"_s, escaped(facts.name)}, {u"Terminal"_s, u"false"_s}});
    QString ownCommand = rawValue(kept, u"Exec"_s);
    if (own.isEmpty() && !facts.mimeTypes.isEmpty())
        ownCommand = facts.executable.section(u'/', -1).remove(u' ') + u" %F"_s;
    lines.append(Line{u"Exec"_s, commandLine(facts.executable, ownCommand)});
    lines.append(Line{u"TryExec"_s, escaped(facts.executable)});
    if (!facts.icon.isEmpty())
        lines.append(Line{u"Icon"_s, escaped(facts.icon)});
    if (rawValue(kept, u"MimeType"_s).isEmpty() && !facts.mimeTypes.isEmpty())
        lines.append(Line{u"MimeType"_s, listOf(facts.mimeTypes)});
    lines.append(Line{entryBundleKey, escaped(facts.bundlePath)});
    lines.append(Line{entryFilesKey, listOf(facts.files)});
    QString text = textOf(mainGroup, lines);
    const QStringList actions = partsOf(rawValue(kept, u"Actions"_s));
    for (const Group &group : groups.mid(groups.isEmpty() ? 0 : 1)) {
        const QString prefix = u"Desktop Action "_s;
        if (!group.name.startsWith(prefix) || !actions.contains(group.name.mid(prefix.size())))
            continue;
        QList<Line> action;
        for (const Line &line : group.lines)
            action.append(line.key == u"Exec" ? Line{line.key, commandLine(facts.executable, line.value)}
                                              : line);
        text += u'\n' + textOf(group.name, action);
    }
    return text.toUtf8();
}

std::optional<QString> entryValue(const QByteArray &entry, const QString &key) {
    const QList<Group> groups = groupsOf(entry);
    const QString raw = groups.isEmpty() || groups.constFirst().name != mainGroup
                            ? QString()
                            : rawValue(groups.constFirst().lines, key);
    return raw.isNull() ? std::nullopt : std::optional(unescaped(raw));
}

QStringList entryList(const QByteArray &entry, const QString &key) {
    const QList<Group> groups = groupsOf(entry);
    return groups.isEmpty() ? QStringList() : partsOf(rawValue(groups.constFirst().lines, key));
}

} // namespace tx
