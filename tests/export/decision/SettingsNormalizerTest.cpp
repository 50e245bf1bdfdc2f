#include "export/decision/SettingsNormalizer.h"
#include "platform/Log.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {

ExportSettings normalized(SampleRateOption chosenRate, ChannelSetting chosenChannels, int targetRate, int targetChannels)
{
    ExportSettings s;
    s.sampleRate = chosenRate;
    s.channels = chosenChannels;
    return SettingsNormalizer::normalize(s, ExportDecision::NormalizationTarget{targetRate, targetChannels});
}

} // namespace

TEST(SettingsNormalizerTest, TheTargetRateMapsBackToAnOptionByThresholds)
{
    const auto rateFor = [](int hz) { return normalized(SampleRateOption::auto_, ChannelSetting::auto_, hz, 2).sampleRate; };
    EXPECT_EQ(rateFor(8000), SampleRateOption::hz22050);
    EXPECT_EQ(rateFor(22050), SampleRateOption::hz22050);
    EXPECT_EQ(rateFor(22051), SampleRateOption::hz32000);
    EXPECT_EQ(rateFor(32000), SampleRateOption::hz32000);
    EXPECT_EQ(rateFor(32001), SampleRateOption::hz44100);
    EXPECT_EQ(rateFor(44100), SampleRateOption::hz44100);
    for (int hz = 44101; hz <= 47999; ++hz)
        ASSERT_EQ(rateFor(hz), SampleRateOption::hz44100) << hz; // down, never up
    EXPECT_EQ(rateFor(48000), SampleRateOption::hz48000);
    EXPECT_EQ(rateFor(96000), SampleRateOption::hz48000);
}

TEST(SettingsNormalizerTest, TheUsersRateCapsTheTarget)
{
    EXPECT_EQ(normalized(SampleRateOption::hz22050, ChannelSetting::auto_, 48000, 2).sampleRate,
              SampleRateOption::hz22050);
    EXPECT_EQ(normalized(SampleRateOption::hz32000, ChannelSetting::auto_, 44100, 2).sampleRate,
              SampleRateOption::hz32000);
    EXPECT_EQ(normalized(SampleRateOption::hz44100, ChannelSetting::auto_, 48000, 2).sampleRate,
              SampleRateOption::hz44100);
    // A cap above the target does not raise it.
    EXPECT_EQ(normalized(SampleRateOption::hz48000, ChannelSetting::auto_, 44100, 2).sampleRate,
              SampleRateOption::hz44100);
    EXPECT_EQ(normalized(SampleRateOption::hz48000, ChannelSetting::auto_, 22050, 2).sampleRate,
              SampleRateOption::hz22050);
}

TEST(SettingsNormalizerTest, ChannelsFollowTheTargetExceptThatMonoStaysMono)
{
    EXPECT_EQ(normalized(SampleRateOption::auto_, ChannelSetting::auto_, 44100, 1).channels, ChannelSetting::mono);
    EXPECT_EQ(normalized(SampleRateOption::auto_, ChannelSetting::auto_, 44100, 2).channels, ChannelSetting::stereo);
    EXPECT_EQ(normalized(SampleRateOption::auto_, ChannelSetting::stereo, 44100, 1).channels, ChannelSetting::mono);
    EXPECT_EQ(normalized(SampleRateOption::auto_, ChannelSetting::stereo, 44100, 2).channels, ChannelSetting::stereo);
    EXPECT_EQ(normalized(SampleRateOption::auto_, ChannelSetting::mono, 44100, 2).channels, ChannelSetting::mono);
    EXPECT_EQ(normalized(SampleRateOption::auto_, ChannelSetting::mono, 44100, 1).channels, ChannelSetting::mono);
}

TEST(SettingsNormalizerTest, PassthroughIsDisabledAndNothingElseChanges)
{
    ExportSettings s;
    s.passthroughPolicy = PassthroughPolicy::force;
    s.codec = AudioCodec::heAAC;
    s.cbrBitrateKbps = 48;
    s.splitMode = SplitMode::byDuration;
    s.splitHours = 3;
    s.coverSize = CoverSize::px600;
    const ExportSettings e = SettingsNormalizer::normalize(s, ExportDecision::NormalizationTarget{44100, 2});
    EXPECT_EQ(e.passthroughPolicy, PassthroughPolicy::disabled);
    ExportSettings expected = s;
    expected.passthroughPolicy = PassthroughPolicy::disabled;
    expected.sampleRate = SampleRateOption::hz44100;
    expected.channels = ChannelSetting::stereo;
    EXPECT_EQ(e, expected);
}

TEST(SettingsNormalizerTest, EffectiveSettingsAreLoggedOnlyWhenThereIsATarget)
{
    ExportSettings s;
    ExportDecision plain;
    {
        LogCapture log;
        EXPECT_EQ(SettingsNormalizer::effectiveSettings(s, plain), s);
        EXPECT_TRUE(log.lines().isEmpty());
    }
    ExportDecision mixed;
    mixed.normalizationTarget = ExportDecision::NormalizationTarget{47999, 1};
    LogCapture log;
    const ExportSettings e = SettingsNormalizer::effectiveSettings(s, mixed);
    EXPECT_EQ(e.sampleRate, SampleRateOption::hz44100);
    EXPECT_EQ(e.channels, ChannelSetting::mono);
    EXPECT_EQ(log.lines(),
              (QStringList{QStringLiteral("[Export] Normalization target: sampleRate=47999 channels=1"),
                           QStringLiteral("[Export] Effective settings after normalization: codec=AAC-LC channels=Mono "
                                          "sampleRate=44100 Hz passthrough=Disabled")}));
}
