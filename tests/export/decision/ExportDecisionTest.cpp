#include "DecisionTestBooks.h"

#include "export/decision/ExportDecisionService.h"
#include "export/decision/ExportPlanBuilder.h"
#include "platform/Log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

using namespace folivox;
using folivox::test::cachedTrack;
using folivox::test::chapter;
using folivox::test::chapterPerTrack;
using folivox::test::uncachedTrack;

namespace {

struct Outcome {
    ExportDecision decision;
    DecisionFactors factors;
    ExportPlanBuilder::Plan plan;
};

Outcome decide(const std::vector<Bookmark>& bookmarks, const ExportSettings& settings = {},
               const ExportDecisionService& service = {}, bool reencode = false)
{
    Outcome o;
    o.plan = ExportPlanBuilder::build(bookmarks);
    o.factors = service.factors(bookmarks, settings, o.plan, reencode);
    o.decision = service.decide(bookmarks, settings, o.plan, reencode);
    return o;
}

ExportSettings withFormat(OutputFormat format)
{
    ExportSettings s;
    s.outputFormat = format;
    return s;
}

// A probe that answers from a fixed format and counts its calls.
FormatProbeFunction countingProbe(std::shared_ptr<std::atomic<int>> calls, std::optional<FormatProbe> answer)
{
    return [calls, answer](const QString&) {
        ++*calls;
        return answer;
    };
}

} // namespace

TEST(ExportDecisionTest, OneAACAudiobookWithUnchangedSettingsIsCopiedWhole)
{
    LogCapture log;
    const Track book = cachedTrack(QStringLiteral("/b/book.m4b"), 3600.0, QStringLiteral("aac-lc"), 44100, 2, 64000);
    // Its embedded chapters split the one file; together they still take it whole.
    const auto o = decide({chapter(QStringLiteral("1"), {book}, 0, 1200), chapter(QStringLiteral("2"), {book}, 1200, 1200),
                           chapter(QStringLiteral("3"), {book}, 2400, 1200)});
    EXPECT_TRUE(o.decision.reasons.isEmpty()) << o.decision.reasons.join(QStringLiteral(" | ")).toStdString();
    EXPECT_TRUE(o.decision.canPassthrough);
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::passthroughEntireFile);
    EXPECT_FALSE(o.decision.normalizationTarget);
    EXPECT_TRUE(log.contains(QStringLiteral("[Export] Decision: strategy=passthroughEntireFile canPassthrough=true reasons=")));
}

TEST(ExportDecisionTest, SeveralMatchingAudiobooksAreJoinedWithoutEncoding)
{
    const auto o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 600.0),
                                           cachedTrack(QStringLiteral("/b/2.M4B"), 700.0),
                                           cachedTrack(QStringLiteral("/b/3.m4b"), 800.0, QStringLiteral("mp4a"))}));
    EXPECT_TRUE(o.decision.reasons.isEmpty()) << o.decision.reasons.join(QStringLiteral(" | ")).toStdString();
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::passthroughConcat);
}

TEST(ExportDecisionTest, AnMP3SourceBlocksACopyIntoM4BWithItsWholeCase)
{
    const auto o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.mp3"), 600.0, QStringLiteral("mp3"), 44100,
                                                       2, 128000)}));
    EXPECT_EQ(o.decision.reasons,
              (QStringList{QStringLiteral("non-AAC source"), QStringLiteral("source is not M4B (audiobook format)"),
                           QStringLiteral("codec mismatch (mp3 ↔ aacLC)")}));
    EXPECT_FALSE(o.decision.canPassthrough);
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::transcode);
}

TEST(ExportDecisionTest, MP3AndM4AOutputsAreAlwaysMultiFileAndSkipTheContainerReasons)
{
    const std::vector<Bookmark> book = chapterPerTrack(
        {cachedTrack(QStringLiteral("/b/1.mp3"), 600.0, QStringLiteral("mp3"), 44100, 2, 128000),
         cachedTrack(QStringLiteral("/b/2.ogg"), 600.0, QStringLiteral("vorbis"), 48000, 2, 128000)});
    for (OutputFormat format : {OutputFormat::mp3, OutputFormat::m4a}) {
        ExportSettings s = withFormat(format);
        s.splitMode = SplitMode::byDuration;
        s.passthroughPolicy = PassthroughPolicy::disabled;
        const auto o = decide(book, s);
        EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::multiFile);
        EXPECT_FALSE(o.decision.reasons.contains(QStringLiteral("non-AAC source")));
        EXPECT_FALSE(o.decision.reasons.contains(QStringLiteral("format mismatch")));
        EXPECT_FALSE(o.decision.reasons.contains(QStringLiteral("source is not M4B (audiobook format)")));
        EXPECT_EQ(o.decision.reasons.first(), QStringLiteral("policy disabled"));
        EXPECT_TRUE(o.decision.reasons.contains(QStringLiteral("split enabled")));
    }
    // A clean MP3 book is multi-file too, with nothing against a copy.
    const auto clean = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.mp3"), 60.0, QStringLiteral("mp3"),
                                                           44100, 2, 128000)}),
                              withFormat(OutputFormat::mp3));
    EXPECT_TRUE(clean.decision.reasons.isEmpty());
    EXPECT_EQ(clean.decision.strategy, ExportDecision::Strategy::multiFile);
}

