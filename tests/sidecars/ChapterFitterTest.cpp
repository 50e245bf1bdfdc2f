// What a chapter file comes to once fitted to the audio: the chapters every
// caller applies, the bookmarks a build gets, and the lines a user reads.
#include "SidecarTestHelpers.h"

#include "sidecars/parsers/Mp4chapsParser.h"
#include "sidecars/apply/SidecarChapterFitter.h"
#include "sidecars/parsers/SidecarParserRegistry.h"
#include "sidecars/parsers/SimpleTextParser.h"

#include <numeric>

using namespace folivox;
using namespace folivox::test;

namespace {

Track track(const QString& name, double seconds)
{
    Track t;
    t.url = QUrl::fromLocalFile(QStringLiteral("/books/") + name);
    t.duration = seconds;
    return t;
}

SidecarParseResult mp4chaps(const char* text)
{
    return Mp4chapsParser().parse(QString::fromUtf8(text), fileUrl(QStringLiteral("book.chapters.txt")));
}

double totalOf(const std::vector<Bookmark>& bookmarks)
{
    return std::accumulate(bookmarks.begin(), bookmarks.end(), 0.0,
                           [](double sum, const Bookmark& b) { return sum + b.duration; });
}

} // namespace

TEST(ChapterFitter, UnsortedDuplicatesKeepEveryDistinctStartInOrder)
{
    const SidecarParseResult parsed =
        mp4chaps("00:00:00.000 One\n00:00:20.000 Three\n00:00:10.000 Two\n00:00:10.000 Two again\n");
    const FittedSidecarChapters fitted = SidecarChapterFitter::fit(parsed, 30'000);
    ASSERT_TRUE(fitted.isValid);
    EXPECT_EQ(titles(fitted.chapters), QStringList({"One", "Two", "Three"}));
    EXPECT_EQ(starts(fitted.chapters), QList<qint64>({0, 10'000, 20'000}));
    EXPECT_EQ(ends(fitted.chapters), (QList<std::optional<qint64>>{10'000, 20'000, 30'000}));
    EXPECT_EQ(fitted.firstProblem(), QStringLiteral("Duplicate timestamp at 0:10.000; keeping first occurrence"));

    const std::vector<Track> tracks{track("a.m4a", 12.0), track("b.m4a", 18.0)};
    const std::vector<Bookmark> marks = SidecarChapterFitter::bookmarks(tracks, fitted.chapters);
    ASSERT_EQ(marks.size(), 3u);
    EXPECT_EQ(marks[1].title, QStringLiteral("Two"));
    // "Two" runs from 10 s in a.m4a across into b.m4a.
    EXPECT_DOUBLE_EQ(marks[1].startOffset, 10.0);
    ASSERT_EQ(marks[1].tracks.size(), 2u);
    EXPECT_DOUBLE_EQ(marks[1].duration, 10.0);
    // "Three" starts 8 s into b.m4a and ends with the audio.
    ASSERT_EQ(marks[2].tracks.size(), 1u);
    EXPECT_EQ(marks[2].tracks[0].url, tracks[1].url);
    EXPECT_DOUBLE_EQ(marks[2].startOffset, 8.0);
    EXPECT_DOUBLE_EQ(totalOf(marks), 30.0);
}

TEST(ChapterFitter, ChaptersCoverTheAudioExactlyOnce)
{
    // A cue sheet of 200 quarter-second tracks over 30 s of audio: the rows
    // past the end go, the rest fill the audio without gap or overlap.
    QByteArray cue = "FILE \"book.m4a\" MP4\n";
    for (int i = 0; i < 200; ++i) {
        const int frames = i * 75 / 4;  // a quarter second in CUE frames
        cue += QStringLiteral("TRACK %1 AUDIO\n  INDEX 01 %2:%3:%4\n")
                   .arg(i + 1, 3, 10, QChar(u'0'))
                   .arg(frames / 75 / 60, 2, 10, QChar(u'0'))
                   .arg(frames / 75 % 60, 2, 10, QChar(u'0'))
                   .arg(frames % 75, 2, 10, QChar(u'0'))
                   .toUtf8();
    }
    const auto parsed = SidecarParserRegistry::parse(QString::fromUtf8(cue), fileUrl(QStringLiteral("book.cue")));
    ASSERT_TRUE(parsed);
    const std::vector<Track> tracks{track("book.m4a", 30.0)};
    const FittedSidecarChapters fitted = SidecarChapterFitter::fit(*parsed, SidecarChapterFitter::totalDurationMs(tracks));
    ASSERT_TRUE(fitted.isValid);
    EXPECT_EQ(fitted.chapters.size(), 120);
    const std::vector<Bookmark> marks = SidecarChapterFitter::bookmarks(tracks, fitted.chapters);
    ASSERT_EQ(marks.size(), 120u);
    EXPECT_NEAR(totalOf(marks), 30.0, 1e-9);
    for (std::size_t i = 0; i + 1 < marks.size(); ++i)
        EXPECT_NEAR(marks[i].startOffset + marks[i].duration, marks[i + 1].startOffset, 1e-9) << i;

    // Rows that reach the bookmarks unfitted (unsorted, repeated, past the
    // end) still never make a book longer than its audio.
    QList<NormalizedChapter> raw{NormalizedChapter::make("C", 20'000), NormalizedChapter::make("A", 0),
                                 NormalizedChapter::make("B", 10'000), NormalizedChapter::make("B2", 10'000),
                                 NormalizedChapter::make("Late", 45'000)};
    const std::vector<Bookmark> rawMarks = SidecarChapterFitter::bookmarks(tracks, raw);
    ASSERT_EQ(rawMarks.size(), 3u);
    EXPECT_EQ(rawMarks[1].title, QStringLiteral("B"));
    EXPECT_NEAR(totalOf(rawMarks), 30.0, 1e-9);
}

TEST(ChapterFitter, AChapterOnATrackBoundaryStartsInTheNextTrack)
{
    const std::vector<Track> tracks{track("01.mp3", 10.0), track("02.mp3", 10.0), track("03.mp3", 10.0)};
    const std::vector<Bookmark> marks = SidecarChapterFitter::bookmarks(
        tracks, {NormalizedChapter::make("One", 0), NormalizedChapter::make("Two", 20'000)});
    ASSERT_EQ(marks.size(), 2u);
    EXPECT_EQ(marks[0].tracks.size(), 2u);
    ASSERT_EQ(marks[1].tracks.size(), 1u);
    EXPECT_EQ(marks[1].tracks[0].url, tracks[2].url);
    EXPECT_DOUBLE_EQ(marks[1].startOffset, 0.0);
}

TEST(ChapterFitter, AMinusSignMakesATimeNegativeAndABulletDoesNot)
{
    SidecarParseResult parsed = mp4chaps("00:00:00.000 One\n-00:00:05.000 Before\n- 00:00:10.000 Bulleted\n");
    EXPECT_EQ(starts(parsed.chapters), QList<qint64>({0, -5'000, 10'000}));
    EXPECT_EQ(titles(parsed.chapters), QStringList({"One", "Before", "Bulleted"}));
    FittedSidecarChapters fitted = SidecarChapterFitter::fit(parsed, 30'000);
    ASSERT_TRUE(fitted.isValid);
    EXPECT_EQ(titles(fitted.chapters), QStringList({"One", "Bulleted"}));
    EXPECT_EQ(fitted.firstProblem(), QStringLiteral("Negative timestamp removed: Before"));

    // The unicode minus too, and plain text is refused outright.
    parsed = SimpleTextParser().parse(QStringLiteral("00:00 One\n\u221200:20 Before\n00:40 Two\n"),
                                      fileUrl(QStringLiteral("notes.txt")));
    EXPECT_EQ(starts(parsed.chapters), QList<qint64>({0, -20'000, 40'000}));
    fitted = SidecarChapterFitter::fit(parsed, 60'000);
    EXPECT_FALSE(fitted.isValid);
    EXPECT_TRUE(fitted.chapters.isEmpty());
}

TEST(ChapterFitter, NoticesNameTheFileAndLineAndSayWhatToDo)
{
    const auto parsed = SidecarParserRegistry::parse(QStringLiteral("0\t0\tIntro\nnan\tnan\tBroken\n-3\t-3\tEarly\n"
                                                                    "10\t10\tMiddle\n"),
                                                     fileUrl(QStringLiteral("labels.txt")));
    ASSERT_TRUE(parsed);
    ASSERT_EQ(parsed->format, SidecarFormat::audacityLabels);
    const FittedSidecarChapters fitted = SidecarChapterFitter::fit(*parsed, 20'000);
    ASSERT_TRUE(fitted.isValid);
    EXPECT_EQ(titles(fitted.chapters), QStringList({"Intro", "Middle"}));
    const QStringList lines = SidecarChapterFitter::notices(fitted, QStringLiteral("labels.txt"));
    ASSERT_EQ(lines.size(), 3) << lines.join(u'\n').toStdString();
    EXPECT_EQ(lines[0], QStringLiteral("labels.txt, line 2: Timestamp out of range"));
    EXPECT_EQ(lines[1], QStringLiteral("labels.txt, line 3: Timestamp out of range"));
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("labels.txt: ")));
    EXPECT_TRUE(lines[2].contains(QStringLiteral("correct them in the file")));

    // A clean file has nothing to say.
    const FittedSidecarChapters clean = SidecarChapterFitter::fit(mp4chaps("00:00:00 A\n00:00:10 B\n"), 20'000);
    EXPECT_TRUE(SidecarChapterFitter::notices(clean, QStringLiteral("x.chapters.txt")).isEmpty());
}

TEST(ChapterFitter, UnknownLengthKeepsTheFilesOwnEnds)
{
    const FittedSidecarChapters fitted = SidecarChapterFitter::fit(mp4chaps("00:00:00 A\n00:00:10 B\n"), 0);
    ASSERT_TRUE(fitted.isValid);
    EXPECT_EQ(ends(fitted.chapters), (QList<std::optional<qint64>>{10'000, std::nullopt}));
}
