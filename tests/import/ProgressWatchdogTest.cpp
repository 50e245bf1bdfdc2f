#include "import/probe/AudioMetadataService.h"
#include "import/ProgressWatchdog.h"
#include "import/TrackLoadOutcome.h"
#include "platform/L10n.h"

#include <gtest/gtest.h>

#include <thread>

using namespace folivox;
using namespace std::chrono_literals;

TEST(ProgressWatchdogTest, TicksKeepItAliveAndSilenceStallsIt)
{
    ProgressWatchdog w(150ms);
    EXPECT_EQ(w.stage(), "opening asset");
    EXPECT_FALSE(w.check());
    for (int i = 0; i < 4; ++i) {
        std::this_thread::sleep_for(60ms);
        w.tick(QStringLiteral("step %1").arg(i));
    }
    // 240 ms have passed in all, but never 150 without a tick.
    EXPECT_FALSE(w.hasStalled());
    EXPECT_EQ(w.ticks(), 4);
    EXPECT_EQ(w.stage(), "step 3");
    EXPECT_GE(w.longestInterval(), 55ms);
    EXPECT_LT(w.longestInterval(), 150ms);

    std::this_thread::sleep_for(200ms);
    const auto stall = w.check();
    ASSERT_TRUE(stall);
    EXPECT_EQ(stall->stage, "step 3");
    EXPECT_GE(stall->silence, 150ms);
    // A stall is final: a late tick does not revive it or move the stage.
    w.tick(QStringLiteral("late"));
    EXPECT_TRUE(w.hasStalled());
    EXPECT_EQ(w.stage(), "step 3");
    EXPECT_EQ(w.ticks(), 4);
}

TEST(ProgressWatchdogTest, ALateTickCountsAsAStall)
{
    // The work came back only after the interval, before anyone checked.
    ProgressWatchdog w(50ms, QStringLiteral("first"));
    std::this_thread::sleep_for(80ms);
    w.tick(QStringLiteral("second"));
    const auto stall = w.check();
    ASSERT_TRUE(stall);
    EXPECT_EQ(stall->stage, "first");
    EXPECT_GE(stall->silence, 50ms);
}

TEST(AudioMetadataServiceTest, WorkerCountRule)
{
    // Two cores: at least 4 workers, never more than the files.
    EXPECT_EQ(AudioMetadataService::workerCount(3, 2), 3);
    EXPECT_EQ(AudioMetadataService::workerCount(10, 2), 4);
    EXPECT_EQ(AudioMetadataService::workerCount(1, 2), 1);
    // 32 cores: capped at 12.
    EXPECT_EQ(AudioMetadataService::workerCount(100, 32), 12);
    // 8 cores: cores - 2.
    EXPECT_EQ(AudioMetadataService::workerCount(100, 8), 6);
    EXPECT_EQ(AudioMetadataService::workerCount(0, 8), 0);
}

TEST(AudioMetadataServiceTest, EmptyListGivesEmptyOutcome)
{
    AudioMetadataService service;
    int calls = 0;
    const auto outcome = service.load({}, CancellationToken::never(), [&](int, int) { ++calls; });
    EXPECT_TRUE(outcome.isEmpty());
    EXPECT_EQ(calls, 0);
    // Only local files are loaded.
    EXPECT_TRUE(service.load({QUrl(QStringLiteral("https://example.com/a.mp3"))}).isEmpty());
}

TEST(TrackLoadOutcomeTest, ReasonTexts)
{
    using R = TrackLoadOutcome::FailureReason;
    EXPECT_EQ(TrackLoadOutcome::reasonText(R::brokenAudioStream),
              "audio stream couldn't be decoded — file may be damaged or improperly converted");
    EXPECT_EQ(TrackLoadOutcome::reasonText(R::zeroDuration), "no readable audio (file is truncated or empty)");
    EXPECT_EQ(TrackLoadOutcome::reasonText(R::timeout, 10),
              "loading stalled with no progress for 10 seconds — the file may be damaged or unreachable");
    EXPECT_EQ(TrackLoadOutcome::reasonText(R::noAudioFound),
              "no audio found at the start of the file — it may be damaged, incompletely downloaded, or not an "
              "audio file");
    EXPECT_EQ(TrackLoadOutcome::reasonText(R::other),
              "file couldn't be opened — unsupported format or container is corrupt");
    EXPECT_STREQ(TrackLoadOutcome::reasonKey(R::brokenAudioStream), "import.failure.brokenStream");
    EXPECT_STREQ(TrackLoadOutcome::reasonKey(R::noAudioFound), "import.failure.noAudioFound");

    L10n::setOverride(QStringLiteral("import.failure.timeout"), QStringLiteral("stalled %ld s"));
    EXPECT_EQ(TrackLoadOutcome::reasonText(R::timeout, 7), "stalled 7 s");
    L10n::clearOverrides();
}