TEST(ExportDecisionTest, SplittingWinsOverEveryOtherM4BRule)
{
    const auto book = chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 600.0)});
    ExportSettings s;
    s.splitMode = SplitMode::bySize;
    s.snapToChapters = true;
    auto o = decide(book, s);
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::splitTranscode);
    EXPECT_EQ(o.decision.reasons, (QStringList{QStringLiteral("split enabled"), QStringLiteral("snapToChapters enabled")}));

    s.snapToChapters = false;
    o = decide(book, s);
    EXPECT_EQ(o.decision.reasons, QStringList{QStringLiteral("split enabled")});

    // Snapping alone means nothing without a split: the default settings snap.
    s.splitMode = SplitMode::off;
    s.snapToChapters = true;
    o = decide(book, s);
    EXPECT_TRUE(o.decision.reasons.isEmpty());
}

TEST(ExportDecisionTest, SettingsThatChangeTheAudioEachAddTheirReason)
{
    const auto book = chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 600.0, QStringLiteral("aac-lc"), 44100, 1)});
    ExportSettings s;
    s.passthroughPolicy = PassthroughPolicy::disabled;
    EXPECT_EQ(decide(book, s).decision.reasons, QStringList{QStringLiteral("policy disabled")});
    EXPECT_EQ(decide(book, s).decision.strategy, ExportDecision::Strategy::transcode);

    s = {};
    s.channels = ChannelSetting::stereo;
    EXPECT_EQ(decide(book, s).decision.reasons, QStringList{QStringLiteral("channel count differs from source")});
    s.channels = ChannelSetting::mono;
    EXPECT_TRUE(decide(book, s).decision.reasons.isEmpty());

    s = {};
    s.sampleRate = SampleRateOption::hz22050;
    EXPECT_EQ(decide(book, s).decision.reasons, QStringList{QStringLiteral("sample rate differs from source")});
    s.sampleRate = SampleRateOption::hz44100;
    EXPECT_TRUE(decide(book, s).decision.reasons.isEmpty());

    s = {};
    EXPECT_EQ(decide(book, s, {}, true).decision.reasons, QStringList{QStringLiteral("re-encoding requested")});

    // force behaves as auto.
    s.passthroughPolicy = PassthroughPolicy::force;
    EXPECT_TRUE(decide(book, s).decision.reasons.isEmpty());
}

TEST(ExportDecisionTest, BitrateRuleToleratesATenthOfTheTargetOrFiveKbps)
{
    EXPECT_EQ(ExportDecisionService::bitrateToleranceKbps(49), 5);
    EXPECT_EQ(ExportDecisionService::bitrateToleranceKbps(50), 5);
    EXPECT_EQ(ExportDecisionService::bitrateToleranceKbps(60), 6);
    EXPECT_EQ(ExportDecisionService::bitrateToleranceKbps(128), 12);

    ExportSettings s;
    s.cbrBitrateKbps = 64;
    EXPECT_FALSE(ExportDecisionService::bitrateReduction(70000, s));
    EXPECT_FALSE(ExportDecisionService::bitrateReduction(70999, s)); // truncated to 70 kbps
    EXPECT_EQ(ExportDecisionService::bitrateReduction(71000, s),
              QStringLiteral("bitrate reduction (source 71 kbps → target 64 kbps)"));
    s.cbrBitrateKbps = 48;
    EXPECT_TRUE(ExportDecisionService::bitrateReduction(54000, s));
    EXPECT_FALSE(ExportDecisionService::bitrateReduction(53000, s));
    s.cbrBitrateKbps = 50;
    EXPECT_FALSE(ExportDecisionService::bitrateReduction(55000, s));
    EXPECT_TRUE(ExportDecisionService::bitrateReduction(56000, s));
    s.cbrBitrateKbps = 60;
    EXPECT_FALSE(ExportDecisionService::bitrateReduction(66000, s));
    EXPECT_TRUE(ExportDecisionService::bitrateReduction(67000, s));

    // No target, a kept source rate, or an unknown source never trigger it.
    EXPECT_FALSE(ExportDecisionService::bitrateReduction(std::nullopt, s));
    EXPECT_FALSE(ExportDecisionService::bitrateReduction(0, s));
    s.keepSourceBitrate = true;
    EXPECT_FALSE(ExportDecisionService::bitrateReduction(500000, s));
    s.keepSourceBitrate = false;
    s.cbrBitrateKbps.reset();
    EXPECT_FALSE(ExportDecisionService::bitrateReduction(500000, s));
}

