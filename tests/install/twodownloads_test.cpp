// SPDX-License-Identifier: MIT
#include "tests/install/downloadtest.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;
using tx::test::Download;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::namesIn;
using tx::test::waitUntil;

namespace {

/// Two updates of one process, whose archives come half and then no further.
class TwoDownloads : public Download {
protected:
    TXUpdatePtr second = std::make_shared<TXUpdate>();
    int secondCompletions = 0;
    TXError secondError;
    FeedServer server;
    HttpReply half{.body = QByteArray(50000, 'x'), .announcedLength = 100000, .stalls = true};

    TwoDownloads() { second->setVersion(u"6"_s); }
    void beginFirst(tx::UpdateDownload::Choice choice) {
        server.expect("GET", "/first.zip", half);
        update->setFileURL(QUrl(server.url(u"/first.zip"_s)));
        tx::UpdateDownload::begin(*update, choice, nullptr, [this](const TXError &e) {
            error = e;
            ++completions;
        });
        ASSERT_TRUE(
            waitUntil([this] { return QFileInfo(cache + u"/.txupdate-download"_s).size() == 50000; }));
    }
    void beginSecond(tx::UpdateDownload::Choice choice) {
        second->setFileURL(QUrl(server.url(u"/second.zip"_s)));
        tx::UpdateDownload::begin(*second, choice, nullptr, [this](const TXError &e) {
            secondError = e;
            ++secondCompletions;
        });
    }
    void expectSecondComes() {
        ASSERT_TRUE(waitUntil([this] { return secondCompletions > 0; }));
        EXPECT_FALSE(secondError) << secondError.toString().toStdString();
        EXPECT_TRUE(second->isDownloaded());
        EXPECT_EQ(namesIn(cache), QStringList{u"second - 6.zip"_s});
        EXPECT_EQ(completions, 1);
        EXPECT_FALSE(error) << "as after cancelling";
        expectIdle();
    }
};

TEST_F(TwoDownloads, UsersChoiceEndsTheAutomaticOne) {
    beginFirst(tx::UpdateDownload::Choice::Automatic);
    server.expect("GET", "/second.zip", HttpReply::file("second"));
    beginSecond(tx::UpdateDownload::Choice::Users);
    EXPECT_FALSE(update->isDownloading());
    expectSecondComes();
}

TEST_F(TwoDownloads, PublicDownloadIsTheUsersChoice) {
    beginFirst(tx::UpdateDownload::Choice::Automatic);
    server.expect("GET", "/second.zip", HttpReply::file("second"));
    second->setFileURL(QUrl(server.url(u"/second.zip"_s)));
    second->downloadWithProgress(nullptr, [this](const TXError &e) {
        secondError = e;
        ++secondCompletions;
    });
    expectSecondComes();
}

TEST_F(TwoDownloads, NewerAutomaticOneReplacesTheOlder) {
    beginFirst(tx::UpdateDownload::Choice::Automatic);
    server.expect("GET", "/second.zip", HttpReply::file("second"));
    beginSecond(tx::UpdateDownload::Choice::Automatic);
    expectSecondComes();
}

TEST_F(TwoDownloads, AutomaticOneLeavesTheUsersChoiceAlone) {
    beginFirst(tx::UpdateDownload::Choice::Users);
    beginSecond(tx::UpdateDownload::Choice::Automatic);
    ASSERT_TRUE(waitUntil([this] { return secondCompletions > 0; }));
    EXPECT_FALSE(secondError) << "nobody is told of what nobody asked for";
    EXPECT_FALSE(second->isDownloading() || second->isDownloaded());
    EXPECT_TRUE(update->isDownloading());
    EXPECT_EQ(completions, 0);
}

TEST_F(TwoDownloads, AutomaticOneThatTheUserAsksForIsTheUsersChoice) {
    beginFirst(tx::UpdateDownload::Choice::Automatic);
    int others = 0;
    update->downloadWithProgress(nullptr, [&others](const TXError &) { ++others; });
    beginSecond(tx::UpdateDownload::Choice::Automatic);
    ASSERT_TRUE(waitUntil([this] { return secondCompletions > 0; }));
    EXPECT_TRUE(update->isDownloading());
    EXPECT_EQ(others, 0) << "it was running already";
}

TEST_F(TwoDownloads, SecondChoiceOfTheUserIsToldOfTheFirst) {
    beginFirst(tx::UpdateDownload::Choice::Users);
    server.expect("GET", "/second.zip", HttpReply::file("second"));
    beginSecond(tx::UpdateDownload::Choice::Users);
    ASSERT_TRUE(waitUntil([this] { return secondCompletions > 0; }));
    EXPECT_EQ(secondError.localizedFailureReason(), u"This application is downloading another update."_s);
    EXPECT_EQ(secondError.localizedRecoverySuggestion(), u"Try again when it is done."_s);
    EXPECT_TRUE(update->isDownloading());
}

TEST_F(TwoDownloads, HandlerOfTheEndedOneMayLetGoOfBoth) {
    server.expect("GET", "/first.zip", half);
    update->setFileURL(QUrl(server.url(u"/first.zip"_s)));
    tx::UpdateDownload::begin(*update, tx::UpdateDownload::Choice::Automatic, nullptr,
                              [this](const TXError &) {
                                  ++completions;
                                  update.reset();
                                  second.reset();
                              });
    ASSERT_TRUE(waitUntil([this] { return !namesIn(cache).isEmpty(); }));
    beginSecond(tx::UpdateDownload::Choice::Users);
    EXPECT_EQ(completions, 1);
    ASSERT_TRUE(waitUntil([this] { return secondCompletions > 0; })) << "an accepted handler is called";
}

} // namespace
