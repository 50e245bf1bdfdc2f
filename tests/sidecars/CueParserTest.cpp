#include "SidecarTestHelpers.h"

#include "sidecars/parsers/CueParser.h"

using namespace folivox;
using namespace folivox::test;

namespace {

SidecarParseResult parseCue(const QString& text, const QString& name = QStringLiteral("book.cue"))
{
    return CueParser().parse(text, fileUrl(name));
}

QString cueSheet(const QStringList& indexes, const QString& file = QStringLiteral("FILE \"book.mp3\" MP3"))
{
    QString s = QStringLiteral("PERFORMER \"Author\"\nTITLE \"The Album\"\n") + file + u'\n';
    for (qsizetype i = 0; i < indexes.size(); ++i)
        s += QStringLiteral("  TRACK %1 AUDIO\n    TITLE \"Part %1\"\n    INDEX 01 %2\n")
                 .arg(i + 1, 2, 10, QChar(u'0'))
                 .arg(indexes[i]);
    return s;
}

} // namespace

TEST(CueParserTest, FramesAreSeventyFifthsAndAlbumTitleIsNotAChapter)
{
    const auto r = parseCue(cueSheet({QStringLiteral("00:00:00"), QStringLiteral("01:02:74"),
                                      QStringLiteral("10:00:37")}));
    EXPECT_EQ(r.format, SidecarFormat::cue);
    EXPECT_EQ(titles(r.chapters), (QStringList{"Part 01", "Part 02", "Part 03"}));
    // 74/75 s = 986.67 ms, truncated; 37/75 s = 493.33 ms.
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 62'986, 600'493}));
    EXPECT_EQ(ends(r.chapters), (QList<std::optional<qint64>>{std::nullopt, std::nullopt, std::nullopt}));
    EXPECT_EQ(r.referencedAudioFile, QStringLiteral("book.mp3"));
    EXPECT_TRUE(r.warnings.isEmpty()) << describeWarnings(r).join(u'\n').toStdString();
}

TEST(CueParserTest, HundredthsModeIsDecidedByOneLineForTheWholeFile)
{
    const auto r = parseCue(cueSheet({QStringLiteral("00:00:00"), QStringLiteral("02:03:74"),
                                      QStringLiteral("02:05:80"), QStringLiteral("03:00:120")}));
    ASSERT_EQ(r.chapters.size(), 4);
    // 74 is hundredths here: 740 ms, not 986 ms.
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 123'740, 125'800, 180'000}));
    EXPECT_EQ(describeWarnings(r),
              (QStringList{"info|-|Timestamps use hundredths of a second, not CUE frames",
                           "warning|15|INDEX fraction out of range; chapter kept at whole-second precision"}));
}

TEST(CueParserTest, FramesModeNeverWarnsAboutFractions)
{
    // 74 is the largest frame; without a 75..99 field the file stays in frames.
    const auto r = parseCue(cueSheet({QStringLiteral("00:00:00"), QStringLiteral("00:01:74")}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 1986}));
    EXPECT_TRUE(r.warnings.isEmpty());
}