TEST(ExportDecisionTest, TheHighestSourceBitrateDecidesForTheBook)
{
    ExportSettings s;
    s.cbrBitrateKbps = 64;
    auto o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 60, QStringLiteral("aac-lc"), 44100, 2, 70000),
                                     cachedTrack(QStringLiteral("/b/2.m4b"), 60, QStringLiteral("aac-lc"), 44100, 2, 64000)}),
                    s);
    EXPECT_TRUE(o.decision.reasons.isEmpty());
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::passthroughConcat);

    o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 60, QStringLiteral("aac-lc"), 44100, 2, 64000),
                                cachedTrack(QStringLiteral("/b/2.m4b"), 60, QStringLiteral("aac-lc"), 44100, 2, 71500)}),
               s);
    EXPECT_EQ(o.decision.reasons, QStringList{QStringLiteral("bitrate reduction (source 71 kbps → target 64 kbps)")});
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::transcode);
}

TEST(ExportDecisionTest, CodecFamiliesFollowTheTarget)
{
    EXPECT_TRUE(ExportDecisionService::matchesCodecFamily(QStringLiteral("HE-AACv2"), AudioCodec::heAAC));
    EXPECT_TRUE(ExportDecisionService::matchesCodecFamily(QStringLiteral("mp4a"), AudioCodec::aacLC));
    EXPECT_FALSE(ExportDecisionService::matchesCodecFamily(QStringLiteral("he-aac"), AudioCodec::aacLC));
    EXPECT_FALSE(ExportDecisionService::isAACCodec(QStringLiteral("xhe-aac")));

    ExportSettings he;
    he.codec = AudioCodec::heAAC;
    auto o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 60, QStringLiteral("he-aacv2"), 44100, 2, 32000)}),
                    he);
    EXPECT_TRUE(o.decision.reasons.isEmpty());

    o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 60, QStringLiteral("he-aac")),
                                cachedTrack(QStringLiteral("/b/2.m4b"), 60, QStringLiteral("aac-lc"))}),
               he);
    // The first file that does not match is named; families differ, so the files cannot be joined.
    EXPECT_EQ(o.decision.reasons,
              (QStringList{QStringLiteral("codec mismatch (aac-lc ↔ heAAC)"), QStringLiteral("format mismatch")}));

    o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 60, QStringLiteral("xhe-aac"))}), he);
    EXPECT_EQ(o.decision.reasons,
              (QStringList{QStringLiteral("non-AAC source"), QStringLiteral("codec mismatch (xhe-aac ↔ heAAC)")}));
}

TEST(ExportDecisionTest, SourcesThatDifferAreNormalisedToTheRichestFormat)
{
    auto o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 60, QStringLiteral("aac-lc"), 22050, 1),
                                     cachedTrack(QStringLiteral("/b/2.m4b"), 60, QStringLiteral("aac-lc"), 44100, 2)}));
    EXPECT_EQ(o.decision.reasons,
              (QStringList{QStringLiteral("format mismatch"), QStringLiteral("audio normalization (44100 Hz, stereo)")}));
    ASSERT_TRUE(o.decision.normalizationTarget);
    EXPECT_EQ(*o.decision.normalizationTarget, (ExportDecision::NormalizationTarget{44100, 2}));
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::transcode);

    // The rate is capped at 48000; all-mono sources stay mono.
    o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 60, QStringLiteral("aac-lc"), 96000, 1),
                                cachedTrack(QStringLiteral("/b/2.m4b"), 60, QStringLiteral("aac-lc"), 44100, 1)}));
    EXPECT_EQ(*o.decision.normalizationTarget, (ExportDecision::NormalizationTarget{48000, 1}));
    EXPECT_TRUE(o.decision.reasons.contains(QStringLiteral("audio normalization (48000 Hz, mono)")));

    // Same rate and channels but another codec: no normalisation, just no copy.
    o = decide(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 60, QStringLiteral("aac-lc")),
                                cachedTrack(QStringLiteral("/b/2.mp3"), 60, QStringLiteral("mp3"))}));
    EXPECT_FALSE(o.decision.normalizationTarget);
    EXPECT_TRUE(o.decision.reasons.contains(QStringLiteral("format mismatch")));
}

