#include "SidecarTestHelpers.h"

#include "sidecars/discovery/SidecarMatchingService.h"

using namespace folivox;
using namespace folivox::test;

namespace {

SidecarParseResult result(const QString& path, QList<qint64> startTimes, std::optional<QString> referenced = {},
                          std::optional<qint64> lastEnd = {})
{
    SidecarParseResult r;
    r.sourceURL = QUrl::fromLocalFile(path);
    r.referencedAudioFile = referenced;
    for (qsizetype i = 0; i < startTimes.size(); ++i)
        r.chapters << NormalizedChapter::make(QStringLiteral("C%1").arg(i), startTimes[i],
                                              i + 1 == startTimes.size() ? lastEnd : std::nullopt);
    return r;
}

SidecarMatchResult best(const SidecarParseResult& r, const QStringList& audioPaths, qint64 duration)
{
    QList<QUrl> urls;
    for (const QString& p : audioPaths)
        urls << QUrl::fromLocalFile(p);
    return SidecarMatchingService().bestMatch(r, r.chapters, urls, duration);
}

} // namespace

TEST(SidecarMatchingTest, ExactNameAfterCuttingChaptersSuffixIsHigh)
{
    const auto m = best(result("/b/Book.chapters.txt", {0, 60'000}), {"/b/Book.m4a"}, 0);
    EXPECT_TRUE(m.matchLayers.contains(SidecarMatchLayers::exactName));
    EXPECT_TRUE(m.matchLayers.contains(SidecarMatchLayers::sameFolder));
    EXPECT_FALSE(m.matchLayers.contains(SidecarMatchLayers::partialName));
    EXPECT_EQ(m.score, 55);
    EXPECT_EQ(m.confidence, SidecarMatchConfidence::high);
    EXPECT_EQ(m.audioURL, QUrl::fromLocalFile("/b/Book.m4a"));
    // In another folder the name alone still makes it high.
    EXPECT_EQ(best(result("/elsewhere/book.cue", {0, 1}), {"/b/BOOK.mp3"}, 0).confidence, SidecarMatchConfidence::high);
}

TEST(SidecarMatchingTest, CueReferenceAndFolderIsMediumAndWithSpanHigh)
{
    // Starts 0, 100 s, 200 s extrapolate to a 300 s span.
    const auto sheet = result("/b/album.cue", {0, 100'000, 200'000}, QStringLiteral("book.mp3"));
    auto m = best(sheet, {"/b/book.mp3"}, 0);
    EXPECT_EQ(m.matchLayers.names(), (QStringList{"referencedFile", "sameFolder"}));
    EXPECT_EQ(m.score, 50);
    EXPECT_EQ(m.confidence, SidecarMatchConfidence::medium);

    m = best(sheet, {"/b/book.mp3"}, 300'000);
    EXPECT_EQ(m.score, 75);
    EXPECT_EQ(m.confidence, SidecarMatchConfidence::high);

    // The reference matches by stem when the extension differs.
    m = best(result("/b/album.cue", {0, 1}, QStringLiteral("Book.wav")), {"/b/book.m4b"}, 0);
    EXPECT_TRUE(m.matchLayers.contains(SidecarMatchLayers::referencedFile));
}

TEST(SidecarMatchingTest, SpanToleranceIsTwoPercentWithATwoSecondFloor)
{
    const qint64 tenHours = 36'000'000;
    auto fits = [](qint64 span, qint64 duration) {
        return best(result("/x/a.txt", {0, span / 2}, {}, span), {"/y/zzz.mp3"}, duration)
            .matchLayers.contains(SidecarMatchLayers::duration);
    };
    EXPECT_TRUE(fits(tenHours - 11 * 60'000, tenHours));  // 660 s short, within 720 s
    EXPECT_TRUE(fits(tenHours - 720'000, tenHours));
    EXPECT_FALSE(fits(tenHours - 720'001, tenHours));
    EXPECT_TRUE(fits(tenHours + 720'000, tenHours));
    EXPECT_TRUE(fits(58'000, 60'000));                    // 2% would be 1.2 s; the floor is 2 s
    EXPECT_FALSE(fits(57'999, 60'000));
    EXPECT_FALSE(fits(60'000, 0));                        // unknown duration: never
    // A single row without an end has no span.
    EXPECT_FALSE(best(result("/x/a.txt", {0}), {"/y/zzz.mp3"}, 1000).matchLayers.contains(SidecarMatchLayers::duration));
    EXPECT_EQ(SidecarMatchingService::span({NormalizedChapter::make("a", 1000), NormalizedChapter::make("b", 4000)}),
              7000);
}

TEST(SidecarMatchingTest, PartialNamesAndConfidenceLevels)
{
    // Contained stem, same folder: 15 + 10 = 25, medium through the partial flag.
    auto m = best(result("/b/book_chapters.txt", {0, 1}), {"/b/book.mp3"}, 0);
    EXPECT_EQ(m.matchLayers.names(), (QStringList{"sameFolder", "partialName"}));
    EXPECT_EQ(m.confidence, SidecarMatchConfidence::medium);
    // Shared prefix of at least half the shorter stem ("harry p" of "harry potter 1"/"harry pan").
    EXPECT_TRUE(best(result("/x/harry potter 1.cue", {0, 1}), {"/y/harry pan.mp3"}, 0)
                    .matchLayers.contains(SidecarMatchLayers::partialName));
    EXPECT_FALSE(best(result("/x/abcdef.cue", {0, 1}), {"/y/abxxxx.mp3"}, 0)
                     .matchLayers.contains(SidecarMatchLayers::partialName));
    // Only the folder: low. Nothing at all: none.
    EXPECT_EQ(best(result("/b/notes.txt", {0, 1}), {"/b/zzz.mp3"}, 0).confidence, SidecarMatchConfidence::low);
    EXPECT_EQ(best(result("/x/notes.txt", {0, 1}), {"/y/zzz.mp3"}, 0).confidence, SidecarMatchConfidence::none);
    // Partial name in another folder: 10 points, low.
    EXPECT_EQ(best(result("/x/book-x.txt", {0, 1}), {"/y/book.mp3"}, 0).confidence, SidecarMatchConfidence::low);

    SidecarMatchLayers l;
    l.insert(SidecarMatchLayers::referencedFile);
    l.insert(SidecarMatchLayers::duration);
    EXPECT_EQ(SidecarMatchingService::confidence(60, l), SidecarMatchConfidence::high);
    SidecarMatchLayers dur;
    dur.insert(SidecarMatchLayers::duration);
    EXPECT_EQ(SidecarMatchingService::confidence(25, dur), SidecarMatchConfidence::low);
    dur.insert(SidecarMatchLayers::sameFolder);
    EXPECT_EQ(SidecarMatchingService::confidence(40, dur), SidecarMatchConfidence::medium);
}

TEST(SidecarMatchingTest, TieKeepsTheEarlierAudioFileAndNoAudioIsNone)
{
    const auto r = result("/b/part.cue", {0, 1});
    auto m = best(r, {"/b/one.mp3", "/b/two.mp3"}, 0);
    EXPECT_EQ(m.audioURL, QUrl::fromLocalFile("/b/one.mp3"));
    m = best(r, {"/b/one.mp3", "/b/part.mp3"}, 0);
    EXPECT_EQ(m.audioURL, QUrl::fromLocalFile("/b/part.mp3"));
    m = best(r, {}, 0);
    EXPECT_FALSE(m.audioURL.has_value());
    EXPECT_EQ(m.score, 0);
    EXPECT_EQ(m.confidence, SidecarMatchConfidence::none);
}
