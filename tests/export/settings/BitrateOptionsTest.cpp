#include "export/settings/BitrateOptionsCalculator.h"
#include "export/settings/ExportSettingsCapService.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace folivox;

namespace {

AudiobookSourceInfo source(const QString& codec, int bitrateBps, int channels, int sampleRate = 44100)
{
    AudiobookSourceInfo info;
    info.codecs = {codec};
    info.bitratesBps = {bitrateBps};
    info.channels = {channels};
    info.sampleRates = {sampleRate};
    info.cachedFileCount = info.totalFileCount = 1;
    return info;
}

ExportSettings aac(AudioCodec codec, ChannelSetting channels, std::optional<int> kbps)
{
    ExportSettings s;
    s.codec = codec;
    s.channels = channels;
    s.cbrBitrateKbps = kbps;
    return s;
}

const QString kLowBitrateText = QString::fromUtf8(
    "**Low-Bitrate Stereo Source**\nHE-AAC is recommended — AAC-LC stereo has a hardware minimum of 64 kbps "
    "(Apple encoder limitation). To use AAC-LC instead, set the bitrate to 64 kbps or higher.");

} // namespace

TEST(BitrateSteps, FixedPointsAndOrder)
{
    const auto stereo = BitrateOptionsCalculator::steps(OutputFormat::m4b, AudioCodec::aacLC, 2);
    EXPECT_EQ(stereo.front(), 64);
    EXPECT_EQ(stereo.back(), 320);
    EXPECT_NE(std::find(stereo.begin(), stereo.end(), 128), stereo.end());
    for (auto format : {OutputFormat::m4b, OutputFormat::m4a, OutputFormat::mp3})
        for (auto codec : {AudioCodec::aacLC, AudioCodec::heAAC})
            for (int ch : {1, 2}) {
                const auto steps = BitrateOptionsCalculator::steps(format, codec, ch);
                EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end()));
                EXPECT_EQ(std::adjacent_find(steps.begin(), steps.end()), steps.end());
            }
    EXPECT_EQ(BitrateOptionsCalculator::stepAtOrAbove(125, stereo), 128);
    EXPECT_EQ(BitrateOptionsCalculator::stepAtOrAbove(128, stereo), 128);
    EXPECT_EQ(BitrateOptionsCalculator::stepAtOrAbove(129, stereo), 160);
    EXPECT_EQ(BitrateOptionsCalculator::stepAtOrAbove(10, stereo), 64);
    EXPECT_EQ(BitrateOptionsCalculator::stepAtOrAbove(999, stereo), 320);
}

