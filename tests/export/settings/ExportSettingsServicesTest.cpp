#include "export/settings/AudiobookSourceInfo.h"
#include "export/settings/CoverOptions.h"
#include "export/settings/ExportPreset.h"
#include "export/settings/ExportSettingsCapService.h"
#include "export/settings/ExportSettingsError.h"
#include "export/settings/ExportSettingsValidator.h"
#include "export/settings/PresetManager.h"
#include "export/settings/SampleRateOptionsService.h"

#include "core/json/JsonReader.h"
#include "platform/L10n.h"
#include "support/Fixtures.h"

#include <QBuffer>
#include <QImage>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

AudiobookSourceInfo sourceWith(const QStringList& codecs, std::set<int> rates, std::set<int> channels)
{
    AudiobookSourceInfo info;
    info.codecs = codecs;
    info.sampleRates = std::move(rates);
    info.channels = std::move(channels);
    return info;
}

QByteArray pngBytes(int width, int height, bool withAlpha)
{
    QImage image(width, height, withAlpha ? QImage::Format_ARGB32 : QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, qRgba((x * 7) % 256, (y * 3) % 256, (x + y) % 256, withAlpha ? (x % 2 ? 0 : 255) : 255));
    QByteArray out;
    QBuffer buffer(&out);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return out;
}

} // namespace

TEST(ExportPresets, KeysNamesAndWhatEachYields)
{
    struct Row {
        ExportPreset preset;
        const char* name;
        const char* key;
        const char* defaultName;
    };
    const Row rows[] = {
        {ExportPreset::custom, "custom", "export.preset.custom", "Custom"},
        {ExportPreset::highDetail, "highDetail", "export.preset.highdetail", "High Detail"},
        {ExportPreset::balanced, "balanced", "export.preset.balanced", "Balanced"},
        {ExportPreset::spaceSaver, "spaceSaver", "export.preset.spacesaver", "Space Saver"},
        {ExportPreset::iPodCompatibility, "iPodCompatibility", "export.preset.ipod", "Vintage Devices (iPod)"},
    };
    ASSERT_EQ(enumCases<ExportPreset>().size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        EXPECT_EQ(enumCases<ExportPreset>()[i], row.preset);
        EXPECT_EQ(enumFromName<ExportPreset>(QString::fromLatin1(row.name)), row.preset);
        EXPECT_EQ(presetKey(row.preset), QString::fromLatin1(row.key));
        EXPECT_EQ(presetDefaultName(row.preset), QString::fromLatin1(row.defaultName));
        EXPECT_EQ(presetName(row.preset), QString::fromLatin1(row.defaultName));
        // Every preset makes settings a build accepts, and they survive storage.
        const ExportSettings s = presetSettings(row.preset);
        EXPECT_NO_THROW(ExportSettingsValidator::validate(s));
        EXPECT_EQ(ExportSettings::fromJson(JsonReader::parseObject(QJsonDocument(s.toJson()).toJson())), s);
        EXPECT_TRUE(presetMatches(row.preset, s));
    }
    EXPECT_EQ(presetSettings(ExportPreset::iPodCompatibility).codec, AudioCodec::aacLC);
    EXPECT_EQ(presetSettings(ExportPreset::custom), ExportSettings());
    // The presets differ from one another.
    EXPECT_NE(presetSettings(ExportPreset::highDetail), presetSettings(ExportPreset::balanced));
    EXPECT_NE(presetSettings(ExportPreset::balanced), presetSettings(ExportPreset::spaceSaver));

    L10n::setOverride(QStringLiteral("export.preset.ipod"), QStringLiteral("Alte Geräte (iPod)"));
    EXPECT_EQ(presetName(ExportPreset::iPodCompatibility), QStringLiteral("Alte Geräte (iPod)"));
    L10n::clearOverrides();
}

