#include "SidecarTestHelpers.h"

#include "sidecars/parsers/AudacityLabelsParser.h"

using namespace folivox;
using namespace folivox::test;

TEST(AudacityLabelsParserTest, RegionAndPointLabels)
{
    const QString text = QStringLiteral(
        "0.000000\t12.500000\tOpening\n"
        "30.25\t30.25\tPoint label\n"
        "45\t60\n"
        "1e2\t2e2\t  Scientific  \n");
    const auto r = AudacityLabelsParser().parse(text, fileUrl(QStringLiteral("labels.txt")));
    EXPECT_EQ(titles(r.chapters), (QStringList{"Opening", "Point label", "Chapter 3", "Scientific"}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 30'250, 45'000, 100'000}));
    EXPECT_EQ(ends(r.chapters), (QList<std::optional<qint64>>{12'500, 30'250, 60'000, 200'000}));
    EXPECT_TRUE(r.warnings.isEmpty());
}

TEST(AudacityLabelsParserTest, FaultyLinesAreReportedWithTheirLines)
{
    const QString text = QStringLiteral(
        "no tabs here\n"
        "abc\t10\tBad start\n"
        "10\t1,5\tComma is not a decimal point\n"
        "-1\t5\tNegative\n"
        "864000\t864000.001\tPast the limit\n"
        " \n"
        "nan\tnan\tNot a number\n"
        "864000\t864000\tAt the limit\n");
    const auto r = AudacityLabelsParser().parse(text, fileUrl(QStringLiteral("labels.txt")));
    EXPECT_EQ(titles(r.chapters), (QStringList{"At the limit"}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{864'000'000}));
    EXPECT_EQ(describeWarnings(r), (QStringList{"info|1|Skipping line without tab separator",
                                                "warning|2|Invalid start time", "warning|3|Invalid end time",
                                                "warning|4|Timestamp out of range", "warning|5|Timestamp out of range",
                                                "warning|7|Timestamp out of range"}));
    const auto empty = AudacityLabelsParser().parse(QStringLiteral("x\n"), fileUrl(QStringLiteral("labels.txt")));
    EXPECT_EQ(describeWarnings(empty), (QStringList{"info|1|Skipping line without tab separator",
                                                    "error|-|No labels found in file"}));
}

TEST(AudacityLabelsParserTest, FiveHundredOneLabelsGiveFiveHundredAndOneWarning)
{
    QString text;
    for (int i = 0; i < 501; ++i)
        text += QStringLiteral("%1\t%1\tL%1\n").arg(i * 10);
    const auto r = AudacityLabelsParser().parse(text, fileUrl(QStringLiteral("labels.txt")));
    EXPECT_EQ(r.chapters.size(), 500);
    EXPECT_EQ(r.chapters.back().title, QStringLiteral("L4990"));
    EXPECT_EQ(describeWarnings(r), (QStringList{"warning|-|Chapter limit reached (500), truncating"}));
}

TEST(AudacityLabelsParserTest, ConfidenceLooksAtTwentyLines)
{
    EXPECT_EQ(AudacityLabelsParser::labelConfidence(QStringLiteral("1\t2\n3\t4\tx\n5\t6\n")), 80);
    EXPECT_EQ(AudacityLabelsParser::labelConfidence(QStringLiteral("1\t2\n")), 50);
    EXPECT_EQ(AudacityLabelsParser::labelConfidence(QStringLiteral("a\tb\n")), 0);
    // Blank lines count toward the twenty.
    EXPECT_EQ(AudacityLabelsParser::labelConfidence(QString(20, u'\n') + QStringLiteral("1\t2\n")), 0);
}
