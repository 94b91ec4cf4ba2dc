// SPDX-License-Identifier: MIT
#pragma once

#include "tests/tools/txupdate/txupdatetest.h"

#include <QJsonArray>
#include <QString>
#include <QStringList>

namespace tx::test {

/// A line for a check in the combined format.
inline QByteArray checkLine(const QByteArray &day, const QByteArray &build, int installation,
                            const QByteArray &application = "My%20App") {
    return "192.0.2.7 - jane [" + day + "/Nov/2026:16:54:11 +0000] \"GET /feed.json?appName=" + application +
           "&appVersion=" + build + "&anonymousUUID=00000000-0000-0000-0000-" +
           QByteArray::number(installation).rightJustified(12, '0') +
           " HTTP/1.1\" 200 1234 \"-\" \"TarvixUpdate/0.1.0\"\n";
}

/// A request body with a profile, as the framework writes it.
inline QByteArray profileBody(const QByteArray &system, const QByteArray &build, int installation) {
    return "{\n    \"anonymousUUID\": \"00000000-0000-0000-0000-" +
           QByteArray::number(installation).rightJustified(12, '0') +
           "\",\n    \"appName\": \"My App\",\n    \"appVersion\": \"" + build +
           "\",\n    \"systemProfile\": {\n        \"OSVersion\": \"" + system +
           "\",\n        \"machineModel\": \"20XW0026GE\"\n    }\n}\n";
}

/// The same body in a server's log in JSON lines.
inline QByteArray profileLine(const QByteArray &day, const QByteArray &system, const QByteArray &build,
                              int installation) {
    const QJsonObject line{
        {u"time"_s, u"2026-11-%1T16:54:11+00:00"_s.arg(QString::fromLatin1(day))},
        {u"request"_s,
         u"POST /feed.json?appName=My%20App&appVersion=%1&anonymousUUID=00000000-0000-0000-0000-%2 HTTP/1.1"_s
             .arg(QString::fromLatin1(build), QString::number(installation).rightJustified(12, u'0'))},
        {u"request_body"_s, QString::fromUtf8(profileBody(system, build, installation))}};
    return QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
}

/// Runs `txupdate report` with a database in the test's folder.
class Report : public TxUpdate {
protected:
    QString database() const { return path(u"counts.sqlite"_s); }
    ProcessResult report(const QStringList &words, const QByteArray &input = {}) const {
        return run(QStringList{u"report"_s, u"--database"_s, database()} + words, input);
    }
    QJsonObject reported(const QStringList &words) const {
        const ProcessResult result = report(QStringList{u"--json"_s} + words);
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        return json(result);
    }
    static QJsonObject firstApplication(const QJsonObject &all) {
        return all[u"applications"_s].toArray().at(0).toObject();
    }
    static QJsonObject firstLog(const QJsonObject &all) { return all[u"logs"_s].toArray().at(0).toObject(); }
    /// "1043: 2, 1042: 1"
    static QString shares(const QJsonObject &counts, const QString &list, const QString &member) {
        QStringList result;
        for (const QJsonValue &share : counts[list].toArray())
            result << share[member].toString(u"?"_s) + u": "_s +
                          QString::number(share[u"installations"_s].toInt());
        return result.join(u", "_s);
    }
    static QString versions(const QJsonObject &counts) { return shares(counts, u"versions"_s, u"version"_s); }
    static QString systems(const QJsonObject &counts) { return shares(counts, u"systems"_s, u"system"_s); }
    static QJsonObject onDay(const QJsonObject &application, const QString &day) {
        for (const QJsonValue &value : application[u"days"_s].toArray()) {
            if (value[u"day"_s] == day)
                return value.toObject();
        }
        return {};
    }
};

} // namespace tx::test
