// SPDX-License-Identifier: MIT
#include "trust/appinfo.h"

#include "trust/encoding.h"

#include <cmath>
#include <vector>

namespace tx::trust {

namespace {

constexpr int64_t referenceDate = 978307200; // 2001-01-01

Fault malformed(const std::string &key, const std::string &what) {
    return {FaultKind::Keys, "Info.plist of the application, " + key + ": " + what};
}

std::string textOf(const plain::Value &info, std::string_view key) {
    const plain::Value *value = info.member(key);
    const std::string *text = value ? value->text() : nullptr;
    return text ? *text : std::string();
}

Outcome<PublicKeys> keysOf(const plain::Value &value) {
    const auto *list = std::get_if<plain::Array>(&value.content);
    if (!list)
        return malformed("TXUpdatePublicKeys", "an array of strings was expected");
    std::vector<std::string> texts;
    for (const plain::Value &element : *list) {
        const std::string *text = element.text();
        if (!text)
            return malformed("TXUpdatePublicKeys",
                             "key " + std::to_string(texts.size() + 1) + " is not a string");
        texts.push_back(*text);
    }
    return PublicKeys::parse(texts);
}

std::optional<int64_t> dateOf(const plain::Value &value) {
    if (const std::string *text = value.text())
        return parseDate(*text);
    const auto *date = std::get_if<plain::Date>(&value.content);
    constexpr double most = 1e11; // beyond the year 5000, and far from what an int64_t can hold
    if (!date || !(std::abs(date->seconds) < most))
        return std::nullopt;
    return static_cast<int64_t>(date->seconds) + referenceDate;
}

} // namespace

Outcome<AppInfo> AppInfo::read(const plain::Value &info) {
    AppInfo result;
    result.bundle = textOf(info, "CFBundleIdentifier");
    result.build = textOf(info, "CFBundleVersion");
    const plain::Value *keys = info.member("TXUpdatePublicKeys");
    if (!keys)
        return result;
    Outcome<PublicKeys> parsed = keysOf(*keys);
    if (!parsed)
        return parsed.fault();
    result.keys = *std::move(parsed);
    if (result.bundle.empty())
        return malformed("CFBundleIdentifier", "an application with keys needs one");

    result.requiresSignedFeed = result.keys->canSignFeeds();
    if (const plain::Value *value = info.member("TXUpdateRequiresSignedFeed")) {
        const bool *isRequired = std::get_if<bool>(&value->content);
        if (!isRequired)
            return malformed("TXUpdateRequiresSignedFeed", "true or false was expected");
        if (*isRequired && !result.keys->canSignFeeds())
            return malformed("TXUpdateRequiresSignedFeed", "none of the application's keys can sign a feed");
        result.requiresSignedFeed = *isRequired;
    }
    if (info.member("TXUpdateFeedName")) {
        result.feedName = textOf(info, "TXUpdateFeedName");
        if (result.feedName.empty())
            return malformed("TXUpdateFeedName", "a name was expected");
    }
    if (const plain::Value *value = info.member("TXUpdateBuildDate")) {
        result.buildDate = dateOf(*value);
        if (!result.buildDate)
            return malformed("TXUpdateBuildDate", "a date of the form YYYY-MM-DDTHH:MM:SSZ was expected");
    }
    return result;
}

} // namespace tx::trust
