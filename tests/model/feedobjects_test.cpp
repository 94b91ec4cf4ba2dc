// SPDX-License-Identifier: MIT
// What the objects of a feed take is what the budget says of them.
#include "feed/feedbudget.h"
#include "feed/jsonreader.h"
#include "model/post_p.h"
#include "model/updateentry.h"
#include "tests/support/environment.h"

#include <malloc.h>

#include <functional>

// There where a sanitizer's allocator takes the place of the C library's.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

using namespace Qt::StringLiterals;
using tx::FeedBudget;
using tx::FeedEntry;
using tx::PackedEntries;
using Member = tx::FeedEntry::Member;

namespace {

constexpr int count = 20000;

size_t allocated() {
    if (&__sanitizer_get_current_allocated_bytes)
        return __sanitizer_get_current_allocated_bytes();
    const struct mallinfo2 all = mallinfo2();
    return all.uordblks + all.hblkhd;
}

/// Bytes for each of `count` things that `make` keeps.
template <typename Made>
double bytesOfEach(const std::function<Made()> &make) {
    (void)make(); // what is made once and stays
    const size_t before = allocated();
    [[maybe_unused]] const Made made = make();
    return static_cast<double>(allocated() - before) / count;
}

/// As said, or up to a fifth less: a sanitizer's allocator does not round up.
void expectAbout(double bytes, double cost) {
    EXPECT_LE(bytes, cost + 0.5);
    EXPECT_GE(bytes, 0.8 * cost);
}

class FeedObjects : public tx::test::FrameworkTest {
protected:
    FeedEntry entry;
    PackedEntries entries;

    FeedObjects() {
        entry.set(Member::Type, "build");
        entry.set(Member::Build, "9999");
        entry.set(Member::Title, "A title that is longer than a short text");
        entry.set(Member::DownloadURL, "https://e.org/Example-9999.zip");
        entry.set(Member::Url, "https://e.org/post");
        entry.set(Member::Description, "What is new");
        for (int i = 0; i < count; ++i)
            entries.append(entry);
    }
};

TEST_F(FeedObjects, PackedTextsTakeWhatIsCountedForThem) {
    const double each = bytesOfEach<PackedEntries>([this] {
        PackedEntries result;
        for (int i = 0; i < count; ++i)
            result.append(entry);
        return result;
    });
    EXPECT_NEAR(each, static_cast<double>(PackedEntries::sizeOf(entry)), 0.05 * each);
}

TEST_F(FeedObjects, UpdatesTakeWhatIsCountedForThem) {
    expectAbout(bytesOfEach<QList<TXUpdatePtr>>(
                    [this] { return tx::updatesFrom(entries, tx::WithConditions::Yes, true); }),
                FeedBudget::costOfUpdate);
}

TEST_F(FeedObjects, AskingAnUpdateWhatItSaysTakesNothingThatStays) {
    const QList<TXUpdatePtr> updates = tx::updatesFrom(entries, tx::WithConditions::Yes, true);
    const double each = bytesOfEach<int>([&updates] {
        int result = 0;
        for (const TXUpdatePtr &update : updates)
            result +=
                static_cast<int>(update->title().size() + update->displayVersion().size() +
                                 update->fileURL().toString().size() + update->itemDescription().size()) +
                (update->canBeDownloaded() ? 1 : 0) + (update->isDownloaded() ? 1 : 0) +
                (update->isInstalling() ? 1 : 0) + (update->conditions() ? 1 : 0);
        return result;
    });
    EXPECT_LT(each, 1);
}

TEST_F(FeedObjects, PostsTakeWhatIsCountedForThem) {
    expectAbout(bytesOfEach<QList<TXUpdatePostPtr>>([this] {
                    QList<TXUpdatePostPtr> result;
                    result.reserve(count);
                    entries.forEach([&result](const tx::PackedEntry &packed) {
                        result.append(TXUpdatePostPrivate::make(packed));
                    });
                    return result;
                }),
                FeedBudget::costOfPost);
}

TEST_F(FeedObjects, TracksTakeWhatIsCountedForThem) {
    constexpr qsizetype nameLength = 6;
    QByteArray document = "{";
    for (int i = 0; i < count; ++i)
        document +=
            '"' + QByteArray::number(100000 + i) + R"(":[{"type":"build","build":"9999","webpageURL":"a:b"},
            {"type":"post","url":"a:b"}],)";
    document.back() = '}';
    FeedEntry update;
    update.set(Member::Build, "9999");
    update.set(Member::WebpageURL, "a:b");
    FeedEntry post;
    post.set(Member::Url, "a:b");
    const tx::ReaderContext context{.appBuild = u"1"_s, .keepsIrrelevant = true};
    const double each = bytesOfEach<TXUpdateFeed::TrackMap>([&] {
        const auto tracks = tx::readJsonFeed(document, context);
        EXPECT_EQ(tracks->size(), count);
        for (const TXUpdateTrackPtr &track : *tracks)
            EXPECT_EQ(track->updates().size() + track->posts().size(), 2);
        return *tracks;
    });
    const auto items = static_cast<double>(FeedBudget::costOfUpdate + FeedBudget::costOfPost +
                                           PackedEntries::sizeOf(update) + PackedEntries::sizeOf(post));
    expectAbout(each - items, FeedBudget::costOfTrack + nameLength * 2);
}

TEST_F(FeedObjects, SmallFeedMayTakeTwentyMebibytesAndALongOneLessThanSixTimesItsSize) {
    const auto taken = [this](qsizetype documentSize) {
        FeedBudget budget(documentSize);
        qint64 result = 0;
        while (budget.takeUpdate(entry))
            result += FeedBudget::costOfUpdate + static_cast<qint64>(PackedEntries::sizeOf(entry));
        return static_cast<double>(result) / (1 << 20);
    };
    EXPECT_NEAR(taken(100), 20, 0.01);
    EXPECT_NEAR(taken(10 << 20), 54, 0.01);
}

TEST_F(FeedObjects, TextsMayBeLongerThanTheDocumentButNotTwiceAsLong) {
    const std::string text(1 << 20, 'x');
    FeedEntry one;
    one.set(Member::Title, text);
    FeedBudget budget(20 << 20);
    int taken = 0;
    while (budget.takePost(one))
        ++taken;
    EXPECT_EQ(taken, 34) << "and a few bytes each";
}

} // namespace