TEST(ExportPresets, ChangedPresetAndEditedRowNames)
{
    ExportSettings s = presetSettings(ExportPreset::balanced);
    EXPECT_EQ(presetDisplayName(ExportPreset::balanced, s), QStringLiteral("Balanced"));
    s.outputFormat = OutputFormat::m4a; // not a preset field
    EXPECT_EQ(presetDisplayName(ExportPreset::balanced, s), QStringLiteral("Balanced"));
    s.cbrBitrateKbps = 96;
    EXPECT_EQ(presetDisplayName(ExportPreset::balanced, s), QStringLiteral("Balanced (Custom)"));
    EXPECT_EQ(presetDisplayName(ExportPreset::custom, s), QStringLiteral("Custom"));
    EXPECT_EQ(quickSetupEditedName(QStringLiteral("Podcast")), QStringLiteral("Podcast (edited)"));
    EXPECT_EQ(bestForBookName(), QStringLiteral("Best for This Book"));
}

TEST(PresetManagerApply, IPodPresetMovesAnHeAacSourceToAacLcAndSaysWhy)
{
    ExportSettings current;
    current.outputFormat = OutputFormat::m4a;
    current.splitMode = SplitMode::byDuration;
    current.splitHours = 3;
    current.codec = AudioCodec::heAAC;

    const PresetManager heSource{sourceWith({QStringLiteral("he-aac")}, {44100}, {2})};
    const auto applied = heSource.apply(ExportPreset::iPodCompatibility, current);
    EXPECT_EQ(applied.settings.codec, AudioCodec::aacLC);
    EXPECT_TRUE(applied.wasCodecAdjusted);
    EXPECT_EQ(applied.codecAdjustmentReason,
              QStringLiteral("iPod compatibility requires AAC-LC. Source will be re-encoded from HE-AAC."));
    // The preset's audio, the user's container and split.
    EXPECT_EQ(applied.settings.sampleRate, SampleRateOption::hz44100);
    EXPECT_EQ(applied.settings.outputFormat, OutputFormat::m4a);
    EXPECT_EQ(applied.settings.splitMode, SplitMode::byDuration);
    EXPECT_EQ(applied.settings.splitHours, 3);

    const PresetManager lcSource{sourceWith({QStringLiteral("aac-lc")}, {44100}, {2})};
    const auto plain = lcSource.apply(ExportPreset::iPodCompatibility, current);
    EXPECT_EQ(plain.settings.codec, AudioCodec::aacLC);
    EXPECT_FALSE(plain.wasCodecAdjusted);
    EXPECT_FALSE(plain.codecAdjustmentReason.has_value());

    // Other presets make no codec adjustment; custom keeps the settings as they are.
    EXPECT_FALSE(heSource.apply(ExportPreset::balanced, current).wasCodecAdjusted);
    EXPECT_EQ(heSource.apply(ExportPreset::custom, current).settings, current);
}

TEST(PresetManagerApply, HeAacSourceWarningWhenEncodingToAacLc)
{
    const PresetManager heSource{sourceWith({QStringLiteral("aac-lc"), QStringLiteral("he-aacv2")}, {44100}, {2})};
    const ExportSettings lc = presetSettings(ExportPreset::balanced);
    const auto warning = heSource.heAACReencodeWarning(lc, true);
    ASSERT_TRUE(warning.has_value());
    EXPECT_EQ(warning->message, QStringLiteral("Source uses HE-AAC. Re-encoding to AAC-LC may reduce quality."));
    EXPECT_EQ(warning->actionTitle, QStringLiteral("Switch to HE-AAC"));
    EXPECT_EQ(warning->suggestedCodec, AudioCodec::heAAC);
    EXPECT_FALSE(heSource.heAACReencodeWarning(lc, false)); // nothing to switch to
    ExportSettings he = lc;
    he.codec = AudioCodec::heAAC;
    EXPECT_FALSE(heSource.heAACReencodeWarning(he, true));
    EXPECT_FALSE(PresetManager{sourceWith({QStringLiteral("mp3")}, {44100}, {2})}.heAACReencodeWarning(lc, true));
}

