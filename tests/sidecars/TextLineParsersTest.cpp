#include "SidecarTestHelpers.h"

#include "sidecars/parsers/Mp4chapsParser.h"
#include "sidecars/parsers/SimpleTextParser.h"

using namespace folivox;
using namespace folivox::test;

TEST(Mp4chapsParserTest, FourFormsFractionsAndTitles)
{
    const QString text = QStringLiteral(
        "00:00:00.000 Prologue\n"
        "0:01:02,5 Comma fraction\n"
        "01:02:03 Hours no fraction\n"
        "12:34.56 Minutes with fraction\n"
        "59:59\n"
        "1:02:03.04\tTabbed\n");
    const auto r = Mp4chapsParser().parse(text, fileUrl(QStringLiteral("book.chapters.txt")));
    EXPECT_EQ(titles(r.chapters),
              (QStringList{"Prologue", "Comma fraction", "Hours no fraction", "Minutes with fraction", "Chapter 5", "Tabbed"}));
    // "5" is 500 ms and "56" 560 ms: fractions are filled on the right.
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 62'500, 3'723'000, 754'560, 3'599'000, 3'723'040}));
    EXPECT_TRUE(r.warnings.isEmpty()) << describeWarnings(r).join(u'\n').toStdString();
}

TEST(Mp4chapsParserTest, DecoratedLinesGetASecondChance)
{
    const QString text = QStringLiteral(
        "[00:10] Intro\n"
        "(00:20) Second\n"
        "- 00:30 | Third\n"
        "3. 00:40:00 Fourth\n"
        "• 01:00:00.250 » Fifth\n"
        "00:50 - Dash kept on first pass\n");
    const auto r = Mp4chapsParser().parse(text, fileUrl(QStringLiteral("a.txt")));
    EXPECT_EQ(titles(r.chapters),
              (QStringList{"Intro", "Second", "Third", "Fourth", "Fifth", "- Dash kept on first pass"}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{10'000, 20'000, 30'000, 2'400'000, 3'600'250, 50'000}));
    EXPECT_TRUE(r.warnings.isEmpty()) << describeWarnings(r).join(u'\n').toStdString();
}

TEST(Mp4chapsParserTest, UnrecognizedLinesAndClockRule)
{
    const QString longLine = QStringLiteral("This line is not a chapter and is rather long, more than fifty characters");
    const QString text = QStringLiteral("# comment\n; comment\n75:00 Chapter\n") + longLine
                         + QStringLiteral("\n240:00:00.000 too many hour digits\n00:00:05 Real\n");
    const auto r = Mp4chapsParser().parse(text, fileUrl(QStringLiteral("a.txt")));
    EXPECT_EQ(titles(r.chapters), (QStringList{"Real"}));
    EXPECT_EQ(describeWarnings(r),
              (QStringList{"info|3|Skipped unrecognized line: 75:00 Chapter",
                           "info|4|Skipped unrecognized line: " + longLine.left(50),
                           "info|5|Skipped unrecognized line: 240:00:00.000 too many hour digits"}));
    const auto empty = Mp4chapsParser().parse(QStringLiteral("# nothing\n"), fileUrl(QStringLiteral("a.txt")));
    EXPECT_EQ(describeWarnings(empty), (QStringList{"error|-|No chapters found in file"}));
}

TEST(Mp4chapsParserTest, CrLfLinesCountTwiceAndOtherBreaksSplit)
{
    const QString text = QStringLiteral("00:00:00.000 One\r\nnot a chapter\r\n00:01:00.000 Two\u2028bad line\r00:02:00 Three");
    const auto r = Mp4chapsParser().parse(text, fileUrl(QStringLiteral("a.txt")));
    EXPECT_EQ(titles(r.chapters), (QStringList{"One", "Two", "Three"}));
    // Lines: 1 One, 2 blank, 3 "not a chapter", 4 blank, 5 Two, 6 "bad line", 7 Three.
    EXPECT_EQ(describeWarnings(r), (QStringList{"info|3|Skipped unrecognized line: not a chapter",
                                                "info|6|Skipped unrecognized line: bad line"}));
}

TEST(Mp4chapsParserTest, FiveHundredLimitAndInvisibleTitles)
{
    QString text;
    for (int i = 0; i < 501; ++i)
        text += QStringLiteral("%1:%2:00.000 Chapter title %3\n").arg(i / 60).arg(i % 60, 2, 10, QChar(u'0')).arg(i);
    const auto r = Mp4chapsParser().parse(text, fileUrl(QStringLiteral("a.txt")));
    EXPECT_EQ(r.chapters.size(), 500);
    EXPECT_EQ(describeWarnings(r), (QStringList{"warning|-|Chapter limit reached (500), truncating"}));

    const auto invisible = Mp4chapsParser().parse(QStringLiteral("00:00:01.000 \u200B\uFEFF\u200D\n"), fileUrl(QStringLiteral("a.txt")));
    EXPECT_EQ(titles(invisible.chapters), (QStringList{"Untitled"}));
}

TEST(Mp4chapsParserTest, Confidence)
{
    const Mp4chapsParser p;
    const QString three = QStringLiteral("00:00:00.000 A\n00:01:00.000 B\n00:02:00 C\n");
    EXPECT_EQ(p.confidence(three, fileUrl(QStringLiteral("Book.Chapters.txt"))), 100);
    EXPECT_EQ(p.confidence(three, fileUrl(QStringLiteral("list.txt"))), 60);
    EXPECT_EQ(p.confidence(QStringLiteral("intro\n00:05 x\n"), fileUrl(QStringLiteral("list.txt"))), 30);
    // Only the first 20 non-blank lines are looked at.
    QString late = QString(QStringLiteral("words\n")).repeated(20) + three;
    EXPECT_EQ(p.confidence(late, fileUrl(QStringLiteral("list.txt"))), 0);
}

TEST(SimpleTextParserTest, PrefixRemovalAlwaysRunsAndBracketStaysInTitle)
{
    const QString text = QStringLiteral(
        "[00:10] Intro\n"
        "00:00 - Start\n"
        "1. 00:01:30,25 | Two digit fraction\n"
        "Just words without time\n"
        "# 00:05 commented\n"
        "00:99 bad seconds\n"
        "(01:00:00)\n");
    const auto r = SimpleTextParser().parse(text, fileUrl(QStringLiteral("notes.txt")));
    EXPECT_EQ(titles(r.chapters), (QStringList{"] Intro", "Start", "Two digit fraction", ")"}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{10'000, 0, 90'250, 3'600'000}));
    EXPECT_TRUE(r.warnings.isEmpty());

    const auto none = SimpleTextParser().parse(QStringLiteral("nothing here\n"), fileUrl(QStringLiteral("notes.txt")));
    EXPECT_EQ(describeWarnings(none), (QStringList{"error|-|No timestamps found in file"}));
}

TEST(SimpleTextParserTest, ConfidenceNeedsTxtExtension)
{
    const SimpleTextParser p;
    QString five;
    for (int i = 0; i < 5; ++i)
        five += QStringLiteral("[0%1:00] x\n").arg(i);
    EXPECT_EQ(p.confidence(five, fileUrl(QStringLiteral("a.txt"))), 60);
    EXPECT_EQ(p.confidence(five, fileUrl(QStringLiteral("a.md"))), 0);
    EXPECT_EQ(p.confidence(QStringLiteral("00:01 a\n(00:02) b\n1:00:00 c\n"), fileUrl(QStringLiteral("a.txt"))), 40);
    EXPECT_EQ(p.confidence(QStringLiteral("00:01 a\n"), fileUrl(QStringLiteral("a.txt"))), 20);
}
