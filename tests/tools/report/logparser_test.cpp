// SPDX-License-Identifier: MIT
#include "report/day.h"
#include "report/logparser.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>
#include <utility>
#include <vector>

using namespace tx::report;

namespace {

const std::string uuid = "0B5E1C9A-6D3F-4A21-9C77-1F2E3D4C5B6A";
const std::string query = "/feed.json?appName=My%20App&appVersion=1042&anonymousUUID=" + uuid;

/// Formats a check as "application|version|first bytes of the identifier|day|system". Others are "other", or
/// "malformed: " with the reason.
std::string readingOf(const std::string &record) {
    LogParser parser;
    const Parsed parsed = parser.parse(record);
    if (parsed.record == Record::Other)
        return "other";
    if (parsed.record == Record::Malformed)
        return std::string("malformed: ") + parsed.reason;
    char number[5];
    std::snprintf(number, sizeof number, "%02x%02x", parsed.check.installation.front(),
                  parsed.check.installation.back());
    return std::string(parsed.check.application) + '|' + std::string(parsed.check.version) + '|' + number +
           '|' + (parsed.check.day ? textOfDay(*parsed.check.day) : "-") + '|' +
           std::string(parsed.check.system);
}

std::string common(const std::string &target) {
    return "192.0.2.7 - - [22/Nov/2026:16:54:11 +0000] \"GET " + target + " HTTP/1.1\" 200 1234";
}

std::string jsonLine(const std::string &members) {
    return R"({"time":"2026-11-22T16:54:11+00:00","request":"POST )" + query + R"( HTTP/1.1",)" + members +
           '}';
}

void expectReadings(const std::vector<std::pair<std::string, std::string>> &cases) {
    for (const auto &[record, expected] : cases)
        EXPECT_EQ(readingOf(record), expected) << record;
}

const std::string check = "My App|1042|0b6a|2026-11-22|";

TEST(LogLines, AreReadInTheCommonAndTheCombinedFormat) {
    expectReadings({
        {common(query), check},
        {common(query) + R"( "-" "TarvixUpdate/0.1.0")", check},
        {"2001:db8::7 - - [22/Nov/2026:16:54:11 +0000] \"GET " + query + " HTTP/2.0\" 304 0", check},
        {"updates.example.org:443 192.0.2.7 - - [22/Nov/2026:16:54:11 +0000] \"GET " + query +
             " HTTP/1.1\" 200 1",
         check},
        {"192.0.2.7 - a [b] c [22/Nov/2026:16:54:11 +0000] \"GET " + query + " HTTP/1.1\" 200 1", check},
        {common(query) + R"( "x \" y" "z [1] \"200\"")", check},
        // A quote and a backslash within the request.
        {common(R"(/a\"b)" + query), check},
        {"192.0.2.7 - - [22/Nov/2026:16:54:11 +0000] \"GET /\\\\\" 200 1", "other"},
        // An installation is active even if its check fails.
        {"192.0.2.7 - - [22/Nov/2026:16:54:11 +0000] \"POST " + query + " HTTP/1.1\" 405 0", check},
        {"192.0.2.7 - - [22/Nov/2026:00:30:00 +0100] \"GET " + query + " HTTP/1.1\" 200 1",
         "My App|1042|0b6a|2026-11-21|"},
        {"192.0.2.7 - - [22/Nov/2026:23:30:00 -0100] \"GET " + query + " HTTP/1.1\" 200 1",
         "My App|1042|0b6a|2026-11-23|"},
    });
}

TEST(LogLines, ParametersAreThoseThatTheFrameworkAppended) {
    const std::string number = "&anonymousUUID=" + uuid;
    expectReadings({
        {common("/f?channel=beta&appName=A&appVersion=1" + number), "A|1|0b6a|2026-11-22|"},
        {common("/f?appName=X&appVersion=0&appName=A&appVersion=1" + number), "A|1|0b6a|2026-11-22|"},
        {common("/f?appName=A+B%26C%3D%25&appVersion=1" + number), "A+B&C=%|1|0b6a|2026-11-22|"},
        {common("/f?appName=%C3%9Cbung&appVersion=1.0%20%CE%B2" + number), "Übung|1.0 β|0b6a|2026-11-22|"},
        {common("/f?appName=A&appVersion=1&anonymousUUID=0b5e1c9a-6d3f-4a21-9c77-1f2e3d4c5b6a"),
         "A|1|0b6a|2026-11-22|"},
    });
}

TEST(LogLines, AreReadAsJsonOfSeveralServers) {
    const std::string members = R"("uri":")" + query + "\"}";
    expectReadings({
        {jsonLine(R"("status":"200")"), check},
        {R"({"time_iso8601":"2026-11-22T17:54:11.123+01:00",)" + members, check},
        {R"({"time_local":"22/Nov/2026:16:54:11 +0000",)" + members, check},
        {R"({"timestamp":"2026-11-22 16:54:11Z",)" + members, check},
        {R"({"@timestamp":"2026-11-22T16:54:11Z",)" + members, check},
        {R"({"ts":1795366451.5,"request":{"method":"GET","uri":")" + query + "\"}}", check},
        {R"({"timestamp":"2026-11-22T16:54:11Z","httpRequest":{"requestUrl":"https://e.org)" + query + "\"}}",
         check},
        {R"({"EdgeStartTimestamp":1795366451000000000,"ClientRequestURI":")" + query + "\"}", check},
        {R"({"time":1795366451,"request_uri":")" + query + "\"}", check},
        {R"({"time":1795366451,"url":"https:\/\/e.org)" + query + "\"}", check},
    });
}