TEST(ExportSettingsCap, RateAndChannelsFollowTheSourcesAndSavedPresetsWarn)
{
    const AudiobookSourceInfo monoLowRate = [] {
        auto info = sourceWith({QStringLiteral("mp3")}, {22050}, {1});
        info.bitratesBps = {64000};
        return info;
    }();
    const ExportSettingsCapService cap{monoLowRate, std::nullopt};

    ExportSettings s;
    s.channels = ChannelSetting::stereo;
    s.sampleRate = SampleRateOption::hz48000;
    s.cbrBitrateKbps = 128;
    const auto result = cap.capped(s);
    EXPECT_TRUE(result.channelsCapped);
    EXPECT_TRUE(result.sampleRateCapped);
    EXPECT_TRUE(result.bitrateCapped);
    EXPECT_EQ(result.settings.channels, ChannelSetting::mono);
    EXPECT_EQ(result.settings.sampleRate, SampleRateOption::hz22050);
    EXPECT_EQ(result.settings.cbrBitrateKbps, 64); // mono steps: 64 is a step

    // Below every fixed rate the rate follows the source.
    const ExportSettingsCapService tiny{sourceWith({QStringLiteral("mp3")}, {16000}, {2}), std::nullopt};
    EXPECT_EQ(tiny.capped(s).settings.sampleRate, SampleRateOption::auto_);

    UserExportPreset preset;
    preset.name = QStringLiteral("Studio");
    preset.settings = s;
    const auto warning = cap.capWarning(preset);
    ASSERT_TRUE(warning.has_value());
    EXPECT_EQ(warning->presetName, QStringLiteral("Studio"));
    EXPECT_EQ(warning->appliedSummary, QString::fromUtf8("M4B · AAC-LC · 64 kbps · Mono · 22050 Hz"));
    EXPECT_FALSE(warning->id.isNull());

    preset.settings = result.settings;
    EXPECT_FALSE(cap.capWarning(preset).has_value());
    // Without a source summary nothing is held down.
    EXPECT_FALSE(ExportSettingsCapService{}.capped(s).changed());
}

TEST(SampleRateOptions, OfferedCodecsAndRatesFollowEncoderAndSources)
{
    SampleRateOptionsService service{sourceWith({QStringLiteral("aac-lc")}, {44100}, {2}), std::nullopt, false};
    EXPECT_EQ(service.availableCodecs(OutputFormat::m4b), (std::vector<AudioCodec>{AudioCodec::aacLC}));
    EXPECT_TRUE(service.availableCodecs(OutputFormat::mp3).empty());
    EXPECT_EQ(service.availableOptions(AudioCodec::aacLC),
              (std::vector<SampleRateOption>{SampleRateOption::auto_, SampleRateOption::hz22050,
                                             SampleRateOption::hz32000, SampleRateOption::hz44100}));
    ExportSettings wantsHE;
    wantsHE.codec = AudioCodec::heAAC;
    wantsHE.sampleRate = SampleRateOption::hz48000;
    const ExportSettings fixed = service.constrained(wantsHE);
    EXPECT_EQ(fixed.codec, AudioCodec::aacLC);
    EXPECT_EQ(fixed.sampleRate, SampleRateOption::auto_);

    service.heAACEncoderAvailable = true;
    EXPECT_EQ(service.availableCodecs(OutputFormat::m4b),
              (std::vector<AudioCodec>{AudioCodec::aacLC, AudioCodec::heAAC}));
    EXPECT_EQ(service.availableOptions(AudioCodec::heAAC),
              (std::vector<SampleRateOption>{SampleRateOption::auto_, SampleRateOption::hz32000,
                                             SampleRateOption::hz44100}));
    EXPECT_EQ(service.constrained(wantsHE).codec, AudioCodec::heAAC);

    service.savedCustomRate = SampleRateOption::hz22050;
    EXPECT_EQ(service.initialOption(AudioCodec::aacLC), SampleRateOption::hz22050);
    EXPECT_EQ(service.initialOption(AudioCodec::heAAC), SampleRateOption::auto_);

    const SampleRateOptionsService unknown{};
    EXPECT_EQ(unknown.availableOptions(AudioCodec::aacLC).size(), 5u);
}

