// The progress bar's line at every terminal width: it must never wrap (a
// wrapped line cannot be redrawn in place) and must keep what matters most.
#include "cli/ProgressReporter.h"

#include <gtest/gtest.h>

using folivox::cli::ProgressReporter;

TEST(ProgressBar, FitsEveryWidthAndDropsTheLeastNeededFirst)
{
    ProgressReporter::Line line;
    line.phase = QStringLiteral("Encoding audio (12 of 48 slices)…");
    line.fraction = 0.42;
    line.elapsedSeconds = 75;
    line.remainingSeconds = 103;
    line.speed = 35.4;
    for (int columns = 8; columns <= 200; ++columns) {
        const QString text = ProgressReporter::barText(line, columns);
        EXPECT_LE(text.size(), std::max(10, columns - 1)) << columns;
        EXPECT_TRUE(text.contains(QStringLiteral("42%")) || columns < 16) << columns << ": " << text.toStdString();
    }
    const QString wide = ProgressReporter::barText(line, 120);
    EXPECT_TRUE(wide.contains(QStringLiteral("1:15 ETA 1:43"))) << wide.toStdString();
    EXPECT_TRUE(wide.contains(QStringLiteral("35×"))) << wide.toStdString();
    EXPECT_TRUE(wide.contains(QStringLiteral("Encoding audio"))) << wide.toStdString();
    // Narrow: the speed goes before the times, the times before the percent.
    const QString narrow = ProgressReporter::barText(line, 40);
    EXPECT_FALSE(narrow.contains(u'×')) << narrow.toStdString();
    EXPECT_TRUE(narrow.contains(QStringLiteral("42%"))) << narrow.toStdString();
}

TEST(ProgressBar, DurationsReadAsClockTimes)
{
    EXPECT_EQ(ProgressReporter::durationText(0), QStringLiteral("0:00"));
    EXPECT_EQ(ProgressReporter::durationText(59.6), QStringLiteral("1:00"));
    EXPECT_EQ(ProgressReporter::durationText(3725), QStringLiteral("1:02:05"));
}
