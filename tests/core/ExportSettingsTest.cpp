#include "core/json/DecodingError.h"
#include "core/settings/ExportSettings.h"
#include "core/json/JsonReader.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

ExportSettings fromText(const QByteArray& text)
{
    return ExportSettings::fromJson(JsonReader::parseObject(text));
}

QByteArray toText(const ExportSettings& s)
{
    return QJsonDocument(s.toJson()).toJson(QJsonDocument::Compact);
}

// What a stored job or preset from another writer looks like.
const QByteArray kStored = R"({"outputFormat":"m4a","codec":"heAAC","channels":"mono","sampleRate":"hz32000",
    "bitrateMode":"cbr","passthroughPolicy":"disabled","cbrBitrateKbps":48,"keepSourceBitrate":false,
    "splitMode":"byDuration","splitHours":10,"splitSizeMB":700,"snapToChapters":false,"coverSize":"px600",
    "coverQuality":"q70","addedLater":"ignored"})";

} // namespace

TEST(ExportSettingsJson, StoredFormDecodesByCaseNames)
{
    const ExportSettings s = fromText(kStored);
    EXPECT_EQ(s.outputFormat, OutputFormat::m4a);
    EXPECT_EQ(s.codec, AudioCodec::heAAC);
    EXPECT_EQ(s.channels, ChannelSetting::mono);
    EXPECT_EQ(s.sampleRate, SampleRateOption::hz32000);
    EXPECT_EQ(s.passthroughPolicy, PassthroughPolicy::disabled);
    EXPECT_EQ(s.cbrBitrateKbps, 48);
    EXPECT_EQ(s.splitMode, SplitMode::byDuration);
    EXPECT_EQ(s.splitHours, 10);
    EXPECT_EQ(s.splitSizeMB, 700);
    EXPECT_FALSE(s.snapToChapters);
    EXPECT_EQ(s.coverSize, CoverSize::px600);
    EXPECT_EQ(s.coverQuality, CoverQuality::q70);
    EXPECT_EQ(fromText(toText(s)), s);
}

TEST(ExportSettingsJson, EveryCaseOfEveryEnumerationRoundTrips)
{
    ExportSettings s;
    for (auto v : enumCases<OutputFormat>()) {
        s.outputFormat = v;
        EXPECT_EQ(fromText(toText(s)).outputFormat, v);
    }
    for (auto v : enumCases<AudioCodec>()) {
        s.codec = v;
        EXPECT_EQ(fromText(toText(s)).codec, v);
    }
    for (auto v : enumCases<ChannelSetting>()) {
        s.channels = v;
        EXPECT_EQ(fromText(toText(s)).channels, v);
    }
    for (auto v : enumCases<SampleRateOption>()) {
        s.sampleRate = v;
        EXPECT_EQ(fromText(toText(s)).sampleRate, v);
    }
    for (auto v : enumCases<PassthroughPolicy>()) {
        s.passthroughPolicy = v;
        EXPECT_EQ(fromText(toText(s)).passthroughPolicy, v);
    }
    for (auto v : enumCases<SplitMode>()) {
        s.splitMode = v;
        EXPECT_EQ(fromText(toText(s)).splitMode, v);
    }
    for (auto v : enumCases<CoverSize>()) {
        s.coverSize = v;
        EXPECT_EQ(fromText(toText(s)).coverSize, v);
    }
    for (auto v : enumCases<CoverQuality>()) {
        s.coverQuality = v;
        EXPECT_EQ(fromText(toText(s)).coverQuality, v);
    }
    // The keyword-escaped cases are stored under their plain names.
    ExportSettings autos;
    autos.channels = ChannelSetting::auto_;
    autos.sampleRate = SampleRateOption::auto_;
    autos.passthroughPolicy = PassthroughPolicy::auto_;
    const QByteArray text = toText(autos);
    EXPECT_TRUE(text.contains(R"("channels":"auto")"));
    EXPECT_TRUE(text.contains(R"("sampleRate":"auto")"));
    EXPECT_TRUE(text.contains(R"("passthroughPolicy":"auto")"));
}