TEST(CoverChoices, ResizeChoicesHiddenBelow600AndLabels)
{
    EXPECT_EQ(CoverOptions::availableSizes(QSize(599, 400)), (std::vector<CoverSize>{CoverSize::original}));
    EXPECT_EQ(CoverOptions::availableSizes(QSize(400, 599)), (std::vector<CoverSize>{CoverSize::original}));
    EXPECT_EQ(CoverOptions::availableSizes(QSize(600, 300)).size(), 3u);
    EXPECT_EQ(CoverOptions::availableSizes(QSize()).size(), 3u);
    EXPECT_EQ(CoverOptions::effectiveSize(CoverSize::px600, QSize(500, 500)), CoverSize::original);
    EXPECT_EQ(CoverOptions::effectiveSize(CoverSize::px600, QSize(700, 500)), CoverSize::px600);

    EXPECT_EQ(CoverOptions::targetSize(CoverSize::px1000, QSize(3000, 1500)), QSize(1000, 500));
    EXPECT_EQ(CoverOptions::targetSize(CoverSize::px600, QSize(800, 1600)), QSize(300, 600));
    EXPECT_EQ(CoverOptions::targetSize(CoverSize::px1000, QSize(800, 700)), QSize(800, 700)); // never enlarged
    EXPECT_EQ(CoverOptions::targetSize(CoverSize::original, QSize(3000, 1500)), QSize(3000, 1500));

    EXPECT_EQ(CoverOptions::label(CoverSize::original, CoverQuality::original), QStringLiteral("Original (100%)"));
    EXPECT_EQ(CoverOptions::label(CoverSize::px600, CoverQuality::q80), QStringLiteral("600px, 80%"));
    EXPECT_EQ(CoverOptions::jpegQuality(CoverQuality::q70), 70);
}

TEST(CoverChoices, RenderedCoverIsJpegAtTheChosenSize)
{
    const QByteArray png = pngBytes(1200, 800, true);

    const auto resized = CoverOptions::renderCover(png, CoverSize::px1000, CoverQuality::q90);
    ASSERT_TRUE(resized.has_value());
    EXPECT_TRUE(resized->startsWith("\xff\xd8\xff"));
    QImage back;
    ASSERT_TRUE(back.loadFromData(*resized, "JPEG"));
    EXPECT_EQ(back.size(), QSize(1000, 667));
    // Transparent pixels become white, not black.
    const QRgb transparentColumn = back.pixel(501, 400);
    EXPECT_GT(qGray(transparentColumn) + qGray(back.pixel(503, 400)), 2 * 150);

    // At its own size and quality a PNG keeps its bytes (and its alpha).
    const auto original = CoverOptions::renderCover(png, CoverSize::original, CoverQuality::original);
    ASSERT_TRUE(original.has_value());
    EXPECT_EQ(*original, png);

    // A quality asked for makes it a JPEG at that quality.
    const auto q90 = CoverOptions::renderCover(png, CoverSize::original, CoverQuality::q90);
    const auto small = CoverOptions::renderCover(png, CoverSize::original, CoverQuality::q60);
    ASSERT_TRUE(q90.has_value() && small.has_value());
    ASSERT_TRUE(back.loadFromData(*small, "JPEG"));
    EXPECT_EQ(back.size(), QSize(1200, 800));
    EXPECT_LT(small->size(), q90->size());

    // A small image asked for 600 px stays at its own size.
    const auto tiny = CoverOptions::renderCover(pngBytes(300, 200, false), CoverSize::px600, CoverQuality::q80);
    ASSERT_TRUE(tiny.has_value());
    ASSERT_TRUE(back.loadFromData(*tiny, "JPEG"));
    EXPECT_EQ(back.size(), QSize(300, 200));

    EXPECT_FALSE(CoverOptions::renderCover(QByteArray("not an image"), CoverSize::original, CoverQuality::q90));
}

