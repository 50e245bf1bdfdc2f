#pragma once

#include "core/book/BookMetadataPatch.h"
#include "core/book/TrackSortMode.h"
#include "core/settings/ExportSettings.h"
#include "export/settings/ExportPreset.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace folivox::cli {

// Everything the options of `folivox build` say, checked. `folivox queue add`
// takes the same options, and `folivox update` its tag options.
struct BuildOptions {
    QStringList inputs;
    std::optional<QString> output;
    std::optional<OutputFormat> format;
    std::optional<ExportPreset> preset;
    std::optional<AudioCodec> codec;
    std::optional<int> bitrate;
    bool keepBitrate = false;
    std::optional<ChannelSetting> channels;
    std::optional<SampleRateOption> sampleRate;
    std::optional<PassthroughPolicy> passthrough;
    std::optional<double> splitHours;
    std::optional<int> splitSizeMB;
    bool snapToChapters = false;
    std::optional<QString> cover;
    std::optional<CoverSize> coverSize;
    std::optional<CoverQuality> coverQuality;
    // Tags given on the command line.
    BookMetadataPatch tags;
    std::optional<QString> chapters;
    bool noSidecar = false;
    bool skipUnreadable = false;
    bool repairDamaged = false;
    std::optional<TrackSortMode> sort;
    std::optional<int> jobs;
    std::optional<QString> logFile;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    bool force = false;
    std::optional<QString> book;
    std::optional<QString> library;
    bool dryRun = false;
};

} // namespace folivox::cli
