#include "SidecarTestHelpers.h"

#include "sidecars/parsers/FFMetadataParser.h"

using namespace folivox;
using namespace folivox::test;

TEST(FFMetadataParserTest, ChaptersWithTimebasesTitlesAndEnds)
{
    const QString text = QStringLiteral(
        ";FFMETADATA1\n"
        "title=The Book\n"            // global keys are not chapters
        "[CHAPTER]\n"
        "TIMEBASE=1/1000\n"
        "START=0\n"
        "END=60000\n"
        "title=Opening\n"
        "\n"
        "[chapter]\n"
        "timebase = 1/44100\n"
        "start = 2646000\n"
        "END=5292000\n"
        "TITLE=Middle \\= part\n"     // no unescaping
        "[STREAM]\n"
        "title=not a chapter\n"
        "[CHAPTER]\n"
        "START=125500\n");            // default timebase 1/1000
    const auto r = FFMetadataParser().parse(text, fileUrl(QStringLiteral("book.ffmetadata")));
    EXPECT_EQ(titles(r.chapters), (QStringList{"Opening", "Middle \\= part", "Chapter 3"}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 60'000, 125'500}));
    EXPECT_EQ(ends(r.chapters), (QList<std::optional<qint64>>{60'000, 120'000, std::nullopt}));
    EXPECT_TRUE(r.warnings.isEmpty()) << describeWarnings(r).join(u'\n').toStdString();
}

TEST(FFMetadataParserTest, MissingStartIsOneWarningAtTheClosingLine)
{
    const QString text = QStringLiteral(
        ";FFMETADATA1\n"
        "[CHAPTER]\n"
        "TIMEBASE=1/1000\n"
        "END=5000\n"
        "title=No start\n"
        "[CHAPTER]\n"          // line 6 closes the first section
        "TIMEBASE=1/1000\n"
        "START=5000\n"
        "title=Fine\n");
    const auto r = FFMetadataParser().parse(text, fileUrl(QStringLiteral("x.txt")));
    EXPECT_EQ(titles(r.chapters), (QStringList{"Fine"}));
    EXPECT_EQ(describeWarnings(r), (QStringList{"warning|6|Chapter section missing START time"}));
}

TEST(FFMetadataParserTest, MalformedTimebaseFallsBackAndOutOfRangeStartIsRefused)
{
    const QString text = QStringLiteral(
        "[CHAPTER]\nTIMEBASE=1/0\nSTART=1500\n"             // bad timebase: 1/1000 used
        "[CHAPTER]\nTIMEBASE=abc\nSTART=2500\n"
        "[CHAPTER]\nTIMEBASE=1/1\nSTART=864001\n"           // 240 h + 1 s
        "[CHAPTER]\nTIMEBASE=1/1\nSTART=864000\n"           // exactly 240 h
        "[CHAPTER]\nSTART=-5\n");                           // not a whole number
    const auto r = FFMetadataParser().parse(text, fileUrl(QStringLiteral("x.txt")));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{1500, 2500, 864'000'000}));
    EXPECT_EQ(describeWarnings(r), (QStringList{"info|-|Missing ;FFMETADATA1 header",
                                                "warning|10|Chapter section missing START time",
                                                "warning|-|Chapter section missing START time"}));
}

TEST(FFMetadataParserTest, EmptyFileAndConfidence)
{
    const FFMetadataParser p;
    const auto r = p.parse(QStringLiteral(";FFMETADATA1\ntitle=x\n"), fileUrl(QStringLiteral("a.ffmetadata")));
    EXPECT_EQ(describeWarnings(r), (QStringList{"error|-|No valid chapters found"}));
    EXPECT_EQ(p.confidence(QStringLiteral("\n  ;FFMETADATA1\n"), fileUrl(QStringLiteral("a.txt"))), 100);
    EXPECT_EQ(p.confidence(QStringLiteral("[CHAPTER]\nTIMEBASE=1/1000"), fileUrl(QStringLiteral("a.txt"))), 80);
    EXPECT_EQ(p.confidence(QStringLiteral("[CHAPTER]\nSTART=0"), fileUrl(QStringLiteral("a.txt"))), 0);
}
