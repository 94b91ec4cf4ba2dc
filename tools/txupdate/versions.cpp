// SPDX-License-Identifier: MIT
#include "txupdate/commands.h"

#include "model/versioncomparison.h"

#include <TarvixUpdate/TXVersionNumber.h>

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>
#include <functional>
#include <iostream>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

QByteArray jsonText(const QString &text) {
    if (text.isNull())
        return "null";
    QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return list.mid(1, list.size() - 2);
}

/// Written by hand: the numbers may need all of their 64 bits.
void print(const TXVersionNumber &number) {
    const QByteArray line = "{\"format\":" + QByteArray::number(number.format()) +
                            ",\"stringValue\":" + jsonText(number.stringValue()) +
                            ",\"majorVersion\":" + QByteArray::number(number.majorVersion()) +
                            ",\"minorVersion\":" + QByteArray::number(number.minorVersion()) +
                            ",\"patchVersion\":" + QByteArray::number(number.patchVersion()) +
                            ",\"suffix\":" + QByteArray::number(number.suffix()) +
                            ",\"suffixString\":" + jsonText(number.suffixString()) +
                            ",\"suffixVersion\":" + QByteArray::number(number.suffixVersion()) + "}";
    std::puts(line.constData());
}

/// Calls `work` with the JSON value of each line of standard input until it answers false.
int forEachLine(const QString &expected, const std::function<bool(const QJsonValue &)> &work) {
    int number = 0;
    for (std::string line; std::getline(std::cin, line);) {
        ++number;
        // A line contains any value; a document must be a list or an object.
        QJsonParseError error{};
        const auto document = QJsonDocument::fromJson('[' + QByteArray::fromStdString(line) + ']', &error);
        const QJsonArray values = document.array();
        if (error.error != QJsonParseError::NoError || values.size() != 1 || !work(values.first())) {
            complain(u"standard input, line %1: %2 was expected"_s.arg(number).arg(expected));
            return ExitBadInput;
        }
        std::fflush(stdout);
    }
    return ExitDone;
}

bool isVersion(const QJsonValue &value) { return value.isString() || value.isNull(); }

} // namespace

void complain(const QString &line) { std::fprintf(stderr, "txupdate: %s\n", line.toUtf8().constData()); }

int compare(const QString &a, const QString &b) {
    std::printf("%d\n", compareVersions(a, b));
    return ExitDone;
}

int compareLines() {
    return forEachLine(u"a JSON array of two texts"_s, [](const QJsonValue &value) {
        const QJsonArray pair = value.toArray();
        if (!value.isArray() || pair.size() != 2 || !isVersion(pair[0]) || !isVersion(pair[1]))
            return false;
        std::printf("%d\n", compareVersions(pair[0].toString(), pair[1].toString()));
        return true;
    });
}

int version(const QString &text) {
    print(TXVersionNumber::versionNumberWithString(text));
    return ExitDone;
}

int versionLines() {
    return forEachLine(u"a JSON string"_s, [](const QJsonValue &value) {
        if (!value.isString())
            return false;
        print(TXVersionNumber::versionNumberWithString(value.toString()));
        return true;
    });
}

} // namespace tx::cli
