// SPDX-License-Identifier: MIT
#include "posix/handover.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

using tx::Handover;

namespace {

const std::vector<std::string> awkward{"-n", "--", "", "a b", "$(touch x)", "it's \"q\"\n", "NAME=value"};

void putIntoEnvironment(const std::vector<std::string> &variables) {
    for (const std::string &variable : variables) {
        const size_t end = variable.find('=');
        setenv(variable.substr(0, end).c_str(), variable.c_str() + end + 1, 1);
    }
}

bool hasVariables() {
    for (char **variable = environ; *variable; ++variable) {
        if (std::string(*variable).rfind("TXUPDATE_RELAUNCH_", 0) == 0)
            return true;
    }
    return false;
}

TEST(HandoverRecord, GivesBackWhatWasPacked) {
    for (const Handover &each :
         {Handover{awkward, "/tmp/a b"}, Handover{{}, "/"}, Handover{{""}, ""}, Handover{}}) {
        Handover read{{"before"}, "/before"};
        ASSERT_TRUE(tx::unpack(tx::packed(each), read));
        EXPECT_EQ(read.arguments, each.arguments);
        EXPECT_EQ(read.folder, each.folder);
    }
}

TEST(HandoverRecord, MalformedOneIsNotUsed) {
    const std::string whole = tx::packed({{"a"}, "/b"});
    for (const std::string &bytes :
         {std::string(), whole.substr(0, whole.size() - 1), tx::packed({{"a"}, "b"}),
          tx::packed({std::vector<std::string>(tx::mostHandoverArguments + 1, "x"), ""})}) {
        Handover read{{"before"}, "/before"};
        EXPECT_FALSE(tx::unpack(bytes, read)) << bytes.size();
        EXPECT_TRUE(read.arguments.empty());
        EXPECT_EQ(read.folder, "");
    }
}

TEST(HandoverLimits, AreNamedWithoutTheArguments) {
    const std::string secret = "secret";
    const struct {
        Handover handover;
        const char *problem;
    } cases[] = {
        {{std::vector<std::string>(4096, "x"), "/"}, ""},
        {{std::vector<std::string>(4097, secret), ""}, "there are 4097 arguments, 4096 are allowed"},
        {{{std::string(131071, 'x')}, ""}, ""},
        {{{std::string(131072, 'x')}, ""}, "the arguments have 131073 bytes, 131072 are allowed"},
        {{{"a", secret + '\0'}, ""}, "argument 2 contains a NUL character"},
        {{{}, "secret/folder"}, "the working folder is not an absolute path"},
        {{{}, "/" + std::string(131072, 'x')}, "the working folder is not a path"},
        {{{}, std::string("/a\0b", 4)}, "the working folder is not a path"},
    };
    for (const auto &each : cases)
        EXPECT_EQ(tx::problemOf(each.handover), each.problem);
}

TEST(HandoverVariables, AreTakenOutOfTheEnvironment) {
    putIntoEnvironment(tx::variablesOf({awkward, "/tmp/a b"}));
    setenv("TXUPDATE_RELAUNCH_ARGUMENT_99", "of another handover", 1);
    const Handover taken = tx::takeHandover();
    EXPECT_EQ(taken.arguments, awkward);
    EXPECT_EQ(taken.folder, "/tmp/a b");
    EXPECT_FALSE(hasVariables());
    EXPECT_TRUE(tx::takeHandover().arguments.empty());
    EXPECT_TRUE(tx::variablesOf({}).empty());
}

TEST(HandoverVariables, IncompleteOnesAreNotUsed) {
    const std::vector<std::pair<const char *, const char *>> cases{
        {"TXUPDATE_RELAUNCH_ARGUMENTS", "2"},
        {"TXUPDATE_RELAUNCH_ARGUMENTS", "99999999999999999999"},
        {"TXUPDATE_RELAUNCH_FOLDER", "relative"}};
    for (const auto &[name, value] : cases) {
        putIntoEnvironment(tx::variablesOf({{"one"}, "/"}));
        setenv(name, value, 1);
        const Handover taken = tx::takeHandover();
        EXPECT_TRUE(taken.arguments.empty()) << value;
        EXPECT_EQ(taken.folder, "") << value;
        EXPECT_FALSE(hasVariables());
    }
}

} // namespace
