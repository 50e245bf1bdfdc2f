#pragma once

#include "core/settings/ExportSettingsEnums.h"

#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// What a build should produce. Every build starts from one, the queue keeps
// one per job and each saved preset holds one.
//
// A new value holds the everyday audiobook setting (the same audio as the
// "Balanced" preset): a chaptered M4B in AAC-LC at 128 kbps CBR, channels and
// sample rate following the sources, copying without encoding allowed when
// the sources fit, no split (a split by duration would make 8-hour parts, by
// size 500 MB parts, snapped to chapters), and the cover kept at its own size
// and quality.
//
// JSON: one key per field, enumerations by case name; cbrBitrateKbps is left
// out when empty and is the only optional key on decode.
struct ExportSettings {
    OutputFormat outputFormat = OutputFormat::m4b;
    AudioCodec codec = AudioCodec::aacLC;
    ChannelSetting channels = ChannelSetting::auto_;
    SampleRateOption sampleRate = SampleRateOption::auto_;
    BitrateMode bitrateMode = BitrateMode::cbr;
    PassthroughPolicy passthroughPolicy = PassthroughPolicy::auto_;
    std::optional<int> cbrBitrateKbps = 128;
    bool keepSourceBitrate = false;
    SplitMode splitMode = SplitMode::off;
    // Hours per part; fractions allowed ("1.5").
    double splitHours = 8;
    int splitSizeMB = 500;
    bool snapToChapters = true;
    CoverSize coverSize = CoverSize::original;
    CoverQuality coverQuality = CoverQuality::original;

    // One line for logs and lists, e.g. "M4B · AAC-LC · 128 kbps · Stereo ·
    // 44100 Hz" (MP3 output names no codec; a kept source rate reads "Keep
    // original").
    QString summary() const;

    QJsonObject toJson() const;
    static ExportSettings fromJson(const QJsonObject& json);

    bool operator==(const ExportSettings&) const = default;
};

} // namespace folivox
