#include "export/engine/ExportPhase.h"
#include "export/engine/ExportProgress.h"
#include "export/engine/ProgressCoalescer.h"
#include "platform/L10n.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

using namespace folivox;

TEST(ExportPhaseTest, TitlesAndKeysFollowTheTable)
{
    EXPECT_EQ(exportPhaseTitle(ExportPhase::cover), QStringLiteral("Exporting cover…"));
    EXPECT_EQ(exportPhaseTitle(ExportPhase::checkingFiles), QStringLiteral("Checking files…"));
    EXPECT_EQ(exportPhaseTitle(ExportPhase::analyzingFiles, 3, 12), QStringLiteral("Analyzing files… 3 of 12"));
    EXPECT_EQ(exportPhaseTitle(ExportPhase::encoding), QStringLiteral("Encoding audio…"));
    EXPECT_EQ(exportPhaseTitle(ExportPhase::finalizingChapters), QStringLiteral("Finalizing chapters…"));
    EXPECT_EQ(exportPhaseTitle(ExportPhase::merging), QStringLiteral("Merging chapters…"));
    EXPECT_EQ(exportPhaseTitle(ExportPhase::metadata), QStringLiteral("Writing metadata…"));
    EXPECT_EQ(exportPhaseTitle(ExportPhase::part, 2, 5), QStringLiteral("Exporting Part 2/5…"));
    EXPECT_EQ(exportPhaseTitle(ExportPhase::complete), QStringLiteral("Complete"));
    EXPECT_EQ(exportPhaseKey(ExportPhase::finalizingChapters), QStringLiteral("export.progress.finalizing.chapters"));
    EXPECT_TRUE(exportPhaseKey(ExportPhase::complete).isEmpty());
    // Every other phase has a key and a non-empty title.
    for (ExportPhase p : enumCases<ExportPhase>()) {
        EXPECT_FALSE(exportPhaseTitle(p).isEmpty()) << enumName(p).toStdString();
        if (p != ExportPhase::complete) {
            EXPECT_TRUE(exportPhaseKey(p).startsWith(QStringLiteral("export.progress."))) << enumName(p).toStdString();
        }
    }

    L10n::setOverride(QStringLiteral("export.progress.part"), QStringLiteral("Teil %d von %d"));
    EXPECT_EQ(exportPhaseTitle(ExportPhase::part, 1, 3), QStringLiteral("Teil 1 von 3"));
    L10n::clearOverrides();
}

TEST(ProgressCoalescerTest, MapsPhasesOntoTheWholeAndNeverGoesBack)
{
    std::vector<ExportProgress> seen;
    ProgressCoalescer c([&seen](const ExportProgress& p) { seen.push_back(p); }, 0.01);
    c.setPlan({{ExportPhase::encoding, 8}, {ExportPhase::merging, 1}, {ExportPhase::metadata, 1}});

    c.report(ExportPhase::encoding, 0.5);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_NEAR(seen.back().fraction, 0.4, 1e-9);
    EXPECT_EQ(seen.back().title, QStringLiteral("Encoding audio…"));

    c.report(ExportPhase::encoding, 0.501); // below the step: coalesced away
    EXPECT_EQ(seen.size(), 1u);
    c.report(ExportPhase::encoding, 0.3); // backwards: the mark holds
    EXPECT_EQ(seen.size(), 1u);
    EXPECT_NEAR(c.highWaterMark(), 0.4008, 1e-9);

    c.report(ExportPhase::merging, 0.0); // new phase: always passed on
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen.back().phase, ExportPhase::merging);
    EXPECT_NEAR(seen.back().fraction, 0.8, 1e-9);

    c.report(ExportPhase::preparing, 1.0); // not in the plan: keeps the current fraction
    EXPECT_NEAR(seen.back().fraction, 0.8, 1e-9);

    c.report(ExportPhase::metadata, 1.0);
    EXPECT_NEAR(seen.back().fraction, 1.0, 1e-9);
    for (std::size_t i = 1; i < seen.size(); ++i)
        EXPECT_GE(seen[i].fraction, seen[i - 1].fraction);
}

TEST(ProgressCoalescerTest, ParallelReportersReachTheSinkInRisingOrder)
{
    std::mutex mutex;
    std::vector<double> fractions;
    ProgressCoalescer c(
        [&](const ExportProgress& p) {
            std::lock_guard lock(mutex);
            fractions.push_back(p.fraction);
        },
        0.0);
    c.setPlan({{ExportPhase::encoding, 1}});
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&c, t] {
            for (int i = 0; i < 500; ++i)
                c.report(ExportPhase::encoding, double((i * 7 + t * 13) % 500) / 500.0);
        });
    }
    for (auto& t : threads)
        t.join();
    ASSERT_FALSE(fractions.empty());
    for (std::size_t i = 1; i < fractions.size(); ++i)
        ASSERT_GE(fractions[i], fractions[i - 1]) << "at " << i;
    EXPECT_NEAR(fractions.back(), 0.998, 1e-9);
}