TEST(LogLines, BodyOfARequestTellsTheSystem) {
    const std::string names =
        R"(\"appName\":\"My App\",\"appVersion\":\"1042\",\"anonymousUUID\":\")" + uuid + R"(\")";
    expectReadings({
        {jsonLine(R"("request_body":"{\n  \"systemProfile\": {\n \"OSVersion\": \"12.0.0\"}}")"),
         check + "12.0.0"},
        {jsonLine(R"("body":"{\"systemProfile\":{\"OSVersion\":\"13.1.0\",\"RAM\":\"8192\"}}")"),
         check + "13.1.0"},
        {jsonLine(R"("request_body":"-")"), check},
        {jsonLine(R"("request_body":"")"), check},
        {jsonLine(R"("request_body":"{\"source\":\"menu\"}")"), check},
        {jsonLine(R"("request_body":"{\"systemProfile\":\"none\"}")"), check},
        {jsonLine(R"("request_body":"{\"systemProfile\":{\"OSVersion\":12}}")"), check},
        // A cache may truncate the query.
        {R"({"time":1795366451,"uri":"/feed.json","request_body":"{)" + names + "}\"}", check},
        {R"({"time":1795366451,"uri":"/login","request_body":"{\"password\":\"x\"}"})", "other"},
        {R"({"time":1795366451,"uri":"/login","request_body":"a=b"})", "other"},
    });
}

TEST(LogLines, BodyAloneHasNoDay) {
    expectReadings({
        {"{\n    \"anonymousUUID\": \"" + uuid +
             "\",\n    \"appName\": \"My App\",\n    \"appVersion\": \"1042\",\n"
             "    \"systemProfile\": {\n        \"OSVersion\": \"12.0.0\"\n    }\n}\n",
         "My App|1042|0b6a|-|12.0.0"},
        {R"({"anonymousUUID":")" + uuid + R"(","appName":"A","appVersion":"1"})", "A|1|0b6a|-|"},
    });
}

TEST(LogLines, OtherRequestsAreNoChecks) {
    const std::string start = "192.0.2.7 - - [22/Nov/2026:16:54:11 +0000] \"";
    for (const std::string &record :
         {common("/"), common("/feed.json"), common("/feed.json?appVersion=1"),
          common("/f?anonymousUUID=" + uuid), common("/f?xappVersion=1&anonymousUUIDs=" + uuid),
          start + "-\" 408 0", start + R"(\x16\x03\x01" 400 150)", start + "\" 400 0", start + "GET\" 400 0",
          std::string(R"({"time":1795366451,"uri":"/"})")})
        EXPECT_EQ(readingOf(record), "other") << record;
}

TEST(LogLines, MalformedOnesSayWhatWasExpected) {
    const std::string time = "malformed: no time in brackets, such as [22/Nov/2026:16:54:11 +0100]";
    const std::string number = "&anonymousUUID=" + uuid;
    const std::string version = "malformed: appVersion is empty, too long, or has control characters";
    const std::string name = "malformed: appName is empty, too long, or has control characters";
    const std::string notUuid = "malformed: anonymousUUID is not a UUID";
    const std::string status = "malformed: no status of three digits after the request";
    const std::string system = "malformed: OSVersion is too long, or has control characters";
    const std::string start = "192.0.2.7 - - [22/Nov/2026:16:54:11 +0000] ";
    expectReadings({
        {"", time},
        {"192.0.2.7", time},
        {"192.0.2.7 - - [22/Nov/2026:16:54:11] \"GET / HTTP/1.1\" 200 1", time},
        {"192.0.2.7 - - [22/Nov/2026:16:54:11 +0000", time},
        {std::string(100, '\0'), time},
        {start + "GET / 200 1", "malformed: no request in quotes after the time"},
        {start + "\"GET / HTTP/1.1 200 1", "malformed: the request has no closing quote"},
        {start + R"("GET / \)", "malformed: the request has no closing quote"},
        {start + "\"GET / HTTP/1.1\" ok 1", status},
        {start + "\"GET / HTTP/1.1\"", status},
        {start + "\"GET / HTTP/1.1\" 2000 1", status},
        {common("/f?appName=A&appVersion=" + number), version},
        {common("/f?appName=A&appVersion=%1B[2J" + number), version},
        {common("/f?appName=A&appVersion=%C2%9B2J" + number), version},
        {common("/f?appName=A&appVersion=%7F" + number), version},
        {common("/f?appName=A&appVersion=%FF" + number), version},
        {common("/f?appName=A&appVersion=" + std::string(101, '1') + number), version},
        {common("/f?appName=A&appVersion=" + std::string(100, '1') + number),
         "A|" + std::string(100, '1') + "|0b6a|2026-11-22|"},
        {common("/f?appVersion=1" + number), name},
        {common("/f?appName=A%0A&appVersion=1" + number), name},
        {common("/f?appName=" + std::string(201, 'A') + "&appVersion=1" + number), name},
        {common("/f?appName=A&appVersion=1%2" + number), "malformed: a parameter has an incomplete % escape"},
        {common("/f?appName=%zz&appVersion=1" + number), "malformed: a parameter has an incomplete % escape"},
        {common("/f?appName=A&appVersion=1&anonymousUUID="), notUuid},
        {common("/f?appName=A&appVersion=1&anonymousUUID=me@example.org"), notUuid},
        {common("/f?appName=A&appVersion=1" + number + "0"), notUuid},
        {common("/f?appName=A&appVersion=1&anonymousUUID=0B5E1C9A-6D3F-4A21-9C77-1F2E3D4C5B6G"), notUuid},
        {common("/f?appName=A&appVersion=1&anonymousUUID=0B5E1C9A06D3F-4A21-9C77-1F2E3D4C5B6A"), notUuid},
        {"{", "malformed: not a JSON object"},
        {R"({"time":"now"})",
         R"(malformed: no time that can be read, such as "time":"2026-11-22T16:54:11+01:00")"},
        {R"({"request":"GET / HTTP/1.1"})",
         R"(malformed: no time that can be read, such as "time":"2026-11-22T16:54:11+01:00")"},
        {R"({"time":1})", R"(malformed: no request, such as "request":"GET /feed.json HTTP/1.1")"},
        {jsonLine(R"("request_body":"{\"systemProfile\":")"),
         "malformed: the request's body is not a JSON object"},
        {jsonLine(R"("request_body":"{\"systemProfile\":{\"OSVersion\":\"\\u001b\"}}")"), system},
        {jsonLine(R"("request_body":"{\"systemProfile\":{\"OSVersion\":\")" + std::string(65, '1') +
                  R"(\"}}")"),
         system},
        {R"({"anonymousUUID":7,"appName":"A","appVersion":"1"})", notUuid},
        {common("/" + std::string(LogParser::maximumSize, 'a')), "malformed: longer than 64 KiB"},
    });
}

TEST(LogDays, AreInUtc) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"22/Nov/2026:16:54:11 +0100", "2026-11-22"},    {"01/Jan/2027:00:30:00 +0100", "2026-12-31"},
        {"29/Feb/2028:23:59:60 -0001", "2028-03-01"},    {"2026-11-22T16:54:11Z", "2026-11-22"},
        {"2026-11-22T00:00:00.999+00:01", "2026-11-21"}, {"2026-11-22 16:54:11,5-0100", "2026-11-22"},
        {"1970-01-01T00:00:00Z", "1970-01-01"},
    };
    for (const auto &[time, expected] : cases) {
        const std::optional<Day> day = dayOfTime(time);
        ASSERT_TRUE(day) << time;
        EXPECT_EQ(textOfDay(*day), expected) << time;
        EXPECT_EQ(dayOfText(expected), day);
    }
}

TEST(LogDays, ThatNoCalendarHasAreRefused) {
    for (const char *time :
         {"", "22/Nov/2026:16:54:11", "22/nov/2026:16:54:11 +0000", "31/Feb/2026:16:54:11 +0000",
          "22/Nov/2026:24:00:00 +0000", "22/Nov/2026:16:60:11 +0000", "22/Nov/2026:16:54:61 +0000",
          "22/Nov/2026:16:54:11 0000", "22/Nov/2026:16:54:11 +2500", "22/Nov/2026:16:54:11 +0000 ",
          "2026-11-22T16:54:11", "2026-11-31T16:54:11Z", "2026-13-01T16:54:11Z", "1969-12-31T23:59:59Z",
          "1970-01-01T00:00:00+01:00", "2026-11-22T16:54Z", "2026-11-22T16:54:11ZZ"})
        EXPECT_FALSE(dayOfTime(time)) << time;
    for (const char *day : {"", "2026-11", "2026-02-29", "22.11.2026", "2026-11-22 ", "2026-11-2"})
        EXPECT_FALSE(dayOfText(day)) << day;
}

TEST(LogDays, NumbersAreSecondsOrFinerUnits) {
    for (const double time : {1795366451.0, 1795366451e3, 1795366451e6, 1795366451e9}) {
        ASSERT_TRUE(dayOfNumber(time)) << time;
        EXPECT_EQ(textOfDay(*dayOfNumber(time)), "2026-11-22") << time;
    }
    for (const double time :
         {-1.0, 1e30, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()})
        EXPECT_FALSE(dayOfNumber(time)) << time;
}

} // namespace
