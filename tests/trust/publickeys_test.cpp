// SPDX-License-Identifier: MIT
#include "model/bundletrust.h"
#include "posix/plainpropertylist.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/trust/trusttest.h"
#include "trust/appinfo.h"

using namespace tx::trust;
using namespace tx::test;
using namespace Qt::StringLiterals;

namespace {

/// minisign's line for any bytes.
std::string lineOf(const std::string &algorithm, const KeyNumber &number, const KeyBytes &bytes) {
    std::string all = algorithm;
    all.append(number.begin(), number.end());
    all.append(bytes.begin(), bytes.end());
    return base64(reinterpret_cast<const unsigned char *>(all.data()), all.size());
}

std::vector<std::string> manyKeys(size_t count) {
    std::vector<std::string> texts;
    for (size_t i = 0; i < count; ++i)
        texts.push_back(keyText(SecretKey::generate()));
    return texts;
}

TEST(PublicKeys, EachKindSignsWhatItMay) {
    const PublicKeys keys =
        keysOf({keyText(key(0)), keyText(key(1), "minisign-feed:"), plainKeyText(key(2))});
    ASSERT_EQ(keys.all().size(), 3U);
    EXPECT_EQ(keys.all()[0].bytes, key(0).publicKey().bytes);
    EXPECT_EQ(keys.all()[1].number, key(1).publicKey().number);
    EXPECT_EQ(keys.all()[2].use, KeyUse::PlainArchives);
    EXPECT_EQ(keys.archiveKey(key(0).publicKey().number), &keys.all()[0]);
    EXPECT_EQ(keys.feedKey(key(0).publicKey().number), &keys.all()[0]);
    EXPECT_EQ(keys.archiveKey(key(1).publicKey().number), nullptr);
    EXPECT_EQ(keys.feedKey(key(1).publicKey().number), &keys.all()[1]);
    // A plain key has no number, which is not the number zero.
    EXPECT_EQ(keys.archiveKey(KeyNumber{}), nullptr);
    EXPECT_EQ(keys.feedKey(KeyNumber{}), nullptr);
    EXPECT_EQ(keys.feedKey(key(2).publicKey().number), nullptr);
}

TEST(PublicKeys, FeedsCanBeSignedByAllButPlainKeys) {
    EXPECT_TRUE(keysOf({keyText(key(0))}).canSignFeeds());
    EXPECT_TRUE(keysOf({plainKeyText(key(1)), keyText(key(0), "minisign-feed:")}).canSignFeeds());
    EXPECT_FALSE(keysOf({plainKeyText(key(0)), plainKeyText(key(1))}).canSignFeeds());
}

TEST(PublicKeys, NumberIsWrittenAsMinisignDoes) {
    EXPECT_EQ(keyNumberText({0x94, 0x5A, 0x94, 0xA4, 0x81, 0x3E, 0x4D, 0x9D}), "9D4D3E81A4945A94");
}

TEST(PublicKeys, MalformedListsSayWhatIsWrongWhereAndWhatToDo) {
    const PublicKey good = key(0).publicKey();
    const std::string line = keyLine(good);
    KeyBytes small{}; // of order 4: it verifies signatures that nobody made
    KeyBytes off{};   // on no point of the curve
    off[0] = 2;
    KeyBytes large{}; // not reduced
    large.fill(0xFF);
    struct {
        const char *what;
        std::vector<std::string> texts;
        const char *part;
    } const table[] = {
        {"none", {}, "the list is empty. Name at least one key, or remove the list"},
        {"17", manyKeys(17), "at most 16 keys are possible, these are 17"},
        {"100", manyKeys(100), "these are 100"},
        {"empty", {""}, "key 1: \"\" does not begin with \"minisign:\""},
        {"second", {keyText(key(1)), "RWQ"}, "key 2: \"RWQ\" does not begin with"},
        {"no prefix", {line}, "does not begin with \"minisign:\", \"minisign-feed:\" or \"plain:\""},
        {"case", {"Minisign:" + line}, "does not begin with"},
        {"blank before", {" minisign:" + line}, "does not begin with"},
        {"blank behind the prefix",
         {"minisign: " + line},
         "must be the second line of a .pub file, without blanks"},
        {"line feed", {"minisign:" + line + "\n"}, "is not a public key"},
        {"cut", {"minisign:" + line.substr(0, line.size() - 1)}, "is not a public key"},
        {"another letter", {"minisign:A" + line.substr(1)}, "is not a public key"},
        {"only the prefix", {"minisign:"}, "is not a public key"},
        {"signature's algorithm",
         {"minisign:" + lineOf("ED", good.number, good.bytes)},
         "is not a public key"},
        {"feed key cut", {"minisign-feed:" + line.substr(4)}, "behind \"minisign-feed:\""},
        {"plain with number", {"plain:" + line}, "must be the Base64 of an Ed25519 key's 32 bytes"},
        {"32 bytes as minisign's", {"minisign:" + plainKeyText(key(0)).substr(6)}, "is not a public key"},
        {"small order", {"minisign:" + lineOf("Ed", good.number, small)}, "is not a public key"},
        {"not on the curve", {"minisign:" + lineOf("Ed", good.number, off)}, "is not a public key"},
        {"not reduced", {"plain:" + base64(large.data(), large.size())}, "is not a public key"},
        {"twice",
         {keyText(key(0)), keyText(key(0))},
         "key 2 has the same bytes as key 1. Each key may be named once"},
        {"twice with two uses", {keyText(key(0)), keyText(key(0), "minisign-feed:")}, "same bytes as key 1"},
        {"twice with and without number",
         {keyText(key(1)), keyText(key(0)), plainKeyText(key(0))},
         "key 3 has the same bytes as key 2"},
        {"same number",
         {keyText(key(0)), "minisign-feed:" + lineOf("Ed", good.number, key(1).publicKey().bytes)},
         "key 2 has the same number as key 1"},
    };
    for (const auto &row : table) {
        const auto keys = PublicKeys::parse(row.texts);
        expectFault(keys, FaultKind::Keys, row.part, row.what);
        expectFault(keys, FaultKind::Keys, "TXUpdatePublicKeys: ", row.what);
    }
}

TEST(PublicKeys, SixteenAreTaken) { EXPECT_EQ(keysOf(manyKeys(16)).all().size(), 16U); }

// Values of Info.plist.

std::string plist(const std::string &members) {
    return "<plist version=\"1.0\"><dict>" + members + "</dict></plist>";
}
std::string text(const std::string &name, const std::string &value) {
    return "<key>" + name + "</key><string>" + value + "</string>";
}
const std::string identity = "<key>CFBundleIdentifier</key><string>org.example.Host</string>"
                             "<key>CFBundleVersion</key><string>1042</string>";
std::string keyList(const std::string &elements) {
    return "<key>TXUpdatePublicKeys</key><array>" + elements + "</array>";
}
std::string goodKeys() { return keyList("<string>" + keyText(key(0)) + "</string>"); }

Outcome<AppInfo> readInfo(const std::string &members) {
    const auto list = tx::plain::readPropertyList(plist(members));
    EXPECT_TRUE(list) << members;
    return AppInfo::read(list ? *list : tx::plain::Value{});
}

TEST(AppInfo, WithoutKeysNothingElseCounts) {
    const auto info = readInfo(identity + text("TXUpdateFeedName", "beta") +
                               text("TXUpdateRequiresSignedFeed", "x") + text("TXUpdateBuildDate", "x"));
    ASSERT_TRUE(info) << info.fault().what;
    EXPECT_FALSE(info->keys);
    EXPECT_FALSE(info->requiresSignedFeed);
    EXPECT_EQ(info->feedName, "release");
    EXPECT_EQ(info->buildDate, std::nullopt);
    EXPECT_EQ(info->bundle, "org.example.Host");
    EXPECT_EQ(info->build, "1042");
    EXPECT_TRUE(readInfo("")); // not even an identifier
}

TEST(AppInfo, UsualValuesFollowFromTheKeys) {
    const auto info = readInfo(identity + goodKeys());
    ASSERT_TRUE(info) << info.fault().what;
    EXPECT_EQ(info->keys->all().size(), 1U);
    EXPECT_TRUE(info->requiresSignedFeed);
    EXPECT_EQ(info->feedName, "release");
    const auto plain = readInfo(identity + keyList("<string>" + plainKeyText(key(0)) + "</string>"));
    ASSERT_TRUE(plain) << plain.fault().what;
    EXPECT_FALSE(plain->requiresSignedFeed);
}

TEST(AppInfo, EveryValueIsRead) {
    const auto info = readInfo(identity + goodKeys() + "<key>TXUpdateRequiresSignedFeed</key><false/>" +
                               text("TXUpdateFeedName", "caf\xC3\xA9 beta") +
                               text("TXUpdateBuildDate", "2026-11-22T12:34:56Z"));
    ASSERT_TRUE(info) << info.fault().what;
    EXPECT_FALSE(info->requiresSignedFeed);
    EXPECT_EQ(info->feedName, "caf\xC3\xA9 beta");
    EXPECT_EQ(info->buildDate, 1795350896);
    const auto date = readInfo(identity + goodKeys() + "<key>TXUpdateRequiresSignedFeed</key><true/>" +
                               "<key>TXUpdateBuildDate</key><date>2026-11-22T12:34:56Z</date>");
    ASSERT_TRUE(date) << date.fault().what;
    EXPECT_EQ(date->buildDate, 1795350896);
    EXPECT_TRUE(date->requiresSignedFeed);
}

TEST(AppInfo, MalformedValuesAreNeverNoKeys) {
    const std::pair<std::string, const char *> table[] = {
        {identity + "<key>TXUpdatePublicKeys</key><string>" + keyText(key(0)) + "</string>",
         "TXUpdatePublicKeys: an array of strings was expected"},
        {identity + "<key>TXUpdatePublicKeys</key><false/>", "an array of strings was expected"},
        {identity + keyList(""), "the list is empty"},
        {identity + keyList("<string>" + keyText(key(0)) + "</string><true/>"), "key 2 is not a string"},
        {identity + keyList("<string>x</string>"), "key 1: \"x\" does not begin with"},
        {text("CFBundleVersion", "1") + goodKeys(), "CFBundleIdentifier: an application with keys needs one"},
        {identity + goodKeys() + text("TXUpdateRequiresSignedFeed", "NO"), "true or false was expected"},
        {identity + keyList("<string>" + plainKeyText(key(0)) + "</string>") +
             "<key>TXUpdateRequiresSignedFeed</key><true/>",
         "none of the application's keys can sign a feed"},
        {identity + goodKeys() + text("TXUpdateFeedName", ""), "TXUpdateFeedName: a name was expected"},
        {identity + goodKeys() + "<key>TXUpdateFeedName</key><true/>", "a name was expected"},
        {identity + goodKeys() + text("TXUpdateBuildDate", "2026-02-30T00:00:00Z"),
         "TXUpdateBuildDate: a date"},
        {identity + goodKeys() + "<key>TXUpdateBuildDate</key><true/>", "TXUpdateBuildDate: a date"},
    };
    for (const auto &[members, part] : table)
        expectFault(readInfo(members), FaultKind::Keys, part, members);
}

class BundleTrust : public tx::test::FrameworkTest {};

TEST_F(BundleTrust, BundleIsReadAsItsPropertyListIs) {
    const QString bundle = path(u"App.app"_s);
    const std::string members = identity + goodKeys() + "<key>TXUpdateRequiresSignedFeed</key><false/>" +
                                text("TXUpdateFeedName", "beta") +
                                "<key>TXUpdateBuildDate</key><date>2026-11-22T12:34:56Z</date>";
    writeFile(bundle + u"/Contents/Info.plist"_s, QByteArray::fromStdString(plist(members)));
    const auto info = infoOfBundle(TXBundle(bundle));
    ASSERT_TRUE(info) << info.fault().what;
    ASSERT_TRUE(info->keys);
    EXPECT_EQ(info->keys->all()[0].bytes, key(0).publicKey().bytes);
    EXPECT_FALSE(info->requiresSignedFeed);
    EXPECT_EQ(info->feedName, "beta");
    EXPECT_EQ(info->buildDate, 1795350896);
    EXPECT_EQ(info->bundle, "org.example.Host");
    EXPECT_EQ(info->build, "1042");
}

TEST_F(BundleTrust, MalformedKeysOfABundleAreNotNoKeys) {
    const std::string lists[] = {"<key>TXUpdatePublicKeys</key><dict/>", keyList("<integer>1</integer>"),
                                 keyList(""), "<key>TXUpdatePublicKeys</key><data></data>",
                                 "<key>TXUpdatePublicKeys</key><true/>"};
    for (const std::string &list : lists) {
        const QString bundle = path(u"App.app"_s);
        writeFile(bundle + u"/Contents/Info.plist"_s, QByteArray::fromStdString(plist(identity + list)));
        expectFault(infoOfBundle(TXBundle(bundle)), FaultKind::Keys, "TXUpdatePublicKeys", list);
    }
}

} // namespace