TEST(SplitValidation, SplitWithoutPositiveLengthFailsWithTheMessage)
{
    ExportSettings s;
    s.splitMode = SplitMode::byDuration;
    for (int hours : {0, -2}) {
        s.splitHours = hours;
        try {
            ExportSettingsValidator::validate(s);
            ADD_FAILURE() << "accepted splitHours " << hours;
        } catch (const ExportSettingsError& e) {
            EXPECT_EQ(e.kind(), ExportSettingsError::Kind::invalidSplitHours);
            EXPECT_EQ(e.value(), hours);
            EXPECT_EQ(e.description(), QStringLiteral("splitHours must be > 0 for split export"));
            EXPECT_STREQ(e.what(), "splitHours must be > 0 for split export");
        }
    }
    s.splitHours = 1;
    EXPECT_NO_THROW(ExportSettingsValidator::validate(s));

    s.splitMode = SplitMode::bySize;
    s.splitHours = 0; // not looked at for a split by size
    s.splitSizeMB = 0;
    try {
        ExportSettingsValidator::validate(s);
        ADD_FAILURE() << "accepted splitSizeMB 0";
    } catch (const Error& e) {
        EXPECT_EQ(e.description(), QStringLiteral("splitSizeMB must be > 0 for split export"));
    }
    s.splitSizeMB = 300;
    EXPECT_NO_THROW(ExportSettingsValidator::validate(s));

    s.splitMode = SplitMode::off;
    s.splitSizeMB = 0;
    EXPECT_NO_THROW(ExportSettingsValidator::validate(s));
}

TEST(SourceSummary, BuiltFromTracksAndFilesOnDisk)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString a = dir.filePath(QStringLiteral("01.MP3"));
    const QString b = dir.filePath(QStringLiteral("02.m4a"));
    ASSERT_TRUE(test::Fixtures::writeFile(a, QByteArray(120'000, 'x')));
    ASSERT_TRUE(test::Fixtures::writeFile(b, QByteArray(30'000, 'y')));

    Track t1;
    t1.url = QUrl::fromLocalFile(a);
    t1.duration = 10.0;
    t1 = t1.withCachedFormat({QStringLiteral("MP3"), 96'000, 44100, 2, std::nullopt, std::nullopt});
    Track t2;
    t2.url = QUrl::fromLocalFile(b);
    t2.duration = 5.0;
    t2 = t2.withCachedFormat({QStringLiteral("he-aac"), 48'000, 48000, 1, std::nullopt, 30'000u});
    Track uncached;
    uncached.url = QUrl::fromLocalFile(dir.filePath(QStringLiteral("missing.flac")));
    uncached.duration = 5.0;

    const auto info = AudiobookSourceInfo::fromTracks({t1, t2, t1.withDuration(10.0), uncached}, 7);
    EXPECT_EQ(info.totalFileCount, 3); // the repeated file counts once
    EXPECT_EQ(info.cachedFileCount, 2);
    EXPECT_EQ(info.chapterCount, 7);
    EXPECT_DOUBLE_EQ(info.totalDuration, 20.0);
    EXPECT_EQ(info.totalSize, 150'000u); // 120000 read from disk, 30000 cached, missing file 0
    EXPECT_EQ(info.codecs, (QStringList{"mp3", "he-aac"}));
    EXPECT_EQ(info.sampleRates, (std::set<int>{44100, 48000}));
    EXPECT_EQ(info.channels, (std::set<int>{1, 2}));
    EXPECT_EQ(info.fileExtensions, (std::set<QString>{"mp3", "m4a", "flac"}));
    EXPECT_EQ(info.avgBitrateKbpsFallback, 60); // 150000 bytes * 8 / 20 s
    EXPECT_EQ(info.bitrateKbps(), 96);          // a probed rate wins over the estimate
    EXPECT_TRUE(info.hasHEAACSource());
    EXPECT_FALSE(info.hasLosslessSource());
    EXPECT_EQ(info.formattedPrimaryLine, QString::fromUtf8("3 files · 0h 00m · MP3/HE-AAC · 48000 Hz · Stereo · 96 kbps"));
}