TEST(ExportDecisionTest, TrimmedGappedAndDoubledStretchesArePartialRanges)
{
    const QString partial = QStringLiteral("partial M4B range extraction (startOffset or duration trimming)");
    const Track t = cachedTrack(QStringLiteral("/b/book.m4b"), 300.0);

    // Starts 5 s in.
    auto o = decide({chapter(QStringLiteral("x"), {t}, 5.0, 295.0)});
    EXPECT_EQ(o.decision.reasons, QStringList{partial});
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::transcode);
    // Ends 10 s early.
    o = decide({chapter(QStringLiteral("x"), {t}, 0.0, 290.0)});
    EXPECT_EQ(o.decision.reasons, QStringList{partial});
    // The middle chapter was deleted: a gap.
    o = decide({chapter(QStringLiteral("a"), {t}, 0, 100), chapter(QStringLiteral("c"), {t}, 200, 100)});
    EXPECT_EQ(o.decision.reasons, QStringList{partial});
    // The same stretch twice.
    o = decide({chapter(QStringLiteral("a"), {t}, 0, 200), chapter(QStringLiteral("b"), {t}, 100, 200)});
    EXPECT_EQ(o.decision.reasons, QStringList{partial});
    // Joins a few hundredths apart are rounding, not gaps.
    o = decide({chapter(QStringLiteral("a"), {t}, 0, 100.0), chapter(QStringLiteral("b"), {t}, 100.05, 199.95)});
    EXPECT_TRUE(o.decision.reasons.isEmpty());

    // A chapter running across files with its end on the second file's end is whole.
    const Track a = cachedTrack(QStringLiteral("/b/a.m4b"), 100.0);
    const Track b = cachedTrack(QStringLiteral("/b/b.m4b"), 100.0);
    o = decide({chapter(QStringLiteral("x"), {a, b}, 0, 150), chapter(QStringLiteral("y"), {b}, 50, 50)});
    EXPECT_TRUE(o.decision.reasons.isEmpty()) << o.decision.reasons.join(QStringLiteral(" | ")).toStdString();
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::passthroughConcat);
}

TEST(ExportDecisionTest, ALengthTheBookDoesNotKnowIsMeasured)
{
    const Track t = cachedTrack(QStringLiteral("/b/book.m4b"), 0.0);
    auto calls = std::make_shared<std::atomic<int>>(0);
    ExportDecisionService service;
    service.syncDurationProbe = [calls](const QString& path) -> std::optional<double> {
        ++*calls;
        return path.endsWith(QStringLiteral("book.m4b")) ? std::optional<double>(200.0) : std::nullopt;
    };
    auto o = decide({chapter(QStringLiteral("a"), {t}, 0, 100), chapter(QStringLiteral("b"), {t}, 100, 100)}, {},
                    service);
    EXPECT_TRUE(o.decision.reasons.isEmpty()) << o.decision.reasons.join(QStringLiteral(" | ")).toStdString();
    EXPECT_GE(calls->load(), 1);
    // Measured longer than the chapters: the tail is trimmed.
    o = decide({chapter(QStringLiteral("a"), {t}, 0, 100), chapter(QStringLiteral("b"), {t}, 100, 50)}, {}, service);
    EXPECT_TRUE(o.factors.hasPartialRanges);
    // No way to measure it: counts against a copy.
    o = decide({chapter(QStringLiteral("a"), {t}, 0, 100)});
    EXPECT_TRUE(o.factors.hasPartialRanges);
}

