// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

/// A feed of `count` entries as publishers write them; the builds from 100001 on, half of which are newer
/// than 100000 + count / 2.
inline QByteArray feedDocument(int count) {
    QByteArray result = "{\"release\":[";
    for (int i = 1; i <= count; ++i) {
        const QByteArray build = QByteArray::number(100000 + i);
        if (i > 1)
            result += ',';
        result += "{\"type\":\"build\",\"title\":\"Example 4." + build +
                  "\",\"description\":\"Finds notes as you type, opens large files faster and no longer "
                  "forgets its "
                  "window.\",\"date\":\"2026-05-01 10:00:00\",\"build\":\"" +
                  build + "\",\"version\":\"4." + build +
                  "\",\"releaseNotesURL\":\"https://updates.example.org/notes/" + build +
                  ".html\",\"downloadURL\":\"https://updates.example.org/archives/Example-" + build +
                  ".zip\",\"minSystemVersion\":\"10.0\",\"launch\":\"any\"}";
    }
    return result + "]}";
}

/// The same as an appcast.
inline QByteArray appcastDocument(int count) {
    QByteArray result = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<rss version=\"2.0\" "
                        "xmlns:sparkle=\"http://updates.example.org/xml-namespaces\"><channel>\n"
                        "<title>Example</title>\n";
    for (int i = 1; i <= count; ++i) {
        const QByteArray build = QByteArray::number(100000 + i);
        result +=
            "<item>\n  <title>Example 4." + build +
            "</title>\n  <description><![CDATA[<p>Finds notes as you type, opens large files faster and no "
            "longer forgets its window.</p>]]></description>\n  <pubDate>Fri, 01 May 2026 10:00:00 "
            "+0000</pubDate>\n  <sparkle:releaseNotesLink>https://updates.example.org/notes/" +
            build +
            ".html</sparkle:releaseNotesLink>\n  <sparkle:minimumSystemVersion>10.0"
            "</sparkle:minimumSystemVersion>\n  <enclosure url=\"https://updates.example.org/archives/"
            "Example-" +
            build + ".zip\" sparkle:version=\"" + build + "\" sparkle:shortVersionString=\"4." + build +
            "\" length=\"4348201\" type=\"application/octet-stream\"/>\n</item>\n";
    }
    return result + "</channel></rss>\n";
}