TEST(BitratePicker, SourceBetweenStepsGoesUpNeverDown)
{
    const BitrateOptionsCalculator calc(source(QStringLiteral("mp3"), 125'000, 2));
    const ExportSettings settings = aac(AudioCodec::aacLC, ChannelSetting::auto_, 192);
    const auto model = calc.pickerModel(settings);
    EXPECT_EQ(model.options, (std::vector<int>{64, 80, 96, 112, 128}));
    EXPECT_EQ(model.keepOriginalKbps, 125);
    EXPECT_FALSE(model.keepOriginalFallbackKbps.has_value());
    EXPECT_EQ(calc.choiceLabel(BitrateChoice::keepOriginal(), model), QStringLiteral("125 kbps (Keep original)"));
    EXPECT_EQ(calc.choiceLabel(BitrateChoice::kbps(96), model), QStringLiteral("96 kbps"));

    // A higher fixed rate is held at the source's step: 128, not 112.
    const ExportSettingsCapService cap{calc.sourceInfo(), std::nullopt};
    const auto result = cap.capped(settings);
    EXPECT_TRUE(result.bitrateCapped);
    EXPECT_EQ(result.settings.cbrBitrateKbps, 128);
    EXPECT_EQ(result.bitrateLabel(), QStringLiteral("Quality Capped to Source"));
    // A caller's own source rate wins over the summary's.
    const ExportSettingsCapService explicitRate{calc.sourceInfo(), 100};
    EXPECT_EQ(explicitRate.capped(settings).settings.cbrBitrateKbps, 112);
    // At or below the step nothing changes, and a kept source rate is left alone.
    EXPECT_FALSE(cap.capped(aac(AudioCodec::aacLC, ChannelSetting::auto_, 128)).changed());
    ExportSettings keep = settings;
    keep.keepSourceBitrate = true;
    EXPECT_FALSE(cap.capped(keep).changed());
}

TEST(BitratePicker, UnknownSourceOffersEveryStepAndEstimateStandsInForKeepOriginal)
{
    const BitrateOptionsCalculator none;
    const auto all = none.pickerModel(aac(AudioCodec::aacLC, ChannelSetting::stereo, 128));
    EXPECT_EQ(all.options, BitrateOptionsCalculator::steps(OutputFormat::m4b, AudioCodec::aacLC, 2));
    EXPECT_FALSE(all.offersKeepOriginal());

    AudiobookSourceInfo estimated;
    estimated.avgBitrateKbpsFallback = 70;
    estimated.channels = {2};
    const BitrateOptionsCalculator calc(estimated);
    const auto model = calc.pickerModel(aac(AudioCodec::aacLC, ChannelSetting::auto_, 128));
    EXPECT_FALSE(model.keepOriginalKbps.has_value());
    EXPECT_EQ(model.keepOriginalFallbackKbps, 70);
    EXPECT_EQ(model.options.back(), 80);
    EXPECT_EQ(calc.choiceLabel(BitrateChoice::keepOriginal(), model), QStringLiteral("70 kbps (Keep original)"));
}

TEST(BitrateFloor, StereoAacLcNeverBelow64WithoutTheHeAacRecommendation)
{
    const BitrateOptionsCalculator lowStereo(source(QStringLiteral("mp3"), 48'000, 2));
    const ExportSettings stereoLC = aac(AudioCodec::aacLC, ChannelSetting::auto_, 48);
    const auto model = lowStereo.pickerModel(stereoLC);
    EXPECT_EQ(model.options, (std::vector<int>{64}));
    EXPECT_EQ(lowStereo.lowBitrateRecommendation(stereoLC), kLowBitrateText);
    EXPECT_EQ(lowStereo.effectiveBitrateKbps(stereoLC), 64);
    // A kept 48 kbps stereo source still encodes at the floor.
    ExportSettings keep = stereoLC;
    keep.keepSourceBitrate = true;
    EXPECT_EQ(lowStereo.effectiveBitrateKbps(keep), 64);

    // A chosen rate below the floor draws it even without a known source.
    EXPECT_EQ(BitrateOptionsCalculator().lowBitrateRecommendation(aac(AudioCodec::aacLC, ChannelSetting::stereo, 56)),
              kLowBitrateText);

    // Not for HE-AAC, not for mono (set, or following all-mono sources), not for MP3.
    EXPECT_FALSE(lowStereo.lowBitrateRecommendation(aac(AudioCodec::heAAC, ChannelSetting::auto_, 48)));
    EXPECT_FALSE(lowStereo.lowBitrateRecommendation(aac(AudioCodec::aacLC, ChannelSetting::mono, 48)));
    const BitrateOptionsCalculator lowMono(source(QStringLiteral("mp3"), 48'000, 1));
    EXPECT_FALSE(lowMono.lowBitrateRecommendation(stereoLC));
    EXPECT_EQ(lowMono.pickerModel(stereoLC).options.front(), 32);
    ExportSettings mp3 = stereoLC;
    mp3.outputFormat = OutputFormat::mp3;
    EXPECT_FALSE(lowStereo.lowBitrateRecommendation(mp3));
    // At the floor itself there is nothing to recommend.
    const BitrateOptionsCalculator atFloor(source(QStringLiteral("aac-lc"), 64'000, 2));
    EXPECT_FALSE(atFloor.lowBitrateRecommendation(aac(AudioCodec::aacLC, ChannelSetting::stereo, 64)));
}

TEST(BitrateFloor, HeAacMonoAt16KbpsStaysAt16)
{
    const AudiobookSourceInfo info = source(QStringLiteral("he-aac"), 16'000, 1, 44100);
    const BitrateOptionsCalculator calc(info);
    const ExportSettings settings = aac(AudioCodec::heAAC, ChannelSetting::mono, 16);
    EXPECT_EQ(calc.effectiveBitrateKbps(settings), 16);
    const auto model = calc.pickerModel(settings);
    EXPECT_EQ(model.options, (std::vector<int>{16}));
    EXPECT_FALSE(calc.lowBitrateRecommendation(settings));

    const ExportSettingsCapService cap{info, std::nullopt};
    const auto result = cap.capped(settings);
    EXPECT_FALSE(result.changed());
    EXPECT_EQ(result.settings.cbrBitrateKbps, 16);
    EXPECT_EQ(result.settings.channels, ChannelSetting::mono);

    // The same book with channels following the source also stays mono at 16.
    EXPECT_EQ(calc.effectiveBitrateKbps(aac(AudioCodec::heAAC, ChannelSetting::auto_, 16)), 16);
    // Stereo HE-AAC has a higher floor.
    EXPECT_EQ(calc.effectiveBitrateKbps(aac(AudioCodec::heAAC, ChannelSetting::stereo, 16)), 24);
}

TEST(BitrateLimit, SourceAboveTheEncoderLimitIsNamedWithTheRightSecondParagraph)
{
    const ExportSettings settings = aac(AudioCodec::aacLC, ChannelSetting::stereo, 320);

    const BitrateOptionsCalculator lossy(source(QStringLiteral("aac-lc"), 400'000, 2));
    const auto keepable = lossy.encoderLimitWarning(settings);
    ASSERT_TRUE(keepable.has_value());
    EXPECT_TRUE(keepable->startsWith(QStringLiteral("**Source Above Encoder Limit**\nThe source is 400 kbps; "
                                                    "the encoder's limit is 320 kbps.\n\n")))
        << keepable->toStdString();
    EXPECT_TRUE(keepable->contains(QString::fromUtf8("“Keep original”")));
    EXPECT_EQ(lossy.effectiveBitrateKbps(settings), 320);

    const BitrateOptionsCalculator lossless(source(QStringLiteral("flac"), 900'000, 2));
    EXPECT_FALSE(lossless.pickerModel(settings).offersKeepOriginal());
    const auto encodeOnly = lossless.encoderLimitWarning(settings);
    ASSERT_TRUE(encodeOnly.has_value());
    EXPECT_TRUE(encodeOnly->contains(QStringLiteral("The source is 900 kbps")));
    EXPECT_TRUE(encodeOnly->endsWith(QStringLiteral("The book will be encoded at 320 kbps, the highest rate the "
                                                    "encoder accepts.")));
    EXPECT_NE(*keepable, *encodeOnly);

    // Mono AAC-LC has a lower limit; a source within the limit draws nothing.
    EXPECT_TRUE(BitrateOptionsCalculator(source(QStringLiteral("mp3"), 288'000, 1))
                    .encoderLimitWarning(aac(AudioCodec::aacLC, ChannelSetting::auto_, 128))
                    ->contains(QStringLiteral("limit is 256 kbps")));
    EXPECT_FALSE(BitrateOptionsCalculator(source(QStringLiteral("mp3"), 320'000, 2)).encoderLimitWarning(settings));
}

TEST(BitrateChoiceSettings, ChoiceReadsFromAndWritesIntoSettings)
{
    ExportSettings s;
    s.cbrBitrateKbps = 96;
    EXPECT_EQ(BitrateChoice::fromSettings(s), BitrateChoice::kbps(96));
    const ExportSettings kept = BitrateChoice::keepOriginal().appliedTo(s);
    EXPECT_TRUE(kept.keepSourceBitrate);
    EXPECT_EQ(kept.cbrBitrateKbps, 96); // the fixed rate stays as the fallback
    EXPECT_EQ(BitrateChoice::fromSettings(kept), BitrateChoice::keepOriginal());
    const ExportSettings fixed = BitrateChoice::kbps(160).appliedTo(kept);
    EXPECT_FALSE(fixed.keepSourceBitrate);
    EXPECT_EQ(fixed.cbrBitrateKbps, 160);
    s.cbrBitrateKbps.reset();
    EXPECT_FALSE(BitrateChoice::fromSettings(s).has_value());
}