TEST(CueParserTest, TrackFallbackTitlesMissingIndexAndBadValues)
{
    const QString text = QStringLiteral(
        "FILE \"a.wav\" WAVE\n"
        "TRACK 01 AUDIO\n"
        "  INDEX 01 00:00:00\n"
        "TRACK 02 AUDIO\n"
        "  TITLE \"No index here\"\n"
        "TRACK 07 AUDIO\n"
        "  INDEX 00 00:09:00\n"
        "  INDEX 01 00:10:00\n"
        "TRACK 08 AUDIO\n"
        "  INDEX 01 00:60:00\n"      // seconds over 59: ignored silently
        "  INDEX 01 14401:00:00\n"   // minutes over 14,400: ignored
        "  INDEX 01 1:2\n"           // two fields: ignored
        "TRACK 09 AUDIO\n"
        "  TITLE \"\"\"\n"
        "  INDEX 01 14400:00:00\n"); // exactly 240 hours: allowed
    const auto r = parseCue(text);
    EXPECT_EQ(titles(r.chapters), (QStringList{"Track 1", "Track 7", "\""}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 10'000, 864'000'000}));
    EXPECT_TRUE(r.warnings.isEmpty()) << describeWarnings(r).join(u'\n').toStdString();
}

TEST(CueParserTest, FileOutsideTheFolderIsNeverReferenced)
{
    for (const QString& file : {QStringLiteral("FILE \"../book.mp3\" MP3"), QStringLiteral("FILE \"/abs/book.mp3\" MP3"),
                                QStringLiteral("FILE \"C:\\book.mp3\" WAVE"), QStringLiteral("FILE sub/../../x.mp3 MP3")}) {
        const auto r = parseCue(cueSheet({QStringLiteral("00:00:00"), QStringLiteral("01:00:00")}, file));
        EXPECT_FALSE(r.referencedAudioFile.has_value()) << file.toStdString();
        EXPECT_EQ(r.chapters.size(), 2);
        EXPECT_TRUE(describeWarnings(r).contains(QStringLiteral("warning|-|No FILE directive found")))
            << file.toStdString();
    }
    // An unquoted name is the first word; a name inside a subfolder is fine.
    EXPECT_EQ(parseCue(cueSheet({QStringLiteral("00:00:00")}, QStringLiteral("file disc1/book.flac WAVE")))
                  .referencedAudioFile,
              QStringLiteral("disc1/book.flac"));
}

TEST(CueParserTest, SecondFileIsWarnedAndIgnored)
{
    const QString text = QStringLiteral(
        "FILE \"one.mp3\" MP3\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nFILE \"two.mp3\" MP3\nTRACK 02 AUDIO\nINDEX 01 05:00:00\n");
    const auto r = parseCue(text);
    EXPECT_EQ(r.referencedAudioFile, QStringLiteral("one.mp3"));
    EXPECT_EQ(describeWarnings(r),
              (QStringList{"warning|4|Multiple FILE directives found; using first file only"}));
    EXPECT_EQ(r.chapters.size(), 2);
}

TEST(CueParserTest, FiveHundredTwoTracksGiveFiveHundredOneChapters)
{
    QStringList indexes;
    for (int i = 0; i < 502; ++i)
        indexes << QStringLiteral("%1:00:00").arg(i);
    const auto r = parseCue(cueSheet(indexes));
    ASSERT_EQ(r.chapters.size(), 501);
    EXPECT_EQ(r.chapters.back().title, QStringLiteral("Part 501"));
    EXPECT_EQ(r.chapters.back().startMs, 500 * 60'000);
    EXPECT_EQ(describeWarnings(r), (QStringList{"warning|-|Chapter limit reached (500), truncating"}));
}

TEST(CueParserTest, NothingUsableGivesErrorAndFileWarning)
{
    const auto r = parseCue(QStringLiteral("REM just a comment\nTITLE \"Album\"\nTRACK 01 AUDIO\n  TITLE \"x\"\n"));
    EXPECT_TRUE(r.chapters.isEmpty());
    EXPECT_EQ(describeWarnings(r),
              (QStringList{"error|-|No chapters found in CUE file", "warning|-|No FILE directive found"}));
}

TEST(CueParserTest, ConfidenceWeighsExtensionAndKeywords)
{
    const CueParser p;
    const QString full = cueSheet({QStringLiteral("00:00:00")});
    EXPECT_EQ(p.confidence(full, fileUrl(QStringLiteral("x.CUE"))), 100);
    EXPECT_EQ(p.confidence(full, fileUrl(QStringLiteral("x.txt"))), 70);
    EXPECT_EQ(p.confidence(QStringLiteral("file \"a.flac\" flac\n"), fileUrl(QStringLiteral("x.txt"))), 30);
    EXPECT_EQ(p.confidence(QStringLiteral("hello"), fileUrl(QStringLiteral("x.cue"))), 50);
    EXPECT_EQ(p.confidence(QStringLiteral("hello"), fileUrl(QStringLiteral("x.txt"))), 0);
}