TEST(ExportDecisionTest, ChaptersOutOfSourceOrderAreAReorder)
{
    const QString reordered = QStringLiteral("chapters reordered (drag & drop or deletion)");
    const Track t = cachedTrack(QStringLiteral("/b/book.m4b"), 200.0);
    // The two halves of one file swapped: a reorder, but nothing is missing.
    auto o = decide({chapter(QStringLiteral("b"), {t}, 100, 100), chapter(QStringLiteral("a"), {t}, 0, 100)});
    EXPECT_EQ(o.decision.reasons, QStringList{reordered});
    EXPECT_FALSE(o.factors.hasPartialRanges);

    // Returning to a file after another one began.
    const Track a = cachedTrack(QStringLiteral("/b/a.m4b"), 100.0);
    const Track b = cachedTrack(QStringLiteral("/b/b.m4b"), 100.0);
    o = decide({chapter(QStringLiteral("a1"), {a}, 0, 50), chapter(QStringLiteral("b"), {b}, 0, 100),
                chapter(QStringLiteral("a2"), {a}, 50, 50)});
    EXPECT_EQ(o.decision.reasons, QStringList{reordered});

    // Whole files dragged into a new order are joined in that order.
    const Track c = cachedTrack(QStringLiteral("/b/c.m4b"), 100.0);
    o = decide(chapterPerTrack({c, a, b}));
    EXPECT_TRUE(o.decision.reasons.isEmpty());
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::passthroughConcat);
    EXPECT_EQ(o.plan.uniqueURLs, (QList<QUrl>{c.url, a.url, b.url}));
}

TEST(ExportDecisionTest, AnUncachedFormatIsProbedDisplayProbesFirst)
{
    const std::vector<Bookmark> book = chapterPerTrack({uncachedTrack(QStringLiteral("/b/1.m4b"), 60.0)});
    FormatProbe aac{QStringLiteral("AAC-LC"), 64000, 44100, 2, 60.0};

    auto inspected = std::make_shared<std::atomic<int>>(0);
    ExportDecisionService service;
    service.inspector = countingProbe(inspected, aac);
    auto o = decide(book, {}, service);
    EXPECT_TRUE(o.decision.reasons.isEmpty());
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::passthroughEntireFile);
    EXPECT_GE(inspected->load(), 1);

    auto displayed = std::make_shared<std::atomic<int>>(0);
    inspected->store(0);
    service.displayProbes = countingProbe(displayed, aac);
    o = decide(book, {}, service);
    EXPECT_TRUE(o.decision.reasons.isEmpty());
    EXPECT_GE(displayed->load(), 1);
    EXPECT_EQ(inspected->load(), 0);
}

TEST(ExportDecisionTest, AFormatNobodyCanReadCountsAgainstACopyWithoutStoppingTheBuild)
{
    LogCapture log;
    auto calls = std::make_shared<std::atomic<int>>(0);
    ExportDecisionService service;
    service.inspector = [calls](const QString&) -> std::optional<FormatProbe> {
        ++*calls;
        throw std::runtime_error("no audio stream");
    };
    const auto o = decide(chapterPerTrack({uncachedTrack(QStringLiteral("/b/odd.m4b"), 60.0)}), {}, service);
    EXPECT_EQ(o.decision.reasons,
              (QStringList{QStringLiteral("non-AAC source"), QStringLiteral("codec mismatch"),
                           QStringLiteral("format mismatch")}));
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::transcode);
    EXPECT_TRUE(log.contains(QStringLiteral("[Export] Format of odd.m4b unknown (no audio stream) — counts against a copy")));
    // Once failed in a build, the file is not probed again by that build.
    const int afterFirst = calls->load();
    service.decide(chapterPerTrack({uncachedTrack(QStringLiteral("/b/odd.m4b"), 60.0)}), {},
                   ExportPlanBuilder::build(chapterPerTrack({uncachedTrack(QStringLiteral("/b/odd.m4b"), 60.0)})));
    EXPECT_EQ(calls->load(), afterFirst);
}

