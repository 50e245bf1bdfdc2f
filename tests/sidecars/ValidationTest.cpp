#include "SidecarTestHelpers.h"

#include "sidecars/apply/SidecarValidationService.h"

using namespace folivox;
using namespace folivox::test;

namespace {
NormalizedChapter row(const QString& title, qint64 start, std::optional<qint64> end = std::nullopt)
{
    return NormalizedChapter::make(title, start, end);
}
QStringList describe(const SidecarValidationResult& r)
{
    QStringList out;
    for (const auto& w : r.warnings)
        out << sidecarWarningSeverityRawValue(w.severity) + u'|' + w.message;
    return out;
}
} // namespace

TEST(SidecarValidationTest, FormatTime)
{
    EXPECT_EQ(SidecarValidationService::formatTime(0), QStringLiteral("0:00.000"));
    EXPECT_EQ(SidecarValidationService::formatTime(61'005), QStringLiteral("1:01.005"));
    EXPECT_EQ(SidecarValidationService::formatTime(3'599'999), QStringLiteral("59:59.999"));
    EXPECT_EQ(SidecarValidationService::formatTime(3'600'000), QStringLiteral("1:00:00.000"));
    EXPECT_EQ(SidecarValidationService::formatTime(36'000'000 + 62'500), QStringLiteral("10:01:02.500"));
}

TEST(SidecarValidationTest, LenientRepairsInOrder)
{
    const SidecarValidationService v;
    const QList<NormalizedChapter> rows = {
        row("Second", 60'000),   row("Dup of second", 60'000), row("First", 5'000),
        row("Intro", 3'500),     row("Minus", -10),            row("Late", 700'000),
        row("Later", 800'000),   row("Long end", 400'000, 900'000),
    };
    const auto r = v.validateLenient(rows, 600'000);
    ASSERT_TRUE(r.isValid);
    EXPECT_EQ(titles(r.chapters), (QStringList{"Intro", "First", "Second", "Long end"}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 5'000, 60'000, 400'000}));
    EXPECT_EQ(r.chapters.back().endMs, 600'000);
    // The moved first row keeps its identity.
    EXPECT_EQ(r.chapters.front().id, rows[3].id);
    EXPECT_EQ(describe(r),
              (QStringList{"info|Chapters were reordered by start time",
                           "warning|Negative timestamp removed: Minus",
                           "warning|Duplicate timestamp at 1:00.000; keeping first occurrence",
                           "info|Chapter 'Intro' is very short (1500ms); keeping anyway",
                           "warning|Chapter 'Late' removed (starts at 11:40.000, after audio ends at 10:00.000)",
                           "info|2 chapter(s) removed for starting beyond audio duration",
                           "info|First chapter adjusted from 0:03.500 to 0:00",
                           "warning|Chapter 'Long end' trimmed from 15:00.000 to audio duration 10:00.000"}));
}

TEST(SidecarValidationTest, LenientEdgeMessages)
{
    const SidecarValidationService v;
    auto r = v.validateLenient({}, 0);
    EXPECT_FALSE(r.isValid);
    EXPECT_EQ(describe(r), (QStringList{"error|No chapters to validate"}));

    r = v.validateLenient({row("Only", 0)}, 0);
    EXPECT_TRUE(r.isValid);
    EXPECT_EQ(describe(r), (QStringList{"warning|Only 1 chapter(s) found; minimum recommended is 2"}));

    // Short rows stay, reported with their real length.
    r = v.validateLenient({row("Intro", 0), row("Body", 1'500)}, 0);
    EXPECT_EQ(r.chapters.size(), 2);
    EXPECT_EQ(describe(r), (QStringList{"info|Chapter 'Intro' is very short (1500ms); keeping anyway"}));

    // Coverage: ends at 50 of 100 seconds.
    r = v.validateLenient({row("A", 0, 20'000), row("B", 20'000, 50'000)}, 100'000);
    EXPECT_EQ(describe(r), (QStringList{"info|Chapters cover only 50% of audio (0:50.000 uncovered)"}));

    QList<NormalizedChapter> many;
    for (int i = 0; i < 501; ++i)
        many << row(QStringLiteral("C%1").arg(i), i * 10'000);
    r = v.validateLenient(many, 0);
    EXPECT_TRUE(r.isValid);
    EXPECT_EQ(r.chapters.size(), 500);
    EXPECT_EQ(describe(r), (QStringList{"error|Too many chapters (501); maximum allowed is 500"}));

    // Every row beyond the audio: nothing valid is left.
    r = v.validateLenient({row("A", 10'000), row("B", 20'000)}, 5'000);
    EXPECT_FALSE(r.isValid);
}

TEST(SidecarValidationTest, StrictRejectsAtTheFirstBrokenRule)
{
    const SidecarValidationService v;
    auto message = [&](const QList<NormalizedChapter>& rows, qint64 duration) {
        const auto r = v.validateStrict(rows, duration);
        return r.isValid ? QStringLiteral("valid") : r.warnings.front().message;
    };
    EXPECT_EQ(message({row("A", 0)}, 0), QStringLiteral("at least 2 chapters required"));
    EXPECT_EQ(message({row("A", 0), row("B", 0)}, 0), QStringLiteral("no valid timestamps found"));
    EXPECT_EQ(message({row("A", 0), row("B", 10'000), row("C", 9'000)}, 0),
              QStringLiteral("timestamps must be increasing (at chapter 3)"));
    EXPECT_EQ(message({row("A", 0), row("B", 10'000)}, 10'000),
              QStringLiteral("timestamp outside audio length (at chapter 2)"));
    EXPECT_EQ(message({row("A", 0), row("B", 10'000), row("C", 14'999)}, 0),
              QStringLiteral("chapters must be at least 5 seconds long (at chapter 2)"));
    EXPECT_EQ(message({row("A", 0), row("B", 10'000), row("C", 15'000)}, 60'000), QStringLiteral("valid"));

    // The first row from 201 ms on is moved to 0; up to 200 ms it stays.
    auto r = v.validateStrict({row("A", 200), row("B", 10'000)}, 0);
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{200, 10'000}));
    r = v.validateStrict({row("A", 201), row("B", 10'000)}, 0);
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 10'000}));
    // A gap measured from the moved start.
    EXPECT_EQ(message({row("A", 3'000), row("B", 4'999)}, 0),
              QStringLiteral("chapters must be at least 5 seconds long (at chapter 1)"));
    EXPECT_EQ(message({row("A", 3'000), row("B", 5'000)}, 0), QStringLiteral("valid"));
}
