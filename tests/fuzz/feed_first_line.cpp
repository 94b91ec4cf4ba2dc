// SPDX-License-Identifier: MIT
// Any bytes as a feed whose first line may be a signature. What is cut off is what would be written, a reader
// is given the bytes behind it and nothing else, and no key has signed anything.
#include "tests/fuzz/target.h"
#include "trust/feeds.h"

using namespace tx::trust;

namespace {

void lookAtReadersPart(std::string document, FeedFormat format, size_t bodyAt) {
    const std::string body = document.substr(bodyAt);
    const size_t at = putBeginningBeforeBody(document.data(), format, bodyAt);
    const std::string beginning =
        format == FeedFormat::Json ? "{" : R"(<?xml version="1.0" encoding="UTF-8"?>)";
    check(document.substr(at) == beginning + body);
}

} // namespace

void fuzz(const QByteArray &input) {
    std::string document = input.toStdString();
    const auto unread = findUnreadLine(document);
    if (unread)
        lookAtReadersPart(document, unread->format, unread->bodyAt);
    const auto line = parseFirstLine(document);
    if (!line) {
        check(!line.fault().what.empty());
    } else if (*line) {
        check(unread && unread->bodyAt == (*line)->bodyAt && unread->format == (*line)->format);
        check((*line)->bodyAt <= mostLineBytes);
        const auto again = makeFirstLine((*line)->format, (*line)->texts);
        check(again && *again == document.substr(0, (*line)->bodyAt));
        (void)checkBody(std::string_view(document).substr((*line)->bodyAt), (*line)->format);
    }
    static const auto keys =
        PublicKeys::parse({"minisign:RWSUWpSkgT5NnRzdS5Niy5vMTLJ/i0yPF1dcJIVICwL6oephaIVM64XJ"});
    const std::string before = document;
    check(!VerifiedFeed::verify(*keys, {document.data(), document.size()}, {"org.example.Host", "release"}));
    check(document == before);
}