TEST(ExportSettingsJson, EmptyBitrateIsLeftOutAndMissingOrUnknownValuesFail)
{
    ExportSettings s;
    s.cbrBitrateKbps.reset();
    const QByteArray text = toText(s);
    EXPECT_FALSE(text.contains("cbrBitrateKbps"));
    EXPECT_FALSE(text.contains("null"));
    EXPECT_FALSE(fromText(text).cbrBitrateKbps.has_value());

    QJsonObject o = JsonReader::parseObject(kStored);
    o.remove(QStringLiteral("snapToChapters"));
    try {
        ExportSettings::fromJson(o);
        ADD_FAILURE();
    } catch (const DecodingError& e) {
        EXPECT_EQ(e.kind(), DecodingError::Kind::keyNotFound);
        EXPECT_EQ(e.codingPath(), QStringLiteral("snapToChapters"));
    }

    o = JsonReader::parseObject(kStored);
    o.insert(QStringLiteral("codec"), QStringLiteral("opus"));
    try {
        ExportSettings::fromJson(o);
        ADD_FAILURE();
    } catch (const DecodingError& e) {
        EXPECT_EQ(e.kind(), DecodingError::Kind::dataCorrupted);
        EXPECT_EQ(e.codingPath(), QStringLiteral("codec"));
        EXPECT_EQ(e.description(), QStringLiteral("Cannot initialize AudioCodec from invalid value \"opus\""));
    }
}

TEST(ExportSettingsLabels, TableLabelsAndRateMapping)
{
    EXPECT_EQ(label(AudioCodec::aacLC), QStringLiteral("AAC-LC"));
    EXPECT_EQ(label(AudioCodec::heAAC), QStringLiteral("HE-AAC"));
    EXPECT_EQ(label(ChannelSetting::auto_), QStringLiteral("Auto"));
    EXPECT_EQ(label(ChannelSetting::stereo), QStringLiteral("Stereo"));
    EXPECT_EQ(label(SampleRateOption::auto_), QStringLiteral("Auto"));
    EXPECT_EQ(label(SampleRateOption::hz32000), QStringLiteral("32000 Hz"));
    EXPECT_EQ(label(SampleRateOption::hz22050), QStringLiteral("22050 Hz"));
    EXPECT_EQ(label(CoverSize::px1000), QStringLiteral("1000px"));
    EXPECT_EQ(label(CoverQuality::original), QStringLiteral(" (100%)"));
    EXPECT_EQ(label(CoverQuality::q60), QStringLiteral("60%"));

    EXPECT_EQ(sampleRateOptionForHz(8000), SampleRateOption::hz22050);
    EXPECT_EQ(sampleRateOptionForHz(22050), SampleRateOption::hz22050);
    EXPECT_EQ(sampleRateOptionForHz(22051), SampleRateOption::hz32000);
    EXPECT_EQ(sampleRateOptionForHz(32000), SampleRateOption::hz32000);
    EXPECT_EQ(sampleRateOptionForHz(32001), SampleRateOption::hz44100);
    EXPECT_EQ(sampleRateOptionForHz(47999), SampleRateOption::hz44100);
    EXPECT_EQ(sampleRateOptionForHz(48000), SampleRateOption::hz48000);
    EXPECT_EQ(sampleRateOptionForHz(96000), SampleRateOption::hz48000);

    ExportSettings s;
    s.channels = ChannelSetting::stereo;
    s.sampleRate = SampleRateOption::hz44100;
    EXPECT_EQ(s.summary(), QString::fromUtf8("M4B · AAC-LC · 128 kbps · Stereo · 44100 Hz"));
    s.outputFormat = OutputFormat::mp3;
    s.keepSourceBitrate = true;
    EXPECT_EQ(s.summary(), QString::fromUtf8("MP3 · Keep original · Stereo · 44100 Hz"));
}
