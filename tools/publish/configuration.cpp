// SPDX-License-Identifier: MIT
#include "publish/configuration.h"

#include "publish/faults.h"
#include "publish/target.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <functional>
#include <map>
#include <string>

// Each file that includes the library compiles its parser, so only this file includes it.
#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

QString toText(const std::string &text) { return QString::fromStdString(text); }

/// The configuration that is being read, and the folder for relative paths.
struct Reading {
    Configuration configuration;
    QDir folder;

    [[nodiscard]] QString path(const QString &text) const { return QDir::cleanPath(folder.filePath(text)); }
};

/// Reads one member. Returns false if the value has the wrong type.
using Member = std::function<bool(const toml::node &, Reading &)>;

Member text(QString Configuration::*member) {
    return [member](const toml::node &node, Reading &reading) {
        const auto value = node.value_exact<std::string>();
        if (value)
            reading.configuration.*member = toText(*value);
        return value.has_value();
    };
}

Member path(QString Configuration::*member) {
    return [member](const toml::node &node, Reading &reading) {
        const auto value = node.value_exact<std::string>();
        if (value)
            reading.configuration.*member =
                isRemote(toText(*value)) ? toText(*value) : reading.path(toText(*value));
        return value.has_value();
    };
}

Member number(std::optional<qint64> Configuration::*member) {
    return [member](const toml::node &node, Reading &reading) {
        const auto value = node.value_exact<int64_t>();
        if (value)
            reading.configuration.*member = qint64(*value);
        return value && *value > 0;
    };
}

/// Reads one string or a list of strings.
Member list(QStringList Configuration::*member, bool arePaths) {
    return [member, arePaths](const toml::node &node, Reading &reading) {
        const auto add = [&](const toml::node &element) {
            const auto value = element.value_exact<std::string>();
            if (value)
                reading.configuration.*member << (arePaths ? reading.path(toText(*value)) : toText(*value));
            return value.has_value();
        };
        const toml::array *elements = node.as_array();
        if (!elements)
            return add(node);
        for (const toml::node &element : *elements) {
            if (!add(element))
                return false;
        }
        return !elements->empty();
    };
}

bool readExpiry(const toml::node &node, Reading &reading) {
    if (const auto days = node.value_exact<int64_t>()) {
        reading.configuration.expires = QString::number(*days);
        return *days >= 1 && *days <= 400;
    }
    reading.configuration.expires = u"never"_s;
    return node.value_exact<std::string>() == "never";
}

struct Row {
    const char *type; ///< name of the expected type for messages
    Member read;
};

const std::map<std::string, Row, std::less<>> &members() {
    static const std::map<std::string, Row, std::less<>> rows = {
        {"bundle", {"a string", path(&Configuration::bundle)}},
        {"to", {"a string", path(&Configuration::to)}},
        {"url", {"a string", text(&Configuration::url)}},
        {"feed", {"a string", text(&Configuration::feed)}},
        {"feed-name", {"a string", text(&Configuration::feedName)}},
        {"identifier", {"a string", text(&Configuration::identifier)}},
        {"track", {"a string", text(&Configuration::track)}},
        {"tzst-from", {"a string", text(&Configuration::tzstFrom)}},
        {"autodownload", {"a string", text(&Configuration::autodownload)}},
        {"min-system", {"a string", text(&Configuration::minSystem)}},
        {"key", {"a string or a list of strings", list(&Configuration::keys, true)}},
        {"archive", {"a string or a list of strings", list(&Configuration::archives, false)}},
        {"expires", {"a number of days from 1 to 400, or \"never\"", readExpiry}},
        {"largest-archive", {"a number of bytes", number(&Configuration::largestArchive)}},
        {"largest-unpacked", {"a number of bytes", number(&Configuration::largestUnpacked)}},
    };
    return rows;
}

} // namespace

Outcome<Configuration> readConfiguration(const QString &file) {
    QFile source(file);
    if (!source.open(QIODevice::ReadOnly))
        return Fault{FaultKind::File, u"%1: %2"_s.arg(file, source.errorString()).toStdString()};
    const std::string name = file.toStdString();
    const toml::parse_result parsed = toml::parse(source.readAll().toStdString(), name);
    const auto at = [&name](const toml::source_region &place) {
        return name + ':' + std::to_string(place.begin.line) + ": ";
    };
    if (!parsed)
        return Fault{FaultKind::Input,
                     at(parsed.error().source()) + std::string(parsed.error().description())};
    Reading reading{{}, QFileInfo(file).dir()};
    for (const auto &[key, value] : parsed.table()) {
        const auto row = members().find(key.str());
        if (row == members().end()) {
            std::string names;
            for (const auto &[other, unused] : members())
                names += (names.empty() ? "" : ", ") + other;
            return Fault{FaultKind::Input, at(key.source()) + "\"" + std::string(key.str()) +
                                               "\" is not known. These names are: " + names};
        }
        if (!row->second.read(value, reading))
            return Fault{FaultKind::Input,
                         at(value.source()) + row->first + ": expected " + row->second.type};
    }
    return reading.configuration;
}

QByteArray tomlString(const QString &text) {
    QByteArray result = "\"";
    for (const char c : text.toUtf8()) {
        constexpr unsigned char firstPrintable = 0x20;
        constexpr unsigned char deleteCharacter = 0x7f;
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\')
            result += '\\';
        if (byte < firstPrintable || byte == deleteCharacter)
            result += "\\u" + QByteArray::number(byte, 16).rightJustified(4, '0');
        else
            result += c;
    }
    return result + '"';
}

} // namespace tx::publishing