TEST(ExportDecisionTest, EveryReasonInItsFixedOrder)
{
    DecisionFactors f;
    f.allAAC = false;
    f.allM4B = false;
    f.codecMatches = false;
    f.codecMismatchDescription = QStringLiteral("codec mismatch (mp3 ↔ aacLC)");
    f.compatible = false;
    f.policyDisabled = true;
    f.requiresChannelChange = true;
    f.requiresResample = true;
    f.requiresSplit = true;
    f.requiresSnap = true;
    f.requiresReencode = true;
    f.requiresBitrateChange = true;
    f.bitrateChangeReason = QStringLiteral("bitrate reduction (source 128 kbps → target 64 kbps)");
    f.hasPartialRanges = true;
    f.chaptersReordered = true;
    f.requiresCrossFileNormalization = true;
    f.crossFileNormalizationTarget = DecisionFactors::NormalizationTarget{22050, 1};

    const QStringList tail{QStringLiteral("policy disabled"),
                           QStringLiteral("channel count differs from source"),
                           QStringLiteral("sample rate differs from source"),
                           QStringLiteral("split enabled"),
                           QStringLiteral("snapToChapters enabled"),
                           QStringLiteral("re-encoding requested"),
                           QStringLiteral("bitrate reduction (source 128 kbps → target 64 kbps)"),
                           QStringLiteral("partial M4B range extraction (startOffset or duration trimming)"),
                           QStringLiteral("chapters reordered (drag & drop or deletion)"),
                           QStringLiteral("audio normalization (22050 Hz, mono)")};
    const QStringList head{QStringLiteral("non-AAC source"), QStringLiteral("source is not M4B (audiobook format)"),
                           QStringLiteral("codec mismatch (mp3 ↔ aacLC)"), QStringLiteral("format mismatch")};
    EXPECT_EQ(ExportDecisionService::reasons(f, withFormat(OutputFormat::m4b)), head + tail);
    EXPECT_EQ(ExportDecisionService::reasons(f, withFormat(OutputFormat::mp3)), tail);
    EXPECT_EQ(ExportDecisionService::reasons(f, withFormat(OutputFormat::m4a)), tail);

    f.codecMismatchDescription.reset();
    EXPECT_EQ(ExportDecisionService::reasons(f, withFormat(OutputFormat::m4b)).at(2), QStringLiteral("codec mismatch"));
    EXPECT_TRUE(ExportDecisionService::reasons(DecisionFactors{}, withFormat(OutputFormat::m4b)).isEmpty());
}

TEST(ExportDecisionTest, NoInputEverYieldsPassthroughRange)
{
    const std::vector<ExportPlanBuilder::Plan> plans = {
        ExportPlanBuilder::build({}),
        ExportPlanBuilder::build(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 10)})),
        ExportPlanBuilder::build(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 10),
                                                  cachedTrack(QStringLiteral("/b/2.m4b"), 10)})),
        ExportPlanBuilder::build({chapter(QStringLiteral("x"), {cachedTrack(QStringLiteral("/b/1.m4b"), 10)}, 2, 3)})};
    int seen = 0;
    for (OutputFormat format : {OutputFormat::m4b, OutputFormat::mp3, OutputFormat::m4a}) {
        for (SplitMode split : {SplitMode::off, SplitMode::byDuration}) {
            for (const auto& plan : plans) {
                for (int mask = 0; mask < 8; ++mask) {
                    ExportSettings s = withFormat(format);
                    s.splitMode = split;
                    DecisionFactors f;
                    f.requiresSplit = split != SplitMode::off;
                    f.hasPartialRanges = (mask & 1) != 0;
                    f.policyDisabled = (mask & 2) != 0;
                    f.allAAC = (mask & 4) == 0;
                    const QStringList reasons = ExportDecisionService::reasons(f, s);
                    const auto strategy = chooseStrategy(s, f, reasons, plan);
                    EXPECT_NE(strategy, ExportDecision::Strategy::passthroughRange);
                    ++seen;
                }
            }
        }
    }
    EXPECT_EQ(seen, 3 * 2 * 4 * 8);
    // The case still exists and round-trips by name.
    EXPECT_EQ(enumName(ExportDecision::Strategy::passthroughRange), QStringLiteral("passthroughRange"));
}

TEST(ExportDecisionTest, AnEmptyBookLeavesTheNoSourceErrorToTheStrategies)
{
    const auto o = decide({});
    EXPECT_TRUE(o.plan.isEmpty());
    EXPECT_TRUE(o.decision.reasons.isEmpty());
    EXPECT_EQ(o.decision.strategy, ExportDecision::Strategy::passthroughConcat);
}

TEST(ExportDecisionTest, DecisionRoundTripsThroughJson)
{
    ExportDecision d;
    d.strategy = ExportDecision::Strategy::transcode;
    d.reasons = QStringList{QStringLiteral("format mismatch"), QStringLiteral("audio normalization (44100 Hz, stereo)")};
    d.normalizationTarget = ExportDecision::NormalizationTarget{44100, 2};
    const QJsonObject json = d.toJson();
    EXPECT_EQ(json.value(QStringLiteral("strategy")).toString(), QStringLiteral("transcode"));
    EXPECT_EQ(ExportDecision::fromJson(json), d);
    d.normalizationTarget.reset();
    EXPECT_FALSE(d.toJson().contains(QStringLiteral("normalizationTarget")));
    EXPECT_EQ(ExportDecision::fromJson(d.toJson()), d);
}
